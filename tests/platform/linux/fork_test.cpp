#include "platform/fork.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <stdexcept>
#include <thread>

namespace zeph::platform {
namespace {

ProcessMutex one;
ProcessMutex other;
MadeOnce<int> value;
unsigned calls = 0;
const AroundForks counted([] { calls += 1; }, [] { calls += 10; }, [] { calls += 100; });

// The exit code of a forked child that does the work.
template <class Work>
int codeOfChild(Work work) {
  const pid_t child = fork();
  if (child == 0) _exit(work());
  int status = 0;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST(ProcessMutex, IsFreeInAForkedChildWhateverThreadsTakeItInWhateverOrder) {
  std::atomic<bool> isOver = false;
  const auto take = [&](ProcessMutex& first, ProcessMutex& second) {
    while (!isOver) {
      const std::lock_guard outer(first);
      if (second.try_lock()) second.unlock();
    }
  };
  std::thread forwards([&] { take(one, other); });
  std::thread backwards([&] { take(other, one); });
  for (int round = 0; round < 100; ++round) {
    EXPECT_EQ(codeOfChild([] { return one.try_lock() && other.try_lock() ? 0 : 1; }), 0);
  }
  isOver = true;
  forwards.join();
  backwards.join();
}

TEST(ProcessMutex, IsFreeInTheParentAfterAFork) {
  codeOfChild([] { return 0; });
  ASSERT_TRUE(one.try_lock());
  one.unlock();
}

TEST(ProcessMutex, MayGoBeforeTheProcess) {
  { const ProcessMutex brief; }
  EXPECT_EQ(codeOfChild([] { return one.try_lock() ? 0 : 1; }), 0);
}

TEST(MadeOnce, TriesAgainAfterAFailureAndThenKeepsTheValue) {
  EXPECT_THROW(value.get([]() -> int* { throw std::runtime_error("not now"); }),
               std::runtime_error);
  EXPECT_EQ(value.get([] { return new int(1); }), 1);
  EXPECT_EQ(value.get([] { return new int(2); }), 1);
}

TEST(AroundForks, AreCalledBeforeAForkAndAfterItInParentAndChild) {
  calls = 0;
  EXPECT_EQ(codeOfChild([] { return static_cast<int>(calls); }), 101);
  EXPECT_EQ(calls, 11U);
}

TEST(AroundForks, CountTheForksBehindAProcess) {
  const unsigned here = forksBehind();
  EXPECT_EQ(codeOfChild([=] { return forksBehind() == here + 1 ? 0 : 1; }), 0);
  EXPECT_EQ(forksBehind(), here);
}

}  // namespace
}  // namespace zeph::platform
