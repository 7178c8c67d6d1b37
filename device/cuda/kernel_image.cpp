#include "device/cuda/kernel_image.h"

#ifdef _WIN32
#define ZEPH_CONSTANTS ".section .rdata,\"dr\"\n"
#define ZEPH_CODE ".text\n"
#else
#define ZEPH_CONSTANTS ".section .rodata\n"
#define ZEPH_CODE ".previous\n"
#endif

// The bytes of the fat binary that the build has made.
asm(ZEPH_CONSTANTS
    ".balign 16\n"
    "zephaneKernelImage:\n"
    ".incbin \"" ZEPHANE_KERNEL_IMAGE "\"\n" ZEPH_CODE);

extern "C" const char zephaneKernelImage[];

namespace zeph::cuda {

const void* kernelImage() {
  return zephaneKernelImage;
}

}  // namespace zeph::cuda
