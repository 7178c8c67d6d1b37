// What a picture costs: as a whole, including the renderer that an engine makes for it, and in its
// parts (draw, read back, encode) with a renderer that exists already.
#include <benchmark/benchmark.h>

#include <filesystem>
#include <string>

#include "render/renderer.h"
#include "solver/solver.h"

namespace zeph::bench {
namespace {

constexpr int firstDevice = 0;
constexpr int resolution = 1024;

std::shared_ptr<const Frame> frameToDraw() {
  static const std::shared_ptr<const Frame> frame = [] {
    Config config;
    config.resolution = resolution;
    Solver solver(config, {});
    solver.advance(20, {});
    return solver.snapshot(true);
  }();
  return frame;
}

std::string pathOfPicture() {
  return (std::filesystem::temp_directory_path() / "zephane_bench.png").string();
}

std::uint32_t pixelsOf(const benchmark::State& state) {
  return static_cast<std::uint32_t>(state.range(0));
}

void wholePicture(benchmark::State& state) {
  const auto frame = frameToDraw();
  for (auto _ : state) {
    Renderer renderer(firstDevice);
    renderer.renderPng(frame, {}, pathOfPicture(), pixelsOf(state));
  }
}

void makeRenderer(benchmark::State& state) {
  frameToDraw();
  for (auto _ : state) Renderer renderer(firstDevice);
}

class Standing {
 public:
  explicit Standing(std::uint32_t pixels, const DisplaySettings& settings = {})
      : target(renderer.makeTarget(pixels, pixels, TexelFormat::bgra8)), settings_(settings) {
    draw(pixels);
  }
  void draw(std::uint32_t pixels) {
    renderer.drawPicture(*target, frameToDraw(), settings_, {.size = static_cast<float>(pixels)});
  }

  Renderer renderer{firstDevice};
  std::shared_ptr<Renderer::Target> target;

 private:
  DisplaySettings settings_;
};

void draw(benchmark::State& state) {
  frameToDraw();
  Standing picture(pixelsOf(state));
  for (auto _ : state) picture.draw(pixelsOf(state));
}

void drawWithFlowLines(benchmark::State& state) {
  frameToDraw();
  Standing picture(pixelsOf(state), {.display = Display::speed, .flow = true});
  for (auto _ : state) picture.draw(pixelsOf(state));
}

void readBack(benchmark::State& state) {
  frameToDraw();
  Standing picture(pixelsOf(state));
  for (auto _ : state) benchmark::DoNotOptimize(picture.renderer.readTarget(*picture.target));
}

void encode(benchmark::State& state) {
  frameToDraw();
  Standing picture(pixelsOf(state));
  const Texels texels = picture.renderer.readTarget(*picture.target);
  for (auto _ : state) encodePng(texels, pathOfPicture());
  state.counters["file_bytes"] = static_cast<double>(std::filesystem::file_size(pathOfPicture()));
}

BENCHMARK(makeRenderer)->Unit(benchmark::kMillisecond)->UseRealTime();
#define SIZES ->Arg(1800)->Arg(8192)->Unit(benchmark::kMillisecond)->UseRealTime()
BENCHMARK(wholePicture) SIZES;
BENCHMARK(draw) SIZES;
BENCHMARK(drawWithFlowLines) SIZES;
BENCHMARK(readBack) SIZES;
BENCHMARK(encode) SIZES;

}  // namespace
}  // namespace zeph::bench
