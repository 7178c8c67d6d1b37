// A folder that exists as long as the object.
#pragma once

#include <filesystem>
#include <random>
#include <string>

#include "platform/system.h"

namespace zeph::test {

class ScratchFolder {
 public:
  ScratchFolder() {
    std::random_device number;
    do {
      path_ = std::filesystem::temp_directory_path() / ("zephane-" + std::to_string(number()));
    } while (!std::filesystem::create_directory(path_));
  }
  ~ScratchFolder() { std::filesystem::remove_all(path_); }
  ScratchFolder(const ScratchFolder&) = delete;
  ScratchFolder& operator=(const ScratchFolder&) = delete;

  const std::filesystem::path& path() const { return path_; }

  // The path of a file in it, in UTF-8.
  std::string file(const std::string& name) const {
    return platform::pathToUtf8(path_ / platform::pathFromUtf8(name));
  }

 private:
  std::filesystem::path path_;
};

}  // namespace zeph::test
