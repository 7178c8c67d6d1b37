#include "solver/config_record.h"

#include <cmath>
#include <stdexcept>

namespace zeph {

const char* nameOf(Integrator integrator) {
  return integratorNames.at(static_cast<std::size_t>(integrator));
}
const char* nameOf(OperatorKind kind) {
  return operatorNames.at(static_cast<std::size_t>(kind));
}
const char* nameOf(StartSpectrum spectrum) {
  return startSpectrumNames.at(static_cast<std::size_t>(spectrum));
}

double DefaultReynolds(int resolution, int k0) {
  return std::pow(10.0, 1.06624 * std::log10(resolution) - 0.083911 * std::log10(k0) + 1.286396);
}

float viscosityOf(double reynolds) {
  return static_cast<float>(1.0 / reynolds);
}

bool isReynolds(double reynolds) {
  return reynolds > 0 && std::isfinite(reynolds) && std::isfinite(viscosityOf(reynolds));
}

bool isCfl(float cfl) {
  return cfl > 0 && std::isfinite(cfl);
}

void checkConfig(const Config& config) {
  const int n = config.resolution;
  // An infinite Reynolds number is an inviscid flow, which a record may ask for.
  const bool valid =
      n >= 16 && n <= 16384 && n % 2 == 0 && config.k0 >= 1 && config.reynolds > 0 &&
      std::isfinite(viscosityOf(config.reynolds)) && isCfl(config.cfl) && config.fixed_dt >= 0 &&
      std::isfinite(config.fixed_dt) && config.integrator <= Integrator::etdrk4 &&
      config.operatorKind <= OperatorKind::advective && config.start_spectrum <= StartSpectrum::KM3;
  if (!valid)
    throw std::invalid_argument(
        "Invalid resolution, Reynolds number, k0, CFL, fixed timestep, method or start spectrum.");
}

}  // namespace zeph
