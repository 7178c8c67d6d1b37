// The renderer of a build that has no graphics system.
#include "render/renderer.h"

#include <stdexcept>

#include "render/png/png.h"

namespace zeph {

struct Renderer::Impl {};
class Renderer::Target {};

Renderer::Renderer(int) {
  throw std::runtime_error("This build cannot draw pictures.");
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

}  // namespace zeph
