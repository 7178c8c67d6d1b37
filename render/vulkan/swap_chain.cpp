#include "render/vulkan/swap_chain.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

#include "render/vulkan/target.h"

namespace zeph::vulkan {
namespace {

constexpr const char* chainStep = "Create swap chain";
constexpr const char* resizeStep = "Resize swap chain";
constexpr std::uint32_t wantedImages = 2;
constexpr std::uint64_t patience = 100'000'000;  // longest wait for an image, in nanoseconds

constexpr VkSurfaceFormatKHR standardRange = {VK_FORMAT_B8G8R8A8_UNORM,
                                              VK_COLOR_SPACE_SRGB_NONLINEAR_KHR};
constexpr VkSurfaceFormatKHR highRange = {VK_FORMAT_R16G16B16A16_SFLOAT,
                                          VK_COLOR_SPACE_EXTENDED_SRGB_LINEAR_EXT};

bool same(const VkSurfaceFormatKHR& a, const VkSurfaceFormatKHR& b) {
  return a.format == b.format && a.colorSpace == b.colorSpace;
}

Owned<VkSemaphore> makeSemaphore(const Device& device) {
  const VkSemaphoreCreateInfo info = {.sType = VK_STRUCTURE_TYPE_SEMAPHORE_CREATE_INFO};
  return device.make<VkSemaphore>(device.vk.vkCreateSemaphore, info, device.vk.vkDestroySemaphore,
                                  "No frame pacing signal");
}

// The window's own size, or `wanted` within the limits if the window system leaves the choice.
VkExtent2D sizeWithin(const VkSurfaceCapabilitiesKHR& surface, VkExtent2D wanted) {
  if (surface.currentExtent.width != 0xffffffffu) return surface.currentExtent;
  return {std::clamp(wanted.width, surface.minImageExtent.width, surface.maxImageExtent.width),
          std::clamp(wanted.height, surface.minImageExtent.height, surface.maxImageExtent.height)};
}

}  // namespace

SwapChain::SwapChain(const Device& device) : device_(device), acquired_(makeSemaphore(device)) {
  const std::vector<VkSurfaceFormatKHR> offered = device_.surfaceFormats();
  const auto offers = [&](const VkSurfaceFormatKHR& wanted) {
    return std::ranges::any_of(offered, [&](const auto& one) { return same(one, wanted); });
  };
  if (offers(highRange)) {
    surfaceFormat_ = highRange;
    format_ = TexelFormat::rgba16;
  } else if (offers(standardRange)) {
    surfaceFormat_ = standardRange;
  } else {
    check(VK_ERROR_FORMAT_NOT_SUPPORTED, chainStep);
  }
}

void SwapChain::resize(std::uint32_t width, std::uint32_t height, VkRenderPass pass) {
  const VkSurfaceCapabilitiesKHR surface = device_.surfaceCapabilities();
  const VkExtent2D size = sizeWithin(surface, {width, height});
  images_.clear();
  newestShow_ = awaitedShow_ = 0;
  // A window without a size has no images.
  if (size.width == 0 || size.height == 0) {
    chain_ = {};
    extent_ = {};
    return;
  }
  const std::uint32_t most = surface.maxImageCount != 0 ? surface.maxImageCount : wantedImages;
  const Owned<VkSwapchainKHR> old = std::move(chain_);
  const VkSwapchainCreateInfoKHR info = {
      .sType = VK_STRUCTURE_TYPE_SWAPCHAIN_CREATE_INFO_KHR,
      .surface = device_.surface(),
      .minImageCount = std::min(std::max(wantedImages, surface.minImageCount),
                                std::max(most, surface.minImageCount)),
      .imageFormat = surfaceFormat_.format,
      .imageColorSpace = surfaceFormat_.colorSpace,
      .imageExtent = size,
      .imageArrayLayers = 1,
      .imageUsage = VK_IMAGE_USAGE_COLOR_ATTACHMENT_BIT,
      .preTransform = surface.currentTransform,
      .compositeAlpha = VK_COMPOSITE_ALPHA_OPAQUE_BIT_KHR,
      .presentMode = VK_PRESENT_MODE_FIFO_KHR,
      .clipped = VK_TRUE,
      .oldSwapchain = old.get()};
  const DeviceFunctions& vk = device_.vk;
  const char* step = old ? resizeStep : chainStep;
  chain_ =
      device_.make<VkSwapchainKHR>(vk.vkCreateSwapchainKHR, info, vk.vkDestroySwapchainKHR, step);
  std::uint32_t count = 0;
  check(vk.vkGetSwapchainImagesKHR(device_.handle(), chain_.get(), &count, nullptr),
        "Get swap buffer");
  std::vector<VkImage> images(count);
  check(vk.vkGetSwapchainImagesKHR(device_.handle(), chain_.get(), &count, images.data()),
        "Get swap buffer");
  extent_ = size;
  for (VkImage image : images) images_.push_back(makeImage(image, pass));
}

SwapChain::Image SwapChain::makeImage(VkImage image, VkRenderPass pass) const {
  Image made;
  made.image = image;
  made.view = makeView(device_, image, surfaceFormat_.format, "Create backbuffer target");
  made.framebuffer =
      makeFramebuffer(device_, pass, made.view.get(), extent_, "Create backbuffer target");
  made.drawn = makeSemaphore(device_);
  return made;
}

bool SwapChain::begin(Drawable& drawable) {
  if (!chain_) return false;
  const VkResult result = device_.vk.vkAcquireNextImageKHR(
      device_.handle(), chain_.get(), patience, acquired_.get(), VK_NULL_HANDLE, &drawable.index);
  // The window has changed its size, or no shown image has become free.
  if (result == VK_ERROR_OUT_OF_DATE_KHR || result == VK_TIMEOUT || result == VK_NOT_READY)
    return false;
  check(result, "Get swap buffer");
  const Image& image = images_[drawable.index];
  drawable.image = image.image;
  drawable.framebuffer = image.framebuffer.get();
  drawable.acquired = acquired_.get();
  drawable.drawn = image.drawn.get();
  return true;
}

void SwapChain::show(const Drawable& drawable) {
  const VkSwapchainKHR chain = chain_.get();
  awaitedShow_ = newestShow_++;
  const VkPresentIdKHR id = {
      .sType = VK_STRUCTURE_TYPE_PRESENT_ID_KHR, .swapchainCount = 1, .pPresentIds = &newestShow_};
  const VkPresentInfoKHR info = {.sType = VK_STRUCTURE_TYPE_PRESENT_INFO_KHR,
                                 .pNext = device_.waitsForPresents() ? &id : nullptr,
                                 .waitSemaphoreCount = 1,
                                 .pWaitSemaphores = &drawable.drawn,
                                 .swapchainCount = 1,
                                 .pSwapchains = &chain,
                                 .pImageIndices = &drawable.index};
  const VkResult result = device_.vk.vkQueuePresentKHR(device_.queue(), &info);
  if (result != VK_ERROR_OUT_OF_DATE_KHR) check(result, "Present frame");
}

// What goes wrong here also goes wrong with the next image, which then reports it.
void SwapChain::waitForPrevious(std::uint64_t nanoseconds) {
  const std::uint64_t awaited = std::exchange(awaitedShow_, 0);
  if (awaited == 0 || !device_.waitsForPresents()) return;
  device_.vk.vkWaitForPresentKHR(device_.handle(), chain_.get(), awaited, nanoseconds);
}

}  // namespace zeph::vulkan
