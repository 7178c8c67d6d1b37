#include "boundary/config.h"

#include <gtest/gtest.h>

#include <limits>
#include <stdexcept>

#include "tests/boundary/failure_text.h"

namespace zeph {
namespace {

constexpr auto largest = std::numeric_limits<std::uint64_t>::max();

TEST(Decimal, OnlyDigitsAreDecimal) {
  EXPECT_TRUE(isDecimal("0"));
  EXPECT_TRUE(isDecimal("007"));
  for (const char* text : {"", "-1", "+1", " 1", "1 ", "1a", "0x1", "1.5", "1e3", "\xd9\xa1"})
    EXPECT_FALSE(isDecimal(text)) << '"' << text << '"';
}

TEST(Decimal, TheLimitIsAcceptedAndOneMoreIsNot) {
  EXPECT_EQ(decimalValue("18446744073709551615", largest, "over"), largest);
  EXPECT_EQ(decimalValue("2147483647", 2147483647, "over"), 2147483647u);
  const auto over = [](const char* digits, std::uint64_t limit) {
    return failureText<std::out_of_range>([=] { decimalValue(digits, limit, "over"); });
  };
  EXPECT_EQ(over("18446744073709551616", largest), "over");
  EXPECT_EQ(over("99999999999999999999999999", largest), "over");
  EXPECT_EQ(over("2147483648", 2147483647), "over");
  EXPECT_EQ(over("8", 7), "over");
}

TEST(Decimal, LeadingZerosDoNotCount) {
  EXPECT_EQ(decimalValue("000000000000000000000000000042", largest, "over"), 42u);
}

}  // namespace
}  // namespace zeph
