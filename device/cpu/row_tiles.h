// Rows of a plane, turned into the lanes of a tile and back.
//
// Two real rows a and b ride as the one complex line z = a + i b; row 2l of a tile is a of lane l,
// row 2l + 1 is b. In frequency space Z[k] = A[k] + i B[k] and Z[n-k] = conj A[k] + i conj B[k].
// For code that is compiled once per instruction set.
#pragma once

#include "device/cpu/line_transform.h"
#include "device/cpu/plane_passes.h"

namespace zeph::cpu::ZEPH_ISA {
namespace {

// The rows of one tile. Rows past the plane's last read as zero and are not written.
struct TileRows {
  float* row[2 * lanes];
  const float* source[2 * lanes];
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

// Calls block(begin, count) for runs of `lanes` neighbouring elements below `length`; the last run
// may be shorter. A count that is a Constant lets a whole run be moved without asking.
template <class Block>
ZEPH_INLINE void forBlocks(int length, Block block) {
  int begin = 0;
  for (; begin + lanes <= length; begin += lanes) block(begin, Constant<lanes>{});
  if (begin < length) block(begin, length - begin);
}

template <class Count>
ZEPH_INLINE Lanes loadUpTo(const float* from, Count count) {
  if constexpr (__is_same(Count, Constant<lanes>)) return load(from);
  return loadFirst(from, count);
}
template <class Count>
ZEPH_INLINE void storeUpTo(float* to, Lanes value, Count count) {
  if constexpr (__is_same(Count, Constant<lanes>)) return store(to, value);
  storeFirst(to, value, count);
}
template <class Count>
ZEPH_INLINE ComplexLanes loadComplexUpTo(const float* from, Count count) {
  if constexpr (__is_same(Count, Constant<lanes>)) return loadComplex(from);
  return loadFirstComplex(from, count);
}
template <class Count>
ZEPH_INLINE void storeComplexUpTo(float* to, ComplexLanes value, Count count) {
  if constexpr (__is_same(Count, Constant<lanes>)) return storeComplex(to, value);
  storeFirstComplex(to, value, count);
}

// Vectors of `lanes` neighbouring elements of each of `lanes` rows, before or after a transpose.
struct Square {
  Lanes re[lanes], im[lanes];

  ZEPH_INLINE void set(int k, ComplexLanes value) {
    re[k] = value.re;
    im[k] = value.im;
  }
  ZEPH_INLINE ComplexLanes get(int k) const { return {re[k], im[k]}; }
  ZEPH_INLINE void transposeBoth() {
    transpose(re);
    transpose(im);
  }
};

ZEPH_INLINE ComplexLanes exchanged(ComplexLanes a) {
  return {a.im, a.re};
}

inline void loadRealRows(const TileRows& rows, int length, Tile tile) {
  forBlocks(length, [&](int x, auto count) {
    Square m;
    unrolled<lanes>([&](auto l) {
      m.re[l] = loadUpTo(rows.source[2 * l] + x, count);
      m.im[l] = loadUpTo(rows.source[2 * l + 1] + x, count);
    });
    m.transposeBoth();
    for (int k = 0; k < count; ++k) tile.store(x + k, m.get(k));
  });
}

// The result of an inverse transform, whose parts are exchanged.
inline void storeRealRows(const TileRows& rows, const LineTables& line, Tile tile) {
  forBlocks(line.length, [&](int x, auto count) {
    Square m;
    for (int k = 0; k < lanes; ++k) {
      const int at = k < count ? x + k : x;
      m.set(k, exchanged(tile.load(line.position[at])));
    }
    m.transposeBoth();
    for (int l = 0; l < lanes; ++l) {
      if (2 * l < rows.count) storeUpTo(rows.row[2 * l] + x, m.re[l], count);
      if (2 * l + 1 < rows.count) storeUpTo(rows.row[2 * l + 1] + x, m.im[l], count);
    }
  });
}

// A[k] and B[k] have no imaginary parts where k and -k are the same frequency.
inline void loadSelfConjugate(const TileRows& rows, int k, Tile tile) {
  ComplexLanes z;
  for (int l = 0; l < lanes; ++l) {
    z.re[l] = rows.source[2 * l][2 * k];
    z.im[l] = rows.source[2 * l + 1][2 * k];
  }
  tile.store(k, exchanged(z));
}

// The first `columns` frequencies of each row, with their conjugates, for an inverse transform.
inline void loadHalfSpectra(const TileRows& rows, int length, int columns, Tile tile) {
  forBlocks(columns, [&](int first, auto count) {
    Square z, mirrored;
    for (int l = 0; l < lanes; ++l) {
      const ComplexLanes a = loadComplexUpTo(rows.source[2 * l] + 2 * first, count);
      const ComplexLanes b = loadComplexUpTo(rows.source[2 * l + 1] + 2 * first, count);
      z.set(l, {a.re - b.im, a.im + b.re});
      mirrored.set(l, {a.re + b.im, b.re - a.im});
    }
    z.transposeBoth();
    mirrored.transposeBoth();
    unrolled<lanes>([&](auto i) {
      const int k = first + complexOrder(i);
      if (k >= first + count) return;
      tile.store(k, exchanged(z.get(i)));
      if (k > 0) tile.store(length - k, exchanged(mirrored.get(i)));
    });
  });
  loadSelfConjugate(rows, 0, tile);
  if (length % 2 == 0 && length / 2 < columns) loadSelfConjugate(rows, length / 2, tile);
}

inline void storeHalfSpectra(const TileRows& rows, const LineTables& line, int columns, Tile tile) {
  forBlocks(columns, [&](int first, auto count) {
    Square a, b;
    for (int i = 0; i < lanes; ++i) {
      const int k = complexOrder(i) < count ? first + complexOrder(i) : first;
      const ComplexLanes z = tile.load(line.position[k]);
      const ComplexLanes mirrored = tile.load(line.position[k == 0 ? 0 : line.length - k]);
      a.set(i, ComplexLanes{z.re + mirrored.re, z.im - mirrored.im} * 0.5F);
      b.set(i, ComplexLanes{z.im + mirrored.im, mirrored.re - z.re} * 0.5F);
    }
    a.transposeBoth();
    b.transposeBoth();
    for (int l = 0; l < lanes; ++l) {
      if (2 * l < rows.count) storeComplexUpTo(rows.row[2 * l] + 2 * first, a.get(l), count);
      if (2 * l + 1 < rows.count) {
        storeComplexUpTo(rows.row[2 * l + 1] + 2 * first, b.get(l), count);
      }
    }
  });
}

inline void loadComplexRows(const TileRows& rows, int length, bool inverse, Tile tile) {
  forBlocks(length, [&](int first, auto count) {
    Square m;
    for (int l = 0; l < lanes; ++l) {
      const ComplexLanes value = loadComplexUpTo(rows.source[l] + 2 * first, count);
      m.set(l, inverse ? exchanged(value) : value);
    }
    m.transposeBoth();
    for (int i = 0; i < lanes; ++i) {
      if (complexOrder(i) < count) tile.store(first + complexOrder(i), m.get(i));
    }
  });
}

inline void storeComplexRows(const TileRows& rows, const LineTables& line, bool inverse,
                             Tile tile) {
  forBlocks(line.length, [&](int first, auto count) {
    Square m;
    for (int i = 0; i < lanes; ++i) {
      const int k = complexOrder(i) < count ? first + complexOrder(i) : first;
      m.set(i, tile.load(line.position[k]));
    }
    m.transposeBoth();
    for (int l = 0; l < rows.count; ++l) {
      const ComplexLanes value = inverse ? exchanged(m.get(l)) : m.get(l);
      storeComplexUpTo(rows.row[l] + 2 * first, value, count);
    }
  });
}

}  // namespace
}  // namespace zeph::cpu::ZEPH_ISA
