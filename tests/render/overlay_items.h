// Items of an interface, as a test asks for them.
#pragma once

#include "render/overlay.h"

namespace zeph::test {

inline OverlayItem panelAt(const Rectangle& place, float radius = 0) {
  OverlayItem item;
  item.place = place;
  item.radius = radius;
  return item;
}

inline OverlayItem textAt(const Rectangle& place, const char* text, float size = 12,
                          bool monospaced = false) {
  OverlayItem item;
  item.place = place;
  item.text = text;
  item.size = size;
  item.monospaced = monospaced;
  return item;
}

}  // namespace zeph::test
