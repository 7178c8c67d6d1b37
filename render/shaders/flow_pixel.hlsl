// The colour of a flow line; its fading comes from the vertices.
#include "picture.hlsli"

static const float3 color = float3(0.76, 0.93, 1.0);
static const float3 brightColor = float3(1.0764712, 1.6961768, 2.0);  // twice the light of `color`

float4 main(float4 position : SV_Position, float alpha : TEXCOORD0) : SV_Target0 {
  return float4(output == 0u ? color : brightColor, alpha);
}
