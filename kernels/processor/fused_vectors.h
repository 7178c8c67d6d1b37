// What the fused passes share: arithmetic of vectors of modes as the kernels' bodies write it, and
// the work planes. For code that is compiled once per instruction set.
#pragma once

#include "device/cpu/transforms/padded_line.h"
#include "kernels/bodies/body.h"
#include "kernels/processor/fused_pass.h"

namespace zeph::cpu::ZEPH_ISA {
namespace {

ZEPH_INLINE ComplexVector operator*(float f, ComplexVector a) {
  return {f * a.re, f * a.im};
}
ZEPH_INLINE ComplexVector operator*(Vector f, ComplexVector a) {
  return {f * a.re, f * a.im};
}
ZEPH_INLINE ComplexVector operator/(ComplexVector a, Vector f) {
  return {a.re / f, a.im / f};
}
ZEPH_INLINE void store(ComplexVector& to, ComplexVector value) {
  to = value;
}

ZEPH_INLINE Vector toFloat(IntVector x) {
  return __builtin_convertvector(x, Vector);
}

// All bits set in the lanes whose value is an infinity or no number.
ZEPH_INLINE IntVector nonFinite(Vector x) {
  return ~(magnitude(x) <= 3.40282346638528859812e+38F);
}

ZEPH_INLINE IntVector laneNumbers() {
  IntVector lanes;
  for (int l = 0; l < vectorWidth; ++l) lanes[l] = l;
  return lanes;
}

ZEPH_INLINE ComplexVector swapped(ComplexVector a) {
  return {a.im, a.re};
}

// Element `k` of row tile `r` in plane `s`: the real parts; the imaginary ones follow.
ZEPH_INLINE float* workAt(const FusedPass& pass, int s, int r, int k) {
  const std::ptrdiff_t rows = pass.rowTiles, stride = pass.line->half + 1;
  return pass.work + ((s * rows + r) * stride + k) * (2 * vectorWidth);
}

// Complex numbers of memory in their order, unlike those of loadComplex.
template <int part>
struct EverySecond {
  static constexpr int at(int k) { return 2 * k + part; }
};
template <int half>
struct InPairs {  // from a and b, a0 b0 a1 b1 ..., the first or the second vector of it
  static constexpr int at(int k) { return half * vectorWidth / 2 + k / 2 + k % 2 * vectorWidth; }
};

ZEPH_INLINE ComplexVector loadPairs(const float* at, int count) {
  const bool full = count == vectorWidth;
  const Vector a = full ? load(at) : loadFirst(at, 2 * count);
  const Vector b =
      full ? load(at + vectorWidth) : loadFirst(at + vectorWidth, 2 * count - vectorWidth);
  return {pick<EverySecond<0>>(a, b), pick<EverySecond<1>>(a, b)};
}
ZEPH_INLINE void storePairs(float* at, ComplexVector value, int count) {
  const Vector a = pick<InPairs<0>>(value.re, value.im);
  const Vector b = pick<InPairs<1>>(value.re, value.im);
  if (count == vectorWidth) {
    store(at, a);
    return store(at + vectorWidth, b);
  }
  storeFirst(at, a, 2 * count);
  storeFirst(at + vectorWidth, b, 2 * count - vectorWidth);
}

ZEPH_INLINE ComplexVector loadParts(const float* at) {
  return {load(at), load(at + vectorWidth)};
}
ZEPH_INLINE void storeParts(float* at, ComplexVector value) {
  store(at, value.re);
  store(at + vectorWidth, value.im);
}

ZEPH_INLINE Tile scratchTile(const FusedPass& pass, int participant, int number) {
  return {pass.scratch + static_cast<std::size_t>(participant) * pass.scratchFloats +
          static_cast<std::size_t>(number) * fusedTileFloats(pass, vectorWidth)};
}

// The working memory of Bluestein's algorithm. It lies behind all tiles: what a tile holds beyond
// its last place is zero, and has to stay so, because the lanes of rows that do not exist come from
// it.
ZEPH_INLINE Tile chirpTile(const FusedPass& pass, int participant) {
  return scratchTile(pass, participant, needsOf(pass.p.operatorKind).fields);
}

// Calls run(Constant<q>) for the plan's outermost radix 3 q.
template <class Run>
ZEPH_INLINE void forOuterRadix(const PaddedTables& line, Run run) {
  if (line.radix == 12) return run(Constant<4>{});
  if (line.radix == 6) return run(Constant<2>{});
  return run(Constant<1>{});
}

}  // namespace
}  // namespace zeph::cpu::ZEPH_ISA
