// For a process that exits while views are still open: the graphics system's libraries are torn
// down while the render threads still run, so the threads must have stopped using them by then.
#pragma once

#include "platform/process_end.h"

namespace zeph {

// Held while a thread uses the graphics system. A thread must not hold two.
class GraphicsUse {
 public:
  GraphicsUse();
  ~GraphicsUse();
  GraphicsUse(const GraphicsUse&) = delete;
  GraphicsUse& operator=(const GraphicsUse&) = delete;

  // False if the process is exiting: the graphics system must not be called any more.
  explicit operator bool() const { return isGranted_; }

 private:
  bool isGranted_;
};

// As long as a guard exists, the process waits at exit for every GraphicsUse to be released before
// it tears down any library that was loaded before the guard was made.
class ProcessEndGuard {
 public:
  ProcessEndGuard();

 private:
  platform::AtProcessEnd end_;
};

}  // namespace zeph
