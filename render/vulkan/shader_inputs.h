// What the shaders read: one record of constants, and buffers of raw memory after it.
#pragma once

#include <cstdint>
#include <span>

#include "render/vulkan/vulkan_device.h"

namespace zeph::vulkan {

class ShaderInputs {
 public:
  // For so many buffers of raw memory.
  ShaderInputs(const Device& device, std::uint32_t buffers);

  VkPipelineLayout layout() const { return layout_.get(); }

  // Lets the shaders read these. Where there are fewer buffers than the shaders know, the shaders
  // must not read the others. Nobody may be drawing.
  VkDescriptorSet bind(VkBuffer constants, std::size_t bytes,
                       std::span<const VkBuffer> given) const;

 private:
  void makeLayout();
  void makeSet();

  const Device& device_;
  std::uint32_t buffers_;
  Owned<VkDescriptorSetLayout> setLayout_;
  Owned<VkPipelineLayout> layout_;
  Owned<VkDescriptorPool> pool_;
  VkDescriptorSet set_ = VK_NULL_HANDLE;
};

}  // namespace zeph::vulkan
