#include "boundary/reports.h"

#include <cmath>
#include <stdexcept>

#include "boundary/config.h"
#include "boundary/display_settings_json.h"
#include "boundary/system_description.h"
#include "controller/regulator.h"
#include "device/runtime.h"

namespace zeph {
namespace {

Json textOrNull(const std::string& first, const std::string& second) {
  if (!first.empty()) return first;
  if (!second.empty()) return second;
  return nullptr;
}

Json performanceReport(const Status& status) {
  return {{"simtime_per_s", status.simtimePerSecond},
          {"turnovers_per_s", status.turnoversPerSecond},
          {"steps_per_s", status.stepsPerSecond},
          {"milliseconds_per_step", status.stepsPerSecond > 0 ? 1000 / status.stepsPerSecond : 0.0},
          {"batch_steps", status.batchSteps}};
}

// If the connection to the display is lost, there is no window; the render thread reports the loss.
WindowState windowOf(Canvas& canvas) {
  try {
    return canvas.askWindow();
  } catch (const std::runtime_error&) {
    return {};
  }
}

// In device-independent units.
Json canvasReport(Canvas& canvas, bool isVisible) {
  const WindowState window = windowOf(canvas);
  return {{"width_points", window.width / window.scale},
          {"height_points", window.height / window.scale},
          {"scale", window.scale},
          {"visible", isVisible && window.isVisible}};
}

void addFlow(Json& report, const Status& status) {
  report["config"] = configToJson(status.config);
  report["ready"] = status.ready;
  report["running"] = status.running;
  report["settled"] = status.settled;
  report["generation"] = status.generation;
  report["regulated"] = status.regulated;
  report["effective_reynolds"] =
      status.stats.reynolds > 0 ? status.stats.reynolds : status.config.reynolds;
  report["palinstrophy_control"] = status.stats.palinstrophyRatio * palinstrophyScale;
  report["elapsed_seconds"] = status.elapsedSeconds;
  report["allocated_bytes"] = status.stats.allocatedBytes;
  report["history"] = status.history;
  report["performance"] = performanceReport(status);
  if (status.ready) report["stats"] = statisticsReport(status.stats);
  if (status.frame) report["frame"] = snapshotReport(*status.frame);
}

}  // namespace

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

Json statusReport(const View& view) {
  const ViewReport now = view.handle().report();
  Json report = displaySettingsToJson(now.look.settings);
  addFlow(report, now.status);
  report["gpu"] = gpuName;
  report["backend"] = deviceBackend(deviceId);
  report["error_message"] = textOrNull(now.error, now.status.error_message);
  report["exposure"] = now.look.exposure;
  report["sigma"] = now.look.sigma;
  report["focused"] = now.isFocused;
  report["exporting"] = false;  // an export is over when its call returns
  report["presentations"] = now.presentations;
  if (view.canvas()) report["canvas"] = canvasReport(*view.canvas(), now.isVisible);
  return report;
}

}  // namespace zeph
