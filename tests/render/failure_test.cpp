// The text of a failure of the graphics system.
#include "render/failure.h"

#include <gtest/gtest.h>

#include <limits>

#include "tests/boundary/failure_text.h"

namespace zeph {
namespace {

std::string textOf(std::int32_t result) {
  return failureText<std::runtime_error>([=] { checkResult(result, "Create brush"); });
}

TEST(GraphicsFailure, NamesTheStepAndTheResultInLowercaseHexadecimal) {
  EXPECT_EQ(textOf(-1), "Create brush failed (0xffffffff)");
  EXPECT_EQ(textOf(-9), "Create brush failed (0xfffffff7)");
  EXPECT_EQ(textOf(std::numeric_limits<std::int32_t>::min()), "Create brush failed (0x80000000)");
  EXPECT_EQ(textOf(static_cast<std::int32_t>(0x887a0005u)), "Create brush failed (0x887a0005)");
}

TEST(GraphicsFailure, IsOnlyANegativeResult) {
  for (const std::int32_t result : {0, 1, 5, std::numeric_limits<std::int32_t>::max()})
    EXPECT_EQ(textOf(result), "(nothing raised)");
}

TEST(GraphicsFailure, OfTheSystemHasNoLeadingZeros) {
  const auto text = [](std::uint32_t code) {
    return failureText<std::runtime_error>([=] { failStep(code, "Open PNG"); });
  };
  EXPECT_EQ(text(2), "Open PNG failed (0x2)");
  EXPECT_EQ(text(28), "Open PNG failed (0x1c)");
  EXPECT_EQ(text(0), "Open PNG failed (0x0)");
}

}  // namespace
}  // namespace zeph
