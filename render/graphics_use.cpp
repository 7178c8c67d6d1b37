#include "render/graphics_use.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <system_error>

#include "platform/fork.h"
#include "platform/process_end.h"
#include "platform/thread_environment.h"

namespace zeph {
namespace {

// A thread that hangs must not keep the process from exiting.
constexpr std::chrono::seconds patience(10);

// A fork waits for a frame and for the driver's first use, but not for a very large picture.
constexpr std::chrono::seconds patienceOfForks(5);

// The first thread may end without the process: it calls pthread_exit(). If the process still lives
// after so long, it goes on.
constexpr std::chrono::seconds endingTakes(5);

constexpr std::chrono::microseconds renewalPause(20);

// More registrations than these are taken back as soon as nothing is used. Each takes 32 bytes, and
// the C library reuses none of them below the newest.
constexpr int manyRegistrations = 1000;

struct Users {
  std::mutex mutex;
  std::condition_variable changed;
  int count = 0;
  int registrations = 0;  // of the wait, for the end of the process
  int forks = 0;          // threads that are about to fork
  bool isEnding = false;
  bool mayGoOn = false;  // it is the first thread that has ended, perhaps without the process
};

// Never destroyed: threads use it until the very end.
std::atomic<Users*> usersOfProcess = new Users;

Users& users() {
  return *usersOfProcess;
}

thread_local bool holdsUse = false;

// A child that draws would meet the locks of the graphics system as they are at the fork, so no
// thread is to be within it.
void waitBeforeFork() {
  Users& all = users();
  std::unique_lock lock(all.mutex);
  ++all.forks;
  const int own = holdsUse ? 1 : 0;
  all.changed.wait_for(lock, patienceOfForks, [&] { return all.count <= own; });
  lock.release();  // the C library's list of exit functions, too, must not change now
}

void letInAfterFork() {
  Users& all = users();
  const std::unique_lock lock(all.mutex, std::adopt_lock);
  --all.forks;
  all.changed.notify_all();
}

// The parent's users do not exist here. What waits for them in the condition variable would never
// leave it, so that it cannot be used either.
void beginAnewInChild() {
  auto* made = new Users;
  made->count = holdsUse ? 1 : 0;
  usersOfProcess = made;
}

const platform::AroundForks aroundForks(waitBeforeFork, letInAfterFork, beginAnewInChild);

void waitForUsers(bool mayGoOn) {
  Users& all = users();
  std::unique_lock lock(all.mutex);
  if (all.isEnding && !all.mayGoOn) return;
  all.isEnding = true;
  all.mayGoOn = mayGoOn;
  all.changed.wait_for(lock, patience, [&] { return all.count == 0; });
}

void waitAtProcessEnd() {
  waitForUsers(false);
}

// Called with the mutex held.
void registerWait(Users& all) {
  ++all.registrations;
  if (!platform::callAtProcessEnd(waitAtProcessEnd)) all.isEnding = true;
}

// Called with the mutex held, while nothing is used.
void forgetOldWaits(Users& all) {
  if (all.registrations <= manyRegistrations || all.isEnding) return;
  platform::forgetAtProcessEnd(waitAtProcessEnd);
  all.registrations = 0;
  registerWait(all);
}

}  // namespace

GraphicsUse::GraphicsUse() {
  Users& all = users();
  std::unique_lock lock(all.mutex);
  if (all.isEnding && all.mayGoOn) {
    all.changed.wait_for(lock, endingTakes, [&] { return !all.mayGoOn; });
    if (all.mayGoOn) all.isEnding = all.mayGoOn = false;
    all.changed.notify_all();
  }
  all.changed.wait(lock, [&] { return all.forks == 0 || all.isEnding; });
  if (all.registrations == 0) registerWait(all);
  isGranted_ = !all.isEnding;
  if (isGranted_) ++all.count;
  holdsUse = isGranted_;
}

GraphicsUse::~GraphicsUse() {
  if (!isGranted_) return;
  Users& all = users();
  const std::lock_guard lock(all.mutex);
  --all.count;
  holdsUse = false;
  if (all.count == 0) forgetOldWaits(all);
  all.changed.notify_all();
}

bool processIsEnding() {
  Users& all = users();
  const std::lock_guard lock(all.mutex);
  return all.isEnding;
}

void renewProcessEndGuard() {
  Users& all = users();
  const std::lock_guard lock(all.mutex);
  if (!all.isEnding) registerWait(all);
}

FirstUseGuard::FirstUseGuard() {
  if (!platform::threadsRunAtProcessEnd()) return;
  try {
    renewal_ = platform::startThread([this] {
      platform::sleepExactly();
      while (!isOver_) {
        renewProcessEndGuard();
        std::this_thread::sleep_for(renewalPause);
      }
    });
  } catch (const std::system_error&) {
    // Without a thread to spare, only the users themselves renew the guard.
  }
}

FirstUseGuard::~FirstUseGuard() {
  isOver_ = true;
  if (renewal_.joinable()) renewal_.join();
}

void guardEndOfFirstThread() {
  platform::atEndOfFirstThread([] { waitForUsers(true); });
}

}  // namespace zeph
