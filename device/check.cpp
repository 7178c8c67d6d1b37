#include "device/check.h"

#include <stdexcept>
#include <string>

namespace zeph {

void check(cudaError_t result, const char* call) {
  if (result != cudaSuccess) {
    throw std::runtime_error(std::string(call) + ": " + cudaGetErrorString(result));
  }
}

}  // namespace zeph
