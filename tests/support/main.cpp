// The test program's beginning. Tests run on the processor unless they select another device, on a
// machine with GPUs too.
#include <gtest/gtest.h>

#include "tests/support/devices.h"

namespace {

class OnTheProcessor : public testing::EmptyTestEventListener {
  void OnTestStart(const testing::TestInfo&) override { zeph::test::selectProcessor(); }
};

}  // namespace

int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  testing::UnitTest::GetInstance()->listeners().Append(new OnTheProcessor);
  return RUN_ALL_TESTS();
}
