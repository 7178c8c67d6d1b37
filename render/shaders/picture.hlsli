// Shared by the four shaders: the constants of a draw, the field, and its sampling.

// 48 bytes, slot 0 of both stages; render/uniforms.h is the same record on the host.
cbuffer Uniforms : register(b0) {
  uint gridSize;            // N
  uint chosenPalette;       // 0 aurora, 1 ember, 2 glacier, 3 inferno
  uint chosenDisplay;       // 0 vorticity, 1 speed, 2 enstrophy
  uint showFlowLines;       // not read
  float exposure;           // gain of the compressive curves
  float vorticityScale;     // vorticity that fills the scale
  float speedScale;         // speed that fills the scale
  float vorticityMean;
  uint chosenColorRange;    // of the vorticity: 0 linear, else compressive
  uint chosenOutput;        // 0 display values, else linear scRGB
  float canvasPixels;       // side of the picture
  float rounded;            // radius of the two lower corners in pixels, 0 for none
};

// Choices that hold for a whole picture can be constants of the pipeline. It matters for drivers
// that draw on the processor: they compute both sides of every branch.
#ifdef SPECIALIZED
[[vk::constant_id(0)]] const uint palette = 0;
[[vk::constant_id(1)]] const uint display = 0;
[[vk::constant_id(2)]] const uint colorRange = 0;
[[vk::constant_id(3)]] const uint output = 0;
#else
#define palette chosenPalette
#define display chosenDisplay
#define colorRange chosenColorRange
#define output chosenOutput
#endif

#include "field.hlsli"

static const float log2e = 1.442695;
static const float pi = 3.14159274;

float expOf(float x) {
  return exp2(x * log2e);
}

float smooth(float x) {
  return x * x * (3.0 - 2.0 * x);
}

// The grid is periodic. Rounding may give a sample the index N, which is index 0.
uint wrapped(uint i) {
  return i == gridSize ? 0u : i;
}

// Plane 0 is the vorticity, 1 and 2 the velocity. Bilinear and periodic: grid point (i, j) lies
// at (i / N, j / N).
float sampleField(uint plane, float2 at) {
  const float size = float(gridSize);
  const float x = frac(at.x) * size;
  const float y = frac(at.y) * size;
  const uint i = wrapped(uint(floor(x)));
  const uint j = wrapped(uint(floor(y)));
  const uint i1 = wrapped(i + 1u);
  const uint j1 = wrapped(j + 1u);
  const float tx = frac(x);
  const float ty = frac(y);
  const float row0 = lerp(fieldValue(plane, i, j), fieldValue(plane, i1, j), tx);
  const float row1 = lerp(fieldValue(plane, i, j1), fieldValue(plane, i1, j1), tx);
  return lerp(row0, row1, ty);
}

float2 sampleVelocity(float2 at) {
  return float2(sampleField(1u, at), sampleField(2u, at));
}
