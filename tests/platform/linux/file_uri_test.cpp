#include "platform/linux/file_uri.h"

#include <gtest/gtest.h>

namespace zeph::platform {
namespace {

TEST(FileAddresses, OfThisMachineAreThePathsTheyName) {
  EXPECT_EQ(pathOfFileUri("file:///home/ada/flow.png"), "/home/ada/flow.png");
  EXPECT_EQ(pathOfFileUri("file://localhost/flow.png"), "/flow.png");
}

TEST(FileAddresses, HaveTheirPercentSignsDecoded) {
  EXPECT_EQ(pathOfFileUri("file:///a%20dir/100%25.png"), "/a dir/100%.png");
  EXPECT_EQ(pathOfFileUri("file:///Wirbelst%C3%A4rke%20%cf%89.png"),
            "/Wirbelst\u00e4rke \u03c9.png");
  EXPECT_EQ(pathOfFileUri("file:///two%0Alines.png"), "/two\nlines.png");
  EXPECT_EQ(pathOfFileUri("file:///a+b?.png"), "/a+b?.png");
}

TEST(FileAddresses, ThatAreBrokenGiveNoPath) {
  for (const char* uri :
       {"file:///a%", "file:///a%2", "file:///a%2x", "file:///a%-1", "file:///a%00", "file://",
        "file://elsewhere/flow.png", "file:flow.png", ""})
    EXPECT_EQ(pathOfFileUri(uri), std::nullopt) << uri;
}

TEST(FileAddresses, ExcludeOtherAddresses) {
  for (const char* uri : {"https://example.org/flow.png", "smb://host/flow.png", "/flow.png"})
    EXPECT_EQ(pathOfFileUri(uri), std::nullopt) << uri;
}

}  // namespace
}  // namespace zeph::platform
