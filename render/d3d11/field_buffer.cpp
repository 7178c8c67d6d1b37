#include "render/d3d11/field_buffer.h"

#include <cstddef>
#include <stdexcept>

#include "device/runtime.h"

namespace zeph::d3d11 {
namespace {

std::size_t bytesOf(int gridSize) {
  const auto side = static_cast<std::size_t>(gridSize);
  return 3 * side * side * sizeof(float);
}

}  // namespace

FieldBuffer::FieldBuffer(const GraphicsDevice& device)
    : device_(device), isOnProcessor_(deviceIsSynchronous()) {}

void FieldBuffer::transfer(const std::shared_ptr<const Frame>& frame) {
  if (frame == currentFrame_ && (isWhole_ || !frame)) return;
  if (!frame) throw std::runtime_error("No completed field to render.");
  unbind();
  isWhole_ = false;
  if (frame->gridSize != fieldGrid_) recreate(frame->gridSize);
  if (isOnProcessor_) {
    copyFromProcessor(*frame);
  } else {
    interop_.copyFrom(frame->data(), bytesOf(frame->gridSize), device_.copyStream());
  }
  currentFrame_ = frame;
  isWhole_ = true;
}

// The buffer may be mapped or made anew only while no stage reads it.
void FieldBuffer::unbind() const {
  ID3D11ShaderResourceView* none = nullptr;
  device_.context().VSSetShaderResources(0, 1, &none);
  device_.context().PSSetShaderResources(0, 1, &none);
}

void FieldBuffer::recreate(int gridSize) {
  fieldGrid_ = 0;
  interop_.unregister();
  view_.Reset();
  fields_.Reset();
  const std::size_t bytes = bytesOf(gridSize);
  if (bytes > 0xffffffffu) throw std::runtime_error("Shared field buffer too small.");
  const D3D11_BUFFER_DESC description = {.ByteWidth = static_cast<UINT>(bytes),
                                         .Usage = D3D11_USAGE_DEFAULT,
                                         .BindFlags = D3D11_BIND_SHADER_RESOURCE,
                                         .CPUAccessFlags = 0,
                                         .MiscFlags = D3D11_RESOURCE_MISC_BUFFER_ALLOW_RAW_VIEWS,
                                         .StructureByteStride = 0};
  d3d11::check(device_.device()->CreateBuffer(&description, nullptr, &fields_),
               "Create shared CUDA field");
  D3D11_SHADER_RESOURCE_VIEW_DESC view = {};
  view.Format = DXGI_FORMAT_R32_TYPELESS;
  view.ViewDimension = D3D11_SRV_DIMENSION_BUFFEREX;
  view.BufferEx = {.FirstElement = 0,
                   .NumElements = static_cast<UINT>(bytes / sizeof(float)),
                   .Flags = D3D11_BUFFEREX_SRV_FLAG_RAW};
  d3d11::check(device_.device()->CreateShaderResourceView(fields_.Get(), &view, &view_),
               "Shared field view");
  if (!isOnProcessor_) interop_.registerBuffer(fields_.Get());
  fieldGrid_ = gridSize;
}

void FieldBuffer::copyFromProcessor(const Frame& frame) const {
  device_.context().UpdateSubresource(fields_.Get(), 0, nullptr, frame.data(), 0, 0);
}

}  // namespace zeph::d3d11
