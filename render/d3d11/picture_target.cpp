#include "render/d3d11/picture_target.h"

#include <cstddef>
#include <cstring>

namespace zeph::d3d11 {

PictureTarget::PictureTarget(const GraphicsDevice& device, std::uint32_t width,
                             std::uint32_t height, TexelFormat format)
    : format_(format) {
  const D3D11_TEXTURE2D_DESC description = {.Width = width,
                                            .Height = height,
                                            .MipLevels = 1,
                                            .ArraySize = 1,
                                            .Format = dxgiFormat(format),
                                            .SampleDesc = {.Count = 1, .Quality = 0},
                                            .Usage = D3D11_USAGE_DEFAULT,
                                            .BindFlags = D3D11_BIND_RENDER_TARGET,
                                            .CPUAccessFlags = 0,
                                            .MiscFlags = 0};
  check(device.device()->CreateTexture2D(&description, nullptr, &texture_),
        "Create PNG render target");
  check(device.device()->CreateRenderTargetView(texture_.Get(), nullptr, &view_),
        "PNG target view");
}

Texels PictureTarget::read(const GraphicsDevice& device) const {
  D3D11_TEXTURE2D_DESC description = {};
  texture_->GetDesc(&description);
  description.Usage = D3D11_USAGE_STAGING;
  description.CPUAccessFlags = D3D11_CPU_ACCESS_READ;
  description.BindFlags = 0;
  description.MiscFlags = 0;
  ComPtr<ID3D11Texture2D> readback;
  check(device.device()->CreateTexture2D(&description, nullptr, &readback), "Create PNG readback");
  ID3D11DeviceContext& context = device.context();
  context.CopyResource(readback.Get(), texture_.Get());
  D3D11_MAPPED_SUBRESOURCE mapped = {};
  check(context.Map(readback.Get(), 0, D3D11_MAP_READ, 0, &mapped), "Read PNG pixels");
  Texels texels = {
      .width = description.Width, .height = description.Height, .format = format_, .data = {}};
  const std::size_t stride = std::size_t{texels.width} * bytesPerTexel(format_);
  texels.data.resize(stride * texels.height);
  const auto* rows = static_cast<const std::byte*>(mapped.pData);
  for (std::size_t row = 0; row < texels.height; ++row)
    std::memcpy(&texels.data[row * stride], rows + row * mapped.RowPitch, stride);
  context.Unmap(readback.Get(), 0);
  return texels;
}

}  // namespace zeph::d3d11
