// Makes graphics pipelines: without vertex buffers, with one target and a dynamic viewport.
#pragma once

#include <span>

#include "render/shader_resources.h"
#include "render/texels.h"
#include "render/vulkan/vulkan_device.h"

namespace zeph::vulkan {

enum class Blend {
  none,
  byAlpha,        // the colour is not yet multiplied by its alpha
  premultiplied,  // the colour is multiplied by its alpha
};

struct PipelineKind {
  VkPrimitiveTopology topology = VK_PRIMITIVE_TOPOLOGY_TRIANGLE_LIST;
  Blend blend = Blend::none;
  bool smoothsLines = false;
  const char* step = nullptr;  // named in the error text
};

Owned<VkShaderModule> makeShader(const Device& device, ShaderResource resource, const char* step);

VkPipelineShaderStageCreateInfo stageOf(VkShaderStageFlagBits stage, VkShaderModule module,
                                        const VkSpecializationInfo* constants = nullptr);

Owned<VkPipeline> makePipeline(const Device& device, const PipelineKind& kind,
                               VkPipelineLayout layout, VkRenderPass pass,
                               std::span<const VkPipelineShaderStageCreateInfo> stages);

// With y upwards, as the shaders have it; Vulkan's own y points down.
void setViewport(const Device& device, VkCommandBuffer commands, float x, float y, float width,
                 float height);

// A pass that keeps what the target holds and leaves it in the layout of a colour attachment.
Owned<VkRenderPass> makePass(const Device& device, TexelFormat format);

}  // namespace zeph::vulkan
