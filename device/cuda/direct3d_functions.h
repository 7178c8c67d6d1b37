// CUDA's functions for Direct3D 11, which only the toolkit for Windows declares. They return
// cudaErrorNotSupported where the driver does not have them.
#pragma once

#include <cuda_runtime_api.h>

struct IDXGIAdapter;
struct ID3D11Resource;

extern "C" {

cudaError_t CUDARTAPI cudaD3D11GetDevice(int* ordinal, IDXGIAdapter* adapter);
cudaError_t CUDARTAPI cudaGraphicsD3D11RegisterResource(cudaGraphicsResource** resource,
                                                        ID3D11Resource* buffer, unsigned flags);

}  // extern "C"
