// The end of a process whose host leaves views open. The graphics system's libraries are taken
// apart while the render threads still live, which must have let go of them before.
#pragma once

#include "platform/process_end.h"

namespace zeph {

// Held while a thread uses the graphics system, not more than once by each.
class GraphicsUse {
 public:
  GraphicsUse();
  ~GraphicsUse();
  GraphicsUse(const GraphicsUse&) = delete;
  GraphicsUse& operator=(const GraphicsUse&) = delete;

  // False where the process is ending: nothing of the graphics system may be touched any more.
  explicit operator bool() const { return isGranted_; }

 private:
  bool isGranted_;
};

// While it lives, the process waits when it ends for those who use the graphics system, before it
// takes apart any library that had been loaded before the guard was made.
class ProcessEndGuard {
 public:
  ProcessEndGuard();

 private:
  platform::AtProcessEnd end_;
};

}  // namespace zeph
