// Records work for the device and submits it, one submission at a time.
#pragma once

#include <cstdint>

#include "render/vulkan/vulkan_device.h"

namespace zeph::vulkan {

class Commands {
 public:
  explicit Commands(const Device& device);
  // Waits until the device is done.
  ~Commands();
  Commands(const Commands&) = delete;
  Commands& operator=(const Commands&) = delete;

  // record(VkCommandBuffer) fills the buffer. Returns when the device has done the work.
  template <class Record>
  void run(Record record) {
    begin();
    record(buffer_);
    submit(VK_NULL_HANDLE, VK_NULL_HANDLE);
    wait();
  }

  // The same, but returns at once. The drawing waits for one semaphore and signals the other.
  template <class Record>
  void start(Record record, VkSemaphore awaited, VkSemaphore signalled) {
    begin();
    record(buffer_);
    submit(awaited, signalled);
  }

  // Waits until the device is done, at most so many nanoseconds. False if it is not.
  bool wait(std::uint64_t nanoseconds = UINT64_MAX);

 private:
  void begin();
  void submit(VkSemaphore awaited, VkSemaphore signalled);

  const Device& device_;
  Owned<VkCommandPool> pool_;
  VkCommandBuffer buffer_ = VK_NULL_HANDLE;
  Owned<VkFence> done_;
  bool isUnderWay_ = false;
};

}  // namespace zeph::vulkan
