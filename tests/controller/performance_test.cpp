#include "controller/performance.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>

namespace zeph {
namespace {

constexpr double nan = std::numeric_limits<double>::quiet_NaN();

// The rule for the batch size, written independently.
struct Model {
  double secondsPerStep = 0.001;
  int batchSteps = 1;

  void account(int n, double seconds) {
    double perStep = seconds / (n > 1 ? n : 1);
    if (perStep < 1e-6) perStep = 1e-6;
    secondsPerStep = 0.2 * perStep + 0.8 * secondsPerStep;
    const double wanted = std::trunc(0.008 / secondsPerStep);
    const int target = wanted < 1 ? 1 : wanted > 32 ? 32 : static_cast<int>(wanted);
    int most = 2 * batchSteps;
    if (most < 1) most = 1;
    batchSteps = target < most ? target : most;
    if (seconds > 0.016) {
      const int measured = static_cast<int>(n * 0.008 / seconds);
      if (measured < batchSteps) batchSteps = measured;
      if (batchSteps < 1) batchSteps = 1;
    }
  }
};

TEST(Pace, MatchesTheModelBitForBit) {
  std::mt19937_64 source(11);
  std::lognormal_distribution<double> perStep(std::log(0.0008), 1.5);
  for (int run = 0; run < 50; ++run) {
    Pace pace;
    Model model;
    for (int k = 0; k < 200; ++k) {
      const double seconds = perStep(source) * pace.batchSteps;
      // Sometimes a number of steps that differs from the pace.
      const int steps = k % 7 == 0 ? 1 : pace.batchSteps;
      pace.account(steps, seconds);
      model.account(steps, seconds);
      ASSERT_EQ(pace.secondsPerStep, model.secondsPerStep);
      ASSERT_EQ(pace.batchSteps, model.batchSteps);
      ASSERT_GE(pace.batchSteps, 1);
      ASSERT_LE(pace.batchSteps, 32);
    }
  }
}

TEST(Pace, DoublesUpToThirtyTwoForAFastFlow) {
  Pace pace;
  std::vector<int> sizes;
  for (int k = 0; k < 8; ++k) {
    sizes.push_back(pace.batchSteps);
    pace.account(pace.batchSteps, 1e-5 * pace.batchSteps);
  }
  // The smoothed figure begins at a millisecond, so that the first targets are 9, 12, 15, ...
  EXPECT_EQ(sizes, (std::vector<int>{1, 2, 4, 8, 16, 23, 29, 32}));
}

TEST(Pace, StartsAtOneStepOfAMillisecond) {
  const Pace pace;
  EXPECT_EQ(pace.batchSteps, 1);
  EXPECT_EQ(pace.secondsPerStep, 0.001);
}

TEST(Pace, SmoothsMeasurementsWithAWeightOfAFifth) {
  Pace pace;
  pace.account(4, 0.012);
  EXPECT_EQ(pace.secondsPerStep, 0.2 * 0.003 + 0.8 * 0.001);
}

TEST(Pace, ABatchThatTookNoTimeCountsAsAMicrosecondAStep) {
  Pace pace;
  pace.account(32, 0);
  EXPECT_EQ(pace.secondsPerStep, 0.2 * 1e-6 + 0.8 * 0.001);
  for (int k = 0; k < 200; ++k) pace.account(32, 0);
  EXPECT_NEAR(pace.secondsPerStep, 1e-6, 1e-12);
  EXPECT_EQ(pace.batchSteps, 32);
}

TEST(Pace, ABatchOfNoStepsCountsAsOne) {
  Pace pace;
  pace.account(0, 0.005);
  EXPECT_EQ(pace.secondsPerStep, 0.2 * 0.005 + 0.8 * 0.001);
}

TEST(Pace, IsOneStepAtEightMillisecondsAStep) {
  for (const double slow : {0.008, 0.02, 1.0, 1e6}) {
    Pace pace = {.secondsPerStep = slow, .batchSteps = 32};
    pace.account(1, slow);
    EXPECT_EQ(pace.batchSteps, 1) << slow;
  }
}

TEST(Pace, IsReducedAtOnceAfterABatchOfTwiceTheTarget) {
  // The smoothed figure alone would still allow 32 steps.
  Pace pace = {.secondsPerStep = 1e-5, .batchSteps = 32};
  pace.account(32, 0.032);
  EXPECT_EQ(pace.batchSteps, 8);
  Pace uncut = {.secondsPerStep = 1e-5, .batchSteps = 32};
  uncut.account(32, 0.016);
  EXPECT_EQ(uncut.batchSteps, 32);
}

TEST(Pace, NeverFallsBelowOneStep) {
  Pace pace;
  pace.account(1, 0.5);
  EXPECT_EQ(pace.batchSteps, 1);
  pace.account(1, 1e9);
  EXPECT_EQ(pace.batchSteps, 1);
}

TEST(WallClock, SumsTheIntervalsBetweenOpeningAndClosing) {
  WallClock wall;
  EXPECT_EQ(wall.at(100), 0);
  wall.open(10);
  EXPECT_EQ(wall.at(12.5), 2.5);
  wall.close(13);
  EXPECT_EQ(wall.at(99), 3);
  wall.open(20);
  EXPECT_EQ(wall.at(21), 4);
  wall.close(22);
  EXPECT_EQ(wall.seconds, 5);
}

TEST(WallClock, IgnoresOpeningOrClosingTwice) {
  WallClock wall;
  wall.close(5);
  EXPECT_EQ(wall.seconds, 0);
  wall.open(10);
  wall.open(11);
  wall.close(12);
  wall.close(13);
  EXPECT_EQ(wall.seconds, 2);
}

TEST(WallClock, NeverRunsBackwards) {
  WallClock wall;
  wall.open(10);
  EXPECT_EQ(wall.at(9), 0);
  wall.close(9);
  EXPECT_EQ(wall.seconds, 0);
}

TEST(FrameGrid, StartsASixtiethAfterTheFirstFrame) {
  FrameGrid grid;
  EXPECT_TRUE(grid.isDue(0));
  EXPECT_TRUE(grid.isDue(123));
  grid.advance(100);
  EXPECT_EQ(grid.next, 100 + 1.0 / 60);
  EXPECT_FALSE(grid.isDue(100.016));
  EXPECT_TRUE(grid.isDue(100.017));
}

TEST(FrameGrid, DoesNotMoveBeforeItsNextPoint) {
  FrameGrid grid = {.next = 5};
  grid.advance(4.9);
  EXPECT_EQ(grid.next, 5);
  EXPECT_FALSE(grid.isDue(4.9));
}

TEST(FrameGrid, AFrameOnTimeMovesItByOnePoint) {
  FrameGrid grid = {.next = 5};
  grid.advance(5);
  EXPECT_EQ(grid.next, 5 + 1.0 / 60);
  grid = {.next = 5};
  grid.advance(5.01);
  EXPECT_EQ(grid.next, 5 + 1.0 / 60);
}

TEST(FrameGrid, SkipsThePointsThatHaveBeenMissed) {
  FrameGrid grid = {.next = 5};
  grid.advance(5 + 10.5 / 60);
  EXPECT_EQ(grid.next, 5 + 11.0 / 60);
}

TEST(FrameGrid, KeepsItsPointsHoweverLateFramesAre) {
  std::mt19937_64 source(3);
  std::exponential_distribution<double> late(100);
  FrameGrid grid;
  grid.advance(1);
  const double first = grid.next;
  for (int k = 0; k < 10000; ++k) {
    const double now = grid.next + late(source);
    const double before = grid.next;
    grid.advance(now);
    ASSERT_GT(grid.next, now - 1e-9);
    ASSERT_LE(grid.next, now + 1.0 / 60 + 1e-9);
    const double points = (grid.next - first) * 60;
    ASSERT_NEAR(points, std::round(points), 1e-6);
    ASSERT_GT(grid.next, before);
  }
}

TEST(RateWindow, EndsAfterAQuarterOfASecond) {
  const RateWindow window = {.start = 10, .steps = 0};
  EXPECT_FALSE(window.isOver(10));
  EXPECT_FALSE(window.isOver(10.2499));
  EXPECT_TRUE(window.isOver(10.25));
  EXPECT_TRUE(window.isOver(11));
}

TEST(RateWindow, MeasuresStepsPerSecondAndRestarts) {
  RateWindow window = {.start = 10, .steps = 100};
  EXPECT_EQ(window.close(10.5, 150), 100);
  EXPECT_EQ(window.start, 10.5);
  EXPECT_EQ(window.steps, 150);
  EXPECT_EQ(window.close(10.75, 151), 4);
}

TEST(Rates, AreZeroOverNoTime) {
  EXPECT_EQ(ratePer(3, 2), 1.5);
  EXPECT_EQ(ratePer(3, 0), 0);
  EXPECT_EQ(ratePer(3, -1), 0);
  EXPECT_EQ(ratePer(3, nan), 0);
}

TEST(History, AddsOnlyValuesThatDiffer) {
  std::vector<double> history;
  for (const double value : {1.0, 1.0, 2.0, 2.0, 1.0}) addToHistory(history, value);
  EXPECT_EQ(history, (std::vector<double>{1, 2, 1}));
}

TEST(History, KeepsTheLatestHundredAndTwenty) {
  std::vector<double> history;
  for (int k = 1; k <= 120; ++k) addToHistory(history, k);
  EXPECT_EQ(history.size(), 120u);
  EXPECT_EQ(history.front(), 1);
  addToHistory(history, 121);
  EXPECT_EQ(history.size(), 120u);
  EXPECT_EQ(history.front(), 2);
  EXPECT_EQ(history.back(), 121);
  addToHistory(history, 121);
  EXPECT_EQ(history.front(), 2);
}

TEST(History, AddsEveryNaN) {
  std::vector<double> history;
  for (int k = 0; k < 3; ++k) addToHistory(history, nan);
  EXPECT_EQ(history.size(), 3u);
}

TEST(History, AddsZeroOnceWhateverItsSign) {
  std::vector<double> history;
  addToHistory(history, 0.0);
  addToHistory(history, -0.0);
  EXPECT_EQ(history.size(), 1u);
}

}  // namespace
}  // namespace zeph
