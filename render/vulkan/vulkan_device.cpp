#include "render/vulkan/vulkan_device.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <optional>
#include <stdexcept>
#include <string_view>
#include <vector>

#include "device/check.h"
#include "device/runtime.h"
#include "platform/dynamic_library.h"
#include "render/failure.h"
#include "render/graphics_use.h"

namespace zeph::vulkan {
namespace {

constexpr const char* noDevice = "No Vulkan device found.";
constexpr const char* noMatchingDevice = "No CUDA-compatible Vulkan device found.";

constexpr const char* exportExtension = VK_KHR_EXTERNAL_MEMORY_FD_EXTENSION_NAME;
constexpr const char* linesExtension = VK_EXT_LINE_RASTERIZATION_EXTENSION_NAME;
constexpr const char* presentIdExtension = VK_KHR_PRESENT_ID_EXTENSION_NAME;
constexpr const char* presentWaitExtension = VK_KHR_PRESENT_WAIT_EXTENSION_NAME;

// A device of the machine, with what decides whether and how it can be used.
struct Candidate {
  VkPhysicalDevice device = VK_NULL_HANDLE;
  VkPhysicalDeviceProperties properties = {};
  cudaUUID_t uuid;
  std::optional<std::uint32_t> queueFamily;
  bool exportsMemory = false;
  bool knowsLines = false;
  bool knowsPresentIds = false;
  bool knowsPresentWait = false;
};

// For Vulkan's functions that are called twice: for the length of a list, then for its items.
template <class Item, class List>
std::vector<Item> listOf(List list) {
  std::uint32_t count = 0;
  list(&count, nullptr);
  std::vector<Item> items(count);
  list(&count, items.data());
  items.resize(count);
  return items;
}

std::optional<std::uint32_t> graphicsFamily(const InstanceFunctions& vk, VkPhysicalDevice device) {
  const auto families =
      listOf<VkQueueFamilyProperties>([&](std::uint32_t* count, VkQueueFamilyProperties* items) {
        vk.vkGetPhysicalDeviceQueueFamilyProperties(device, count, items);
      });
  for (std::uint32_t k = 0; k < families.size(); ++k)
    if ((families[k].queueFlags & VK_QUEUE_GRAPHICS_BIT) != 0) return k;
  return std::nullopt;
}

Candidate describe(const InstanceFunctions& vk, VkPhysicalDevice device) {
  Candidate candidate;
  candidate.device = device;
  VkPhysicalDeviceIDProperties ids = {.sType = VK_STRUCTURE_TYPE_PHYSICAL_DEVICE_ID_PROPERTIES};
  VkPhysicalDeviceProperties2 properties = {.sType = VK_STRUCTURE_TYPE_PHYSICAL_DEVICE_PROPERTIES_2,
                                            .pNext = &ids};
  vk.vkGetPhysicalDeviceProperties2(device, &properties);
  candidate.properties = properties.properties;
  static_assert(sizeof(candidate.uuid.bytes) == sizeof(ids.deviceUUID));
  std::memcpy(candidate.uuid.bytes, ids.deviceUUID, sizeof(ids.deviceUUID));
  candidate.queueFamily = graphicsFamily(vk, device);
  const auto extensions =
      listOf<VkExtensionProperties>([&](std::uint32_t* count, VkExtensionProperties* items) {
        vk.vkEnumerateDeviceExtensionProperties(device, nullptr, count, items);
      });
  for (const VkExtensionProperties& extension : extensions) {
    const std::string_view name = extension.extensionName;
    if (name == exportExtension) candidate.exportsMemory = true;
    if (name == linesExtension) candidate.knowsLines = true;
    if (name == presentIdExtension) candidate.knowsPresentIds = true;
    if (name == presentWaitExtension) candidate.knowsPresentWait = true;
  }
  return candidate;
}

bool canPresent(const Instance& instance, const Candidate& candidate) {
  if (instance.surface == VK_NULL_HANDLE) return true;
  VkBool32 supported = VK_FALSE;
  check(instance.vk.vkGetPhysicalDeviceSurfaceSupportKHR(candidate.device, *candidate.queueFamily,
                                                         instance.surface, &supported),
        "Ask for presentation");
  return supported == VK_TRUE;
}

std::vector<Candidate> candidatesOf(const Instance& instance) {
  std::vector<Candidate> candidates;
  const auto devices = listOf<VkPhysicalDevice>([&](std::uint32_t* count, VkPhysicalDevice* items) {
    instance.vk.vkEnumeratePhysicalDevices(instance.handle, count, items);
  });
  for (VkPhysicalDevice device : devices) {
    const Candidate candidate = describe(instance.vk, device);
    if (candidate.properties.apiVersion >= VK_API_VERSION_1_1 && candidate.queueFamily &&
        canPresent(instance, candidate))
      candidates.push_back(candidate);
  }
  return candidates;
}

// Among devices that can all show the frames, the lower rank is preferred.
int rankOf(VkPhysicalDeviceType type) {
  switch (type) {
    case VK_PHYSICAL_DEVICE_TYPE_DISCRETE_GPU:
      return 0;
    case VK_PHYSICAL_DEVICE_TYPE_INTEGRATED_GPU:
      return 1;
    case VK_PHYSICAL_DEVICE_TYPE_VIRTUAL_GPU:
      return 2;
    case VK_PHYSICAL_DEVICE_TYPE_CPU:
      return 4;
    default:
      return 3;
  }
}

const Candidate& bestOf(const std::vector<Candidate>& candidates) {
  if (candidates.empty()) throw std::runtime_error(platform::loadingFailure(noDevice));
  return *std::min_element(
      candidates.begin(), candidates.end(), [](const Candidate& a, const Candidate& b) {
        return rankOf(a.properties.deviceType) < rankOf(b.properties.deviceType);
      });
}

const Candidate& matchOf(const std::vector<Candidate>& candidates, int computeDevice) {
  cudaDeviceProp properties;
  zeph::check(cudaGetDeviceProperties(&properties, computeDevice),
              "cudaGetDeviceProperties(&properties,cudaDevice)");
  for (const Candidate& candidate : candidates)
    if (candidate.exportsMemory &&
        std::memcmp(&candidate.uuid, &properties.uuid, sizeof(properties.uuid)) == 0)
      return candidate;
  throw std::runtime_error(noMatchingDevice);
}

// The extensions for a window and, where available, for more colour spaces.
std::vector<const char*> surfaceExtensions(const GlobalFunctions& vk) {
  std::vector<const char*> names = {VK_KHR_SURFACE_EXTENSION_NAME,
                                    VK_KHR_XCB_SURFACE_EXTENSION_NAME};
  const auto known =
      listOf<VkExtensionProperties>([&](std::uint32_t* count, VkExtensionProperties* items) {
        vk.vkEnumerateInstanceExtensionProperties(nullptr, count, items);
      });
  for (const VkExtensionProperties& extension : known)
    if (std::string_view(extension.extensionName) == VK_EXT_SWAPCHAIN_COLOR_SPACE_EXTENSION_NAME)
      names.push_back(VK_EXT_SWAPCHAIN_COLOR_SPACE_EXTENSION_NAME);
  return names;
}

// An instance without a device, which is never destroyed and so keeps the drivers loaded. Loading
// them again for each picture would take longer than drawing a small one.
std::atomic<VkInstance> driverKeeper = VK_NULL_HANDLE;

void keepDrivers(const GlobalFunctions& global, const InstanceFunctions& vk,
                 const VkApplicationInfo& application) {
  if (driverKeeper != VK_NULL_HANDLE) return;
  const VkInstanceCreateInfo info = {.sType = VK_STRUCTURE_TYPE_INSTANCE_CREATE_INFO,
                                     .pApplicationInfo = &application};
  VkInstance made = VK_NULL_HANDLE;
  if (global.vkCreateInstance(&info, nullptr, &made) != VK_SUCCESS) return;
  VkInstance none = VK_NULL_HANDLE;
  if (!driverKeeper.compare_exchange_strong(none, made)) vk.vkDestroyInstance(made, nullptr);
}

bool canSmoothLines(const InstanceFunctions& vk, VkPhysicalDevice device) {
  VkPhysicalDeviceLineRasterizationFeaturesEXT lines = {
      .sType = VK_STRUCTURE_TYPE_PHYSICAL_DEVICE_LINE_RASTERIZATION_FEATURES_EXT};
  VkPhysicalDeviceFeatures2 features = {.sType = VK_STRUCTURE_TYPE_PHYSICAL_DEVICE_FEATURES_2,
                                        .pNext = &lines};
  vk.vkGetPhysicalDeviceFeatures2(device, &features);
  return lines.smoothLines == VK_TRUE;
}

bool canWaitForPresents(const InstanceFunctions& vk, const Candidate& candidate) {
  if (!candidate.knowsPresentIds || !candidate.knowsPresentWait) return false;
  VkPhysicalDevicePresentWaitFeaturesKHR wait = {
      .sType = VK_STRUCTURE_TYPE_PHYSICAL_DEVICE_PRESENT_WAIT_FEATURES_KHR};
  VkPhysicalDevicePresentIdFeaturesKHR id = {
      .sType = VK_STRUCTURE_TYPE_PHYSICAL_DEVICE_PRESENT_ID_FEATURES_KHR, .pNext = &wait};
  VkPhysicalDeviceFeatures2 features = {.sType = VK_STRUCTURE_TYPE_PHYSICAL_DEVICE_FEATURES_2,
                                        .pNext = &id};
  vk.vkGetPhysicalDeviceFeatures2(candidate.device, &features);
  return id.presentId == VK_TRUE && wait.presentWait == VK_TRUE;
}

}  // namespace

void check(VkResult result, const char* step) {
  checkResult(result, step);
}

Instance::Instance(const NativeWindow* window) {
  const GlobalFunctions global = globalFunctions();
  if (global.vkCreateInstance == nullptr)
    throw std::runtime_error(platform::loadingFailure(noDevice));
  const VkApplicationInfo application = {.sType = VK_STRUCTURE_TYPE_APPLICATION_INFO,
                                         .pApplicationName = "zephane",
                                         .apiVersion = VK_API_VERSION_1_1};
  const std::vector<const char*> extensions =
      window != nullptr ? surfaceExtensions(global) : std::vector<const char*>();
  const VkInstanceCreateInfo info = {
      .sType = VK_STRUCTURE_TYPE_INSTANCE_CREATE_INFO,
      .pApplicationInfo = &application,
      .enabledExtensionCount = static_cast<std::uint32_t>(extensions.size()),
      .ppEnabledExtensionNames = extensions.data()};
  const VkResult result = global.vkCreateInstance(&info, nullptr, &handle);
  // The drivers are loaded and have not been used yet. Statics of theirs may be destroyed already.
  renewProcessEndGuard();
  if (processIsEnding()) throw std::runtime_error("The process is ending.");
  // There is a loader but no driver.
  if (result == VK_ERROR_INCOMPATIBLE_DRIVER)
    throw std::runtime_error(platform::loadingFailure(noDevice));
  check(result, "Create Vulkan instance");
  vk = instanceFunctions(global, handle);
  keepDrivers(global, vk, application);
  if (window == nullptr) return;
  const VkXcbSurfaceCreateInfoKHR target = {
      .sType = VK_STRUCTURE_TYPE_XCB_SURFACE_CREATE_INFO_KHR,
      .connection = static_cast<xcb_connection_t*>(window->connection),
      .window = static_cast<xcb_window_t>(window->window)};
  const VkResult made = vk.vkCreateXcbSurfaceKHR(handle, &target, nullptr, &surface);
  if (made < 0) vk.vkDestroyInstance(handle, nullptr);
  check(made, "Create window surface");
}

Instance::~Instance() {
  if (surface != VK_NULL_HANDLE) vk.vkDestroySurfaceKHR(handle, surface, nullptr);
  vk.vkDestroyInstance(handle, nullptr);
}

Device::Device(int computeDevice, const NativeWindow* window) : instance_(window) {
  const std::vector<Candidate> candidates = candidatesOf(instance_);
  const bool shares = !deviceIsSynchronous();
  const Candidate& chosen = shares ? matchOf(candidates, computeDevice) : bestOf(candidates);
  physical_ = chosen.device;
  properties_ = chosen.properties;
  family_ = *chosen.queueFamily;
  instance_.vk.vkGetPhysicalDeviceMemoryProperties(physical_, &memory_);
  smoothLines_ = chosen.knowsLines && canSmoothLines(instance_.vk, physical_);
  presentWait_ = window != nullptr && canWaitForPresents(instance_.vk, chosen);
  create(shares);
}

Device::~Device() {
  vk.vkDeviceWaitIdle(device_);
  vk.vkDestroyDevice(device_, nullptr);
}

void Device::create(bool exportsMemory) {
  const float priority = 1;
  const VkDeviceQueueCreateInfo queue = {.sType = VK_STRUCTURE_TYPE_DEVICE_QUEUE_CREATE_INFO,
                                         .queueFamilyIndex = family_,
                                         .queueCount = 1,
                                         .pQueuePriorities = &priority};
  std::vector<const char*> extensions;
  if (surface() != VK_NULL_HANDLE) extensions.push_back(VK_KHR_SWAPCHAIN_EXTENSION_NAME);
  if (exportsMemory) extensions.push_back(exportExtension);
  void* features = nullptr;
  VkPhysicalDeviceLineRasterizationFeaturesEXT lines = {
      .sType = VK_STRUCTURE_TYPE_PHYSICAL_DEVICE_LINE_RASTERIZATION_FEATURES_EXT,
      .smoothLines = VK_TRUE};
  VkPhysicalDevicePresentIdFeaturesKHR id = {
      .sType = VK_STRUCTURE_TYPE_PHYSICAL_DEVICE_PRESENT_ID_FEATURES_KHR, .presentId = VK_TRUE};
  VkPhysicalDevicePresentWaitFeaturesKHR wait = {
      .sType = VK_STRUCTURE_TYPE_PHYSICAL_DEVICE_PRESENT_WAIT_FEATURES_KHR,
      .pNext = &id,
      .presentWait = VK_TRUE};
  if (smoothLines_) {
    extensions.push_back(linesExtension);
    features = &lines;
  }
  if (presentWait_) {
    extensions.insert(extensions.end(), {presentIdExtension, presentWaitExtension});
    id.pNext = features;
    features = &wait;
  }
  const VkDeviceCreateInfo info = {
      .sType = VK_STRUCTURE_TYPE_DEVICE_CREATE_INFO,
      .pNext = features,
      .queueCreateInfoCount = 1,
      .pQueueCreateInfos = &queue,
      .enabledExtensionCount = static_cast<std::uint32_t>(extensions.size()),
      .ppEnabledExtensionNames = extensions.data()};
  check(instance_.vk.vkCreateDevice(physical_, &info, nullptr, &device_), "Create Vulkan device");
  vk = deviceFunctions(instance_.vk, device_);
  vk.vkGetDeviceQueue(device_, family_, 0, &queue_);
}

VkSurfaceCapabilitiesKHR Device::surfaceCapabilities() const {
  VkSurfaceCapabilitiesKHR capabilities = {};
  check(instance_.vk.vkGetPhysicalDeviceSurfaceCapabilitiesKHR(physical_, surface(), &capabilities),
        "Ask window surface");
  return capabilities;
}

std::vector<VkSurfaceFormatKHR> Device::surfaceFormats() const {
  return listOf<VkSurfaceFormatKHR>([this](std::uint32_t* count, VkSurfaceFormatKHR* items) {
    instance_.vk.vkGetPhysicalDeviceSurfaceFormatsKHR(physical_, surface(), count, items);
  });
}

Owned<VkDeviceMemory> Device::allocate(const VkMemoryRequirements& needs,
                                       VkMemoryPropertyFlags required,
                                       VkMemoryPropertyFlags preferred, const void* extension,
                                       const char* step) const {
  std::optional<std::uint32_t> found;
  for (std::uint32_t type = 0; type < memory_.memoryTypeCount; ++type) {
    const VkMemoryPropertyFlags flags = memory_.memoryTypes[type].propertyFlags;
    if ((needs.memoryTypeBits >> type & 1) == 0 || (flags & required) != required) continue;
    if ((flags & preferred) == preferred) {
      found = type;
      break;
    }
    if (!found) found = type;
  }
  if (!found) failStep(static_cast<std::uint32_t>(VK_ERROR_FEATURE_NOT_PRESENT), step);
  const VkMemoryAllocateInfo info = {.sType = VK_STRUCTURE_TYPE_MEMORY_ALLOCATE_INFO,
                                     .pNext = extension,
                                     .allocationSize = needs.size,
                                     .memoryTypeIndex = *found};
  return make<VkDeviceMemory>(vk.vkAllocateMemory, info, vk.vkFreeMemory, step);
}

}  // namespace zeph::vulkan
