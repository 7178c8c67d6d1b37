#include "render/vulkan/graphics_pipeline.h"

#include <array>

#include "render/vulkan/target.h"

namespace zeph::vulkan {
namespace {

// Source over target, for the alpha too: source + target (1 - source).
VkPipelineColorBlendAttachmentState blendOf(Blend blend) {
  return {.blendEnable = blend != Blend::none ? VK_TRUE : VK_FALSE,
          .srcColorBlendFactor =
              blend == Blend::premultiplied ? VK_BLEND_FACTOR_ONE : VK_BLEND_FACTOR_SRC_ALPHA,
          .dstColorBlendFactor = VK_BLEND_FACTOR_ONE_MINUS_SRC_ALPHA,
          .colorBlendOp = VK_BLEND_OP_ADD,
          .srcAlphaBlendFactor = VK_BLEND_FACTOR_ONE,
          .dstAlphaBlendFactor = VK_BLEND_FACTOR_ONE_MINUS_SRC_ALPHA,
          .alphaBlendOp = VK_BLEND_OP_ADD,
          .colorWriteMask = VK_COLOR_COMPONENT_R_BIT | VK_COLOR_COMPONENT_G_BIT |
                            VK_COLOR_COMPONENT_B_BIT | VK_COLOR_COMPONENT_A_BIT};
}

}  // namespace

Owned<VkShaderModule> makeShader(const Device& device, ShaderResource resource, const char* step) {
  const std::span<const std::byte> code = shaderResource(resource);
  const VkShaderModuleCreateInfo info = {
      .sType = VK_STRUCTURE_TYPE_SHADER_MODULE_CREATE_INFO,
      .codeSize = code.size(),
      .pCode = reinterpret_cast<const std::uint32_t*>(code.data())};
  return device.make<VkShaderModule>(device.vk.vkCreateShaderModule, info,
                                     device.vk.vkDestroyShaderModule, step);
}

VkPipelineShaderStageCreateInfo stageOf(VkShaderStageFlagBits stage, VkShaderModule module,
                                        const VkSpecializationInfo* constants) {
  return {.sType = VK_STRUCTURE_TYPE_PIPELINE_SHADER_STAGE_CREATE_INFO,
          .stage = stage,
          .module = module,
          .pName = "main",
          .pSpecializationInfo = constants};
}

Owned<VkPipeline> makePipeline(const Device& device, const PipelineKind& kind,
                               VkPipelineLayout layout, VkRenderPass pass,
                               std::span<const VkPipelineShaderStageCreateInfo> stages) {
  const VkPipelineVertexInputStateCreateInfo noVertices = {
      .sType = VK_STRUCTURE_TYPE_PIPELINE_VERTEX_INPUT_STATE_CREATE_INFO};
  const VkPipelineInputAssemblyStateCreateInfo assembly = {
      .sType = VK_STRUCTURE_TYPE_PIPELINE_INPUT_ASSEMBLY_STATE_CREATE_INFO,
      .topology = kind.topology};
  const VkPipelineViewportStateCreateInfo viewport = {
      .sType = VK_STRUCTURE_TYPE_PIPELINE_VIEWPORT_STATE_CREATE_INFO,
      .viewportCount = 1,
      .scissorCount = 1};
  const VkPipelineRasterizationLineStateCreateInfoEXT smooth = {
      .sType = VK_STRUCTURE_TYPE_PIPELINE_RASTERIZATION_LINE_STATE_CREATE_INFO_EXT,
      .lineRasterizationMode = VK_LINE_RASTERIZATION_MODE_RECTANGULAR_SMOOTH_EXT};
  const VkPipelineRasterizationStateCreateInfo raster = {
      .sType = VK_STRUCTURE_TYPE_PIPELINE_RASTERIZATION_STATE_CREATE_INFO,
      .pNext = kind.smoothsLines ? &smooth : nullptr,
      .polygonMode = VK_POLYGON_MODE_FILL,
      .cullMode = VK_CULL_MODE_NONE,
      .lineWidth = 1};
  const VkPipelineMultisampleStateCreateInfo samples = {
      .sType = VK_STRUCTURE_TYPE_PIPELINE_MULTISAMPLE_STATE_CREATE_INFO,
      .rasterizationSamples = VK_SAMPLE_COUNT_1_BIT};
  const VkPipelineColorBlendAttachmentState attachment = blendOf(kind.blend);
  const VkPipelineColorBlendStateCreateInfo blend = {
      .sType = VK_STRUCTURE_TYPE_PIPELINE_COLOR_BLEND_STATE_CREATE_INFO,
      .attachmentCount = 1,
      .pAttachments = &attachment};
  const std::array changing = {VK_DYNAMIC_STATE_VIEWPORT, VK_DYNAMIC_STATE_SCISSOR};
  const VkPipelineDynamicStateCreateInfo dynamic = {
      .sType = VK_STRUCTURE_TYPE_PIPELINE_DYNAMIC_STATE_CREATE_INFO,
      .dynamicStateCount = changing.size(),
      .pDynamicStates = changing.data()};
  const VkGraphicsPipelineCreateInfo info = {
      .sType = VK_STRUCTURE_TYPE_GRAPHICS_PIPELINE_CREATE_INFO,
      .stageCount = static_cast<std::uint32_t>(stages.size()),
      .pStages = stages.data(),
      .pVertexInputState = &noVertices,
      .pInputAssemblyState = &assembly,
      .pViewportState = &viewport,
      .pRasterizationState = &raster,
      .pMultisampleState = &samples,
      .pColorBlendState = &blend,
      .pDynamicState = &dynamic,
      .layout = layout,
      .renderPass = pass};
  VkPipeline pipeline = VK_NULL_HANDLE;
  check(device.vk.vkCreateGraphicsPipelines(device.handle(), VK_NULL_HANDLE, 1, &info, nullptr,
                                            &pipeline),
        kind.step);
  return {device.handle(), pipeline, device.vk.vkDestroyPipeline};
}

void setViewport(const Device& device, VkCommandBuffer commands, float x, float y, float width,
                 float height) {
  const VkViewport viewport = {
      .x = x, .y = y + height, .width = width, .height = -height, .minDepth = 0, .maxDepth = 1};
  device.vk.vkCmdSetViewport(commands, 0, 1, &viewport);
}

Owned<VkRenderPass> makePass(const Device& device, TexelFormat format) {
  const VkAttachmentDescription target = {.format = formatOf(format),
                                          .samples = VK_SAMPLE_COUNT_1_BIT,
                                          .loadOp = VK_ATTACHMENT_LOAD_OP_LOAD,
                                          .storeOp = VK_ATTACHMENT_STORE_OP_STORE,
                                          .stencilLoadOp = VK_ATTACHMENT_LOAD_OP_DONT_CARE,
                                          .stencilStoreOp = VK_ATTACHMENT_STORE_OP_DONT_CARE,
                                          .initialLayout = VK_IMAGE_LAYOUT_COLOR_ATTACHMENT_OPTIMAL,
                                          .finalLayout = VK_IMAGE_LAYOUT_COLOR_ATTACHMENT_OPTIMAL};
  const VkAttachmentReference color = {.layout = VK_IMAGE_LAYOUT_COLOR_ATTACHMENT_OPTIMAL};
  const VkSubpassDescription subpass = {.pipelineBindPoint = VK_PIPELINE_BIND_POINT_GRAPHICS,
                                        .colorAttachmentCount = 1,
                                        .pColorAttachments = &color};
  const VkRenderPassCreateInfo info = {.sType = VK_STRUCTURE_TYPE_RENDER_PASS_CREATE_INFO,
                                       .attachmentCount = 1,
                                       .pAttachments = &target,
                                       .subpassCount = 1,
                                       .pSubpasses = &subpass};
  return device.make<VkRenderPass>(device.vk.vkCreateRenderPass, info,
                                   device.vk.vkDestroyRenderPass, "Create render pass");
}

}  // namespace zeph::vulkan
