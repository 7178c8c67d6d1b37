// Two triangles over a box of the interface. y grows downward, as pixels do.
#include "interface.hlsli"

float4 main(uint id : SV_VertexID, uint instance : SV_InstanceID) : SV_Position {
  const float4 box = boxes[instance];
  const uint corner = id < 3u ? id : id - 2u;
  const float2 at = float2((corner & 1u) == 0u ? box.x : box.z, (corner & 2u) == 0u ? box.y : box.w);
  return float4(2.0 * at.x / extent.x - 1.0, 1.0 - 2.0 * at.y / extent.y, 0.0, 1.0);
}
