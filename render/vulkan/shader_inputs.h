// The shaders' inputs: one buffer of constants, then buffers of raw memory.
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

  // Binds the buffers. If fewer are given than the shaders declare, the shaders must not read the
  // others. The device must not be drawing.
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
