// The picture, worked out in float64 one point at a time.
#pragma once

#include <algorithm>
#include <array>
#include <cmath>

#include "tests/render/scene.h"

namespace zeph::test {

// A display value is rounded to a step of 1/255, which is up to half a step, and the shaders
// compute with 32 bits and with the device's own powers, which the steepest colours turn into up to
// one more.
constexpr double displayTolerance = 1.5 / 255;

// The planes of a frame on the processor.
class ReferenceField {
 public:
  explicit ReferenceField(const Frame& frame) : frame_(frame) {}

  double sample(int plane, double u, double v) const {
    const double x = (u - std::floor(u)) * frame_.gridSize;
    const double y = (v - std::floor(v)) * frame_.gridSize;
    const int i = static_cast<int>(x);
    const int j = static_cast<int>(y);
    const double right = x - i;
    const double up = y - j;
    return (1 - up) * ((1 - right) * at(plane, i, j) + right * at(plane, i + 1, j)) +
           up * ((1 - right) * at(plane, i, j + 1) + right * at(plane, i + 1, j + 1));
  }

 private:
  double at(int plane, int i, int j) const {
    const auto n = static_cast<std::size_t>(frame_.gridSize);
    const auto column = static_cast<std::size_t>(i) % n;
    const auto row = static_cast<std::size_t>(j) % n;
    return static_cast<double>(
        frame_.data()[(static_cast<std::size_t>(plane) * n + row) * n + column]);
  }

  const Frame& frame_;
};

struct Ramp {
  Color middle;
  Color highlight;
};

inline Color mix(const Color& a, const Color& b, double share) {
  return {a.red * (1 - share) + b.red * share, a.green * (1 - share) + b.green * share,
          a.blue * (1 - share) + b.blue * share};
}

inline double eased(double x) {
  return 3 * x * x - 2 * x * x * x;
}

inline Color infernoAt(double share) {
  constexpr std::array<Color, 6> points = {{{0.001, 0, 0.014},
                                            {0.258, 0.039, 0.406},
                                            {0.578, 0.148, 0.404},
                                            {0.865, 0.317, 0.226},
                                            {0.988, 0.645, 0.04},
                                            {0.988, 0.998, 0.645}}};
  const double s = 5 * share;
  const int k = std::clamp(static_cast<int>(s), 0, 4);
  const auto at = static_cast<std::size_t>(k);
  return mix(points[at], points[at + 1], s - k);
}

// For t from -1 to 1.
inline Color divergingReference(Palette palette, double t) {
  if (palette == Palette::inferno) return infernoAt((t + 1) / 2);
  static const std::array<Ramp, 3> above = {{{{0.025, 0.60, 0.58}, {0.48, 1.0, 0.84}},
                                             {{0.92, 0.19, 0.065}, {1.0, 0.88, 0.43}},
                                             {{0.01, 0.46, 0.78}, {0.70, 1.0, 0.99}}}};
  static const std::array<Ramp, 3> below = {{{{0.48, 0.20, 0.79}, {0.94, 0.67, 1.0}},
                                             {{0.28, 0.17, 0.69}, {0.76, 0.64, 1.0}},
                                             {{0.14, 0.24, 0.68}, {0.70, 0.79, 1.0}}}};
  const Ramp& ramp = (t >= 0 ? above : below)[static_cast<std::size_t>(palette)];
  const double a = std::fabs(t);
  const Color dark = mix({0.017, 0.026, 0.055}, ramp.middle, eased(std::min(a / 0.6, 1.0)));
  return mix(dark, ramp.highlight, eased(std::max((a - 0.34) / 0.66, 0.0)));
}

// For t from 0 to 1.
inline Color sequentialReference(Palette palette, double t) {
  if (palette == Palette::inferno) return infernoAt(t);
  static const std::array<Ramp, 3> ramps = {{{{0.30, 0.17, 0.63}, {0.36, 1.0, 0.80}},
                                             {{0.67, 0.10, 0.17}, {1.0, 0.86, 0.41}},
                                             {{0.02, 0.33, 0.72}, {0.73, 0.97, 1.0}}}};
  const Ramp& ramp = ramps[static_cast<std::size_t>(palette)];
  const Color dark = mix({0.019, 0.028, 0.063}, ramp.middle, eased(std::min(2 * t, 1.0)));
  return mix(dark, ramp.highlight, eased(std::max((t - 0.32) / 0.68, 0.0)));
}

// The display value at a point of the picture.
inline Color colorReference(const Frame& frame, const DisplaySettings& settings, double u,
                            double v) {
  const ReferenceField field(frame);
  const double gain = std::max(static_cast<double>(settings.exposure), 0.02);
  const double w = field.sample(0, u, v);
  const double largest = std::max(static_cast<double>(frame.maxVorticity), 1e-4);
  switch (settings.display) {
    case Display::vorticity: {
      if (settings.colorRange == ColorRange::exposure)
        return divergingReference(settings.palette, std::tanh(2.4 * gain * w / largest));
      const double filled = static_cast<double>(frame.stdVorticity) *  //
                            static_cast<double>(settings.sigma);
      const double deviation = w - static_cast<double>(frame.meanVorticity);
      return divergingReference(settings.palette,
                                std::clamp(deviation / std::max(filled, 1e-12), -1.0, 1.0));
    }
    case Display::speed: {
      const double speed = std::hypot(field.sample(1, u, v), field.sample(2, u, v));
      const double fastest = std::max(static_cast<double>(frame.maxSpeed), 1e-4);
      return sequentialReference(settings.palette, 1 - std::exp(-2.1 * gain * speed / fastest));
    }
    default:
      return sequentialReference(settings.palette,
                                 1 - std::exp(-8 * gain * (w / largest) * (w / largest)));
  }
}

inline double linearReference(double c) {
  return c <= 0.04045 ? c / 12.92 : std::pow((c + 0.055) / 1.055, 2.4);
}

// A display value as linear light in high dynamic range.
inline Color lightReference(const Color& color) {
  const Color light = {linearReference(color.red), linearReference(color.green),
                       linearReference(color.blue)};
  const double brightest = std::max({light.red, light.green, light.blue});
  const double gain = 1 + eased(std::clamp((brightest - 0.25) / 0.75, 0.0, 1.0));
  return {light.red * gain, light.green * gain, light.blue * gain};
}

// The centre of a pixel in a picture of so many pixels a side; row 0 is the top one.
inline Color pixelReference(const Frame& frame, const DisplaySettings& settings, int pixels,
                            int column, int row) {
  return colorReference(frame, settings, (column + 0.5) / pixels, 1 - (row + 0.5) / pixels);
}

// Compares each pixel of a picture in standard range.
inline void expectReference(const Picture& picture, const Frame& frame,
                            const DisplaySettings& settings) {
  for (int row = 0; row < picture.height(); ++row) {
    for (int column = 0; column < picture.width(); ++column) {
      const Color found = picture.at(column, row);
      const Color expected = pixelReference(frame, settings, picture.width(), column, row);
      ASSERT_LE(largestDifference(found, expected), displayTolerance)
          << "column " << column << ", row " << row << ": " << found.red << ' ' << found.green
          << ' ' << found.blue << ", expected " << expected.red << ' ' << expected.green << ' '
          << expected.blue;
      ASSERT_EQ(picture.alphaAt(column, row), 1.0) << "column " << column << ", row " << row;
    }
  }
}

}  // namespace zeph::test
