#include "device/cuda/driver/driver_functions.h"

#include "platform/dynamic_library.h"
#include "platform/fork.h"

namespace zeph::cuda {
namespace {

#ifdef _WIN32
constexpr const char* libraryName = "nvcuda.dll";
#else
constexpr const char* libraryName = "libcuda.so.1";
#endif

// The version of the interface to look functions up in. Every driver that can run the kernels has
// it.
constexpr int interfaceVersion = 12000;

// A driver reads the machine code of toolkits up to its own major version.
constexpr int oldestVersion = CUDART_VERSION / 1000 * 1000;

template <class Function>
bool find(const Driver& driver, const char* name, Function& function) {
  void* found = nullptr;
  CUdriverProcAddressQueryResult result = CU_GET_PROC_ADDRESS_SYMBOL_NOT_FOUND;
  if (driver.cuGetProcAddress(name, &found, interfaceVersion, CU_GET_PROC_ADDRESS_DEFAULT,
                              &result) != CUDA_SUCCESS)
    return false;
  function = reinterpret_cast<Function>(found);
  return result == CU_GET_PROC_ADDRESS_SUCCESS && found != nullptr;
}

bool findAll(Driver& driver) {
  bool isWhole = true;
#define ZEPH_FIND(name) isWhole = find(driver, #name, driver.name) && isWhole;
  ZEPH_DRIVER_FUNCTIONS(ZEPH_FIND)
#undef ZEPH_FIND
  return isWhole;
}

Driver* openDriver() {
  auto* driver = new Driver;
  void* library = platform::openLibrary(libraryName);
  if (library == nullptr) return driver;
  // These two are exported under their full names by every driver, and by those since CUDA 12.
  CUresult(CUDAAPI * getVersion)(int*) = nullptr;
  if (!platform::find(library, "cuDriverGetVersion", getVersion) ||
      getVersion(&driver->version) != CUDA_SUCCESS || driver->version < oldestVersion ||
      !platform::find(library, "cuGetProcAddress_v2", driver->cuGetProcAddress) ||
      !findAll(*driver))
    return driver;
  driver->state = static_cast<::cudaError_t>(driver->cuInit(0));
  return driver;
}

platform::MadeOnce<const Driver> driverOfProcess;

}  // namespace

const Driver& driver() {
  return driverOfProcess.get(openDriver);
}

}  // namespace zeph::cuda
