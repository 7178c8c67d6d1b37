#include "device/cpu/thread_pool.h"

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <system_error>

#include "device/cpu/parallel.h"
#include "platform/fork.h"
#include "platform/system.h"
#include "platform/thread_environment.h"

namespace zeph::cpu {
namespace {

platform::MadeOnce<ThreadPool> poolOfProcess;

// About the time that waking a thread takes, after which watching on would cost more than it saves.
constexpr auto watchingTime = std::chrono::microseconds(40);

// Watches until done() holds, for a little while.
template <class Done>
void watch(Done done) {
  constexpr int looksBetweenTimes = 32;
  const auto deadline = std::chrono::steady_clock::now() + watchingTime;
  do {
    for (int look = 0; look < looksBetweenTimes; ++look) {
      if (done()) return;
      __builtin_ia32_pause();
    }
  } while (std::chrono::steady_clock::now() < deadline);
}

// Takes a lock that is held for a few instructions only, without sleeping if that can be helped.
void lockSoon(std::unique_lock<std::mutex>& lock) {
  constexpr int attempts = 100;
  for (int attempt = 0; attempt < attempts; ++attempt) {
    if (lock.try_lock()) return;
    __builtin_ia32_pause();
  }
  lock.lock();
}

// Neighbouring tasks, which one participant begins with. Aligned to a line of the cache.
struct alignas(64) Share {
  std::atomic<int> next{0};  // the first task not yet handed out
  int end = 0;
};

constexpr int mostShares = 64;

}  // namespace

struct ThreadPool::Run {
  Run(int tasks, Task call, void* argument, int mostParticipants)
      : task(call),
        context(argument),
        limit(mostParticipants),
        shareCount(std::min(mostParticipants, mostShares)) {
    for (int s = 0; s < shareCount; ++s) {
      shares[s].next.store(firstOf(tasks, s), std::memory_order_relaxed);
      shares[s].end = firstOf(tasks, s + 1);
    }
  }

  Share shares[mostShares];
  Task task;
  void* context;
  int limit;  // participants that may join
  int shareCount;
  std::atomic<bool> exhausted{false};  // all tasks have been handed out
  std::atomic<int> inside{0};          // pool threads in the run, changed under the pool's mutex
  int joined = 1;                      // participants so far; the caller is the first

 private:
  int firstOf(int tasks, int share) const {
    return static_cast<int>(std::int64_t{tasks} * share / shareCount);
  }
};

ThreadPool::ThreadPool(int participants)
    : participants_(std::max(participants, 1)), forksBehind_(platform::forksBehind()) {
  limit_ = participants_;
  threads_.reserve(static_cast<std::size_t>(participants_) - 1);
  try {
    for (int k = 1; k < participants_; ++k)
      threads_.push_back(platform::startThread([this, k] { work(k); }));
  } catch (const std::system_error&) {
    // The threads that could be started and the caller do the work of the missing ones.
  }
}

ThreadPool::~ThreadPool() {
  {
    const std::lock_guard lock(mutex_);
    stopping_ = true;
  }
  wake_.notify_all();
  for (std::thread& thread : threads_) thread.join();
}

ThreadPool& ThreadPool::shared() {
  return poolOfProcess.get([] { return new ThreadPool(platform::usableProcessors()); });
}

void ThreadPool::limit(int participants) {
  limit_ = std::clamp(participants, 1, participants_);
}

void ThreadPool::takePart(Run& run, int participant) {
  for (int k = 0; k < run.shareCount; ++k) {
    Share& share = run.shares[(participant + k) % run.shareCount];
    while (share.next.load(std::memory_order_relaxed) < share.end) {
      const int index = share.next.fetch_add(1, std::memory_order_relaxed);
      if (index >= share.end) break;
      run.task(run.context, index, participant);
    }
  }
  run.exhausted.store(true, std::memory_order_relaxed);
}

void ThreadPool::run(int count, Task task, void* context, int most) {
  const int limit = std::clamp(std::min(most, count), 1, limit_.load());
  // A forked child has copies of the pools but none of their threads, and the mutexes in whatever
  // state they were. So each caller does all of its work itself there, without touching them.
  const bool threadsAreGone = forksBehind_ != platform::forksBehind();
  if (limit == 1 || threads_.empty() || threadsAreGone) {
    for (int index = 0; index < count; ++index) task(context, index, 0);
    return;
  }
  Run run(count, task, context, limit);
  std::unique_lock lock(mutex_, std::defer_lock);
  lockSoon(lock);
  open_.push_back(&run);
  seats_ += limit - 1;
  const int asleep = limit - 1 - watching_;
  lock.unlock();
  for (int k = 0; k < asleep; ++k) wake_.notify_one();

  takePart(run, 0);
  lockSoon(lock);
  close(run);  // nobody joins from here on
  if (run.inside == 0) return;
  lock.unlock();
  watch([&] { return run.inside.load(std::memory_order_acquire) == 0; });
  lockSoon(lock);
  done_.wait(lock, [&] { return run.inside == 0; });
}

void ThreadPool::close(Run& run) {
  if (std::erase(open_, &run) > 0) seats_ -= run.limit - run.joined;
}

// The run with the fewest threads among those that another one may join, or null.
ThreadPool::Run* ThreadPool::openRun() {
  Run* chosen = nullptr;
  for (Run* run : open_) {
    if (run->joined >= run->limit || run->exhausted.load(std::memory_order_relaxed)) continue;
    if (chosen == nullptr || run->inside < chosen->inside) chosen = run;
  }
  return chosen;
}

// A run to join, or null when the pool is being destroyed.
ThreadPool::Run* ThreadPool::awaitRun(std::unique_lock<std::mutex>& lock) {
  Run* run = openRun();
  if (run == nullptr && !stopping_) {
    ++watching_;
    lock.unlock();
    watch([&] { return seats_.load(std::memory_order_relaxed) > 0 || stopping_; });
    lockSoon(lock);
    --watching_;
    run = openRun();
  }
  if (run == nullptr) wake_.wait(lock, [&] { return stopping_ || (run = openRun()) != nullptr; });
  return stopping_ ? nullptr : run;
}

void ThreadPool::work(int number) {
  platform::enterOwnThread();
  std::unique_lock lock(mutex_);
  while (Run* run = awaitRun(lock)) {
    const int participant = run->limit == participants_ ? number : run->joined;
    ++run->joined;
    --seats_;
    ++run->inside;
    lock.unlock();
    takePart(*run, participant);
    lockSoon(lock);
    close(*run);
    if (--run->inside == 0) done_.notify_all();
  }
}

int participants() {
  return ThreadPool::shared().participants();
}

void runTasks(int count, void (*task)(void* context, int index, int participant), void* context) {
  ThreadPool::shared().run(count, task, context);
}

}  // namespace zeph::cpu
