// The benchmark program: Google Benchmark with an option for the device.
//
//   zephane_bench [--device=N] [--benchmark_filter=REGEX ...]
//
// Without --device it runs on the device that zp_initialize selects.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <exception>
#include <limits>

#include "boundary/config.h"
#include "boundary/system_description.h"
#include "device/check.h"
#include "device/runtime.h"

namespace {

constexpr const char* deviceOption = "--device=";

// The device, from the option if there is one, which is removed from the arguments.
int deviceOf(int& argc, char** argv) {
  const auto isDevice = [](const char* argument) {
    return std::strncmp(argument, deviceOption, std::strlen(deviceOption)) == 0;
  };
  char** const end = argv + argc;
  char** const found = std::find_if(argv, end, isDevice);
  if (found == end) return zeph::chooseDevice();
  const char* const text = *found + std::strlen(deviceOption);
  if (!zeph::isDecimal(text)) throw std::invalid_argument("--device takes a device's number.");
  constexpr int largest = std::numeric_limits<int>::max();
  const auto device = zeph::decimalValue(text, largest, "There is no such device.");
  std::rotate(found, found + 1, end);
  --argc;
  return static_cast<int>(device);
}

void selectDevice(int device) {
  zeph::check(zeph::cudaSetDevice(device), "cudaSetDevice");
  zeph::cudaDeviceProp properties;
  zeph::check(zeph::cudaGetDeviceProperties(&properties, device), "cudaGetDeviceProperties");
  benchmark::AddCustomContext("device", properties.name);
  benchmark::AddCustomContext("backend", zeph::deviceBackend());
}

}  // namespace

int main(int argc, char** argv) {
  try {
    const int device = deviceOf(argc, argv);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 2;
    selectDevice(device);
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "%s\n", failure.what());
    return 1;
  }
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
}
