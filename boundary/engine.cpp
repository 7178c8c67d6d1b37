#include "boundary/engine.h"

#include <array>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>

#include "boundary/config.h"
#include "boundary/export_request.h"
#include "boundary/reports.h"
#include "boundary/start_request.h"
#include "boundary/system_description.h"
#include "render/frame_export.h"
#include "solver/raw_files.h"
#include "solver/state_file.h"

namespace zeph {
namespace {

std::vector<float> readInitial(const Json& request, int resolution) {
  return loadInitialFile(resolution, initialPath(request));
}

// The members of a configuration beside a state are those of the state. A Reynolds or Courant
// number that is given replaces the one in force.
Solver goOn(const Json& configuration, StateRecord&& state) {
  Config inForce = state.config;
  inForce.reynolds = state.reynolds;
  inForce.cfl = state.cfl;
  const Config config = parseConfig(configuration, inForce);
  requireSameFlow(state.config, config);
  state.reynolds = config.reynolds;
  state.cfl = config.cfl;
  return Solver(state);
}

Solver createSolver(const Json& configuration) {
  if (auto state = readState(configuration)) return goOn(configuration, std::move(*state));
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
  if (const auto state = readState(request)) {
    solver.restore(*state);
    return statisticsReport(solver.inspect());
  }
  solver.reset(readInitial(request, solver.config().resolution));
  return statisticsReport(solver.inspect());
}

Json exportFiles(Solver& solver, const Json& request) {
  if (const auto path = readPath(request, "spectrum")) writeRawFile(*path, solver.spectrum());
  if (const auto path = readPath(request, "state")) writeStateFile(*path, solver.state());
  const bool wanted = readBoolean(request, "snapshot", false);
  if (!wanted && !findValue(request, "fields") && !findValue(request, "png")) return Json::object();
  const auto frame = solver.snapshot(readBoolean(request, "include_velocity", true));
  if (!frame) throw std::runtime_error("No snapshot slot.");
  const FrameFiles files = readEngineExport(request);
  if (files.fields) writeRawFile(*files.fields, solver.copyFields(*frame));
  if (files.png) drawPictureFile(deviceId, frame, files);
  files.raiseRefusal();
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
