#include "render/overlay.h"

#include <array>
#include <cmath>
#include <cstdio>
#include <utility>

namespace zeph {
namespace {

// The control bar: distances from the left edge and from the bottom.
constexpr float barLeft = 14;
constexpr float barRight = 128;
constexpr float barTop = 49;
constexpr float barBottom = 14;
constexpr float buttonWidth = 38;

OverlayItem panelAt(const Rectangle& place, float radius) {
  return {.place = place, .radius = radius, .text = {}};
}

OverlayItem textAt(const Rectangle& place, std::string text, float size, bool monospaced) {
  return {
      .place = place, .radius = 0, .text = std::move(text), .size = size, .monospaced = monospaced};
}

void addStartUp(std::vector<OverlayItem>& items, const ShownStatus& status, float side) {
  if (status.ready) return;
  const char* text =
      status.failed ? "Flow initialization failed - see error below" : "Preparing the flow";
  items.push_back(textAt({20, side / 2 - 15, side - 20, side / 2 + 30}, text, 12, false));
}

void addBadge(std::vector<OverlayItem>& items, const ShownStatus& status) {
  items.push_back(panelAt({14, 14, 204, 40}, 13));
  items.push_back(
      textAt({24, 14, 204, 40}, "UNFORCED \u00b7 SEED " + std::to_string(status.seed), 8, true));
}

void addControls(std::vector<OverlayItem>& items, const ShownStatus& status, float side) {
  const float top = side - barTop;
  const float bottom = side - barBottom;
  items.push_back(panelAt({barLeft, top, barRight, bottom}, 18));
  const char* pause = "\u2161";
  const char* play = "\u25b6";
  const std::array glyphs{status.running ? pause : play, "\u25b8\u2160", "\u21b6"};
  float left = 26;
  for (const char* glyph : glyphs) {
    items.push_back(textAt({left, top, left + 26, bottom}, glyph, 14, false));
    left += buttonWidth;
  }
}

void addTime(std::vector<OverlayItem>& items, const ShownStatus& status, float side) {
  std::array<char, 400> text{};
  std::snprintf(text.data(), text.size(), "t  %.3f", status.time);
  const float top = side - 46;
  const float bottom = side - 17;
  items.push_back(panelAt({side - 114, top, side - 14, bottom}, 15));
  items.push_back(textAt({side - 104, top, side - 24, bottom}, text.data(), 10, true));
}

float linearized(float c) {
  return c <= 0.04045f ? c / 12.92f : std::pow((c + 0.055f) / 1.055f, 2.4f);
}

}  // namespace

Color linearized(const Color& color) {
  return {linearized(color.red), linearized(color.green), linearized(color.blue), color.alpha};
}

std::vector<OverlayItem> overlayOf(const ShownStatus& status, float side) {
  std::vector<OverlayItem> items;
  addStartUp(items, status, side);
  addBadge(items, status);
  addControls(items, status, side);
  addTime(items, status, side);
  return items;
}

std::optional<Button> buttonAt(float x, float y, float height) {
  if (x < barLeft || x >= barRight || y < height - barTop || y > height - barBottom)
    return std::nullopt;
  return static_cast<Button>(static_cast<int>((x - barLeft) / buttonWidth));
}

}  // namespace zeph
