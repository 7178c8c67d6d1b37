#include "platform/linux/control_groups.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "platform/system_memory.h"

namespace zeph::platform {
namespace {

class Group {
 public:
  Group() { std::filesystem::create_directories(folder_); }
  ~Group() { std::filesystem::remove_all(folder_); }
  Group(const Group&) = delete;
  Group& operator=(const Group&) = delete;

  void write(const std::string& name, const std::string& text) const {
    std::ofstream(folder_ / name) << text;
  }
  int processors(bool isUnified) const { return processorsAllowed({folder_.string(), isUnified}); }

 private:
  std::filesystem::path folder_ =
      std::filesystem::temp_directory_path() /
      ("zephane-group-" + std::to_string(testing::UnitTest::GetInstance()->random_seed()) + "-" +
       testing::UnitTest::GetInstance()->current_test_info()->name());
};

constexpr int noLimit = std::numeric_limits<int>::max();

TEST(ControlGroups, AQuotaOfTimeAllowsSoManyProcessorsRoundedUp) {
  const Group group;
  EXPECT_EQ(group.processors(true), noLimit);
  EXPECT_EQ(group.processors(false), noLimit);
  for (const auto& [quota, processors] : {std::pair{200000, 2}, {250000, 3}, {1000, 1}}) {
    group.write("cpu.max", std::to_string(quota) + " 100000\n");
    group.write("cpu.cfs_quota_us", std::to_string(quota) + "\n");
    group.write("cpu.cfs_period_us", "100000\n");
    EXPECT_EQ(group.processors(true), processors);
    EXPECT_EQ(group.processors(false), processors);
  }
}

TEST(ControlGroups, WithoutAQuotaNothingIsLimited) {
  const Group group;
  group.write("cpu.max", "max 100000\n");
  group.write("cpu.cfs_quota_us", "-1\n");
  group.write("cpu.cfs_period_us", "100000\n");
  EXPECT_EQ(group.processors(true), noLimit);
  EXPECT_EQ(group.processors(false), noLimit);
}

TEST(ControlGroups, EndAtTheRootOfTheHierarchy) {
  for (const ControlGroup& group : controlGroups("memory")) {
    EXPECT_TRUE(group.folder.starts_with("/sys/fs/cgroup"));
    EXPECT_FALSE(group.folder.ends_with("/"));
  }
}

}  // namespace
}  // namespace zeph::platform
