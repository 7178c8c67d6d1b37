#include "device/cuda/kernel_image.h"

// The file's bytes, as the build has made it.
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
