#include "render/vulkan/commands.h"

#include <cstdint>
#include <limits>

namespace zeph::vulkan {
namespace {

constexpr const char* step = "Draw picture";

}  // namespace

Commands::Commands(const Device& device) : device_(device) {
  const DeviceFunctions& vk = device_.vk;
  const VkCommandPoolCreateInfo pool = {.sType = VK_STRUCTURE_TYPE_COMMAND_POOL_CREATE_INFO,
                                        .flags = VK_COMMAND_POOL_CREATE_RESET_COMMAND_BUFFER_BIT,
                                        .queueFamilyIndex = device_.queueFamily()};
  pool_ = device_.make<VkCommandPool>(vk.vkCreateCommandPool, pool, vk.vkDestroyCommandPool,
                                      "Create command pool");
  const VkCommandBufferAllocateInfo request = {
      .sType = VK_STRUCTURE_TYPE_COMMAND_BUFFER_ALLOCATE_INFO,
      .commandPool = pool_.get(),
      .level = VK_COMMAND_BUFFER_LEVEL_PRIMARY,
      .commandBufferCount = 1};
  check(vk.vkAllocateCommandBuffers(device_.handle(), &request, &buffer_), "Create commands");
  const VkFenceCreateInfo fence = {.sType = VK_STRUCTURE_TYPE_FENCE_CREATE_INFO};
  done_ = device_.make<VkFence>(vk.vkCreateFence, fence, vk.vkDestroyFence, "Create fence");
}

void Commands::begin() {
  const VkCommandBufferBeginInfo info = {.sType = VK_STRUCTURE_TYPE_COMMAND_BUFFER_BEGIN_INFO,
                                         .flags = VK_COMMAND_BUFFER_USAGE_ONE_TIME_SUBMIT_BIT};
  check(device_.vk.vkBeginCommandBuffer(buffer_, &info), step);
}

void Commands::finish() {
  const DeviceFunctions& vk = device_.vk;
  check(vk.vkEndCommandBuffer(buffer_), step);
  const VkSubmitInfo info = {
      .sType = VK_STRUCTURE_TYPE_SUBMIT_INFO, .commandBufferCount = 1, .pCommandBuffers = &buffer_};
  const VkFence done = done_.get();
  check(vk.vkResetFences(device_.handle(), 1, &done), step);
  check(vk.vkQueueSubmit(device_.queue(), 1, &info, done), step);
  check(vk.vkWaitForFences(device_.handle(), 1, &done, VK_TRUE,
                           std::numeric_limits<std::uint64_t>::max()),
        step);
}

}  // namespace zeph::vulkan
