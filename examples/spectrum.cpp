// Writes the spectrum of a decayed flow to a file, reads it again and sums its energy over shells
// of wavenumbers.
//
//   spectrum [FILE]        the raw spectrum stays in FILE (spectrum.raw)

#include <cmath>
#include <complex>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <fstream>
#include <iostream>
#include <stdexcept>
#include <string>
#include <vector>

#include "engine.h"

namespace {

constexpr int resolution = 128;

// The Fourier coefficients of the vorticity: N rows of one ky each, N columns of one kx each.
std::vector<std::complex<float>> readSpectrum(const std::string& path) {
  std::vector<std::complex<float>> coefficients(std::size_t{resolution} * resolution);
  std::ifstream file(path, std::ios::binary);
  file.read(reinterpret_cast<char*>(coefficients.data()),
            static_cast<std::streamsize>(coefficients.size() * sizeof(coefficients[0])));
  if (!file) {
    throw std::runtime_error("Could not read " + path);
  }
  return coefficients;
}

// Rows and columns are in FFT order: 0, 1, ..., N/2 - 1, -N/2, ..., -1.
int wavenumber(int index) {
  return index < resolution / 2 ? index : index - resolution;
}

// E(s) = 1/2 sum |w(k)|^2 / |k|^2 over the k that round to s.
std::vector<double> energyOfShells(const std::vector<std::complex<float>>& vorticity) {
  std::vector<double> energy(resolution, 0.0);
  for (int j = 0; j < resolution; ++j) {
    for (int i = 0; i < resolution; ++i) {
      const double kx = wavenumber(i);
      const double ky = wavenumber(j);
      const double squared = kx * kx + ky * ky;
      if (squared > 0.0) {
        const std::size_t at = std::size_t(j) * resolution + std::size_t(i);
        const auto shell = static_cast<std::size_t>(std::sqrt(squared) + 0.5);
        energy[shell] += 0.5 * std::norm(std::complex<double>(vorticity[at])) / squared;
      }
    }
  }
  return energy;
}

void run(const std::string& path) {
  checked(zp_initialize());
  const Engine engine(R"({"resolution":)" + std::to_string(resolution) +
                      R"(,"reynolds":3000,"seed":"7"})");
  engine.call(R"({"op":"advance","steps":100000,"until":3.0})");
  // A path with quotes or backslashes would have to be escaped here.
  engine.call(R"({"op":"export","spectrum":")" + path + R"("})");

  const std::vector<double> energy = energyOfShells(readSpectrum(path));
  double sum = 0.0;
  std::printf("wavenumber   energy\n");
  for (std::size_t shell = 1; shell < energy.size(); ++shell) {
    sum += energy[shell];
    if ((shell & (shell - 1)) == 0) {  // 1, 2, 4, 8, ...
      std::printf("%10zu   %.3e\n", shell, energy[shell]);
    }
  }
  std::printf("all shells   %.6f\n", sum);
  std::cout << "The engine's figures: " << engine.call(R"({"op":"inspect"})") << '\n';
}

}  // namespace

int main(int count, char** arguments) {
  try {
    run(count > 1 ? arguments[1] : "spectrum.raw");
    return EXIT_SUCCESS;
  } catch (const std::exception& failure) {
    std::cerr << failure.what() << '\n';
    return EXIT_FAILURE;
  }
}
