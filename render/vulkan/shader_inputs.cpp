#include "render/vulkan/shader_inputs.h"

#include <array>
#include <vector>

namespace zeph::vulkan {
namespace {

constexpr std::uint32_t constantsBinding = 0;
constexpr std::uint32_t buffersBinding = 1;  // of the first buffer; the others follow

}  // namespace

ShaderInputs::ShaderInputs(const Device& device, std::uint32_t buffers)
    : device_(device), buffers_(buffers) {
  makeLayout();
  makeSet();
}

void ShaderInputs::makeLayout() {
  std::vector<VkDescriptorSetLayoutBinding> bindings;
  const auto add = [&](std::uint32_t binding, VkDescriptorType type) {
    bindings.push_back({.binding = binding,
                        .descriptorType = type,
                        .descriptorCount = 1,
                        .stageFlags = VK_SHADER_STAGE_VERTEX_BIT | VK_SHADER_STAGE_FRAGMENT_BIT});
  };
  add(constantsBinding, VK_DESCRIPTOR_TYPE_UNIFORM_BUFFER);
  for (std::uint32_t k = 0; k < buffers_; ++k)
    add(buffersBinding + k, VK_DESCRIPTOR_TYPE_STORAGE_BUFFER);
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

void ShaderInputs::makeSet() {
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

VkDescriptorSet ShaderInputs::bind(VkBuffer constants, std::size_t bytes,
                                   std::span<const VkBuffer> given) const {
  std::vector<VkDescriptorBufferInfo> buffers;
  buffers.push_back({.buffer = constants, .range = bytes});
  for (std::uint32_t k = 0; k < buffers_; ++k)
    buffers.push_back({.buffer = given[k < given.size() ? k : 0], .range = VK_WHOLE_SIZE});
  std::vector<VkWriteDescriptorSet> writes;
  for (std::uint32_t k = 0; k < buffers.size(); ++k)
    writes.push_back({.sType = VK_STRUCTURE_TYPE_WRITE_DESCRIPTOR_SET,
                      .dstSet = set_,
                      .dstBinding = k,
                      .descriptorCount = 1,
                      .descriptorType = k == constantsBinding ? VK_DESCRIPTOR_TYPE_UNIFORM_BUFFER
                                                              : VK_DESCRIPTOR_TYPE_STORAGE_BUFFER,
                      .pBufferInfo = &buffers[k]});
  device_.vk.vkUpdateDescriptorSets(device_.handle(), static_cast<std::uint32_t>(writes.size()),
                                    writes.data(), 0, nullptr);
  return set_;
}

}  // namespace zeph::vulkan
