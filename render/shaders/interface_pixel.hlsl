// The interface over the picture.
#include "interface.hlsli"

float linearized(float c) {
  return c <= 0.04045 ? c / 12.92 : pow((c + 0.055) / 1.055, 2.4);
}

float4 main(float4 position : SV_Position) : SV_Target0 {
  const uint2 at = uint2(position.xy);
  const uint texel = texels.Load(4u * (at.y * stride + at.x));
  const float4 covered = float4(texel >> 16u & 255u, texel >> 8u & 255u, texel & 255u, texel >> 24u)
                         / 255.0;
  if (targetOutput == 0u || covered.a == 0.0) return covered;
  const float3 color = covered.rgb / covered.a;
  return float4(float3(linearized(color.r), linearized(color.g), linearized(color.b)) * covered.a,
                covered.a);
}
