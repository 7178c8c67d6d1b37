// Fields that CUDA copies into a buffer of Direct3D, and the adapter on which it can, on emulated
// GPUs.
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "render/d3d11/adapter_match.h"
#include "render/d3d11/shared_buffer.h"
#include "tests/boundary/failure_text.h"
#include "tests/emulation/emulated_gpu.h"

namespace zeph {
namespace {

using d3d11::SharedBuffer;
using emulation::callsOf;
using emulation::failNext;
using emulation::GraphicsBuffer;
using emulation::Holdings;
using emulation::holdings;
using emulation::MachineScope;

constexpr std::size_t fieldBytes = 1200;
const char* const nothing = "(nothing raised)";

const char* const registerText =
    "cudaGraphicsD3D11RegisterResource(&interop,fields.Get(),cudaGraphicsRegisterFlagsNone)";

// A stream, and a field in the memory of the GPU.
class SharedBufferTest : public testing::Test {
 protected:
  SharedBufferTest() {
    cudaStreamCreateWithFlags(&stream_, streamNonBlocking);
    cudaMalloc(&field_, fieldBytes);
    fill('a');
  }

  ~SharedBufferTest() override {
    cudaFree(field_);
    cudaStreamDestroy(stream_);
    EXPECT_EQ(holdings(), Holdings());
  }

  void fill(char value) {
    const std::string values(fieldBytes, value);
    cudaMemcpy(field_, values.data(), fieldBytes, cudaMemcpyHostToDevice);
  }

  std::string failureOfCopy(SharedBuffer& shared) {
    return failureText([&] { shared.copyFrom(field_, fieldBytes, stream_); });
  }

  static bool isFilled(const GraphicsBuffer& buffer, char value) {
    const std::vector<std::byte> expected(fieldBytes, static_cast<std::byte>(value));
    return std::memcmp(buffer.contents.data(), expected.data(), fieldBytes) == 0;
  }

  MachineScope machine_{{}};
  cudaStream_t stream_ = nullptr;
  void* field_ = nullptr;
};

TEST_F(SharedBufferTest, HoldsTheFieldOnceTheCopyReturns) {
  GraphicsBuffer buffer{.contents = std::vector<std::byte>(fieldBytes + 4)};
  SharedBuffer shared;
  shared.registerBuffer(&buffer);
  for (const char value : {'b', 'c'}) {
    fill(value);
    shared.copyFrom(field_, fieldBytes, stream_);
    EXPECT_TRUE(isFilled(buffer, value));
    EXPECT_EQ(holdings().mapped, 0u);
  }
}

TEST_F(SharedBufferTest, IsMappedAsOverwrittenCompletely) {
  GraphicsBuffer buffer{.contents = std::vector<std::byte>(2 * fieldBytes)};
  SharedBuffer shared;
  shared.registerBuffer(&buffer);
  shared.copyFrom(field_, fieldBytes, stream_);
  // The emulated GPU forgets what was there before.
  EXPECT_NE(buffer.contents[fieldBytes], std::byte{0});
}

TEST_F(SharedBufferTest, GoesBeforeTheNextIsRegistered) {
  GraphicsBuffer small{.contents = std::vector<std::byte>(16)};
  GraphicsBuffer large{.contents = std::vector<std::byte>(fieldBytes)};
  SharedBuffer shared;
  shared.registerBuffer(&small);
  EXPECT_EQ(failureOfCopy(shared), "Shared field buffer too small.");
  EXPECT_EQ(holdings().mapped, 0u);
  failNext("cudaGraphicsD3D11RegisterResource", ::cudaErrorMemoryAllocation);
  EXPECT_EQ(failureText([&] { shared.registerBuffer(&large); }),
            std::string(registerText) + ": out of memory");
  EXPECT_EQ(holdings().registered, 0u);
  shared.registerBuffer(&large);
  EXPECT_EQ(holdings().registered, 1u);
  EXPECT_EQ(failureOfCopy(shared), nothing);
  EXPECT_TRUE(isFilled(large, 'a'));
  shared.unregister();
  EXPECT_EQ(holdings().registered, 0u);
  shared.unregister();
}

TEST_F(SharedBufferTest, StaysRegisteredIfItCannotBeUnregistered) {
  GraphicsBuffer buffer{.contents = std::vector<std::byte>(fieldBytes)};
  {
    SharedBuffer shared;
    shared.registerBuffer(&buffer);
    failNext("cudaGraphicsUnregisterResource", ::cudaErrorInvalidValue);
    EXPECT_EQ(failureText([&] { shared.unregister(); }),
              "cudaGraphicsUnregisterResource(interop): invalid argument");
    EXPECT_EQ(holdings().registered, 1u);
  }
  EXPECT_EQ(holdings().registered, 0u);
}

TEST_F(SharedBufferTest, ReportsMapFlagsThatAreRefused) {
  GraphicsBuffer buffer{.contents = std::vector<std::byte>(fieldBytes)};
  SharedBuffer shared;
  failNext("cudaGraphicsResourceSetMapFlags", ::cudaErrorNotSupported);
  EXPECT_EQ(failureText([&] { shared.registerBuffer(&buffer); }),
            "cudaGraphicsResourceSetMapFlags(interop,cudaGraphicsMapFlagsWriteDiscard): "
            "operation not supported");
}

// A function that fails, the text of the failure, and how often the buffer is unmapped then.
struct CopyFailure {
  const char* function;
  const char* text;
  long unmaps;
};

class SharedBufferCopy : public SharedBufferTest,
                         public testing::WithParamInterface<CopyFailure> {};

TEST_P(SharedBufferCopy, IsUnmappedOnceMoreAfterAFailureAndCanBeRepeated) {
  const CopyFailure& failure = GetParam();
  GraphicsBuffer buffer{.contents = std::vector<std::byte>(fieldBytes)};
  SharedBuffer shared;
  shared.registerBuffer(&buffer);
  const long unmaps = callsOf("cudaGraphicsUnmapResources");
  const long waits = callsOf("cudaStreamSynchronize");
  failNext(failure.function, ::cudaErrorInvalidValue);
  EXPECT_EQ(failureOfCopy(shared), std::string(failure.text) + ": invalid argument");
  EXPECT_EQ(callsOf("cudaGraphicsUnmapResources"), unmaps + failure.unmaps);
  const bool isLast = std::string(failure.function) == "cudaStreamSynchronize";
  EXPECT_EQ(callsOf("cudaStreamSynchronize"), waits + (isLast ? 1 : 0));
  EXPECT_EQ(holdings().mapped, 0u);
  EXPECT_EQ(failureOfCopy(shared), nothing);
  EXPECT_TRUE(isFilled(buffer, 'a'));
}

INSTANTIATE_TEST_SUITE_P(
    EachCall, SharedBufferCopy,
    testing::Values(
        CopyFailure{"cudaGraphicsMapResources", "cudaGraphicsMapResources(1,&interop,copyStream)",
                    0},
        CopyFailure{"cudaGraphicsResourceGetMappedPointer",
                    "cudaGraphicsResourceGetMappedPointer(&pointer,&size,interop)", 1},
        CopyFailure{
            "cudaMemcpyAsync",
            "cudaMemcpyAsync(pointer,frame->data(),bytes,cudaMemcpyDeviceToDevice,copyStream)", 1},
        CopyFailure{"cudaGraphicsUnmapResources",
                    "cudaGraphicsUnmapResources(1,&interop,copyStream)", 2},
        CopyFailure{"cudaStreamSynchronize", "cudaStreamSynchronize(copyStream)", 1}),
    [](const auto& instance) { return std::string(instance.param.function); });

// The adapters of a machine, by the GPU that each of them is, or -1.
struct Adapters {
  explicit Adapters(const std::vector<int>& gpus) {
    for (const int gpu : gpus) all.push_back({gpu});
  }
  void* operator()(unsigned index) {
    asked = index;
    return index < all.size() ? &all[index] : nullptr;
  }

  std::vector<emulation::Adapter> all;
  std::optional<unsigned> asked;  // the last
};

TEST(AdapterOfCuda, IsTheFirstThatIsAGpuWithKernels) {
  const MachineScope scope({.gpus = {{7, 0}, {8, 9}}});
  struct Case {
    std::vector<int> adapters;
    unsigned adapter;
  };
  for (const Case& c : {Case{{1}, 0}, Case{{-1, 1}, 1}, Case{{0, -1, 1, 1}, 2}}) {
    Adapters adapters(c.adapters);
    EXPECT_EQ(d3d11::firstCudaDevice(std::ref(adapters)), 1);
    EXPECT_EQ(adapters.asked, c.adapter);
    EXPECT_EQ(d3d11::deviceToDisplay(std::ref(adapters)), 1);
    EXPECT_EQ(::cudaGetLastError(), ::cudaSuccess);
  }
}

TEST(AdapterOfCuda, FollowsTheOrderOfTheAdaptersNotOfTheGpus) {
  const MachineScope scope({.gpus = {{8, 9}, {8, 9}}});
  EXPECT_EQ(d3d11::firstCudaDevice(Adapters({-1, 1, 0})), 1);
  EXPECT_EQ(d3d11::firstCudaDevice(Adapters({-1, 0, 1})), 0);
}

TEST(AdapterOfCuda, IsMissedWithItsText) {
  const MachineScope scope({.gpus = {{7, 0}, {8, 9}}});
  const char* const text = "No CUDA-compatible Direct3D adapter found.";
  for (const std::vector<int>& gpus : {std::vector<int>{}, {-1, -1}, {0}}) {
    EXPECT_EQ(failureText([&] { d3d11::firstCudaDevice(Adapters(gpus)); }), text);
    EXPECT_EQ(failureText([&] { d3d11::deviceToDisplay(Adapters(gpus)); }), text);
    EXPECT_EQ(::cudaGetLastError(), ::cudaSuccess);
  }
}

TEST(AdapterOfCuda, DoesNotMatterWhereNoGpuHasKernels) {
  const MachineScope scope({.gpus = {{7, 0}, {6, 1}}});
  Adapters adapters({0, 1});
  EXPECT_EQ(d3d11::deviceToDisplay(std::ref(adapters)), std::nullopt);
  EXPECT_EQ(adapters.asked, std::nullopt);
}

TEST(AdapterOfCuda, LeavesTheFailedLaunchesOfOthersAlone) {
  const MachineScope scope({.gpus = {{8, 9}, {8, 9}}});
  const Kernel missing = {"missing", nullptr};
  cudaStream_t stream = nullptr;
  ASSERT_EQ(cudaStreamCreateWithFlags(&stream, streamNonBlocking), cudaSuccess);
  EXPECT_NE(cudaLaunchKernel(missing, {}, {}, nullptr, 0, stream), cudaSuccess);
  EXPECT_EQ(d3d11::firstCudaDevice(Adapters({-1, 0})), 0);
  EXPECT_NE(cudaGetLastError(stream), cudaSuccess);
  cudaStreamDestroy(stream);
}

}  // namespace
}  // namespace zeph
