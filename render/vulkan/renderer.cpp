// The renderer on Vulkan.
#include "render/renderer.h"

#include <array>
#include <optional>

#include "device/check.h"
#include "render/vulkan/commands.h"
#include "render/vulkan/field.h"
#include "render/vulkan/pipelines.h"
#include "render/vulkan/target.h"

namespace zeph {

using namespace vulkan;

class Renderer::Target {
 public:
  Target(const Device& device, std::uint32_t width, std::uint32_t height, TexelFormat format,
         VkRenderPass pass)
      : image(device, width, height, format, pass) {}

  Image image;
};

namespace {

int selected(int device) {
  zeph::check(cudaSetDevice(device), "cudaSetDevice(cudaDevice)");
  return device;
}

// What is drawn with for targets of one format; the pipelines come with the first field.
struct Drawing {
  Owned<VkRenderPass> pass;
  std::optional<Pipelines> pipelines;
  bool isInPieces = false;
};

Buffer makeUniforms(const Device& device) {
  return Buffer(device,
                {.bytes = sizeof(Uniforms),
                 .usage = VK_BUFFER_USAGE_UNIFORM_BUFFER_BIT | VK_BUFFER_USAGE_TRANSFER_DST_BIT,
                 .preferred = VK_MEMORY_PROPERTY_DEVICE_LOCAL_BIT,
                 .step = "Create field uniforms"});
}

}  // namespace

struct Renderer::Impl {
  explicit Impl(int computeDevice);

  Drawing& drawingFor(TexelFormat format);
  Pipelines& pipelinesFor(TexelFormat format);
  void updateUniforms(VkCommandBuffer commands, const Uniforms& values) const;
  void acquireField(VkCommandBuffer commands) const;

  int cudaDevice;
  Device device;
  Commands commands;
  Buffer uniforms;
  Field field;
  std::array<Drawing, 2> drawings;
};

Renderer::Impl::Impl(int computeDevice)
    : cudaDevice(selected(computeDevice)),
      device(computeDevice),
      commands(device),
      uniforms(makeUniforms(device)),
      field(device) {}

Drawing& Renderer::Impl::drawingFor(TexelFormat format) {
  Drawing& drawing = drawings[format == TexelFormat::bgra8 ? 0 : 1];
  if (!drawing.pass) drawing.pass = makePass(device, format);
  return drawing;
}

Pipelines& Renderer::Impl::pipelinesFor(TexelFormat format) {
  Drawing& drawing = drawingFor(format);
  if (!drawing.pipelines || drawing.isInPieces != field.isInPieces()) {
    drawing.isInPieces = field.isInPieces();
    drawing.pipelines.emplace(device, drawing.pass.get(), drawing.isInPieces);
  }
  return *drawing.pipelines;
}

void Renderer::Impl::updateUniforms(VkCommandBuffer buffer, const Uniforms& values) const {
  device.vk.vkCmdUpdateBuffer(buffer, uniforms.get(), 0, sizeof(values), &values);
  const VkMemoryBarrier written = {.sType = VK_STRUCTURE_TYPE_MEMORY_BARRIER,
                                   .srcAccessMask = VK_ACCESS_TRANSFER_WRITE_BIT,
                                   .dstAccessMask = VK_ACCESS_UNIFORM_READ_BIT};
  device.vk.vkCmdPipelineBarrier(
      buffer, VK_PIPELINE_STAGE_TRANSFER_BIT,
      VK_PIPELINE_STAGE_VERTEX_SHADER_BIT | VK_PIPELINE_STAGE_FRAGMENT_SHADER_BIT, 0, 1, &written,
      0, nullptr, 0, nullptr);
}

// What another interface has written becomes visible here. The host's own writes are when work is
// submitted.
void Renderer::Impl::acquireField(VkCommandBuffer buffer) const {
  if (!field.isShared()) return;
  for (VkBuffer piece : field.buffers()) {
    const VkBufferMemoryBarrier acquired = {.sType = VK_STRUCTURE_TYPE_BUFFER_MEMORY_BARRIER,
                                            .dstAccessMask = VK_ACCESS_SHADER_READ_BIT,
                                            .srcQueueFamilyIndex = VK_QUEUE_FAMILY_EXTERNAL,
                                            .dstQueueFamilyIndex = device.queueFamily(),
                                            .buffer = piece,
                                            .size = VK_WHOLE_SIZE};
    device.vk.vkCmdPipelineBarrier(
        buffer, VK_PIPELINE_STAGE_TOP_OF_PIPE_BIT,
        VK_PIPELINE_STAGE_VERTEX_SHADER_BIT | VK_PIPELINE_STAGE_FRAGMENT_SHADER_BIT, 0, 0, nullptr,
        1, &acquired, 0, nullptr);
  }
}

Renderer::Renderer(int device) : impl_(std::make_unique<Impl>(device)) {}

Renderer::~Renderer() = default;

std::string Renderer::deviceName() const {
  return impl_->device.name();
}

void Renderer::transferField(const std::shared_ptr<const Frame>& frame) {
  impl_->field.transfer(frame);
}

std::shared_ptr<Renderer::Target> Renderer::makeTarget(std::uint32_t width, std::uint32_t height,
                                                       TexelFormat format) {
  return std::make_shared<Target>(impl_->device, width, height, format,
                                  impl_->drawingFor(format).pass.get());
}

void Renderer::drawPicture(Target& target, const std::shared_ptr<const Frame>& frame,
                           const DisplaySettings& settings, const PicturePlace& place) {
  transferField(frame);
  if (!frame) return;
  Image& image = target.image;
  Pipelines& pipelines = impl_->pipelinesFor(image.format());
  const Uniforms uniforms =
      uniformsOf(*frame, settings, place, image.format() == TexelFormat::rgba16);
  const VkDescriptorSet set = pipelines.bind(impl_->uniforms.get(), impl_->field.buffers());
  const VkPipeline fieldPipeline = pipelines.field(uniforms);
  const bool hasLines = settings.flow && frame->hasVelocity;
  const VkPipeline flowPipeline = hasLines ? pipelines.flow(uniforms) : VK_NULL_HANDLE;
  const DeviceFunctions& vk = impl_->device.vk;
  // Up is positive in the shaders and down in Vulkan.
  const VkViewport viewport = {.x = place.x,
                               .y = place.y + place.size,
                               .width = place.size,
                               .height = -place.size,
                               .minDepth = 0,
                               .maxDepth = 1};
  const VkRect2D whole = {.extent = image.extent()};
  const VkRenderPassBeginInfo begin = {.sType = VK_STRUCTURE_TYPE_RENDER_PASS_BEGIN_INFO,
                                       .renderPass = impl_->drawingFor(image.format()).pass.get(),
                                       .framebuffer = image.framebuffer(),
                                       .renderArea = whole};
  impl_->commands.run([&](VkCommandBuffer buffer) {
    impl_->updateUniforms(buffer, uniforms);
    impl_->acquireField(buffer);
    image.prepare(impl_->device, buffer);
    vk.vkCmdBeginRenderPass(buffer, &begin, VK_SUBPASS_CONTENTS_INLINE);
    vk.vkCmdSetViewport(buffer, 0, 1, &viewport);
    vk.vkCmdSetScissor(buffer, 0, 1, &whole);
    vk.vkCmdBindDescriptorSets(buffer, VK_PIPELINE_BIND_POINT_GRAPHICS, pipelines.layout(), 0, 1,
                               &set, 0, nullptr);
    vk.vkCmdBindPipeline(buffer, VK_PIPELINE_BIND_POINT_GRAPHICS, fieldPipeline);
    vk.vkCmdDraw(buffer, fieldVertices, 1, 0, 0);
    if (hasLines) {
      vk.vkCmdBindPipeline(buffer, VK_PIPELINE_BIND_POINT_GRAPHICS, flowPipeline);
      vk.vkCmdDraw(buffer, flowVertices, 1, 0, 0);
    }
    vk.vkCmdEndRenderPass(buffer);
  });
}

Texels Renderer::readTarget(const Target& target) {
  return target.image.read(impl_->device, impl_->commands);
}

}  // namespace zeph
