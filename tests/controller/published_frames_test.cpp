// When a controller's thread makes a frame, and what happens to held frames.
#include <gtest/gtest.h>

#include <optional>
#include <vector>

#include "tests/controller/driven_clock.h"
#include "tests/controller/flows.h"
#include "tests/support/bits.h"
#include "tests/support/flows.h"

namespace zeph {
namespace {

using test::DrivenClock;

TEST(PublishedFrame, IsMadeAtOnceWhenTheViewBecomesVisible) {
  DrivenClock clock;
  std::optional<DrivenClock::Hold> hold(clock);
  Controller controller(test::pausedRun(), test::processor, clock.clock());
  hold->awaitReader();
  controller.setVisible(false);
  hold.reset();
  Status status = test::whenSettled(controller);
  EXPECT_FALSE(status.ready);
  EXPECT_EQ(status.frame, nullptr);
  EXPECT_EQ(status.frameCount, 0u);
  EXPECT_EQ(status.history.size(), 1u);
  controller.setVisible(true);
  status = test::waitFor(controller, [](const Status& now) { return now.ready; });
  EXPECT_FALSE(status.running);
  ASSERT_NE(status.frame, nullptr);
  controller.setVisible(false);
  controller.setVisible(true);
  test::waitFor(controller, [](const Status& now) { return now.frameCount == 2; });
}

TEST(PublishedFrame, IsNotMadeForAViewThatIsNotVisible) {
  RunSettings run = test::freeRun();
  Controller controller(run, test::processor);
  test::waitFor(controller, [](const Status& status) { return status.frameCount > 2; });
  controller.setVisible(false);
  test::waitForSomePasses();
  const Status hidden = controller.status();
  test::afterSteps(controller, hidden.stats.steps + 500);
  controller.step();
  const Status status = test::whenSettled(controller);
  EXPECT_EQ(status.frameCount, hidden.frameCount);
  EXPECT_LT(status.frame->sequence, status.stats.steps);
  EXPECT_GE(status.history.size(), 1u);
}

TEST(PublishedFrame, HasTheVelocityFromTheNextFrameOn) {
  Controller controller(test::pausedRun(), test::processor);
  test::whenSettled(controller);
  controller.setVelocityNeeded(true);
  const Status with =
      test::waitFor(controller, [](const Status& now) { return now.frame->hasVelocity; });
  EXPECT_EQ(with.frameCount, 2u);
  EXPECT_GT(with.frame->maxSpeed, 0);
  controller.setVelocityNeeded(false);
  test::waitFor(controller, [](const Status& now) { return !now.frame->hasVelocity; });
}

TEST(PublishedFrame, IsUnchangedWhileItIsHeld) {
  Controller controller(test::pausedRun(), test::processor);
  const auto frame = test::whenSettled(controller).frame;
  const std::vector<float> before(frame->data(), frame->data() + 256);
  for (std::uint64_t k = 1; k <= 8; ++k) {
    controller.step();
    const Status status =
        test::waitFor(controller, [=](const Status& now) { return now.frame->sequence == k; });
    EXPECT_NE(status.frame->data(), frame->data());
  }
  EXPECT_TRUE(test::sameBits(std::vector<float>(frame->data(), frame->data() + 256), before));
}

TEST(PublishedFrame, WaitsForAFreeBlock) {
  Controller controller(test::pausedRun(), test::processor);
  auto held = test::holdEveryBlock(controller);
  controller.step();
  test::afterSteps(controller, 3);
  test::waitForSomePasses();
  EXPECT_EQ(controller.status().frame->sequence, 2u);
  EXPECT_EQ(controller.status().error_message, "");
  held.front().reset();
  test::waitFor(controller, [](const Status& now) { return now.frame->sequence == 3; });
}

}  // namespace
}  // namespace zeph
