// The constants of a draw, as the shaders read them (shaders/picture.hlsli).
#pragma once

#include <cstdint>

#include "render/display_settings.h"
#include "solver/statistics.h"

namespace zeph {

// The place of a picture in its target: a square in device pixels.
struct PicturePlace {
  float x = 0;
  float y = 0;
  float size = 0;
  float rounded = 0;  // radius of the two lower corners, 0 for none
};

struct Uniforms {
  std::uint32_t gridSize = 0;
  std::uint32_t palette = 0;
  std::uint32_t display = 0;
  std::uint32_t showFlowLines = 0;
  float exposure = 0;
  float vorticityScale = 0;
  float speedScale = 0;
  float vorticityMean = 0;
  std::uint32_t vorticityColorRange = 0;
  std::uint32_t outputHDR = 0;
  float canvasPixels = 0;
  float rounded = 0;
};
static_assert(sizeof(Uniforms) == 48);

// The field is one triangle over the picture; flow lines are 32 x 32 lines of 18 segments.
constexpr std::uint32_t fieldVertices = 3;
constexpr std::uint32_t flowVertices = 32 * 32 * 18 * 2;

Uniforms uniformsOf(const Frame& frame, const DisplaySettings& settings, const PicturePlace& place,
                    bool outputHDR);

}  // namespace zeph
