#include "boundary/reports.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace zeph {
namespace {

Statistics someStatistics() {
  Statistics statistics;
  statistics.steps = ~0ull;
  statistics.time = 1.5;
  statistics.energy = 0.5;
  statistics.enstrophy = 8;
  statistics.palinstrophy = 300;
  statistics.palinstrophyRatio = 0.01;
  statistics.reynolds = 1e4;
  statistics.initialTurnoverTime = 1.6;
  statistics.gpuMilliseconds = 12.25;
  statistics.dt = 0.1f;
  statistics.allocatedBytes = 1ull << 40;
  statistics.workspaceBytes = 77;
  return statistics;
}

TEST(Reports, TheStatisticsReportHoldsItsFigures) {
  EXPECT_EQ(statisticsReport(someStatistics()), (Json{{"steps", ~0ull},
                                                      {"simulation_time", 1.5},
                                                      {"dt", 0.10000000149011612},
                                                      {"energy", 0.5},
                                                      {"enstrophy", 8.0},
                                                      {"palinstrophy", 300.0},
                                                      {"palinstrophy_ratio", 0.01},
                                                      {"reynolds", 1e4},
                                                      {"initial_turnover_time", 1.6},
                                                      {"gpu_milliseconds", 12.25},
                                                      {"allocated_bytes", 1ull << 40},
                                                      {"is_finite", true}}));
}

TEST(Reports, AFlowIsFiniteWhenItsTimeAndItsThreeSumsAre) {
  for (double Statistics::*figure : {&Statistics::time, &Statistics::energy, &Statistics::enstrophy,
                                     &Statistics::palinstrophy}) {
    for (const double value : {double{INFINITY}, std::nan("")}) {
      Statistics statistics = someStatistics();
      statistics.*figure = value;
      EXPECT_EQ(statisticsReport(statistics)["is_finite"], false);
    }
  }
  Statistics statistics = someStatistics();
  statistics.gpuMilliseconds = std::nan("");
  EXPECT_EQ(statisticsReport(statistics)["is_finite"], true);
}

TEST(Reports, TheSnapshotReportHoldsTheMomentsOfTheFrame) {
  Frame frame;
  frame.gridSize = 64;
  frame.sequence = 12;
  frame.time = 0.75;
  frame.maxVorticity = 0.1f;
  frame.meanVorticity = -0.2f;
  frame.stdVorticity = 0.3f;
  frame.maxSpeed = 0.4f;
  EXPECT_EQ(snapshotReport(frame), (Json{{"sequence", 12},
                                         {"time", 0.75},
                                         {"grid_size", 64},
                                         {"max_vorticity", double{0.1f}},
                                         {"mean_vorticity", double{-0.2f}},
                                         {"std_vorticity", double{0.3f}},
                                         {"max_speed", double{0.4f}}}));
}

}  // namespace
}  // namespace zeph
