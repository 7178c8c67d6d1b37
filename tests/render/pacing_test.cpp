#include "render/pacing.h"

#include <gtest/gtest.h>

namespace zeph {
namespace {

constexpr double step = 1.0 / 60;
constexpr double tiny = 1e-9;

// The first moment at which the grid is due, to within a nanosecond, from a moment at which it is
// not.
double nextOf(const PresentationGrid& grid, double from) {
  double early = from;
  double late = from + 10;
  while (late - early > tiny / 10) {
    const double middle = (early + late) / 2;
    (grid.isDue(middle) ? late : early) = middle;
  }
  return late;
}

TEST(PresentationGrid, IsDueBeforeTheFirstPresentationAtAnyTime) {
  const PresentationGrid grid;
  for (const double now : {0.0, 1e-9, 1.0, 1e9}) EXPECT_TRUE(grid.isDue(now)) << now;
}

TEST(PresentationGrid, BeginsWithTheFirstPresentation) {
  for (const double first : {0.001, 5.0, 123456.789}) {
    PresentationGrid grid;
    grid.presented(first);
    EXPECT_FALSE(grid.isDue(first));
    EXPECT_FALSE(grid.isDue(first + step - 2 * tiny));
    EXPECT_TRUE(grid.isDue(first + step + 2 * tiny));
  }
}

TEST(PresentationGrid, APresentationExactlyInTimeMovesItByOneStep) {
  PresentationGrid grid;
  grid.presented(1);
  const double next = 1 + 1.0 / 60;
  ASSERT_TRUE(grid.isDue(next));
  grid.presented(next);
  EXPECT_NEAR(nextOf(grid, next), 1 + 2 * step, tiny);
}

TEST(PresentationGrid, APresentationBeforeItsTimeMovesItByOneStep) {
  PresentationGrid grid;
  grid.presented(1);
  grid.presented(1.001);
  EXPECT_NEAR(nextOf(grid, 1.001), 1 + 2 * step, tiny);
}

TEST(PresentationGrid, ALatePresentationSkipsThePointsThatItHasMissed) {
  const auto movedBy = [](double late) {
    PresentationGrid grid;
    grid.presented(1);
    grid.presented(1 + step + late);
    return nextOf(grid, 1 + step + late) - (1 + step);
  };
  EXPECT_NEAR(movedBy(0.05 + tiny), 4 * step, tiny);
  EXPECT_NEAR(movedBy(0.05 - tiny), 3 * step, tiny);
  EXPECT_NEAR(movedBy(0.010), 1 * step, tiny);
  EXPECT_NEAR(movedBy(0.017), 2 * step, tiny);
  EXPECT_NEAR(movedBy(2.0 + tiny), 121 * step, tiny);
}

TEST(PresentationGrid, DoesNotDrift) {
  PresentationGrid grid;
  const double first = 100.25;
  double now = first;
  int points = 0;
  grid.presented(now);
  // Each a little late, now and then by more than one point.
  for (int k = 0; k < 6000; ++k) {
    const int missed = k % 100 == 0 ? 3 : 0;
    points += 1 + missed;
    now = first + points * step + 0.004;
    ASSERT_TRUE(grid.isDue(now));
    grid.presented(now);
  }
  EXPECT_NEAR(nextOf(grid, now), first + (points + 1) * step, 1e-8);
}

TEST(PresentationGrid, SleepsUntilTheNextPoint) {
  PresentationGrid grid;
  EXPECT_EQ(grid.secondsUntilDue(1), 0);
  grid.presented(1);
  EXPECT_NEAR(grid.secondsUntilDue(1), step, tiny);
  EXPECT_NEAR(grid.secondsUntilDue(1 + step - 0.003), 0.003, tiny);
  EXPECT_NEAR(grid.secondsUntilDue(1 + step - 1e-6), 1e-6, tiny);
  EXPECT_EQ(grid.secondsUntilDue(1 + step + tiny), 0);
  EXPECT_EQ(grid.secondsUntilDue(50), 0);
}

TEST(PresentationGrid, AHiddenTimeIsSkippedAsALatePresentationIs) {
  PresentationGrid grid;
  grid.presented(10);
  const double back = 10 + 3600 + 0.25 * step;
  EXPECT_TRUE(grid.isDue(back));
  grid.presented(back);
  EXPECT_NEAR(nextOf(grid, back), 10 + 3600 + step, 1e-8);
}

}  // namespace
}  // namespace zeph
