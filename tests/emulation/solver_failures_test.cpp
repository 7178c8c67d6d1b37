// A solver on a GPU whose calls fail, one after another.
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "solver/solver.h"
#include "tests/emulation/emulated_gpu.h"

namespace zeph {
namespace {

using emulation::Holdings;

Config smallConfig() {
  Config config;
  config.resolution = 16;
  config.k0 = 2;
  config.reynolds = 100;
  return config;
}

// Uses every operation of a solver.
void useSolver() {
  Solver solver(smallConfig());
  solver.advance(2);
  solver.inspect();
  const auto frame = solver.snapshot(true);
  solver.copyFields(*frame);
  solver.spectrum();
  solver.restore(solver.state());
  solver.reset(std::vector<float>(16 * 16, 1.0f));
}

std::vector<V2> flowAfter(int steps) {
  Solver solver(smallConfig());
  solver.advance(steps);
  return solver.spectrum();
}

void expectNear(const std::vector<V2>& found, const std::vector<V2>& expected) {
  ASSERT_EQ(found.size(), expected.size());
  for (std::size_t k = 0; k < found.size(); ++k) {
    EXPECT_NEAR(found[k].re, expected[k].re, 1e-5);
    EXPECT_NEAR(found[k].im, expected[k].im, 1e-5);
  }
}

// The first calls, and some of those that are made often.
int nextPasses(int passes) {
  return passes < 2 ? passes + 1 : passes * 3;
}

class FailingCall : public testing::TestWithParam<const char*> {
 protected:
  emulation::MachineScope scope_{{}};
};

TEST_P(FailingCall, IsReportedAndLeaksNothing) {
  const std::string function = GetParam();
  useSolver();
  ASSERT_EQ(emulation::holdings(), Holdings());
  const long before = emulation::callsOf(function);
  useSolver();
  const long calls = emulation::callsOf(function) - before;
  ASSERT_GT(calls, 0);
  for (int passes = 0; passes < calls; passes = nextPasses(passes)) {
    SCOPED_TRACE(testing::Message() << function << " fails after " << passes << " calls");
    emulation::failNext(function, ::cudaErrorMemoryAllocation, passes);
    EXPECT_THROW(useSolver(), std::runtime_error);
    EXPECT_EQ(emulation::holdings(), Holdings());
    EXPECT_EQ(::cudaGetLastError(), ::cudaSuccess);
  }
}

INSTANTIATE_TEST_SUITE_P(OfTheRuntime, FailingCall,
                         testing::Values("cudaMalloc", "cudaMallocHost",
                                         "cudaStreamCreateWithFlags", "cudaEventCreate",
                                         "cudaEventRecord", "cudaEventElapsedTime", "cudaMemcpy",
                                         "cudaMemcpyAsync", "cudaMemsetAsync", "cudaLaunchKernel"),
                         [](const auto& test) { return std::string(test.param); });
INSTANTIATE_TEST_SUITE_P(OfTheDriver, FailingCall,
                         testing::Values("cuDeviceGet", "cuDeviceGetAttribute",
                                         "cuModuleLoadDataEx", "cuModuleGetFunction"),
                         [](const auto& test) { return std::string(test.param); });
INSTANTIATE_TEST_SUITE_P(OfTheCompiler, FailingCall,
                         testing::Values("nvrtcCreateProgram", "nvrtcCompileProgram",
                                         "nvrtcGetPTXSize", "nvrtcGetPTX"),
                         [](const auto& test) { return std::string(test.param); });

TEST(FailingLaunch, ReachesNoOtherSolverOfTheThread) {
  const emulation::MachineScope scope({});
  Solver disturbed(smallConfig());
  Solver other(smallConfig());
  // The launches of a snapshot; what fails there surfaces where the clock is next read.
  emulation::failNext("cudaLaunchKernel", ::cudaErrorUnknown);
  EXPECT_NO_THROW(disturbed.snapshot(true));
  EXPECT_EQ(other.advance(2).steps, 2u);
  try {
    disturbed.advance(2);
    FAIL() << "nothing was reported";
  } catch (const std::runtime_error& failure) {
    EXPECT_EQ(failure.what(), std::string("cudaGetLastError(): unknown error"));
  }
}

TEST(FailingLaunch, OfADestroyedSolverIsNotReportedByTheNext) {
  const emulation::MachineScope scope({});
  {
    Solver gone(smallConfig());
    emulation::failNext("cudaLaunchKernel", ::cudaErrorUnknown);
    EXPECT_NO_THROW(gone.snapshot(true));
  }
  Solver next(smallConfig());
  EXPECT_EQ(next.advance(2).steps, 2u);
}

// If a launch fails while a plan is checked, no plan is made. If one fails while a step is
// recorded, the kernels of the step are queued one by one instead.
TEST(FailingTransform, IsReportedOrWorkedAroundAndLeaksNothing) {
  const emulation::MachineScope scope({});
  const std::vector<V2> undisturbed = flowAfter(3);
  const long before = emulation::callsOf("cuLaunchKernel");
  flowAfter(3);
  const long calls = emulation::callsOf("cuLaunchKernel") - before;
  int plans = 0;
  int transforms = 0;
  for (int passes = 0; passes < calls; passes = nextPasses(passes)) {
    SCOPED_TRACE(testing::Message() << "cuLaunchKernel fails after " << passes << " calls");
    emulation::failNext("cuLaunchKernel", ::cudaErrorLaunchOutOfResources, passes);
    try {
      expectNear(flowAfter(3), undisturbed);
    } catch (const std::runtime_error& failure) {
      const std::string text = failure.what();
      if (text.starts_with("VkFFT CUDA plan N=")) {
        ++plans;
        EXPECT_TRUE(text.ends_with(" failed: 4039")) << text;
      } else {
        ++transforms;
        EXPECT_EQ(text, "VkFFT CUDA append failed: 4039");
      }
    }
    EXPECT_EQ(emulation::holdings(), Holdings());
  }
  EXPECT_GT(plans, 0);
  EXPECT_GT(transforms, 0);
}

TEST(FailingTransform, OfEveryPlanIsReportedAtCreation) {
  for (const bool hasCompiler : {true, false}) {
    const emulation::MachineScope scope({.hasCompiler = hasCompiler});
    if (hasCompiler) emulation::failNext("nvrtcCompileProgram", ::cudaErrorUnknown);
    try {
      useSolver();
      FAIL() << "nothing was reported";
    } catch (const std::runtime_error& failure) {
      EXPECT_EQ(failure.what(),
                std::string(hasCompiler ? "VkFFT CUDA plan N=24 batch=2 failed: 4031"
                                        : "NVRTC is missing."));
    }
    EXPECT_EQ(emulation::holdings(), Holdings());
  }
}

}  // namespace
}  // namespace zeph
