// Frames made by hand, and a renderer that draws them.
#pragma once

#include <gtest/gtest.h>
#ifdef __SANITIZE_ADDRESS__
#include <dlfcn.h>
#endif

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "render/renderer.h"
#include "solver/device_resources.h"
#include "tests/support/devices.h"

namespace zeph::test {

// A function of the unit square; x runs to the right, y upward.
using Plane = std::function<double(double x, double y)>;

inline double zero(double, double) {
  return 0;
}

// Three planes, one after the other, row 0 first.
inline std::vector<float> valuesOf(int n, const Plane& w, const Plane& u, const Plane& v) {
  std::vector<float> values;
  values.reserve(3 * static_cast<std::size_t>(n) * static_cast<std::size_t>(n));
  for (const Plane& plane : {w, u, v}) {
    for (int j = 0; j < n; ++j)
      for (int i = 0; i < n; ++i)
        values.push_back(static_cast<float>(plane(static_cast<double>(i) / n,  //
                                                  static_cast<double>(j) / n)));
  }
  return values;
}

// The moments of a frame.
inline Frame describe(int n, const std::vector<float>& values) {
  const std::size_t plane = static_cast<std::size_t>(n) * static_cast<std::size_t>(n);
  double sum = 0;
  double squares = 0;
  double largest = 0;
  double fastest = 0;
  for (std::size_t k = 0; k < plane; ++k) {
    const double w = static_cast<double>(values[k]);
    sum += w;
    squares += w * w;
    largest = std::max(largest, std::fabs(w));
    fastest = std::max(fastest, std::hypot(static_cast<double>(values[plane + k]),
                                           static_cast<double>(values[2 * plane + k])));
  }
  const double mean = sum / static_cast<double>(plane);
  Frame frame;
  frame.gridSize = n;
  frame.maxVorticity = static_cast<float>(largest);
  frame.meanVorticity = static_cast<float>(mean);
  frame.stdVorticity = static_cast<float>(
      std::sqrt(std::max(squares / static_cast<double>(plane) - mean * mean, 0.0)));
  frame.maxSpeed = static_cast<float>(fastest);
  frame.hasVelocity = true;
  return frame;
}

// On the device that the thread has selected.
inline std::shared_ptr<Frame> frameOf(int n, const std::vector<float>& values) {
  auto frame = std::make_shared<Frame>(describe(n, values));
  frame->block = allocateBlock(values.size());
  cudaMemcpy(frame->block.get(), values.data(), values.size() * sizeof(float),
             cudaMemcpyHostToDevice);
  return frame;
}

inline std::shared_ptr<Frame> frameOf(int n, const Plane& w, const Plane& u = zero,
                                      const Plane& v = zero) {
  return frameOf(n, valuesOf(n, w, u, v));
}

// Values without any order, of both signs, with a mean of their own.
inline std::shared_ptr<Frame> noise(int n, unsigned seed = 1) {
  std::mt19937 engine(seed);
  std::uniform_real_distribution<float> numbers(-1.0f, 1.4f);
  std::vector<float> values(3 * static_cast<std::size_t>(n) * static_cast<std::size_t>(n));
  for (float& value : values) value = numbers(engine);
  return frameOf(n, values);
}

struct Color {
  double red = 0;
  double green = 0;
  double blue = 0;
};

// Display values from 0 to 1, or linear light.
class Picture {
 public:
  explicit Picture(Texels texels) : texels_(std::move(texels)) {}

  int width() const { return static_cast<int>(texels_.width); }
  int height() const { return static_cast<int>(texels_.height); }
  const std::vector<std::byte>& data() const { return texels_.data; }

  // Row 0 is the top one.
  Color at(int column, int row) const {
    if (texels_.format == TexelFormat::bgra8)
      return {byteAt(column, row, 2), byteAt(column, row, 1), byteAt(column, row, 0)};
    return {halfAt(column, row, 0), halfAt(column, row, 1), halfAt(column, row, 2)};
  }
  double alphaAt(int column, int row) const {
    return texels_.format == TexelFormat::bgra8 ? byteAt(column, row, 3) : halfAt(column, row, 3);
  }

  friend bool operator==(const Picture& a, const Picture& b) { return a.data() == b.data(); }

 private:
  std::size_t index(int column, int row) const {
    return (static_cast<std::size_t>(row) * texels_.width + static_cast<std::size_t>(column)) *
           bytesPerTexel(texels_.format);
  }
  double byteAt(int column, int row, std::size_t channel) const {
    return static_cast<double>(texels_.data[index(column, row) + channel]) / 255;
  }
  double halfAt(int column, int row, std::size_t channel) const {
    const std::byte* half = &texels_.data[index(column, row) + 2 * channel];
    const auto bits = static_cast<std::uint16_t>(static_cast<unsigned>(half[0]) |
                                                 static_cast<unsigned>(half[1]) << 8);
    return static_cast<double>(floatOfHalf(bits));
  }

  Texels texels_;
};

inline double largestDifference(const Color& a, const Color& b) {
  return std::max(
      {std::fabs(a.red - b.red), std::fabs(a.green - b.green), std::fabs(a.blue - b.blue)});
}

// Whether a renderer could not be created because there is no Vulkan device.
inline bool isLackOfVulkan(const std::string& text) {
  return text == "No Vulkan device found." || text == "This build cannot draw pictures.";
}

// A driver that is unloaded with its last renderer takes along the pointers to what it keeps, which
// the leak sanitizer then counts as lost.
inline void keepDriverLoaded() {
#ifdef __SANITIZE_ADDRESS__
  dlopen("libvulkan_lvp.so", RTLD_NOW | RTLD_NODELETE);
#endif
}

// A renderer of the processor's frames. Skipped where nothing can draw.
class OnRenderer : public testing::Test {
 protected:
  void SetUp() override {
    keepDriverLoaded();
    try {
      renderer_.emplace(processorDevice());
    } catch (const std::runtime_error& failure) {
      if (!isLackOfVulkan(failure.what())) throw;
      GTEST_SKIP() << failure.what();
    }
  }

  Renderer& renderer() { return *renderer_; }
  void endRenderer() { renderer_.reset(); }

  Picture draw(const std::shared_ptr<const Frame>& frame, const DisplaySettings& settings,
               int pixels, TexelFormat format = TexelFormat::bgra8) {
    return drawIn(frame, settings, pixels, {.size = static_cast<float>(pixels)}, format);
  }

  // In a square target of so many pixels a side.
  Picture drawIn(const std::shared_ptr<const Frame>& frame, const DisplaySettings& settings,
                 int pixels, const PicturePlace& place, TexelFormat format) {
    const auto side = static_cast<std::uint32_t>(pixels);
    const auto target = renderer().makeTarget(side, side, format);
    renderer().drawPicture(*target, frame, settings, place);
    return Picture(renderer().readTarget(*target));
  }

 private:
  std::optional<Renderer> renderer_;
};

}  // namespace zeph::test
