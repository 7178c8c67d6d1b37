// The passes of a two-dimensional transform: all columns of some planes, or all rows. Each is cut
// into tiles of neighbouring lines, one tile to a task.
#pragma once

#include <cstddef>

#include "device/cpu/transforms/line_plan.h"

namespace zeph::cpu {

struct PlanePass {
  const LineTables* line = nullptr;
  float* planes = nullptr;
  std::ptrdiff_t rowStride = 0;  // floats
  bool inverse = false;
  int columns = 0;  // complex columns that are part of the transform
  // Frequencies that are not part of it: zero before an inverse, not written by a forward one.
  int bandBegin = 0;
  int bandEnd = 0;
  float* scratch = nullptr;  // of participant 0; others follow
  std::size_t scratchFloats = 0;
  const float* zeros = nullptr;  // read in place of a row, where a tile reaches past the last one
};

struct PlanePasses {
  using Task = void (*)(const PlanePass& pass, int index, int participant);

  int linesPerTile;  // columns, complex rows or pairs of real rows: the width of a vector
  Task columns;
  Task complexRows;
  Task realRowsForward;
  Task realRowsInverse;
};

// Tiles that `lines` lines are cut into. Compiled into each user, like all that the passes call.
static constexpr int tileCount(int lines, int perTile) {
  return (lines + perTile - 1) / perTile;
}

namespace sse2 {
extern const PlanePasses planePasses;
}
namespace avx2 {
extern const PlanePasses planePasses;
}
namespace avx512 {
extern const PlanePasses planePasses;
}

}  // namespace zeph::cpu
