// An off-screen image to draw into and read back.
#pragma once

#include "render/texels.h"
#include "render/vulkan/commands.h"
#include "render/vulkan/vulkan_device.h"

namespace zeph::vulkan {

VkFormat formatOf(TexelFormat format);

// The view of an image and the framebuffer by which a pass draws into it.
Owned<VkImageView> makeView(const Device& device, VkImage image, VkFormat format, const char* step);
Owned<VkFramebuffer> makeFramebuffer(const Device& device, VkRenderPass pass, VkImageView view,
                                     VkExtent2D extent, const char* step);

// Records a change of layout that waits for all work recorded before and holds back all after it.
void moveImage(const Device& device, VkCommandBuffer commands, VkImage image, VkImageLayout from,
               VkImageLayout to);

// An image of the device. Its texels are undefined until something is drawn.
class Image {
 public:
  // `pass` is the one that will draw into it.
  Image(const Device& device, std::uint32_t width, std::uint32_t height, TexelFormat format,
        VkRenderPass pass);

  VkFramebuffer framebuffer() const { return framebuffer_.get(); }
  VkExtent2D extent() const { return {width_, height_}; }
  TexelFormat format() const { return format_; }

  // Brings it into the layout of an attachment; to be called before the pass begins.
  void prepare(const Device& device, VkCommandBuffer commands);
  Texels read(const Device& device, Commands& commands) const;

 private:
  std::uint32_t width_;
  std::uint32_t height_;
  TexelFormat format_;
  Owned<VkImage> image_;
  Owned<VkDeviceMemory> memory_;
  Owned<VkImageView> view_;
  Owned<VkFramebuffer> framebuffer_;
  VkImageLayout layout_ = VK_IMAGE_LAYOUT_UNDEFINED;
};

}  // namespace zeph::vulkan
