// Transforms on a GPU against those of the processor, in the shapes that a solver has.
#include <gtest/gtest.h>

#include <cmath>

#include "device/transform.h"
#include "solver/fft_plan.h"
#include "tests/cuda/cuda_device.h"
#include "tests/cuda/launches.h"
#include "tests/support/plans.h"
#ifdef ZEPHANE_EMULATED_GPU
#include "tests/emulation/emulated_gpu.h"
#include "tests/support/flows.h"
#endif

namespace zeph {
namespace {

using test::Sizes;

// The allowed root-mean-square difference between two devices, relative to the result.
constexpr double rounding = 1e-6;

struct Shape {
  int size, rowStride, cutoff;
  bool isReal;

  std::size_t fieldFloats() const {
    return 2 * static_cast<std::size_t>(rowStride) * static_cast<std::size_t>(size);
  }
  std::size_t at(int field, int row, int column) const {  // of a float
    return fieldFloats() * static_cast<std::size_t>(field) +
           2 * static_cast<std::size_t>(rowStride) * static_cast<std::size_t>(row) +
           static_cast<std::size_t>(column);
  }
  int columns() const { return isReal ? size / 2 + 1 : size; }
  bool isCut(int row, int column) const {
    const auto inBand = [&](int k) { return cutoff > 0 && k >= cutoff && k <= size - cutoff; };
    return inBand(row) || inBand(column);
  }
  FftPlan planOn(cudaStream_t stream) const { return {size, isReal, rowStride, cutoff, stream}; }
};

Shape padded(int n) {
  return {3 * n / 2, static_cast<int>(Sizes(n).s), n / 2, true};
}
Shape grid(int n) {
  return {n, n / 2 + 1, 0, true};
}
Shape complex(int n) {
  return {n, n, 0, false};
}

std::vector<float> transformed(int device, const Shape& shape, int batch, bool inverse,
                               const std::vector<float>& given) {
  auto contents = test::contentsAfter(device, [&](test::DeviceArrays& arrays, cudaStream_t stream) {
    FftPlan plan = shape.planOn(stream);
    plan.transform(arrays.put(given), batch, inverse);
    cudaStreamSynchronize(stream);
  });
  return std::move(contents[0]);
}

// Calls visit(index) for each float that is defined: the samples, or the modes that are kept.
template <class Visit>
void forEveryValue(const Shape& shape, int batch, bool isPhysical, Visit visit) {
  const bool isSample = isPhysical && shape.isReal;
  for (int field = 0; field < batch; ++field) {
    for (int row = 0; row < shape.size; ++row) {
      const int columns = isSample ? shape.size : 2 * shape.columns();
      for (int column = 0; column < columns; ++column) {
        if (isPhysical || !shape.isCut(row, column / 2)) visit(shape.at(field, row, column));
      }
    }
  }
}

double difference(const Shape& shape, int batch, bool isPhysical, const std::vector<float>& found,
                  const std::vector<float>& expected) {
  double error = 0;
  double magnitude = 0;
  forEveryValue(shape, batch, isPhysical, [&](std::size_t k) {
    const double right = static_cast<double>(expected[k]);
    error += (static_cast<double>(found[k]) - right) * (static_cast<double>(found[k]) - right);
    magnitude += right * right;
  });
  return std::sqrt(error / magnitude);
}

// The defined values of `from`, and NaN in the rest of the rows; the band is zero, as the kernels
// leave it.
std::vector<float> arranged(const Shape& shape, int batch, bool isPhysical,
                            const std::vector<float>& from) {
  std::vector<float> values(from.size(), test::notANumber);
  if (!isPhysical) {
    Shape whole = shape;
    whole.cutoff = 0;
    forEveryValue(whole, batch, false, [&](std::size_t k) { values[k] = 0.0f; });
  }
  forEveryValue(shape, batch, isPhysical, [&](std::size_t k) { values[k] = from[k]; });
  return values;
}

// Random samples go forward, and their modes back.
void expectSameTransforms(int gpu, const Shape& shape, int batch) {
  SCOPED_TRACE(testing::Message() << "size " << shape.size << ", cutoff " << shape.cutoff
                                  << ", real " << shape.isReal << ", batch " << batch);
  const std::size_t count = shape.fieldFloats() * static_cast<std::size_t>(batch);
  const std::vector<float> samples = arranged(shape, batch, true, test::floats(count, 31));
  const int processor = test::processorDevice();
  const std::vector<float> right = transformed(processor, shape, batch, false, samples);
  EXPECT_LT(difference(shape, batch, false, transformed(gpu, shape, batch, false, samples), right),
            rounding);
  const std::vector<float> modes = arranged(shape, batch, false, right);
  EXPECT_LT(difference(shape, batch, true, transformed(gpu, shape, batch, true, modes),
                       transformed(processor, shape, batch, true, modes)),
            rounding);
}

class GpuTransforms : public test::GridOnCudaDevice {};

TEST_P(GpuTransforms, OfPaddedFieldsMatchTheProcessor) {
  for (const int batch : {1, 2, 4}) expectSameTransforms(gpu(), padded(n()), batch);
}

TEST_P(GpuTransforms, OfFieldsOnTheGridMatchTheProcessor) {
  for (const int batch : {1, 3}) expectSameTransforms(gpu(), grid(n()), batch);
}

TEST_P(GpuTransforms, OfComplexFieldsMatchTheProcessor) {
  expectSameTransforms(gpu(), complex(n()), 1);
}

ZEPHANE_ON_EVERY_GRID(GpuTransforms);

class GpuPlans : public test::CudaDevice {};

TEST_F(GpuPlans, AcceptAnyBatch) {
  for (int batch = 1; batch <= 4; ++batch) {
    expectSameTransforms(gpu(), padded(16), batch);
    expectSameTransforms(gpu(), grid(16), batch);
    expectSameTransforms(gpu(), complex(16), batch);
  }
}

TEST_F(GpuPlans, MakeAnApplicationOncePerBatchCount) {
  const CudaQueue queue;
  DeviceBuffer buffer;
  buffer.allocate(2 * Sizes(16).half * sizeof(V2));
  FftPlan plan = grid(16).planOn(queue.value);
  EXPECT_EQ(plan.applicationCount(), 0u);
  Transform* one = plan.application(1);
  EXPECT_EQ(plan.application(1), one);
  plan.transform(buffer.ptr, 1, true);
  plan.transform(buffer.ptr, 1, false);
  EXPECT_EQ(plan.applicationCount(), 1u);
  plan.transform(buffer.ptr, 2, true);
  EXPECT_EQ(plan.applicationCount(), 2u);
  EXPECT_EQ(plan.application(1), one);
}

TEST_F(GpuPlans, CountMemoryThatApplicationsShareOnce) {
  const int n = test::isEmulated ? 48 : 1024;
  const CudaQueue queue;
  FftPlan plan = padded(n).planOn(queue.value);
  test::expectSharedMemoryCountedOnce(plan);
  // A length of 1536 takes its roots from a table.
  if (!test::isEmulated) {
    EXPECT_GT(plan.deviceBytes(), 0u);
  }
}

#ifdef ZEPHANE_EMULATED_GPU

std::string codeBehind(const std::string& text, const std::string& words) {
  return text.starts_with(words) ? text.substr(words.size()) : "not " + text;
}

bool isCode(const std::string& text) {
  return !text.empty() && text != "0" && text.find_first_not_of("0123456789") == std::string::npos;
}

TEST_F(GpuPlans, ReportWhichOneCannotBeCreatedAndWhy) {
  const CudaQueue queue;
  const emulation::Holdings before = emulation::holdings();
  for (const char* function : {"nvrtcCreateProgram", "nvrtcCompileProgram", "nvrtcGetPTX",
                               "cuModuleLoadDataEx", "cuModuleGetFunction", "cuLaunchKernel"}) {
    SCOPED_TRACE(function);
    FftPlan plan = grid(18).planOn(queue.value);
    emulation::failNext(function, ::cudaErrorUnknown);
    const std::string text = test::runtimeFailure([&] { plan.application(3); });
    EXPECT_TRUE(isCode(codeBehind(text, "VkFFT CUDA plan N=18 batch=3 failed: "))) << text;
    EXPECT_EQ(plan.applicationCount(), 0u);
    EXPECT_EQ(emulation::holdings(), before);
    EXPECT_NE(plan.application(3), nullptr);  // the next one succeeds
  }
}

// A failed call must not be mistaken for a transform that is wrong about the removed band.
TEST_F(GpuPlans, AreNotRetriedAfterAFailedTrialRun) {
  const CudaQueue queue;
  const auto kernelsMade = [&](const auto& make) {
    const long before = emulation::callsOf("nvrtcCompileProgram");
    make();
    return emulation::callsOf("nvrtcCompileProgram") - before;
  };
  FftPlan plan = padded(16).planOn(queue.value);
  const long usual = kernelsMade([&] { plan.application(1); });
  const long before = emulation::callsOf("cuLaunchKernel");
  plan.application(2);
  const long launches = emulation::callsOf("cuLaunchKernel") - before;
  ASSERT_GT(launches, 1);
  for (int passes = 0; passes < launches; ++passes) {
    SCOPED_TRACE(passes);
    FftPlan failing = padded(16).planOn(queue.value);
    emulation::failNext("cuLaunchKernel", ::cudaErrorLaunchOutOfResources, passes);
    const long made = kernelsMade([&] {
      EXPECT_EQ(test::runtimeFailure([&] { failing.application(2); }),
                "VkFFT CUDA plan N=24 batch=2 failed: 4039");
    });
    EXPECT_EQ(made, usual);
    EXPECT_EQ(failing.applicationCount(), 0u);
    EXPECT_NE(failing.application(2), nullptr);
  }
}

TEST_F(GpuPlans, ReportThatTheyCannotBeQueued) {
  const CudaQueue queue;
  DeviceBuffer buffer;
  buffer.allocate(Sizes(18).half * sizeof(V2));
  FftPlan plan = grid(18).planOn(queue.value);
  plan.transform(buffer.ptr, 1, true);
  emulation::failNext("cuLaunchKernel", ::cudaErrorUnknown);
  const std::string text = test::runtimeFailure([&] { plan.transform(buffer.ptr, 1, false); });
  EXPECT_TRUE(isCode(codeBehind(text, "VkFFT CUDA append failed: "))) << text;
  EXPECT_NO_THROW(plan.transform(buffer.ptr, 1, false));
}

TEST_F(GpuPlans, NeedADeviceOfTheDriver) {
  const CudaQueue queue;
  FftPlan plan = grid(16).planOn(queue.value);
  emulation::failNext("cuDeviceGet", ::cudaErrorInvalidDevice);
  EXPECT_EQ(test::runtimeFailure([&] { plan.application(1); }),
            "Cannot select CUDA driver device.");
}

TEST(GpuPlansWithoutNvrtc, CannotBeCreated) {
  const emulation::MachineScope lacking({.hasCompiler = false});
  const DeviceScope scope(0);
  const CudaQueue queue;
  FftPlan plan = grid(16).planOn(queue.value);
  EXPECT_TRUE(test::runtimeFailure([&] { plan.application(1); }).starts_with("NVRTC"));
}

#endif

}  // namespace
}  // namespace zeph
