#include "platform/fork.h"

#include <pthread.h>

#include <chrono>
#include <thread>

namespace zeph::platform {
namespace {

constexpr std::chrono::microseconds pause(50);

}  // namespace

// All of them, in no order: threads take them in any order.
class ProcessMutexes {
 public:
  void add(ProcessMutex& mutex) {
    const std::lock_guard lock(list_);
    mutex.next_ = first_;
    first_ = &mutex;
  }

  void remove(const ProcessMutex& mutex) {
    const std::lock_guard lock(list_);
    ProcessMutex** at = &first_;
    while (*at != &mutex) at = &(*at)->next_;
    *at = mutex.next_;
  }

  // Gives all back and tries again while one is taken, so that its holder may take another.
  void lockAll() {
    for (;;) {
      list_.lock();
      ProcessMutex* at = first_;
      while (at != nullptr && at->try_lock()) at = at->next_;
      if (at == nullptr) return;
      unlockUntil(at);
      std::this_thread::sleep_for(pause);
    }
  }

  void unlockAll() { unlockUntil(nullptr); }

 private:
  void unlockUntil(const ProcessMutex* end) {
    for (ProcessMutex* at = first_; at != end; at = at->next_) at->unlock();
    list_.unlock();
  }

  std::mutex list_;
  ProcessMutex* first_ = nullptr;
};

// The list grows only while the library is loaded.
class ForkHandlers {
 public:
  void add(AroundForks& functions) {
    functions.next_ = first_;
    first_ = &functions;
  }

  void call(AroundForks::Function AroundForks::*function) const {
    for (const AroundForks* at = first_; at != nullptr; at = at->next_) {
      if (at->*function != nullptr) (at->*function)();
    }
  }

  void before() const { call(&AroundForks::before_); }
  void inParent() const { call(&AroundForks::inParent_); }
  void inChild() const { call(&AroundForks::inChild_); }

 private:
  AroundForks* first_ = nullptr;
};

namespace {

constinit ProcessMutexes mutexes;
constinit ForkHandlers handlers;
constinit std::atomic<unsigned> forks = 0;

// What the handlers wait for before a fork may need the mutexes.
void before() {
  handlers.before();
  mutexes.lockAll();
}

void inParent() {
  mutexes.unlockAll();
  handlers.inParent();
}

void inChild() {
  ++forks;
  mutexes.unlockAll();
  handlers.inChild();
}

[[maybe_unused]] const int registered = pthread_atfork(before, inParent, inChild);

}  // namespace

ProcessMutex::ProcessMutex() noexcept {
  mutexes.add(*this);
}

ProcessMutex::~ProcessMutex() {
  mutexes.remove(*this);
}

AroundForks::AroundForks(Function before, Function inParent, Function inChild) noexcept
    : before_(before), inParent_(inParent), inChild_(inChild) {
  handlers.add(*this);
}

unsigned forksBehind() {
  return forks;
}

}  // namespace zeph::platform
