// The two pipelines of a picture, the field and the flow lines.
#pragma once

#include <compare>
#include <cstdint>
#include <map>

#include "render/uniforms.h"
#include "render/vulkan/shader_inputs.h"
#include "render/vulkan/vulkan_device.h"

namespace zeph::vulkan {

// What is constant in a pipeline, in the order of the shaders' specialization constants.
struct Choices {
  std::uint32_t palette = 0;
  std::uint32_t display = 0;
  std::uint32_t colorRange = 0;
  std::uint32_t output = 0;

  // NOLINTNEXTLINE(modernize-use-nullptr): the check takes the comparison for a pointer's
  auto operator<=>(const Choices&) const = default;
};

// For targets of one format, and for a field in one buffer or in pieces. Pipelines are made when
// they are first asked for.
class PicturePipelines {
 public:
  PicturePipelines(const Device& device, VkRenderPass pass, bool isInPieces);

  VkPipeline field(const Uniforms& uniforms);
  VkPipeline flow(const Uniforms& uniforms);
  const ShaderInputs& inputs() const { return inputs_; }

 private:
  Owned<VkPipeline> makeField(const Choices& choices) const;
  Owned<VkPipeline> makeFlow(const Choices& choices) const;

  const Device& device_;
  VkRenderPass pass_;
  bool isInPieces_;
  ShaderInputs inputs_;
  std::map<Choices, Owned<VkPipeline>> fields_;
  std::map<Choices, Owned<VkPipeline>> flows_;
};

}  // namespace zeph::vulkan
