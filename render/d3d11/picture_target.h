// An off-screen texture to draw into.
#pragma once

#include <cstdint>

#include "render/d3d11/graphics_device.h"
#include "render/texels.h"

namespace zeph::d3d11 {

constexpr DXGI_FORMAT dxgiFormat(TexelFormat format) {
  return format == TexelFormat::bgra8 ? DXGI_FORMAT_B8G8R8A8_UNORM : DXGI_FORMAT_R16G16B16A16_FLOAT;
}

class PictureTarget {
 public:
  // Raises std::runtime_error.
  PictureTarget(const GraphicsDevice& device, std::uint32_t width, std::uint32_t height,
                TexelFormat format);

  ID3D11RenderTargetView* view() const { return view_.Get(); }
  TexelFormat format() const { return format_; }
  Texels read(const GraphicsDevice& device) const;

 private:
  TexelFormat format_;
  ComPtr<ID3D11Texture2D> texture_;
  ComPtr<ID3D11RenderTargetView> view_;
};

}  // namespace zeph::d3d11
