// Single passes of the fused step: the factors that it forms for vectors of modes, against those of
// the stage update, and its writing past the cache.
#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "kernels/kernels.h"
#include "kernels/processor/fused_pass.h"
#include "tests/support/bits.h"
#include "tests/support/processors.h"

namespace zeph {
namespace {

Params paramsOf(int n, Integrator method, float viscosity) {
  Params p = {};
  p.resolution = static_cast<std::uint32_t>(n);
  p.padded = static_cast<std::uint32_t>(paddedResolution(n));
  p.method = method;
  p.viscosity = viscosity;
  p.scale = 1.0f / static_cast<float>(n * n);
  p.blocks = reductionBlocks;
  return p;
}

struct StepArrays {
  explicit StepArrays(const Params& p)
      : n(p.resolution),
        half(n * (n / 2 + 1)),
        spectra(8 * half),
        padded(2 * static_cast<std::size_t>(paddedStride(static_cast<int>(p.padded))) * p.padded),
        coefficients(6 * half) {
    clock.dt = 0.01f;
    clock.healthy = 1;
    clock.stepState = normalStep;
  }

  StageArrays arrays() {
    V2* s = spectra.data();
    return {s,
            padded.data(),
            s + half,
            s + 2 * half,
            s + 3 * half,
            s + 4 * half,
            coefficients.data(),
            &clock,
            s + 5 * half};
  }

  std::size_t n, half;
  std::vector<V2> spectra, padded;
  std::vector<float> coefficients;
  ClockState clock = {};
};

// The factors of mode (i, ky), in the order of their planes, from both.
std::vector<float> ofKernel(const StepArrays& from, int planes, int i, int ky) {
  std::vector<float> factors;
  for (int k = 0; k < planes; ++k) {
    const std::size_t row = static_cast<std::size_t>(k) * from.n + static_cast<std::size_t>(ky);
    factors.push_back(from.coefficients[row * (from.n / 2 + 1) + static_cast<std::size_t>(i)]);
  }
  return factors;
}

std::vector<float> ofPass(const StepArrays& from, Integrator method, int lanes, int i, int ky) {
  constexpr int placeOfEtd[] = {2, 0, 1, 3, 4, 5};
  const int planes = needsOf(method).coefficientPlanes;
  const int half = static_cast<int>(from.n) / 2;
  const int first = i / lanes * lanes, count = std::min(lanes, half - first);
  std::vector<float> factors;
  for (int k = 0; k < planes; ++k) {
    const int place = method == Integrator::etdrk4 ? placeOfEtd[k] : k;
    const int at = first * half * planes + (ky * planes + place) * count + i - first;
    factors.push_back(from.coefficients[static_cast<std::size_t>(at)]);
  }
  return factors;
}

TEST(FusedCoefficients, HaveTheBitsOfTheStageUpdates) {
  // From exponents that are all tiny to such that only the closed form serves.
  for (const float viscosity : {1e-9f, 1e-4f, 3e-3f, 0.05f, 2.0f}) {
    for (const Integrator method : {Integrator::ifHeunRK3, Integrator::etdrk4}) {
      const int n = 86;
      const Params p = paramsOf(n, method, viscosity);
      const int planes = needsOf(method).coefficientPlanes;
      StepArrays kernel(p);
      advanceStage(nullptr, kernel.arrays(), p);
      test::onEveryProcessor([&] {
        StepArrays fused(p);
        const cpu::PaddedPlan plan(n / 2);
        const cpu::FusedPasses passes = cpu::forInstructionSet(
            cpu::sse2::fusedPasses, cpu::avx2::fusedPasses, cpu::avx512::fusedPasses);
        cpu::FusedPass pass;
        pass.line = &plan.tables();
        pass.arrays = fused.arrays();
        pass.clock = &fused.clock;
        pass.p = p;
        const int tasks = cpu::fusedTiles(n / 2, passes.lanes) *
                          cpu::fusedTiles(n / 2, passes.rowsOfCoefficients);
        for (int task = 0; task < tasks; ++task) passes.coefficients(pass, task, 0);
        for (int ky = 0; ky < n / 2; ++ky) {
          for (int i = ky == 0 ? 1 : 0; i < n / 2; ++i) {
            ASSERT_TRUE(test::sameBits(ofPass(fused, method, passes.lanes, i, ky),
                                       ofKernel(kernel, planes, i, ky)))
                << "mode " << i << ", " << ky << ", viscosity " << viscosity;
          }
        }
      });
    }
  }
}

TEST(FusedColumns, WriteTheSamePastTheCache) {
  for (const int n : {16, 86, 128}) {
    const Params p = paramsOf(n, Integrator::imexRK3, 0.01f);
    test::onEveryProcessor([&] {
      StepArrays from(p);
      for (std::size_t k = 0; k < from.half; ++k)
        from.spectra[k] = {static_cast<float>(k % 97) - 48, static_cast<float>(k % 89) - 44};
      const cpu::PaddedPlan plan(n / 2);
      const cpu::FusedPasses passes = cpu::forInstructionSet(
          cpu::sse2::fusedPasses, cpu::avx2::fusedPasses, cpu::avx512::fusedPasses);
      std::vector<float> written[2];
      for (const bool streams : {false, true}) {
        const cpu::DeviceFloats work(2 * from.padded.size());
        cpu::FusedPass pass;
        pass.line = &plan.tables();
        pass.arrays = from.arrays();
        pass.work = work.get();
        pass.clock = &from.clock;
        pass.p = p;
        pass.streams = streams;
        pass.rowTiles = cpu::fusedTiles(pass.line->length, passes.lanes);
        const std::size_t inner = pass.line->block->inner ? pass.line->block->inner->length : 0;
        const cpu::DeviceFloats scratch(2 * cpu::fusedTileFloats(pass, passes.lanes) +
                                        4 * static_cast<std::size_t>(passes.lanes) * inner);
        pass.scratch = scratch.get();
        for (int tile = 0; tile < cpu::fusedTiles(n / 2, passes.lanes); ++tile)
          passes.firstColumns(pass, tile, 0);
        written[streams].assign(work.get(), work.get() + 2 * from.padded.size());
      }
      ASSERT_TRUE(test::sameBits(written[1], written[0]));
      ASSERT_NE(written[0], std::vector<float>(written[0].size()));
    });
  }
}

}  // namespace
}  // namespace zeph
