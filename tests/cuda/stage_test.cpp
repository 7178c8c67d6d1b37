// The stage update: a GPU gives the same bits as the processor, in every integrator.
#include <gtest/gtest.h>

#include "kernels/kernels.h"
#include "tests/cuda/cuda_device.h"
#include "tests/cuda/launches.h"
#include "tests/kernels/stage_reference.h"

namespace zeph {
namespace {

using test::DeviceArrays;
using test::Sizes;
using test::Stage;

using Contents = std::vector<std::vector<float>>;

// The order of the arrays of a stage on a device.
constexpr std::size_t omegaArray = 0;
constexpr std::size_t clockArray = 8;

// Every array filled with numbers; arrays that the integrator does not use have one element.
Stage stageOf(const Params& p, float dt) {
  const Sizes z(static_cast<int>(p.resolution));
  const std::size_t tables = test::coefficientPlanes(p.method);
  const auto modes = [&](bool isUsed, unsigned seed) {
    return test::modes(isUsed ? z.half : 1, seed);
  };
  Stage stage = {
      .omega = modes(true, 21),
      .padded = test::modes((p.operatorKind == OperatorKind::stress ? 2 : 1) * z.plane, 22),
      .base = modes(p.method != test::imexRK3, 23),
      .first = modes(true, 24),
      .middle = modes(p.method == test::etdrk4, 25),
      .predictor = modes(p.method == test::etdrk4, 26),
      .correction = modes(true, 27),
      .coefficients = test::floats(tables > 0 ? tables * z.half : 1, 28),
      .clock = {},
  };
  stage.clock.dt = dt;
  stage.clock.healthy = 1;
  stage.clock.stepState = normalStep;
  return stage;
}

// Stages one after another on the same arrays.
Contents expectSameStages(int gpu, const Stage& stage, std::vector<Params> launches) {
  return test::expectSameBits(gpu, [&](DeviceArrays& arrays, cudaStream_t stream) {
    const StageArrays put = {
        .omega = arrays.put(stage.omega),
        .padded = arrays.put(stage.padded),
        .base = arrays.put(stage.base),
        .first = arrays.put(stage.first),
        .middle = arrays.put(stage.middle),
        .predictor = arrays.put(stage.predictor),
        .coefficients = arrays.put(stage.coefficients),
        .clock = nullptr,
        .correction = arrays.put(stage.correction),
    };
    StageArrays whole = put;
    whole.clock = arrays.put(std::vector<ClockState>{stage.clock});
    for (const Params& p : launches) advanceStage(stream, whole, p);
  });
}

std::uint32_t healthOf(const Contents& contents) {
  ClockState clock = {};
  std::memcpy(&clock, contents[clockArray].data(), sizeof(clock));
  return clock.healthy;
}

std::vector<Params> stagesOf(Params p) {
  std::vector<Params> launches;
  for (p.stage = 0; p.stage < test::stagesOf(p.method); ++p.stage) launches.push_back(p);
  return launches;
}

class GpuStages : public test::GridOnCudaDevice {
 protected:
  // Calls visit(p) for every integrator and operator, or for the largest of each alone.
  template <class Visit>
  void forEveryKind(Visit visit) {
    const bool isLarge = n() >= test::largeGrid;
    for (const Integrator method : {test::imexRK3, test::ifHeunRK3, test::etdrk4}) {
      if (isLarge && method != test::etdrk4) continue;
      for (std::uint32_t operatorKind = 0; operatorKind < (isLarge ? 1u : 2u); ++operatorKind) {
        SCOPED_TRACE(testing::Message()
                     << "method " << static_cast<int>(method) << ", operator " << operatorKind);
        Params p = test::paramsOf(n(), operatorKind);
        p.method = method;
        visit(p);
      }
    }
  }
};

TEST_P(GpuStages, MatchOneByOne) {
  if (n() >= test::largeGrid) GTEST_SKIP() << "shown on smaller grids";
  forEveryKind([&](const Params& p) {
    const Stage stage = stageOf(p, 0.02f);
    for (const Params& one : stagesOf(p)) {
      EXPECT_EQ(healthOf(expectSameStages(gpu(), stage, {one})), 1u);
    }
  });
}

TEST_P(GpuStages, MatchOverAWholeStep) {
  forEveryKind([&](const Params& p) {
    EXPECT_EQ(healthOf(expectSameStages(gpu(), stageOf(p, 0.02f), stagesOf(p))), 1u);
  });
}

// Damping from nothing, through the series and the closed forms of the phi functions and through
// the whole range of the exponential, to far beyond it.
TEST_P(GpuStages, MatchWithAnyDamping) {
  if (n() >= test::largeGrid) GTEST_SKIP() << "shown on smaller grids";
  struct Figures {
    float viscosity, dt;
  };
  constexpr Figures figures[] = {{0.0f, 0.1f},   {1e-30f, 1e-9f}, {1e-6f, 1e-2f}, {0.25f, 0.25f},
                                 {0.75f, 0.25f}, {0.3f, 0.7f},    {0.01f, 0.3f},  {3e30f, 1e3f}};
  forEveryKind([&](Params p) {
    for (const Figures& f : figures) {
      SCOPED_TRACE(testing::Message() << "nu " << f.viscosity << ", dt " << f.dt);
      p.viscosity = f.viscosity;
      expectSameStages(gpu(), stageOf(p, f.dt), stagesOf(p));
    }
  });
}

TEST_P(GpuStages, WriteNothingWithoutAStep) {
  if (n() >= test::largeGrid) GTEST_SKIP() << "shown on smaller grids";
  forEveryKind([&](const Params& p) {
    Stage stage = stageOf(p, 0.02f);
    stage.clock.stepState = noStep;
    const Contents found = expectSameStages(gpu(), stage, stagesOf(p));
    std::vector<float> before(2 * stage.omega.size());
    std::memcpy(before.data(), stage.omega.data(), before.size() * sizeof(float));
    EXPECT_TRUE(test::sameBits(found[omegaArray], before));
  });
}

TEST_P(GpuStages, ClearTheHealthFlagForAnyValueThatIsNotFinite) {
  if (n() >= test::largeGrid) GTEST_SKIP() << "shown on smaller grids";
  const Sizes z(n());
  forEveryKind([&](const Params& p) {
    for (const float value : {test::notANumber, test::infinity, -test::infinity}) {
      Stage stage = stageOf(p, 0.02f);
      stage.padded[z.s + 1].im = value;  // mode (1, 1)
      for (const Params& one : stagesOf(p)) {
        EXPECT_EQ(healthOf(expectSameStages(gpu(), stage, {one})), 0u);
      }
    }
  });
}

TEST_P(GpuStages, IgnoreModesOutsideTheActiveSet) {
  if (n() >= test::largeGrid) GTEST_SKIP() << "shown on smaller grids";
  const Sizes z(n());
  forEveryKind([&](const Params& p) {
    Stage stage = stageOf(p, 0.02f);
    for (std::size_t j = 0; j < z.n; ++j) {
      for (std::size_t i = 0; i < z.w; ++i) {
        if (!test::isRetained(i, test::wavenumber(j, z.n), n()))
          stage.omega[j * z.w + i] = {test::notANumber, test::infinity};
      }
    }
    const Contents found = expectSameStages(gpu(), stage, stagesOf(p));
    EXPECT_EQ(healthOf(found), 1u);
    EXPECT_TRUE(test::sameBits(found[omegaArray][0], 0.0f));
  });
}

ZEPHANE_ON_EVERY_GRID(GpuStages);

}  // namespace
}  // namespace zeph
