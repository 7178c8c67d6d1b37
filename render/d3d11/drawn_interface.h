// The interface over the picture, drawn by Direct2D and DirectWrite.
#pragma once

#include <map>
#include <span>
#include <utility>

#include "render/d3d11/graphics_device.h"
#include "render/overlay.h"

namespace zeph::d3d11 {

class DrawnInterface {
 public:
  // Raises std::runtime_error. Nothing is drawn before its context has a target.
  DrawnInterface(const GraphicsDevice& device, bool isLinear);

  ID2D1DeviceContext& context() const { return *context_.Get(); }

  // `scale` is pixels for each unit of the items. Raises std::runtime_error.
  void clear(float scale);
  void draw(std::span<const OverlayItem> items, float scale);

 private:
  void begin(float scale);
  void end();
  void fillPanel(const Rectangle& place, const Color& color, float radius);
  void drawText(const OverlayItem& item);
  IDWriteTextFormat& font(float size, bool monospaced);
  D2D1_COLOR_F shown(const Color& color) const;

  const bool isLinear_;  // the target holds linear light
  ComPtr<ID2D1Factory1> factory_;
  ComPtr<ID2D1Device> d2dDevice_;
  ComPtr<ID2D1DeviceContext> context_;
  ComPtr<ID2D1SolidColorBrush> brush_;
  ComPtr<IDWriteFactory> dwrite_;
  // By ten times their size, and whether they are monospaced.
  std::map<std::pair<int, bool>, ComPtr<IDWriteTextFormat>> fonts_;
};

}  // namespace zeph::d3d11
