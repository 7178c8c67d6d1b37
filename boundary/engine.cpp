#include "boundary/engine.h"

#include <array>
#include <stdexcept>
#include <string>
#include <string_view>

#include "boundary/config.h"
#include "boundary/display_settings_json.h"
#include "boundary/reports.h"
#include "boundary/system_description.h"
#include "render/renderer.h"
#include "solver/raw_files.h"

namespace zeph {
namespace {

std::vector<float> readInitial(const Json& request, int resolution) {
  return loadInitialFile(resolution, readPath(request, "initial").value_or(""));
}

Solver createSolver(const Json& configuration) {
  const Config config = parseConfig(configuration, Config{});
  return Solver(config, readInitial(configuration, config.resolution));
}

Json inspect(Solver& solver, const Json&) {
  return statisticsReport(solver.inspect());
}

Json advance(Solver& solver, const Json& request) {
  const auto until = readNumber(request, "until");
  const auto steps = readInteger(request, "steps", 1);
  return statisticsReport(solver.advance(steps, until));
}

Json set(Solver& solver, const Json& request) {
  if (const auto reynolds = readNumber(request, "reynolds")) solver.setReynolds(*reynolds);
  if (const auto cfl = readNumber(request, "cfl")) solver.setCFL(static_cast<float>(*cfl));
  return Json::object();
}

Json reset(Solver& solver, const Json& request) {
  solver.reset(readInitial(request, solver.config().resolution));
  return statisticsReport(solver.inspect());
}

// Once there is a renderer, what the request says of the picture is read.
void exportPicture(const std::shared_ptr<const Frame>& frame, const std::string& path,
                   const Json& request) {
  Renderer renderer(deviceId);
  const std::uint32_t pixels = readPictureSize(request);
  const DisplaySettings settings = readDisplaySettings(request, DisplaySettings{});
  readBoolean(request, "flow", false);  // an engine's booleans are never null
  renderer.renderPng(frame, settings, path, pixels);
}

Json exportFiles(Solver& solver, const Json& request) {
  if (const auto path = readPath(request, "spectrum")) writeRawFile(*path, solver.spectrum());
  const bool wanted = readBoolean(request, "snapshot", false);
  if (!wanted && !findValue(request, "fields") && !findValue(request, "png")) return Json::object();
  const auto frame = solver.snapshot(readBoolean(request, "include_velocity", true));
  if (!frame) throw std::runtime_error("No snapshot slot.");
  if (const auto path = readPath(request, "fields")) writeRawFile(*path, solver.copyFields(*frame));
  if (const auto path = readPath(request, "png")) exportPicture(frame, *path, request);
  return snapshotReport(*frame);
}

struct Operation {
  std::string_view name;
  Json (*run)(Solver&, const Json&);
};

constexpr std::array operations{
    Operation{"inspect", inspect}, Operation{"advance", advance},    Operation{"set", set},
    Operation{"reset", reset},     Operation{"export", exportFiles},
};

}  // namespace

EngineHandle::EngineHandle(const Json& configuration) : solver(createSolver(configuration)) {}

Json runOperation(Solver& solver, const Json& request) {
  const Json* op = findMember(request, "op");
  const std::string name = op ? op->get<std::string>() : "";
  for (const Operation& operation : operations)
    if (operation.name == name) return operation.run(solver, request);
  throw std::invalid_argument("Unknown engine operation.");
}

}  // namespace zeph
