// The kernels' machine code: a fat binary, one image for each kind of GPU.
#pragma once

namespace zeph::cuda {

const void* kernelImage();

}  // namespace zeph::cuda
