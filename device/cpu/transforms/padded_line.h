// The transforms of `vectorWidth` lines with 3/2 padding at once; see padded_plan.h.
//
// Both directions use the kernel exp(-2 pi i j k / length). The spread goes from wavenumbers to
// samples by decimation in frequency, the gather back by decimation in time. Samples stay in the
// order of places that the spread leaves them in, which products and a second transform along the
// other axis do not mind.
//
// For code that is compiled once per instruction set.
#pragma once

#include "device/cpu/transforms/line_transform.h"
#include "device/cpu/transforms/padded_plan.h"

namespace zeph::cpu::ZEPH_ISA {
namespace {

// Blocks up to this many bytes stay in the first-level cache from one stage to the next.
constexpr int cachedBytes = 24 * 1024;

ZEPH_INLINE bool isCached(int elements) {
  return elements * 2 * vectorBytes <= cachedBytes;
}

// The place of the result k of a prime factor transform of 3 by q, k = k1 mod 3 = k2 mod q.
template <int q>
constexpr int placeOf(int k1, int k2) {
  int k = 0;
  while (k % 3 != k1 || k % q != k2) ++k;
  return k;
}

// Input (n1, n2) of it, and which n1 falls into the padding, the inputs from q to 2 q.
template <int q>
constexpr int inputOf(int n1, int n2) {
  return (q * n1 + 3 * n2) % (3 * q);
}
template <int q>
constexpr int paddingOf(int n2) {
  int n1 = 0;
  while (inputOf<q>(n1, n2) / q != 1) ++n1;
  return n1;
}

constexpr float sinThirdOfTurn = 0.866025403784438646763F;

// A butterfly of three whose element `zero` is zero before it.
template <int zero>
ZEPH_INLINE void spread3(ComplexVector* a) {
  const ComplexVector x = a[zero == 0 ? 1 : 0], y = a[zero == 2 ? 1 : 2];
  if constexpr (zero == 0) {
    const ComplexVector sum = x + y;
    const ComplexVector turned = (x - y) * sinThirdOfTurn;
    const ComplexVector middle = sum * -0.5F;
    a[0] = sum;
    a[1] = minusI(middle, turned);
    a[2] = plusI(middle, turned);
  } else {
    const ComplexVector turned = y * sinThirdOfTurn;
    const ComplexVector middle = x - y * 0.5F;
    a[0] = x + y;
    a[1] = zero == 1 ? plusI(middle, turned) : minusI(middle, turned);
    a[2] = zero == 1 ? minusI(middle, turned) : plusI(middle, turned);
  }
}

// A butterfly of three of which element `unused` is not wanted.
template <int unused>
ZEPH_INLINE void gather3(ComplexVector* a) {
  const ComplexVector sum = a[1] + a[2];
  if constexpr (unused == 0) {
    const ComplexVector turned = (a[1] - a[2]) * sinThirdOfTurn;
    const ComplexVector middle = a[0] - sum * 0.5F;
    a[1] = minusI(middle, turned);
    a[2] = plusI(middle, turned);
  } else {
    const ComplexVector turned = (a[1] - a[2]) * sinThirdOfTurn;
    const ComplexVector middle = a[0] - sum * 0.5F;
    a[0] = a[0] + sum;
    a[3 - unused] = unused == 1 ? plusI(middle, turned) : minusI(middle, turned);
  }
}

template <int q>
ZEPH_INLINE void butterflyOf(ComplexVector* a) {
  if constexpr (q == 4) butterfly4(a[0], a[1], a[2], a[3]);
  if constexpr (q == 2) butterfly2(a[0], a[1]);
}

// Results k of the outermost butterfly of a spread, from its 2 q inputs that are no padding:
// in(Constant<n>) for n < q and n >= 2 q. Gives each to out(Constant<k>, value).
template <int q, class In, class Out>
ZEPH_INLINE void spreadButterfly(In in, Out out) {
  ComplexVector t[3][q];
  unrolled<q>([&](auto n2) ZEPH_INLINED {
    ComplexVector a[3];
    unrolled<3>([&](auto n1) ZEPH_INLINED {
      if constexpr (n1 != paddingOf<q>(n2)) a[n1] = in(Constant<inputOf<q>(n1, n2)>{});
    });
    spread3<paddingOf<q>(n2)>(a);
    unrolled<3>([&](auto k1) ZEPH_INLINED { t[k1][n2] = a[k1]; });
  });
  unrolled<3>([&](auto k1) ZEPH_INLINED {
    butterflyOf<q>(t[k1]);
    unrolled<q>([&](auto k2) ZEPH_INLINED { out(Constant<placeOf<q>(k1, k2)>{}, t[k1][k2]); });
  });
}

// The transpose: in(Constant<k>) for all k, out(Constant<n>, value) for n < q and n >= 2 q.
template <int q, class In, class Out>
ZEPH_INLINE void gatherButterfly(In in, Out out) {
  ComplexVector t[3][q];
  unrolled<3>([&](auto k1) ZEPH_INLINED {
    unrolled<q>([&](auto k2) ZEPH_INLINED { t[k1][k2] = in(Constant<placeOf<q>(k1, k2)>{}); });
    butterflyOf<q>(t[k1]);
  });
  unrolled<q>([&](auto n2) ZEPH_INLINED {
    ComplexVector a[3] = {t[0][n2], t[1][n2], t[2][n2]};
    gather3<paddingOf<q>(n2)>(a);
    unrolled<3>([&](auto n1) ZEPH_INLINED {
      if constexpr (n1 != paddingOf<q>(n2)) out(Constant<inputOf<q>(n1, n2)>{}, a[n1]);
    });
  });
}

// The first stage of a spread at offset j of each block.
template <int q, class In>
ZEPH_INLINE void spreadStage(const PaddedTables& line, int j, Tile tile, In in) {
  const float* w = line.twiddles + std::ptrdiff_t{2} * (3 * q - 1) * j;
  const int stride = line.blockStride;
  spreadButterfly<q>(in, [&](auto k, ComplexVector value) ZEPH_INLINED {
    tile.store(j + k * stride, k == 0 ? value : times(value, w + 2 * (k - 1)));
  });
}

// The last stage of a gather at offset j of each block.
template <int q, class Out>
ZEPH_INLINE void gatherStage(const PaddedTables& line, int j, Tile tile, Out out) {
  const float* w = line.twiddles + std::ptrdiff_t{2} * (3 * q - 1) * j;
  const int stride = line.blockStride;
  gatherButterfly<q>(
      [&](auto k) ZEPH_INLINED {
        const ComplexVector value = tile.load(j + k * stride);
        return k == 0 ? value : times(value, w + 2 * (k - 1));
      },
      out);
}

// A stage of a gather: the twiddles, then the butterflies, of `blocks` neighbouring blocks.
template <int radix>
inline void gatherButterflies(const LineStage& stage, Tile tile, int blocks) {
  const int span = stage.span;
  for (int b = 0; b < blocks; ++b) {
    const int base = b * radix * span;
    const float* w = stage.twiddles;
    for (int j = base; j < base + span; ++j) {
      ComplexVector a[radix];
      a[0] = tile.load(j);
      unrolled<radix - 1>([&](auto before) ZEPH_INLINED {
        a[before + 1] = times(tile.load(j + (before + 1) * span), w + 2 * before);
      });
      butterfly<radix>(a, stage.roots);
      unrolled<radix>([&](auto k) ZEPH_INLINED { tile.store(j + k * span, a[k]); });
      w += 2 * (radix - 1);
    }
  }
}

inline void gatherOddButterflies(const LineStage& stage, Tile tile, int blocks) {
  const int radix = stage.radix, span = stage.span;
  for (int b = 0; b < blocks; ++b) {
    const int base = b * radix * span;
    const float* w = stage.twiddles;
    for (int j = base; j < base + span; ++j) {
      ComplexVector a[largestRadix];
      a[0] = tile.load(j);
      for (int k = 1; k < radix; ++k, w += 2) a[k] = times(tile.load(j + k * span), w);
      oddButterfly(a, radix, stage.roots);
      for (int k = 0; k < radix; ++k) tile.store(j + k * span, a[k]);
    }
  }
}

inline void gatherStage(const LineStage& stage, Tile tile, int blocks) {
  switch (stage.radix) {
    case 2:
      return gatherButterflies<2>(stage, tile, blocks);
    case 3:
      return gatherButterflies<3>(stage, tile, blocks);
    case 4:
      return gatherButterflies<4>(stage, tile, blocks);
    case 5:
      return gatherButterflies<5>(stage, tile, blocks);
    case 7:
      return gatherButterflies<7>(stage, tile, blocks);
    case 8:
      return gatherButterflies<8>(stage, tile, blocks);
    default:
      return gatherOddButterflies(stage, tile, blocks);
  }
}

// The stages of a block up to the last one, which leaves single elements and is `middle`'s. Blocks
// that are larger than the cache are finished one after another.
inline void spreadInner(const LineTables& line, int s, Tile tile, int length) {
  int blocks = 1;
  for (; s < line.stageCount - 1; ++s) {
    const LineStage& stage = line.stages[s];
    runStage<false>(stage, tile, tile, blocks);
    if (!isCached(length)) {
      for (int k = 0; k < stage.radix; ++k)
        spreadInner(line, s + 1, {tile.at(k * stage.span)}, stage.span);
      return;
    }
    blocks *= stage.radix;
  }
}

// The stages of a block from the last one but one back to stage `first`.
inline void gatherInner(const LineTables& line, int first, Tile tile, int length) {
  if (first >= line.stageCount - 1) return;
  const LineStage& stage = line.stages[first];
  if (!isCached(length)) {
    for (int k = 0; k < stage.radix; ++k)
      gatherInner(line, first + 1, {tile.at(k * stage.span)}, stage.span);
    return gatherStage(stage, tile, 1);
  }
  for (int s = line.stageCount - 2; s >= first; --s) {
    gatherStage(line.stages[s], tile, length / (line.stages[s].radix * line.stages[s].span));
  }
}

// The innermost butterflies of a spread, `point` on each sample, and those of a gather.
template <int radix, class Point>
ZEPH_INLINE void middleButterflies(const LineStage& stage, Tile tile, int count, Point point) {
  for (int j = 0; j < count; ++j) {
    ComplexVector a[radix];
    unrolled<radix>([&](auto k) ZEPH_INLINED { a[k] = tile.load(radix * j + k); });
    butterfly<radix>(a, stage.roots);
    unrolled<radix>([&](auto k) ZEPH_INLINED { a[k] = point(radix * j + k, a[k]); });
    butterfly<radix>(a, stage.roots);
    unrolled<radix>([&](auto k) ZEPH_INLINED { tile.store(radix * j + k, a[k]); });
  }
}

template <class Point>
ZEPH_INLINE void middleOddButterflies(const LineStage& stage, Tile tile, int count, Point point) {
  const int radix = stage.radix;
  for (int j = 0; j < count; ++j) {
    ComplexVector a[largestRadix];
    for (int k = 0; k < radix; ++k) a[k] = tile.load(radix * j + k);
    oddButterfly(a, radix, stage.roots);
    for (int k = 0; k < radix; ++k) a[k] = point(radix * j + k, a[k]);
    oddButterfly(a, radix, stage.roots);
    for (int k = 0; k < radix; ++k) tile.store(radix * j + k, a[k]);
  }
}

template <class Point>
ZEPH_INLINE void middle(const LineTables& line, Tile tile, Point point) {
  const LineStage& stage = line.stages[line.stageCount - 1];
  const int count = line.length / stage.radix;
  switch (stage.radix) {
    case 1:
      return tile.store(0, point(0, tile.load(0)));
    case 2:
      return middleButterflies<2>(stage, tile, count, point);
    case 3:
      return middleButterflies<3>(stage, tile, count, point);
    case 4:
      return middleButterflies<4>(stage, tile, count, point);
    case 5:
      return middleButterflies<5>(stage, tile, count, point);
    case 7:
      return middleButterflies<7>(stage, tile, count, point);
    case 8:
      return middleButterflies<8>(stage, tile, count, point);
    default:
      return middleOddButterflies(stage, tile, count, point);
  }
}

// A block by Bluestein's algorithm, with working memory for two inner lines. It is in natural order
// in both directions.
inline void blockByChirp(const LineTables& line, Tile tile, Tile chirp) {
  transformByChirp(line, BandedTile{tile, {0, 0}}, chirp, tile);
}

// Finishes block k of a spread after its first stage.
inline void spreadBlock(const PaddedTables& line, int k, Tile tile, Tile chirp) {
  const LineTables& block = *line.block;
  const Tile begin = {tile.at(k * line.blockStride)};
  if (block.inner != nullptr) return blockByChirp(block, begin, chirp);
  spreadInner(block, 0, begin, line.span);
  runStage<true>(block.stages[block.stageCount - 1], begin, begin,
                 line.span / block.stages[block.stageCount - 1].radix);
}

// Begins block k of a gather, all but its last stage.
inline void gatherBlock(const PaddedTables& line, int k, Tile tile, Tile chirp) {
  const LineTables& block = *line.block;
  const Tile begin = {tile.at(k * line.blockStride)};
  if (block.inner != nullptr) return blockByChirp(block, begin, chirp);
  runStage<true>(block.stages[block.stageCount - 1], begin, begin,
                 line.span / block.stages[block.stageCount - 1].radix);
  gatherInner(block, 0, begin, line.span);
}

// Finishes block k of a spread, replaces each sample of it by point(element of the tile, sample),
// and begins the block of the gather.
template <class Point>
ZEPH_INLINE void turnBlock(const PaddedTables& line, int k, Tile tile, Tile chirp, Point point) {
  const LineTables& block = *line.block;
  const int first = k * line.blockStride;
  const Tile begin = {tile.at(first)};
  const auto at = [&](int place, ComplexVector sample)
                      ZEPH_INLINED { return point(first + place, sample); };
  if (block.inner != nullptr) {
    blockByChirp(block, begin, chirp);
    for (int p = 0; p < line.span; ++p) begin.store(p, at(p, begin.load(p)));
    return blockByChirp(block, begin, chirp);
  }
  spreadInner(block, 0, begin, line.span);
  middle(block, begin, at);
  gatherInner(block, 0, begin, line.span);
}

}  // namespace
}  // namespace zeph::cpu::ZEPH_ISA
