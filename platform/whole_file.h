// A file that appears under its name complete, or not at all.
#pragma once

#include <cstddef>
#include <filesystem>
#include <memory>
#include <span>

namespace zeph::platform {

// What is written goes to a temporary file beside the target. commit() flushes it to the disk and
// puts it in the place of the target in one step, keeping the target's permissions and owner; so a
// full disk or the end of the process leaves an earlier file as it was. Written to directly are
// devices, pipes that have a reader, and a file that may be written in a folder that may not.
//
// Each function returns 0 or the system's error number.
class WholeFile {
 public:
  WholeFile();
  // Drops what has not been committed.
  ~WholeFile();
  WholeFile(const WholeFile&) = delete;
  WholeFile& operator=(const WholeFile&) = delete;

  int open(const std::filesystem::path& path);
  // Small pieces are collected, so that an error may show at a later call.
  int write(std::span<const std::byte> bytes);
  int commit();

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace zeph::platform
