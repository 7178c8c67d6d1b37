// The renderer: everything that belongs to a GPU's picture of the flow. A renderer is confined to
// the thread that has made it; there may be any number of them.
//
// It is implemented once for each graphics system: on Linux render/vulkan, on Windows render/d3d11.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
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

// The device whose frames the system's first usable graphics adapter shows, or none if any device's
// can be shown. Raises std::runtime_error if there is a GPU for computing but no adapter of it.
std::optional<int> displayDevice();

// What the graphics system needs of the thread that presents, kept until after the renderer is
// gone: on Windows COM and a precise timer. Raises std::runtime_error.
std::shared_ptr<void> enterRenderThread();

class Renderer {
 public:
  // For the frames of a device, which the calling thread then has selected. Raises
  // std::runtime_error, also if the machine has nothing to draw with.
  explicit Renderer(int device);
  // The same for pictures in a window, in high dynamic range if the window's system offers it.
  Renderer(int device, const NativeWindow& window);
  ~Renderer();
  Renderer(const Renderer&) = delete;
  Renderer& operator=(const Renderer&) = delete;

  // The name of the device that draws.
  std::string deviceName() const;

  // Brings the three planes of a frame to where the shaders read them, unless they are there
  // already. Raises std::runtime_error and keeps the previous frame then.
  void transferField(const std::shared_ptr<const Frame>& frame);

  // An off-screen surface to draw into; 16-bit floats are for high dynamic range. It must be
  // destroyed before its renderer. A null frame draws nothing.
  class Target;
  std::shared_ptr<Target> makeTarget(std::uint32_t width, std::uint32_t height, TexelFormat format);
  void drawPicture(Target& target, const std::shared_ptr<const Frame>& frame,
                   const DisplaySettings& settings, const PicturePlace& place);
  Texels readTarget(const Target& target);

  // For the window: its size in pixels, which may be the same as before, and what it shows. Returns
  // false if nothing could be shown this time.
  void resize(std::uint32_t width, std::uint32_t height);
  bool present(const Presentation& presentation);
  // Whether a picture that is on the screen already is to be presented again all the same.
  bool repeats() const;
  // Waits until the last presentation has been drawn, at most so long. False if it still is being
  // drawn.
  bool waitForDrawing(double seconds);
  // After present(): waits until the presentation before it is on the screen, so that the window
  // takes another one, at most so long.
  // Returns at once where the graphics driver does not know.
  void waitForScreen(double seconds);

  // A square picture of so many pixels a side in standard range, without corners: to be encoded by
  // any thread, and as a file.
  Texels drawSquare(const std::shared_ptr<const Frame>& frame, const DisplaySettings& settings,
                    std::uint32_t pixels);
  void renderPng(const std::shared_ptr<const Frame>& frame, const DisplaySettings& settings,
                 const std::string& path, std::uint32_t pixels);

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

// Writes the texels of a target of either format as a PNG file.
void encodePng(Texels texels, const std::string& path);

}  // namespace zeph
