// Flow lines: short streamlines of the present velocity. There is no vertex buffer: each vertex
// walks from its line's seed to its own point, so that segments that share a point agree on it.
#include "picture.hlsli"

static const uint pointsPerLine = 19u;
static const uint verticesPerLine = 36u;
static const uint latticeSide = 32u;
static const float stepLength = 0.01;  // of the picture's side, at the largest speed
static const float opacity = 0.25;

struct Vertex {
  float4 position : SV_Position;
  float alpha : TEXCOORD0;
};

float hash(float x, float y) {
  return frac(sin(127.1 * x + 311.7 * y) * 43758.547);
}

// The points of a jittered lattice, the same for all frames.
float2 seedOf(uint ln) {
  const float x = float(ln & (latticeSide - 1u));
  const float y = float(ln >> 5u);
  const float2 jitter = float2(hash(x, y), hash(x + 39.4, y + 39.4));
  return (float2(x, y) + 0.25 + 0.5 * jitter) / float(latticeSide);
}

// By the midpoint rule.
float2 walk(float2 at, int steps, float h) {
  for (int n = 0; n < steps; ++n) {
    const float2 middle = at + 0.5 * h * sampleVelocity(at);
    at = at + h * sampleVelocity(middle);
  }
  return at;
}

Vertex main(uint id : SV_VertexID) {
  const uint ln = id / verticesPerLine;
  const uint k = id % verticesPerLine;
  const uint p = (k >> 1u) + (id & 1u);
  const int s = int(p) - int(pointsPerLine / 2u);
  const float scale = max(speedScale, 0.0001);
  const float h = (s >= 0 ? stepLength : -stepLength) / scale;
  const float2 at = walk(seedOf(ln), abs(s), h);
  const float2 velocity = sampleVelocity(at);
  const float r = sqrt(dot(velocity, velocity)) / scale;
  const float taper = pow(max(sin(pi * float(p) / float(pointsPerLine - 1u)), 0.0), 0.7);
  Vertex vertex;
  vertex.position = float4(2.0 * at.x - 1.0, 2.0 * at.y - 1.0, 0.0, 1.0);
  vertex.alpha = opacity * smooth(saturate((r - 0.005) * 6.8965511)) * taper;
  return vertex;
}
