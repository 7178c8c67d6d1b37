// The Vulkan device that draws, chosen to match the device that computes the frames.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "render/canvas.h"
#include "render/vulkan/owned.h"

namespace zeph::vulkan {

// Has a surface if a window is given.
struct Instance {
  explicit Instance(const NativeWindow* window);
  ~Instance();
  Instance(const Instance&) = delete;
  Instance& operator=(const Instance&) = delete;

  InstanceFunctions vk;
  VkInstance handle = VK_NULL_HANDLE;
  VkSurfaceKHR surface = VK_NULL_HANDLE;
};

class Device {
 public:
  // Frames that a GPU has computed are drawn by that GPU. Frames of the processor are drawn by any
  // device, preferably a real GPU. With a window, the device must be able to present there. Raises
  // std::runtime_error.
  explicit Device(int computeDevice, const NativeWindow* window = nullptr);
  ~Device();
  Device(const Device&) = delete;
  Device& operator=(const Device&) = delete;

  VkDevice handle() const { return device_; }
  VkQueue queue() const { return queue_; }
  std::uint32_t queueFamily() const { return family_; }
  std::string name() const { return properties_.deviceName; }
  void waitIdle() const { vk.vkDeviceWaitIdle(device_); }
  VkSurfaceKHR surface() const { return instance_.surface; }
  VkSurfaceCapabilitiesKHR surfaceCapabilities() const;
  std::vector<VkSurfaceFormatKHR> surfaceFormats() const;
  const VkPhysicalDeviceLimits& limits() const { return properties_.limits; }
  // Whether lines have soft edges.
  bool drawsSmoothLines() const { return smoothLines_; }
  // Whether the driver says when a numbered image of the window is shown.
  bool waitsForPresents() const { return presentWait_; }

  // For both, `step` is named in the error text.
  template <class Handle, class Create, class Info>
  Owned<Handle> make(Create function, const Info& info, typename Owned<Handle>::Destroy destroy,
                     const char* step) const;
  Owned<VkDeviceMemory> allocate(const VkMemoryRequirements& needs, VkMemoryPropertyFlags required,
                                 VkMemoryPropertyFlags preferred, const void* extension,
                                 const char* step) const;

  DeviceFunctions vk;

 private:
  void create(bool exportsMemory);

  Instance instance_;
  VkPhysicalDevice physical_ = VK_NULL_HANDLE;
  VkPhysicalDeviceProperties properties_ = {};
  VkPhysicalDeviceMemoryProperties memory_ = {};
  std::uint32_t family_ = 0;
  bool smoothLines_ = false;
  bool presentWait_ = false;
  VkDevice device_ = VK_NULL_HANDLE;
  VkQueue queue_ = VK_NULL_HANDLE;
};

void check(VkResult result, const char* step);

template <class Handle, class Create, class Info>
Owned<Handle> Device::make(Create function, const Info& info,
                           typename Owned<Handle>::Destroy destroy, const char* step) const {
  Handle handle = VK_NULL_HANDLE;
  check(function(device_, &info, nullptr, &handle), step);
  return {device_, handle, destroy};
}

}  // namespace zeph::vulkan
