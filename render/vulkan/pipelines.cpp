#include "render/vulkan/pipelines.h"

#include <array>
#include <vector>

#include "render/shader_resources.h"
#include "render/uniforms.h"
#include "render/vulkan/field.h"
#include "render/vulkan/target.h"

namespace zeph::vulkan {
namespace {

constexpr std::uint32_t uniformsBinding = 0;
constexpr std::uint32_t fieldBinding = 1;  // and those after it, for pieces

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

// What differs between the two pipelines of a picture.
struct Kind {
  VkPrimitiveTopology topology;
  bool blends;
  bool smooths;
  const char* step;
};

// Source over target by the source's alpha; the alpha of both together stays whole.
VkPipelineColorBlendAttachmentState blendOf(bool blends) {
  return {.blendEnable = blends ? VK_TRUE : VK_FALSE,
          .srcColorBlendFactor = VK_BLEND_FACTOR_SRC_ALPHA,
          .dstColorBlendFactor = VK_BLEND_FACTOR_ONE_MINUS_SRC_ALPHA,
          .colorBlendOp = VK_BLEND_OP_ADD,
          .srcAlphaBlendFactor = VK_BLEND_FACTOR_ONE,
          .dstAlphaBlendFactor = VK_BLEND_FACTOR_ONE_MINUS_SRC_ALPHA,
          .alphaBlendOp = VK_BLEND_OP_ADD,
          .colorWriteMask = VK_COLOR_COMPONENT_R_BIT | VK_COLOR_COMPONENT_G_BIT |
                            VK_COLOR_COMPONENT_B_BIT | VK_COLOR_COMPONENT_A_BIT};
}

Owned<VkPipeline> makePipeline(const Device& device, const Kind& kind, VkPipelineLayout layout,
                               VkRenderPass pass,
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
      .pNext = kind.smooths ? &smooth : nullptr,
      .polygonMode = VK_POLYGON_MODE_FILL,
      .cullMode = VK_CULL_MODE_NONE,
      .lineWidth = 1};
  const VkPipelineMultisampleStateCreateInfo samples = {
      .sType = VK_STRUCTURE_TYPE_PIPELINE_MULTISAMPLE_STATE_CREATE_INFO,
      .rasterizationSamples = VK_SAMPLE_COUNT_1_BIT};
  const VkPipelineColorBlendAttachmentState attachment = blendOf(kind.blends);
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

// The choices as the shaders' constants; it points into `choices`.
class Constants {
 public:
  explicit Constants(const Choices& choices) {
    for (std::uint32_t k = 0; k < entries_.size(); ++k)
      entries_[k] = {.constantID = k,
                     .offset = k * static_cast<std::uint32_t>(sizeof(std::uint32_t)),
                     .size = sizeof(std::uint32_t)};
    info_ = {.mapEntryCount = static_cast<std::uint32_t>(entries_.size()),
             .pMapEntries = entries_.data(),
             .dataSize = sizeof(choices),
             .pData = &choices};
  }
  Constants(const Constants&) = delete;
  Constants& operator=(const Constants&) = delete;

  const VkSpecializationInfo* get() const { return &info_; }

 private:
  std::array<VkSpecializationMapEntry, sizeof(Choices) / sizeof(std::uint32_t)> entries_;
  VkSpecializationInfo info_;
};

Choices choicesOf(const Uniforms& uniforms) {
  return {uniforms.palette, uniforms.display, uniforms.vorticityColorRange, uniforms.outputHDR};
}

}  // namespace

Pipelines::Pipelines(const Device& device, VkRenderPass pass, bool isInPieces)
    : device_(device),
      pass_(pass),
      isInPieces_(isInPieces),
      buffers_(isInPieces ? static_cast<std::uint32_t>(mostPieces) : 1) {
  makeLayout();
  makePool();
}

VkPipeline Pipelines::field(const Uniforms& uniforms) {
  const Choices choices = choicesOf(uniforms);
  Owned<VkPipeline>& pipeline = fields_[choices];
  if (!pipeline) pipeline = makeField(choices);
  return pipeline.get();
}

// The colour of a flow line depends on nothing but the output.
VkPipeline Pipelines::flow(const Uniforms& uniforms) {
  const Choices choices = {.output = uniforms.outputHDR};
  Owned<VkPipeline>& pipeline = flows_[choices];
  if (!pipeline) pipeline = makeFlow(choices);
  return pipeline.get();
}

Owned<VkPipeline> Pipelines::makeField(const Choices& choices) const {
  const auto vertex = makeShader(device_, ShaderResource::fieldVertex, "Field vertex shader");
  const auto pixel = makeShader(
      device_, isInPieces_ ? ShaderResource::fieldPixelOfPieces : ShaderResource::fieldPixel,
      "Field pixel shader");
  const Constants constants(choices);
  const std::array stages = {stageOf(VK_SHADER_STAGE_VERTEX_BIT, vertex.get(), nullptr),
                             stageOf(VK_SHADER_STAGE_FRAGMENT_BIT, pixel.get(), constants.get())};
  return makePipeline(device_,
                      {.topology = VK_PRIMITIVE_TOPOLOGY_TRIANGLE_LIST,
                       .blends = false,
                       .smooths = false,
                       .step = "Create raster state"},
                      layout_.get(), pass_, stages);
}

Owned<VkPipeline> Pipelines::makeFlow(const Choices& choices) const {
  const auto vertex = makeShader(
      device_, isInPieces_ ? ShaderResource::flowVertexOfPieces : ShaderResource::flowVertex,
      "Flow vertex shader");
  const auto pixel = makeShader(device_, ShaderResource::flowPixel, "Flow pixel shader");
  const Constants constants(choices);
  const std::array stages = {stageOf(VK_SHADER_STAGE_VERTEX_BIT, vertex.get(), constants.get()),
                             stageOf(VK_SHADER_STAGE_FRAGMENT_BIT, pixel.get(), constants.get())};
  return makePipeline(device_,
                      {.topology = VK_PRIMITIVE_TOPOLOGY_LINE_LIST,
                       .blends = true,
                       .smooths = device_.drawsSmoothLines(),
                       .step = "Create flow blend state"},
                      layout_.get(), pass_, stages);
}

void Pipelines::makeLayout() {
  std::vector<VkDescriptorSetLayoutBinding> bindings;
  const auto add = [&](std::uint32_t binding, VkDescriptorType type) {
    bindings.push_back({.binding = binding,
                        .descriptorType = type,
                        .descriptorCount = 1,
                        .stageFlags = VK_SHADER_STAGE_VERTEX_BIT | VK_SHADER_STAGE_FRAGMENT_BIT});
  };
  add(uniformsBinding, VK_DESCRIPTOR_TYPE_UNIFORM_BUFFER);
  for (std::uint32_t k = 0; k < buffers_; ++k)
    add(fieldBinding + k, VK_DESCRIPTOR_TYPE_STORAGE_BUFFER);
  const VkDescriptorSetLayoutCreateInfo set = {
      .sType = VK_STRUCTURE_TYPE_DESCRIPTOR_SET_LAYOUT_CREATE_INFO,
      .bindingCount = static_cast<std::uint32_t>(bindings.size()),
      .pBindings = bindings.data()};
  const DeviceFunctions& vk = device_.vk;
  setLayout_ = device_.make<VkDescriptorSetLayout>(
      vk.vkCreateDescriptorSetLayout, set, vk.vkDestroyDescriptorSetLayout, "Create set layout");
  const VkDescriptorSetLayout layout = setLayout_.get();
  const VkPipelineLayoutCreateInfo info = {.sType = VK_STRUCTURE_TYPE_PIPELINE_LAYOUT_CREATE_INFO,
                                           .setLayoutCount = 1,
                                           .pSetLayouts = &layout};
  layout_ = device_.make<VkPipelineLayout>(vk.vkCreatePipelineLayout, info,
                                           vk.vkDestroyPipelineLayout, "Create pipeline layout");
}

void Pipelines::makePool() {
  const std::array<VkDescriptorPoolSize, 2> sizes = {
      {{.type = VK_DESCRIPTOR_TYPE_UNIFORM_BUFFER, .descriptorCount = 1},
       {.type = VK_DESCRIPTOR_TYPE_STORAGE_BUFFER, .descriptorCount = buffers_}}};
  const VkDescriptorPoolCreateInfo info = {.sType = VK_STRUCTURE_TYPE_DESCRIPTOR_POOL_CREATE_INFO,
                                           .maxSets = 1,
                                           .poolSizeCount = sizes.size(),
                                           .pPoolSizes = sizes.data()};
  const DeviceFunctions& vk = device_.vk;
  pool_ = device_.make<VkDescriptorPool>(vk.vkCreateDescriptorPool, info,
                                         vk.vkDestroyDescriptorPool, "Create descriptor pool");
  const VkDescriptorSetLayout layout = setLayout_.get();
  const VkDescriptorSetAllocateInfo request = {
      .sType = VK_STRUCTURE_TYPE_DESCRIPTOR_SET_ALLOCATE_INFO,
      .descriptorPool = pool_.get(),
      .descriptorSetCount = 1,
      .pSetLayouts = &layout};
  check(vk.vkAllocateDescriptorSets(device_.handle(), &request, &set_), "Create descriptor set");
}

VkDescriptorSet Pipelines::bind(VkBuffer uniforms, std::span<const VkBuffer> field) const {
  std::vector<VkDescriptorBufferInfo> buffers;
  buffers.push_back({.buffer = uniforms, .range = sizeof(Uniforms)});
  // Pieces that the shaders know and the field has not are never read.
  for (std::uint32_t k = 0; k < buffers_; ++k)
    buffers.push_back({.buffer = k < field.size() ? field[k] : field[0], .range = VK_WHOLE_SIZE});
  std::vector<VkWriteDescriptorSet> writes;
  for (std::uint32_t k = 0; k < buffers.size(); ++k)
    writes.push_back({.sType = VK_STRUCTURE_TYPE_WRITE_DESCRIPTOR_SET,
                      .dstSet = set_,
                      .dstBinding = k,
                      .descriptorCount = 1,
                      .descriptorType = k == uniformsBinding ? VK_DESCRIPTOR_TYPE_UNIFORM_BUFFER
                                                             : VK_DESCRIPTOR_TYPE_STORAGE_BUFFER,
                      .pBufferInfo = &buffers[k]});
  device_.vk.vkUpdateDescriptorSets(device_.handle(), static_cast<std::uint32_t>(writes.size()),
                                    writes.data(), 0, nullptr);
  return set_;
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
