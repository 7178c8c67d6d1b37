// When a field is copied to the memory that the shaders read.
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>

#include "tests/boundary/failure_text.h"
#include "tests/render/reference.h"

namespace zeph {
namespace {

class FieldTransfer : public test::OnRenderer {
 protected:
  std::string failureOf(const std::shared_ptr<const Frame>& frame) {
    return failureText<std::runtime_error>([&] { renderer().transferField(frame); });
  }
};

void fill(const Frame& frame, float value) {
  std::fill_n(frame.block.get(), 3 * frame.gridSize * frame.gridSize, value);
}

TEST_F(FieldTransfer, TheSameFrameIsNotMovedAgain) {
  const auto frame = test::noise(16);
  const test::Picture first = draw(frame, {}, 50);
  fill(*frame, 0);
  EXPECT_EQ(draw(frame, {}, 50), first);
}

// Frames are compared by identity, not by their values.
TEST_F(FieldTransfer, AnotherFrameIsMovedEvenIfItsFiguresAreEqual) {
  const auto frame = test::noise(16);
  const test::Picture first = draw(frame, {}, 50);
  fill(*frame, 0);
  const auto copy = std::make_shared<Frame>(*frame);
  EXPECT_FALSE(draw(copy, {}, 50) == first);
}

TEST_F(FieldTransfer, WithoutAFrameNothingIsDrawn) {
  EXPECT_EQ(failureOf(nullptr), "(nothing raised)");
  const auto target = renderer().makeTarget(8, 8, TexelFormat::bgra8);
  EXPECT_NO_THROW(renderer().drawPicture(*target, nullptr, {}, {.size = 8}));
}

TEST_F(FieldTransfer, NoFrameAfterAFrameIsAFailureThatLeavesTheFrame) {
  const auto frame = test::noise(16);
  const test::Picture first = draw(frame, {}, 50);
  EXPECT_EQ(failureOf(nullptr), "No completed field to render.");
  fill(*frame, 0);
  EXPECT_EQ(draw(frame, {}, 50), first);
  EXPECT_EQ(failureOf(nullptr), "No completed field to render.");
}

TEST_F(FieldTransfer, GridsOfAllSizesFollowOneAnother) {
  for (const int n : {16, 18, 64, 18, 16}) {
    const auto frame = test::noise(n, static_cast<unsigned>(n));
    SCOPED_TRACE(n);
    test::expectReference(draw(frame, {}, 61), *frame, {});
  }
}

TEST_F(FieldTransfer, AFrameIsHeldUntilAnotherReplacesIt) {
  const auto first = test::noise(16);
  const auto second = test::noise(16, 2);
  renderer().transferField(first);
  EXPECT_EQ(first.use_count(), 2);
  renderer().transferField(first);
  EXPECT_EQ(first.use_count(), 2);
  failureOf(nullptr);
  EXPECT_EQ(first.use_count(), 2);
  renderer().transferField(second);
  EXPECT_EQ(first.use_count(), 1);
  EXPECT_EQ(second.use_count(), 2);
  endRenderer();
  EXPECT_EQ(second.use_count(), 1);
}

// A frame that is never read: there is no such memory.
TEST_F(FieldTransfer, AGridThatIsTooLargeIsReportedAndTheLastFrameIsStillDrawn) {
  const auto frame = test::noise(16);
  const test::Picture first = draw(frame, {}, 50);
  const auto huge = std::make_shared<Frame>(*frame);
  huge->gridSize = 20000;
  EXPECT_EQ(failureOf(huge), "Shared field buffer too small.");
  EXPECT_EQ(huge.use_count(), 1);
  EXPECT_EQ(draw(frame, {}, 50), first);
  const auto next = test::noise(18);
  test::expectReference(draw(next, {}, 50), *next, {});
}

}  // namespace
}  // namespace zeph
