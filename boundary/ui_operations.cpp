#include "boundary/ui_operations.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <stdexcept>
#include <string_view>

#include "boundary/config.h"
#include "boundary/display_settings_json.h"
#include "boundary/frame_export.h"
#include "boundary/reports.h"
#include "boundary/system_description.h"
#include "platform/dialog.h"

namespace zeph {
namespace {

constexpr float cflOfOtherMethods = 1.5f;  // what "cap_cfl" allows but for "etdrk4"

void start(UIHandle& ui, const Json&) {
  ui.start(deviceId);
}

void toggle(UIHandle& ui, const Json&) {
  ui.toggle();
}

void setRunning(UIHandle& ui, const Json& request) {
  ui.setRunning(readBoolean(request, "value", false));
}

void step(UIHandle& ui, const Json&) {
  ui.step();
}

void reset(UIHandle& ui, const Json&) {
  ui.reset();
}

void nextSeed(UIHandle& ui, const Json&) {
  ui.nextSeed();
}

void setVisible(UIHandle& ui, const Json& request) {
  ui.setVisible(readBoolean(request, "value", true));
}

void dismiss(UIHandle& ui, const Json&) {
  ui.dismissErrors();
}

void nothing(UIHandle&, const Json&) {}

void configure(UIHandle& ui, const Json& request) {
  const Config now = ui.status().config;
  Config config = parseConfig(request, now);
  const bool other = config.integrator != now.integrator && config.integrator != Integrator::etdrk4;
  if (readBoolean(request, "cap_cfl", false) && other)
    config.cfl = std::min(config.cfl, cflOfOtherMethods);
  ui.applyConfig(config);
}

void setLive(UIHandle& ui, const Json& request) {
  const auto cfl = readNumber(request, "cfl");
  const auto logReynolds = readNumber(request, "log_reynolds");
  if (!cfl && !logReynolds) return;
  const Config now = ui.status().config;
  const double number = std::clamp(cfl.value_or(static_cast<double>(now.cfl)), 1.0, 3.0);
  const double reynolds =
      logReynolds ? std::pow(10.0, std::clamp(*logReynolds, 3.0, 6.0)) : now.reynolds;
  ui.setLive(static_cast<float>(number), reynolds);
}

void set(UIHandle& ui, const Json& request) {
  if (const auto regulated = findBoolean(request, "regulated")) ui.setRegulated(*regulated);
  setLive(ui, request);
  ui.setDisplay(readDisplaySettings(request, ui.run.settings));
  ui.sigma = std::clamp(readNumber(request, "sigma", ui.sigma), 1.5, 3.5);
  ui.exposure = std::clamp(readNumber(request, "exposure", ui.exposure), 0.25, 3.0);
  ui.focused = findBoolean(request, "focused").value_or(ui.focused);
}

void readBatch(const Json& request, RunSettings& run) {
  const Json* batch = findMember(request, "batch");
  if (!batch) return;
  run.fixedBatch = !batch->is_null();
  run.batch = run.fixedBatch ? toInt32(*batch) : RunSettings().batch;
}

void readPathOrNone(const Json& request, const char* key, std::string& path) {
  if (findMember(request, key)) path = readPath(request, key).value_or("");
}

void benchmark(UIHandle& ui, const Json& request) {
  RunSettings run = ui.run;
  if (findMember(request, "until")) run.until = readNumber(request, "until");
  if (findMember(request, "wall_seconds"))
    run.wallSeconds = readNumber(request, "wall_seconds").value_or(0);
  readBatch(request, run);
  if (run.batch < 1 || run.batch > 32 || run.wallSeconds < 0 || (run.until && *run.until < 0))
    throw std::invalid_argument("Invalid benchmark limits.");
  readPathOrNone(request, "initial", run.initial);
  readPathOrNone(request, "spectrum", run.spectrum);
  ui.setLimits(run);
}

// The request outlives the work, which is waited for or never begun; a copy of one that is nested
// deeply would take more stack than there is.
void exportFrame(UIHandle& ui, const Json& request) {
  ui.exportFrame([&request](Renderer& renderer, const std::shared_ptr<const Frame>& frame,
                            const DisplaySettings& settings) {
    exportFrame(renderer, frame, settings, request);
  });
}

// The user's answer is awaited without a lock: the flow and the picture go on.
void save(UIHandle& ui, const Json&) {
  const platform::SaveQuestion question = {.title = "Save PNG",
                                           .name = "2DZephane.png",
                                           .filterName = "PNG image",
                                           .suffix = "png",
                                           .parent = ui.parent};
  const platform::SaveAnswer answer = platform::askSavePath(question);
  if (answer.outcome == platform::SaveOutcome::failed)
    throw std::runtime_error("Could not open Save PNG dialog.");
  if (answer.outcome == platform::SaveOutcome::chosen) exportFrame(ui, {{"png", answer.path}});
}

struct Operation {
  std::string_view name;
  void (*run)(UIHandle&, const Json&);
  bool takesMutex = false;  // else it is called with the mutex held
};

constexpr std::array operations{
    Operation{"export", exportFrame, true},
    Operation{"save", save, true},
    Operation{"get", nothing},
    Operation{"flush", nothing},
    Operation{"start", start},
    Operation{"toggle", toggle},
    Operation{"running", setRunning},
    Operation{"step", step},
    Operation{"reset", reset},
    Operation{"seed", nextSeed},
    Operation{"visible", setVisible},
    Operation{"dismiss", dismiss},
    Operation{"configure", configure},
    Operation{"set", set},
    Operation{"benchmark", benchmark},
};

const Operation& operationOf(const Json& request) {
  const Json* op = findMember(request, "op");
  const std::string name = op ? op->get<std::string>() : "";
  for (const Operation& known : operations)
    if (known.name == name) return known;
  throw std::invalid_argument("Unknown UI operation.");
}

}  // namespace

Json runUiOperation(UIHandle& ui, const Json& request) {
  const Operation& operation = operationOf(request);
  if (operation.takesMutex) {
    operation.run(ui, request);
  } else {
    const std::lock_guard lock(ui.mutex);
    operation.run(ui, request);
  }
  return statusReport(ui);
}

}  // namespace zeph
