#include "render/graphics_use.h"

#include <chrono>
#include <condition_variable>
#include <mutex>

namespace zeph {
namespace {

// A thread that hangs must not keep the process from exiting.
constexpr std::chrono::seconds patience(10);

struct Users {
  std::mutex mutex;
  std::condition_variable changed;
  int count = 0;
  bool isEnding = false;
};

// Never destroyed: threads may use it until the very end of the process.
Users& users() {
  static Users* const made = new Users;
  return *made;
}

void waitForUsers() {
  Users& all = users();
  std::unique_lock lock(all.mutex);
  all.isEnding = true;
  all.changed.wait_for(lock, patience, [&] { return all.count == 0; });
}

}  // namespace

GraphicsUse::GraphicsUse() {
  Users& all = users();
  const std::lock_guard lock(all.mutex);
  isGranted_ = !all.isEnding;
  if (isGranted_) ++all.count;
}

GraphicsUse::~GraphicsUse() {
  if (!isGranted_) return;
  Users& all = users();
  const std::lock_guard lock(all.mutex);
  --all.count;
  all.changed.notify_all();
}

ProcessEndGuard::ProcessEndGuard() : end_(waitForUsers) {}

}  // namespace zeph
