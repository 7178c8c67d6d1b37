// The record that decides a simulation.
#pragma once

#include <array>
#include <cstdint>

#include "kernels/methods.h"

namespace zeph {

enum class StartSpectrum : std::uint32_t { PAO = 0, KM3 = 1 };

// The names of the methods in texts, by value.
inline constexpr std::array integratorNames{"imexRK3", "ifHeunRK3", "etdrk4"};
inline constexpr std::array operatorNames{"stress", "advective"};
inline constexpr std::array startSpectrumNames{"PAO", "KM3"};

const char* nameOf(Integrator integrator);
const char* nameOf(OperatorKind kind);
const char* nameOf(StartSpectrum spectrum);

// A Reynolds number that a grid of `resolution` points resolves from a start at wavenumber k0:
// 10^(1.06624 log10 N - 0.083911 log10 k0 + 1.286396).
double DefaultReynolds(int resolution, int k0);

struct Config {
  std::int32_t resolution = 1024;  // N, grid points per side
  std::int32_t k0 = 4;             // peak wavenumber of the start spectrum
  std::uint64_t seed = 2;
  double reynolds = DefaultReynolds(1024, 4);
  float cfl = 3.0f;       // Courant number of the adaptive step
  float fixed_dt = 0.0f;  // 0 chooses the step from cfl
  Integrator integrator = Integrator::etdrk4;
  OperatorKind operatorKind = OperatorKind::stress;
  StartSpectrum start_spectrum = StartSpectrum::PAO;

  bool operator==(const Config&) const = default;
};

// 1/Re in double, rounded to float: the viscosity that the kernels see.
float viscosityOf(double reynolds);

// Whether a Reynolds number is positive and finite and has a finite viscosity.
bool isReynolds(double reynolds);
// Whether a Courant number is positive and finite.
bool isCfl(float cfl);

// Raises std::invalid_argument unless the grid, the numbers and the choices are all in range.
void checkConfig(const Config& config);

}  // namespace zeph
