#include "render/d3d11/drawn_interface.h"

#include <array>
#include <string>

namespace zeph::d3d11 {
namespace {

// The first of them that the system has is used; the others are for systems without the first.
constexpr std::array proportional = {L"Segoe UI", L"Tahoma", L"Arial", L"DejaVu Sans",
                                     L"Liberation Sans"};
constexpr std::array monospace = {L"Consolas", L"Lucida Console", L"Courier New",
                                  L"DejaVu Sans Mono", L"Liberation Mono"};

const wchar_t* familyOf(IDWriteFactory& dwrite, bool monospaced) {
  const auto& names = monospaced ? monospace : proportional;
  ComPtr<IDWriteFontCollection> fonts;
  if (FAILED(dwrite.GetSystemFontCollection(&fonts, FALSE))) return names[0];
  for (const wchar_t* name : names) {
    UINT32 index = 0;
    BOOL exists = FALSE;
    if (SUCCEEDED(fonts->FindFamilyName(name, &index, &exists)) && exists != FALSE) return name;
  }
  return names[0];
}

D2D1_RECT_F rectOf(const Rectangle& place) {
  return {place.left, place.top, place.right, place.bottom};
}

std::wstring wide(const std::string& text) {
  const int bytes = static_cast<int>(text.size());
  std::wstring converted(text.size(), L'\0');
  const int length = MultiByteToWideChar(CP_UTF8, 0, text.data(), bytes, converted.data(), bytes);
  converted.resize(static_cast<std::size_t>(length));
  return converted;
}

}  // namespace

DrawnInterface::DrawnInterface(const GraphicsDevice& device, bool isLinear)
    : isLinear_(isLinear), factory_(createDirect2d()) {
  const auto dxgi = query<IDXGIDevice>(device.device(), "DXGI device");
  check(factory_->CreateDevice(dxgi.Get(), &d2dDevice_), "Create D2D device");
  check(d2dDevice_->CreateDeviceContext(D2D1_DEVICE_CONTEXT_OPTIONS_NONE, &context_),
        "Create D2D context");
  const D2D1_COLOR_F white = {1, 1, 1, 1};
  check(context_->CreateSolidColorBrush(&white, nullptr, &brush_), "Create brush");
  dwrite_ = createDirectWrite();
}

void DrawnInterface::clear(float scale) {
  begin(scale);
  const D2D1_COLOR_F color = shown(clearColour);
  context_->Clear(&color);
  end();
}

void DrawnInterface::draw(std::span<const OverlayItem> items, float scale) {
  begin(scale);
  for (const OverlayItem& item : items) {
    if (item.isPanel()) {
      fillPanel(item.place, panel, item.radius);
    } else {
      drawText(item);
    }
  }
  end();
}

void DrawnInterface::begin(float scale) {
  context_->SetDpi(scale * 96, scale * 96);
  const D2D1_MATRIX_3X2_F identity = {{{1, 0, 0, 1, 0, 0}}};
  context_->SetTransform(&identity);
  context_->BeginDraw();
}

void DrawnInterface::end() {
  check(context_->EndDraw(), "Draw interface");
}

void DrawnInterface::fillPanel(const Rectangle& place, const Color& color, float radius) {
  const D2D1_COLOR_F filled = shown(color);
  brush_->SetColor(&filled);
  const D2D1_RECT_F rect = rectOf(place);
  if (radius > 0) {
    const D2D1_ROUNDED_RECT rounded = {rect, radius, radius};
    context_->FillRoundedRectangle(&rounded, brush_.Get());
  } else {
    context_->FillRectangle(&rect, brush_.Get());
  }
}

void DrawnInterface::drawText(const OverlayItem& item) {
  IDWriteTextFormat& format = font(item.size, item.monospaced);
  format.SetTextAlignment(DWRITE_TEXT_ALIGNMENT_LEADING);
  const D2D1_COLOR_F color = shown(ink);
  brush_->SetColor(&color);
  const std::wstring text = wide(item.text);
  const D2D1_RECT_F rect = rectOf(item.place);
  context_->DrawText(text.data(), static_cast<UINT32>(text.size()), &format, &rect, brush_.Get(),
                     D2D1_DRAW_TEXT_OPTIONS_CLIP, DWRITE_MEASURING_MODE_NATURAL);
}

IDWriteTextFormat& DrawnInterface::font(float size, bool monospaced) {
  ComPtr<IDWriteTextFormat>& format = fonts_[{static_cast<int>(size * 10), monospaced}];
  if (format) return *format.Get();
  ComPtr<IDWriteTextFormat> made;
  check(dwrite_->CreateTextFormat(familyOf(*dwrite_.Get(), monospaced), nullptr,
                                  DWRITE_FONT_WEIGHT_NORMAL, DWRITE_FONT_STYLE_NORMAL,
                                  DWRITE_FONT_STRETCH_NORMAL, size, L"en-us", &made),
        "Create font");
  made->SetWordWrapping(DWRITE_WORD_WRAPPING_NO_WRAP);
  made->SetParagraphAlignment(DWRITE_PARAGRAPH_ALIGNMENT_CENTER);
  format = made;
  return *format.Get();
}

D2D1_COLOR_F DrawnInterface::shown(const Color& color) const {
  const Color converted = isLinear_ ? linearized(color) : color;
  return {converted.red, converted.green, converted.blue, converted.alpha};
}

}  // namespace zeph::d3d11
