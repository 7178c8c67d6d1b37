// Integers and numbers at their limits. tests/abi checks the types and names of request members.
#include "boundary/json_reading.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <stdexcept>

#include "tests/boundary/failure_text.h"

namespace zeph {
namespace {

constexpr auto smallest = std::numeric_limits<std::int32_t>::min();

std::int32_t int32Of(const char* text) {
  return toInt32(Json::parse(text));
}

TEST(JsonIntegers, KeepTheirLow32Bits) {
  EXPECT_EQ(int32Of("7"), 7);
  EXPECT_EQ(int32Of("-7"), -7);
  EXPECT_EQ(int32Of("3000000000"), -1294967296);
  EXPECT_EQ(int32Of("4294967312"), 16);
  EXPECT_EQ(int32Of("-4294967280"), 16);
  EXPECT_EQ(int32Of("18446744073709551615"), -1);
}

TEST(JsonIntegers, LoseTheirFraction) {
  EXPECT_EQ(int32Of("16.9"), 16);
  EXPECT_EQ(int32Of("-16.9"), -16);
  EXPECT_EQ(int32Of("1e3"), 1000);
  EXPECT_EQ(int32Of("2147483647.5"), 2147483647);
  EXPECT_EQ(int32Of("-2147483648.5"), smallest);
}

TEST(JsonIntegers, BecomeTheSmallestIntegerIfAFloatDoesNotFit) {
  for (const char* text : {"2147483648.0", "3e9", "1e300", "-1e300", "-2147483649.0", "1e19"})
    EXPECT_EQ(int32Of(text), smallest) << text;
}

TEST(JsonIntegers, MayBeBooleans) {
  EXPECT_EQ(int32Of("true"), 1);
  EXPECT_EQ(int32Of("false"), 0);
}

TEST(JsonNumbers, AreFinite) {
  const double infinity = std::numeric_limits<double>::infinity();
  const double nan = std::numeric_limits<double>::quiet_NaN();
  const auto failure = [](auto&& read) { return failureText<std::invalid_argument>(read); };
  EXPECT_EQ(failure([&] { readNumber(Json{{"x", infinity}}, "x"); }), "Non-finite x");
  EXPECT_EQ(failure([&] { readNumber(Json{{"x", nan}}, "x"); }), "Non-finite x");
  EXPECT_EQ(failure([&] { readNumber(Json::object(), "x", nan); }), "Non-finite x");
}

}  // namespace
}  // namespace zeph
