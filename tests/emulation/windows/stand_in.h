// A driver of two GPUs whose memory is the host's, as nvcuda.dll beside a test program. It shares
// buffers with the real Direct3D, but runs no kernel. Work is done when the call returns.
#pragma once

#include <cstddef>

extern "C" {

// How often a function of the driver has been called.
using StandInCalls = long(const char* function);
// Lets it fail once, with an error of the driver.
using StandInFail = void(const char* function, int error);
// The GPU that every adapter of Direct3D is, or -1.
using StandInPlaceAdapters = void(int gpu);
// Blocks of memory, streams and registered buffers that there are.
using StandInHoldings = std::size_t();
}
