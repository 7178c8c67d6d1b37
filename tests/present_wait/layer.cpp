// A Vulkan layer that adds VK_KHR_present_id and VK_KHR_present_wait to a driver that lacks them,
// for tests/abi/test_ui_present_wait.py. What is presented counts as shown at once, or never if
// PRESENTS_ARE_NEVER_SHOWN is set. Writes a line to the file PRESENT_LOG for each call:
//
//   present CHAIN ID
//   wait CHAIN ID NANOSECONDS
#include <vulkan/vk_layer.h>
#include <vulkan/vulkan.h>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>
#include <string_view>
#include <thread>
#include <vector>

namespace {

constexpr const char* extensions[] = {VK_KHR_PRESENT_ID_EXTENSION_NAME,
                                      VK_KHR_PRESENT_WAIT_EXTENSION_NAME};

// The functions of what is below the layer. Those of an instance must be asked for while it is
// made.
struct InstanceBelow {
  PFN_vkGetInstanceProcAddr find;
  PFN_vkEnumerateDeviceExtensionProperties enumerateExtensions;
  PFN_vkGetPhysicalDeviceFeatures2 getFeatures;
};
struct DeviceBelow {
  PFN_vkGetDeviceProcAddr find;
  PFN_vkQueuePresentKHR present;
};

// Instances, devices and what belongs to them begin with the address of a table, which is the same
// for all that belong to one another.
std::mutex mutex;
std::map<void*, InstanceBelow> instances;
std::map<void*, DeviceBelow> devices;

template <class Below, class Handle>
Below below(std::map<void*, Below>& all, Handle handle) {
  const std::lock_guard lock(mutex);
  return all.at(*reinterpret_cast<void**>(handle));
}

template <class Below, class Handle>
void remember(std::map<void*, Below>& all, Handle handle, const Below& functions) {
  const std::lock_guard lock(mutex);
  all[*reinterpret_cast<void**>(handle)] = functions;
}

template <class Info>
VkLayerInstanceCreateInfo* linkIn(const Info* info, VkStructureType type) {
  auto* next = static_cast<VkLayerInstanceCreateInfo*>(const_cast<void*>(info->pNext));
  while (next->sType != type || next->function != VK_LAYER_LINK_INFO)
    next = static_cast<VkLayerInstanceCreateInfo*>(const_cast<void*>(next->pNext));
  return next;
}

bool isOurs(VkStructureType type) {
  return type == VK_STRUCTURE_TYPE_PHYSICAL_DEVICE_PRESENT_ID_FEATURES_KHR ||
         type == VK_STRUCTURE_TYPE_PHYSICAL_DEVICE_PRESENT_WAIT_FEATURES_KHR ||
         type == VK_STRUCTURE_TYPE_PRESENT_ID_KHR;
}

// Takes what the driver does not know out of a chain, and puts it back when it is destroyed.
class Unlinked {
 public:
  explicit Unlinked(const void* const* first) {
    auto* link = reinterpret_cast<VkBaseOutStructure**>(const_cast<void**>(first));
    while (*link != nullptr) {
      if (isOurs((*link)->sType)) {
        undo_.push_back({link, *link});
        *link = (*link)->pNext;
      } else {
        link = &(*link)->pNext;
      }
    }
  }
  ~Unlinked() {
    for (; !undo_.empty(); undo_.pop_back()) *undo_.back().link = undo_.back().was;
  }
  Unlinked(const Unlinked&) = delete;
  Unlinked& operator=(const Unlinked&) = delete;

 private:
  struct Undo {
    VkBaseOutStructure** link;
    VkBaseOutStructure* was;
  };
  std::vector<Undo> undo_;
};

template <class... Numbers>
void log(const char* format, Numbers... numbers) {
  std::FILE* file = std::fopen(std::getenv("PRESENT_LOG"), "a");
  std::fprintf(file, format, static_cast<unsigned long long>(numbers)...);
  std::fclose(file);
}

VkResult VKAPI_CALL createInstance(const VkInstanceCreateInfo* info,
                                   const VkAllocationCallbacks* allocator, VkInstance* instance) {
  VkLayerInstanceCreateInfo* link = linkIn(info, VK_STRUCTURE_TYPE_LOADER_INSTANCE_CREATE_INFO);
  const PFN_vkGetInstanceProcAddr find = link->u.pLayerInfo->pfnNextGetInstanceProcAddr;
  link->u.pLayerInfo = link->u.pLayerInfo->pNext;
  const auto create = reinterpret_cast<PFN_vkCreateInstance>(find(nullptr, "vkCreateInstance"));
  const VkResult result = create(info, allocator, instance);
  if (result != VK_SUCCESS) return result;
  const auto in = [&](const char* name) { return find(*instance, name); };
  remember(
      instances, *instance,
      {find,
       reinterpret_cast<PFN_vkEnumerateDeviceExtensionProperties>(
           in("vkEnumerateDeviceExtensionProperties")),
       reinterpret_cast<PFN_vkGetPhysicalDeviceFeatures2>(in("vkGetPhysicalDeviceFeatures2"))});
  return result;
}

VkResult VKAPI_CALL createDevice(VkPhysicalDevice physical, const VkDeviceCreateInfo* info,
                                 const VkAllocationCallbacks* allocator, VkDevice* device) {
  auto* link = reinterpret_cast<VkLayerDeviceCreateInfo*>(
      linkIn(info, VK_STRUCTURE_TYPE_LOADER_DEVICE_CREATE_INFO));
  const PFN_vkGetInstanceProcAddr find = link->u.pLayerInfo->pfnNextGetInstanceProcAddr;
  const PFN_vkGetDeviceProcAddr findBelow = link->u.pLayerInfo->pfnNextGetDeviceProcAddr;
  link->u.pLayerInfo = link->u.pLayerInfo->pNext;
  std::vector<const char*> names;
  for (std::uint32_t k = 0; k < info->enabledExtensionCount; ++k) {
    const std::string_view name = info->ppEnabledExtensionNames[k];
    if (name != extensions[0] && name != extensions[1]) names.push_back(name.data());
  }
  VkDeviceCreateInfo known = *info;
  known.enabledExtensionCount = static_cast<std::uint32_t>(names.size());
  known.ppEnabledExtensionNames = names.data();
  const Unlinked unlinked(&known.pNext);
  const auto create = reinterpret_cast<PFN_vkCreateDevice>(find(nullptr, "vkCreateDevice"));
  const VkResult result = create(physical, &known, allocator, device);
  if (result != VK_SUCCESS) return result;
  remember(devices, *device,
           {findBelow,
            reinterpret_cast<PFN_vkQueuePresentKHR>(findBelow(*device, "vkQueuePresentKHR"))});
  return result;
}

VkResult VKAPI_CALL enumerateExtensions(VkPhysicalDevice device, const char* layer,
                                        std::uint32_t* count, VkExtensionProperties* properties) {
  const std::uint32_t room = *count;
  const VkResult result =
      below(instances, device).enumerateExtensions(device, layer, count, properties);
  for (const char* name : extensions) {
    if (properties != nullptr && *count >= room) return VK_INCOMPLETE;
    if (properties != nullptr) {
      properties[*count] = {.extensionName = {}, .specVersion = 1};
      std::strcpy(properties[*count].extensionName, name);
    }
    ++*count;
  }
  return result;
}

void VKAPI_CALL getFeatures(VkPhysicalDevice device, VkPhysicalDeviceFeatures2* features) {
  below(instances, device).getFeatures(device, features);
  for (auto* next = static_cast<VkBaseOutStructure*>(features->pNext); next != nullptr;
       next = next->pNext) {
    if (next->sType == VK_STRUCTURE_TYPE_PHYSICAL_DEVICE_PRESENT_ID_FEATURES_KHR)
      reinterpret_cast<VkPhysicalDevicePresentIdFeaturesKHR*>(next)->presentId = VK_TRUE;
    if (next->sType == VK_STRUCTURE_TYPE_PHYSICAL_DEVICE_PRESENT_WAIT_FEATURES_KHR)
      reinterpret_cast<VkPhysicalDevicePresentWaitFeaturesKHR*>(next)->presentWait = VK_TRUE;
  }
}

VkResult VKAPI_CALL present(VkQueue queue, const VkPresentInfoKHR* info) {
  const auto* id = static_cast<const VkPresentIdKHR*>(info->pNext);
  log("present %llx %llu\n", reinterpret_cast<std::uintptr_t>(info->pSwapchains[0]),
      id != nullptr ? id->pPresentIds[0] : 0);
  VkPresentInfoKHR known = *info;
  const Unlinked unlinked(&known.pNext);
  return below(devices, queue).present(queue, &known);
}

VkResult VKAPI_CALL waitForPresent(VkDevice, VkSwapchainKHR chain, std::uint64_t id,
                                   std::uint64_t nanoseconds) {
  log("wait %llx %llu %llu\n", reinterpret_cast<std::uintptr_t>(chain), id, nanoseconds);
  if (std::getenv("PRESENTS_ARE_NEVER_SHOWN") == nullptr) return VK_SUCCESS;
  std::this_thread::sleep_for(std::chrono::nanoseconds(nanoseconds));
  return VK_TIMEOUT;
}

template <class Function>
PFN_vkVoidFunction asVoid(Function* function) {
  return reinterpret_cast<PFN_vkVoidFunction>(function);
}

PFN_vkVoidFunction VKAPI_CALL findInDevice(VkDevice device, const char* name) {
  const std::string_view wanted = name;
  if (wanted == "vkGetDeviceProcAddr") return asVoid(findInDevice);
  if (wanted == "vkQueuePresentKHR") return asVoid(present);
  if (wanted == "vkWaitForPresentKHR") return asVoid(waitForPresent);
  return below(devices, device).find(device, name);
}

PFN_vkVoidFunction VKAPI_CALL findInInstance(VkInstance instance, const char* name) {
  const std::string_view wanted = name;
  if (wanted == "vkGetInstanceProcAddr") return asVoid(findInInstance);
  if (wanted == "vkGetDeviceProcAddr") return asVoid(findInDevice);
  if (wanted == "vkCreateInstance") return asVoid(createInstance);
  if (wanted == "vkCreateDevice") return asVoid(createDevice);
  if (wanted == "vkEnumerateDeviceExtensionProperties") return asVoid(enumerateExtensions);
  if (wanted == "vkGetPhysicalDeviceFeatures2") return asVoid(getFeatures);
  if (instance == VK_NULL_HANDLE) return nullptr;
  return below(instances, instance).find(instance, name);
}

}  // namespace

extern "C" __attribute__((visibility("default"))) VkResult vkNegotiateLoaderLayerInterfaceVersion(
    VkNegotiateLayerInterface* negotiation) {
  negotiation->loaderLayerInterfaceVersion = 2;
  negotiation->pfnGetInstanceProcAddr = findInInstance;
  negotiation->pfnGetDeviceProcAddr = findInDevice;
  negotiation->pfnGetPhysicalDeviceProcAddr = nullptr;
  return VK_SUCCESS;
}
