// How pipelines are made of shaders: no vertices in memory, one target, a viewport that changes.
#pragma once

#include <span>

#include "render/shader_resources.h"
#include "render/texels.h"
#include "render/vulkan/vulkan_device.h"

namespace zeph::vulkan {

enum class Blend {
  none,
  byAlpha,        // of a colour beside its alpha
  premultiplied,  // of a colour that is multiplied by its alpha
};

struct PipelineKind {
  VkPrimitiveTopology topology = VK_PRIMITIVE_TOPOLOGY_TRIANGLE_LIST;
  Blend blend = Blend::none;
  bool smooths = false;        // lines
  const char* step = nullptr;  // the text of what fails
};

Owned<VkShaderModule> makeShader(const Device& device, ShaderResource resource, const char* step);

VkPipelineShaderStageCreateInfo stageOf(VkShaderStageFlagBits stage, VkShaderModule module,
                                        const VkSpecializationInfo* constants = nullptr);

Owned<VkPipeline> makePipeline(const Device& device, const PipelineKind& kind,
                               VkPipelineLayout layout, VkRenderPass pass,
                               std::span<const VkPipelineShaderStageCreateInfo> stages);

// Up is positive in the shaders and down in Vulkan.
void setViewport(const Device& device, VkCommandBuffer commands, float x, float y, float width,
                 float height);

// Keeps what the target holds, and leaves it a colour attachment.
Owned<VkRenderPass> makePass(const Device& device, TexelFormat format);

}  // namespace zeph::vulkan
