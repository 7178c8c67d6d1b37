#include "boundary/ui_operations.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <stdexcept>
#include <string_view>

#include "boundary/config.h"
#include "boundary/display_settings_json.h"
#include "boundary/export_request.h"
#include "boundary/reports.h"
#include "boundary/start_request.h"
#include "boundary/system_description.h"
#include "platform/dialog.h"
#include "solver/state_file.h"

namespace zeph {
namespace {

constexpr float cappedCfl = 1.5f;  // the most that "cap_cfl" allows, except for "etdrk4"

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
  const bool needsCap =
      config.integrator != now.integrator && config.integrator != Integrator::etdrk4;
  if (readBoolean(request, "cap_cfl", false) && needsCap)
    config.cfl = std::min(config.cfl, cappedCfl);
  ui.applyConfig(config);
}

void setLive(UIHandle& ui, const Json& request) {
  const auto cfl = readNumber(request, "cfl");
  const auto logReynolds = readNumber(request, "log_reynolds");
  if (!cfl && !logReynolds) return;
  const Config now = ui.status().config;
  const double courant = std::clamp(cfl.value_or(static_cast<double>(now.cfl)), 1.0, 3.0);
  const double reynolds =
      logReynolds ? std::pow(10.0, std::clamp(*logReynolds, 3.0, 6.0)) : now.reynolds;
  ui.setLive(static_cast<float>(courant), reynolds);
}

void set(UIHandle& ui, const Json& request) {
  if (const auto regulated = findBoolean(request, "regulated")) ui.setRegulated(*regulated);
  setLive(ui, request);
  Look look = ui.look();
  look.settings = readDisplaySettings(request, look.settings);
  look.sigma = std::clamp(readNumber(request, "sigma", look.sigma), 1.5, 3.5);
  look.exposure = std::clamp(readNumber(request, "exposure", look.exposure), 0.25, 3.0);
  ui.setLook(look);
  if (const auto focused = findBoolean(request, "focused")) ui.setFocused(*focused);
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

// A flow has one start: the one that is named last.
void readStart(const Json& request, RunSettings& run) {
  checkStart(request);
  if (!initialPath(request).empty()) run.state.clear();
  if (!statePath(request).empty()) run.initial.clear();
  readPathOrNone(request, "initial", run.initial);
  readPathOrNone(request, "state", run.state);
}

void benchmark(UIHandle& ui, const Json& request) {
  RunSettings run = ui.run();
  if (findMember(request, "until")) run.until = readNumber(request, "until");
  if (findMember(request, "wall_seconds"))
    run.wallSeconds = readNumber(request, "wall_seconds").value_or(0);
  readBatch(request, run);
  if (run.batch < 1 || run.batch > 32 || run.wallSeconds < 0 || (run.until && *run.until < 0))
    throw std::invalid_argument("Invalid benchmark limits.");
  readStart(request, run);
  readPathOrNone(request, "spectrum", run.spectrum);
  ui.setLimits(run);
}

// No lock is held while the dialog is open: the flow and the picture go on.
void save(View& view) {
  const platform::SaveQuestion question = {.title = "Save PNG",
                                           .name = "2DZephane.png",
                                           .filterName = "PNG image",
                                           .suffix = "png",
                                           .parent = view.parent()};
  const platform::SaveAnswer answer = platform::askSavePath(question);
  if (answer.outcome == platform::SaveOutcome::failed)
    throw std::runtime_error("Could not open Save PNG dialog.");
  if (answer.outcome != platform::SaveOutcome::chosen) return;
  FrameFiles files;
  files.png = answer.path;
  view.handle().exportFrame(files);
}

struct Operation {
  std::string_view name;
  void (*run)(UIHandle&, const Json&);  // called with the handle's mutex held
};

constexpr std::array operations{
    Operation{"get", nothing},         Operation{"flush", nothing},
    Operation{"start", start},         Operation{"toggle", toggle},
    Operation{"running", setRunning},  Operation{"step", step},
    Operation{"reset", reset},         Operation{"seed", nextSeed},
    Operation{"visible", setVisible},  Operation{"dismiss", dismiss},
    Operation{"configure", configure}, Operation{"set", set},
    Operation{"benchmark", benchmark},
};

std::string nameOf(const Json& request) {
  const Json* op = findMember(request, "op");
  return op ? op->get<std::string>() : "";
}

const Operation& operationNamed(const std::string& name) {
  for (const Operation& known : operations)
    if (known.name == name) return known;
  throw std::invalid_argument("Unknown UI operation.");
}

void exportFiles(UIHandle& ui, const Json& request) {
  if (const auto path = readPath(request, "state")) {
    writeStateFile(*path, ui.state());
    if (!findValue(request, "fields") && !findValue(request, "png")) return;
  }
  ui.exportFrame(readViewExport(request));
}

void change(UIHandle& ui, const Operation& operation, const Json& request) {
  const auto lock = ui.lock();
  operation.run(ui, request);
}

}  // namespace

// "export" and "save" wait for the render thread or the user, so they run without the mutex.
Json runUiOperation(View& view, const Json& request) {
  const std::string name = nameOf(request);
  if (name == "export") {
    exportFiles(view.handle(), request);
  } else if (name == "save") {
    save(view);
  } else {
    change(view.handle(), operationNamed(name), request);
  }
  return statusReport(view);
}

}  // namespace zeph
