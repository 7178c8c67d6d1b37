// The interface over the picture: Cairo draws it into memory that the shaders read.
#pragma once

#include <array>
#include <optional>
#include <span>

#include "render/cairo/painter.h"
#include "render/overlay.h"
#include "render/texels.h"
#include "render/vulkan/buffer.h"
#include "render/vulkan/shader_inputs.h"

namespace zeph::vulkan {

class Interface {
 public:
  // `pass` is the one in which it will be drawn.
  Interface(const Device& device, VkRenderPass pass, TexelFormat format);

  // Redraws the items that have changed. The device must not be drawing.
  void update(std::span<const OverlayItem> items, VkExtent2D extent, float scale);

  // prepare() is to be called before the pass begins, draw() within it.
  void prepare(VkCommandBuffer commands) const;
  void draw(VkCommandBuffer commands) const;

 private:
  // The same record as in shaders/interface.hlsli.
  struct Constants {
    std::array<std::array<float, 4>, 8> boxes{};
    std::array<float, 2> extent{};
    std::uint32_t stride = 0;
    std::uint32_t output = 0;
  };
  static_assert(sizeof(Constants) == 144);

  void resize(VkExtent2D extent);

  const Device& device_;
  cairo::Painter painter_;
  ShaderInputs inputs_;
  Owned<VkPipeline> pipeline_;
  Buffer constantsBuffer_;
  Buffer texels_;
  VkExtent2D extent_ = {};
  cairo::Surface surface_;
  Constants constants_;
  std::uint32_t boxes_ = 0;
  VkDescriptorSet set_ = VK_NULL_HANDLE;
};

}  // namespace zeph::vulkan
