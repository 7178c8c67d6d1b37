// How numbers are written by the C library.
#pragma once

namespace zeph::platform {

// On this thread, and for as long as it lives, numbers are written with a point and nothing else,
// whatever locale the host has chosen.
class PlainNumbers {
 public:
  PlainNumbers();
  ~PlainNumbers();
  PlainNumbers(const PlainNumbers&) = delete;
  PlainNumbers& operator=(const PlainNumbers&) = delete;

 private:
  void* before_;
};

}  // namespace zeph::platform
