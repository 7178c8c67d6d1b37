#include "boundary/json_reading.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <limits>
#include <stdexcept>

#include "tests/boundary/failure_text.h"

namespace zeph {
namespace {

constexpr auto smallest = std::numeric_limits<std::int32_t>::min();
constexpr const char* numberExpected =
    "[json.exception.type_error.302] type must be number, but is ";

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

TEST(JsonIntegers, BecomeTheSmallestOneWhereAFloatDoesNotFit) {
  for (const char* text : {"2147483648.0", "3e9", "1e300", "-1e300", "-2147483649.0", "1e19"})
    EXPECT_EQ(int32Of(text), smallest) << text;
}

TEST(JsonIntegers, MayBeBooleans) {
  EXPECT_EQ(int32Of("true"), 1);
  EXPECT_EQ(int32Of("false"), 0);
}

TEST(JsonIntegers, AreNothingElse) {
  const auto failure = [](const char* value) {
    return failureText([=] { readInteger(Json{{"n", Json::parse(value)}}, "n", 1); });
  };
  EXPECT_EQ(failure("null"), std::string(numberExpected) + "null");
  EXPECT_EQ(failure("\"5\""), std::string(numberExpected) + "string");
  EXPECT_EQ(failure("[]"), std::string(numberExpected) + "array");
  EXPECT_EQ(failure("{}"), std::string(numberExpected) + "object");
  EXPECT_EQ(readInteger(Json::object(), "n", 5), 5);
}

TEST(JsonNumbers, CountAsAbsentWhenTheyAreNull) {
  EXPECT_EQ(readNumber(Json{{"x", nullptr}}, "x"), std::nullopt);
  EXPECT_EQ(readNumber(Json::object(), "x"), std::nullopt);
  EXPECT_EQ(readNumber(Json{{"x", nullptr}}, "x", 2.5), 2.5);
  EXPECT_EQ(readNumber(Json{{"x", 3}}, "x"), 3.0);
  EXPECT_EQ(readNumber(Json{{"x", -0.1}}, "x", 2.5), -0.1);
}

TEST(JsonNumbers, AreNoBooleansAndNoText) {
  const auto failure = [](const Json& value) {
    return failureText([&] { readNumber(Json{{"x", value}}, "x"); });
  };
  EXPECT_EQ(failure(true), std::string(numberExpected) + "boolean");
  EXPECT_EQ(failure("1"), std::string(numberExpected) + "string");
}

TEST(JsonNumbers, AreFinite) {
  const double infinity = std::numeric_limits<double>::infinity();
  const double nan = std::numeric_limits<double>::quiet_NaN();
  const auto failure = [](auto&& read) { return failureText<std::invalid_argument>(read); };
  EXPECT_EQ(failure([&] { readNumber(Json{{"x", infinity}}, "x"); }), "Non-finite x");
  EXPECT_EQ(failure([&] { readNumber(Json{{"x", nan}}, "x"); }), "Non-finite x");
  EXPECT_EQ(failure([&] { readNumber(Json::object(), "x", nan); }), "Non-finite x");
}

TEST(JsonBooleans, AreTrueOrFalseIfPresent) {
  EXPECT_TRUE(readBoolean(Json::object(), "b", true));
  EXPECT_FALSE(readBoolean(Json{{"b", false}}, "b", true));
  const auto failure = [](const Json& value) {
    return failureText([&] { readBoolean(Json{{"b", value}}, "b", true); });
  };
  EXPECT_EQ(failure(1), "[json.exception.type_error.302] type must be boolean, but is number");
  EXPECT_EQ(failure(nullptr), "[json.exception.type_error.302] type must be boolean, but is null");
}

TEST(JsonBooleans, MayBeAbsentOrNullWhereNothingIsAskedFor) {
  EXPECT_EQ(findBoolean(Json::object(), "b"), std::nullopt);
  EXPECT_EQ(findBoolean(Json{{"b", nullptr}}, "b"), std::nullopt);
  EXPECT_EQ(findBoolean(Json{{"b", true}}, "b"), true);
  EXPECT_EQ(findBoolean(Json{{"b", false}}, "b"), false);
  EXPECT_EQ(failureText([] {
              findBoolean(Json{{"b", 0}}, "b");
            }),
            "[json.exception.type_error.302] type must be boolean, but is number");
}

TEST(JsonPaths, AreTextOrAbsent) {
  EXPECT_EQ(readPath(Json::object(), "p"), std::nullopt);
  EXPECT_EQ(readPath(Json{{"p", nullptr}}, "p"), std::nullopt);
  EXPECT_EQ(readPath(Json{{"p", ""}}, "p"), "");
  EXPECT_EQ(readPath(Json{{"p", "Zürich/流.bin"}}, "p"), "Zürich/流.bin");
  EXPECT_EQ(failureText([] {
              readPath(Json{{"p", 3}}, "p");
            }),
            "[json.exception.type_error.302] type must be string, but is number");
}

TEST(JsonNames, AreFoundByTheirExactText) {
  constexpr std::array names{"first", "second"};
  const auto position = [&](const Json& value) { return findName(Json{{"n", value}}, "n", names); };
  EXPECT_EQ(position("first"), 0u);
  EXPECT_EQ(position("second"), 1u);
  EXPECT_EQ(position(nullptr), std::nullopt);
  EXPECT_EQ(findName(Json::object(), "n", names), std::nullopt);
  for (const char* text : {"Second", "secon", "second ", ""}) {
    const auto words = failureText<std::invalid_argument>([&] { position(text); });
    EXPECT_EQ(words, std::string("Unknown n: ") + text);
  }
  EXPECT_EQ(failureText<std::invalid_argument>([&] { position(std::string("first\0", 6)); }),
            "Unknown n: first");
  EXPECT_EQ(failureText([&] { position(1); }),
            "[json.exception.type_error.302] type must be string, but is number");
}

}  // namespace
}  // namespace zeph
