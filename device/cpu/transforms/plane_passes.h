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
  // Frequencies that are not: zero before an inverse, nothing after a forward transform.
  int bandBegin = 0;
  int bandEnd = 0;
  float* scratch = nullptr;  // of participant 0; others follow
  std::size_t scratchFloats = 0;
  const float* zeros = nullptr;  // a row's stead, where a tile has more lines than are left
};

struct PlanePasses {
  using Task = void (*)(const PlanePass& pass, int index, int participant);

  int lanes;  // columns, complex rows or pairs of real rows in a tile
  Task columns;
  Task complexRows;
  Task realRowsForward;
  Task realRowsInverse;
};

// Tiles that `lines` lines are cut into. Compiled into each user, like all that the passes call.
static constexpr int tileCount(int lines, int lanes) {
  return (lines + lanes - 1) / lanes;
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
