#include "platform/process_end.h"

#include <cxxabi.h>
#include <unistd.h>

namespace zeph::platform {
namespace {

using Work = void (*)();

thread_local bool isForgetting = false;

void callWork(void* work) {
  if (!isForgetting) reinterpret_cast<Work>(work)();
}

}  // namespace

// Exit functions are registered under a handle, here the function itself, so that they can be
// removed again.
bool threadsRunAtProcessEnd() {
  return true;
}

bool callAtProcessEnd(Work work) {
  void* handle = reinterpret_cast<void*>(work);
  return abi::__cxa_atexit(callWork, handle, handle) == 0;
}

// Removing an entry calls it.
void forgetAtProcessEnd(Work work) {
  isForgetting = true;
  abi::__cxa_finalize(reinterpret_cast<void*>(work));
  isForgetting = false;
}

// exit() destroys the thread-local objects of its caller before it does anything else.
void atEndOfFirstThread(Work work) {
  struct AtEnd {
    Work function;
    ~AtEnd() { function(); }
  };
  if (gettid() == getpid()) thread_local const AtEnd atEnd{work};
}

}  // namespace zeph::platform
