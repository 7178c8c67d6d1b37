#include "device/cpu/transforms/plane_passes.h"

#include "device/cpu/transforms/row_tiles.h"

namespace zeph::cpu::ZEPH_ISA {
namespace {

Band bandOf(const PlanePass& pass) {
  return {pass.bandBegin, pass.bandEnd};
}

Tile tileOf(const PlanePass& pass, int participant) {
  return {pass.scratch + static_cast<std::size_t>(participant) * pass.scratchFloats};
}

// `vectorWidth` neighbouring columns: one row of them for each element of the line.
template <bool inverse>
struct ColumnsIn {
  const float* first;
  std::ptrdiff_t rowStride;
  Band zero;

  ZEPH_INLINE ComplexVector load(int j) const {
    if (zero.holds(j)) return ComplexVector{};
    const ComplexVector value = loadComplex(first + j * rowStride);
    return inverse ? exchanged(value) : value;
  }
};

template <bool inverse>
struct ColumnsOut {
  float* first;
  std::ptrdiff_t rowStride;
  Band unused;
  const int* wavenumber;

  ZEPH_INLINE void store(int place, ComplexVector value) const {
    const int j = wavenumber[place];
    if (unused.holds(j)) return;
    storeComplex(first + j * rowStride, inverse ? exchanged(value) : value);
  }
};

template <bool inverse>
void transformColumns(const PlanePass& pass, float* first, std::ptrdiff_t rowStride, Tile tile) {
  const LineTables& line = *pass.line;
  const Band band = bandOf(pass), none = {0, 0};
  transformLine(line, ColumnsIn<inverse>{first, rowStride, inverse ? band : none}, tile,
                ColumnsOut<inverse>{first, rowStride, inverse ? none : band, line.wavenumber});
}

// Fewer columns than a vector holds are copied, after the tile, to rows of the full width.
template <bool inverse>
void transformFewColumns(const PlanePass& pass, float* first, int count, Tile tile) {
  const int length = pass.line->length;
  float* copy = tile.at(pass.line->inner != nullptr ? 2 * pass.line->inner->length : length);
  for (int j = 0; j < length; ++j) {
    const float* row = first + j * pass.rowStride;
    for (int f = 0; f < 2 * vectorWidth; ++f)
      copy[std::ptrdiff_t{2} * vectorWidth * j + f] = f < 2 * count ? row[f] : 0;
  }
  transformColumns<inverse>(pass, copy, 2 * vectorWidth, tile);
  for (int j = 0; j < length; ++j) {
    float* row = first + j * pass.rowStride;
    for (int f = 0; f < 2 * count; ++f) row[f] = copy[std::ptrdiff_t{2} * vectorWidth * j + f];
  }
}

template <bool inverse>
void columnTile(const PlanePass& pass, int index, int participant) {
  const int tiles = tileCount(pass.columns, vectorWidth);
  const int column = index % tiles * vectorWidth;
  float* first = pass.planes + index / tiles * (pass.line->length * pass.rowStride) +
                 std::ptrdiff_t{2} * column;
  const Tile tile = tileOf(pass, participant);
  if (column + vectorWidth <= pass.columns) {
    transformColumns<inverse>(pass, first, pass.rowStride, tile);
  } else {
    transformFewColumns<inverse>(pass, first, pass.columns - column, tile);
  }
}

void columns(const PlanePass& pass, int index, int participant) {
  if (pass.inverse) {
    columnTile<true>(pass, index, participant);
  } else {
    columnTile<false>(pass, index, participant);
  }
}

void complexRows(const PlanePass& pass, int index, int participant) {
  const LineTables& line = *pass.line;
  const Tile tile = tileOf(pass, participant);
  const TileRows rows(pass, index, vectorWidth);
  loadComplexRows(rows, line.length, pass.inverse, tile);
  transformLine(line, BandedTile{tile, {0, 0}}, tile, tile);
  storeComplexRows(rows, line, pass.inverse, tile);
}

void realRowsForward(const PlanePass& pass, int index, int participant) {
  const LineTables& line = *pass.line;
  const Tile tile = tileOf(pass, participant);
  const TileRows rows(pass, index, 2 * vectorWidth);
  loadRealRows(rows, line.length, tile);
  transformLine(line, BandedTile{tile, {0, 0}}, tile, tile);
  storeHalfSpectra(rows, line, pass.columns, tile);
}

void realRowsInverse(const PlanePass& pass, int index, int participant) {
  const LineTables& line = *pass.line;
  const Tile tile = tileOf(pass, participant);
  const TileRows rows(pass, index, 2 * vectorWidth);
  loadHalfSpectra(rows, line.length, pass.columns, tile);
  transformLine(line, BandedTile{tile, bandOf(pass)}, tile, tile);
  storeRealRows(rows, line, tile);
}

}  // namespace

const PlanePasses planePasses = {vectorWidth, columns, complexRows, realRowsForward,
                                 realRowsInverse};

}  // namespace zeph::cpu::ZEPH_ISA
