#include "render/uniforms.h"

#include <algorithm>

namespace zeph {
namespace {

constexpr float leastScale = 0.0001f;
constexpr float leastDeviation = 1e-12f;

float vorticityScaleOf(const Frame& frame, const DisplaySettings& settings) {
  if (settings.display == Display::vorticity && settings.colorRange == ColorRange::sigma)
    return std::max(frame.stdVorticity * settings.sigma, leastDeviation);
  return std::max(frame.maxVorticity, leastScale);
}

}  // namespace

Uniforms uniformsOf(const Frame& frame, const DisplaySettings& settings, const PicturePlace& place,
                    bool outputHDR) {
  Uniforms uniforms;
  uniforms.gridSize = static_cast<std::uint32_t>(frame.gridSize);
  uniforms.palette = static_cast<std::uint32_t>(settings.palette);
  uniforms.display = static_cast<std::uint32_t>(settings.display);
  uniforms.showFlowLines = settings.flow ? 1 : 0;
  uniforms.exposure = settings.exposure;
  uniforms.vorticityScale = vorticityScaleOf(frame, settings);
  uniforms.speedScale = std::max(frame.maxSpeed, leastScale);
  uniforms.vorticityMean = frame.meanVorticity;
  uniforms.vorticityColorRange = static_cast<std::uint32_t>(settings.colorRange);
  uniforms.outputHDR = outputHDR ? 1 : 0;
  uniforms.canvasPixels = place.size;
  uniforms.rounded = place.rounded;
  return uniforms;
}

}  // namespace zeph
