// The processor as a device.
#pragma once

#include "device/device_kind.h"

namespace zeph::cpu {

extern const DeviceKind processorKind;

}  // namespace zeph::cpu
