#include "render/d3d11/field_buffer.h"

#include <cstddef>
#include <stdexcept>

#include "device/check.h"

namespace zeph::d3d11 {
namespace {

using zeph::check;

std::size_t bytesOf(int gridSize) {
  const auto side = static_cast<std::size_t>(gridSize);
  return 3 * side * side * sizeof(float);
}

// While it lives, the field is memory of CUDA.
class Mapping {
 public:
  Mapping(cudaGraphicsResource_t interop, cudaStream_t stream)
      : interop_(interop), stream_(stream) {
    check(cudaGraphicsMapResources(1, &interop_, stream_),
          "cudaGraphicsMapResources(1,&interop,copyStream)");
  }
  ~Mapping() {
    if (isMapped_) cudaGraphicsUnmapResources(1, &interop_, stream_);
  }
  Mapping(const Mapping&) = delete;
  Mapping& operator=(const Mapping&) = delete;

  void* pointer(std::size_t bytes) const {
    void* pointer = nullptr;
    std::size_t size = 0;
    check(cudaGraphicsResourceGetMappedPointer(&pointer, &size, interop_),
          "cudaGraphicsResourceGetMappedPointer(&pointer,&size,interop)");
    if (size < bytes) throw std::runtime_error("Shared field buffer too small.");
    return pointer;
  }

  // If it fails, it is tried once more at the end of the mapping.
  void end() {
    check(cudaGraphicsUnmapResources(1, &interop_, stream_),
          "cudaGraphicsUnmapResources(1,&interop,copyStream)");
    isMapped_ = false;
  }

 private:
  cudaGraphicsResource_t interop_;
  cudaStream_t stream_;
  bool isMapped_ = true;
};

}  // namespace

FieldBuffer::FieldBuffer(const GraphicsDevice& device)
    : device_(device), isOnProcessor_(deviceIsSynchronous()) {}

FieldBuffer::~FieldBuffer() {
  if (interop_ != nullptr) cudaGraphicsUnregisterResource(interop_);
}

void FieldBuffer::transfer(const std::shared_ptr<const Frame>& frame) {
  if (frame == currentFrame_ && (isWhole_ || !frame)) return;
  if (!frame) throw std::runtime_error("No completed field to render.");
  unbind();
  isWhole_ = false;
  if (frame->gridSize != fieldGrid_) recreate(frame->gridSize);
  if (isOnProcessor_) {
    copyFromProcessor(*frame);
  } else {
    copyOnGpu(*frame);
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
  unregisterField();
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
  if (!isOnProcessor_) registerField();
  fieldGrid_ = gridSize;
}

void FieldBuffer::registerField() {
  check(cudaGraphicsD3D11RegisterResource(&interop_, fields_.Get(), graphicsRegisterFlagsNone),
        "cudaGraphicsD3D11RegisterResource(&interop,fields.Get(),cudaGraphicsRegisterFlagsNone)");
  check(cudaGraphicsResourceSetMapFlags(interop_, graphicsMapFlagsWriteDiscard),
        "cudaGraphicsResourceSetMapFlags(interop,cudaGraphicsMapFlagsWriteDiscard)");
}

void FieldBuffer::unregisterField() {
  if (interop_ == nullptr) return;
  check(cudaGraphicsUnregisterResource(interop_), "cudaGraphicsUnregisterResource(interop)");
  interop_ = nullptr;
}

void FieldBuffer::copyOnGpu(const Frame& frame) {
  const std::size_t bytes = bytesOf(frame.gridSize);
  const cudaStream_t stream = device_.copyStream();
  Mapping mapping(interop_, stream);
  check(cudaMemcpyAsync(mapping.pointer(bytes), frame.data(), bytes, cudaMemcpyDeviceToDevice,
                        stream),
        "cudaMemcpyAsync(pointer,frame->data(),bytes,cudaMemcpyDeviceToDevice,copyStream)");
  mapping.end();
  check(cudaStreamSynchronize(stream), "cudaStreamSynchronize(copyStream)");
}

void FieldBuffer::copyFromProcessor(const Frame& frame) const {
  device_.context().UpdateSubresource(fields_.Get(), 0, nullptr, frame.data(), 0, 0);
}

}  // namespace zeph::d3d11
