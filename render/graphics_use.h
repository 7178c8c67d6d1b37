// The end of a process that has left pictures being drawn. exit() destroys the statics of the
// graphics system's libraries while our threads still live; a thread that is inside those libraries
// then crashes. So from the first use on, the end of the process waits until no thread uses them,
// and none is let in after.
#pragma once

#include <atomic>
#include <thread>

namespace zeph {

// A thread holds one while it calls the graphics system, and until the system's own threads have
// finished what was asked of them. Not more than one by each thread.
class GraphicsUse {
 public:
  GraphicsUse();
  ~GraphicsUse();
  GraphicsUse(const GraphicsUse&) = delete;
  GraphicsUse& operator=(const GraphicsUse&) = delete;

  // False while the process is ending: nothing of the graphics system may be called any more.
  explicit operator bool() const { return isGranted_; }

 private:
  bool isGranted_;
};

// Whether the process is ending and waits for the uses that are left.
bool processIsEnding();

// exit() works backwards through what has been registered, so the wait only comes before the
// destructors of what was loaded earlier. Libraries register some when they are loaded and some
// when they first need them: this registers the wait again, after each such moment.
void renewProcessEndGuard();

// Renews the guard every few microseconds while it lives: for the first use of the graphics system,
// whose threads load parts of it at any moment.
class FirstUseGuard {
 public:
  FirstUseGuard();
  ~FirstUseGuard();
  FirstUseGuard(const FirstUseGuard&) = delete;
  FirstUseGuard& operator=(const FirstUseGuard&) = delete;

 private:
  std::atomic<bool> isOver_ = false;
  std::thread renewal_;
};

// If the calling thread is the process's first, its call of exit() or its return from main() waits
// before any destructor at all. Costs next to nothing.
void guardEndOfFirstThread();

}  // namespace zeph
