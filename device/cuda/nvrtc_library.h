// The run-time compiler of CUDA. The search for it starts when the first transform is made.
#pragma once

namespace zeph::cuda {

// Raises a std::runtime_error that says what is missing, unless the compiler has been found.
void requireNvrtc();

// A function of the compiler, or null where there is no compiler.
void* nvrtcFunction(const char* name);

}  // namespace zeph::cuda
