#include "render/vulkan/target.h"

#include <algorithm>

#include "render/vulkan/buffer.h"

namespace zeph::vulkan {
namespace {

constexpr const char* imageStep = "Create PNG render target";
constexpr const char* viewStep = "PNG target view";

constexpr VkImageLayout attachment = VK_IMAGE_LAYOUT_COLOR_ATTACHMENT_OPTIMAL;
constexpr VkImageSubresourceRange whole = {
    .aspectMask = VK_IMAGE_ASPECT_COLOR_BIT, .levelCount = 1, .layerCount = 1};

// Drivers do not check the size against the device's limits.
void checkSize(const Device& device, std::uint32_t width, std::uint32_t height) {
  const VkPhysicalDeviceLimits& limits = device.limits();
  const std::uint32_t widest = std::min(limits.maxImageDimension2D, limits.maxFramebufferWidth);
  const std::uint32_t highest = std::min(limits.maxImageDimension2D, limits.maxFramebufferHeight);
  if (width == 0 || height == 0 || width > widest || height > highest)
    check(VK_ERROR_FEATURE_NOT_PRESENT, imageStep);
}

Owned<VkImage> makeImage(const Device& device, std::uint32_t width, std::uint32_t height,
                         VkFormat format) {
  checkSize(device, width, height);
  const VkImageCreateInfo info = {
      .sType = VK_STRUCTURE_TYPE_IMAGE_CREATE_INFO,
      .imageType = VK_IMAGE_TYPE_2D,
      .format = format,
      .extent = {width, height, 1},
      .mipLevels = 1,
      .arrayLayers = 1,
      .samples = VK_SAMPLE_COUNT_1_BIT,
      .tiling = VK_IMAGE_TILING_OPTIMAL,
      .usage = VK_IMAGE_USAGE_COLOR_ATTACHMENT_BIT | VK_IMAGE_USAGE_TRANSFER_SRC_BIT,
      .initialLayout = VK_IMAGE_LAYOUT_UNDEFINED};
  return device.make<VkImage>(device.vk.vkCreateImage, info, device.vk.vkDestroyImage, imageStep);
}

}  // namespace

Owned<VkImageView> makeView(const Device& device, VkImage image, VkFormat format,
                            const char* step) {
  const VkImageViewCreateInfo info = {.sType = VK_STRUCTURE_TYPE_IMAGE_VIEW_CREATE_INFO,
                                      .image = image,
                                      .viewType = VK_IMAGE_VIEW_TYPE_2D,
                                      .format = format,
                                      .subresourceRange = whole};
  return device.make<VkImageView>(device.vk.vkCreateImageView, info, device.vk.vkDestroyImageView,
                                  step);
}

Owned<VkFramebuffer> makeFramebuffer(const Device& device, VkRenderPass pass, VkImageView view,
                                     VkExtent2D extent, const char* step) {
  const VkFramebufferCreateInfo info = {.sType = VK_STRUCTURE_TYPE_FRAMEBUFFER_CREATE_INFO,
                                        .renderPass = pass,
                                        .attachmentCount = 1,
                                        .pAttachments = &view,
                                        .width = extent.width,
                                        .height = extent.height,
                                        .layers = 1};
  return device.make<VkFramebuffer>(device.vk.vkCreateFramebuffer, info,
                                    device.vk.vkDestroyFramebuffer, step);
}

void moveImage(const Device& device, VkCommandBuffer commands, VkImage image, VkImageLayout from,
               VkImageLayout to) {
  constexpr VkPipelineStageFlags everything = VK_PIPELINE_STAGE_ALL_COMMANDS_BIT;
  const VkImageMemoryBarrier moved = {
      .sType = VK_STRUCTURE_TYPE_IMAGE_MEMORY_BARRIER,
      .srcAccessMask = VK_ACCESS_MEMORY_WRITE_BIT,
      .dstAccessMask = VK_ACCESS_MEMORY_READ_BIT | VK_ACCESS_MEMORY_WRITE_BIT,
      .oldLayout = from,
      .newLayout = to,
      .srcQueueFamilyIndex = VK_QUEUE_FAMILY_IGNORED,
      .dstQueueFamilyIndex = VK_QUEUE_FAMILY_IGNORED,
      .image = image,
      .subresourceRange = whole};
  device.vk.vkCmdPipelineBarrier(commands, everything, everything, 0, 0, nullptr, 0, nullptr, 1,
                                 &moved);
}

VkFormat formatOf(TexelFormat format) {
  return format == TexelFormat::bgra8 ? VK_FORMAT_B8G8R8A8_UNORM : VK_FORMAT_R16G16B16A16_SFLOAT;
}

Image::Image(const Device& device, std::uint32_t width, std::uint32_t height, TexelFormat format,
             VkRenderPass pass)
    : width_(width),
      height_(height),
      format_(format),
      image_(makeImage(device, width, height, formatOf(format))) {
  VkMemoryRequirements needs;
  device.vk.vkGetImageMemoryRequirements(device.handle(), image_.get(), &needs);
  memory_ = device.allocate(needs, 0, VK_MEMORY_PROPERTY_DEVICE_LOCAL_BIT, nullptr, imageStep);
  check(device.vk.vkBindImageMemory(device.handle(), image_.get(), memory_.get(), 0), imageStep);
  view_ = makeView(device, image_.get(), formatOf(format), viewStep);
  framebuffer_ = makeFramebuffer(device, pass, view_.get(), extent(), viewStep);
}

void Image::prepare(const Device& device, VkCommandBuffer commands) {
  moveImage(device, commands, image_.get(), layout_, attachment);
  layout_ = attachment;
}

Texels Image::read(const Device& device, Commands& commands) const {
  Texels texels = {.width = width_, .height = height_, .format = format_, .data = {}};
  const std::size_t bytes = std::size_t{width_} * height_ * bytesPerTexel(format_);
  const Buffer readback(device, {.bytes = bytes,
                                 .usage = VK_BUFFER_USAGE_TRANSFER_DST_BIT,
                                 .required = VK_MEMORY_PROPERTY_HOST_VISIBLE_BIT |
                                             VK_MEMORY_PROPERTY_HOST_COHERENT_BIT,
                                 .preferred = VK_MEMORY_PROPERTY_HOST_CACHED_BIT,
                                 .step = "Create PNG readback"});
  const VkBufferImageCopy region = {
      .imageSubresource = {.aspectMask = VK_IMAGE_ASPECT_COLOR_BIT, .layerCount = 1},
      .imageExtent = {width_, height_, 1}};
  const VkMemoryBarrier toHost = {.sType = VK_STRUCTURE_TYPE_MEMORY_BARRIER,
                                  .srcAccessMask = VK_ACCESS_TRANSFER_WRITE_BIT,
                                  .dstAccessMask = VK_ACCESS_HOST_READ_BIT};
  commands.run([&](VkCommandBuffer buffer) {
    const DeviceFunctions& vk = device.vk;
    moveImage(device, buffer, image_.get(), layout_, VK_IMAGE_LAYOUT_TRANSFER_SRC_OPTIMAL);
    vk.vkCmdCopyImageToBuffer(buffer, image_.get(), VK_IMAGE_LAYOUT_TRANSFER_SRC_OPTIMAL,
                              readback.get(), 1, &region);
    moveImage(device, buffer, image_.get(), VK_IMAGE_LAYOUT_TRANSFER_SRC_OPTIMAL, attachment);
    vk.vkCmdPipelineBarrier(buffer, VK_PIPELINE_STAGE_TRANSFER_BIT, VK_PIPELINE_STAGE_HOST_BIT, 0,
                            1, &toHost, 0, nullptr, 0, nullptr);
  });
  const auto* pixels = static_cast<const std::byte*>(map(device, readback, "Read PNG pixels"));
  texels.data.assign(pixels, pixels + bytes);
  return texels;
}

}  // namespace zeph::vulkan
