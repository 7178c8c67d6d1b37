#include "solver/raw_files.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <numeric>
#include <stdexcept>

#include "platform/system.h"
#include "tests/boundary/failure_text.h"

namespace zeph {
namespace {

namespace fs = std::filesystem;

constexpr const char* wrongSize = "Initial file must contain exactly N² Float32 samples.";
constexpr const char* unreadable = "Cannot read initial file.";
constexpr const char* unwritable = "Cannot write export file.";

class Files : public testing::Test {
 protected:
  Files() {
    std::string pattern = (fs::temp_directory_path() / "zephane-files-XXXXXX").string();
    if (!mkdtemp(pattern.data())) throw std::runtime_error("No scratch folder.");
    folder_ = pattern;
  }
  ~Files() override { fs::remove_all(folder_); }

  std::string path(const std::string& name) const { return folder_.string() + "/" + name; }

  static void write(const std::string& path, const std::vector<float>& samples) {
    writeRawFile(path, std::as_bytes(std::span(samples)));
  }

  static std::string loadFailure(const std::string& path) {
    return failureText<std::runtime_error>([&] { loadInitialFile(16, path); });
  }

  static std::string writeFailure(const std::string& path, std::size_t floats = 1) {
    return failureText<std::runtime_error>([&] { write(path, std::vector<float>(floats)); });
  }

 private:
  fs::path folder_;
};

std::vector<float> ramp(std::size_t count) {
  std::vector<float> samples(count);
  std::iota(samples.begin(), samples.end(), -0.5f);
  return samples;
}

TEST_F(Files, NoPathGivesNoSamples) {
  EXPECT_TRUE(loadInitialFile(16, "").empty());
}

TEST_F(Files, SamplesComeBackAsTheyWereWritten) {
  const auto samples = ramp(256);
  write(path("field.bin"), samples);
  EXPECT_EQ(fs::file_size(path("field.bin")), 1024u);
  EXPECT_EQ(loadInitialFile(16, path("field.bin")), samples);
}

TEST_F(Files, NamesMayUseAnyScript) {
  const auto samples = ramp(256);
  const auto name = path("Wirbelstärke 渦度 \U0001f300.bin");
  write(name, samples);
  EXPECT_TRUE(fs::exists(platform::pathFromUtf8(name)));
  EXPECT_EQ(loadInitialFile(16, name), samples);
}

TEST_F(Files, WritingReplacesWhatAFileHeld) {
  write(path("field.bin"), ramp(1000));
  write(path("field.bin"), ramp(256));
  EXPECT_EQ(loadInitialFile(16, path("field.bin")), ramp(256));
}

TEST_F(Files, AFieldOfAnotherSizeIsRefused) {
  for (const std::size_t count : {0u, 255u, 257u, 1024u}) {
    write(path("field.bin"), ramp(count));
    EXPECT_EQ(loadFailure(path("field.bin")), wrongSize) << count;
  }
  std::ofstream(path("field.bin"), std::ios::binary) << std::string(1025, 'x');
  EXPECT_EQ(loadFailure(path("field.bin")), wrongSize);
}

TEST_F(Files, ASizeThatCannotBeHadNamesThePath) {
  EXPECT_EQ(loadFailure(path("fehlt-ü.bin")),
            "file_size: No such file or directory: \"" + path("fehlt-ü.bin") + "\"");
  fs::create_directory(path("folder"));
  EXPECT_EQ(loadFailure(path("folder")), "file_size: Is a directory: \"" + path("folder") + "\"");
  write(path("plain"), ramp(1));
  EXPECT_EQ(loadFailure(path("plain/field.bin")),
            "file_size: Not a directory: \"" + path("plain/field.bin") + "\"");
}

TEST_F(Files, APipeIsRefusedWithoutWaitingForItsWriter) {
  ASSERT_EQ(mkfifo(path("pipe").c_str(), 0600), 0);
  EXPECT_TRUE(loadFailure(path("pipe")).starts_with("file_size: "));
  EXPECT_TRUE(loadFailure("/dev/zero").starts_with("file_size: "));
}

TEST_F(Files, APathWithANulIsNoFile) {
  write(path("field.bin"), ramp(256));
  const std::string cut = path("field.bin") + std::string("\0.old", 5);
  EXPECT_TRUE(loadFailure(cut).starts_with("file_size: No such file or directory: "));
  EXPECT_TRUE(loadFailure(std::string(1, '\0')).starts_with("file_size: "));
  EXPECT_EQ(writeFailure(cut), unwritable);
  EXPECT_EQ(loadInitialFile(16, path("field.bin")), ramp(256));
}

TEST_F(Files, AFileThatShrankBeforeItWasReadIsUnreadable) {
  write(path("field.bin"), ramp(255));
  const auto read = [&](std::size_t count) { return readSamples(path("field.bin"), count); };
  EXPECT_EQ(failureText<std::runtime_error>([&] { read(256); }), unreadable);
  EXPECT_EQ(read(255), ramp(255));
}

TEST_F(Files, WhatCannotBeOpenedOrReadIsUnreadable) {
  const auto failure = [&](const std::string& name) {
    return failureText<std::runtime_error>([&] { readSamples(path(name), 256); });
  };
  EXPECT_EQ(failure("missing"), unreadable);
  fs::create_directory(path("folder"));
  EXPECT_EQ(failure("folder"), unreadable);
}

TEST_F(Files, WhatCannotBeOpenedCannotBeWritten) {
  EXPECT_EQ(writeFailure(""), unwritable);
  EXPECT_EQ(writeFailure(path("none/field.bin")), unwritable);
  fs::create_directory(path("folder"));
  EXPECT_EQ(writeFailure(path("folder")), unwritable);
  EXPECT_EQ(writeFailure(path(std::string(300, 'x'))), unwritable);
}

TEST_F(Files, AFullDiskIsReportedForSmallAndLargeFiles) {
  if (!fs::exists("/dev/full")) GTEST_SKIP() << "this system has no /dev/full";
  EXPECT_EQ(writeFailure("/dev/full", 1), unwritable);
  EXPECT_EQ(writeFailure("/dev/full", 1 << 20), unwritable);
}

}  // namespace
}  // namespace zeph
