// Owners of Vulkan objects, to be destroyed before their device.
#pragma once

#include <utility>

#include "render/vulkan/vulkan_functions.h"

namespace zeph::vulkan {

template <class Handle>
class Owned {
 public:
  using Destroy = void(VKAPI_PTR*)(VkDevice, Handle, const VkAllocationCallbacks*);

  Owned() = default;
  Owned(VkDevice device, Handle handle, Destroy destroy)
      : device_(device), handle_(handle), destroy_(destroy) {}
  Owned(Owned&& other) noexcept { swap(other); }
  Owned& operator=(Owned&& other) noexcept {
    Owned(std::move(other)).swap(*this);
    return *this;
  }
  ~Owned() {
    if (handle_ != VK_NULL_HANDLE) destroy_(device_, handle_, nullptr);
  }

  Handle get() const { return handle_; }
  explicit operator bool() const { return handle_ != VK_NULL_HANDLE; }

 private:
  void swap(Owned& other) noexcept {
    std::swap(device_, other.device_);
    std::swap(handle_, other.handle_);
    std::swap(destroy_, other.destroy_);
  }

  VkDevice device_ = VK_NULL_HANDLE;
  Handle handle_ = VK_NULL_HANDLE;
  Destroy destroy_ = nullptr;
};

}  // namespace zeph::vulkan
