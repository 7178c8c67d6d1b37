// Windows ends all other threads of a process before it lets any library clean up: by then no
// thread of ours is inside the graphics system, and nothing is there to wait for.
#include "platform/process_end.h"

namespace zeph::platform {

bool threadsRunAtProcessEnd() {
  return false;
}

bool callAtProcessEnd(void (*)()) {
  return true;
}

void forgetAtProcessEnd(void (*)()) {}

void atEndOfFirstThread(void (*)()) {}

}  // namespace zeph::platform
