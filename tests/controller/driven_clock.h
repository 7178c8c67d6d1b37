// A clock that a test controls, and with it the thread that reads the clock.
#pragma once

#include <condition_variable>
#include <functional>
#include <mutex>

#include "controller/wall_clock.h"

namespace zeph::test {

// Time advances only by a tick at every reading, so that the time between two readings does not
// depend on the machine. Must outlive its readers.
class DrivenClock {
 public:
  explicit DrivenClock(double tick = 0) : tick_(tick) {}

  Clock clock() {
    return [this] { return read(); };
  }

  // Called on the reading thread, before each reading.
  void onReading(std::function<void()> action) {
    const std::lock_guard lock(mutex_);
    action_ = std::move(action);
  }

  double time() const {
    const std::lock_guard lock(mutex_);
    return time_;
  }

  // While it exists, the reading thread blocks at its next reading.
  class Hold {
   public:
    explicit Hold(DrivenClock& clock) : clock_(clock) {
      const std::lock_guard lock(clock_.mutex_);
      clock_.held_ = true;
    }
    ~Hold() {
      const std::lock_guard lock(clock_.mutex_);
      clock_.held_ = false;
      clock_.changed_.notify_all();
    }
    // Waits until the reading thread is blocked.
    void awaitReader() {
      std::unique_lock lock(clock_.mutex_);
      clock_.changed_.wait(lock, [this] { return clock_.waiting_; });
    }
    Hold(const Hold&) = delete;
    Hold& operator=(const Hold&) = delete;

   private:
    DrivenClock& clock_;
  };

 private:
  double read() {
    std::unique_lock lock(mutex_);
    if (held_) {
      waiting_ = true;
      changed_.notify_all();
      changed_.wait(lock, [this] { return !held_; });
      waiting_ = false;
    }
    if (action_) {
      const auto action = action_;
      lock.unlock();
      action();
      lock.lock();
    }
    time_ += tick_;
    return time_;
  }

  mutable std::mutex mutex_;
  std::condition_variable changed_;
  double tick_;
  double time_ = 1000;
  bool held_ = false;
  bool waiting_ = false;
  std::function<void()> action_;
};

}  // namespace zeph::test
