#include "device/cpu/thread_pool.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <memory>
#include <thread>
#include <vector>

#include "device/cpu/parallel.h"
#include "platform/system.h"
#include "tests/support/process.h"

namespace zeph::cpu {
namespace {

// Runs `count` tasks that call body(index, participant).
template <class Body>
void runOn(ThreadPool& pool, int count, Body body) {
  pool.run(
      count,
      [](void* context, int index, int participant) {
        (*static_cast<Body*>(context))(index, participant);
      },
      &body);
}

void expectEachIndexOnce(ThreadPool& pool, int count) {
  std::vector<std::atomic<int>> calls(static_cast<std::size_t>(count));
  runOn(pool, count, [&](int index, int) { ++calls[static_cast<std::size_t>(index)]; });
  for (const std::atomic<int>& call : calls) ASSERT_EQ(call.load(), 1);
}

TEST(ThreadPool, CallsEachIndexExactlyOnce) {
  for (const int participants : {1, 2, 5}) {
    ThreadPool pool(participants);
    EXPECT_EQ(pool.participants(), participants);
    for (const int count : {0, 1, 2, 3, 17, 1000}) expectEachIndexOnce(pool, count);
  }
}

TEST(ThreadPool, HasAtLeastOneThread) {
  for (const int participants : {0, -3}) {
    ThreadPool pool(participants);
    EXPECT_EQ(pool.participants(), 1);
    expectEachIndexOnce(pool, 10);
  }
}

TEST(ThreadPool, HasFinishedWhenTheCallReturns) {
  ThreadPool pool(3);
  for (int round = 0; round < 20; ++round) {
    std::atomic<int> done = 0;
    runOn(pool, 6, [&](int, int) {
      std::this_thread::sleep_for(std::chrono::microseconds(300));
      ++done;
    });
    ASSERT_EQ(done.load(), 6);
  }
}

TEST(ThreadPool, WritesOfTheTasksAreVisibleToTheCaller) {
  ThreadPool pool(4);
  std::vector<int> values(500);
  for (int round = 1; round <= 200; ++round) {
    runOn(pool, 500, [&](int index, int) { values[static_cast<std::size_t>(index)] += 1; });
    ASSERT_EQ(std::count(values.begin(), values.end(), round), 500);
  }
}

TEST(ThreadPool, DividesTheWorkAmongItsThreads) {
  ThreadPool pool(2);
  // Each of the first two tasks waits for the other: one thread alone would never end.
  std::atomic<int> arrived = 0;
  std::atomic<bool> late = false;
  runOn(pool, 2, [&](int, int) {
    ++arrived;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (arrived < 2 && !late) {
      if (std::chrono::steady_clock::now() > deadline) late = true;
      std::this_thread::yield();
    }
  });
  EXPECT_FALSE(late);
}

TEST(ThreadPool, GivesEachParticipantItsOwnShareFirst) {
  constexpr int threads = 4, tasksOfEach = 3;
  ThreadPool pool(threads);
  for (int round = 0; round < 20; ++round) {
    // Nobody goes on to a second task before everybody has a first one.
    std::atomic<int> arrived = 0;
    std::vector<std::atomic<int>> firstTask(threads);
    for (std::atomic<int>& task : firstTask) task = -1;
    runOn(pool, threads * tasksOfEach, [&](int index, int participant) {
      std::atomic<int>& first = firstTask[static_cast<std::size_t>(participant)];
      if (first >= 0) return;
      first = index;
      ++arrived;
      const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
      while (arrived < threads && std::chrono::steady_clock::now() < deadline)
        std::this_thread::yield();
    });
    for (int k = 0; k < threads; ++k)
      ASSERT_EQ(firstTask[static_cast<std::size_t>(k)], k * tasksOfEach);
  }
}

// Records which participants are running, and whether two ever had the same number.
struct Attendance {
  explicit Attendance(int participants) : present(static_cast<std::size_t>(participants)) {}

  void visit(int participant) {
    if (participant < 0 || participant >= static_cast<int>(present.size())) {
      outOfRange = true;
      return;
    }
    std::atomic<int>& place = present[static_cast<std::size_t>(participant)];
    if (++place > 1) twice = true;
    std::this_thread::sleep_for(std::chrono::microseconds(50));
    --place;
  }

  std::vector<std::atomic<int>> present;
  std::atomic<bool> twice = false;
  std::atomic<bool> outOfRange = false;
};

TEST(ThreadPool, NoTwoThreadsOfARunHaveTheSameNumber) {
  ThreadPool pool(4);
  Attendance attendance(4);
  for (int round = 0; round < 20; ++round) {
    runOn(pool, 40, [&](int, int participant) { attendance.visit(participant); });
  }
  EXPECT_FALSE(attendance.twice);
  EXPECT_FALSE(attendance.outOfRange);
}

TEST(ThreadPool, ALimitBoundsTheParticipants) {
  ThreadPool pool(4);
  for (const int limit : {1, 2, 3}) {
    pool.limit(limit);
    Attendance attendance(limit);
    for (int round = 0; round < 10; ++round) {
      runOn(pool, 40, [&](int, int participant) { attendance.visit(participant); });
    }
    EXPECT_FALSE(attendance.outOfRange) << limit;
  }
  EXPECT_EQ(pool.participants(), 4);
}

TEST(ThreadPool, ARunMayAskForFewThreads) {
  ThreadPool pool(4);
  Attendance attendance(2);
  for (int round = 0; round < 10; ++round) {
    pool.run(
        40,
        [](void* context, int, int participant) {
          static_cast<Attendance*>(context)->visit(participant);
        },
        &attendance, 2);
  }
  EXPECT_FALSE(attendance.outOfRange);
  EXPECT_FALSE(attendance.twice);
}

TEST(ThreadPool, SleepsWhenIdle) {
  ThreadPool pool(3);
  expectEachIndexOnce(pool, 100);
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
  const double before = test::processorSeconds();
  std::this_thread::sleep_for(std::chrono::milliseconds(200));
  EXPECT_LT(test::processorSeconds() - before, 0.02);
}

TEST(ThreadPool, LimitsAreClamped) {
  ThreadPool pool(2);
  for (const int limit : {-5, 0, 100}) {
    pool.limit(limit);
    expectEachIndexOnce(pool, 50);
  }
  pool.limit(0);
  const std::thread::id caller = std::this_thread::get_id();
  runOn(pool, 50, [&](int, int) { EXPECT_EQ(std::this_thread::get_id(), caller); });
}

TEST(ThreadPool, ServesSeveralCallersAtTheSameTime) {
  ThreadPool pool(3);
  std::vector<std::thread> callers;
  for (int c = 0; c < 4; ++c) {
    callers.emplace_back([&pool] {
      for (int round = 0; round < 300; ++round) expectEachIndexOnce(pool, 1 + round % 40);
    });
  }
  for (std::thread& caller : callers) caller.join();
}

TEST(ThreadPool, ATaskMayRunTasksItself) {
  ThreadPool pool(3);
  std::atomic<int> calls = 0;
  for (int round = 0; round < 50; ++round) {
    runOn(pool, 5, [&](int, int) {
      runOn(pool, 7, [&](int, int) { runOn(pool, 2, [&](int, int) { ++calls; }); });
    });
  }
  EXPECT_EQ(calls.load(), 50 * 5 * 7 * 2);
}

TEST(ThreadPool, HandlesThousandsOfSmallRuns) {
  ThreadPool pool(3);
  std::atomic<int> calls = 0;
  for (int round = 0; round < 20000; ++round) runOn(pool, 3, [&](int, int) { ++calls; });
  EXPECT_EQ(calls.load(), 60000);
}

TEST(ThreadPool, CanBeDestroyedWhetherOrNotItHasRun) {
  for (int k = 0; k < 50; ++k) {
    ThreadPool idle(4);
  }
  for (int k = 0; k < 50; ++k) {
    const auto pool = std::make_unique<ThreadPool>(4);
    expectEachIndexOnce(*pool, 20);
  }
}

TEST(ThreadPool, OfTheProcessHasAThreadForEachUsableProcessor) {
  EXPECT_EQ(ThreadPool::shared().participants(), platform::usableProcessors());
  EXPECT_EQ(participants(), platform::usableProcessors());
  std::atomic<int> calls = 0;
  runTasks(
      100, [](void* context, int, int) { ++*static_cast<std::atomic<int>*>(context); }, &calls);
  EXPECT_EQ(calls.load(), 100);
}

}  // namespace
}  // namespace zeph::cpu
