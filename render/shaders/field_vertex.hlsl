// One triangle over the whole picture, computed from the vertex index. v grows upward, so that row
// 0 of the grid lies at the bottom.

struct Vertex {
  float4 position : SV_Position;
  float2 at : TEXCOORD0;
};

Vertex main(uint id : SV_VertexID) {
  const float u = float((id & 1u) << 1u);
  const float v = float(id & 2u);
  Vertex vertex;
  vertex.position = float4(2.0 * u - 1.0, 2.0 * v - 1.0, 0.0, 1.0);
  vertex.at = float2(u, v);
  return vertex;
}
