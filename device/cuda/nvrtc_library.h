// The run-time compiler of CUDA, which comes with the toolkit and as a Python package. The search
// for it starts when the first transform is made.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace zeph::cuda {

// The libraries to try, best first: for each version, what the loader finds by name, then the
// folders of toolkits, then those of the Python packages that `loaded`, the files mapped by the
// process, point to. A compiler newer than the driver may write code that the driver cannot read,
// so versions up to the driver's major number come first.
std::vector<std::filesystem::path> nvrtcCandidates(
    int driverMajor, const std::vector<std::filesystem::path>& toolkits,
    const std::vector<std::filesystem::path>& loaded);

// Raises a std::runtime_error that says what is missing, unless the compiler has been found.
void requireNvrtc();

// A function of the compiler, or null where there is no compiler.
void* nvrtcFunction(const char* name);

}  // namespace zeph::cuda
