// The library on a Windows machine with GPUs: their driver is a stand-in, Direct3D is real.
#include <gtest/gtest.h>

#include <array>
#include <filesystem>
#include <string>
#include <vector>

#include "boundary/system_description.h"
#include "platform/dynamic_library.h"
#include "solver/solver.h"
#include "tests/boundary/failure_text.h"
#include "tests/emulation/windows/stand_in.h"
#include "tests/render/scene.h"
#include "tests/support/flows.h"

namespace zeph {
namespace {

constexpr int gpu = 1;
constexpr int outOfMemory = 2;  // CUDA_ERROR_OUT_OF_MEMORY

// A function of the stand-in, which is found like those of the driver.
template <class Function>
Function* standIn(const char* name) {
  Function* found = nullptr;
  platform::find(platform::openLibrary("nvcuda.dll"), name, found);
  return found;
}

long callsOf(const char* function) {
  return standIn<StandInCalls>("standInCalls")(function);
}

void failNext(const char* function) {
  standIn<StandInFail>("standInFail")(function, outOfMemory);
}

std::size_t holdings() {
  return standIn<StandInHoldings>("standInHoldings")();
}

void placeAdapters(int at) {
  standIn<StandInPlaceAdapters>("standInPlaceAdapters")(at);
}

class WindowsGpu : public testing::Test {
 protected:
  WindowsGpu() { placeAdapters(gpu); }
};

TEST_F(WindowsGpu, ThatIsAnAdapterIsTheDefaultDevice) {
  for (const int place : {1, 0}) {
    placeAdapters(place);
    const Json object = initialize();
    EXPECT_EQ(object["device_index"], place);
    EXPECT_EQ(object["gpu"], "Stand-in GPU " + std::to_string(place));
    EXPECT_EQ(object["backend"], "CUDA / VkFFT");
    EXPECT_EQ(object["os"], "Windows");
    EXPECT_EQ(object["compute_capability"], "8.9");
    EXPECT_GE(object["cuda_driver_version"], 12080);
    EXPECT_GE(object["cuda_runtime_version"], 12080);
    EXPECT_EQ(object["available_memory_bytes"], object["gpu_memory_bytes"]);
  }
}

TEST_F(WindowsGpu, ThatIsNoAdapterCannotBeTheDefaultDevice) {
  placeAdapters(-1);
  const char* const text = "No CUDA-compatible Direct3D adapter found.";
  EXPECT_EQ(failureText([] { initialize(); }), text);
  EXPECT_EQ(failureText([] { Renderer renderer(0); }), text);
}

std::shared_ptr<Frame> noiseOn(int device, int n, unsigned seed) {
  const DeviceScope scope(device);
  return test::noise(n, seed);
}

std::vector<std::byte> picture(Renderer& renderer, const std::shared_ptr<const Frame>& frame) {
  const auto target = renderer.makeTarget(90, 90, TexelFormat::bgra8);
  renderer.drawPicture(*target, frame, {.flow = true}, {.size = 90});
  return renderer.readTarget(*target).data;
}

std::vector<std::byte> onTheProcessor(int n, unsigned seed) {
  const DeviceScope scope(test::processorDevice());
  Renderer renderer(test::processorDevice());
  return picture(renderer, noiseOn(test::processorDevice(), n, seed));
}

TEST_F(WindowsGpu, DrawsItsFramesAsTheProcessorDoes) {
  const std::size_t before = holdings();
  {
    Renderer renderer(gpu);
    for (const int n : {16, 54, 18}) {
      const auto frame = noiseOn(gpu, n, 1);
      const auto other = noiseOn(gpu, n, 2);
      EXPECT_EQ(picture(renderer, frame), onTheProcessor(n, 1)) << n;
      EXPECT_EQ(picture(renderer, other), onTheProcessor(n, 2)) << n;
    }
  }
  EXPECT_EQ(holdings(), before);
}

TEST_F(WindowsGpu, RegistersABufferForEachSizeAndCopiesEachFrameOnce) {
  Renderer renderer(gpu);
  const auto calls = [] {
    return std::array{callsOf("cuGraphicsD3D11RegisterResource"),
                      callsOf("cuGraphicsUnregisterResource"), callsOf("cuGraphicsMapResources"),
                      callsOf("cuMemcpyDtoDAsync"), callsOf("cuStreamSynchronize")};
  };
  const auto first = noiseOn(gpu, 16, 1);
  renderer.transferField(first);
  auto expected = calls();
  renderer.transferField(first);
  EXPECT_EQ(calls(), expected);
  renderer.transferField(noiseOn(gpu, 16, 2));
  for (const std::size_t copied : {2u, 3u, 4u}) ++expected[copied];
  EXPECT_EQ(calls(), expected);
  renderer.transferField(noiseOn(gpu, 18, 3));
  for (long& count : expected) ++count;
  EXPECT_EQ(calls(), expected);
}

struct FailingCall {
  const char* function;
  const char* text;
};

class WindowsGpuTransfer : public WindowsGpu, public testing::WithParamInterface<FailingCall> {};

// Of another size, so that every call occurs.
TEST_P(WindowsGpuTransfer, NamesTheFailedCallAndThenWorks) {
  const auto [function, text] = GetParam();
  const std::size_t before = holdings();
  {
    Renderer renderer(gpu);
    renderer.transferField(noiseOn(gpu, 16, 1));
    const auto frame = noiseOn(gpu, 18, 2);
    failNext(function);
    EXPECT_EQ(failureText([&] { renderer.transferField(frame); }),
              std::string(text) + ": out of memory");
    EXPECT_EQ(picture(renderer, frame), onTheProcessor(18, 2));
  }
  EXPECT_EQ(holdings(), before);
}

INSTANTIATE_TEST_SUITE_P(
    Each, WindowsGpuTransfer,
    testing::Values(
        FailingCall{"cuGraphicsUnregisterResource", "cudaGraphicsUnregisterResource(interop)"},
        FailingCall{"cuGraphicsD3D11RegisterResource",
                    "cudaGraphicsD3D11RegisterResource(&interop,fields.Get(),"
                    "cudaGraphicsRegisterFlagsNone)"},
        FailingCall{"cuGraphicsResourceSetMapFlags",
                    "cudaGraphicsResourceSetMapFlags(interop,cudaGraphicsMapFlagsWriteDiscard)"},
        FailingCall{"cuGraphicsMapResources", "cudaGraphicsMapResources(1,&interop,copyStream)"},
        FailingCall{"cuGraphicsResourceGetMappedPointer",
                    "cudaGraphicsResourceGetMappedPointer(&pointer,&size,interop)"},
        FailingCall{
            "cuMemcpyDtoDAsync",
            "cudaMemcpyAsync(pointer,frame->data(),bytes,cudaMemcpyDeviceToDevice,copyStream)"},
        FailingCall{"cuGraphicsUnmapResources",
                    "cudaGraphicsUnmapResources(1,&interop,copyStream)"},
        FailingCall{"cuStreamSynchronize", "cudaStreamSynchronize(copyStream)"}),
    [](const auto& test) { return std::string(test.param.function); });

// Python's packages are found by the files that the process has loaded.
TEST_F(WindowsGpu, CompilesItsTransformsWithTheNvrtcOfAPythonPackage) {
  namespace fs = std::filesystem;
  const DeviceScope scope(gpu);
  EXPECT_EQ(failureText([] { Solver solver(test::configOf(16)); }),
            "NVRTC, the run-time compiler of CUDA, is missing: neither nvrtc64_130_0.dll nor "
            "nvrtc64_120_0.dll was found. Install the CUDA toolkit or the Python package "
            "nvidia-cuda-nvrtc.");
  const fs::path packages =
      fs::path(platform::loadedFiles().front()).parent_path() / "site-packages";
  ASSERT_NE(platform::openLibrary(packages / "module.pyd"), nullptr);
  // VkFFT's code for a compilation that fails.
  EXPECT_EQ(failureText([] { Solver solver(test::configOf(16)); }),
            "VkFFT CUDA plan N=24 batch=2 failed: 4031");
  EXPECT_NE(platform::openLibrary("nvrtc-builtins64_130.dll"), nullptr);
}

}  // namespace
}  // namespace zeph
