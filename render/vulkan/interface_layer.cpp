#include "render/vulkan/interface_layer.h"

#include <algorithm>
#include <cstddef>

#include "render/vulkan/graphics_pipeline.h"

namespace zeph::vulkan {
namespace {

constexpr const char* step = "Draw interface";
constexpr std::uint32_t boxVertices = 6;

Owned<VkPipeline> makeInterfacePipeline(const Device& device, VkPipelineLayout layout,
                                        VkRenderPass pass) {
  const auto vertex = makeShader(device, ShaderResource::interfaceVertex, "Create brush");
  const auto pixel = makeShader(device, ShaderResource::interfacePixel, "Create brush");
  const std::array stages = {stageOf(VK_SHADER_STAGE_VERTEX_BIT, vertex.get()),
                             stageOf(VK_SHADER_STAGE_FRAGMENT_BIT, pixel.get())};
  return makePipeline(device, {.blend = Blend::premultiplied, .step = "Create brush"}, layout, pass,
                      stages);
}

}  // namespace

Interface::Interface(const Device& device, VkRenderPass pass, TexelFormat format)
    : device_(device),
      inputs_(device, 1),
      pipeline_(makeInterfacePipeline(device, inputs_.layout(), pass)),
      constantsBuffer_(makeConstants(device, sizeof(Constants), step)) {
  constants_.output = format == TexelFormat::rgba16 ? 1 : 0;
}

void Interface::resize(VkExtent2D extent) {
  surface_ = {};
  texels_ = Buffer(device_, {.bytes = std::size_t{extent.width} * extent.height * 4,
                             .usage = VK_BUFFER_USAGE_STORAGE_BUFFER_BIT,
                             .required = VK_MEMORY_PROPERTY_HOST_VISIBLE_BIT |
                                         VK_MEMORY_PROPERTY_HOST_COHERENT_BIT,
                             .preferred = VK_MEMORY_PROPERTY_HOST_CACHED_BIT,
                             .step = "Create D2D surface"});
  surface_ = {.texels = static_cast<std::uint32_t*>(map(device_, texels_, step)),
              .width = static_cast<int>(extent.width),
              .height = static_cast<int>(extent.height)};
  painter_.forget();
  constants_.extent = {static_cast<float>(extent.width), static_cast<float>(extent.height)};
  constants_.stride = extent.width;
  const VkBuffer memory = texels_.get();
  set_ = inputs_.bind(constantsBuffer_.get(), sizeof(Constants), std::span(&memory, 1));
  extent_ = extent;
}

void Interface::update(std::span<const OverlayItem> items, VkExtent2D extent, float scale) {
  if (extent.width != extent_.width || extent.height != extent_.height) resize(extent);
  painter_.paint(surface_, items, scale);
  boxes_ = 0;
  for (const cairo::Box& box : painter_.covered()) {
    if (boxes_ == constants_.boxes.size()) break;
    constants_.boxes[boxes_++] = {static_cast<float>(box.left), static_cast<float>(box.top),
                                  static_cast<float>(box.right), static_cast<float>(box.bottom)};
  }
}

void Interface::prepare(VkCommandBuffer commands) const {
  updateConstants(device_, commands, constantsBuffer_.get(), &constants_, sizeof(constants_));
}

void Interface::draw(VkCommandBuffer commands) const {
  const DeviceFunctions& vk = device_.vk;
  vk.vkCmdBindPipeline(commands, VK_PIPELINE_BIND_POINT_GRAPHICS, pipeline_.get());
  vk.vkCmdBindDescriptorSets(commands, VK_PIPELINE_BIND_POINT_GRAPHICS, inputs_.layout(), 0, 1,
                             &set_, 0, nullptr);
  vk.vkCmdDraw(commands, boxVertices, boxes_, 0, 0);
}

}  // namespace zeph::vulkan
