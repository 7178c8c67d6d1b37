// The column pass of the fused step: a tile of columns ends the nonlinear term of a stage, advances
// the stage, and begins the nonlinear term of the next one.
#include "kernels/processor/fused_columns.h"

#include "kernels/bodies/integrators.h"
#include "kernels/bodies/products.h"
#include "kernels/processor/fused_update.h"
#include "kernels/processor/fused_vectors.h"

namespace zeph::cpu::ZEPH_ISA {
namespace {

int elementOf(const PaddedTables& line, int place) {
  return place / line.span * line.blockStride + place % line.span;
}

// Calls move(elements) with the elements of a tile that the places of a tile of rows have. Places
// within one block are neighbours, and cost no division.
template <class Move>
ZEPH_INLINE void withElements(const PaddedTables& line, int rows, Move move) {
  const int place = rows * vectorWidth;
  const int first = elementOf(line, place);
  if (place % line.span + vectorWidth <= line.span) {
    move([=](int k) ZEPH_INLINED { return first + k; });
  } else {
    move([&](int k) { return elementOf(line, place + k); });
  }
}

// Fetches what the tile of columns has of a tile of rows, well before it is needed: these pieces
// are too short and too far apart for the machine to foresee them.
template <int forWriting>
ZEPH_INLINE void fetchSquare(const FusedPass& pass, const TileColumns& columns, int plane,
                             int rows) {
  if (rows >= pass.rowTiles) return;
  const char* at = reinterpret_cast<const char*>(workAt(pass, plane, rows, columns.first));
  for (int line = 0; line < 2 * columns.count * vectorBytes; line += 64)
    __builtin_prefetch(at + line, forWriting, 2);
}

constexpr int squaresAhead = 2;

// Move a tile of rows of a work plane to its places in a tile of columns, and back. Plane 1 is read
// with its parts exchanged: it is then i times the conjugate of what it holds.
void loadSquare(const FusedPass& pass, const TileColumns& columns, int plane, int rows, Tile tile) {
  const float* from = workAt(pass, plane, rows, columns.first);
  fetchSquare<0>(pass, columns, plane, rows + squaresAhead);
  withElements(*pass.line, rows, [&](auto element) ZEPH_INLINED {
    for (int part = 0; part < 2; ++part) {
      transposed(
          [&](auto l) ZEPH_INLINED {
            return l < columns.count ? load(from + (2 * l + part) * vectorWidth) : Vector{};
          },
          [&](auto k, Vector value)
              ZEPH_INLINED { store(tile.at(element(k)) + (part ^ plane) * vectorWidth, value); });
    }
  });
}

template <bool STREAMS>
void storeSquare(const FusedPass& pass, const TileColumns& columns, int plane, int rows,
                 Tile tile) {
  float* to = workAt(pass, plane, rows, columns.first);
  if constexpr (!STREAMS) fetchSquare<1>(pass, columns, plane, rows + squaresAhead);
  withElements(*pass.line, rows, [&](auto element) ZEPH_INLINED {
    for (int part = 0; part < 2; ++part) {
      transposed([&](auto k)
                     ZEPH_INLINED { return load(tile.at(element(k)) + part * vectorWidth); },
                 [&](auto l, Vector value) ZEPH_INLINED {
                   if (l >= columns.count) return;
                   float* at = to + (2 * l + part) * vectorWidth;
                   if constexpr (STREAMS) return stream(at, value);
                   store(at, value);
                 });
    }
  });
}

// Reads the columns of a plane, all stages of their forward transform but the last one.
void gatherColumns(const FusedPass& pass, const TileColumns& columns, int plane, Tile tile,
                   Tile chirp) {
  const PaddedTables& line = *pass.line;
  int loaded = 0;
  for (int k = 0; k < line.radix; ++k) {
    for (; loaded * vectorWidth < (k + 1) * line.span; ++loaded)
      loadSquare(pass, columns, plane, loaded, tile);
    gatherBlock(line, k, tile, chirp);
  }
}

// All stages of the inverse transform of the columns of a plane but the first one; writes them.
template <bool STREAMS>
void spreadColumnsBy(const FusedPass& pass, const TileColumns& columns, int plane, Tile tile,
                     Tile chirp) {
  const PaddedTables& line = *pass.line;
  int stored = 0;
  for (int k = 0; k < line.radix; ++k) {
    spreadBlock(line, k, tile, chirp);
    for (; (stored + 1) * vectorWidth <= (k + 1) * line.span; ++stored)
      storeSquare<STREAMS>(pass, columns, plane, stored, tile);
  }
  for (; stored < pass.rowTiles; ++stored) storeSquare<STREAMS>(pass, columns, plane, stored, tile);
}

void spreadColumns(const FusedPass& pass, const TileColumns& columns, int plane, Tile tile,
                   Tile chirp) {
  if (!pass.streams) return spreadColumnsBy<false>(pass, columns, plane, tile, chirp);
  spreadColumnsBy<true>(pass, columns, plane, tile, chirp);
  endStreaming();
}

// Wavenumber n of an outermost butterfly at offset j of its blocks, and its number among those that
// are no padding.
template <int q>
ZEPH_INLINE int wavenumberOf(const PaddedTables& line, int n, int j) {
  return n < q ? j + n * line.span : j - (3 * q - n) * line.span;
}
template <int q>
constexpr int numberOf(int n) {
  return n < q ? n : n - q;
}

// The row of number `at` of those of offset j. Nyquist's, ky = -h, is at offset 0.
template <int q>
ZEPH_INLINE ModeRow rowAt(const PaddedTables& line, int at, int j) {
  return {wavenumberOf<q>(line, at < q ? at : at + q, j), j * 2 * q + at};
}

// The nonlinear term from the transforms of its planes. For "stress" `positive` is that of
// P = (u^2 - v^2) + i u v at kx and `negative` i times that of the conjugate of P at -kx.
template <bool ADVECTIVE>
ZEPH_INLINE ComplexVector termOf(ComplexVector positive, ComplexVector negative,
                                 const TileColumns& columns, int ky, float scale) {
  if constexpr (ADVECTIVE) {
    return scale * positive;
  } else {
    const ComplexVector difference = {(positive.re + negative.im) * 0.5F,
                                      (positive.im - negative.re) * 0.5F};
    const ComplexVector product = {(positive.im + negative.re) * 0.5F,
                                   (negative.im - positive.re) * 0.5F};
    return scale * stressTermOf(difference, product, toFloat(columns.number * ky),
                                toFloat(columns.square - ky * ky));
  }
}

// The spectra of u + i v at kx, exchanged, and the conjugate of that of u - i v.
struct FieldPair {
  ComplexVector positive, negative;
};

ZEPH_INLINE FieldPair velocityPair(ComplexVector w, const TileColumns& columns, int ky) {
  const Vector one = Vector{} + 1;
  Vector k2 = columns.waveSquare(ky);
  k2 = k2 < one ? one : k2;  // the mean mode, whose vorticity is zero
  const Vector p = static_cast<float>(ky) / k2;
  const Vector q = columns.kx / k2;
  const ComplexVector pw = p * w, qw = q * w;
  return {{qw.im + pw.re, qw.re - pw.im}, {-(qw.re + pw.im), qw.im - pw.re}};
}

// The same of dw/dx + i dw/dy.
ZEPH_INLINE FieldPair gradientPair(ComplexVector w, const TileColumns& columns, int ky) {
  const ComplexVector pw = static_cast<float>(ky) * w, qw = columns.kx * w;
  return {{qw.re - pw.im, -(qw.im + pw.re)}, {pw.re - qw.im, -(pw.im + qw.re)}};
}

// The first stage of the inverse transforms, from the vorticity at the wavenumbers of offset j.
template <int q, bool ADVECTIVE>
void beginTerm(const FusedPass& pass, const TileColumns& columns, int j, const ComplexVector* omega,
               const Tile* tiles) {
  const PaddedTables& line = *pass.line;
  constexpr int fields = ADVECTIVE ? 2 : 1;
  for (int field = 0; field < fields; ++field) {
    FieldPair pair[2 * q];
    unrolled<3 * q>([&](auto n) ZEPH_INLINED {
      if constexpr (n / q != 1) {
        const int ky = wavenumberOf<q>(line, n, j);
        const ComplexVector w = omega[numberOf<q>(n)];
        pair[numberOf<q>(n)] =
            field == 0 ? velocityPair(w, columns, ky) : gradientPair(w, columns, ky);
      }
    });
    spreadStage<q>(line, j, tiles[2 * field],
                   [&](auto n) ZEPH_INLINED { return pair[numberOf<q>(n)].positive; });
    spreadStage<q>(line, j, tiles[2 * field + 1],
                   [&](auto n) ZEPH_INLINED { return pair[numberOf<q>(n)].negative; });
  }
}

// The last stage of the forward transforms, and the stage update at the wavenumbers of offset j,
// whose new vorticity it leaves in `omega`.
template <int q, bool ADVECTIVE>
void endTerm(const FusedPass& pass, const TileUpdate& update, FusedUpdate advance, int j,
             ComplexVector* omega, const Tile* tiles) {
  const PaddedTables& line = *pass.line;
  const float scale = termScale(pass.p.resolution, pass.p.padded);
  ComplexVector positive[2 * q], negative[2 * q];
  gatherStage<q>(line, j, tiles[0], [&](auto n, ComplexVector value) ZEPH_INLINED {
    positive[numberOf<q>(n)] = value;
  });
  if constexpr (!ADVECTIVE) {
    gatherStage<q>(line, j, tiles[1], [&](auto n, ComplexVector value) ZEPH_INLINED {
      negative[numberOf<q>(n)] = value;
    });
  }
  for (int at = 0; at < 2 * q; ++at) {
    const ModeRow row = rowAt<q>(line, at, j);
    omega[at] = ComplexVector{};
    if (row.ky == -line.half) continue;
    ComplexVector term =
        termOf<ADVECTIVE>(positive[at], negative[at], update.columns, row.ky, scale);
    if (row.ky == 0 && update.columns.first == 0) term.re[0] = term.im[0] = 0;  // the mean mode
    omega[at] = advance(update, row, term);
  }
}

template <bool ADVECTIVE>
constexpr int planesOf() {
  return needsOf(ADVECTIVE ? OperatorKind::advective : OperatorKind::stress).fields;
}

template <int q, bool ADVECTIVE>
void firstColumns(const FusedPass& pass, int index, int participant) {
  const PaddedTables& line = *pass.line;
  const TileUpdate update(pass, index);
  constexpr int planes = planesOf<ADVECTIVE>();
  Tile tiles[planes];
  for (int s = 0; s < planes; ++s) tiles[s] = scratchTile(pass, participant, s);
  const Tile chirp = chirpTile(pass, participant);
  const SpectrumTile rows(pass.arrays.omega, pass, update.columns);
  const bool keepsBase = needsOf(pass.p.method).base;
  for (int j = 0; j < line.span; ++j) {
    ComplexVector omega[2 * q];
    for (int at = 0; at < 2 * q; ++at) {
      const ModeRow row = rowAt<q>(line, at, j);
      omega[at] = ComplexVector{};
      if (row.ky == -line.half) continue;
      omega[at] = rows.load(row);
      if (keepsBase) update.base.store(row, omega[at]);
    }
    beginTerm<q, ADVECTIVE>(pass, update.columns, j, omega, tiles);
  }
  for (int s = 0; s < planes; ++s) spreadColumns(pass, update.columns, s, tiles[s], chirp);
}

template <int q, bool ADVECTIVE>
void advanceColumns(const FusedPass& pass, int index, int participant) {
  const PaddedTables& line = *pass.line;
  if (pass.formsFactors) fusedCoefficients(pass, index, participant);
  const TileUpdate update(pass, index);
  const FusedUpdate advance = fusedUpdateOf(pass.p.method, pass.p.stage);
  constexpr int planes = planesOf<ADVECTIVE>();
  Tile tiles[planes];
  for (int s = 0; s < planes; ++s) tiles[s] = scratchTile(pass, participant, s);
  const Tile chirp = chirpTile(pass, participant);
  for (int s = 0; s < (ADVECTIVE ? 1 : 2); ++s)
    gatherColumns(pass, update.columns, s, tiles[s], chirp);
  IntVector invalid = {};
  for (int j = 0; j < line.span; ++j) {
    ComplexVector omega[2 * q];
    endTerm<q, ADVECTIVE>(pass, update, advance, j, omega, tiles);
    for (int at = 0; at < 2 * q; ++at) invalid |= nonFinite(omega[at].re) | nonFinite(omega[at].im);
    if (!pass.endsBatch) beginTerm<q, ADVECTIVE>(pass, update.columns, j, omega, tiles);
  }
  if (anyLane(invalid)) __atomic_exchange_n(&pass.clock->healthy, 0u, __ATOMIC_RELAXED);
  if (pass.endsBatch) return;
  for (int s = 0; s < planes; ++s) spreadColumns(pass, update.columns, s, tiles[s], chirp);
}

template <int q>
void stateToRows(const FusedPass& pass, int index) {
  const PaddedTables& line = *pass.line;
  const TileUpdate update(pass, index);
  for (int j = 0; j < line.span; ++j) {
    for (int at = 0; at < 2 * q; ++at) {
      const ModeRow row = rowAt<q>(line, at, j);
      if (row.ky == -line.half) continue;
      update.omega.moveToRows(row);
      update.correction.moveToRows(row);
    }
  }
}

}  // namespace

void fusedFirstColumns(const FusedPass& pass, int tile, int participant) {
  forOuterRadix(*pass.line, [&](auto q) ZEPH_INLINED {
    if (pass.p.operatorKind == OperatorKind::advective) {
      firstColumns<q, true>(pass, tile, participant);
    } else {
      firstColumns<q, false>(pass, tile, participant);
    }
  });
}

void fusedColumns(const FusedPass& pass, int tile, int participant) {
  forOuterRadix(*pass.line, [&](auto q) ZEPH_INLINED {
    if (pass.p.operatorKind == OperatorKind::advective) {
      advanceColumns<q, true>(pass, tile, participant);
    } else {
      advanceColumns<q, false>(pass, tile, participant);
    }
  });
}

void fusedStateToRows(const FusedPass& pass, int tile, int) {
  forOuterRadix(*pass.line, [&](auto q) ZEPH_INLINED { stateToRows<q>(pass, tile); });
}

}  // namespace zeph::cpu::ZEPH_ISA
