// A thread of a block, with a separate stack that it leaves at every barrier and returns to.
#pragma once

#include <cstddef>

namespace zeph::emulation {

// One fiber runs at a time in the process.
class Fiber {
 public:
  Fiber();
  ~Fiber();
  Fiber(const Fiber&) = delete;
  Fiber& operator=(const Fiber&) = delete;

  // Prepares a run of body(context) from its beginning; an unfinished run is dropped.
  void prepare(void (*body)(void*), void* context);

  // Runs until the body waits or ends; true where it waits.
  bool resume();

  // Called by the body that runs: goes back to resume().
  static void wait();

 private:
  static void enter();

  static constexpr std::size_t stackBytes = 256 * 1024;

  std::byte* memory_;  // a guard page, and the stack above it
  std::byte* bottom_;  // where the stack begins, to grow downwards
  void* top_ = nullptr;
  void (*body_)(void*) = nullptr;
  void* context_ = nullptr;
  bool isWaiting_ = false;
  void* fakeStack_ = nullptr;
};

}  // namespace zeph::emulation
