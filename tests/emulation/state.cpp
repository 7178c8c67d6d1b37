#include "tests/emulation/state.h"

namespace zeph::emulation {
namespace {

// Runtimes work with drivers of their own major version and later.
int oldestDriver() {
  return CUDART_VERSION / 1000 * 1000;
}

}  // namespace

State& state() {
  static auto* shared = new State;
  return *shared;
}

int& currentGpu() {
  thread_local int gpu = 0;
  return gpu;
}

::cudaError_t& lastError() {
  thread_local ::cudaError_t error = ::cudaSuccess;
  return error;
}

::cudaError_t beginCall(const char* function) {
  State& s = state();
  ++s.calls[function];
  const auto planned = s.failures.find(function);
  if (planned == s.failures.end()) return ::cudaSuccess;
  if (planned->second.passes-- > 0) return ::cudaSuccess;
  const ::cudaError_t error = planned->second.error;
  s.failures.erase(planned);
  return error;
}

::cudaError_t obstacle() {
  const State& s = state();
  if (s.machine.driverVersion < oldestDriver()) return ::cudaErrorInsufficientDriver;
  if (s.gpus() == 0) return ::cudaErrorNoDevice;
  if (currentGpu() >= s.gpus()) return ::cudaErrorInvalidDevice;
  return s.faults[static_cast<std::size_t>(currentGpu())];
}

void setMachine(const Machine& machine) {
  State& s = state();
  const std::lock_guard lock(s.mutex);
  s.machine = machine;
  s.faults.assign(machine.gpus.size(), ::cudaSuccess);
  s.defaultStreams.clear();
  for (int gpu = 0; gpu < s.gpus(); ++gpu) s.defaultStreams.push_back({.gpu = gpu});
  s.streams.clear();
  s.events.clear();
  s.graphs.clear();
  s.graphExecs.clear();
  s.imports.clear();
  s.graphics.clear();
  s.ledger.clear();
  s.failures.clear();
  currentGpu() = 0;
  lastError() = ::cudaSuccess;
}

MachineScope::~MachineScope() {
  setMachine({});
}

const Machine& machine() {
  return state().machine;
}

void failNext(const std::string& function, ::cudaError_t error, int passes) {
  const std::lock_guard lock(state().mutex);
  state().failures[function] = {error, passes};
}

long callsOf(const std::string& function) {
  const std::lock_guard lock(state().mutex);
  const auto found = state().calls.find(function);
  return found != state().calls.end() ? found->second : 0;
}

Holdings holdings() {
  State& s = state();
  const std::lock_guard lock(s.mutex);
  Holdings held;
  for (int gpu = 0; gpu < s.gpus(); ++gpu) held.bytes += s.ledger.bytesOn(gpu);
  held.allocations = s.ledger.blocks();
  held.hostBlocks = s.ledger.hostBlocks();
  held.streams = s.streams.size();
  held.events = s.events.size();
  held.graphs = s.graphs.size() + s.graphExecs.size();
  held.modules = s.modules;
  held.imports = s.imports.size();
  held.registered = s.graphics.size();
  s.graphics.forEach(
      [&](const GraphicsResource& resource) { held.mapped += resource.mapped != nullptr; });
  return held;
}

bool hasFault(int gpu) {
  const std::lock_guard lock(state().mutex);
  return state().faults[static_cast<std::size_t>(gpu)] != ::cudaSuccess;
}

}  // namespace zeph::emulation
