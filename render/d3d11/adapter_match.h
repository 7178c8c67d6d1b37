// The adapter of Direct3D that CUDA can also use. Includes no header of Windows, so that its tests
// run on every system.
#pragma once

#include <functional>
#include <optional>

namespace zeph::d3d11 {

// The IDXGIAdapter of an index, valid until the next call, or null after the last one.
using AdapterAt = std::function<void*(unsigned index)>;

struct AdapterMatch {
  unsigned adapter;  // index
  int device;        // ordinal
};

// The first adapter, in the order of the indices, that is a CUDA device for which there are
// kernels. Raises std::runtime_error if there is none.
AdapterMatch firstCudaAdapter(const AdapterAt& adapterAt);

// Its device, or nothing if no CUDA device has kernels. Then the adapters are not asked for.
std::optional<int> deviceOfFirstCudaAdapter(const AdapterAt& adapterAt);

}  // namespace zeph::d3d11
