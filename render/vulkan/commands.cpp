#include "render/vulkan/commands.h"

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

Commands::~Commands() {
  const VkFence done = done_.get();
  if (isUnderWay_) device_.vk.vkWaitForFences(device_.handle(), 1, &done, VK_TRUE, UINT64_MAX);
}

void Commands::begin() {
  wait();
  const VkCommandBufferBeginInfo info = {.sType = VK_STRUCTURE_TYPE_COMMAND_BUFFER_BEGIN_INFO,
                                         .flags = VK_COMMAND_BUFFER_USAGE_ONE_TIME_SUBMIT_BIT};
  check(device_.vk.vkBeginCommandBuffer(buffer_, &info), step);
}

void Commands::submit(VkSemaphore awaited, VkSemaphore signalled) {
  const DeviceFunctions& vk = device_.vk;
  check(vk.vkEndCommandBuffer(buffer_), step);
  const VkPipelineStageFlags drawing = VK_PIPELINE_STAGE_COLOR_ATTACHMENT_OUTPUT_BIT;
  const VkSubmitInfo info = {.sType = VK_STRUCTURE_TYPE_SUBMIT_INFO,
                             .waitSemaphoreCount = awaited != VK_NULL_HANDLE ? 1u : 0u,
                             .pWaitSemaphores = &awaited,
                             .pWaitDstStageMask = &drawing,
                             .commandBufferCount = 1,
                             .pCommandBuffers = &buffer_,
                             .signalSemaphoreCount = signalled != VK_NULL_HANDLE ? 1u : 0u,
                             .pSignalSemaphores = &signalled};
  const VkFence done = done_.get();
  check(vk.vkResetFences(device_.handle(), 1, &done), step);
  check(vk.vkQueueSubmit(device_.queue(), 1, &info, done), step);
  isUnderWay_ = true;
}

bool Commands::wait(std::uint64_t nanoseconds) {
  if (!isUnderWay_) return true;
  const VkFence done = done_.get();
  const VkResult result =
      device_.vk.vkWaitForFences(device_.handle(), 1, &done, VK_TRUE, nanoseconds);
  check(result, step);
  isUnderWay_ = result == VK_TIMEOUT;
  return !isUnderWay_;
}

}  // namespace zeph::vulkan
