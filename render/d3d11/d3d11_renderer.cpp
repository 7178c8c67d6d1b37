// The renderer on Direct3D 11.
#include <windows.h>

#include <mmsystem.h>

#include <filesystem>
#include <stdexcept>
#include <utility>

#include "platform/system.h"
#include "render/d3d11/drawn_interface.h"
#include "render/d3d11/export_surface.h"
#include "render/d3d11/picture_pipeline.h"
#include "render/d3d11/picture_target.h"
#include "render/d3d11/window_swap_chain.h"
#include "render/renderer.h"

namespace zeph {

using namespace d3d11;

class Renderer::Target {
 public:
  Target(const GraphicsDevice& device, std::uint32_t width, std::uint32_t height,
         TexelFormat format)
      : picture(device, width, height, format) {}

  PictureTarget picture;
};

namespace {

// Sleeps of this process end on time, to a millisecond.
class PreciseTimer {
 public:
  PreciseTimer() : isSet_(timeBeginPeriod(1) == TIMERR_NOERROR) {}
  ~PreciseTimer() {
    if (isSet_) timeEndPeriod(1);
  }
  PreciseTimer(const PreciseTimer&) = delete;
  PreciseTimer& operator=(const PreciseTimer&) = delete;

 private:
  bool isSet_;
};

std::string utf8(const wchar_t* text) {
  return platform::pathToUtf8(std::filesystem::path(text));
}

struct RenderThread {
  PreciseTimer timer;
  ComUse com;
};

}  // namespace

// Everything is made on construction, so that a machine that lacks any of it says so at once.
struct Renderer::Impl {
  Impl(int computeDevice, std::unique_ptr<ExportSurface> hidden, HWND window);
  ~Impl();
  Impl(const Impl&) = delete;
  Impl& operator=(const Impl&) = delete;

  void drawPicture(ID3D11RenderTargetView* target, TexelFormat format,
                   const std::shared_ptr<const Frame>& frame, const DisplaySettings& settings,
                   const PicturePlace& place);

  std::unique_ptr<ExportSurface> surface;  // if there is no view
  GraphicsDevice device;
  WindowSwapChain chain;
  DrawnInterface overlay;
  PicturePipeline pipeline;
  FieldBuffer field;
};

Renderer::Impl::Impl(int computeDevice, std::unique_ptr<ExportSurface> hidden, HWND window)
    : surface(std::move(hidden)),
      device(computeDevice),
      chain(device, window),
      overlay(device, chain.format() == TexelFormat::rgba16),
      pipeline(device),
      field(device) {
  chain.createTargets(overlay.context());
}

// The system frees a window's images only once nothing refers to them.
Renderer::Impl::~Impl() {
  device.context().ClearState();
  device.context().Flush();
}

void Renderer::Impl::drawPicture(ID3D11RenderTargetView* target, TexelFormat format,
                                 const std::shared_ptr<const Frame>& frame,
                                 const DisplaySettings& settings, const PicturePlace& place) {
  field.transfer(frame);
  if (!frame) return;
  pipeline.draw(target, field, uniformsOf(*frame, settings, place, format == TexelFormat::rgba16),
                place, settings.flow && frame->hasVelocity);
}

std::shared_ptr<void> enterRenderThread() {
  return std::make_shared<RenderThread>();
}

Renderer::Renderer(int device) {
  auto hidden = std::make_unique<ExportSurface>();
  HWND window = hidden->window();
  impl_ = std::make_unique<Impl>(device, std::move(hidden), window);
}

Renderer::Renderer(int device, const NativeWindow& window)
    : impl_(std::make_unique<Impl>(device, nullptr, reinterpret_cast<HWND>(window.window))) {
  if (impl_->device.cudaDevice() != device)
    throw std::runtime_error("CUDA and Direct3D selected different devices.");
}

Renderer::~Renderer() = default;

std::string Renderer::deviceName() const {
  DXGI_ADAPTER_DESC1 description = {};
  check(impl_->device.adapter().GetDesc1(&description), "Describe adapter");
  return utf8(description.Description);
}

void Renderer::transferField(const std::shared_ptr<const Frame>& frame) {
  impl_->field.transfer(frame);
}

std::shared_ptr<Renderer::Target> Renderer::makeTarget(std::uint32_t width, std::uint32_t height,
                                                       TexelFormat format) {
  return std::make_shared<Target>(impl_->device, width, height, format);
}

void Renderer::drawPicture(Target& target, const std::shared_ptr<const Frame>& frame,
                           const DisplaySettings& settings, const PicturePlace& place) {
  const PictureTarget& picture = target.picture;
  impl_->drawPicture(picture.view(), picture.format(), frame, settings, place);
}

Texels Renderer::readTarget(const Target& target) {
  return target.picture.read(impl_->device);
}

void Renderer::resize(std::uint32_t width, std::uint32_t height) {
  impl_->chain.resize(width, height, impl_->overlay.context());
}

bool Renderer::present(const Presentation& presentation) {
  Impl& i = *impl_;
  const float scale = presentation.scale;
  i.overlay.clear(scale);
  if (presentation.frame)
    i.drawPicture(i.chain.target(), i.chain.format(), presentation.frame, presentation.settings,
                  {.size = presentation.side * scale, .rounded = cornerRadius * scale});
  i.overlay.draw(presentation.overlay, scale);
  i.chain.present();
  return true;
}

bool Renderer::repeats() const {
  return true;
}

// Direct3D finishes what it was given whether this process waits or not.
bool Renderer::waitForDrawing(double) {
  return true;
}

void Renderer::waitForScreen(double seconds) {
  impl_->chain.waitForFrame(seconds);
}

}  // namespace zeph
