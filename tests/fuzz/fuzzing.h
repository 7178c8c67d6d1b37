// Shared by the fuzz targets: a scratch folder for the files that requests name, and the checks of
// every reply.
#pragma once

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "boundary/json_reading.h"
#include "boundary/zephane.h"

namespace zeph::fuzz {

constexpr int mostLines = 8;
constexpr int largestGrid = 32;
constexpr std::size_t longestName = 2;  // keeps the scratch folder small

inline void require(bool holds, const char* what) {
  if (holds) return;
  std::fprintf(stderr, "not so: %s\n", what);
  std::abort();
}

// While it exists, relative paths are in the scratch folder.
class InScratchFolder {
 public:
  InScratchFolder() : before_(std::filesystem::current_path()) {
    std::filesystem::current_path(folder());
  }
  ~InScratchFolder() { std::filesystem::current_path(before_); }
  InScratchFolder(const InScratchFolder&) = delete;
  InScratchFolder& operator=(const InScratchFolder&) = delete;

 private:
  static const std::filesystem::path& folder() {
    static const Folder made;
    return made.path;
  }

  struct Folder {
    Folder() {
      std::string pattern = std::filesystem::temp_directory_path() / "zephane-fuzz-XXXXXX";
      require(mkdtemp(pattern.data()) != nullptr, "there is a scratch folder");
      path = pattern;
    }
    ~Folder() { std::filesystem::remove_all(path); }
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;
    std::filesystem::path path;
  };

  std::filesystem::path before_;
};

inline bool staysInScratchFolder(const Json& object) {
  constexpr std::array keys = {"initial", "state", "spectrum", "fields", "png"};
  return std::all_of(keys.begin(), keys.end(), [&](const char* key) {
    const Json* value = findValue(object, key);
    if (!value || !value->is_string()) return true;
    const auto& name = value->get_ref<const std::string&>();
    return name.size() <= longestName && name.find('/') == std::string::npos;
  });
}

inline void expectReply(char* text, bool mayFail = true) {
  require(text != nullptr, "a call has a reply");
  const Json reply = Json::parse(text);
  zp_string_free(text);
  require(reply.is_object(), "a reply is an object");
  const bool failed = reply.contains("error");
  require(mayFail || !failed, "the call succeeds");
  require(!failed || (reply.size() == 1 && reply["error"].is_string()), "an error stands alone");
}

}  // namespace zeph::fuzz
