// Kernels that are written at run time, on the emulated GPU.
#include <cuda.h>
#include <gtest/gtest.h>
#include <nvrtc.h>

#include <string>
#include <vector>

#include "tests/emulation/launching.h"

namespace zeph::emulation {
namespace {

constexpr const char* scaleSource = R"(
__constant__ float factor;
extern __shared__ float shared[];
extern "C" __global__ void __launch_bounds__(32) scale(float* values, float offset) {
  shared[threadIdx.x] = values[threadIdx.x];
  __syncthreads();
  values[threadIdx.x] = fma(factor, shared[31 - threadIdx.x], offset);
}
)";

nvrtcResult compile(const char* source, std::string& code, std::string& log) {
  nvrtcProgram program = nullptr;
  EXPECT_EQ(nvrtcCreateProgram(&program, source, "test.cu", 0, nullptr, nullptr), NVRTC_SUCCESS);
  const nvrtcResult result = nvrtcCompileProgram(program, 0, nullptr);
  std::size_t bytes = 0;
  EXPECT_EQ(nvrtcGetPTXSize(program, &bytes), NVRTC_SUCCESS);
  code.resize(bytes);
  EXPECT_EQ(nvrtcGetPTX(program, code.data()), NVRTC_SUCCESS);
  EXPECT_EQ(nvrtcGetProgramLogSize(program, &bytes), NVRTC_SUCCESS);
  log.resize(bytes);
  EXPECT_EQ(nvrtcGetProgramLog(program, log.data()), NVRTC_SUCCESS);
  EXPECT_EQ(nvrtcDestroyProgram(&program), NVRTC_SUCCESS);
  return result;
}

class Module {
 public:
  explicit Module(const char* source) {
    std::string code;
    std::string log;
    EXPECT_EQ(compile(source, code, log), NVRTC_SUCCESS) << log;
    EXPECT_EQ(cuModuleLoadDataEx(&handle, code.c_str(), 0, nullptr, nullptr), CUDA_SUCCESS);
  }
  ~Module() { cuModuleUnload(handle); }
  Module(const Module&) = delete;
  Module& operator=(const Module&) = delete;

  CUfunction function(const char* name) const {
    CUfunction found = nullptr;
    EXPECT_EQ(cuModuleGetFunction(&found, handle, name), CUDA_SUCCESS);
    return found;
  }

  void set(const char* name, float value) const {
    CUdeviceptr address = 0;
    std::size_t bytes = 0;
    ASSERT_EQ(cuModuleGetGlobal(&address, &bytes, handle, name), CUDA_SUCCESS);
    ASSERT_EQ(bytes, sizeof(value));
    ASSERT_EQ(cuMemcpyHtoD(address, &value, bytes), CUDA_SUCCESS);
  }

  CUmodule handle = nullptr;
};

CUresult launchScale(CUfunction scale, float* values, float offset) {
  void* arguments[] = {&values, &offset};
  return cuLaunchKernel(scale, 1, 1, 1, 32, 1, 1, 32 * sizeof(float), nullptr, arguments, nullptr);
}

TEST(EmulatedModule, RunsKernelsWrittenAtRunTime) {
  const Module module(scaleSource);
  module.set("factor", 2.0f);
  const DeviceArray<float> values(32);
  std::vector<float> start(32);
  for (std::size_t k = 0; k < 32; ++k) start[k] = static_cast<float>(k);
  ASSERT_EQ(
      ::cudaMemcpy(values.begin(), start.data(), 32 * sizeof(float), ::cudaMemcpyHostToDevice),
      ::cudaSuccess);
  ASSERT_EQ(launchScale(module.function("scale"), values.begin(), 0.5f), CUDA_SUCCESS);
  const std::vector<float> found = values.content();
  for (std::size_t k = 0; k < 32; ++k) EXPECT_EQ(found[k], 2.0f * start[31 - k] + 0.5f);
}

TEST(EmulatedModule, HasSeparateVariables) {
  const Module one(scaleSource);
  const Module two(scaleSource);
  one.set("factor", 0.0f);
  two.set("factor", 1.0f);
  const DeviceArray<float> values(32);
  ASSERT_EQ(::cudaMemset(values.begin(), 0, 32 * sizeof(float)), ::cudaSuccess);
  ASSERT_EQ(launchScale(two.function("scale"), values.begin(), 3.0f), CUDA_SUCCESS);
  ASSERT_EQ(launchScale(two.function("scale"), values.begin(), 3.0f), CUDA_SUCCESS);
  EXPECT_EQ(values.content()[0], 6.0f);
  ASSERT_EQ(launchScale(one.function("scale"), values.begin(), 3.0f), CUDA_SUCCESS);
  EXPECT_EQ(values.content()[0], 3.0f);
}

TEST(EmulatedModule, ReportsCompilerErrors) {
  std::string code;
  std::string log;
  EXPECT_EQ(compile("extern \"C\" __global__ void broken() { missing(); }", code, log),
            NVRTC_ERROR_COMPILATION);
  EXPECT_NE(log.find("missing"), std::string::npos);
}

TEST(EmulatedModule, BelongsToItsGpuAndIsInvalidOnceUnloaded) {
  const std::size_t before = holdings().modules;
  Module module(scaleSource);
  EXPECT_EQ(holdings().modules, before + 1);
  const CUfunction scale = module.function("scale");
  const DeviceArray<float> values(32);
  ASSERT_EQ(::cudaSetDevice(1), ::cudaSuccess);
  EXPECT_EQ(launchScale(scale, values.begin(), 0.0f), CUDA_ERROR_INVALID_HANDLE);
  ASSERT_EQ(::cudaSetDevice(0), ::cudaSuccess);
  ASSERT_EQ(cuModuleUnload(module.handle), CUDA_SUCCESS);
  EXPECT_EQ(launchScale(scale, values.begin(), 0.0f), CUDA_ERROR_INVALID_HANDLE);
  EXPECT_EQ(cuModuleUnload(module.handle), CUDA_ERROR_INVALID_HANDLE);
  EXPECT_EQ(holdings().modules, before);
}

}  // namespace
}  // namespace zeph::emulation
