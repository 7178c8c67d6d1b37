#include "render/cairo/painter.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/render/overlay_items.h"

namespace zeph::cairo {
namespace {

constexpr std::uint32_t marker = 0x12345678;

// A surface surrounded by memory that must not be written.
class Canvas {
 public:
  Canvas(int width, int height)
      : width_(width),
        height_(height),
        memory_(guard + static_cast<std::size_t>(width * height) + guard, marker) {}

  Surface surface() {
    return {.texels = memory_.data() + guard, .width = width_, .height = height_};
  }
  std::uint32_t& at(int x, int y) {
    return memory_[guard + static_cast<std::size_t>(y * width_ + x)];
  }
  std::vector<std::uint32_t> texels() const {
    return {memory_.begin() + guard, memory_.end() - guard};
  }
  bool isGuardWhole() const {
    const auto isMarker = [](std::uint32_t texel) { return texel == marker; };
    return std::all_of(memory_.begin(), memory_.begin() + guard, isMarker) &&
           std::all_of(memory_.end() - guard, memory_.end(), isMarker);
  }

  // The smallest box around all texels that are not empty.
  std::optional<Box> ink() {
    std::optional<Box> box;
    for (int y = 0; y < height_; ++y)
      for (int x = 0; x < width_; ++x) {
        if (at(x, y) == 0) continue;
        if (!box) box = {x, y, x + 1, y + 1};
        *box = {std::min(box->left, x), std::min(box->top, y), std::max(box->right, x + 1),
                std::max(box->bottom, y + 1)};
      }
    return box;
  }

 private:
  static constexpr int guard = 4096;
  int width_;
  int height_;
  std::vector<std::uint32_t> memory_;
};

std::uint32_t alphaOf(std::uint32_t texel) {
  return texel >> 24;
}

// Cairo and Pango are loaded at run time; a machine may lack them.
class PainterTest : public testing::Test {
 protected:
  void SetUp() override {
    try {
      painter_.emplace();
    } catch (const std::runtime_error& lack) {
      GTEST_SKIP() << lack.what();
    }
  }

  void paint(Canvas& canvas, const std::vector<OverlayItem>& items, float scale = 1) {
    painter_->paint(canvas.surface(), items, scale);
  }

  // A single item drawn by a new painter.
  static std::vector<std::uint32_t> freshly(const OverlayItem& item, float scale) {
    Canvas canvas(600, 200);
    Painter().paint(canvas.surface(), {&item, 1}, scale);
    return canvas.texels();
  }

  std::optional<Painter> painter_;
};

TEST_F(PainterTest, ClearsTheSurface) {
  Canvas canvas(40, 30);
  paint(canvas, {});
  EXPECT_FALSE(canvas.ink());
  EXPECT_TRUE(painter_->covered().empty());
}

TEST_F(PainterTest, FillsAPanelWithItsColourTimesItsAlpha) {
  Canvas canvas(100, 60);
  paint(canvas, {test::panelAt({10, 10, 90, 50}, 13)});
  EXPECT_EQ(canvas.at(50, 30), 0x59000000u);
  EXPECT_EQ(canvas.at(10, 30), 0x59000000u);
  EXPECT_EQ(canvas.at(89, 30), 0x59000000u);
  EXPECT_EQ(canvas.at(50, 10), 0x59000000u);
  EXPECT_EQ(canvas.ink(), (Box{10, 10, 90, 50}));
}

TEST_F(PainterTest, RoundsThePanelsCornersByItsRadius) {
  Canvas canvas(100, 60);
  const auto isRound = [&](int radius) {
    const auto outer = static_cast<int>(0.2 * radius);
    const auto inner = static_cast<int>(0.4 * radius);
    const auto corners = [&](int from) {
      return std::vector{canvas.at(10 + from, 10 + from), canvas.at(89 - from, 10 + from),
                         canvas.at(10 + from, 49 - from), canvas.at(89 - from, 49 - from)};
    };
    return corners(outer) == std::vector<std::uint32_t>(4, 0) &&
           corners(inner) == std::vector<std::uint32_t>(4, 0x59000000);
  };
  paint(canvas, {test::panelAt({10, 10, 90, 50}, 15)});
  EXPECT_TRUE(isRound(15));
  paint(canvas, {test::panelAt({10, 10, 90, 50}, 20)});
  EXPECT_TRUE(isRound(20));
  paint(canvas, {test::panelAt({10, 10, 90, 50}, 0)});
  EXPECT_EQ(canvas.at(10, 10), 0x59000000u);
  EXPECT_EQ(canvas.at(89, 49), 0x59000000u);
}

TEST_F(PainterTest, DrawsTextInInkInsideItsRectangle) {
  Canvas canvas(200, 60);
  paint(canvas, {test::textAt({20, 10, 180, 50}, "Preparing the flow")});
  const auto ink = canvas.ink();
  ASSERT_TRUE(ink);
  EXPECT_GE(ink->left, 20);
  EXPECT_LE(ink->left, 24);
  EXPECT_NEAR((ink->top + ink->bottom) / 2.0, 30, 4);
  EXPECT_LE(ink->bottom - ink->top, 20);
  EXPECT_GT(ink->right, 80);
  for (const std::uint32_t texel : canvas.texels()) {
    if (alphaOf(texel) != 255) continue;
    EXPECT_NEAR(texel >> 16 & 255, 0.9 * 255, 1);
    EXPECT_NEAR(texel >> 8 & 255, 0.92 * 255, 1);
    EXPECT_NEAR(texel & 255, 0.95 * 255, 1);
  }
}

TEST_F(PainterTest, MultipliesTheColourOfThinInkByItsAlpha) {
  Canvas canvas(200, 60);
  paint(canvas, {test::textAt({20, 10, 180, 50}, "Preparing the flow")});
  int thin = 0;
  for (const std::uint32_t texel : canvas.texels()) {
    const std::uint32_t alpha = alphaOf(texel);
    if (alpha != 0 && alpha != 255) ++thin;
    EXPECT_NEAR(texel & 255, 0.95 * alpha, 1.5);
    EXPECT_NEAR(texel >> 16 & 255, 0.9 * alpha, 1.5);
  }
  EXPECT_GT(thin, 20);
}

TEST_F(PainterTest, CutsTextOffAtItsRectangle) {
  Canvas canvas(200, 60);
  paint(canvas, {test::textAt({20, 26, 70, 31}, "MMMMMMMMMMMMMMMMMMMMMMMM", 14)});
  EXPECT_EQ(canvas.ink()->right, 70);
  EXPECT_EQ(canvas.ink()->top, 26);
  EXPECT_EQ(canvas.ink()->bottom, 31);
}

TEST_F(PainterTest, KeepsTextInOneLine) {
  Canvas canvas(300, 100);
  paint(canvas, {test::textAt({10, 10, 290, 90}, "one")});
  const Box one = *canvas.ink();
  paint(canvas,
        {test::textAt({10, 10, 290, 90}, "one two three one two three one two three one two")});
  const Box many = *canvas.ink();
  EXPECT_LT(many.bottom - many.top, 2 * (one.bottom - one.top));
  EXPECT_EQ(many.right, 290);
  paint(canvas, {test::textAt({10, 10, 290, 90}, "one\none")});
  const Box broken = *canvas.ink();
  EXPECT_LT(broken.bottom - broken.top, 2 * (one.bottom - one.top));
}

TEST_F(PainterTest, DrawsItemsInTheirOrderOverEachOther) {
  Canvas canvas(100, 60);
  paint(canvas, {test::panelAt({10, 10, 60, 50}), test::panelAt({40, 10, 90, 50})});
  EXPECT_EQ(canvas.at(20, 30), 0x59000000u);
  EXPECT_EQ(canvas.at(80, 30), 0x59000000u);
  EXPECT_NEAR(alphaOf(canvas.at(50, 30)), 255 * (1 - 0.65 * 0.65), 1);
}

TEST_F(PainterTest, DrawsAtTheScaleAsked) {
  Canvas canvas(300, 200);
  paint(canvas, {test::panelAt({14, 14, 100, 40})}, 1.5f);
  EXPECT_EQ(canvas.ink(), (Box{21, 21, 150, 60}));
  paint(canvas, {test::textAt({10, 10, 140, 90}, "zephyr")}, 1);
  const Box small = *canvas.ink();
  paint(canvas, {test::textAt({10, 10, 140, 90}, "zephyr")}, 2);
  const Box large = *canvas.ink();
  EXPECT_NEAR(large.right - large.left, 2 * (small.right - small.left), 6);
  EXPECT_NEAR(large.bottom - large.top, 2 * (small.bottom - small.top), 4);
}

TEST_F(PainterTest, ReportsTheAreasOfTheItemsSeparately) {
  Canvas canvas(400, 300);
  const auto covered = [&](const std::vector<OverlayItem>& items, float scale = 1) {
    paint(canvas, items, scale);
    std::vector<Box> boxes = painter_->covered();
    std::ranges::sort(boxes, std::less(), [](const Box& box) { return box.left; });
    return boxes;
  };
  EXPECT_EQ(covered({test::panelAt({14, 14, 50, 40})}), (std::vector<Box>{{14, 14, 50, 40}}));
  EXPECT_EQ(covered({test::panelAt({14, 14, 50, 40}), test::panelAt({50, 14, 90, 40})}),
            (std::vector<Box>{{14, 14, 50, 40}, {50, 14, 90, 40}}));
  EXPECT_EQ(covered({test::panelAt({14, 14, 50, 40}), test::textAt({24, 14, 50, 40}, "a")}),
            (std::vector<Box>{{14, 14, 50, 40}}));
  EXPECT_EQ(covered({test::panelAt({10, 10, 30, 30}), test::panelAt({60, 60, 80, 80}),
                     test::panelAt({20, 20, 70, 70})}),
            (std::vector<Box>{{10, 10, 80, 80}}));
  EXPECT_EQ(covered({test::panelAt({14.5f, 14.25f, 50.1f, 40})}),
            (std::vector<Box>{{14, 14, 51, 40}}));
  EXPECT_EQ(covered({test::panelAt({15, 15, 51, 41})}, 1.5f), (std::vector<Box>{{22, 22, 77, 62}}));
  EXPECT_EQ(covered({test::panelAt({-20, 290, 30, 400})}), (std::vector<Box>{{0, 290, 30, 300}}));
  EXPECT_EQ(covered({test::panelAt({500, 20, 600, 40}), test::panelAt({50, 20, 30, 40})}),
            std::vector<Box>());
}

TEST_F(PainterTest, LeavesUnchangedAreasUntouched) {
  Canvas canvas(100, 60);
  const std::vector<OverlayItem> items = {test::panelAt({10, 10, 30, 30}),
                                          test::textAt({50, 10, 90, 30}, "a")};
  paint(canvas, items);
  for (int x = 0; x < 100; ++x) canvas.at(x, 20) = marker;
  paint(canvas, items);
  for (int x = 0; x < 100; ++x) ASSERT_EQ(canvas.at(x, 20), marker) << x;
}

TEST_F(PainterTest, DrawsAgainOnlyWhatHasChanged) {
  Canvas canvas(200, 60);
  paint(canvas, {test::panelAt({10, 10, 30, 30}), test::textAt({50, 10, 90, 30}, "1.000")});
  canvas.at(20, 20) = marker;  // in what stays
  canvas.at(5, 5) = marker;    // in nothing
  canvas.at(51, 11) = marker;  // in what changes
  const std::vector<std::uint32_t> before = canvas.texels();
  paint(canvas, {test::panelAt({10, 10, 30, 30}), test::textAt({50, 10, 90, 30}, "2.375")});
  EXPECT_EQ(canvas.at(20, 20), marker);
  EXPECT_EQ(canvas.at(5, 5), marker);
  EXPECT_EQ(canvas.at(51, 11), 0u);
  EXPECT_NE(canvas.texels(), before);
}

TEST_F(PainterTest, DrawsAgainWhatLiesUnderAChange) {
  Canvas canvas(200, 60);
  Canvas other(200, 60);
  paint(canvas, {test::panelAt({10, 10, 100, 40}, 13), test::textAt({20, 10, 90, 40}, "1.000")});
  paint(canvas, {test::panelAt({10, 10, 100, 40}, 13), test::textAt({20, 10, 90, 40}, "2.375")});
  paint(other, {test::panelAt({10, 10, 100, 40}, 13), test::textAt({20, 10, 90, 40}, "2.375")});
  EXPECT_EQ(canvas.texels(), other.texels());
}

TEST_F(PainterTest, ErasesRemovedItems) {
  Canvas canvas(200, 60);
  paint(canvas,
        {test::textAt({20, 10, 180, 50}, "Preparing the flow"), test::panelAt({150, 40, 190, 55})});
  paint(canvas, {test::panelAt({150, 40, 190, 55})});
  EXPECT_EQ(canvas.ink(), (Box{150, 40, 190, 55}));
  EXPECT_EQ(canvas.at(160, 45), 0x59000000u);
}

TEST_F(PainterTest, DrawsEverythingAtAnotherScaleOrInOtherMemory) {
  const std::vector<OverlayItem> items = {test::panelAt({10, 10, 30, 30})};
  Canvas canvas(100, 60);
  paint(canvas, items);
  canvas.at(5, 5) = marker;
  paint(canvas, items, 1.25f);
  EXPECT_EQ(canvas.at(5, 5), 0u);
  Canvas other(100, 60);
  paint(other, items, 1.25f);
  EXPECT_EQ(other.texels(), canvas.texels());
  painter_->forget();
  other.at(5, 5) = marker;
  paint(other, items, 1.25f);
  EXPECT_EQ(other.at(5, 5), 0u);
}

TEST_F(PainterTest, DrawsAWholeOverlayOnSurfacesOfAnySize) {
  const ShownStatus status;
  for (const int width : {1, 2, 20, 77, 400}) {
    for (const int height : {1, 20, 500}) {
      Canvas canvas(width, height);
      const float side = static_cast<float>(std::min(width, height)) / 1.5f;
      paint(canvas, overlayOf(status, side), 1.5f);
      EXPECT_TRUE(canvas.isGuardWhole()) << width << " by " << height;
      for (const Box& box : painter_->covered()) {
        EXPECT_TRUE(0 <= box.left && box.left < box.right && box.right <= width);
        EXPECT_TRUE(0 <= box.top && box.top < box.bottom && box.bottom <= height);
      }
    }
  }
}

TEST_F(PainterTest, DrawsNothingOnAnEmptySurface) {
  painter_->paint({}, std::vector{test::panelAt({0, 0, 30, 30})}, 1);
  EXPECT_TRUE(painter_->covered().empty());
}

TEST_F(PainterTest, SharesAFontAmongSizesOfTheSameTenth) {
  const float scale = 12;
  const OverlayItem text = test::textAt({1, 1, 50, 15}, "zephyr", 8.0f);
  const OverlayItem near = test::textAt({1, 1, 50, 15}, "zephyr", 8.09f);
  const OverlayItem far = test::textAt({1, 1, 50, 15}, "zephyr", 8.11f);
  ASSERT_NE(freshly(text, scale), freshly(near, scale));
  Canvas canvas(600, 200);
  paint(canvas, {text}, scale);
  paint(canvas, {near}, scale);
  EXPECT_EQ(canvas.texels(), freshly(text, scale));
  paint(canvas, {far}, scale);
  EXPECT_EQ(canvas.texels(), freshly(far, scale));
}

TEST_F(PainterTest, HasFontsOfTwoKindsForOneSize) {
  Canvas canvas(200, 120);
  paint(canvas, {test::textAt({10, 10, 190, 30}, "iiiiiiiiii"),
                 test::textAt({10, 40, 190, 60}, "MMMMMMMMMM")});
  const auto widthOf = [&](const char* text, bool monospaced) {
    paint(canvas, {test::textAt({10, 10, 190, 30}, text, 12, monospaced)});
    return canvas.ink()->right - canvas.ink()->left;
  };
  EXPECT_NEAR(widthOf("iiiiiiiiii", true), widthOf("MMMMMMMMMM", true), 8);
  EXPECT_LT(2 * widthOf("iiiiiiiiii", false), widthOf("MMMMMMMMMM", false));
}

TEST_F(PainterTest, FindsAGlyphForEachButton) {
  Canvas canvas(100, 60);
  std::vector<std::vector<std::uint32_t>> seen;
  // The last has no meaning anywhere: it is drawn as the missing glyph.
  for (const char* glyph : {"\u2161", "\u25b6", "\u25b8\u2160", "\u21b6", "\U000e0fff"}) {
    paint(canvas, {test::textAt({10, 10, 90, 50}, glyph, 14)});
    const auto texels = canvas.texels();
    EXPECT_EQ(std::ranges::find(seen, texels), seen.end()) << glyph;
    seen.push_back(texels);
  }
}

}  // namespace
}  // namespace zeph::cairo
