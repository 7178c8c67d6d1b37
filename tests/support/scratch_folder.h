// A folder that exists as long as the object.
#pragma once

#include <stdlib.h>  // NOLINT(modernize-deprecated-headers): mkdtemp

#include <filesystem>
#include <stdexcept>
#include <string>

namespace zeph::test {

class ScratchFolder {
 public:
  ScratchFolder() {
    std::string pattern = (std::filesystem::temp_directory_path() / "zephane-XXXXXX").string();
    if (!mkdtemp(pattern.data())) throw std::runtime_error("No scratch folder.");
    path_ = pattern;
  }
  ~ScratchFolder() { std::filesystem::remove_all(path_); }
  ScratchFolder(const ScratchFolder&) = delete;
  ScratchFolder& operator=(const ScratchFolder&) = delete;

  std::string file(const std::string& name) const { return (path_ / name).string(); }

 private:
  std::filesystem::path path_;
};

}  // namespace zeph::test
