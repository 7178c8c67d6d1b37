#include "platform/process_end.h"

#include <cxxabi.h>

#include <atomic>

namespace zeph::platform {

// The process keeps its list of such functions by who has registered them, here the object itself,
// so that an entry can be taken from it. An entry that stayed would keep those of libraries that
// are unloaded and loaded again from being used again.
AtProcessEnd::AtProcessEnd(void (*work)()) : work_(work) {
  abi::__cxa_atexit(&AtProcessEnd::call, this, this);
}

// Taking an entry from the list calls it.
AtProcessEnd::~AtProcessEnd() {
  std::atomic_ref(work_).store(nullptr);
  abi::__cxa_finalize(this);
}

void AtProcessEnd::call(void* self) {
  auto* work = std::atomic_ref(static_cast<AtProcessEnd*>(self)->work_).load();
  if (work != nullptr) work();
}

}  // namespace zeph::platform
