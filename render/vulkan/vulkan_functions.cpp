#include "render/vulkan/vulkan_functions.h"

#include "platform/dynamic_library.h"

namespace zeph::vulkan {

GlobalFunctions globalFunctions() {
  void* library = platform::openLibrary("libvulkan.so.1");
  if (library == nullptr) return {};
  const auto find = reinterpret_cast<PFN_vkGetInstanceProcAddr>(
      platform::findFunction(library, "vkGetInstanceProcAddr"));
  // vkEnumerateInstanceVersion came with Vulkan 1.1.
  if (find == nullptr || find(nullptr, "vkEnumerateInstanceVersion") == nullptr) return {};
  GlobalFunctions functions;
  functions.vkGetInstanceProcAddr = find;
  functions.vkCreateInstance =
      reinterpret_cast<PFN_vkCreateInstance>(find(nullptr, "vkCreateInstance"));
  functions.vkEnumerateInstanceExtensionProperties =
      reinterpret_cast<PFN_vkEnumerateInstanceExtensionProperties>(
          find(nullptr, "vkEnumerateInstanceExtensionProperties"));
  return functions;
}

#define ZEPH_FIND(name) functions.name = reinterpret_cast<PFN_##name>(find(#name));

InstanceFunctions instanceFunctions(const GlobalFunctions& global, VkInstance instance) {
  const auto find = [&](const char* name) { return global.vkGetInstanceProcAddr(instance, name); };
  InstanceFunctions functions;
  ZEPH_INSTANCE_FUNCTIONS(ZEPH_FIND)
  ZEPH_SURFACE_FUNCTIONS(ZEPH_FIND)
  return functions;
}

DeviceFunctions deviceFunctions(const InstanceFunctions& instance, VkDevice device) {
  const auto find = [&](const char* name) { return instance.vkGetDeviceProcAddr(device, name); };
  DeviceFunctions functions;
  ZEPH_DEVICE_FUNCTIONS(ZEPH_FIND)
  ZEPH_SWAP_CHAIN_FUNCTIONS(ZEPH_FIND)
  ZEPH_FIND(vkGetMemoryFdKHR)
  ZEPH_FIND(vkWaitForPresentKHR)
  return functions;
}

}  // namespace zeph::vulkan
