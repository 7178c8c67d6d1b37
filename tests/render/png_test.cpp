// PNG files.
#include "render/png/png_file.h"

#include <gtest/gtest.h>
#include <png.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <random>
#include <vector>

#include "render/renderer.h"
#include "tests/boundary/failure_text.h"

namespace zeph {
namespace {

namespace fs = std::filesystem;

// A folder of the test's own.
class PngFiles : public testing::Test {
 protected:
  void SetUp() override {
    std::string pattern = (fs::temp_directory_path() / "zephane_png_XXXXXX").string();
    ASSERT_NE(mkdtemp(pattern.data()), nullptr);
    folder_ = pattern;
  }
  void TearDown() override { fs::remove_all(folder_); }

  std::string path(const std::string& name) const { return (folder_ / name).string(); }
  const fs::path& folder() const { return folder_; }

 private:
  fs::path folder_;
};

struct Image {
  std::uint32_t width = 0;
  std::uint32_t height = 0;
  std::uint32_t format = 0;
  std::vector<std::byte> bgra;
};

Image read(const std::string& path) {
  png_image image = {};
  image.version = PNG_IMAGE_VERSION;
  EXPECT_NE(png_image_begin_read_from_file(&image, path.c_str()), 0) << image.message;
  Image found = {image.width, image.height, image.format, {}};
  image.format = PNG_FORMAT_BGRA;
  found.bgra.resize(PNG_IMAGE_SIZE(image));
  EXPECT_NE(png_image_finish_read(&image, nullptr, found.bgra.data(), 0, nullptr), 0)
      << image.message;
  return found;
}

// Pixels that do not compress well.
std::vector<std::byte> noise(std::uint32_t width, std::uint32_t height) {
  std::mt19937 engine(width);
  std::vector<std::byte> pixels(std::size_t{4} * width * height);
  for (std::byte& value : pixels) value = static_cast<std::byte>(engine() & 0xff);
  return pixels;
}

TEST_F(PngFiles, GiveBackTheirPixels) {
  const std::pair<std::uint32_t, std::uint32_t> sizes[] = {
      {1, 1}, {1, 9}, {9, 1}, {37, 61}, {300, 200}};
  for (const auto& [width, height] : sizes) {
    const std::vector<std::byte> pixels = noise(width, height);
    writePng(path("flow.png"), width, height, pixels);
    const Image image = read(path("flow.png"));
    EXPECT_EQ(image.width, width);
    EXPECT_EQ(image.height, height);
    EXPECT_EQ(image.format, static_cast<std::uint32_t>(PNG_FORMAT_RGBA));  // 8 bits, with alpha
    EXPECT_EQ(image.bgra, pixels);
  }
}

TEST_F(PngFiles, OfLightHoldDisplayValues) {
  // 1, 0.25 and 2 in red, green and blue.
  const std::vector<std::uint16_t> halves = {0x3c00, 0x3400, 0x4000, 0x3c00};
  Texels texels = {.width = 1, .height = 1, .format = TexelFormat::rgba16, .data = {}};
  for (const std::uint16_t half : halves) {
    texels.data.push_back(static_cast<std::byte>(half & 0xff));
    texels.data.push_back(static_cast<std::byte>(half >> 8));
  }
  encodePng(texels, path("light.png"));
  const std::vector<std::byte> expected = {std::byte{255}, std::byte{137}, std::byte{255},
                                           std::byte{255}};
  EXPECT_EQ(read(path("light.png")).bgra, expected);
}

// tests/abi holds the other places where no picture can be written; there is no other user there.
TEST_F(PngFiles, ThatCannotBeWrittenAreReported) {
  if (geteuid() == 0) GTEST_SKIP() << "root may write everywhere";
  ASSERT_EQ(chmod(folder().c_str(), 0500), 0);
  EXPECT_EQ(failureText<std::runtime_error>([&] { writePng(path("flow.png"), 8, 8, noise(8, 8)); }),
            "Open PNG failed (0xd)");
  ASSERT_EQ(chmod(folder().c_str(), 0700), 0);
}

}  // namespace
}  // namespace zeph
