// Kernels that are written at run time, as shared libraries of the host.
#pragma once

#include <filesystem>
#include <string>

namespace zeph::emulation {

// Compiles CUDA source to a library, unless one of an earlier run exists. Returns an empty path on
// a compile error; `log` has its text.
std::filesystem::path compileModule(const std::string& source, std::string& log);

// The name of the function in a compiled module that lists its kernels.
constexpr const char* moduleKernels = "emulatedModuleKernels";

}  // namespace zeph::emulation
