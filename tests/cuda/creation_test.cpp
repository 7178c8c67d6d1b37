// Creating a solver on a GPU: the memory it takes, and what is released when a call fails.
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>

#include "tests/cuda/cuda_device.h"
#include "tests/support/failures.h"
#include "tests/support/flows.h"
#ifdef ZEPHANE_EMULATED_GPU
#include "tests/emulation/emulated_gpu.h"
#endif

namespace zeph {
namespace {

#ifdef ZEPHANE_EMULATED_GPU
// GPUs with little memory.
struct SmallGpus {
  emulation::MachineScope machine{{.gpus = {{.memory = std::size_t{8} << 20}}}};
};
#else
struct SmallGpus {};
#endif

constexpr const char* outOfMemory = "cudaMalloc(&ptr,bytes): out of memory";

class GpuCreation : public test::CudaDevice {
 protected:
  // A solver of a size that can be measured.
  static Config heavy() { return test::configOf(test::isEmulated ? 48 : 1024); }
};

TEST_F(GpuCreation, AllocatesTheReportedMemory) {
  const std::size_t before = test::availableOn(gpu());
  const Solver solver(heavy());
  const Statistics stats = solver.lastStats();
  // A GPU allocates memory in larger pieces, and code takes some too.
  const std::size_t taken = before - test::availableOn(gpu());
  EXPECT_GE(taken, stats.allocatedBytes);
  if (test::isEmulated) {
    EXPECT_EQ(taken, stats.allocatedBytes + stats.workspaceBytes);
  }
}

TEST_F(GpuCreation, AndDestructionDoNotLeak) {
  const auto once = [] {
    Solver solver(heavy(), test::still(heavy().resolution));
    solver.advance(20);
    const auto frame = solver.snapshot(true);
  };
  once();  // code loaded at first use stays
  const std::size_t before = test::availableOn(gpu());
  for (int k = 0; k < 3; ++k) once();
  constexpr std::size_t noise = std::size_t{32} << 20;  // of other users of the GPU
  EXPECT_GE(test::availableOn(gpu()) + (test::isEmulated ? 0 : noise), before);
}

// Allocates all of a device's free memory except the given number of bytes.
class Hog {
 public:
  Hog(int device, std::size_t left) {
    for (std::size_t piece = test::availableOn(device); piece > left / 4; piece -= piece / 8) {
      while (test::availableOn(device) >= piece + left) {
        pieces_.push_back(std::make_unique<DeviceBuffer>());
        void* memory = nullptr;
        if (cudaMalloc(&memory, piece) != cudaSuccess) break;
        pieces_.back()->ptr = memory;
      }
    }
  }

 private:
  std::vector<std::unique_ptr<DeviceBuffer>> pieces_;
};

TEST_F(GpuCreation, FailsWithATextForLackOfMemoryAndTheDeviceStaysUsable) {
  [[maybe_unused]] const SmallGpus small;
  std::size_t bytes = 0;
  {
    const Solver first(heavy());
    bytes = first.lastStats().allocatedBytes;
  }
  {
    const Hog hog(gpu(), bytes / 2);
    const std::size_t before = test::availableOn(gpu());
    ASSERT_LT(before, bytes);
    for (int k = 0; k < 3; ++k) {
      EXPECT_EQ(test::runtimeFailure([&] { const Solver solver(heavy()); }), outOfMemory);
      EXPECT_EQ(cudaGetLastError(), cudaSuccess);
    }
    EXPECT_EQ(test::availableOn(gpu()), before);
    EXPECT_EQ(Solver(test::configOf(16)).advance(2).steps, 2u);
  }
  EXPECT_EQ(Solver(heavy()).advance(2).steps, 2u);
}

TEST_F(GpuCreation, FailsWithTheSameTextBeyondAnyDevicesMemory) {
  DeviceBuffer buffer;
  EXPECT_EQ(test::runtimeFailure([&] { buffer.allocate(std::size_t{1} << 60); }), outOfMemory);
  EXPECT_EQ(test::runtimeFailure([] { allocateBlock(std::size_t{1} << 58); }), outOfMemory);
  EXPECT_EQ(cudaGetLastError(), cudaSuccess);
}

#ifdef ZEPHANE_EMULATED_GPU

struct Step {
  const char* function;
  ::cudaError_t error;
  const char* text;
};

// Every call that creates part of a solver fails once, at each of its occurrences.
TEST_F(GpuCreation, ReleasesEverythingIfAnyCallFails) {
  { const Solver first(test::configOf(16)); }  // code loaded at first use stays
  const emulation::Holdings before = emulation::holdings();
  for (const Step& step :
       {Step{"cudaStreamCreateWithFlags", ::cudaErrorMemoryAllocation,
             "cudaStreamCreateWithFlags(&value,cudaStreamNonBlocking): out of memory"},
        Step{"cudaMallocHost", ::cudaErrorMemoryAllocation,
             "cudaMallocHost(reinterpret_cast<void**>(&data),sizeof(Data)): out of memory"}}) {
    emulation::failNext(step.function, step.error);
    EXPECT_EQ(test::runtimeFailure([] { const Solver solver(test::configOf(16)); }), step.text);
    EXPECT_EQ(emulation::holdings(), before) << step.function;
  }
  for (const int passes : {0, 1}) {
    emulation::failNext("cudaEventCreate", ::cudaErrorMemoryAllocation, passes);
    EXPECT_EQ(test::runtimeFailure([] { const Solver solver(test::configOf(16)); }),
              passes == 0 ? "cudaEventCreate(&begin): out of memory"
                          : "cudaEventCreate(&end): out of memory");
    EXPECT_EQ(emulation::holdings(), before) << passes;
  }
  for (int passes = 0; passes < 16; ++passes) {
    emulation::failNext("cudaMalloc", ::cudaErrorMemoryAllocation, passes);
    EXPECT_EQ(test::runtimeFailure([] { const Solver solver(test::configOf(16)); }), outOfMemory);
    EXPECT_EQ(emulation::holdings(), before) << passes;
  }
}

TEST_F(GpuCreation, ReleasesEverythingIfTheTransformsFail) {
  { const Solver first(test::configOf(16)); }
  const emulation::Holdings before = emulation::holdings();
  for (const char* function : {"nvrtcCompileProgram", "cuModuleLoadDataEx"}) {
    int failures = 0;
    for (int passes = 0; passes < 40; ++passes) {
      emulation::failNext(function, ::cudaErrorUnknown, passes);
      const std::string text =
          test::runtimeFailure([] { const Solver solver(test::configOf(16)); });
      if (text == "nothing failed") break;
      ++failures;
      EXPECT_TRUE(text.starts_with("VkFFT CUDA plan N=")) << text;
      ASSERT_EQ(emulation::holdings(), before) << function << " " << passes;
    }
    EXPECT_GE(failures, 2) << function;
    emulation::setMachine({});  // cancels the failure that has not occurred
  }
}

TEST_F(GpuCreation, StepFailuresNameTheirCallAndAreLatched) {
  struct Case {
    const char* function;
    std::string text;
  };
  for (const Case& c :
       {Case{"cudaEventRecord", "cudaEventRecord(s.events.begin,stream()): unknown error"},
        Case{"cudaLaunchKernel", "cudaGetLastError(): unknown error"},
        Case{"cudaMemcpyAsync",
             "cudaMemcpyAsync(&hostClock,clock.ptr,sizeof(hostClock),cudaMemcpyDeviceToHost,"
             "queue.value): unknown error"},
        Case{"cudaStreamSynchronize", "cudaStreamSynchronize(queue.value): unknown error"},
        Case{"cudaEventElapsedTime",
             "cudaEventElapsedTime(&ms,s.events.begin,s.events.end): unknown error"}}) {
    SCOPED_TRACE(c.function);
    Solver solver(test::configOf(16));
    emulation::failNext(c.function, ::cudaErrorUnknown);
    EXPECT_EQ(test::runtimeFailure([&] { solver.advance(2); }), c.text);
    EXPECT_EQ(test::runtimeFailure([&] { solver.advance(2); }), test::latched);
    solver.reset();
    EXPECT_EQ(solver.advance(2).steps, 2u);
  }
}

TEST_F(GpuCreation, StaysOnASecondDevice) {
  ASSERT_EQ(test::gpus().size(), 2u);
  const std::size_t onFirst = test::availableOn(0);
  const std::size_t onSecond = test::availableOn(1);
  const DeviceScope scope(1);
  Solver solver(test::configOf(16));
  solver.advance(3);
  EXPECT_EQ(test::availableOn(0), onFirst);
  EXPECT_LT(test::availableOn(1), onSecond);
}

#endif

}  // namespace
}  // namespace zeph
