#include "render/vulkan/buffer.h"

namespace zeph::vulkan {
namespace {

constexpr VkExternalMemoryHandleTypeFlagBits handleType =
    VK_EXTERNAL_MEMORY_HANDLE_TYPE_OPAQUE_FD_BIT;

}  // namespace

Buffer::Buffer(const Device& device, const BufferRequest& request) {
  const VkExternalMemoryBufferCreateInfo shared = {
      .sType = VK_STRUCTURE_TYPE_EXTERNAL_MEMORY_BUFFER_CREATE_INFO, .handleTypes = handleType};
  const VkBufferCreateInfo info = {.sType = VK_STRUCTURE_TYPE_BUFFER_CREATE_INFO,
                                   .pNext = request.isExported ? &shared : nullptr,
                                   .size = request.bytes,
                                   .usage = request.usage};
  const DeviceFunctions& vk = device.vk;
  buffer_ = device.make<VkBuffer>(vk.vkCreateBuffer, info, vk.vkDestroyBuffer, request.step);
  VkMemoryRequirements needs;
  vk.vkGetBufferMemoryRequirements(device.handle(), buffer_.get(), &needs);
  allocated_ = needs.size;
  const VkExportMemoryAllocateInfo exported = {
      .sType = VK_STRUCTURE_TYPE_EXPORT_MEMORY_ALLOCATE_INFO, .handleTypes = handleType};
  memory_ = device.allocate(needs, request.required, request.preferred,
                            request.isExported ? &exported : nullptr, request.step);
  check(vk.vkBindBufferMemory(device.handle(), buffer_.get(), memory_.get(), 0), request.step);
}

Buffer makeConstants(const Device& device, std::size_t bytes, const char* step) {
  return Buffer(device,
                {.bytes = bytes,
                 .usage = VK_BUFFER_USAGE_UNIFORM_BUFFER_BIT | VK_BUFFER_USAGE_TRANSFER_DST_BIT,
                 .preferred = VK_MEMORY_PROPERTY_DEVICE_LOCAL_BIT,
                 .step = step});
}

void updateConstants(const Device& device, VkCommandBuffer commands, VkBuffer buffer,
                     const void* values, std::size_t bytes) {
  device.vk.vkCmdUpdateBuffer(commands, buffer, 0, bytes, values);
  const VkMemoryBarrier written = {.sType = VK_STRUCTURE_TYPE_MEMORY_BARRIER,
                                   .srcAccessMask = VK_ACCESS_TRANSFER_WRITE_BIT,
                                   .dstAccessMask = VK_ACCESS_UNIFORM_READ_BIT};
  device.vk.vkCmdPipelineBarrier(
      commands, VK_PIPELINE_STAGE_TRANSFER_BIT,
      VK_PIPELINE_STAGE_VERTEX_SHADER_BIT | VK_PIPELINE_STAGE_FRAGMENT_SHADER_BIT, 0, 1, &written,
      0, nullptr, 0, nullptr);
}

void* map(const Device& device, const Buffer& buffer, const char* step) {
  void* pointer = nullptr;
  check(device.vk.vkMapMemory(device.handle(), buffer.memory(), 0, VK_WHOLE_SIZE, 0, &pointer),
        step);
  return pointer;
}

}  // namespace zeph::vulkan
