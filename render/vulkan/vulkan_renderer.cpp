// The renderer on Vulkan.
#include "render/renderer.h"

#include <array>
#include <optional>
#include <stdexcept>

#include "device/check.h"
#include "render/vulkan/commands.h"
#include "render/vulkan/field_memory.h"
#include "render/vulkan/graphics_pipeline.h"
#include "render/vulkan/interface_layer.h"
#include "render/vulkan/picture_pipelines.h"
#include "render/vulkan/swap_chain.h"
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

// The pass and the pipelines for targets of one format. The pipelines are made for the first field.
struct Drawing {
  Owned<VkRenderPass> pass;
  std::optional<PicturePipelines> pipelines;
  bool isInPieces = false;
};

// What the commands of one picture need.
struct Picture {
  Uniforms uniforms;
  PicturePlace place;
  VkDescriptorSet inputs = VK_NULL_HANDLE;
  VkPipelineLayout layout = VK_NULL_HANDLE;
  VkPipeline field = VK_NULL_HANDLE;
  VkPipeline flow = VK_NULL_HANDLE;  // null if no lines are drawn
};

}  // namespace

struct Renderer::Impl {
  Impl(int computeDevice, const NativeWindow* window);
  ~Impl();
  Impl(const Impl&) = delete;
  Impl& operator=(const Impl&) = delete;

  Drawing& drawingFor(TexelFormat format);
  PicturePipelines& pipelinesFor(TexelFormat format);
  Picture preparePicture(TexelFormat format, const Frame& frame, const DisplaySettings& settings,
                         const PicturePlace& place);
  void recordInputs(VkCommandBuffer buffer, const Picture& picture) const;
  void acquireField(VkCommandBuffer buffer) const;
  void beginPass(VkCommandBuffer buffer, VkRenderPass pass, VkFramebuffer framebuffer,
                 VkExtent2D extent) const;
  void recordPicture(VkCommandBuffer buffer, const Picture& picture) const;
  void recordClear(VkCommandBuffer buffer) const;
  void recordInterface(VkCommandBuffer buffer) const;
  void recordPresentation(VkCommandBuffer buffer, const SwapChain::Drawable& drawable,
                          const std::optional<Picture>& picture);

  Device device;
  Commands commands;
  Buffer uniforms;
  Field field;
  std::array<Drawing, 2> drawings;
  std::optional<SwapChain> chain;  // if there is a window
  std::optional<Interface> interface;
  VkExtent2D windowSize = {};
};

Renderer::Impl::Impl(int computeDevice, const NativeWindow* window)
    : device(selected(computeDevice), window),
      commands(device),
      uniforms(makeConstants(device, sizeof(Uniforms), "Create field uniforms")),
      field(device) {
  if (window == nullptr) return;
  chain.emplace(device);
  interface.emplace(device, drawingFor(chain->format()).pass.get(), chain->format());
}

// What is being drawn or shown uses the members, which are destroyed one by one.
Renderer::Impl::~Impl() {
  device.vk.vkDeviceWaitIdle(device.handle());
}

Drawing& Renderer::Impl::drawingFor(TexelFormat format) {
  Drawing& drawing = drawings[format == TexelFormat::bgra8 ? 0 : 1];
  if (!drawing.pass) drawing.pass = makePass(device, format);
  return drawing;
}

PicturePipelines& Renderer::Impl::pipelinesFor(TexelFormat format) {
  Drawing& drawing = drawingFor(format);
  if (!drawing.pipelines || drawing.isInPieces != field.isInPieces()) {
    drawing.isInPieces = field.isInPieces();
    drawing.pipelines.emplace(device, drawing.pass.get(), drawing.isInPieces);
  }
  return *drawing.pipelines;
}

Picture Renderer::Impl::preparePicture(TexelFormat format, const Frame& frame,
                                       const DisplaySettings& settings, const PicturePlace& place) {
  PicturePipelines& pipelines = pipelinesFor(format);
  Picture picture;
  picture.uniforms = uniformsOf(frame, settings, place, format == TexelFormat::rgba16);
  picture.place = place;
  picture.inputs =
      pipelines.inputs().bind(uniforms.get(), sizeof(picture.uniforms), field.buffers());
  picture.layout = pipelines.inputs().layout();
  picture.field = pipelines.field(picture.uniforms);
  if (settings.flow && frame.hasVelocity) picture.flow = pipelines.flow(picture.uniforms);
  return picture;
}

void Renderer::Impl::recordInputs(VkCommandBuffer buffer, const Picture& picture) const {
  updateConstants(device, buffer, uniforms.get(), &picture.uniforms, sizeof(Uniforms));
  acquireField(buffer);
}

// Makes what CUDA has written visible to the shaders. The host's own writes become visible when
// work is submitted.
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

void Renderer::Impl::beginPass(VkCommandBuffer buffer, VkRenderPass pass, VkFramebuffer framebuffer,
                               VkExtent2D extent) const {
  const VkRect2D whole = {.extent = extent};
  const VkRenderPassBeginInfo begin = {.sType = VK_STRUCTURE_TYPE_RENDER_PASS_BEGIN_INFO,
                                       .renderPass = pass,
                                       .framebuffer = framebuffer,
                                       .renderArea = whole};
  device.vk.vkCmdBeginRenderPass(buffer, &begin, VK_SUBPASS_CONTENTS_INLINE);
  device.vk.vkCmdSetScissor(buffer, 0, 1, &whole);
}

void Renderer::Impl::recordPicture(VkCommandBuffer buffer, const Picture& picture) const {
  const DeviceFunctions& vk = device.vk;
  setViewport(device, buffer, picture.place.x, picture.place.y, picture.place.size,
              picture.place.size);
  vk.vkCmdBindDescriptorSets(buffer, VK_PIPELINE_BIND_POINT_GRAPHICS, picture.layout, 0, 1,
                             &picture.inputs, 0, nullptr);
  vk.vkCmdBindPipeline(buffer, VK_PIPELINE_BIND_POINT_GRAPHICS, picture.field);
  vk.vkCmdDraw(buffer, fieldVertices, 1, 0, 0);
  if (picture.flow == VK_NULL_HANDLE) return;
  vk.vkCmdBindPipeline(buffer, VK_PIPELINE_BIND_POINT_GRAPHICS, picture.flow);
  vk.vkCmdDraw(buffer, flowVertices, 1, 0, 0);
}

void Renderer::Impl::recordClear(VkCommandBuffer buffer) const {
  const Color color =
      chain->format() == TexelFormat::rgba16 ? linearized(clearColour) : clearColour;
  const VkClearAttachment clear = {
      .aspectMask = VK_IMAGE_ASPECT_COLOR_BIT,
      .clearValue = {.color = {.float32 = {color.red, color.green, color.blue, color.alpha}}}};
  const VkClearRect whole = {.rect = {.extent = chain->extent()}, .layerCount = 1};
  device.vk.vkCmdClearAttachments(buffer, 1, &clear, 1, &whole);
}

void Renderer::Impl::recordInterface(VkCommandBuffer buffer) const {
  const VkExtent2D extent = chain->extent();
  setViewport(device, buffer, 0, 0, static_cast<float>(extent.width),
              static_cast<float>(extent.height));
  interface->draw(buffer);
}

void Renderer::Impl::recordPresentation(VkCommandBuffer buffer, const SwapChain::Drawable& drawable,
                                        const std::optional<Picture>& picture) {
  if (picture) recordInputs(buffer, *picture);
  interface->prepare(buffer);
  moveImage(device, buffer, drawable.image, VK_IMAGE_LAYOUT_UNDEFINED,
            VK_IMAGE_LAYOUT_COLOR_ATTACHMENT_OPTIMAL);
  beginPass(buffer, drawingFor(chain->format()).pass.get(), drawable.framebuffer, chain->extent());
  recordClear(buffer);
  if (picture) recordPicture(buffer, *picture);
  recordInterface(buffer);
  device.vk.vkCmdEndRenderPass(buffer);
  moveImage(device, buffer, drawable.image, VK_IMAGE_LAYOUT_COLOR_ATTACHMENT_OPTIMAL,
            VK_IMAGE_LAYOUT_PRESENT_SRC_KHR);
}

// Every device can be shown, and Vulkan needs nothing of its thread.
std::optional<int> displayDevice() {
  return std::nullopt;
}

std::shared_ptr<void> enterRenderThread() {
  return nullptr;
}

Renderer::Renderer(int device) : impl_(std::make_unique<Impl>(device, nullptr)) {}

Renderer::Renderer(int device, const NativeWindow& window)
    : impl_(std::make_unique<Impl>(device, &window)) {}

Renderer::~Renderer() = default;

std::string Renderer::deviceName() const {
  return impl_->device.name();
}

// Waits for the drawing that may still read the memory.
void Renderer::transferField(const std::shared_ptr<const Frame>& frame) {
  impl_->commands.wait();
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
  const Picture picture = impl_->preparePicture(image.format(), *frame, settings, place);
  impl_->commands.run([&](VkCommandBuffer buffer) {
    impl_->recordInputs(buffer, picture);
    image.prepare(impl_->device, buffer);
    impl_->beginPass(buffer, impl_->drawingFor(image.format()).pass.get(), image.framebuffer(),
                     image.extent());
    impl_->recordPicture(buffer, picture);
    impl_->device.vk.vkCmdEndRenderPass(buffer);
  });
}

Texels Renderer::readTarget(const Target& target) {
  return target.image.read(impl_->device, impl_->commands);
}

void Renderer::resize(std::uint32_t width, std::uint32_t height) {
  const VkExtent2D size = impl_->windowSize;
  if (width == 0 || height == 0 || (width == size.width && height == size.height)) return;
  impl_->commands.wait();
  impl_->device.waitIdle();
  impl_->chain->resize(width, height, impl_->drawingFor(impl_->chain->format()).pass.get());
  impl_->windowSize = {width, height};
}

bool Renderer::repeats() const {
  return false;
}

bool Renderer::present(const Presentation& presentation) {
  Impl& i = *impl_;
  i.commands.wait();
  SwapChain::Drawable drawable;
  if (!i.chain->begin(drawable)) {
    // The next resize makes new images, of whatever size.
    i.windowSize = {};
    return false;
  }
  std::optional<Picture> picture;
  if (presentation.frame) {
    i.field.transfer(presentation.frame);
    picture = i.preparePicture(i.chain->format(), *presentation.frame, presentation.settings,
                               {.size = presentation.side * presentation.scale,
                                .rounded = cornerRadius * presentation.scale});
  }
  i.interface->update(presentation.overlay, i.chain->extent(), presentation.scale);
  i.commands.start([&](VkCommandBuffer buffer) { i.recordPresentation(buffer, drawable, picture); },
                   drawable.acquired, drawable.drawn);
  i.chain->show(drawable);
  return true;
}

bool Renderer::waitForDrawing(double seconds) {
  return impl_->commands.wait(static_cast<std::uint64_t>(seconds * 1e9));
}

void Renderer::waitForScreen(double seconds) {
  impl_->chain->waitForPrevious(static_cast<std::uint64_t>(seconds * 1e9));
}

}  // namespace zeph
