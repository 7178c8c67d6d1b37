#include "render/cairo/painter.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <stdexcept>

#include "render/failure.h"

namespace zeph::cairo {
namespace {

constexpr const char* monospacedFamilies = "Consolas, DejaVu Sans Mono, monospace";
constexpr const char* proportionalFamilies = "Segoe UI, DejaVu Sans, sans-serif";

Box boxOf(const OverlayItem& item, const Surface& surface, float scale) {
  const auto clamped = [](float value, int most) {
    return static_cast<int>(std::clamp(value, 0.0f, static_cast<float>(most)));
  };
  const Rectangle& place = item.place;
  Box box = {.left = clamped(std::floor(place.left * scale), surface.width),
             .top = clamped(std::floor(place.top * scale), surface.height),
             .right = clamped(std::ceil(place.right * scale), surface.width),
             .bottom = clamped(std::ceil(place.bottom * scale), surface.height)};
  box.right = std::max(box.right, box.left);
  box.bottom = std::max(box.bottom, box.top);
  return box;
}

bool isEmpty(const Box& box) {
  return box.left >= box.right || box.top >= box.bottom;
}

bool overlap(const Box& a, const Box& b) {
  return a.left < b.right && b.left < a.right && a.top < b.bottom && b.top < a.bottom;
}

Box joined(const Box& a, const Box& b) {
  return {.left = std::min(a.left, b.left),
          .top = std::min(a.top, b.top),
          .right = std::max(a.right, b.right),
          .bottom = std::max(a.bottom, b.bottom)};
}

// Boxes that do not overlap: those that do are joined until none is left.
std::vector<Box> disjoint(std::span<const Box> boxes) {
  std::vector<Box> result;
  for (Box box : boxes) {
    if (isEmpty(box)) continue;
    for (auto other = result.begin(); other != result.end();) {
      if (!overlap(box, *other)) {
        ++other;
        continue;
      }
      box = joined(box, *other);
      result.erase(other);
      other = result.begin();
    }
    result.push_back(box);
  }
  return result;
}

}  // namespace

Painter::Painter() : library_(library()) {}

void Painter::paint(const Surface& surface, std::span<const OverlayItem> items, float scale) {
  const bool isNewSurface = surface.texels != surface_.texels || surface.width != surface_.width ||
                            surface.height != surface_.height || scale != scale_;
  if (!isNewSurface && std::ranges::equal(items, items_)) return;
  std::vector<Box> dirty;
  std::vector<Box> boxes;
  for (const OverlayItem& item : items) boxes.push_back(boxOf(item, surface, scale));
  if (isNewSurface) {
    dirty.push_back({.right = surface.width, .bottom = surface.height});
  } else {
    for (const OverlayItem& item : items_)
      if (std::ranges::find(items, item) == items.end())
        dirty.push_back(boxOf(item, surface, scale));
    for (std::size_t k = 0; k < items.size(); ++k)
      if (std::ranges::find(items_, items[k]) == items_.end()) dirty.push_back(boxes[k]);
  }
  surface_ = surface;
  scale_ = scale;
  items_.assign(items.begin(), items.end());
  covered_ = disjoint(boxes);
  repaint(disjoint(dirty));
}

void Painter::repaint(std::span<const Box> dirty) {
  auto* bytes = reinterpret_cast<unsigned char*>(surface_.texels);
  cairo_surface_t* target = library_.cairo_image_surface_create_for_data(
      bytes, CAIRO_FORMAT_ARGB32, surface_.width, surface_.height, surface_.width * 4);
  cairo_t* context = library_.cairo_create(target);
  for (const Box& box : dirty) {
    library_.cairo_save(context);
    library_.cairo_rectangle(context, box.left, box.top, box.right - box.left,
                             box.bottom - box.top);
    library_.cairo_clip(context);
    library_.cairo_set_operator(context, CAIRO_OPERATOR_CLEAR);
    library_.cairo_paint(context);
    library_.cairo_set_operator(context, CAIRO_OPERATOR_OVER);
    library_.cairo_scale(context, static_cast<double>(scale_), static_cast<double>(scale_));
    for (const OverlayItem& item : items_)
      if (overlap(boxOf(item, surface_, scale_), box)) draw(context, item);
    library_.cairo_restore(context);
  }
  library_.cairo_surface_flush(target);
  const cairo_status_t status = library_.cairo_status(context);
  library_.cairo_destroy(context);
  library_.cairo_surface_destroy(target);
  if (status != CAIRO_STATUS_SUCCESS) {
    surface_ = {};
    failStep(static_cast<std::uint32_t>(status), "Draw interface");
  }
}

void Painter::draw(cairo_t* context, const OverlayItem& item) {
  const Rectangle& place = item.place;
  if (place.right <= place.left || place.bottom <= place.top) return;
  const Color& color = item.isPanel() ? panel : ink;
  library_.cairo_save(context);
  library_.cairo_set_source_rgba(context, color.red, color.green, color.blue, color.alpha);
  if (item.isPanel()) {
    drawPanel(context, item);
  } else {
    drawText(context, item);
  }
  library_.cairo_restore(context);
}

void Painter::drawPanel(cairo_t* context, const OverlayItem& item) const {
  const auto [left, top, right, bottom] = item.place;
  const double radius = std::min({item.radius, (right - left) / 2, (bottom - top) / 2});
  constexpr double quarter = std::numbers::pi / 2;
  library_.cairo_new_sub_path(context);
  library_.cairo_arc(context, right - radius, top + radius, radius, -quarter, 0);
  library_.cairo_arc(context, right - radius, bottom - radius, radius, 0, quarter);
  library_.cairo_arc(context, left + radius, bottom - radius, radius, quarter, 2 * quarter);
  library_.cairo_arc(context, left + radius, top + radius, radius, 2 * quarter, 3 * quarter);
  library_.cairo_close_path(context);
  library_.cairo_fill(context);
}

void Painter::drawText(cairo_t* context, const OverlayItem& item) {
  const auto [left, top, right, bottom] = item.place;
  library_.cairo_rectangle(context, left, top, right - left, bottom - top);
  library_.cairo_clip(context);
  PangoLayout* layout = library_.pango_cairo_create_layout(context);
  library_.pango_layout_set_font_description(layout, fontOf(item.size, item.monospaced));
  library_.pango_layout_set_single_paragraph_mode(layout, TRUE);
  library_.pango_layout_set_text(layout, item.text.data(), static_cast<int>(item.text.size()));
  int height = 0;
  library_.pango_layout_get_pixel_size(layout, nullptr, &height);
  library_.cairo_move_to(context, left, (top + bottom) / 2 - static_cast<float>(height) / 2);
  library_.pango_cairo_show_layout(context, layout);
  library_.g_object_unref(layout);
}

// Fonts are kept by their size, in tenths of a unit, and kind.
const PangoFontDescription* Painter::fontOf(float size, bool monospaced) {
  const auto key = std::pair(static_cast<int>(size * 10), monospaced);
  const auto known = fonts_.find(key);
  if (known != fonts_.end()) return known->second.get();
  Font font(library_.pango_font_description_new(), {&library_});
  if (!font) throw std::runtime_error("Create font failed (0xc)");
  library_.pango_font_description_set_family(
      font.get(), monospaced ? monospacedFamilies : proportionalFamilies);
  library_.pango_font_description_set_absolute_size(font.get(),
                                                    static_cast<double>(size) * PANGO_SCALE);
  return fonts_.emplace(key, std::move(font)).first->second.get();
}

}  // namespace zeph::cairo
