#include <fftw3.h>

#include <stdexcept>

#include "exports.h"

// The names of FFTW's functions and types begin with its precision.
#ifdef EXPERT_DOUBLE
#define FFTW(name) fftw_##name
#else
#define FFTW(name) fftwf_##name
#endif

namespace expert {
namespace {

// Measured plans. Whole planes and pruned ones share a transform out to threads; tiles do not.
class Fftw {
 public:
  Fftw(const Layout& at, Form form, Complex* planes, int threads) : at_(at), form_(form) {
    FFTW(init_threads)();
    FFTW(plan_with_nthreads)(form == Form::fused ? 1 : threads);
    auto* modes = reinterpret_cast<FFTW(complex)*>(planes);
    auto* samples = reinterpret_cast<Real*>(planes);
    if (form == Form::plain) {
      planWhole(modes, samples);
    } else {
      const bool tiles = form == Form::fused;
      planColumns(modes, tiles ? tileColumns : at.h);
      planRows(modes, samples, tiles ? tileRows : 2 * at.m);
    }
    for (const FFTW(plan) plan : {forwardRows_, inverseRows_}) {
      if (plan == nullptr) throw std::runtime_error("FFTW has no plan");
    }
  }
  ~Fftw() {
    for (const FFTW(plan) plan : {inverseRows_, forwardRows_, inverseColumns_, forwardColumns_}) {
      if (plan != nullptr) FFTW(destroy_plan)(plan);
    }
  }
  Fftw(const Fftw&) = delete;
  Fftw& operator=(const Fftw&) = delete;

  // Two planes, where they were planned.
  void inverse() {
    if (form_ == Form::pruned) both(inverseColumns_);
    FFTW(execute)(inverseRows_);
  }
  void forward() {
    FFTW(execute)(forwardRows_);
    if (form_ == Form::pruned) both(forwardColumns_);
  }

  void inverseColumns(Complex* at) { FFTW(execute_dft)(inverseColumns_, of(at), of(at)); }
  void forwardColumns(Complex* at) { FFTW(execute_dft)(forwardColumns_, of(at), of(at)); }
  void inverseRows(Complex* at) { FFTW(execute_dft_c2r)(inverseRows_, of(at), numbers(at)); }
  void forwardRows(Complex* at) { FFTW(execute_dft_r2c)(forwardRows_, numbers(at), of(at)); }

 private:
  static FFTW(complex) * of(Complex* at) { return reinterpret_cast<FFTW(complex)*>(at); }

  void both(FFTW(plan) columns) {
    FFTW(execute)(columns);
    FFTW(execute_dft)(columns, second_, second_);
  }

  // The whole transform stands in the place of its last axis.
  void planWhole(FFTW(complex) * modes, Real* samples) {
    const int sides[] = {at_.m, at_.m};
    const int spectrum[] = {at_.m, at_.stride}, grid[] = {at_.m, 2 * at_.stride};
    const int apart = static_cast<int>(at_.plane);
    inverseRows_ = FFTW(plan_many_dft_c2r)(2, sides, 2, modes, spectrum, 1, apart, samples, grid, 1,
                                           2 * apart, FFTW_MEASURE);
    forwardRows_ = FFTW(plan_many_dft_r2c)(2, sides, 2, samples, grid, 1, 2 * apart, modes,
                                           spectrum, 1, apart, FFTW_MEASURE);
  }

  void planColumns(FFTW(complex) * modes, int columns) {
    second_ = modes + at_.plane;
    const auto plan = [&](int sign) {
      return FFTW(plan_many_dft)(1, &at_.m, columns, modes, nullptr, at_.stride, 1, modes, nullptr,
                                 at_.stride, 1, sign, FFTW_MEASURE);
    };
    inverseColumns_ = plan(FFTW_BACKWARD);
    forwardColumns_ = plan(FFTW_FORWARD);
  }

  // The rows of both planes follow one another.
  void planRows(FFTW(complex) * modes, Real* samples, int rows) {
    inverseRows_ = FFTW(plan_many_dft_c2r)(1, &at_.m, rows, modes, nullptr, 1, at_.stride, samples,
                                           nullptr, 1, 2 * at_.stride, FFTW_MEASURE);
    forwardRows_ = FFTW(plan_many_dft_r2c)(1, &at_.m, rows, samples, nullptr, 1, 2 * at_.stride,
                                           modes, nullptr, 1, at_.stride, FFTW_MEASURE);
  }

  Layout at_;
  Form form_;
  FFTW(complex) * second_ = nullptr;
  FFTW(plan) inverseRows_ = nullptr, forwardRows_ = nullptr;
  FFTW(plan) inverseColumns_ = nullptr, forwardColumns_ = nullptr;
};

}  // namespace
}  // namespace expert

EXPERT_EXPORTS(expert::Fftw)
