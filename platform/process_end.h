// Functions that run when the process exits.
#pragma once

namespace zeph::platform {

// As long as it lives, the process calls the function at exit: after functions that were registered
// later, and before it tears down any library that was loaded earlier.
class AtProcessEnd {
 public:
  explicit AtProcessEnd(void (*work)());
  ~AtProcessEnd();
  AtProcessEnd(const AtProcessEnd&) = delete;
  AtProcessEnd& operator=(const AtProcessEnd&) = delete;

 private:
  static void call(void* self);

  void (*work_)();
};

// If the calling thread is the process's first, calls a function when that thread ends, and so
// before anything that is registered for the end of the process. Later calls do nothing.
void atEndOfFirstThread(void (*work)());

}  // namespace zeph::platform
