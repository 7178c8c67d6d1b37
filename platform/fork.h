// State of the whole process that must survive a fork. A forked child has a copy of everything, but
// of the threads only the one that forked: a lock that another thread held at that moment would
// stay locked in the child for ever.
#pragma once

#include <atomic>
#include <mutex>
#include <utility>

namespace zeph::platform {

// A mutex that is free in every forked child: fork() waits until no thread holds it. It guards
// brief work, and never a call of fork().
class ProcessMutex {
 public:
  ProcessMutex() noexcept;
  ~ProcessMutex();
  ProcessMutex(const ProcessMutex&) = delete;
  ProcessMutex& operator=(const ProcessMutex&) = delete;

  void lock() { mutex_.lock(); }
  bool try_lock() { return mutex_.try_lock(); }
  void unlock() { mutex_.unlock(); }

 private:
  friend class ProcessMutexes;
  std::mutex mutex_;
  ProcessMutex* next_ = nullptr;
};

// A value that is made by the first thread that asks for it and never destroyed, since threads use
// it until the very end of the process. For objects at namespace scope: unlike with a static of a
// function, a forked child finds the value either whole or not begun.
template <class T>
class MadeOnce {
 public:
  // What make() returned, a pointer to a new T. If it raises, the next call tries again.
  template <class Make>
  T& get(Make make) {
    T* made = made_.load(std::memory_order_acquire);
    if (made == nullptr) {
      const std::lock_guard lock(mutex_);
      made = made_.load(std::memory_order_relaxed);
      if (made == nullptr) {
        made = make();
        made_.store(made, std::memory_order_release);
      }
    }
    return *made;
  }

 private:
  ProcessMutex mutex_;
  std::atomic<T*> made_ = nullptr;
};

// Functions that run around each fork() of the process, on the thread that forks; any may be null.
// For objects at namespace scope, which are never removed.
class AroundForks {
 public:
  using Function = void (*)();
  AroundForks(Function before, Function inParent, Function inChild) noexcept;
  AroundForks(const AroundForks&) = delete;
  AroundForks& operator=(const AroundForks&) = delete;

 private:
  friend class ForkHandlers;
  Function before_;
  Function inParent_;
  Function inChild_;
  AroundForks* next_ = nullptr;
};

// How many forks lie between the process that loaded the library and this one. What was made at
// another count was made by a parent.
unsigned forksBehind();

}  // namespace zeph::platform
