// The planes of a frame in the buffer that the shaders read.
#pragma once

#include <memory>

#include "render/d3d11/graphics_device.h"
#include "render/d3d11/shared_buffer.h"
#include "solver/statistics.h"

namespace zeph::d3d11 {

class FieldBuffer {
 public:
  explicit FieldBuffer(const GraphicsDevice& device);
  FieldBuffer(const FieldBuffer&) = delete;
  FieldBuffer& operator=(const FieldBuffer&) = delete;

  // Copies the planes of a frame, unless they are there already. Raises std::runtime_error and
  // keeps the previous frame then, to copy again at the next call.
  void transfer(const std::shared_ptr<const Frame>& frame);

  ID3D11ShaderResourceView* view() const { return view_.Get(); }

 private:
  void unbind() const;
  void recreate(int gridSize);
  void copyFromProcessor(const Frame& frame) const;

  const GraphicsDevice& device_;
  const bool isOnProcessor_;
  ComPtr<ID3D11Buffer> fields_;
  ComPtr<ID3D11ShaderResourceView> view_;
  SharedBuffer interop_;  // of the buffer, if the frames are a GPU's
  std::shared_ptr<const Frame> currentFrame_;
  int fieldGrid_ = 0;
  bool isWhole_ = false;  // the buffer holds the whole of the current frame
};

}  // namespace zeph::d3d11
