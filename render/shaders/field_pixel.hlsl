// The colour of the field at a pixel.
#include "picture.hlsli"
#include "palettes.hlsli"
#include "light.hlsli"

static const float leastExposure = 0.02;

// Mirrors u but not v: the two lower corners are rounded, the upper ones are square.
bool isOutside(float2 at) {
  const float2 place = float2(min(at.x, 1.0 - at.x), at.y) * canvasPixels;
  return rounded > 0.0 && place.x < rounded && place.y < rounded &&
         distance(place, float2(rounded, rounded)) > rounded;
}

float tanhOf(float x) {
  const float up = expOf(x);
  const float down = expOf(-x);
  return (up - down) / (up + down);
}

float vorticityScalar(float2 at) {
  const float w = sampleField(0u, at);
  if (colorRange == 0u) {
    return clamp((w - vorticityMean) / vorticityScale, -1.0, 1.0);
  }
  return tanhOf(2.4 * max(exposure, leastExposure) * w / vorticityScale);
}

float speedScalar(float2 at) {
  const float2 velocity = sampleVelocity(at);
  const float speed = sqrt(velocity.x * velocity.x + velocity.y * velocity.y);
  return 1.0 - expOf(-2.1 * max(exposure, leastExposure) * speed / speedScale);
}

float enstrophyScalar(float2 at) {
  const float q = sampleField(0u, at) / vorticityScale;
  return 1.0 - expOf(-8.0 * max(exposure, leastExposure) * q * q);
}

// Linear scRGB: dark colours are kept, the brightest reach twice reference white.
float3 highDynamicRange(float3 color) {
  const float3 light = linearized(color);
  const float brightest = max(light.r, max(light.g, light.b));
  return light * (1.0 + smooth(saturate((brightest - 0.25) * 1.3333334)));
}

float4 main(float4 position : SV_Position, float2 at : TEXCOORD0) : SV_Target0 {
  if (isOutside(at)) discard;
  float3 color;
  if (display == 0u) {
    color = divergingColor(vorticityScalar(at));
  } else if (display == 1u) {
    color = sequentialColor(speedScalar(at));
  } else {
    color = sequentialColor(enstrophyScalar(at));
  }
  return float4(output == 0u ? color : highDynamicRange(color), 1.0);
}
