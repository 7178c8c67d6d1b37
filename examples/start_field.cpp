// Starts from a field of one's own: Taylor-Green vortices, whose decay is known exactly.
//
// The vorticity w = 2 cos x cos y keeps its shape, and its energy falls as E(t) = exp(-4 t/Re) / 4.
//
//   start_field [FILE]     the raw field stays in FILE (start.raw)

#include <cmath>
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

constexpr int resolution = 64;
constexpr double reynolds = 50.0;
constexpr double tolerance = 1e-4;  // of the energy; the solver works in single precision

// A start field is N x N samples of the vorticity as little-endian float32, row y after row, column
// x. Sample i lies at x = 2 pi i / N.
void writeStartField(const std::string& path) {
  const double spacing = 2.0 * std::acos(-1.0) / resolution;
  std::vector<float> vorticity;
  for (int j = 0; j < resolution; ++j) {
    for (int i = 0; i < resolution; ++i) {
      vorticity.push_back(static_cast<float>(2.0 * std::cos(spacing * i) * std::cos(spacing * j)));
    }
  }
  std::ofstream file(path, std::ios::binary);
  file.write(reinterpret_cast<const char*>(vorticity.data()),
             static_cast<std::streamsize>(vorticity.size() * sizeof(float)));
  if (!file.flush()) {
    throw std::runtime_error("Could not write " + path);
  }
}

double energy(const Engine& engine) {
  const std::string figures = engine.call(R"({"op":"inspect"})");
  const std::string key = R"("energy":)";
  return std::stod(figures.substr(figures.find(key) + key.size()));
}

void run(const std::string& path) {
  checked(zp_initialize());
  writeStartField(path);
  // A path with quotes or backslashes would have to be escaped here.
  const Engine engine(R"({"resolution":)" + std::to_string(resolution) + R"(,"reynolds":)" +
                      std::to_string(reynolds) + R"(,"initial":")" + path + R"("})");
  std::printf("time    energy     exact\n");
  for (int time = 0; time <= 5; ++time) {
    engine.call(R"({"op":"advance","steps":100000,"until":)" + std::to_string(time) + "}");
    const double exact = 0.25 * std::exp(-4.0 * time / reynolds);
    const double computed = energy(engine);
    std::printf("%4d  %8.6f  %8.6f\n", time, computed, exact);
    if (!(std::abs(computed - exact) <= tolerance * exact)) {
      throw std::runtime_error("The energy is not the exact one.");
    }
  }
}

}  // namespace

int main(int count, char** arguments) {
  try {
    run(count > 1 ? arguments[1] : "start.raw");
    return EXIT_SUCCESS;
  } catch (const std::exception& failure) {
    std::cerr << failure.what() << '\n';
    return EXIT_FAILURE;
  }
}
