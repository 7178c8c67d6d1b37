// Where NVRTC is searched for, and in which order.
#if ZEPHANE_CUDA

#include "device/cuda/nvrtc_library.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace zeph {
namespace {

using Paths = std::vector<std::filesystem::path>;

const Paths none;

std::ptrdiff_t placeOf(const Paths& candidates, const std::string& path) {
  const auto found = std::find(candidates.begin(), candidates.end(), path);
  EXPECT_NE(found, candidates.end()) << path;
  return found - candidates.begin();
}

bool contains(const Paths& candidates, const std::string& path) {
  return std::find(candidates.begin(), candidates.end(), path) != candidates.end();
}

TEST(NvrtcCandidates, AreTheNewestFirstUpToTheDriver) {
  const Paths newest = {"libnvrtc.so.13", "libnvrtc.so.12"};
  EXPECT_EQ(cuda::nvrtcCandidates(13, none, none), newest);
  EXPECT_EQ(cuda::nvrtcCandidates(14, none, none), newest);
  EXPECT_EQ(cuda::nvrtcCandidates(12, none, none), (Paths{"libnvrtc.so.12", "libnvrtc.so.13"}));
}

TEST(NvrtcCandidates, AreStillListedWithADriverOlderThanAll) {
  EXPECT_EQ(cuda::nvrtcCandidates(11, none, none).size(), 2u);
}

TEST(NvrtcCandidates, ComeFromTheLoaderThenToolkitsThenPackages) {
  const Paths toolkits = {"/usr/local/cuda/lib64", "/opt/cuda/lib64"};
  const Paths loaded = {"/venv/lib/python3.12/site-packages/numpy/core/math.so"};
  EXPECT_EQ(cuda::nvrtcCandidates(12, toolkits, loaded),
            (Paths{"libnvrtc.so.12", "/usr/local/cuda/lib64/libnvrtc.so.12",
                   "/opt/cuda/lib64/libnvrtc.so.12",
                   "/venv/lib/python3.12/site-packages/nvidia/cuda_nvrtc/lib/libnvrtc.so.12",
                   "libnvrtc.so.13", "/usr/local/cuda/lib64/libnvrtc.so.13",
                   "/opt/cuda/lib64/libnvrtc.so.13",
                   "/venv/lib/python3.12/site-packages/nvidia/cu13/lib/libnvrtc.so.13"}));
}

TEST(NvrtcCandidates, ThatTheDriverSupportsComeFirst) {
  const Paths found = cuda::nvrtcCandidates(12, {"/toolkit"}, {"/p/site-packages/a.so"});
  EXPECT_LT(placeOf(found, "/p/site-packages/nvidia/cuda_nvrtc/lib/libnvrtc.so.12"),
            placeOf(found, "libnvrtc.so.13"));
}

TEST(NvrtcCandidates, IncludePackagesBesidePythonsOwnModules) {
  const Paths loaded = {"/usr/lib/python3.11/lib-dynload/_json.cpython-311-x86_64-linux-gnu.so"};
  const Paths found = cuda::nvrtcCandidates(13, none, loaded);
  EXPECT_TRUE(contains(found, "/usr/lib/python3.11/site-packages/nvidia/cu13/lib/libnvrtc.so.13"));
  EXPECT_TRUE(contains(found, "/usr/lib/python3.11/dist-packages/nvidia/cu13/lib/libnvrtc.so.13"));
}

TEST(NvrtcCandidates, IncludePackagesInBothKindsOfFolders) {
  const Paths loaded = {"/usr/lib/python3/dist-packages/numpy/linalg/lapack_lite.so",
                        "/home/me/.local/lib/python3.11/site-packages/x.so"};
  const Paths found = cuda::nvrtcCandidates(13, none, loaded);
  EXPECT_TRUE(contains(found, "/usr/lib/python3/dist-packages/nvidia/cu13/lib/libnvrtc.so.13"));
  EXPECT_TRUE(contains(
      found, "/home/me/.local/lib/python3.11/site-packages/nvidia/cu13/lib/libnvrtc.so.13"));
}

TEST(NvrtcCandidates, ListEachFolderOnce) {
  const Paths loaded = {"/p/site-packages/a/b.so", "/p/site-packages/a/c.so",
                        "/p/lib-dynload/d.so"};
  const Paths found = cuda::nvrtcCandidates(13, none, loaded);
  EXPECT_EQ(
      std::count(found.begin(), found.end(), "/p/site-packages/nvidia/cu13/lib/libnvrtc.so.13"), 1);
}

TEST(NvrtcCandidates, ExcludeFilesInOtherFolders) {
  const Paths loaded = {"/usr/bin/python3.11", "/lib/x86_64-linux-gnu/libc.so.6", "", "[vdso]"};
  EXPECT_EQ(cuda::nvrtcCandidates(13, none, loaded), cuda::nvrtcCandidates(13, none, none));
}

}  // namespace
}  // namespace zeph

#endif
