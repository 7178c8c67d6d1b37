#include "platform/system.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>

#include "tests/support/environment_variable.h"

namespace zeph::platform {
namespace {

using namespace std::string_literals;

TEST(System, HasOneOfTheTwoNames) {
  EXPECT_TRUE(systemName() == "Linux"s || systemName() == "Windows"s);
}

TEST(System, EachThreadHasAConstantId) {
  const std::uint32_t mine = threadId();
  EXPECT_NE(mine, 0u);
  EXPECT_EQ(threadId(), mine);
  std::uint32_t other = 0;
  std::thread([&] { other = threadId(); }).join();
  EXPECT_NE(other, 0u);
  EXPECT_NE(other, mine);
}

TEST(System, HasAtLeastOneProcessor) {
  EXPECT_GE(usableProcessors(), 1);
  const std::string model = processorModel();
  ASSERT_FALSE(model.empty());
  EXPECT_NE(model.front(), ' ');
  EXPECT_NE(model.back(), ' ');
  EXPECT_EQ(model.find('\n'), std::string::npos);
}

TEST(System, KnowsTheSizeOfTheLargestCache) {
  EXPECT_GE(lastLevelCacheBytes(), std::size_t{256} << 10);
  EXPECT_LE(lastLevelCacheBytes(), std::size_t{4} << 30);
}

TEST(Environment, IsReadAnew) {
  const test::EnvironmentVariable variable("ZEPHANE_TEST_VARIABLE");
  EXPECT_EQ(environmentVariable("ZEPHANE_TEST_VARIABLE"), std::nullopt);
  variable.set("one");
  EXPECT_EQ(environmentVariable("ZEPHANE_TEST_VARIABLE"), "one");
  const std::string longer(1000, 'x');
  variable.set(longer);
  EXPECT_EQ(environmentVariable("ZEPHANE_TEST_VARIABLE"), longer);
  variable.set("");
  EXPECT_EQ(environmentVariable("ZEPHANE_TEST_VARIABLE"), "");
}

TEST(Paths, TextSurvivesARoundTrip) {
  for (const std::string& text :
       {""s, "field.raw"s, "/a dir/b.f32"s, "/data/Wirbelst\u00e4rke \u03c9.raw"s}) {
    EXPECT_EQ(pathToUtf8(pathFromUtf8(text)), text);
  }
}

TEST(Paths, TextWithANulIsThePathThatNoFileHas) {
  EXPECT_TRUE(pathFromUtf8("/data/a\0b"s).empty());
  EXPECT_TRUE(pathFromUtf8("\0"s).empty());
  EXPECT_TRUE(pathFromUtf8("/data/a\0"s).empty());
}

}  // namespace
}  // namespace zeph::platform
