#include "boundary/call_frame.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>
#include <stdexcept>

#include "tests/boundary/failure_text.h"

namespace zeph {
namespace {

template <class Operation>
std::string replyText(Operation&& operation) {
  const std::unique_ptr<char, decltype(&std::free)> text(reply(operation), std::free);
  return text.get();
}

TEST(CallFrame, ARequestIsAnObject) {
  EXPECT_EQ(parseObject(R"( {"op": "get"} )")["op"], "get");
  EXPECT_EQ(failureText<std::invalid_argument>([] { parseObject(nullptr); }),
            "Expected a JSON object.");
  for (const char* text : {"[]", "3", "null", "\"op\"", "[{}]"})
    EXPECT_EQ(failureText<std::invalid_argument>([=] { parseObject(text); }),
              "Expected a JSON object.");
}

TEST(CallFrame, InvalidJsonFailsWithTheTextOfTheJsonLibrary) {
  for (const char* text : {"", "{", "{} {}", "{'a': 1}", "{/* note */}"}) {
    const auto words = failureText<Json::parse_error>([=] { parseObject(text); });
    EXPECT_TRUE(words.starts_with("[json.exception.parse_error.101]")) << words;
  }
}

TEST(CallFrame, AReplyIsCompactSortedUtf8) {
  EXPECT_EQ(replyText([] {
              return Json{{"b", "Strömung 流"}, {"a", {1, 2.5, nullptr}}};
            }),
            R"({"a":[1,2.5,null],"b":"Strömung 流"})");
  EXPECT_EQ(replyText([] { return Json::object(); }), "{}");
}

TEST(CallFrame, AFailureIsAnErrorObjectWithItsText) {
  EXPECT_EQ(replyText([]() -> Json { throw std::runtime_error("It \"broke\"."); }),
            R"({"error":"It \"broke\"."})");
}

TEST(CallFrame, AnExceptionOutsideStdExceptionIsUnknown) {
  EXPECT_EQ(replyText([]() -> Json { throw 3; }), R"({"error":"Unknown native failure"})");
}

TEST(CallFrame, AReplyThatIsNotUtf8BecomesAnError) {
  const auto text = replyText([] { return Json{{"name", "\xff"}}; });
  const Json object = Json::parse(text);
  EXPECT_EQ(object.size(), 1u);
  EXPECT_TRUE(object["error"].get<std::string>().starts_with("[json.exception.type_error.316]"));
}

TEST(CallFrame, AnErrorThatQuotesInvalidUtf8StillReachesTheHost) {
  const auto text = replyText([] { return parseObject("{\"\xff\": 1}"); });
  const auto words = Json::parse(text)["error"].get<std::string>();
  EXPECT_TRUE(words.starts_with("[json.exception.parse_error.101]")) << words;
  EXPECT_NE(words.find("\ufffd"), std::string::npos) << words;
}

TEST(CallFrame, ValidUtf8IsUnchanged) {
  for (const char* text : {"", "plain", "a \"quoted\" \\ line\n\ttext", "Zürich 流 \U0001f300"})
    EXPECT_EQ(validUtf8(text), text);
  EXPECT_EQ(validUtf8("bad \xff byte"), "bad \ufffd byte");
  EXPECT_EQ(validUtf8("cut \xe6\xb5"), "cut \ufffd");
}

TEST(CallFrame, HostTextEndsInANul) {
  char* text = hostText("five!");
  EXPECT_STREQ(text, "five!");
  std::free(text);
}

}  // namespace
}  // namespace zeph
