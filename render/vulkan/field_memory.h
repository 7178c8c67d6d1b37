// The three planes of a frame where the shaders read them. A GPU's own memory is exported by Vulkan
// and imported by CUDA, so that a field goes from device to device; what the processor has computed
// is copied once, into memory that the drawing device shares with it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "device/runtime.h"
#include "render/vulkan/buffer.h"
#include "solver/statistics.h"

namespace zeph::vulkan {

// Device memory of CUDA behind a buffer of Vulkan, or nothing.
class Interop {
 public:
  Interop() = default;
  // The descriptor is taken over. Raises std::runtime_error.
  Interop(int descriptor, std::size_t bytes);
  Interop(Interop&& other) noexcept;
  Interop& operator=(Interop&& other) noexcept;
  ~Interop();

  // Where CUDA finds its beginning, from the first call on as long as it lives.
  void* map(std::size_t bytes);

 private:
  cudaExternalMemory_t memory_ = nullptr;
  void* pointer_ = nullptr;
};

// The most pieces that the shaders read, and the length of each but the last: no device has less.
constexpr std::size_t mostPieces = 24;
constexpr std::size_t bytesOfPiece = std::size_t{1} << 27;

class Field {
 public:
  // For the frames of the device that the calling thread has selected; later it may select others.
  explicit Field(const Device& device);
  ~Field();
  Field(const Field&) = delete;
  Field& operator=(const Field&) = delete;

  // Waits until the copy is there. Nothing is done for the frame that is there already. Raises
  // std::runtime_error; the frame before is kept then, and is copied anew when it is asked for.
  void transfer(const std::shared_ptr<const Frame>& frame);

  // Whether the planes stand in more than one buffer.
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
  bool isWhole_ = false;  // whether all of the current frame is there
  std::shared_ptr<const Frame> currentFrame_;
};

}  // namespace zeph::vulkan
