// The row pass of the fused step: a tile of rows goes from wavenumbers to samples, to the products
// of the nonlinear term, and back.
#include "kernels/bodies/products.h"
#include "kernels/processor/fused_columns.h"
#include "kernels/processor/fused_vectors.h"

namespace zeph::cpu::ZEPH_ISA {
namespace {

// The largest |u| + |v| of each lane, and the lanes that met a value that is not finite.
struct SpeedLanes {
  Vector largest = {};
  IntVector invalid = {};

  ZEPH_INLINE void add(Vector u, Vector v) {
    const Vector bound = magnitude(u) + magnitude(v);
    largest = bound > largest ? bound : largest;
    invalid |= nonFinite(bound);
  }
};

// Bounds are never negative, and the bits of such floats, read as integers, have the same order.
void mergeSpeeds(V2* bound, const SpeedLanes& lanes) {
  float largest = 0;
  for (int l = 0; l < vectorWidth; ++l) largest = larger(largest, lanes.largest[l]);
  const auto bits = __builtin_bit_cast(std::uint32_t, largest);
  auto* maximum = reinterpret_cast<std::uint32_t*>(&bound->re);
  std::uint32_t seen = __atomic_load_n(maximum, __ATOMIC_RELAXED);
  while (bits > seen && !__atomic_compare_exchange_n(maximum, &seen, bits, true, __ATOMIC_RELAXED,
                                                     __ATOMIC_RELAXED)) {
  }
  if (anyLane(lanes.invalid)) {
    __atomic_store_n(reinterpret_cast<std::uint32_t*>(&bound->im),
                     __builtin_bit_cast(std::uint32_t, 1.0f), __ATOMIC_RELAXED);
  }
}

// The first stage of the inverse transform of a field's rows. Inverse transforms are forward ones
// with the parts exchanged; the columns have left plane 0 so and plane 1 not. Both planes have kx =
// 0. Their mean is that of real fields: the rounding by which the column's modes ky and -ky are not
// conjugate stays out of the flow.
template <int q>
void spreadRowsBy(const FusedPass& pass, int field, int rows, Tile tile) {
  const PaddedTables& line = *pass.line;
  const float* positive = workAt(pass, 2 * field, rows, 0);
  const float* negative = workAt(pass, 2 * field + 1, rows, 0);
  constexpr std::ptrdiff_t element = 2 * vectorWidth;
  const auto stage = [&](int j, auto isFirst) ZEPH_INLINED {
    spreadStage<q>(line, j, tile, [&](auto n) ZEPH_INLINED {
      if constexpr (n == 0 && isFirst)
        return (loadParts(positive) + swapped(loadParts(negative))) * 0.5F;
      if constexpr (n < q) return loadParts(positive + element * (j + n * line.span));
      if constexpr (n == 2 * q && isFirst) return ComplexVector{};  // Nyquist's
      return swapped(loadParts(negative + element * ((3 * q - n) * line.span - j)));
    });
  };
  stage(0, Constant<1>{});
  for (int j = 1; j < line.span; ++j) stage(j, Constant<0>{});
}

// The last stage of the forward transform of the products' rows. Those of "advective" are real, so
// that negative wavenumbers are not needed.
template <int q, bool ADVECTIVE, bool STREAMS>
void gatherRowsBy(const FusedPass& pass, int rows, Tile tile) {
  const PaddedTables& line = *pass.line;
  float* positive = workAt(pass, 0, rows, 0);
  float* negative = workAt(pass, 1, rows, 0);
  constexpr std::ptrdiff_t element = 2 * vectorWidth;
  const auto put = [](float* at, ComplexVector value) ZEPH_INLINED {
    if constexpr (!STREAMS) return storeParts(at, value);
    stream(at, value.re);
    stream(at + vectorWidth, value.im);
  };
  const auto stage = [&](int j, auto isFirst) ZEPH_INLINED {
    gatherStage<q>(line, j, tile, [&](auto n, ComplexVector value) ZEPH_INLINED {
      if constexpr (n < q) {
        put(positive + element * (j + n * line.span), value);
        if constexpr (n == 0 && isFirst && !ADVECTIVE) put(negative, value);
      } else if constexpr (!ADVECTIVE && !(n == 2 * q && isFirst)) {
        put(negative + element * ((3 * q - n) * line.span - j), value);
      }
    });
  };
  stage(0, Constant<1>{});
  for (int j = 1; j < line.span; ++j) stage(j, Constant<0>{});
}

void spreadRows(const FusedPass& pass, int field, int rows, Tile tile) {
  forOuterRadix(*pass.line, [&](auto q) ZEPH_INLINED { spreadRowsBy<q>(pass, field, rows, tile); });
}

template <bool ADVECTIVE>
void gatherRows(const FusedPass& pass, int rows, Tile tile) {
  forOuterRadix(*pass.line, [&](auto q) ZEPH_INLINED {
    if (!pass.streams) return gatherRowsBy<q, ADVECTIVE, false>(pass, rows, tile);
    gatherRowsBy<q, ADVECTIVE, true>(pass, rows, tile);
    endStreaming();
  });
}

// z = u + i v, exchanged, becomes u^2 - v^2 + i u v.
template <bool BOUND>
void stressRows(const FusedPass& pass, int rows, int participant) {
  const PaddedTables& line = *pass.line;
  const Tile tile = scratchTile(pass, participant, 0);
  const Tile chirp = chirpTile(pass, participant);
  const float scale = pass.p.scale;
  SpeedLanes speeds;
  spreadRows(pass, 0, rows, tile);
  for (int k = 0; k < line.radix; ++k) {
    turnBlock(line, k, tile, chirp, [&](int, ComplexVector z) ZEPH_INLINED {
      const Vector u = scale * z.im, v = scale * z.re;
      if constexpr (BOUND) speeds.add(u, v);
      return ComplexVector{u * u - v * v, u * v};
    });
  }
  gatherRows<false>(pass, rows, tile);
  if constexpr (BOUND) mergeSpeeds(pass.speedBound, speeds);
}

// z = u + i v and g = dw/dx + i dw/dy, exchanged, become -(u dw/dx + v dw/dy).
template <bool BOUND>
void advectiveRows(const FusedPass& pass, int rows, int participant) {
  const PaddedTables& line = *pass.line;
  const Tile velocity = scratchTile(pass, participant, 0);
  const Tile gradient = scratchTile(pass, participant, 1);
  const Tile chirp = chirpTile(pass, participant);
  const float scale = pass.p.scale;
  SpeedLanes speeds;
  spreadRows(pass, 0, rows, velocity);
  for (int k = 0; k < line.radix; ++k) spreadBlock(line, k, velocity, chirp);
  spreadRows(pass, 1, rows, gradient);
  for (int k = 0; k < line.radix; ++k) {
    turnBlock(line, k, gradient, chirp, [&](int element, ComplexVector g) ZEPH_INLINED {
      const ComplexVector z = velocity.load(element);
      const Vector u = scale * z.im, v = scale * z.re;
      const Vector gx = scale * g.im, gy = scale * g.re;
      if constexpr (BOUND) {
        speeds.add(u, v);
        speeds.invalid |= nonFinite(gx) | nonFinite(gy);
      }
      return ComplexVector{-(u * gx + v * gy), Vector{}};
    });
  }
  gatherRows<true>(pass, rows, gradient);
  if constexpr (BOUND) mergeSpeeds(pass.speedBound, speeds);
}

template <bool BOUND>
void rowTile(const FusedPass& pass, int rows, int participant) {
  if (pass.p.operatorKind == OperatorKind::advective) {
    advectiveRows<BOUND>(pass, rows, participant);
  } else {
    stressRows<BOUND>(pass, rows, participant);
  }
}

void rowsTask(const FusedPass& pass, int rows, int participant) {
  if (pass.p.stage == 0) {
    rowTile<true>(pass, rows, participant);
  } else {
    rowTile<false>(pass, rows, participant);
  }
}

}  // namespace

const FusedPasses fusedPasses = {vectorWidth,  fusedFirstColumns, rowsTask,
                                 fusedColumns, fusedStateToRows,  fusedCoefficients};

}  // namespace zeph::cpu::ZEPH_ISA
