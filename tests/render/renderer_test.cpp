// Renderers: their targets, their files, their number and their end.
#include "render/renderer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <numbers>
#include <thread>
#include <vector>

#include "tests/boundary/failure_text.h"
#include "tests/render/reference.h"
#include "tests/support/process.h"

namespace zeph {
namespace {

namespace fs = std::filesystem;

#ifdef _WIN32
constexpr const char* refusedTarget = "Create PNG render target failed (0x80070057)";
constexpr const char* missingFolder = "Open PNG failed (0x80070003)";
#else
constexpr const char* refusedTarget = "Create PNG render target failed (0xfffffff8)";
constexpr const char* missingFolder = "Open PNG failed (0x2)";
#endif

std::string contentsOf(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

class Renderers : public test::OnRenderer {};

TEST_F(Renderers, ReportTheNameOfTheirDevice) {
  EXPECT_FALSE(renderer().deviceName().empty());
}

TEST_F(Renderers, OfAMissingDeviceAreNotCreated) {
  const int none = test::processorDevice() + 1;
  EXPECT_EQ(failureText<std::runtime_error>([=] { Renderer missing(none); }),
            "cudaSetDevice(cudaDevice): invalid device ordinal");
}

TEST_F(Renderers, DrawIntoTargetsOfAnyShape) {
  const auto frame = test::noise(18);
  const std::pair<std::uint32_t, std::uint32_t> shapes[] = {{1, 1}, {1, 50}, {50, 1}, {33, 21}};
  for (const auto& [width, height] : shapes) {
    const auto target = renderer().makeTarget(width, height, TexelFormat::bgra8);
    renderer().drawPicture(*target, frame, {}, {.size = 50});
    const Texels texels = renderer().readTarget(*target);
    EXPECT_EQ(texels.width, width);
    EXPECT_EQ(texels.height, height);
    ASSERT_EQ(texels.data.size(), std::size_t{4} * width * height);
    const test::Picture picture(texels);
    const int column = static_cast<int>(width) - 1;
    const int row = static_cast<int>(height) - 1;
    EXPECT_LE(test::largestDifference(picture.at(column, row),
                                      test::pixelReference(*frame, {}, 50, column, row)),
              test::displayTolerance);
  }
}

TEST_F(Renderers, ReadATargetThatNothingHasBeenDrawnInto) {
  for (const TexelFormat format : {TexelFormat::bgra8, TexelFormat::rgba16}) {
    const auto target = renderer().makeTarget(7, 9, format);
    EXPECT_EQ(renderer().readTarget(*target).data.size(), 63 * bytesPerTexel(format));
    renderer().drawPicture(*target, test::noise(16), {}, {.size = 9});
    const test::Picture picture(renderer().readTarget(*target));
    EXPECT_EQ(picture.alphaAt(6, 8), 1.0);
  }
}

TEST_F(Renderers, SurviveAnImpossibleTarget) {
  for (const std::uint32_t side : {0u, 100000u, 0x7fffffffu, 0xffffffffu}) {
    for (const bool isWide : {true, false}) {
      const std::string text = failureText<std::runtime_error>([&] {
        renderer().makeTarget(isWide ? side : 1, isWide ? 1 : side, TexelFormat::rgba16);
      });
      EXPECT_EQ(text, refusedTarget) << side;
    }
  }
  const auto frame = test::noise(18);
  test::expectReference(draw(frame, {}, 50), *frame, {});
}

TEST_F(Renderers, WriteAPictureWhateverElseTheyHaveDrawn) {
  const auto frame = test::noise(18);
  const DisplaySettings settings = {.display = Display::speed, .flow = true};
  const fs::path path = fs::temp_directory_path() / "zephane_renderer_test.png";
  const auto written = [&] {
    renderer().renderPng(frame, settings, path.string(), 120);
    return contentsOf(path);
  };
  const std::string first = written();
  EXPECT_TRUE(first.starts_with("\x89PNG\r\n"));
  draw(test::noise(34), {}, 77, TexelFormat::rgba16);
  EXPECT_EQ(written(), first);
  encodePng(renderer().readTarget(*[&] {
    auto target = renderer().makeTarget(120, 120, TexelFormat::bgra8);
    renderer().drawPicture(*target, frame, settings, {.size = 120});
    return target;
  }()),
            path.string());
  EXPECT_EQ(contentsOf(path), first);
  fs::remove(path);
}

TEST_F(Renderers, ReportAnUnwritableFileAndKeepWorking) {
  const auto frame = test::noise(18);
  EXPECT_EQ(failureText<std::runtime_error>(
                [&] { renderer().renderPng(frame, {}, "/nonexistent/flow.png", 20); }),
            missingFolder);
  test::expectReference(draw(frame, {}, 50), *frame, {});
}

// The same pixels as one alone.
TEST_F(Renderers, OfSeveralThreadsDoNotAffectEachOther) {
  constexpr int threads = 4;
  std::vector<std::shared_ptr<Frame>> frames;
  std::vector<std::vector<std::byte>> expected;
  const DisplaySettings settings = {.palette = Palette::aurora, .flow = true};
  const auto texelsOf = [&](Renderer& drawing, std::size_t k) {
    const auto target = drawing.makeTarget(160, 160, TexelFormat::bgra8);
    drawing.drawPicture(*target, frames[k], settings, {.size = 160});
    return drawing.readTarget(*target).data;
  };
  for (std::size_t k = 0; k < threads; ++k) {
    frames.push_back(test::noise(16 + 2 * static_cast<int>(k), static_cast<unsigned>(k)));
    expected.push_back(texelsOf(renderer(), k));
  }
  std::vector<std::thread> running;
  for (std::size_t k = 0; k < threads; ++k) {
    running.emplace_back([&, k] {
      for (int round = 0; round < 3; ++round) {
        Renderer own(test::processorDevice());
        for (int picture = 0; picture < 3; ++picture) EXPECT_EQ(texelsOf(own, k), expected[k]);
      }
    });
  }
  for (std::thread& thread : running) thread.join();
}

TEST_F(Renderers, LeakNoFileAndNoThread) {
  endRenderer();
  const auto frame = test::noise(18);
  const auto live = [&] {
    Renderer passing(test::processorDevice());
    const auto target = passing.makeTarget(40, 40, TexelFormat::bgra8);
    passing.drawPicture(*target, frame, {}, {.size = 40});
    passing.readTarget(*target);
  };
  live();
  const std::ptrdiff_t descriptors = test::openFiles();
  const std::ptrdiff_t threads = test::threads();
  for (int round = 0; round < 30; ++round) live();
  EXPECT_EQ(test::openFiles(), descriptors);
  EXPECT_EQ(test::threads(), threads);
  EXPECT_EQ(frame.use_count(), 1);
}

// Some drivers let a shader read 2^27 bytes in one piece; the planes of this grid are longer. The
// last piece holds rows of the last plane alone.
TEST_F(Renderers, DrawAFieldThatIsLongerThanWhatAShaderMayReadInOnePiece) {
  constexpr int n = 3400;
  constexpr int pixels = 300;
  static_assert(std::size_t{12} * n * n > std::size_t{1} << 27);
  const double turn = 2 * std::numbers::pi;
  const auto vorticity = [=](double x, double y) {
    return std::sin(turn * 3 * x) * std::cos(turn * 2 * y) + 0.2;
  };
  const auto u = [=](double, double y) { return 0.3 * std::cos(turn * y); };
  const auto v = [=](double x, double y) { return std::sin(turn * (2 * x + 5 * y)); };
  const auto large = test::frameOf(n, vorticity, u, v);
  for (const Display display : {Display::vorticity, Display::speed}) {
    SCOPED_TRACE(static_cast<int>(display));
    const DisplaySettings settings = {.display = display};
    test::expectReference(draw(large, settings, pixels), *large, settings);
  }
  // Its flow lines are those of the same flow on a smaller grid.
  const auto small = test::frameOf(340, vorticity, u, v);
  const DisplaySettings settings = {.display = Display::speed, .flow = true};
  const test::Picture lines = draw(large, settings, pixels);
  const test::Picture expected = draw(small, settings, pixels);
  const test::Picture without = draw(small, {.display = Display::speed}, pixels);
  double difference = 0;
  double cover = 0;
  for (int row = 0; row < pixels; ++row) {
    for (int column = 0; column < pixels; ++column) {
      difference += test::largestDifference(lines.at(column, row), expected.at(column, row));
      cover += test::largestDifference(without.at(column, row), expected.at(column, row));
    }
  }
  EXPECT_GT(cover, 100);
  EXPECT_LT(difference, 0.02 * cover);
}

}  // namespace
}  // namespace zeph
