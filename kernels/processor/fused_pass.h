// The passes of a fused step on the processor, for every instruction set; see kernels/fused_step.h.
//
// The work planes lie in the padded array, in a layout for vectors of L lanes: rows of samples are
// grouped into tiles of L, and element (plane s, row tile r, wavenumber k) is L real parts followed
// by L imaginary ones, one of each row, at float ((s * rowTiles + r) * (h + 1) + k) * 2L, 0 <= k <
// h = N/2. Rows are in the order of places that transforms of columns leave them in. For each
// complex field z of the nonlinear term there are two planes, those of kx = k and of kx = -k.
//
// Arrays that are used within a step alone (base, first, middle, coefficients) have a
// layout for tiles of L columns, which are read from end to end: tile c begins at element c * L * N
// (c * L * h of the coefficients), and each row of it is the real parts of its columns followed by
// the imaginary ones (the coefficients one after another). The last tile may be narrower.
//
// A batch of steps keeps the state and its compensation in the same layout from its first step to
// its last. In the rows of the half spectrum a tile's part of a row begins and ends within lines of
// the cache, which it shares with its neighbours.
#pragma once

#include "device/cpu/transforms/padded_plan.h"
#include "kernels/arrays.h"

namespace zeph::cpu {

struct FusedPass {
  const PaddedTables* line = nullptr;
  StageArrays arrays = {};
  float* work = nullptr;
  ClockState* clock = nullptr;
  V2* speedBound = nullptr;  // the largest |u| + |v|, and not 0 where a value is not finite
  Params p = {};
  V2* state = nullptr;        // in tiles; `base` of integrators that have it
  V2* correction = nullptr;   // in tiles
  bool formsFactors = false;  // before the update
  bool beginsBatch = false;   // the update finds state and correction in the rows of `arrays`
  bool endsBatch = false;     // it leaves them there, and does not begin the next step's first term
  bool streams = false;       // the work planes are larger than the caches
  int rowTiles = 0;
  float* scratch = nullptr;  // of participant 0; others follow
  std::size_t scratchFloats = 0;
};

struct FusedPasses {
  using Task = void (*)(const FusedPass& pass, int index, int participant);

  int lanes;
  Task firstColumns;  // a step's first velocity, and the inverse transform of its columns
  Task rows;          // inverse rows, products, forward rows
  Task columns;       // forward columns, stage update; the next stage's velocity, inverse columns
  Task stateToRows;   // state and correction of a tile of columns, to the rows of `arrays`
  Task coefficients;  // the factors of the modes of a tile of columns, which `columns` calls
};

// Tiles of columns and of rows.
static constexpr int fusedTiles(int lines, int lanes) {
  return (lines + lanes - 1) / lanes;
}

// Floats between a participant's tiles, each with room for all places of whole tiles of rows.
static constexpr std::size_t fusedTileFloats(const FusedPass& pass, int lanes) {
  const int places = pass.rowTiles * lanes;
  const int elements = (places / pass.line->span + 1) * pass.line->blockStride;
  return std::size_t{2} * static_cast<std::size_t>(lanes) * static_cast<std::size_t>(elements);
}

namespace sse2 {
extern const FusedPasses fusedPasses;
}
namespace avx2 {
extern const FusedPasses fusedPasses;
}
namespace avx512 {
extern const FusedPasses fusedPasses;
}

}  // namespace zeph::cpu
