// Work that is left for the end of the process.
#pragma once

namespace zeph::platform {

// While it lives, the process calls a function when it ends: after those that were registered
// later, and before it takes apart any library that was loaded earlier.
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

}  // namespace zeph::platform
