#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "boundary/system_description.h"
#include "tests/boundary/failure_text.h"
#include "tests/support/devices.h"
#include "tests/support/environment_variable.h"

namespace zeph {
namespace {

class DeviceChoice : public testing::Test {
 protected:
  DeviceChoice() { variable_.remove(); }

  void choose(const std::string& value) const { variable_.set(value); }

 private:
  test::EnvironmentVariable variable_{"ZEPHANE_DEVICE"};
};

TEST_F(DeviceChoice, TheDefaultIsTheFirstGpuOrElseTheProcessor) {
  const std::vector<int> gpus = test::gpus();
  EXPECT_EQ(chooseDevice(), gpus.empty() ? test::processorDevice() : gpus.front());
}

TEST_F(DeviceChoice, TheEnvironmentNamesADeviceByItsIndex) {
  choose("007");
  EXPECT_EQ(chooseDevice(), 7);
  choose("2147483647");
  EXPECT_EQ(chooseDevice(), 2147483647);
}

TEST_F(DeviceChoice, AnythingButDigitsIsRefused) {
  for (const char* value : {"", "-1", "1a", " 1", "1 ", "0x1", "cpu"}) {
    choose(value);
    EXPECT_EQ(failureText<std::invalid_argument>(chooseDevice),
              "ZEPHANE_DEVICE must be a nonnegative device index.");
  }
}

TEST_F(DeviceChoice, AnIndexBeyondAnIntegerIsOutOfRange) {
  for (const char* value : {"99999999999", "2147483648", "99999999999999999999999"}) {
    choose(value);
    EXPECT_EQ(failureText<std::out_of_range>(chooseDevice), "stoi argument out of range");
  }
}

}  // namespace
}  // namespace zeph
