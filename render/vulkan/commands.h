// Work for the device, recorded and waited for.
#pragma once

#include <utility>

#include "render/vulkan/device.h"

namespace zeph::vulkan {

class Commands {
 public:
  explicit Commands(const Device& device);

  // record(VkCommandBuffer) fills the buffer; returns when the device has done it all.
  template <class Record>
  void run(Record record) {
    begin();
    std::move(record)(buffer_);
    finish();
  }

 private:
  void begin();
  void finish();

  const Device& device_;
  Owned<VkCommandPool> pool_;
  VkCommandBuffer buffer_ = VK_NULL_HANDLE;
  Owned<VkFence> done_;
};

}  // namespace zeph::vulkan
