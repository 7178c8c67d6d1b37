// Windows does not fork.
#include "platform/fork.h"

namespace zeph::platform {

ProcessMutex::ProcessMutex() noexcept = default;

ProcessMutex::~ProcessMutex() = default;

AroundForks::AroundForks(Function before, Function inParent, Function inChild) noexcept
    : before_(before), inParent_(inParent), inChild_(inChild) {}

unsigned forksBehind() {
  return 0;
}

}  // namespace zeph::platform
