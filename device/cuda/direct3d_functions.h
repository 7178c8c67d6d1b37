// CUDA's functions for Direct3D 11, which only the toolkit for Windows declares: those of the
// runtime, which return cudaErrorNotSupported where the driver has none, and the driver's.
#pragma once

#include <cuda.h>
#include <cuda_runtime_api.h>

struct IDXGIAdapter;
struct ID3D11Resource;

extern "C" {

cudaError_t CUDARTAPI cudaD3D11GetDevice(int* ordinal, IDXGIAdapter* adapter);
cudaError_t CUDARTAPI cudaGraphicsD3D11RegisterResource(cudaGraphicsResource_t* resource,
                                                        ID3D11Resource* buffer, unsigned flags);

CUresult CUDAAPI cuD3D11GetDevice(CUdevice* device, IDXGIAdapter* adapter);
CUresult CUDAAPI cuGraphicsD3D11RegisterResource(CUgraphicsResource* resource,
                                                 ID3D11Resource* buffer, unsigned flags);

}  // extern "C"
