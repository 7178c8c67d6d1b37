// The stand-in for renderer, canvas and PNG files in a build without a graphics system.
#include "render/renderer.h"

#include <stdexcept>

#include "render/png/png_file.h"

namespace zeph {

struct Renderer::Impl {};
class Renderer::Target {};

Renderer::Renderer(int) {
  throw std::runtime_error("This build cannot draw pictures.");
}

Renderer::Renderer(int, const NativeWindow&) : Renderer(0) {}

std::shared_ptr<void> enterRenderThread() {
  return nullptr;
}

std::optional<int> displayDevice() {
  return std::nullopt;
}

struct Canvas::Impl {};

Canvas::Canvas(void*, std::function<void(const Click&)>) {
  throw std::runtime_error("Cannot create native canvas.");
}

Canvas::~Canvas() = default;

WindowState Canvas::askWindow() {
  return {};
}

const WindowState& Canvas::window() const {
  static const WindowState none;
  return none;
}

bool Canvas::isParentGone() const {
  return true;
}

void Canvas::wait(std::optional<double>) {}

void Canvas::wake() const {}

NativeWindow Canvas::native() const {
  return {};
}

void Canvas::resize(int, int) {}

bool Canvas::takeEvents() {
  return false;
}

void writePng(const std::string&, std::uint32_t, std::uint32_t, std::span<const std::byte>) {
  throw std::runtime_error("This build cannot write PNG files.");
}

Renderer::~Renderer() = default;

std::string Renderer::deviceName() const {
  return {};
}

void Renderer::transferField(const std::shared_ptr<const Frame>&) {}

std::shared_ptr<Renderer::Target> Renderer::makeTarget(std::uint32_t, std::uint32_t, TexelFormat) {
  return nullptr;
}

void Renderer::drawPicture(Target&, const std::shared_ptr<const Frame>&, const DisplaySettings&,
                           const PicturePlace&) {}

Texels Renderer::readTarget(const Target&) {
  return {};
}

void Renderer::resize(std::uint32_t, std::uint32_t) {}

bool Renderer::repeats() const {
  return false;
}

bool Renderer::present(const Presentation&) {
  return false;
}

bool Renderer::waitForDrawing(double) {
  return true;
}

void Renderer::waitForScreen(double) {}

}  // namespace zeph
