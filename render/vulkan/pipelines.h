// What is drawn and how: the shaders, what they read, and the two pipelines of a picture.
#pragma once

#include <compare>
#include <cstdint>
#include <map>
#include <span>

#include "render/texels.h"
#include "render/uniforms.h"
#include "render/vulkan/device.h"

namespace zeph::vulkan {

// The choices that a pipeline is made for, in the order of the shaders' constants.
struct Choices {
  std::uint32_t palette = 0;
  std::uint32_t display = 0;
  std::uint32_t colorRange = 0;
  std::uint32_t output = 0;

  auto operator<=>(const Choices&) const = default;
};

// For targets of one format, and for a field in one buffer or in pieces. Pipelines are made when
// they are first asked for.
class Pipelines {
 public:
  Pipelines(const Device& device, VkRenderPass pass, bool isInPieces);

  VkPipeline field(const Uniforms& uniforms);
  VkPipeline flow(const Uniforms& uniforms);
  VkPipelineLayout layout() const { return layout_.get(); }

  // Lets the shaders read these.
  VkDescriptorSet bind(VkBuffer uniforms, std::span<const VkBuffer> field) const;

 private:
  void makeLayout();
  void makePool();
  Owned<VkPipeline> makeField(const Choices& choices) const;
  Owned<VkPipeline> makeFlow(const Choices& choices) const;

  const Device& device_;
  VkRenderPass pass_;
  bool isInPieces_;
  std::uint32_t buffers_;  // of the field, as the shaders count them
  Owned<VkDescriptorSetLayout> setLayout_;
  Owned<VkPipelineLayout> layout_;
  Owned<VkDescriptorPool> pool_;
  VkDescriptorSet set_ = VK_NULL_HANDLE;
  std::map<Choices, Owned<VkPipeline>> fields_;
  std::map<Choices, Owned<VkPipeline>> flows_;
};

// Keeps what the target holds, and leaves it a colour attachment.
Owned<VkRenderPass> makePass(const Device& device, TexelFormat format);

}  // namespace zeph::vulkan
