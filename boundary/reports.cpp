#include "boundary/reports.h"

#include <cmath>

namespace zeph {

Json statisticsReport(const Statistics& statistics) {
  Json report;
  report["steps"] = statistics.steps;
  report["simulation_time"] = statistics.time;
  report["dt"] = static_cast<double>(statistics.dt);
  report["energy"] = statistics.energy;
  report["enstrophy"] = statistics.enstrophy;
  report["palinstrophy"] = statistics.palinstrophy;
  report["palinstrophy_ratio"] = statistics.palinstrophyRatio;
  report["reynolds"] = statistics.reynolds;
  report["initial_turnover_time"] = statistics.initialTurnoverTime;
  report["gpu_milliseconds"] = statistics.gpuMilliseconds;
  report["allocated_bytes"] = statistics.allocatedBytes;
  report["is_finite"] = std::isfinite(statistics.time) && std::isfinite(statistics.energy) &&
                        std::isfinite(statistics.enstrophy) &&
                        std::isfinite(statistics.palinstrophy);
  return report;
}

Json snapshotReport(const Frame& frame) {
  Json report;
  report["sequence"] = frame.sequence;
  report["time"] = frame.time;
  report["grid_size"] = frame.gridSize;
  report["max_vorticity"] = static_cast<double>(frame.maxVorticity);
  report["mean_vorticity"] = static_cast<double>(frame.meanVorticity);
  report["std_vorticity"] = static_cast<double>(frame.stdVorticity);
  report["max_speed"] = static_cast<double>(frame.maxSpeed);
  return report;
}

}  // namespace zeph
