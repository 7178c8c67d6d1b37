// The memory from which the shaders read the three planes of a frame. On a GPU, Vulkan exports it
// and CUDA imports it, so that a field is copied within the device. A field that the processor has
// computed is copied once, into memory that it shares with the drawing device.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "device/runtime.h"
#include "render/vulkan/buffer.h"
#include "solver/statistics.h"

namespace zeph::vulkan {

// CUDA's view of a Vulkan buffer's memory, or nothing.
class Interop {
 public:
  Interop() = default;
  // Takes ownership of the descriptor. Raises std::runtime_error.
  Interop(int descriptor, std::size_t bytes);
  Interop(Interop&& other) noexcept;
  Interop& operator=(Interop&& other) noexcept;
  ~Interop();

  // CUDA's address of the memory, mapped at the first call.
  void* map(std::size_t bytes);

 private:
  cudaExternalMemory_t memory_ = nullptr;
  void* pointer_ = nullptr;
};

// The most pieces that the shaders can read, and the length of all but the last: every device
// allows buffers of at least this length.
constexpr std::size_t mostPieces = 24;
constexpr std::size_t bytesOfPiece = std::size_t{1} << 27;

class Field {
 public:
  // For frames of the device that the calling thread has selected now; it may select another later.
  explicit Field(const Device& device);
  ~Field();
  Field(const Field&) = delete;
  Field& operator=(const Field&) = delete;

  // Copies a frame, unless it is the current one, and waits for the copy. Raises
  // std::runtime_error; the frame before then stays the current one, and is copied again at the
  // next call for it.
  void transfer(const std::shared_ptr<const Frame>& frame);

  // Whether the planes take more than one buffer.
  bool isInPieces() const { return pieces_.size() > 1; }
  std::vector<VkBuffer> buffers() const;
  // Whether CUDA writes the buffers.
  bool isShared() const { return isShared_; }

 private:
  struct Piece {
    Buffer buffer;
    Interop interop;
    void* pointer = nullptr;
    std::size_t bytes = 0;
  };

  void recreate(std::size_t bytes);
  Piece makePiece(std::size_t bytes) const;
  Interop share(const Buffer& buffer) const;

  const Device& device_;
  int computeDevice_;
  bool isShared_;
  cudaStream_t copyStream_ = nullptr;
  std::vector<Piece> pieces_;
  std::int32_t grid_ = 0;
  bool isWhole_ = false;  // the current frame has been copied completely
  std::shared_ptr<const Frame> currentFrame_;
};

}  // namespace zeph::vulkan
