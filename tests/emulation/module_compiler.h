// Kernels that are written at run time, as libraries of the host.
#pragma once

#include <filesystem>
#include <string>

namespace zeph::emulation {

// Compiles CUDA source to a library, unless the one of an earlier run is still there. An empty path
// where the compiler refuses; `log` has its words.
std::filesystem::path compileModule(const std::string& source, std::string& log);

// The name of the function of a compiled module that tells its kernels.
constexpr const char* moduleKernels = "emulatedModuleKernels";

}  // namespace zeph::emulation
