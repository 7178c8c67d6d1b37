#include "platform/whole_file.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace zeph::platform {
namespace {

namespace fs = std::filesystem;

class WholeFiles : public testing::Test {
 protected:
  WholeFiles() {
    std::string pattern = (fs::temp_directory_path() / "zephane-whole-XXXXXX").string();
    if (!mkdtemp(pattern.data())) throw std::runtime_error("No scratch folder.");
    folder_ = pattern;
  }
  ~WholeFiles() override { fs::remove_all(folder_); }

  fs::path path(const std::string& name) const { return folder_ / name; }

  void put(const std::string& name, const std::string& text) const {
    std::ofstream(path(name), std::ios::binary) << text;
  }

  std::string textOf(const std::string& name) const {
    std::ifstream file(path(name), std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
  }

  std::vector<std::string> names() const {
    std::vector<std::string> found;
    for (const auto& entry : fs::directory_iterator(folder_))
      found.push_back(entry.path().filename().string());
    std::sort(found.begin(), found.end());
    return found;
  }

  int write(const std::string& name, const std::string& text) const {
    WholeFile file;
    if (const int error = file.open(path(name))) return error;
    if (const int error = file.write(std::as_bytes(std::span(text)))) return error;
    return file.commit();
  }

  const fs::path& folder() const { return folder_; }

 private:
  fs::path folder_;
};

using Names = std::vector<std::string>;

// Runs `work` in a process of its own and returns its exit status.
template <class Work>
int inChild(Work work) {
  const pid_t child = fork();
  if (child == 0) _exit(work());
  int status = 0;
  waitpid(child, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

const std::string large(300000, 'n');

TEST_F(WholeFiles, AppearUnderTheirNameWhenTheyAreCommitted) {
  WholeFile file;
  ASSERT_EQ(file.open(path("a")), 0);
  ASSERT_EQ(file.write(std::as_bytes(std::span(large))), 0);
  EXPECT_FALSE(fs::exists(path("a")));
  ASSERT_EQ(file.commit(), 0);
  EXPECT_EQ(textOf("a"), large);
  EXPECT_EQ(names(), Names{"a"});
}

TEST_F(WholeFiles, ReplaceWhatWasThereInOneStep) {
  put("a", "old");
  WholeFile file;
  ASSERT_EQ(file.open(path("a")), 0);
  ASSERT_EQ(file.write(std::as_bytes(std::span(large))), 0);
  EXPECT_EQ(textOf("a"), "old");
  ASSERT_EQ(file.commit(), 0);
  EXPECT_EQ(textOf("a"), large);
  EXPECT_EQ(names(), Names{"a"});
}

TEST_F(WholeFiles, ThatAreNotCommittedLeaveNothing) {
  put("a", "old");
  {
    WholeFile file;
    ASSERT_EQ(file.open(path("a")), 0);
    ASSERT_EQ(file.write(std::as_bytes(std::span(large))), 0);
  }
  EXPECT_EQ(textOf("a"), "old");
  EXPECT_EQ(names(), Names{"a"});
}

TEST_F(WholeFiles, OnADiskThatFillsUpLeaveTheEarlierOne) {
  put("a", "old");
  const int error = inChild([this] {
    signal(SIGXFSZ, SIG_IGN);
    const rlimit limit = {100000, 100000};
    setrlimit(RLIMIT_FSIZE, &limit);
    return write("a", large);
  });
  EXPECT_EQ(error, EFBIG);
  EXPECT_EQ(textOf("a"), "old");
  EXPECT_EQ(names(), Names{"a"});
}

TEST_F(WholeFiles, LeaveTheEarlierOneWhenTheProcessIsKilled) {
  put("a", "old");
  const int status = inChild([this] {
    WholeFile file;
    if (file.open(path("a")) != 0) return 1;
    if (file.write(std::as_bytes(std::span(large))) != 0) return 1;
    return raise(SIGKILL);
  });
  EXPECT_EQ(status, 128 + SIGKILL);
  EXPECT_EQ(textOf("a"), "old");
  EXPECT_EQ(names(), Names{"a"});
}

TEST_F(WholeFiles, KeepThePermissionsOfTheFileTheyReplace) {
  put("a", "old");
  ASSERT_EQ(chmod(path("a").c_str(), 0640), 0);
  ASSERT_EQ(write("a", "new"), 0);
  EXPECT_EQ(fs::status(path("a")).permissions(), fs::perms(0640));
}

TEST_F(WholeFiles, HaveTheUsualPermissionsWhereTheyAreNew) {
  const mode_t before = umask(027);
  EXPECT_EQ(write("a", "new"), 0);
  umask(before);
  EXPECT_EQ(fs::status(path("a")).permissions(), fs::perms(0640));
}

TEST_F(WholeFiles, ReplaceTheFileThatALinkLeadsTo) {
  fs::create_directory(path("elsewhere"));
  put("elsewhere/a", "old");
  fs::create_symlink("elsewhere/a", path("link"));
  ASSERT_EQ(write("link", "new"), 0);
  EXPECT_TRUE(fs::is_symlink(path("link")));
  EXPECT_EQ(textOf("elsewhere/a"), "new");
  fs::create_symlink("elsewhere/b", path("dangling"));
  ASSERT_EQ(write("dangling", "new"), 0);
  EXPECT_EQ(textOf("elsewhere/b"), "new");
}

TEST_F(WholeFiles, DoNotWaitForTheReaderOfAPipe) {
  ASSERT_EQ(mkfifo(path("pipe").c_str(), 0600), 0);
  EXPECT_EQ(write("pipe", "new"), ENXIO);
}

TEST_F(WholeFiles, AreWrittenInPlaceWhereTheirFolderMayNotChange) {
  put("a", large);
  ASSERT_EQ(chmod(path("a").c_str(), 0666), 0);
  ASSERT_EQ(chmod(folder().c_str(), 0555), 0);
  const int error = inChild([this] {
    if (geteuid() == 0 && seteuid(65534) != 0) return 1;
    return write("a", "new");
  });
  chmod(folder().c_str(), 0755);
  EXPECT_EQ(error, 0);
  EXPECT_EQ(textOf("a"), "new");
}

TEST_F(WholeFiles, OfSomebodyElseAreNotTakenOver) {
  if (geteuid() != 0) GTEST_SKIP() << "only root has files of others";
  put("a", "old");
  ASSERT_EQ(chown(path("a").c_str(), 12345, 12346), 0);
  ASSERT_EQ(write("a", "new"), 0);
  struct stat found = {};
  ASSERT_EQ(stat(path("a").c_str(), &found), 0);
  EXPECT_EQ(found.st_uid, 12345u);
  EXPECT_EQ(found.st_gid, 12346u);
}

}  // namespace
}  // namespace zeph::platform
