// The step that Zephane takes with "etdrk4" and "stress", as somebody writes it who needs only
// this: fixed step, factors made once, plain sums, nothing watched. `Transforms` is FFTW or MKL.
#pragma once
#include <omp.h>

#include <cstring>

#include "coefficients.h"
#include "layout.h"
#include "memory.h"
#include "rows.h"

namespace expert {

template <class Transforms>
class Flow {
 public:
  // `start` has the state: n rows of n/2 Fourier coefficients of the vorticity.
  Flow(Form form, int n, const Complex* start, double viscosity, double dt, int threads)
      : form_(form),
        at_(n, form),
        scale_(1 / (static_cast<Real>(at_.m) * static_cast<Real>(at_.m))),
        by_(at_, viscosity, dt),
        state_(at_.modes()),
        base_(at_.modes()),
        predictor_(at_.modes()),
        first_(at_.modes()),
        second_(at_.modes()),
        third_(at_.modes()),
        fourth_(at_.modes()),
        planes_(2 * at_.plane),
        transforms_(at_, form, planes_.data(), threads) {
    omp_set_num_threads(threads);
    for (std::size_t i = 0; i < at_.modes(); ++i) {
      state_[i] = by_.inverseLaplacian[i] > 0 ? start[i] : Complex(0);
    }
    clear(planes_.data(), 2 * at_.plane);  // planning has written to them
  }

  const Complex* state() const { return state_.data(); }
  std::size_t modes() const { return at_.modes(); }

  void step() {
    const Real *half = by_.half.data(), *whole = by_.whole.data(), *q = by_.stage.data();
    const Real *ofFirst = by_.first.data(), *ofMiddle = by_.middle.data(),
               *ofLast = by_.last.data();
    Real *w = numbers(state_.data()), *base = numbers(base_.data()),
         *predictor = numbers(predictor_.data());
    const Real *n1 = numbers(first_.data()), *n2 = numbers(second_.data());
    const Real *n3 = numbers(third_.data()), *n4 = numbers(fourth_.data());

    nonlinearTerm(first_.data());
    eachMode([=](std::size_t k, std::size_t i) {
      base[i] = w[i];
      w[i] = predictor[i] = half[k] * base[i] + q[k] * n1[i];
    });
    nonlinearTerm(second_.data());
    eachMode([=](std::size_t k, std::size_t i) { w[i] = half[k] * base[i] + q[k] * n2[i]; });
    nonlinearTerm(third_.data());
    eachMode([=](std::size_t k, std::size_t i) {
      w[i] = half[k] * predictor[i] + q[k] * (2 * n3[i] - n1[i]);
    });
    nonlinearTerm(fourth_.data());
    eachMode([=](std::size_t k, std::size_t i) {
      w[i] = whole[k] * base[i] + ofFirst[k] * n1[i] + ofMiddle[k] * (n2[i] + n3[i]) +
             ofLast[k] * n4[i];
    });
  }

 private:
  // `update` is given a mode and the index of its real or imaginary part.
  template <class Update>
  void eachMode(Update update) {
#pragma omp parallel for schedule(static)
    for (int row = 0; row < at_.n; ++row) {
      const std::size_t begin = static_cast<std::size_t>(row) * static_cast<std::size_t>(at_.h);
      const std::size_t end = begin + static_cast<std::size_t>(at_.h);
#pragma omp simd
      for (std::size_t k = begin; k < end; ++k) {
        update(k, 2 * k);
        update(k, 2 * k + 1);
      }
    }
  }

  static void clear(Complex* from, std::size_t count) {
    std::memset(static_cast<void*>(from), 0, count * sizeof(Complex));
  }
  static void clear(Complex* from, int count) {
    clear(from, static_cast<std::size_t>(count));
  }

  Complex* u(int row) {
    return planes_.data() + static_cast<std::size_t>(row) * static_cast<std::size_t>(at_.stride);
  }
  Complex* v(int row) {
    return u(row) + at_.plane;
  }
  bool padding(int row) const {
    return row >= at_.h && row <= at_.m - at_.h;
  }

  void velocity(int row, int begin, int end) {
    const int ky = row < at_.h ? row : row - at_.m;
    const std::size_t mode = at_.stateRow(ky);
    velocityRow(&state_[mode], &by_.inverseLaplacian[mode], ky, begin, end, u(row), v(row));
  }

  void terms(Complex* term, int begin, int end) {
    for (int ky = 1 - at_.h; ky < at_.h; ++ky) this->term(term, ky, begin, end);
  }
  void term(Complex* term, int ky, int begin, int end) {
    const Complex* difference = &planes_[at_.paddedRow(ky)];
    termRow(difference, difference + at_.plane, ky, scale_, begin, end, term + at_.stateRow(ky));
  }

  void nonlinearTerm(Complex* term) {
    if (form_ == Form::fused) {
      byTiles(term);
    } else {
      byPlanes(term);
    }
  }

  void byPlanes(Complex* to) {
#pragma omp parallel for schedule(static)
    for (int row = 0; row < at_.m; ++row) {
      const int kept = padding(row) ? 0 : at_.h;
      if (kept > 0) velocity(row, 0, kept);
      clear(u(row) + kept, at_.m / 2 + 1 - kept);
      clear(v(row) + kept, at_.m / 2 + 1 - kept);
    }
    transforms_.inverse();
#pragma omp parallel for schedule(static)
    for (int row = 0; row < at_.m; ++row) productsRow(u(row), v(row), at_.m);
    transforms_.forward();
#pragma omp parallel for schedule(static)
    for (int ky = 1 - at_.h; ky < at_.h; ++ky) term(to, ky, 0, at_.h);
  }

  void byTiles(Complex* to) {
#pragma omp parallel
    {
#pragma omp for schedule(dynamic, 1)
      for (int column = 0; column < at_.h; column += tileColumns) inverseColumns(column);
#pragma omp for schedule(dynamic, 4)
      for (int row = 0; row < at_.m; row += tileRows) rowsThereAndBack(row);
#pragma omp for schedule(dynamic, 1)
      for (int column = 0; column < at_.h; column += tileColumns) {
        transforms_.forwardColumns(u(0) + column);
        transforms_.forwardColumns(v(0) + column);
        terms(to, column, column + tileColumns);
      }
    }
  }

  void inverseColumns(int column) {
    for (int row = 0; row < at_.m; ++row) {
      if (padding(row)) {
        clear(u(row) + column, tileColumns);
        clear(v(row) + column, tileColumns);
      } else {
        velocity(row, column, column + tileColumns);
      }
    }
    transforms_.inverseColumns(u(0) + column);
    transforms_.inverseColumns(v(0) + column);
  }

  void rowsThereAndBack(int first) {
    for (int row = first; row < first + tileRows; ++row) {
      clear(u(row) + at_.h, at_.m / 2 + 1 - at_.h);
      clear(v(row) + at_.h, at_.m / 2 + 1 - at_.h);
    }
    transforms_.inverseRows(u(first));
    transforms_.inverseRows(v(first));
    for (int row = first; row < first + tileRows; ++row) productsRow(u(row), v(row), at_.m);
    transforms_.forwardRows(u(first));
    transforms_.forwardRows(v(first));
  }

  Form form_;
  Layout at_;
  Real scale_;
  Coefficients by_;
  Array<Complex> state_, base_, predictor_, first_, second_, third_, fourth_;
  Array<Complex> planes_;
  Transforms transforms_;
};

}  // namespace expert
