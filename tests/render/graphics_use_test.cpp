#include "render/graphics_use.h"

#include <gtest/gtest.h>
#include <malloc.h>

#include <cstdlib>

namespace zeph {
namespace {

// The function is registered before the first use, so it is called after the wait for all uses.
[[noreturn]] void exitWithAUseOnTheWay() {
  std::atexit([] {
    const GraphicsUse use;
    std::_Exit(use ? 1 : 0);
  });
  { const GraphicsUse use; }
  std::exit(2);
}

TEST(GraphicsUseDeathTest, IsRefusedWhileTheProcessExitsAlsoIfNothingWasUsedAtThatMoment) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(exitWithAUseOnTheWay(), testing::ExitedWithCode(0), "");
}

// The C library would otherwise keep 32 bytes for each picture that a view draws.
TEST(ProcessEndGuard, TakesNoMoreMemoryAfterManyUses) {
  const auto useOften = [] {
    for (int use = 0; use < 100; ++use) {
      const GraphicsUse held;
      for (int renewal = 0; renewal < 2000; ++renewal) renewProcessEndGuard();
    }
  };
  useOften();
  const std::size_t before = mallinfo2().uordblks;
  useOften();
  EXPECT_LT(mallinfo2().uordblks, before + 100'000);
}

}  // namespace
}  // namespace zeph
