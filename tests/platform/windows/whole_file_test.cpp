#include "platform/whole_file.h"

#include <gtest/gtest.h>
#include <windows.h>

#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "platform/system.h"
#include "tests/support/scratch_folder.h"

namespace zeph::platform {
namespace {

namespace fs = std::filesystem;

class WholeFiles : public testing::Test {
 protected:
  fs::path path(const std::string& name) const { return pathFromUtf8(folder_.file(name)); }

  static void put(const fs::path& file, const std::string& text) {
    std::ofstream(file, std::ios::binary) << text;
  }
  static std::string contentOf(const fs::path& file) {
    std::ifstream stream(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
  }

  // The error of the first call that failed, or 0.
  static int write(const fs::path& file, const std::string& text) {
    WholeFile whole;
    if (const int error = whole.open(file)) return error;
    if (const int error = whole.write(std::as_bytes(std::span(text)))) return error;
    return whole.commit();
  }

  std::ptrdiff_t files() const {
    return std::distance(fs::directory_iterator(folder_.path()), fs::directory_iterator());
  }

  test::ScratchFolder folder_;
};

TEST_F(WholeFiles, AppearWithTheirContentUnderAnyName) {
  const std::string large(300'000, 'x');
  for (const std::string name : {"plain", "a b.png", "Wirbelst\u00e4rke \u03c9 \U0001F300.raw"}) {
    EXPECT_EQ(write(path(name), large), 0) << name;
    EXPECT_EQ(contentOf(path(name)), large);
  }
  EXPECT_EQ(files(), 3);
}

TEST_F(WholeFiles, ReplaceAnEarlierOneOnlyWhenTheyAreComplete) {
  const fs::path target = path("flow");
  put(target, "earlier");
  {
    WholeFile whole;
    ASSERT_EQ(whole.open(target), 0);
    const std::string text(200'000, 'n');
    ASSERT_EQ(whole.write(std::as_bytes(std::span(text))), 0);
    EXPECT_EQ(contentOf(target), "earlier");
    EXPECT_EQ(files(), 2);
  }
  EXPECT_EQ(contentOf(target), "earlier");
  EXPECT_EQ(files(), 1);
  EXPECT_EQ(write(target, "new"), 0);
  EXPECT_EQ(contentOf(target), "new");
  EXPECT_EQ(files(), 1);
}

TEST_F(WholeFiles, MayHavePathsLongerThanTheOldLimit) {
  std::vector<std::string> folders = {folder_.file("deep")};
  while (folders.back().size() < 400)
    folders.push_back(folders.back() + "\\a folder with quite a long name");
  for (const std::string& folder : folders)
    ASSERT_TRUE(CreateDirectoryW(pathFromUtf8(folder).c_str(), nullptr)) << folder;
  const fs::path target = pathFromUtf8(folders.back() + "\\flow.raw");
  EXPECT_EQ(write(target, "far down"), 0);
  EXPECT_EQ(contentOf(target), "far down");
  // The standard library cannot remove what is so deep.
  DeleteFileW(target.c_str());
  for (; !folders.empty(); folders.pop_back())
    EXPECT_TRUE(RemoveDirectoryW(pathFromUtf8(folders.back()).c_str()));
}

TEST_F(WholeFiles, DoNotReplaceWhatMustNotBeWritten) {
  const fs::path target = path("kept");
  put(target, "kept");
  SetFileAttributesW(target.c_str(), FILE_ATTRIBUTE_READONLY);
  EXPECT_EQ(write(target, "new"), ERROR_ACCESS_DENIED);
  SetFileAttributesW(target.c_str(), FILE_ATTRIBUTE_NORMAL);
  EXPECT_EQ(contentOf(target), "kept");

  const HANDLE alone =
      CreateFileW(target.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr);
  EXPECT_EQ(write(target, "new"), ERROR_SHARING_VIOLATION);
  CloseHandle(alone);
  EXPECT_EQ(contentOf(target), "kept");
  EXPECT_EQ(files(), 1);
}

TEST_F(WholeFiles, AreRefusedWhereNoFileCanBe) {
  EXPECT_EQ(write({}, "x"), ERROR_PATH_NOT_FOUND);
  EXPECT_EQ(write(path("missing") / "flow", "x"), ERROR_PATH_NOT_FOUND);
  EXPECT_EQ(write(folder_.path(), "x"), ERROR_ACCESS_DENIED);
  EXPECT_EQ(files(), 0);
}

TEST_F(WholeFiles, AreWrittenToDevicesDirectly) {
  EXPECT_EQ(write("NUL", std::string(100'000, 'x')), 0);
}

}  // namespace
}  // namespace zeph::platform
