#include "platform/process_end.h"

#include <cxxabi.h>
#include <unistd.h>

#include <atomic>

namespace zeph::platform {

// Each exit function is registered under a handle, here the object itself, so that it can be
// removed again. An entry left in the list would keep its slot from being reused when libraries are
// unloaded and loaded again.
AtProcessEnd::AtProcessEnd(void (*work)()) : work_(work) {
  abi::__cxa_atexit(&AtProcessEnd::call, this, this);
}

// Removing an entry from the list calls it, so the work is cleared first.
AtProcessEnd::~AtProcessEnd() {
  std::atomic_ref(work_).store(nullptr);
  abi::__cxa_finalize(this);
}

void AtProcessEnd::call(void* self) {
  auto* work = std::atomic_ref(static_cast<AtProcessEnd*>(self)->work_).load();
  if (work != nullptr) work();
}

// exit() destroys the thread-local objects of its caller before it does anything else.
void atEndOfFirstThread(void (*work)()) {
  struct Work {
    void (*function)();
    ~Work() { function(); }
  };
  if (gettid() == getpid()) thread_local const Work atEnd{work};
}

}  // namespace zeph::platform
