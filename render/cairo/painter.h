// Draws the interface into memory with Cairo and Pango.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <span>
#include <utility>
#include <vector>

#include "render/cairo/cairo_functions.h"
#include "render/overlay.h"

namespace zeph::cairo {

// Texels of 32 bits, alpha, red, green, blue from the highest byte down, multiplied by alpha.
struct Surface {
  std::uint32_t* texels = nullptr;
  int width = 0;
  int height = 0;
};

// In whole texels; right and bottom are exclusive.
struct Box {
  int left = 0;
  int top = 0;
  int right = 0;
  int bottom = 0;

  bool operator==(const Box&) const = default;
};

class Painter {
 public:
  // Raises std::runtime_error if Cairo or Pango is missing.
  Painter();

  // Draws the items. On the same surface, which nothing else may write, and at the same scale, only
  // what has changed since the call before is redrawn. Raises std::runtime_error.
  void paint(const Surface& surface, std::span<const OverlayItem> items, float scale);

  // Makes the next call draw everything, for memory that has been replaced.
  void forget() { surface_ = {}; }

  // The parts of the surface that the items cover, as boxes that do not overlap.
  const std::vector<Box>& covered() const { return covered_; }

 private:
  struct FreeFont {
    const Library* library;
    void operator()(PangoFontDescription* font) const {
      library->pango_font_description_free(font);
    }
  };
  using Font = std::unique_ptr<PangoFontDescription, FreeFont>;

  const PangoFontDescription* fontOf(float size, bool monospaced);
  void repaint(std::span<const Box> dirty);
  void draw(cairo_t* context, const OverlayItem& item);
  void drawPanel(cairo_t* context, const OverlayItem& item) const;
  void drawText(cairo_t* context, const OverlayItem& item);

  const Library& library_;
  std::map<std::pair<int, bool>, Font> fonts_;
  Surface surface_;
  float scale_ = 0;
  std::vector<OverlayItem> items_;
  std::vector<Box> covered_;
};

}  // namespace zeph::cairo
