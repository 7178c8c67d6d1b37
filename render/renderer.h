// The renderer: everything that belongs to a GPU's picture of the flow. A renderer is confined to
// the thread that has made it; there may be any number of them.
//
// Which graphics system stands behind it is the platform's: render/vulkan on Linux.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "render/canvas.h"
#include "render/display_settings.h"
#include "render/overlay.h"
#include "render/texels.h"
#include "render/uniforms.h"
#include "solver/statistics.h"

namespace zeph {

// What the view shows at one presentation.
struct Presentation {
  std::shared_ptr<const Frame> frame;  // or none
  DisplaySettings settings;
  std::vector<OverlayItem> overlay;
  float side = 0;   // of the square picture, in device-independent units
  float scale = 1;  // pixels for each of them

  bool operator==(const Presentation&) const = default;
};

class Renderer {
 public:
  // For the frames of a device, which the thread selects. Raises std::runtime_error, also where
  // nothing can draw.
  explicit Renderer(int device);
  // The same for pictures in a window, in high dynamic range where the system offers it there.
  Renderer(int device, const NativeWindow& window);
  ~Renderer();
  Renderer(const Renderer&) = delete;
  Renderer& operator=(const Renderer&) = delete;

  // The name of the device that draws.
  std::string deviceName() const;

  // Lets the shaders read the three planes of a frame. Nothing is moved for the frame that they
  // read already. Raises std::runtime_error; the frame before stays then.
  void transferField(const std::shared_ptr<const Frame>& frame);

  // A surface to draw into that is not on a screen; 16-bit floats are for high dynamic range. It
  // goes before its renderer. Without a frame nothing is drawn.
  class Target;
  std::shared_ptr<Target> makeTarget(std::uint32_t width, std::uint32_t height, TexelFormat format);
  void drawPicture(Target& target, const std::shared_ptr<const Frame>& frame,
                   const DisplaySettings& settings, const PicturePlace& place);
  Texels readTarget(const Target& target);

  // Of the window: its size in pixels, where that has changed, and what it shows. False where
  // nothing could be shown now.
  void resize(std::uint32_t width, std::uint32_t height);
  bool present(const Presentation& presentation);
  // Until what was presented last has been drawn, or for so long.
  void waitForLatency(double seconds);

  // Writes a square picture of so many pixels a side in standard range, without corners.
  void renderPng(const std::shared_ptr<const Frame>& frame, const DisplaySettings& settings,
                 const std::string& path, std::uint32_t pixels);

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

// Writes what has been drawn into a target, whatever its format.
void encodePng(Texels texels, const std::string& path);

}  // namespace zeph
