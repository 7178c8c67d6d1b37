// The interface on top of the picture: its items, rebuilt from the status at every presentation,
// and the buttons that a click can hit. Lengths are device-independent units, 96 an inch, measured
// from the upper left corner; `side` is the side of the square picture.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "controller/status.h"

namespace zeph {

// Values of sRGB.
struct Color {
  float red = 0;
  float green = 0;
  float blue = 0;
  float alpha = 1;

  bool operator==(const Color&) const = default;
};

constexpr Color ink = {0.9f, 0.92f, 0.95f, 1.0f};        // of all text
constexpr Color panel = {0.0f, 0.0f, 0.0f, 0.35f};       // under text
constexpr Color clearColour = {0.035f, 0.047f, 0.073f};  // around the picture, and before it

// In linear light, for a target of high dynamic range; alpha stays.
Color linearized(const Color& color);

constexpr float cornerRadius = 15;  // of the picture's two lower corners

struct Rectangle {
  float left = 0;
  float top = 0;
  float right = 0;
  float bottom = 0;

  bool operator==(const Rectangle&) const = default;
};

// Without text, a panel with round corners; otherwise a line of text, left-aligned and vertically
// centred in the rectangle, and clipped to it.
struct OverlayItem {
  Rectangle place;
  float radius = 0;
  std::string text;  // UTF-8
  float size = 0;    // of the font
  bool monospaced = false;

  bool isPanel() const { return text.empty(); }
  bool operator==(const OverlayItem&) const = default;
};

// The items in drawing order.
std::vector<OverlayItem> overlayOf(const ShownStatus& status, float side);

enum class Button { toggle, step, reset };

// The button at a point of a canvas of that height. The bar is drawn at the bottom of the picture
// but hit-tested at the bottom of the canvas: on a canvas higher than wide the two lie apart.
std::optional<Button> buttonAt(float x, float y, float height);

}  // namespace zeph
