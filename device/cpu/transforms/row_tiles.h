// Rows of a plane, transposed into the lines of a tile and back.
//
// Two real rows a and b make one complex line z = a + i b: of line l of a tile, a is row 2l and b
// is row 2l + 1. In frequency space Z[k] = A[k] + i B[k] and Z[n-k] = conj A[k] + i conj B[k].
// For code that is compiled once per instruction set.
#pragma once

#include "device/cpu/transforms/line_transform.h"
#include "device/cpu/transforms/plane_passes.h"

namespace zeph::cpu::ZEPH_ISA {
namespace {

// The rows of one tile. Rows past the plane's last read as zero and are not written.
struct TileRows {
  float* row[2 * vectorWidth];
  const float* source[2 * vectorWidth];
  int count;

  TileRows(const PlanePass& pass, int index, int perTile) {
    const int length = pass.line->length;
    const int tiles = tileCount(length, perTile);
    const int first = index % tiles * perTile;
    float* plane = pass.planes + index / tiles * (length * pass.rowStride);
    count = length - first < perTile ? length - first : perTile;
    for (int r = 0; r < perTile; ++r) {
      row[r] = plane + (first + r) * pass.rowStride;
      source[r] = r < count ? row[r] : pass.zeros;
    }
  }
};

// Calls block(begin, count) for runs of `vectorWidth` neighbouring elements below `length`; the
// last run may be shorter. The count of a full run is a Constant, so that it is moved without a
// branch.
template <class Block>
ZEPH_INLINE void forBlocks(int length, Block block) {
  int begin = 0;
  for (; begin + vectorWidth <= length; begin += vectorWidth) block(begin, Constant<vectorWidth>{});
  if (begin < length) block(begin, length - begin);
}

template <class Count>
ZEPH_INLINE Vector loadUpTo(const float* from, Count count) {
  if constexpr (__is_same(Count, Constant<vectorWidth>)) return load(from);
  return loadFirst(from, count);
}
template <class Count>
ZEPH_INLINE void storeUpTo(float* to, Vector value, Count count) {
  if constexpr (__is_same(Count, Constant<vectorWidth>)) return store(to, value);
  storeFirst(to, value, count);
}
template <class Count>
ZEPH_INLINE ComplexVector loadComplexUpTo(const float* from, Count count) {
  if constexpr (__is_same(Count, Constant<vectorWidth>)) return loadComplex(from);
  return loadFirstComplex(from, count);
}
template <class Count>
ZEPH_INLINE void storeComplexUpTo(float* to, ComplexVector value, Count count) {
  if constexpr (__is_same(Count, Constant<vectorWidth>)) return storeComplex(to, value);
  storeFirstComplex(to, value, count);
}

ZEPH_INLINE ComplexVector exchanged(ComplexVector a) {
  return {a.im, a.re};
}

// Moves one row of each line into the tile as part `part`: 0 for the real parts, 1 for the
// imaginary ones.
template <class Count>
ZEPH_INLINE void loadRows(const float* const* source, int x, Count count, int part, Tile tile) {
  transposed([&](auto l) ZEPH_INLINED { return loadUpTo(source[2 * l] + x, count); },
             [&](auto k, Vector value) ZEPH_INLINED {
               if (k < count) store(tile.at(x + k) + part * vectorWidth, value);
             });
}

inline void loadRealRows(const TileRows& rows, int length, Tile tile) {
  forBlocks(length, [&](int x, auto count) ZEPH_INLINED {
    loadRows(rows.source, x, count, 0, tile);
    loadRows(rows.source + 1, x, count, 1, tile);
  });
}

template <class Count>
ZEPH_INLINE void storeRows(const TileRows& rows, int odd, const int* position, Count count, int x,
                           int part, Tile tile) {
  transposed(
      [&](auto k) ZEPH_INLINED {
        return load(tile.at(position[k < count ? x + k : x]) + part * vectorWidth);
      },
      [&](auto l, Vector value) ZEPH_INLINED {
        if (2 * l + odd < rows.count) storeUpTo(rows.row[2 * l + odd] + x, value, count);
      });
}

// The result of an inverse transform, whose parts are exchanged.
inline void storeRealRows(const TileRows& rows, const LineTables& line, Tile tile) {
  forBlocks(line.length, [&](int x, auto count) ZEPH_INLINED {
    storeRows(rows, 0, line.position, count, x, 1, tile);
    storeRows(rows, 1, line.position, count, x, 0, tile);
  });
}

// A[k] and B[k] have no imaginary parts where k and -k are the same frequency.
inline void loadSelfConjugate(const TileRows& rows, int k, Tile tile) {
  ComplexVector z;
  for (int l = 0; l < vectorWidth; ++l) {
    z.re[l] = rows.source[2 * l][2 * k];
    z.im[l] = rows.source[2 * l + 1][2 * k];
  }
  tile.store(k, exchanged(z));
}

// The first `columns` frequencies of each row, with their conjugates, for an inverse transform.
inline void loadHalfSpectra(const TileRows& rows, int length, int columns, Tile tile) {
  forBlocks(columns, [&](int first, auto count) ZEPH_INLINED {
    Vector re[vectorWidth], im[vectorWidth], mirroredRe[vectorWidth], mirroredIm[vectorWidth];
    for (int l = 0; l < vectorWidth; ++l) {
      const ComplexVector a = loadComplexUpTo(rows.source[2 * l] + 2 * first, count);
      const ComplexVector b = loadComplexUpTo(rows.source[2 * l + 1] + 2 * first, count);
      re[l] = a.re - b.im;
      im[l] = a.im + b.re;
      mirroredRe[l] = a.re + b.im;
      mirroredIm[l] = b.re - a.im;
    }
    // The parts are exchanged, as an inverse transform wants them.
    const auto move = [&](const Vector* from, bool mirrored, int part) ZEPH_INLINED {
      transposed([&](auto l) ZEPH_INLINED { return from[l]; },
                 [&](auto i, Vector value) ZEPH_INLINED {
                   const int k = first + complexOrder(i);
                   if (complexOrder(i) >= count || (mirrored && k == 0)) return;
                   store(tile.at(mirrored ? length - k : k) + part * vectorWidth, value);
                 });
    };
    move(re, false, 1);
    move(im, false, 0);
    move(mirroredRe, true, 1);
    move(mirroredIm, true, 0);
  });
  loadSelfConjugate(rows, 0, tile);
  if (length % 2 == 0 && length / 2 < columns) loadSelfConjugate(rows, length / 2, tile);
}

// Takes one of the two rows of each line out of it: A[k] = (Z[k] + conj Z[n-k]) / 2, or
// B[k] = (Z[k] - conj Z[n-k]) / 2i.
template <bool odd, class Count>
ZEPH_INLINE void storeSpectra(const TileRows& rows, const LineTables& line, int first, Count count,
                              Tile tile) {
  Vector re[vectorWidth];
  const auto frequency = [&](auto i) ZEPH_INLINED {
    return complexOrder(i) < count ? first + complexOrder(i) : first;
  };
  const auto at = [&](int k) ZEPH_INLINED { return tile.load(line.position[k]); };
  const auto mirrorOf = [&](int k) ZEPH_INLINED { return at(k == 0 ? 0 : line.length - k); };
  transposed(
      [&](auto i) ZEPH_INLINED {
        const int k = frequency(i);
        return (odd ? at(k).im + mirrorOf(k).im : at(k).re + mirrorOf(k).re) * 0.5F;
      },
      [&](auto l, Vector value) ZEPH_INLINED { re[l] = value; });
  transposed(
      [&](auto i) ZEPH_INLINED {
        const int k = frequency(i);
        return (odd ? mirrorOf(k).re - at(k).re : at(k).im - mirrorOf(k).im) * 0.5F;
      },
      [&](auto l, Vector value) ZEPH_INLINED {
        if (2 * l + odd >= rows.count) return;
        storeComplexUpTo(rows.row[2 * l + odd] + 2 * first, {re[l], value}, count);
      });
}

inline void storeHalfSpectra(const TileRows& rows, const LineTables& line, int columns, Tile tile) {
  forBlocks(columns, [&](int first, auto count) ZEPH_INLINED {
    storeSpectra<false>(rows, line, first, count, tile);
    storeSpectra<true>(rows, line, first, count, tile);
  });
}

// `vectorWidth` neighbouring complex elements of as many rows, a vector for each row, or their
// transpose.
struct Square {
  Vector re[vectorWidth], im[vectorWidth];

  ZEPH_INLINE void set(int k, ComplexVector value) {
    re[k] = value.re;
    im[k] = value.im;
  }
  ZEPH_INLINE ComplexVector get(int k) const { return {re[k], im[k]}; }
  ZEPH_INLINE void transposeBoth() {
    transpose(re);
    transpose(im);
  }
};

inline void loadComplexRows(const TileRows& rows, int length, bool inverse, Tile tile) {
  forBlocks(length, [&](int first, auto count) {
    Square m;
    for (int l = 0; l < vectorWidth; ++l) {
      const ComplexVector value = loadComplexUpTo(rows.source[l] + 2 * first, count);
      m.set(l, inverse ? exchanged(value) : value);
    }
    m.transposeBoth();
    for (int i = 0; i < vectorWidth; ++i) {
      if (complexOrder(i) < count) tile.store(first + complexOrder(i), m.get(i));
    }
  });
}

inline void storeComplexRows(const TileRows& rows, const LineTables& line, bool inverse,
                             Tile tile) {
  forBlocks(line.length, [&](int first, auto count) {
    Square m;
    for (int i = 0; i < vectorWidth; ++i) {
      const int k = complexOrder(i) < count ? first + complexOrder(i) : first;
      m.set(i, tile.load(line.position[k]));
    }
    m.transposeBoth();
    for (int l = 0; l < rows.count; ++l) {
      const ComplexVector value = inverse ? exchanged(m.get(l)) : m.get(l);
      storeComplexUpTo(rows.row[l] + 2 * first, value, count);
    }
  });
}

}  // namespace
}  // namespace zeph::cpu::ZEPH_ISA
