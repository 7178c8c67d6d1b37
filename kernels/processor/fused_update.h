// The stage update of the fused step: one row of a tile of columns, a mode to each lane. For code
// that is compiled once per instruction set.
#pragma once

#include "kernels/bodies/integrators.h"
#include "kernels/bodies/products.h"
#include "kernels/processor/fused_vectors.h"

namespace zeph::cpu::ZEPH_ISA {
namespace {

// The columns of a tile: kx of the first lane, and how many lanes are in use.
struct TileColumns {
  int tile, first, count;
  Vector kx;
  IntVector number, square;  // kx, kx^2

  TileColumns(const FusedPass& pass, int index)
      : tile(index),
        first(index * vectorWidth),
        count(pass.line->half - first < vectorWidth ? pass.line->half - first : vectorWidth),
        number(laneNumbers() + first),
        square(number * number) {
    kx = toFloat(number);
  }

  ZEPH_INLINE Vector waveSquare(int ky) const { return toFloat(square + ky * ky); }
};

// A row of modes: its wavenumber, and its number in the order in which the rows of a tile come.
struct ModeRow {
  int ky, number;
};

// A tile's part of a half spectrum.
class SpectrumTile {
 public:
  SpectrumTile(V2* spectrum, const FusedPass& pass, const TileColumns& columns)
      : begin_(&spectrum[columns.first].re),
        side_(static_cast<int>(pass.p.resolution)),
        stride_(std::ptrdiff_t{2} * halfWidth(side_)),
        count_(columns.count) {}

  ZEPH_INLINE ComplexVector load(ModeRow row) const { return loadPairs(at(row), count_); }
  ZEPH_INLINE void store(ModeRow row, ComplexVector value) const {
    storePairs(at(row), value, count_);
  }

 private:
  ZEPH_INLINE float* at(ModeRow row) const { return begin_ + stride_ * rowOf(row.ky, side_); }

  float* begin_;
  int side_;
  std::ptrdiff_t stride_;  // floats
  int count_;
};

// A tile's part of an array that is used within a step alone.
class StepTile {
 public:
  StepTile(V2* array, bool isUsed, const FusedPass& pass, const TileColumns& columns)
      : begin_(&array[isUsed ? std::ptrdiff_t{columns.first} * pass.p.resolution : 0].re),
        count_(columns.count) {}

  ZEPH_INLINE ComplexVector load(ModeRow row) const {
    const float* from = at(row);
    if (count_ == vectorWidth) return loadParts(from);
    return {loadFirst(from, count_), loadFirst(from + count_, count_)};
  }
  ZEPH_INLINE void store(ModeRow row, ComplexVector value) const {
    float* to = at(row);
    if (count_ == vectorWidth) return storeParts(to, value);
    storeFirst(to, value.re, count_);
    storeFirst(to + count_, value.im, count_);
  }

 private:
  ZEPH_INLINE float* at(ModeRow row) const {
    return begin_ + std::ptrdiff_t{2} * row.number * count_;
  }

  float* begin_;
  int count_;
};

// A tile's part of the state or of its compensation: in rows between two batches, and in a layout
// for tiles within one.
class BatchTile {
 public:
  BatchTile(V2* rows, V2* tiles, const FusedPass& pass, const TileColumns& columns)
      : rows_(rows, pass, columns),
        tile_(tiles, true, pass, columns),
        isInRows_(pass.beginsBatch),
        goesToRows_(pass.endsBatch) {}

  ZEPH_INLINE ComplexVector load(ModeRow row) const {
    return isInRows_ ? rows_.load(row) : tile_.load(row);
  }
  ZEPH_INLINE void store(ModeRow row, ComplexVector value) const {
    if (goesToRows_) return rows_.store(row, value);
    tile_.store(row, value);
  }
  ZEPH_INLINE void moveToRows(ModeRow row) const { rows_.store(row, tile_.load(row)); }

 private:
  SpectrumTile rows_;
  StepTile tile_;
  bool isInRows_, goesToRows_;
};

// A tile's part of the factors of each mode, which are the same for ky and -ky. A row has its
// factors one after another.
class FactorTile {
 public:
  FactorTile(const FusedPass& pass, const TileColumns& columns)
      : factors_(needsOf(pass.p.method).coefficientPlanes),
        count_(columns.count),
        begin_(pass.arrays.coefficients +
               std::ptrdiff_t{columns.first} * pass.line->half * factors_) {}

  ZEPH_INLINE Vector load(int ky, int factor) const {
    const float* from = at(ky < 0 ? -ky : ky, factor);
    return count_ == vectorWidth ? ZEPH_ISA::load(from) : loadFirst(from, count_);
  }
  ZEPH_INLINE void store(int ky, int factor, Vector value) const {
    float* to = at(ky, factor);
    if (count_ == vectorWidth) return ZEPH_ISA::store(to, value);
    storeFirst(to, value, count_);
  }

 private:
  ZEPH_INLINE float* at(int ky, int factor) const {
    return begin_ + (std::ptrdiff_t{ky} * factors_ + factor) * count_;
  }

  int factors_, count_;
  float* begin_;
};

// The order of the factors of "etdrk4" in a row: those of the first three stages, then those of the
// last.
enum EtdFactor { etdC1, etdC2, etdC0, etdC3, etdC4, etdC5 };

// Everything that the update of a tile needs.
struct TileUpdate {
  TileColumns columns;
  BatchTile omega, correction;
  StepTile base, first, middle;
  FactorTile factors;
  float viscosity, dt;

  TileUpdate(const FusedPass& pass, int tile)
      : TileUpdate(pass, tile, needsOf(pass.p.method), pass.arrays) {}

 private:
  TileUpdate(const FusedPass& pass, int tile, IntegratorNeeds needs, const StageArrays& arrays)
      : columns(pass, tile),
        omega(arrays.omega, pass.state, pass, columns),
        correction(arrays.correction, pass.correction, pass, columns),
        base(arrays.base, needs.base, pass, columns),
        first(arrays.first, true, pass, columns),
        middle(arrays.middle, needs.middle, pass, columns),
        factors(pass, columns),
        viscosity(pass.p.viscosity),
        dt(pass.clock->dt) {}
};

// Advances a row by a stage, given its nonlinear term, and returns its new vorticity.
using FusedUpdate = ComplexVector (*)(const TileUpdate& u, ModeRow row, ComplexVector term);

template <int STAGE>
ComplexVector fusedImex(const TileUpdate& u, ModeRow row, ComplexVector term) {
  ComplexVector omega = u.omega.load(row);
  ComplexVector correction = u.correction.load(row);
  ComplexVector first = {};
  if constexpr (STAGE > 0) first = u.first.load(row);
  imexStage<STAGE>(term, u.viscosity, u.dt, u.columns.waveSquare(row.ky), omega, first, correction);
  u.omega.store(row, omega);
  u.correction.store(row, correction);
  if constexpr (STAGE < 2) u.first.store(row, first);
  return omega;
}

// Here the tiles of the state are `base`, which keeps it until the last stage.
template <int STAGE>
ComplexVector fusedHeun(const TileUpdate& u, ModeRow row, ComplexVector term) {
  constexpr bool last = STAGE == 2;
  HeunCoefficients<Vector> c = {u.factors.load(row.ky, 0), {}, {}};
  if constexpr (STAGE == 1) c.c1 = u.factors.load(row.ky, 1);
  if constexpr (last) c.c2 = u.factors.load(row.ky, 2);
  ComplexVector base = u.base.load(row);
  ComplexVector omega = base, first = {}, correction = {};
  if constexpr (last) {
    first = u.first.load(row);
    correction = u.correction.load(row);
  }
  heunStage<STAGE>(term, u.dt, c, omega, base, first, correction);
  if constexpr (STAGE == 0) u.first.store(row, first);
  if constexpr (last) {
    u.omega.store(row, omega);
    u.correction.store(row, correction);
  }
  return omega;
}

// The predictor is formed again in stage 2, which reads `base` for it instead of the predictor.
template <int STAGE>
ComplexVector fusedEtd(const TileUpdate& u, ModeRow row, ComplexVector term) {
  constexpr bool last = STAGE == 3;
  EtdCoefficients<Vector> c = {};
  if constexpr (last) {
    c.c0 = u.factors.load(row.ky, etdC0);
    c.c3 = u.factors.load(row.ky, etdC3);
    c.c4 = u.factors.load(row.ky, etdC4);
    c.c5 = u.factors.load(row.ky, etdC5);
  } else {
    c.c1 = u.factors.load(row.ky, etdC1);
    c.c2 = u.factors.load(row.ky, etdC2);
  }
  ComplexVector base = u.base.load(row);
  ComplexVector first = {}, middle = {}, predictor = {}, correction = {};
  if constexpr (STAGE > 1) {
    first = u.first.load(row);
    middle = u.middle.load(row);
  }
  if constexpr (STAGE == 2) predictor = etdPredictor(base, first, c);
  if constexpr (last) correction = u.correction.load(row);
  ComplexVector omega = base;
  etdStage<STAGE>(term, c, omega, base, first, middle, predictor, correction);
  if constexpr (STAGE == 0) u.first.store(row, first);
  if constexpr (STAGE == 1 || STAGE == 2) u.middle.store(row, middle);
  if constexpr (last) {
    u.omega.store(row, omega);
    u.correction.store(row, correction);
  }
  return omega;
}

inline FusedUpdate fusedUpdateOf(Integrator method, std::uint32_t stage) {
  constexpr FusedUpdate imex[needsOf(Integrator::imexRK3).stages] = {fusedImex<0>, fusedImex<1>,
                                                                     fusedImex<2>};
  constexpr FusedUpdate heun[needsOf(Integrator::ifHeunRK3).stages] = {fusedHeun<0>, fusedHeun<1>,
                                                                       fusedHeun<2>};
  constexpr FusedUpdate etd[needsOf(Integrator::etdrk4).stages] = {fusedEtd<0>, fusedEtd<1>,
                                                                   fusedEtd<2>, fusedEtd<3>};
  if (method == Integrator::imexRK3) return imex[stage];
  if (method == Integrator::ifHeunRK3) return heun[stage];
  return etd[stage];
}

}  // namespace
}  // namespace zeph::cpu::ZEPH_ISA
