// A PATH of programs made up for a test, and the variables of the process as they were afterwards.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

namespace zeph::test {

class FakePrograms : public testing::Test {
 protected:
  void SetUp() override {
    std::string pattern = (std::filesystem::temp_directory_path() / "zephane-XXXXXX").string();
    ASSERT_NE(mkdtemp(pattern.data()), nullptr);
    folder = pattern;
    std::filesystem::create_directory(folder / "bin");
    setVariable("PATH", (folder / "bin").string());
    setVariable("DISPLAY", ":99");
    setVariable("WAYLAND_DISPLAY", std::nullopt);
    setVariable("WINDOWID", std::nullopt);
    setVariable("DBUS_SESSION_BUS_ADDRESS", std::nullopt);
    setVariable("XDG_RUNTIME_DIR", std::nullopt);
  }

  void TearDown() override {
    for (const auto& [name, value] : before_) change(name, value);
    std::filesystem::remove_all(folder);
  }

  void setVariable(const std::string& name, const std::optional<std::string>& value) {
    const char* old = std::getenv(name.c_str());
    before_.try_emplace(name, old ? std::optional<std::string>(old) : std::nullopt);
    change(name, value);
  }

  // A program of shell commands that records its arguments and its window.
  void makeProgram(const std::string& name, const std::string& commands) {
    const std::filesystem::path program = folder / "bin" / name;
    const std::string notes = (folder / name).string();
    std::ofstream(program) << "#!/bin/sh\n"
                           << R"(for word in "$@"; do printf '%s\n' "$word"; done >')" << notes
                           << "'\n"
                           << "printf '%s' \"$WINDOWID\" >'" << notes << ".window'\n"
                           << commands << "\n";
    std::filesystem::permissions(program, std::filesystem::perms::owner_all);
  }

  // Answers as if the user had chosen this path; it holds no single quotes.
  void makeChooser(const std::string& name, const std::string& path) {
    makeProgram(name, "printf '%s\\n' '" + path + "'");
  }

  bool wasRun(const std::string& name) const { return std::filesystem::exists(folder / name); }

  std::vector<std::string> wordsOf(const std::string& name) const {
    std::ifstream notes(folder / name);
    std::vector<std::string> words;
    for (std::string word; std::getline(notes, word);) words.push_back(word);
    return words;
  }

  std::string windowOf(const std::string& name) const {
    std::stringstream text;
    text << std::ifstream(folder / (name + ".window")).rdbuf();
    return text.str();
  }

  std::filesystem::path folder;

 private:
  static void change(const std::string& name, const std::optional<std::string>& value) {
    if (value) {
      setenv(name.c_str(), value->c_str(), 1);
    } else {
      unsetenv(name.c_str());
    }
  }

  std::map<std::string, std::optional<std::string>> before_;
};

}  // namespace zeph::test
