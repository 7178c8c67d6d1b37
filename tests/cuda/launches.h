// The same launches on a GPU and on the processor, and the contents of their arrays afterwards.
#pragma once

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <type_traits>
#include <vector>

#include "device/check.h"
#include "solver/device_resources.h"
#include "tests/support/arrays.h"
#include "tests/support/bits.h"
#include "tests/support/devices.h"

namespace zeph::test {

// Arrays on the selected device, each between two bands of known bytes.
class DeviceArrays {
 public:
  explicit DeviceArrays(cudaStream_t stream) : stream_(stream) {}

  template <class T>
  T* put(const std::vector<T>& content) {
    static_assert(std::is_trivially_copyable_v<T>);
    const std::size_t bytes = content.size() * sizeof(T);
    arrays_.push_back({std::make_unique<DeviceBuffer>(), bytes});
    DeviceBuffer& buffer = *arrays_.back().buffer;
    buffer.allocate(bytes + 2 * band);
    check(cudaMemsetAsync(buffer.ptr, mark, buffer.bytes, stream_), "filling");
    check(cudaMemcpyAsync(inner(buffer), content.data(), bytes, cudaMemcpyHostToDevice, stream_),
          "copying there");
    return reinterpret_cast<T*>(inner(buffer));
  }

  // All arrays in the order of their making, word by word.
  std::vector<std::vector<float>> contents() const {
    std::vector<std::vector<float>> found;
    for (const Array& array : arrays_) {
      std::vector<float> words(array.bytes / sizeof(float));
      fetch(words.data(), inner(*array.buffer), array.bytes);
      found.push_back(std::move(words));
    }
    return found;
  }

  bool bandsAreIntact() const {
    for (const Array& array : arrays_) {
      unsigned char bytes[2 * band];
      fetch(bytes, array.buffer->as<char>(), band);
      fetch(bytes + band, inner(*array.buffer) + array.bytes, band);
      for (const unsigned char byte : bytes) {
        if (byte != mark) return false;
      }
    }
    return true;
  }

 private:
  static constexpr std::size_t band = 1024;
  static constexpr unsigned char mark = 0xA5;

  struct Array {
    std::unique_ptr<DeviceBuffer> buffer;
    std::size_t bytes;
  };

  static char* inner(const DeviceBuffer& buffer) { return buffer.as<char>() + band; }

  void fetch(void* to, const void* from, std::size_t bytes) const {
    check(cudaMemcpyAsync(to, from, bytes, cudaMemcpyDeviceToHost, stream_), "copying back");
    check(cudaStreamSynchronize(stream_), "waiting");
  }

  cudaStream_t stream_;
  std::vector<Array> arrays_;
};

// The contents after `launches` ran on a device; they are passed arrays for their arguments and a
// stream.
template <class Launches>
std::vector<std::vector<float>> contentsAfter(int device, Launches launches) {
  const DeviceScope scope(device);
  const CudaQueue queue;
  DeviceArrays arrays(queue.value);
  launches(arrays, queue.value);
  EXPECT_EQ(cudaGetLastError(), cudaSuccess);
  EXPECT_EQ(cudaStreamSynchronize(queue.value), cudaSuccess);
  EXPECT_TRUE(arrays.bandsAreIntact()) << "something was written beside an array";
  return arrays.contents();
}

// The contents, for further checks.
template <class Launches>
std::vector<std::vector<float>> expectSameBits(int gpu, Launches launches) {
  std::vector<std::vector<float>> expected = contentsAfter(processorDevice(), launches);
  const std::vector<std::vector<float>> found = contentsAfter(gpu, launches);
  EXPECT_EQ(found.size(), expected.size());
  for (std::size_t k = 0; k < expected.size() && k < found.size(); ++k) {
    EXPECT_TRUE(sameBits(found[k], expected[k])) << "array " << k;
  }
  return expected;
}

// Numbers as Numbers makes them, with zeros of both signs and subnormal numbers among them. They
// come from one store, at an offset that depends on `seed`, because arrays may be very large.
inline std::vector<float> floats(std::size_t count, unsigned seed) {
  static const std::vector<float> store = [] {
    std::vector<float> made = Numbers(7).floats(1000003);
    for (std::size_t k = 0; k < made.size(); k += 97) made[k] = 0.0f;
    for (std::size_t k = 3; k < made.size(); k += 101) made[k] = -0.0f;
    for (std::size_t k = 5; k < made.size(); k += 499) made[k] *= 1e-42f;
    return made;
  }();
  std::vector<float> values(count);
  std::size_t from = seed * 7919u % store.size();
  for (std::size_t at = 0; at < count; from = 0) {
    const std::size_t piece = std::min(count - at, store.size() - from);
    std::memcpy(values.data() + at, store.data() + from, piece * sizeof(float));
    at += piece;
  }
  return values;
}

inline std::vector<V2> modes(std::size_t count, unsigned seed) {
  const std::vector<float> values = floats(2 * count, seed);
  std::vector<V2> made(count);
  if (count > 0) std::memcpy(made.data(), values.data(), count * sizeof(V2));
  return made;
}

}  // namespace zeph::test
