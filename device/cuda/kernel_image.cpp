#include "device/cuda/kernel_image.h"

// The bytes of the fat binary that the build has made.
asm(".section .rodata\n"
    ".balign 16\n"
    "zephaneKernelImage:\n"
    ".incbin \"" ZEPHANE_KERNEL_IMAGE
    "\"\n"
    ".previous\n");

extern "C" const char zephaneKernelImage[];

namespace zeph::cuda {

const void* kernelImage() {
  return zephaneKernelImage;
}

}  // namespace zeph::cuda
