// Single passes of the fused step: the factors that it forms for vectors of modes, against those of
// the stage update, writing past the cache, and what is left out of the rows.
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

// A pass over a flow of its own, with all that it needs.
class OnePass {
 public:
  OnePass(const Params& p, StepArrays& from)
      : passes(cpu::forInstructionSet(cpu::sse2::fusedPasses, cpu::avx2::fusedPasses,
                                      cpu::avx512::fusedPasses)),
        work(2 * from.padded.size()),
        plan_(static_cast<int>(p.resolution) / 2) {
    pass.line = &plan_.tables();
    pass.arrays = from.arrays();
    pass.state = pass.arrays.base;
    pass.correction = from.spectra.data() + 6 * from.half;
    pass.work = work.get();
    pass.clock = &from.clock;
    pass.speedBound = &bound;
    pass.p = p;
    pass.rowTiles = cpu::fusedTiles(pass.line->length, passes.lanes);
    const cpu::LineTables* inner = pass.line->block->inner;
    const int chirp = inner != nullptr ? 4 * passes.lanes * inner->length : 0;
    scratch_ = cpu::DeviceFloats(2 * cpu::fusedTileFloats(pass, passes.lanes) +
                                 static_cast<std::size_t>(chirp));
    pass.scratch = scratch_.get();
  }

  void firstColumns() const {
    for (int tile = 0; tile < cpu::fusedTiles(pass.line->half, passes.lanes); ++tile)
      passes.firstColumns(pass, tile, 0);
  }
  void rows() const {
    for (int tile = 0; tile < pass.rowTiles; ++tile) passes.rows(pass, tile, 0);
  }

  cpu::FusedPasses passes;
  cpu::FusedPass pass;
  V2 bound = {0, 0};
  cpu::DeviceFloats work;

 private:
  cpu::PaddedPlan plan_;
  cpu::DeviceFloats scratch_;
};

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
        const OnePass one(p, fused);
        const cpu::FusedPasses& passes = one.passes;
        for (int tile = 0; tile < cpu::fusedTiles(n / 2, passes.lanes); ++tile)
          passes.coefficients(one.pass, tile, 0);
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

TEST(FusedPasses, WriteTheSamePastTheCache) {
  for (const int n : {16, 86, 128}) {
    const Params p = paramsOf(n, Integrator::imexRK3, 0.01f);
    test::onEveryProcessor([&] {
      StepArrays from(p);
      for (std::size_t k = 0; k < from.half; ++k)
        from.spectra[k] = {static_cast<float>(k % 97) - 48, static_cast<float>(k % 89) - 44};
      std::vector<float> written[2], products[2];
      for (const bool streams : {false, true}) {
        OnePass one(p, from);
        one.pass.streams = streams;
        one.firstColumns();
        written[streams].assign(one.work.get(), one.work.get() + 2 * from.padded.size());
        one.rows();
        products[streams].assign(one.work.get(), one.work.get() + 2 * from.padded.size());
      }
      ASSERT_TRUE(test::sameBits(written[1], written[0]));
      ASSERT_TRUE(test::sameBits(products[1], products[0]));
      ASSERT_NE(products[0], written[0]);
      ASSERT_NE(written[0], std::vector<float>(written[0].size()));
    });
  }
}

// Modes of the column kx = 0 that are no conjugates of one another are of no real flow.
TEST(FusedRows, LeaveOutWhatIsNotReal) {
  for (const int n : {16, 44, 54}) {
    const Params p = paramsOf(n, Integrator::imexRK3, 0.01f);
    test::onEveryProcessor([&] {
      StepArrays from(p);
      for (int ky = 1; ky < n / 2; ++ky) {
        const std::size_t width = from.n / 2 + 1;
        from.spectra[static_cast<std::size_t>(ky) * width] = {100.0f, 30.0f};
        from.spectra[static_cast<std::size_t>(n - ky) * width] = {-100.0f, 30.0f};
      }
      OnePass one(p, from);
      one.firstColumns();
      one.rows();
      EXPECT_LT(one.bound.re, 1e-6f);
      EXPECT_EQ(one.bound.im, 0);
      from.spectra[from.n / 2 + 1] = {100.0f, 30.0f};
      from.spectra[(from.n - 1) * (from.n / 2 + 1)] = {100.0f, -30.0f};
      one.firstColumns();
      one.rows();
      EXPECT_GT(one.bound.re, 100.0f * p.scale);
    });
  }
}

}  // namespace
}  // namespace zeph
