#include "render/vulkan/picture_pipelines.h"

#include <array>

#include "render/vulkan/field_memory.h"
#include "render/vulkan/graphics_pipeline.h"

namespace zeph::vulkan {
namespace {

// The choices as specialization constants; it holds pointers into `choices`.
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

PicturePipelines::PicturePipelines(const Device& device, VkRenderPass pass, bool isInPieces)
    : device_(device),
      pass_(pass),
      isInPieces_(isInPieces),
      inputs_(device, isInPieces ? static_cast<std::uint32_t>(mostPieces) : 1) {}

VkPipeline PicturePipelines::field(const Uniforms& uniforms) {
  const Choices choices = choicesOf(uniforms);
  Owned<VkPipeline>& pipeline = fields_[choices];
  if (!pipeline) pipeline = makeField(choices);
  return pipeline.get();
}

// Only the kind of output changes the colour of a flow line, so other choices share a pipeline.
VkPipeline PicturePipelines::flow(const Uniforms& uniforms) {
  const Choices choices = {.output = uniforms.outputHDR};
  Owned<VkPipeline>& pipeline = flows_[choices];
  if (!pipeline) pipeline = makeFlow(choices);
  return pipeline.get();
}

Owned<VkPipeline> PicturePipelines::makeField(const Choices& choices) const {
  const auto vertex = makeShader(device_, ShaderResource::fieldVertex, "Field vertex shader");
  const auto pixel = makeShader(
      device_, isInPieces_ ? ShaderResource::fieldPixelOfPieces : ShaderResource::fieldPixel,
      "Field pixel shader");
  const Constants constants(choices);
  const std::array stages = {stageOf(VK_SHADER_STAGE_VERTEX_BIT, vertex.get()),
                             stageOf(VK_SHADER_STAGE_FRAGMENT_BIT, pixel.get(), constants.get())};
  return makePipeline(device_, {.step = "Create raster state"}, inputs_.layout(), pass_, stages);
}

Owned<VkPipeline> PicturePipelines::makeFlow(const Choices& choices) const {
  const auto vertex = makeShader(
      device_, isInPieces_ ? ShaderResource::flowVertexOfPieces : ShaderResource::flowVertex,
      "Flow vertex shader");
  const auto pixel = makeShader(device_, ShaderResource::flowPixel, "Flow pixel shader");
  const Constants constants(choices);
  const std::array stages = {stageOf(VK_SHADER_STAGE_VERTEX_BIT, vertex.get(), constants.get()),
                             stageOf(VK_SHADER_STAGE_FRAGMENT_BIT, pixel.get(), constants.get())};
  return makePipeline(device_,
                      {.topology = VK_PRIMITIVE_TOPOLOGY_LINE_LIST,
                       .blend = Blend::byAlpha,
                       .smoothsLines = device_.drawsSmoothLines(),
                       .step = "Create flow blend state"},
                      inputs_.layout(), pass_, stages);
}

}  // namespace zeph::vulkan
