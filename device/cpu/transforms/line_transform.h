// A forward transform of `vectorWidth` lines at once. An inverse one is the same with real and
// imaginary parts exchanged before and after, which costs nothing, as they are in separate vectors.
// For code that is compiled once per instruction set.
#pragma once

#include "device/cpu/transforms/butterflies.h"
#include "device/cpu/transforms/line_plan.h"
#include "device/cpu/transforms/vectors.h"

namespace zeph::cpu::ZEPH_ISA {
namespace {

// Lines side by side: element j's real parts at float 2 * vectorWidth * j, then its imaginary
// parts.
struct Tile {
  float* data;

  ZEPH_INLINE float* at(int j) const { return data + std::ptrdiff_t{2} * vectorWidth * j; }
  ZEPH_INLINE ComplexVector load(int j) const {
    return {*reinterpret_cast<const Vector*>(at(j)),
            *reinterpret_cast<const Vector*>(at(j) + vectorWidth)};
  }
  ZEPH_INLINE void store(int j, ComplexVector value) const {
    *reinterpret_cast<Vector*>(at(j)) = value.re;
    *reinterpret_cast<Vector*>(at(j) + vectorWidth) = value.im;
  }
};

// Elements that count as zero, whatever their memory holds.
struct Band {
  int begin, end;

  ZEPH_INLINE bool holds(int j) const { return j >= begin && j < end; }
};

struct BandedTile {
  Tile tile;
  Band zero;

  ZEPH_INLINE ComplexVector load(int j) const {
    return zero.holds(j) ? ComplexVector{} : tile.load(j);
  }
};

// A butterfly at each place of each of `blocks` neighbouring blocks, which fill the line. The last
// stage of a line leaves blocks of one element and has no twiddles.
template <int radix, bool last, class In, class Out>
inline void butterflies(const LineStage& stage, In in, Out out, int blocks) {
  const int span = last ? 1 : stage.span;
  for (int b = 0; b < blocks; ++b) {
    const int base = b * radix * span;
    const float* w = stage.twiddles;
    for (int j = base; j < base + span; ++j) {
      ComplexVector a[radix];
      unrolled<radix>([&](auto k) ZEPH_INLINED { a[k] = in.load(j + k * span); });
      butterfly<radix>(a, stage.roots);
      out.store(j, a[0]);
      unrolled<radix - 1>([&](auto before) ZEPH_INLINED {
        constexpr int k = before + 1;
        out.store(j + k * span, last ? a[k] : times(a[k], w + 2 * before));
      });
      w += 2 * (radix - 1);
    }
  }
}

template <bool last, class In, class Out>
inline void oddButterflies(const LineStage& stage, In in, Out out, int blocks) {
  const int radix = stage.radix;
  const int span = last ? 1 : stage.span;
  for (int b = 0; b < blocks; ++b) {
    const int base = b * radix * span;
    const float* w = stage.twiddles;
    for (int j = base; j < base + span; ++j) {
      ComplexVector a[largestRadix];
      a[0] = in.load(j);
      for (int k = 1; k < radix; ++k) a[k] = in.load(j + k * span);
      oddButterfly(a, radix, stage.roots);
      out.store(j, a[0]);
      for (int k = 1; k < radix; ++k, w += 2) {
        out.store(j + k * span, last ? a[k] : times(a[k], w));
      }
    }
  }
}

template <bool last, class In, class Out>
inline void runStage(const LineStage& stage, In in, Out out, int blocks) {
  switch (stage.radix) {
    case 2:
      return butterflies<2, last>(stage, in, out, blocks);
    case 3:
      return butterflies<3, last>(stage, in, out, blocks);
    case 4:
      return butterflies<4, last>(stage, in, out, blocks);
    case 5:
      return butterflies<5, last>(stage, in, out, blocks);
    case 7:
      return butterflies<7, last>(stage, in, out, blocks);
    case 8:
      return butterflies<8, last>(stage, in, out, blocks);
    default:
      return oddButterflies<last>(stage, in, out, blocks);
  }
}

// Transforms a line whose length has only radices as factors: in.load(j) gives element j, and
// out.store(p, value) takes the element of the result that ends at place p. `tile` is the working
// memory; `in` and `out` may use the same one.
template <class In, class Out>
inline void transformByStages(const LineTables& line, In in, Tile tile, Out out) {
  const int last = line.stageCount - 1;
  if (last == 0) {
    for (int j = 0; j < line.length; ++j) tile.store(j, in.load(j));
  } else {
    runStage<false>(line.stages[0], in, tile, 1);
  }
  int blocks = line.stages[0].radix;
  for (int s = 1; s < last; ++s) {
    runStage<false>(line.stages[s], tile, tile, blocks);
    blocks *= line.stages[s].radix;
  }
  runStage<true>(line.stages[last], tile, out, line.length / line.stages[last].radix);
}

// Bluestein's algorithm, with k j = (k^2 + j^2 - (k - j)^2) / 2: the line times the chirp,
// convolved with the chirp's conjugate, times the chirp. The tile has room for two inner lines.
template <class In, class Out>
inline void transformByChirp(const LineTables& line, In in, Tile tile, Out out) {
  const LineTables& inner = *line.inner;
  const Tile second = {tile.at(inner.length)};
  for (int j = 0; j < line.length; ++j) {
    tile.store(j, times(in.load(j), line.chirp + std::ptrdiff_t{2} * j));
  }
  transformByStages(inner, BandedTile{tile, {line.length, inner.length}}, tile, tile);
  for (int k = 0; k < inner.length; ++k) {
    const ComplexVector product =
        times(tile.load(inner.position[k]), line.filter + std::ptrdiff_t{2} * k);
    second.store(k, {product.im, product.re});
  }
  transformByStages(inner, BandedTile{second, {0, 0}}, second, second);
  for (int k = 0; k < line.length; ++k) {
    const ComplexVector convolved = second.load(inner.position[k]);
    out.store(k, times({convolved.im, convolved.re}, line.chirp + std::ptrdiff_t{2} * k));
  }
}

template <class In, class Out>
inline void transformLine(const LineTables& line, In in, Tile tile, Out out) {
  if (line.inner != nullptr) {
    transformByChirp(line, in, tile, out);
  } else {
    transformByStages(line, in, tile, out);
  }
}

}  // namespace
}  // namespace zeph::cpu::ZEPH_ISA
