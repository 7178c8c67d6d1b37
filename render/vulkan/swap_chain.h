// The images of a window: one is drawn into while another is shown.
#pragma once

#include <cstdint>
#include <vector>

#include "render/texels.h"
#include "render/vulkan/vulkan_device.h"

namespace zeph::vulkan {

class SwapChain {
 public:
  // For the device's surface. There are no images before the first resize().
  explicit SwapChain(const Device& device);

  TexelFormat format() const { return format_; }
  VkExtent2D extent() const { return extent_; }

  // Makes images of that size, or of the size that the window dictates. The device must not be
  // drawing.
  void resize(std::uint32_t width, std::uint32_t height, VkRenderPass pass);

  // An image to draw into, with what orders its drawing and showing.
  struct Drawable {
    VkImage image = VK_NULL_HANDLE;
    VkFramebuffer framebuffer = VK_NULL_HANDLE;
    VkSemaphore acquired = VK_NULL_HANDLE;  // the drawing waits for it
    VkSemaphore drawn = VK_NULL_HANDLE;     // the showing waits for it
    std::uint32_t index = 0;
  };
  // Returns false if no image is free for now.
  bool begin(Drawable& drawable);
  void show(const Drawable& drawable);
  // After show(): waits until the image before it is shown, so that only one is queued, for so many
  // nanoseconds at most. Does nothing where the driver does not say when an image is shown.
  void waitForPrevious(std::uint64_t nanoseconds);

 private:
  struct Image {
    VkImage image = VK_NULL_HANDLE;
    Owned<VkImageView> view;
    Owned<VkFramebuffer> framebuffer;
    Owned<VkSemaphore> drawn;
  };

  Image makeImage(VkImage image, VkRenderPass pass) const;

  const Device& device_;
  VkSurfaceFormatKHR surfaceFormat_ = {};
  TexelFormat format_ = TexelFormat::bgra8;
  VkExtent2D extent_ = {};
  Owned<VkSemaphore> acquired_;
  Owned<VkSwapchainKHR> chain_;
  std::vector<Image> images_;
  std::uint64_t newestShow_ = 0;   // the number of the newest show() of this chain, from 1
  std::uint64_t awaitedShow_ = 0;  // or 0
};

}  // namespace zeph::vulkan
