// What the picture shows, and in which colours.
#pragma once

#include <cstdint>

namespace zeph {

enum class Display : std::uint32_t { vorticity = 0, speed = 1, enstrophy = 2 };
enum class Palette : std::uint32_t { aurora = 0, ember = 1, glacier = 2, inferno = 3 };
enum class ColorRange : std::uint32_t { sigma = 0, exposure = 1 };

struct DisplaySettings {
  Display display = Display::vorticity;
  Palette palette = Palette::ember;
  ColorRange colorRange = ColorRange::sigma;
  float exposure = 1.2f;  // gain of the compressive curves
  float sigma = 2.5f;     // multiple of the standard deviation that fills the scale
  bool flow = false;      // flow lines

  bool needsVelocity() const { return display == Display::speed || flow; }
  bool operator==(const DisplaySettings&) const = default;
};

}  // namespace zeph
