// The C library's format of numbers.
#pragma once

namespace zeph::platform {

// As long as it lives, the C library writes numbers on this thread with a decimal point and no
// grouping, whichever locale the host has set.
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
