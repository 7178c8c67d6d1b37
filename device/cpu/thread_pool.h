// The threads among which the processor's work is divided.
#pragma once

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <vector>

namespace zeph::cpu {

// A pool whose threads sleep while there is nothing to do. The caller of a run takes part in it,
// and several callers may run at the same time. Which thread does which task never changes a
// result.
//
// Each participant has a share of neighbouring tasks, the same one in each run of as many tasks, so
// that it finds in its cache what it left there. When it has done them it helps the others.
//
// Runs of a few microseconds follow one another closely, and waking a thread takes longer than
// that. So a thread without work, or a caller that waits for the last task, watches for a little
// while before it sleeps.
class ThreadPool {
 public:
  // `index` counts the tasks of a run from 0; `participant` numbers the threads that take part in
  // it, from 0 (the caller) to participants() - 1, so that scratch memory can be kept for each.
  using Task = void (*)(void* context, int index, int participant);

  explicit ThreadPool(int participants);
  ~ThreadPool();
  ThreadPool(const ThreadPool&) = delete;
  ThreadPool& operator=(const ThreadPool&) = delete;

  // The pool of this process: as many participants as processors that it may run on.
  static ThreadPool& shared();

  int participants() const { return participants_; }

  // Lets at most `participants` take part in the runs that follow, at least one; for tests.
  void limit(int participants);

  // Calls task(context, index, participant) for each index below `count`, once each, in any order
  // and on any of the threads, and returns when all are done. A task must not raise.
  // At most `most` threads take part: work that is done sooner than others could join it is better
  // done alone.
  void run(int count, Task task, void* context, int most = 1 << 20);

 private:
  struct Run;
  void work(int number);
  Run* awaitRun(std::unique_lock<std::mutex>& lock);
  Run* openRun();
  void close(Run& run);
  static void takePart(Run& run, int participant);

  int participants_;
  unsigned forksBehind_;  // of the process that has the threads
  std::atomic<int> limit_;
  std::mutex mutex_;
  std::condition_variable wake_;  // a run has been opened
  std::condition_variable done_;  // a thread has left a run
  std::vector<Run*> open_;        // runs that may still have tasks to hand out
  std::atomic<int> seats_ = 0;    // threads that may still join them; changed under the mutex
  int watching_ = 0;              // threads that will see a seat without being woken
  std::atomic<bool> stopping_ = false;
  std::vector<std::thread> threads_;
};

}  // namespace zeph::cpu
