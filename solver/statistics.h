// What a solver reports: the figures of a flow, and completed fields.
#pragma once

#include <cstdint>
#include <memory>

namespace zeph {

struct Statistics {
  std::uint64_t steps = 0;
  double time = 0;
  double energy = 0;        // <u^2 + v^2> / 2
  double enstrophy = 0;     // <w^2> / 2
  double palinstrophy = 0;  // <|grad w|^2> / 2
  double palinstrophyRatio = 0;
  double reynolds = 0;
  double initialTurnoverTime = 0;
  double gpuMilliseconds = 0;  // device time of the last advance; 0 after a reset
  float dt = 0;
  std::uint64_t allocatedBytes = 0;  // device buffers and field blocks
  std::uint64_t workspaceBytes = 0;  // memory inside the transform plans
};

// A completed field, immutable and shared by its readers. Its block of device memory is not written
// again while anybody holds it.
struct Frame {
  std::shared_ptr<float> block;  // planes w, u, v of gridSize^2 each, row-major
  std::int32_t gridSize = 0;
  std::uint64_t sequence = 0;  // completed steps
  double time = 0;
  float maxVorticity = 0;
  float meanVorticity = 0;
  float stdVorticity = 0;
  float maxSpeed = 0;  // Euclidean; 0 without velocity
  bool hasVelocity = false;

  const float* data() const { return block.get(); }
};

}  // namespace zeph
