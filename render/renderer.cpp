#include "render/renderer.h"

#include <utility>

#include "render/png/png_file.h"

namespace zeph {

Texels Renderer::drawSquare(const std::shared_ptr<const Frame>& frame,
                            const DisplaySettings& settings, std::uint32_t pixels) {
  const auto target = makeTarget(pixels, pixels, TexelFormat::bgra8);
  drawPicture(*target, frame, settings, {.size = static_cast<float>(pixels)});
  return readTarget(*target);
}

void Renderer::renderPng(const std::shared_ptr<const Frame>& frame, const DisplaySettings& settings,
                         const std::string& path, std::uint32_t pixels) {
  encodePng(drawSquare(frame, settings, pixels), path);
}

void encodePng(Texels texels, const std::string& path) {
  const std::uint32_t width = texels.width;
  const std::uint32_t height = texels.height;
  writePng(path, width, height, displayValues(std::move(texels)));
}

}  // namespace zeph
