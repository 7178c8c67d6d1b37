// Which device the process uses on machines with GPUs, and its description.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "boundary/system_description.h"
#include "tests/cuda/cuda_device.h"
#include "tests/support/flows.h"
#ifdef ZEPHANE_EMULATED_GPU
#include "tests/emulation/emulated_gpu.h"
#endif

namespace zeph {
namespace {

// Sets ZEPHANE_DEVICE, and restores it at the end.
class NamedDevice {
 public:
  explicit NamedDevice(const std::string& text) {
    if (const char* value = std::getenv(name)) before_ = value;
    text.empty() ? unsetenv(name) : setenv(name, text.c_str(), 1);
  }
  ~NamedDevice() { before_.empty() ? unsetenv(name) : setenv(name, before_.c_str(), 1); }
  NamedDevice(const NamedDevice&) = delete;
  NamedDevice& operator=(const NamedDevice&) = delete;

 private:
  static constexpr const char* name = "ZEPHANE_DEVICE";
  std::string before_;
};

class GpuChoice : public test::CudaDevice {};

TEST_F(GpuChoice, TheFirstGpuIsTheDefault) {
  const NamedDevice none("");
  const Json object = initialize();
  EXPECT_EQ(object["device_index"], gpu());
  EXPECT_EQ(object["backend"], "CUDA / VkFFT");
  EXPECT_EQ(deviceId, gpu());
}

TEST_F(GpuChoice, TheGpuIsDescribed) {
  const NamedDevice none("");
  const Json object = initialize();
  cudaDeviceProp properties;
  ASSERT_EQ(cudaGetDeviceProperties(&properties, gpu()), cudaSuccess);
  EXPECT_EQ(object["gpu"], properties.name);
  EXPECT_EQ(gpuName, properties.name);
  EXPECT_NE(gpuName, "");
  EXPECT_EQ(object["gpu_memory_bytes"], properties.totalGlobalMem);
  EXPECT_EQ(object["compute_capability"],
            std::to_string(properties.major) + "." + std::to_string(properties.minor));
  EXPECT_GE(10 * properties.major + properties.minor, 86);
  EXPECT_GT(object["available_memory_bytes"], 0u);
  EXPECT_LE(object["available_memory_bytes"], object["gpu_memory_bytes"]);
  EXPECT_GE(object["cuda_runtime_version"], 12080);
  EXPECT_GE(object["cuda_driver_version"], 12000);
}

TEST_F(GpuChoice, TheEnvironmentNamesAnyDeviceTheProcessorIncluded) {
  for (const int device : test::gpus()) {
    const NamedDevice named(std::to_string(device));
    EXPECT_EQ(initialize()["device_index"], device);
    EXPECT_STREQ(deviceBackend(), "CUDA / VkFFT");
    EXPECT_FALSE(deviceIsSynchronous());
  }
  const int last = test::processorDevice();
  const NamedDevice named(std::to_string(last));
  const Json object = initialize();
  EXPECT_EQ(object["device_index"], last);
  EXPECT_EQ(object["backend"], "CPU / built-in FFT");
  EXPECT_EQ(object["compute_capability"], "0.0");
  EXPECT_TRUE(deviceIsSynchronous());
}

TEST_F(GpuChoice, AnOrdinalBeyondTheLastFailsWhenItIsSelected) {
  const NamedDevice named(std::to_string(test::processorDevice() + 1));
  EXPECT_EQ(test::runtimeFailure([] { initialize(); }),
            "cudaSetDevice(deviceId): invalid device ordinal");
}

TEST_F(GpuChoice, EachThreadSelectsForItself) {
  EXPECT_EQ(selectedDevice(), gpu());
  EXPECT_STREQ(deviceBackend(), "CUDA / VkFFT");
  const DeviceScope scope(test::processorDevice());
  EXPECT_STREQ(deviceBackend(), "CPU / built-in FFT");
}

TEST_F(GpuChoice, ErrorTextsMatchTheRuntime) {
  EXPECT_STREQ(cudaGetErrorString(cudaSuccess), "no error");
  EXPECT_STREQ(cudaGetErrorString(cudaErrorInvalidValue), "invalid argument");
  EXPECT_STREQ(cudaGetErrorString(cudaErrorMemoryAllocation), "out of memory");
  EXPECT_STREQ(cudaGetErrorString(cudaErrorInvalidDevice), "invalid device ordinal");
}

#ifdef ZEPHANE_EMULATED_GPU

using emulation::Gpu;
using emulation::Machine;

TEST(MachinesWithGpus, SkipThoseTooOldForTheKernels) {
  const NamedDevice none("");
  struct Case {
    std::vector<Gpu> gpus;
    int chosen;
  };
  for (const Case& c :
       {Case{{{7, 0}, {8, 9}}, 1}, Case{{{6, 1}, {7, 2}}, 2}, Case{{{7, 5}, {9, 0}}, 0},
        Case{{{8, 0}, {7, 0}}, 0}, Case{{{12, 0}, {7, 5}}, 0}, Case{{{7, 4}, {10, 0}}, 1}}) {
    const emulation::MachineScope scope({.gpus = c.gpus});
    EXPECT_EQ(chooseDevice(), c.chosen);
    const Json object = initialize();
    EXPECT_EQ(object["device_index"], c.chosen);
    EXPECT_EQ(object["backend"], c.chosen < 2 ? "CUDA / VkFFT" : "CPU / built-in FFT");
  }
}

TEST(MachinesWithGpus, ZephaneDeviceMayNameAnUnsupportedGpu) {
  const emulation::MachineScope scope({.gpus = {{7, 0}, {8, 9}}});
  const NamedDevice named("0");
  const Json object = initialize();
  EXPECT_EQ(object["device_index"], 0);
  EXPECT_EQ(object["compute_capability"], "7.0");
}

// The GPUs of a machine are counted once per process, so each of these tests runs in its own, which
// exits with 0 if nothing failed.
template <class Body>
[[noreturn]] void endAfter(const Machine& machine, Body body) {
  emulation::setMachine(machine);
  unsetenv("ZEPHANE_DEVICE");
  body();
  std::fflush(nullptr);
  std::_Exit(testing::Test::HasFailure() ? 1 : 0);
}

class MachinesWithoutGpus : public testing::Test {
 protected:
  MachinesWithoutGpus() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }

  static void expectProcessor() {
    EXPECT_EQ(test::processorDevice(), 0);
    EXPECT_EQ(chooseDevice(), 0);
    const Json object = initialize();
    EXPECT_EQ(object["device_index"], 0);
    EXPECT_EQ(object["backend"], "CPU / built-in FFT");
    EXPECT_GE(object["cuda_runtime_version"], 12080);
    EXPECT_EQ(Solver(test::configOf(16)).advance(3).steps, 3u);
    const NamedDevice named("1");
    EXPECT_EQ(test::runtimeFailure([] { initialize(); }),
              "cudaSetDevice(deviceId): invalid device ordinal");
  }
};

TEST_F(MachinesWithoutGpus, UseTheProcessorWithoutADriver) {
  EXPECT_EXIT(endAfter({.gpus = {}, .driverVersion = 0},
                       [] {
                         expectProcessor();
                         EXPECT_FALSE(initialize().contains("cuda_driver_version"));
                       }),
              testing::ExitedWithCode(0), "");
}

TEST_F(MachinesWithoutGpus, UseTheProcessorAndReportTheDriverVersion) {
  EXPECT_EXIT(endAfter({.gpus = {}, .driverVersion = 13000},
                       [] {
                         expectProcessor();
                         EXPECT_EQ(initialize()["cuda_driver_version"], 13000);
                       }),
              testing::ExitedWithCode(0), "");
}

TEST_F(MachinesWithoutGpus, IncludeThoseWithATooOldDriver) {
  EXPECT_EXIT(endAfter({.driverVersion = 11040},
                       [] {
                         expectProcessor();
                         EXPECT_EQ(initialize()["cuda_driver_version"], 11040);
                       }),
              testing::ExitedWithCode(0), "");
}

TEST_F(MachinesWithoutGpus, DifferFromThoseWithOne) {
  EXPECT_EXIT(endAfter({.gpus = {{}}}, [] { expectProcessor(); }), testing::ExitedWithCode(1), "");
}

#endif

}  // namespace
}  // namespace zeph
