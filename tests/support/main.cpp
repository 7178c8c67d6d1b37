// The entry of the test programs. Each test starts on the processor, even with GPUs, or on the
// first emulated GPU, whichever device the previous test selected.
#include <gtest/gtest.h>

#include "device/runtime.h"
#include "tests/support/devices.h"

namespace {

class DeviceSelection : public testing::EmptyTestEventListener {
  void OnTestStart(const testing::TestInfo&) override {
#if ZEPHANE_EMULATED_GPU
    zeph::cudaSetDevice(0);
#else
    zeph::test::selectProcessor();
#endif
  }
};

}  // namespace

int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  testing::UnitTest::GetInstance()->listeners().Append(new DeviceSelection);
  return RUN_ALL_TESTS();
}
