// Pictures of a GPU's frames: the field goes from device to device, and the software Vulkan driver
// acts as the GPU's driver.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <optional>
#include <string>
#include <vector>

#include "render/vulkan/vulkan_functions.h"
#include "tests/boundary/failure_text.h"
#include "tests/emulation/emulated_gpu.h"
#include "tests/render/scene.h"
#include "tests/support/process.h"

namespace zeph {
namespace {

using emulation::callsOf;
using emulation::failNext;
using emulation::Holdings;
using emulation::holdings;
using emulation::Machine;
using emulation::MachineScope;
using Uuid = std::array<char, 16>;

// Of the software Vulkan driver.
std::optional<Uuid> softwareDriver() {
  const vulkan::GlobalFunctions global = vulkan::globalFunctions();
  const VkApplicationInfo application = {.sType = VK_STRUCTURE_TYPE_APPLICATION_INFO,
                                         .apiVersion = VK_API_VERSION_1_1};
  const VkInstanceCreateInfo info = {.sType = VK_STRUCTURE_TYPE_INSTANCE_CREATE_INFO,
                                     .pApplicationInfo = &application};
  VkInstance instance = VK_NULL_HANDLE;
  if (global.vkCreateInstance == nullptr ||
      global.vkCreateInstance(&info, nullptr, &instance) != VK_SUCCESS)
    return std::nullopt;
  const vulkan::InstanceFunctions vk = vulkan::instanceFunctions(global, instance);
  std::uint32_t count = 0;
  vk.vkEnumeratePhysicalDevices(instance, &count, nullptr);
  std::vector<VkPhysicalDevice> devices(count);
  vk.vkEnumeratePhysicalDevices(instance, &count, devices.data());
  std::optional<Uuid> found;
  for (VkPhysicalDevice device : devices) {
    VkPhysicalDeviceIDProperties ids = {.sType = VK_STRUCTURE_TYPE_PHYSICAL_DEVICE_ID_PROPERTIES};
    VkPhysicalDeviceProperties2 properties = {
        .sType = VK_STRUCTURE_TYPE_PHYSICAL_DEVICE_PROPERTIES_2, .pNext = &ids};
    vk.vkGetPhysicalDeviceProperties2(device, &properties);
    if (properties.properties.deviceType != VK_PHYSICAL_DEVICE_TYPE_CPU) continue;
    found.emplace();
    std::copy(std::begin(ids.deviceUUID), std::end(ids.deviceUUID), found->begin());
  }
  vk.vkDestroyInstance(instance, nullptr);
  return found;
}

constexpr int gpu = 0;
constexpr int otherGpu = 1;

Machine machineOf(const Uuid& first, const Uuid& second) {
  return {.gpus = {{.uuid = first}, {.uuid = second}}};
}

std::vector<std::byte> picture(Renderer& renderer, const std::shared_ptr<const Frame>& frame,
                               const DisplaySettings& settings, std::uint32_t pixels) {
  const auto target = renderer.makeTarget(pixels, pixels, TexelFormat::bgra8);
  renderer.drawPicture(*target, frame, settings, {.size = static_cast<float>(pixels)});
  return renderer.readTarget(*target).data;
}

// The first GPU is the one that the driver draws for.
class GpuPictures : public testing::Test {
 protected:
  void SetUp() override {
    const std::optional<Uuid> uuid = softwareDriver();
    if (!uuid) GTEST_SKIP() << "there is no driver of Vulkan that draws on the processor";
    uuid_ = *uuid;
    emulation::setMachine(machineOf(uuid_, {}));
  }
  void TearDown() override { emulation::setMachine({}); }

  const Uuid& uuid() const { return uuid_; }

  static std::shared_ptr<Frame> noiseOn(int device, int n, unsigned seed = 1) {
    const DeviceScope scope(device);
    return test::noise(n, seed);
  }
  static std::vector<std::byte> onTheProcessor(int n, const DisplaySettings& settings,
                                               unsigned seed = 1) {
    const DeviceScope scope(test::processorDevice());
    Renderer renderer(test::processorDevice());
    return picture(renderer, noiseOn(test::processorDevice(), n, seed), settings, 90);
  }

 private:
  Uuid uuid_ = {};
};

TEST_F(GpuPictures, MatchThoseOfTheSameFramesOnTheProcessor) {
  {
    Renderer renderer(gpu);
    for (const int n : {16, 18, 54, 16}) {
      for (const Display display : {Display::vorticity, Display::speed}) {
        const DisplaySettings settings = {.display = display, .flow = true};
        const auto seed = static_cast<unsigned>(n);
        EXPECT_EQ(picture(renderer, noiseOn(gpu, n, seed), settings, 90),
                  onTheProcessor(n, settings, seed))
            << n;
      }
    }
  }
  EXPECT_EQ(holdings(), Holdings());
}

TEST_F(GpuPictures, OfAFieldInPiecesMatchTheProcessor) {
  const int n = 3400;
  const auto frameOn = [=](int device) {
    const DeviceScope scope(device);
    return test::frameOf(
        n, test::zero, [](double x, double) { return x * (1 - x); },
        [](double, double y) { return y * (1 - y); });
  };
  const DisplaySettings settings = {.display = Display::speed};
  std::vector<std::byte> found;
  {
    Renderer renderer(gpu);
    const auto frame = frameOn(gpu);
    renderer.transferField(frame);
    EXPECT_EQ(holdings().imports, 2u);
    found = picture(renderer, frame, settings, 200);
  }
  EXPECT_EQ(holdings(), Holdings());
  Renderer renderer(test::processorDevice());
  EXPECT_EQ(found, picture(renderer, frameOn(test::processorDevice()), settings, 200));
}

TEST_F(GpuPictures, AreDrawnByTheDeviceOfTheSameNumber) {
  const MachineScope scope(machineOf({}, uuid()));
  {
    Renderer renderer(otherGpu);
    EXPECT_EQ(picture(renderer, noiseOn(otherGpu, 18), {}, 90), onTheProcessor(18, {}));
  }
  EXPECT_EQ(failureText<std::runtime_error>([] { Renderer renderer(gpu); }),
            "No CUDA-compatible Vulkan device found.");
  EXPECT_EQ(holdings(), Holdings());
}

TEST_F(GpuPictures, NeedAVulkanDeviceOfTheSameNumber) {
  Uuid nearly = uuid();
  nearly.back() = static_cast<char>(nearly.back() ^ 1);
  const MachineScope scope(machineOf(nearly, {}));
  const std::ptrdiff_t before = test::openFiles();
  for (const int device : {gpu, otherGpu})
    EXPECT_EQ(failureText<std::runtime_error>([=] { Renderer renderer(device); }),
              "No CUDA-compatible Vulkan device found.");
  EXPECT_EQ(holdings(), Holdings());
  EXPECT_EQ(test::openFiles(), before);
}

TEST_F(GpuPictures, MakeNoCudaCallsForTheSameFrame) {
  Renderer renderer(gpu);
  const auto frame = noiseOn(gpu, 16);
  const char* const functions[] = {"cudaImportExternalMemory",
                                   "cudaExternalMemoryGetMappedBuffer",
                                   "cudaMemcpyAsync",
                                   "cudaStreamSynchronize",
                                   "cudaGetDevice",
                                   "cudaSetDevice"};
  const auto calls = [&] {
    std::vector<long> counts;
    for (const char* function : functions) counts.push_back(callsOf(function));
    return counts;
  };
  renderer.transferField(frame);
  const std::vector<long> before = calls();
  renderer.transferField(frame);
  EXPECT_EQ(calls(), before);
  // Another frame of the same grid is one copy into the existing memory.
  renderer.transferField(noiseOn(gpu, 16, 2));
  EXPECT_EQ(callsOf("cudaImportExternalMemory"), before[0]);
  EXPECT_EQ(callsOf("cudaMemcpyAsync"), before[2] + 1);
}

TEST_F(GpuPictures, DoNotDependOnTheDeviceThatTheThreadSelectsLater) {
  const auto first = noiseOn(gpu, 16);
  const auto second = noiseOn(gpu, 18, 2);
  {
    Renderer renderer(gpu);
    Renderer other(test::processorDevice());
    EXPECT_EQ(picture(renderer, first, {}, 90), onTheProcessor(16, {}));
    EXPECT_EQ(picture(renderer, second, {}, 90), onTheProcessor(18, {}, 2));
    EXPECT_EQ(picture(other, noiseOn(test::processorDevice(), 16), {}, 90), onTheProcessor(16, {}));
    EXPECT_EQ(selectedDevice(), test::processorDevice());
    cudaSetDevice(otherGpu);
  }
  EXPECT_EQ(holdings().imports, 0u);
  EXPECT_EQ(holdings().streams, 0u);
  EXPECT_EQ(holdings().allocations, 2u);  // the frames
}

TEST_F(GpuPictures, DoNotLeak) {
  const auto live = [&] {
    Renderer renderer(gpu);
    picture(renderer, noiseOn(gpu, 16), {}, 90);
    picture(renderer, noiseOn(gpu, 18), {}, 90);
  };
  live();
  const std::ptrdiff_t before = test::openFiles();
  for (int round = 0; round < 5; ++round) live();
  EXPECT_EQ(test::openFiles(), before);
  EXPECT_EQ(holdings(), Holdings());
}

struct FailingStep {
  const char* function;
  const char* text;
};

class GpuPicturesWithAFailure : public GpuPictures,
                                public testing::WithParamInterface<FailingStep> {};

// A grid of another size, so that every step is executed.
TEST_P(GpuPicturesWithAFailure, NameTheFailedCallAndThenWork) {
  const auto [function, text] = GetParam();
  const std::ptrdiff_t before = test::openFiles();
  {
    const auto first = noiseOn(gpu, 16);
    const auto second = noiseOn(gpu, 18, 2);
    const std::vector<std::byte> firstPicture = onTheProcessor(16, {});
    Renderer renderer(gpu);
    failNext(function, ::cudaErrorUnknown);
    EXPECT_EQ(failureText<std::runtime_error>([&] { renderer.transferField(first); }), text);
    EXPECT_EQ(first.use_count(), 1);
    EXPECT_EQ(picture(renderer, first, {}, 90), firstPicture);
    failNext(function, ::cudaErrorUnknown);
    EXPECT_EQ(failureText<std::runtime_error>([&] { renderer.transferField(second); }), text);
    EXPECT_EQ(second.use_count(), 1);
    EXPECT_EQ(::cudaGetLastError(), ::cudaSuccess);
    EXPECT_EQ(picture(renderer, first, {}, 90), firstPicture);
    EXPECT_EQ(picture(renderer, second, {}, 90), onTheProcessor(18, {}, 2));
    // As the last that it did.
    failNext(function, ::cudaErrorUnknown);
    EXPECT_EQ(failureText<std::runtime_error>([&] { renderer.transferField(first); }), text);
  }
  EXPECT_EQ(holdings(), Holdings());
  EXPECT_EQ(test::openFiles(), before);
}

INSTANTIATE_TEST_SUITE_P(
    Steps, GpuPicturesWithAFailure,
    testing::Values(
        FailingStep{"cudaImportExternalMemory",
                    "cudaImportExternalMemory(&interop,&description): unknown error"},
        FailingStep{"cudaExternalMemoryGetMappedBuffer",
                    "cudaExternalMemoryGetMappedBuffer(&pointer,interop,&range): unknown error"},
        FailingStep{"cudaMemcpyAsync",
                    "cudaMemcpyAsync(pointer,frame->data(),bytes,cudaMemcpyDeviceToDevice,"
                    "copyStream): unknown error"},
        FailingStep{"cudaStreamSynchronize", "cudaStreamSynchronize(copyStream): unknown error"}),
    [](const auto& test) { return std::string(test.param.function); });

TEST_F(GpuPictures, AreNotStartedIfNoStreamCanBeCreated) {
  const std::ptrdiff_t before = test::openFiles();
  failNext("cudaStreamCreateWithFlags", ::cudaErrorMemoryAllocation);
  EXPECT_EQ(failureText<std::runtime_error>([] { Renderer renderer(gpu); }),
            "cudaStreamCreateWithFlags(&copyStream,cudaStreamNonBlocking): out of memory");
  EXPECT_EQ(holdings(), Holdings());
  EXPECT_EQ(test::openFiles(), before);
}

}  // namespace
}  // namespace zeph
