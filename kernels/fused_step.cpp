#include "kernels/fused_step.h"

#include <algorithm>
#include <atomic>

#include "device/cpu/instruction_set.h"
#include "device/cpu/thread_pool.h"
#include "kernels/bodies/time_step.h"
#include "platform/system.h"

namespace zeph {
namespace {

std::atomic<bool> separateKernels = false;

// Points of the grid that are worth a thread: a pass over them takes some five microseconds.
constexpr std::uint32_t leastPoints = 2500;

// The tiles that a participant needs at once: the columns of all planes, or the rows of a velocity
// and a gradient, and two lines of Bluestein's algorithm.
std::size_t scratchFloats(const cpu::FusedPass& pass, OperatorKind kind, int lanes) {
  const std::size_t tiles = static_cast<std::size_t>(needsOf(kind).fields);
  const cpu::LineTables* inner = pass.line->block->inner;
  const std::size_t chirp = inner == nullptr ? 0
                                             : std::size_t{4} * static_cast<std::size_t>(lanes) *
                                                   static_cast<std::size_t>(inner->length);
  return tiles * cpu::fusedTileFloats(pass, lanes) + chirp;
}

}  // namespace

void useSeparateKernels(bool separate) {
  separateKernels = separate;
}

bool usesSeparateKernels() {
  return separateKernels;
}

FusedStep::FusedStep(int resolution, OperatorKind kind)
    : passes_(cpu::forInstructionSet(cpu::sse2::fusedPasses, cpu::avx2::fusedPasses,
                                     cpu::avx512::fusedPasses)),
      plan_(resolution / 2) {
  pass_.line = &plan_.tables();
  pass_.rowTiles = cpu::fusedTiles(pass_.line->length, passes_.lanes);
  pass_.scratchFloats = scratchFloats(pass_, kind, passes_.lanes);
  const auto participants = static_cast<std::size_t>(cpu::ThreadPool::shared().participants());
  scratch_ = cpu::DeviceFloats(participants * pass_.scratchFloats);
  pass_.scratch = scratch_.get();
  const std::size_t workBytes = static_cast<std::size_t>(needsOf(kind).fields) *
                                static_cast<std::size_t>(pass_.line->length) *
                                static_cast<std::size_t>(pass_.line->half) * sizeof(V2);
  pass_.streams = workBytes > platform::lastLevelCacheBytes();
}

std::vector<TransformAllocation> FusedStep::allocations() const {
  std::vector<TransformAllocation> all = plan_.allocations();
  all.push_back({scratch_.get(), scratch_.bytes()});
  return all;
}

void FusedStep::share(Task task, int tiles) {
  struct Context {
    const cpu::FusedPass& pass;
    Task task;
  } context = {pass_, task};
  cpu::ThreadPool::shared().run(
      tiles,
      [](void* pointer, int index, int participant) {
        const Context& c = *static_cast<const Context*>(pointer);
        c.task(c.pass, index, participant);
      },
      &context, static_cast<int>(pass_.p.resolution * pass_.p.resolution / leastPoints) + 1);
}

void FusedStep::runColumns(Task task) {
  share(task, cpu::fusedTiles(pass_.line->half, passes_.lanes));
}

// Whether the step has to form the factors of its modes. They depend on nothing else, so that steps
// of the same length share them.
bool FusedStep::needsFactors() {
  const float dt = pass_.clock->dt;
  const bool kept = dt == dt_ && pass_.p.viscosity == viscosity_;
  dt_ = dt;
  viscosity_ = pass_.p.viscosity;
  return !kept && needsOf(pass_.p.method).coefficientPlanes > 0;
}

// The products of the first stage, and from them the step. False if the step is void.
bool FusedStep::selectsStep() {
  pass_.p.stage = 0;
  std::fill_n(cflPartials_, reductionBlocks, V2{0, 0});
  share(passes_.rows, pass_.rowTiles);
  ClockState& clock = *pass_.clock;
  if (!selectStep(clock, cflPartials_, pass_.p)) clock.healthy = 0;
  return clock.stepState != noStep;
}

// Takes a step whose first products are there.
void FusedStep::step(bool first, bool last) {
  const bool formsFactors = needsFactors();
  const IntegratorNeeds needs = needsOf(pass_.p.method);
  const auto stages = static_cast<std::uint32_t>(needs.stages);
  // The first stage that adds to the state.
  const std::uint32_t firstSum = needs.base ? stages - 1 : 0;
  for (; pass_.p.stage < stages; ++pass_.p.stage) {
    if (pass_.p.stage > 0) share(passes_.rows, pass_.rowTiles);
    pass_.formsFactors = formsFactors && pass_.p.stage == 0;
    pass_.beginsBatch = first && pass_.p.stage == firstSum;
    pass_.endsBatch = pass_.p.stage + 1 == stages && (last || pass_.clock->stepState == finalStep);
    runColumns(passes_.columns);
  }
  commit(*pass_.clock, pass_.p);
}

void FusedStep::run(const FusedArrays& arrays, const Params& p, int steps) {
  pass_.arrays = arrays.stage;
  pass_.work = &arrays.padded->re;
  pass_.clock = arrays.stage.clock;
  pass_.speedBound = cflPartials_ = arrays.cflPartials;
  pass_.p = p;
  pass_.correction = arrays.spectra;
  const int n = static_cast<int>(p.resolution);
  const std::ptrdiff_t spectrum = std::ptrdiff_t{n} * halfWidth(n);
  pass_.state = needsOf(p.method).base ? arrays.stage.base : arrays.spectra + spectrum;
  runColumns(passes_.firstColumns);
  int taken = 0;
  bool goesOn = true;
  for (; goesOn && taken < steps && selectsStep(); ++taken) {
    step(taken == 0, taken + 1 == steps);
    goesOn = pass_.clock->stepState == normalStep && pass_.clock->healthy != 0;
  }
  // The flow is no longer finite, or rounding let the endpoint be reached a step early.
  if (taken > 0 && !pass_.endsBatch) runColumns(passes_.stateToRows);
}

}  // namespace zeph
