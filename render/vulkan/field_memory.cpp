#include "render/vulkan/field_memory.h"

#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <stdexcept>
#include <utility>

#include "device/check.h"
#include "solver/device_resources.h"

namespace zeph::vulkan {
namespace {

std::size_t bytesOf(const Frame& frame) {
  const auto side = static_cast<std::size_t>(frame.gridSize);
  return 3 * side * side * sizeof(float);
}

}  // namespace

Interop::Interop(int descriptor, std::size_t bytes) {
  const cudaExternalMemoryHandleDesc description = {.fd = descriptor, .size = bytes};
  const cudaError_t result = cudaImportExternalMemory(&memory_, &description);
  if (result != cudaSuccess) close(descriptor);
  zeph::check(result, "cudaImportExternalMemory(&interop,&description)");
}

Interop::Interop(Interop&& other) noexcept
    : memory_(std::exchange(other.memory_, nullptr)),
      pointer_(std::exchange(other.pointer_, nullptr)) {}

Interop& Interop::operator=(Interop&& other) noexcept {
  std::swap(memory_, other.memory_);
  std::swap(pointer_, other.pointer_);
  return *this;
}

Interop::~Interop() {
  if (pointer_ != nullptr) cudaFree(pointer_);
  if (memory_ != nullptr) cudaDestroyExternalMemory(memory_);
}

void* Interop::map(std::size_t bytes) {
  if (pointer_ == nullptr)
    zeph::check(cudaExternalMemoryGetMappedBuffer(&pointer_, memory_, bytes),
                "cudaExternalMemoryGetMappedBuffer(&pointer,interop,&range)");
  return pointer_;
}

Field::Field(const Device& device)
    : device_(device), computeDevice_(selectedDevice()), isShared_(!deviceIsSynchronous()) {
  zeph::check(cudaStreamCreateWithFlags(&copyStream_, streamNonBlocking),
              "cudaStreamCreateWithFlags(&copyStream,cudaStreamNonBlocking)");
}

Field::~Field() {
  const DeviceScope scope(computeDevice_);
  cudaStreamSynchronize(copyStream_);  // after a failed copy, others may still be running
  pieces_.clear();
  cudaStreamDestroy(copyStream_);
}

void Field::transfer(const std::shared_ptr<const Frame>& frame) {
  if (frame == currentFrame_ && (isWhole_ || !frame)) return;
  if (!frame) throw std::runtime_error("No completed field to render.");
  const DeviceScope scope(computeDevice_);
  isWhole_ = false;
  if (frame->gridSize != grid_) {
    recreate(bytesOf(*frame));
    grid_ = frame->gridSize;
  }
  const auto* from = reinterpret_cast<const std::byte*>(frame->data());
  for (const Piece& piece : pieces_) {
    zeph::check(
        cudaMemcpyAsync(piece.pointer, from, piece.bytes, cudaMemcpyDeviceToDevice, copyStream_),
        "cudaMemcpyAsync(pointer,frame->data(),bytes,cudaMemcpyDeviceToDevice,copyStream)");
    from += piece.bytes;
  }
  zeph::check(cudaStreamSynchronize(copyStream_), "cudaStreamSynchronize(copyStream)");
  currentFrame_ = frame;
  isWhole_ = true;
}

std::vector<VkBuffer> Field::buffers() const {
  std::vector<VkBuffer> buffers;
  for (const Piece& piece : pieces_) buffers.push_back(piece.buffer.get());
  return buffers;
}

// Frees the old buffers first, so that memory is never needed for both.
void Field::recreate(std::size_t bytes) {
  pieces_.clear();
  grid_ = 0;
  const std::size_t length = bytes <= device_.limits().maxStorageBufferRange ? bytes : bytesOfPiece;
  // The shaders for pieces declare all 24 buffers, whether they are used or not.
  const bool readsPieces = device_.limits().maxPerStageDescriptorStorageBuffers >= mostPieces;
  const std::size_t most = readsPieces ? mostPieces : 1;
  if (bytes > length * most) throw std::runtime_error("Shared field buffer too small.");
  for (std::size_t begin = 0; begin < bytes; begin += length)
    pieces_.push_back(makePiece(std::min(length, bytes - begin)));
}

Field::Piece Field::makePiece(std::size_t bytes) const {
  constexpr VkMemoryPropertyFlags onDevice = VK_MEMORY_PROPERTY_DEVICE_LOCAL_BIT;
  constexpr VkMemoryPropertyFlags mapped =
      VK_MEMORY_PROPERTY_HOST_VISIBLE_BIT | VK_MEMORY_PROPERTY_HOST_COHERENT_BIT;
  Piece piece;
  piece.bytes = bytes;
  piece.buffer = Buffer(device_, {.bytes = bytes,
                                  .usage = VK_BUFFER_USAGE_STORAGE_BUFFER_BIT,
                                  .required = isShared_ ? onDevice : mapped,
                                  .preferred = onDevice,
                                  .isExported = isShared_,
                                  .step = "Create shared CUDA field"});
  if (isShared_) {
    piece.interop = share(piece.buffer);
    piece.pointer = piece.interop.map(bytes);
  } else {
    piece.pointer = map(device_, piece.buffer, "Map shared field");
  }
  return piece;
}

Interop Field::share(const Buffer& buffer) const {
  const VkMemoryGetFdInfoKHR info = {.sType = VK_STRUCTURE_TYPE_MEMORY_GET_FD_INFO_KHR,
                                     .memory = buffer.memory(),
                                     .handleType = VK_EXTERNAL_MEMORY_HANDLE_TYPE_OPAQUE_FD_BIT};
  int descriptor = -1;
  check(device_.vk.vkGetMemoryFdKHR(device_.handle(), &info, &descriptor), "Export shared field");
  return Interop(descriptor, buffer.allocated());
}

}  // namespace zeph::vulkan
