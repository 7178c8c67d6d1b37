#include "boundary/system_description.h"

#include <cstddef>
#include <limits>
#include <optional>
#include <stdexcept>
#include <string>

#include "boundary/config.h"
#include "device/check.h"
#include "device/runtime.h"
#include "platform/fork.h"
#include "platform/system.h"
#include "platform/system_memory.h"
#include "render/graphics_use.h"
#include "render/renderer.h"

namespace zeph {

std::uint32_t mainThreadId = 0;
std::int32_t deviceId = 0;
std::string& gpuName = *new std::string;

namespace {

// A forked child is a process of its own: it has not been initialized, and none of its threads is
// the one that its parent calls the main thread.
const platform::AroundForks aroundForks(nullptr, nullptr, [] { mainThreadId = 0; });

constexpr int abiVersion = 1;

void adoptMainThread() {
  const std::uint32_t caller = platform::threadId();
  if (mainThreadId != 0 && mainThreadId != caller)
    throw std::runtime_error("Initialize on the main thread.");
  mainThreadId = caller;
}

Json describeSystem(const cudaDeviceProp& device) {
  Json object;
  object["abi_version"] = abiVersion;
  object["backend"] = deviceBackend();
  object["os"] = platform::systemName();
  object["gpu"] = gpuName;
  object["physical_memory_bytes"] = platform::physicalMemory();
  object["gpu_memory_bytes"] = device.totalGlobalMem;
  object["defaults"] = configToJson(Config{});
  object["capabilities"] = {
      {"native_rendering", true}, {"forcing", false}, {"drag", false}, {"vortex_injection", false}};
  return object;
}

void addVersions(Json& object) {
  int version = 0;
  if (cudaRuntimeGetVersion(&version) == cudaSuccess) object["cuda_runtime_version"] = version;
  if (cudaDriverGetVersion(&version) == cudaSuccess) object["cuda_driver_version"] = version;
}

void addDevice(Json& object, int device) {
  cudaDeviceProp prop;
  std::size_t available = 0, total = 0;
  check(cudaGetDeviceProperties(&prop, device), "cudaGetDeviceProperties(&prop,device)");
  check(cudaMemGetInfo(&available, &total), "cudaMemGetInfo(&available,&total)");
  object["device_index"] = device;
  object["compute_capability"] = std::to_string(prop.major) + "." + std::to_string(prop.minor);
  object["available_memory_bytes"] = available;
  object["precision"] = "float32";
}

// One that the display can show, if not every one can. The GPUs come first; the processor, always
// the last device, runs every kernel.
int firstUsableDevice() {
  if (const std::optional<int> shown = displayDevice()) return *shown;
  int count = 0;
  check(cudaGetDeviceCount(&count), "cudaGetDeviceCount(&count)");
  int device = 0;
  while (device < count - 1 && !deviceRunsKernels(device)) ++device;
  return device;
}

// After a success, a device that fails leaves the earlier one in force, with the engines on it. The
// first device stays chosen even if it fails, so that nothing runs on another one instead.
cudaDeviceProp adoptDevice() {
  const std::int32_t before = deviceId;
  deviceId = chooseDevice();
  try {
    check(cudaSetDevice(deviceId), "cudaSetDevice(deviceId)");
    cudaDeviceProp prop;
    check(cudaGetDeviceProperties(&prop, deviceId), "cudaGetDeviceProperties(&prop,deviceId)");
    gpuName = prop.name;
    return prop;
  } catch (const std::exception&) {
    if (!gpuName.empty()) deviceId = before;
    throw;
  }
}

}  // namespace

std::int32_t chooseDevice() {
  const std::optional<std::string> text = platform::environmentVariable("ZEPHANE_DEVICE");
  if (!text) return firstUsableDevice();
  if (!isDecimal(*text))
    throw std::invalid_argument("ZEPHANE_DEVICE must be a nonnegative device index.");
  constexpr std::int32_t largest = std::numeric_limits<std::int32_t>::max();
  return static_cast<std::int32_t>(decimalValue(*text, largest, "stoi argument out of range"));
}

Json initialize() {
  adoptMainThread();
  guardEndOfFirstThread();
  const cudaDeviceProp prop = adoptDevice();
  Json object = describeSystem(prop);
  addVersions(object);
  addDevice(object, deviceId);
  return object;
}

}  // namespace zeph
