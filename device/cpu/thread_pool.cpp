#include "device/cpu/thread_pool.h"

#include <algorithm>
#include <system_error>

#include "device/cpu/parallel.h"
#include "platform/fork.h"
#include "platform/system.h"
#include "platform/thread_environment.h"

namespace zeph::cpu {
namespace {

platform::MadeOnce<ThreadPool> poolOfProcess;

}  // namespace

struct ThreadPool::Run {
  Task task;
  void* context;
  int count;
  int limit;                 // participants that may join
  std::atomic<int> next{0};  // the first task not yet handed out
  int inside = 0;            // pool threads in the run, under the pool's mutex
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
  for (;;) {
    const int index = run.next.fetch_add(1, std::memory_order_relaxed);
    if (index >= run.count) return;
    run.task(run.context, index, participant);
  }
}

void ThreadPool::run(int count, Task task, void* context) {
  const int limit = limit_;
  Run run{task, context, count, limit};
  // A forked child has copies of the pools but none of their threads, and the mutexes in whatever
  // state they were. So each caller does all of its work itself there, without touching them.
  const bool threadsAreGone = forksBehind_ != platform::forksBehind();
  if (count <= 1 || limit == 1 || threads_.empty() || threadsAreGone) {
    takePart(run, 0);
    return;
  }
  {
    const std::lock_guard lock(mutex_);
    open_.push_back(&run);
  }
  wake_.notify_all();
  takePart(run, 0);
  std::unique_lock lock(mutex_);
  close(run);
  done_.wait(lock, [&] { return run.inside == 0; });
}

void ThreadPool::close(Run& run) {
  std::erase(open_, &run);
}

// The run with the fewest threads among those that still have tasks, or null.
ThreadPool::Run* ThreadPool::openRun(int participant) {
  Run* chosen = nullptr;
  for (Run* run : open_) {
    if (participant >= run->limit || run->next.load(std::memory_order_relaxed) >= run->count)
      continue;
    if (chosen == nullptr || run->inside < chosen->inside) chosen = run;
  }
  return chosen;
}

void ThreadPool::work(int participant) {
  platform::enterOwnThread();
  std::unique_lock lock(mutex_);
  for (;;) {
    Run* run = nullptr;
    wake_.wait(lock, [&] { return stopping_ || (run = openRun(participant)) != nullptr; });
    if (stopping_) return;
    ++run->inside;
    lock.unlock();
    takePart(*run, participant);
    lock.lock();
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
