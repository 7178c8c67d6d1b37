// A Vulkan buffer with its memory.
#pragma once

#include <cstddef>

#include "render/vulkan/vulkan_device.h"

namespace zeph::vulkan {

struct BufferRequest {
  std::size_t bytes = 0;
  VkBufferUsageFlags usage = 0;
  VkMemoryPropertyFlags required = 0;
  VkMemoryPropertyFlags preferred = 0;
  bool isExported = false;     // CUDA is to open its memory, by a file descriptor
  const char* step = nullptr;  // named in the error text
};

class Buffer {
 public:
  Buffer() = default;
  Buffer(const Device& device, const BufferRequest& request);

  VkBuffer get() const { return buffer_.get(); }
  VkDeviceMemory memory() const { return memory_.get(); }
  // The size of the memory in bytes, which may be more than was asked for.
  std::size_t allocated() const { return allocated_; }

 private:
  Owned<VkBuffer> buffer_;
  Owned<VkDeviceMemory> memory_;
  std::size_t allocated_ = 0;
};

// A buffer for the constants of a draw.
Buffer makeConstants(const Device& device, std::size_t bytes, const char* step);

// Records the writing of the constants of a draw; to be called before its pass begins.
void updateConstants(const Device& device, VkCommandBuffer commands, VkBuffer buffer,
                     const void* values, std::size_t bytes);

// The host's address of host-visible memory, mapped as long as the buffer lives.
void* map(const Device& device, const Buffer& buffer, const char* step);

}  // namespace zeph::vulkan
