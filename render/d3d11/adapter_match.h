// The adapter of Direct3D that CUDA can also use. Includes no header of Windows, so that its tests
// run on every system.
#pragma once

#include <functional>
#include <optional>

namespace zeph::d3d11 {

// The IDXGIAdapter of an index, valid until the next call, or null after the last one.
using AdapterAt = std::function<void*(unsigned index)>;

// Asks for one adapter after the other, from index 0 on, until one is a CUDA device that runs the
// kernels: that device. Raises std::runtime_error if there is none.
int firstCudaDevice(const AdapterAt& adapterAt);

// The same, or nothing if no CUDA device runs the kernels. Then it asks for no adapter.
std::optional<int> deviceToDisplay(const AdapterAt& adapterAt);

[[noreturn]] void failWithoutAdapter();

}  // namespace zeph::d3d11
