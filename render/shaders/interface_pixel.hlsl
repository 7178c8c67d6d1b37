// The interface over the picture.
#include "interface.hlsli"
#include "light.hlsli"

float4 main(float4 position : SV_Position) : SV_Target0 {
  const uint2 at = uint2(position.xy);
  const uint texel = texels.Load(4u * (at.y * stride + at.x));
  const float4 covered = float4(texel >> 16u & 255u, texel >> 8u & 255u, texel & 255u, texel >> 24u)
                         / 255.0;
  if (targetOutput == 0u || covered.a == 0.0) return covered;
  return float4(linearized(covered.rgb / covered.a) * covered.a, covered.a);
}
