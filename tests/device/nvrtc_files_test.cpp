// Where NVRTC is searched for, and in which order.
#if ZEPHANE_CUDA

#include "device/cuda/nvrtc_files.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>

#include "tests/support/scratch_folder.h"

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
  EXPECT_EQ(cuda::nvrtcCandidates(cuda::linuxNvrtc, 13, none, none), newest);
  EXPECT_EQ(cuda::nvrtcCandidates(cuda::linuxNvrtc, 14, none, none), newest);
  EXPECT_EQ(cuda::nvrtcCandidates(cuda::linuxNvrtc, 12, none, none),
            (Paths{"libnvrtc.so.12", "libnvrtc.so.13"}));
}

TEST(NvrtcCandidates, AreStillListedWithADriverOlderThanAll) {
  EXPECT_EQ(cuda::nvrtcCandidates(cuda::linuxNvrtc, 11, none, none).size(), 2u);
}

TEST(NvrtcCandidates, ComeFromTheLoaderThenToolkitsThenPackages) {
  const Paths toolkits = {"/usr/local/cuda/lib64", "/opt/cuda/lib64"};
  const Paths loaded = {"/venv/lib/python3.12/site-packages/numpy/core/math.so"};
  EXPECT_EQ(cuda::nvrtcCandidates(cuda::linuxNvrtc, 12, toolkits, loaded),
            (Paths{"libnvrtc.so.12", "/usr/local/cuda/lib64/libnvrtc.so.12",
                   "/opt/cuda/lib64/libnvrtc.so.12",
                   "/venv/lib/python3.12/site-packages/nvidia/cuda_nvrtc/lib/libnvrtc.so.12",
                   "libnvrtc.so.13", "/usr/local/cuda/lib64/libnvrtc.so.13",
                   "/opt/cuda/lib64/libnvrtc.so.13",
                   "/venv/lib/python3.12/site-packages/nvidia/cu13/lib/libnvrtc.so.13"}));
}

TEST(NvrtcCandidates, ThatTheDriverSupportsComeFirst) {
  const Paths found =
      cuda::nvrtcCandidates(cuda::linuxNvrtc, 12, {"/toolkit"}, {"/p/site-packages/a.so"});
  EXPECT_LT(placeOf(found, "/p/site-packages/nvidia/cuda_nvrtc/lib/libnvrtc.so.12"),
            placeOf(found, "libnvrtc.so.13"));
}

TEST(NvrtcCandidates, IncludePackagesBesidePythonsOwnModules) {
  const Paths loaded = {"/usr/lib/python3.11/lib-dynload/_json.cpython-311-x86_64-linux-gnu.so"};
  const Paths found = cuda::nvrtcCandidates(cuda::linuxNvrtc, 13, none, loaded);
  EXPECT_TRUE(contains(found, "/usr/lib/python3.11/site-packages/nvidia/cu13/lib/libnvrtc.so.13"));
  EXPECT_TRUE(contains(found, "/usr/lib/python3.11/dist-packages/nvidia/cu13/lib/libnvrtc.so.13"));
}

TEST(NvrtcCandidates, IncludePackagesInBothKindsOfFolders) {
  const Paths loaded = {"/usr/lib/python3/dist-packages/numpy/linalg/lapack_lite.so",
                        "/home/me/.local/lib/python3.11/site-packages/x.so"};
  const Paths found = cuda::nvrtcCandidates(cuda::linuxNvrtc, 13, none, loaded);
  EXPECT_TRUE(contains(found, "/usr/lib/python3/dist-packages/nvidia/cu13/lib/libnvrtc.so.13"));
  EXPECT_TRUE(contains(
      found, "/home/me/.local/lib/python3.11/site-packages/nvidia/cu13/lib/libnvrtc.so.13"));
}

TEST(NvrtcCandidates, ListEachFolderOnce) {
  const Paths loaded = {"/p/site-packages/a/b.so", "/p/site-packages/a/c.so",
                        "/p/lib-dynload/d.so"};
  const Paths found = cuda::nvrtcCandidates(cuda::linuxNvrtc, 13, none, loaded);
  EXPECT_EQ(
      std::count(found.begin(), found.end(), "/p/site-packages/nvidia/cu13/lib/libnvrtc.so.13"), 1);
}

TEST(NvrtcCandidates, ExcludeFilesInOtherFolders) {
  const Paths loaded = {"/usr/bin/python3.11", "/lib/x86_64-linux-gnu/libc.so.6", "", "[vdso]"};
  EXPECT_EQ(cuda::nvrtcCandidates(cuda::linuxNvrtc, 13, none, loaded),
            cuda::nvrtcCandidates(cuda::linuxNvrtc, 13, none, none));
}

TEST(NvrtcCandidates, OnWindowsComeInTheSameOrder) {
  const Paths toolkits = {"C:/CUDA/v13.0/bin/x64"};
  const Paths loaded = {"C:/Python/DLLs/_ctypes.pyd", "C:/Python/python312.dll",
                        "D:/venv/Lib/site-packages/zephane/zephane.dll"};
  EXPECT_EQ(cuda::nvrtcCandidates(cuda::windowsNvrtc, 13, toolkits, loaded),
            (Paths{"nvrtc64_130_0.dll", "C:/CUDA/v13.0/bin/x64/nvrtc64_130_0.dll",
                   "C:/Python/Lib/site-packages/nvidia/cu13/bin/x86_64/nvrtc64_130_0.dll",
                   "D:/venv/Lib/site-packages/nvidia/cu13/bin/x86_64/nvrtc64_130_0.dll",
                   "nvrtc64_120_0.dll", "C:/CUDA/v13.0/bin/x64/nvrtc64_120_0.dll",
                   "C:/Python/Lib/site-packages/nvidia/cuda_nvrtc/bin/nvrtc64_120_0.dll",
                   "D:/venv/Lib/site-packages/nvidia/cuda_nvrtc/bin/nvrtc64_120_0.dll"}));
}

TEST(NvrtcNeighbours, AreThoseBesideTheLibraryThatItOpensByName) {
  const test::ScratchFolder folder;
  for (const char* name :
       {"nvrtc64_130_0.dll", "nvrtc-builtins64_130.dll", "nvrtc64_130_0.alt.dll"})
    std::ofstream(folder.path() / name) << "x";
  const auto library = folder.path() / "nvrtc64_130_0.dll";
  EXPECT_EQ(cuda::nvrtcNeighbours(cuda::windowsNvrtc, library),
            Paths{folder.path() / "nvrtc-builtins64_130.dll"});
  EXPECT_EQ(cuda::nvrtcNeighbours(cuda::linuxNvrtc, library), none);
  EXPECT_EQ(cuda::nvrtcNeighbours(cuda::windowsNvrtc, "nvrtc64_130_0.dll"), none);
  EXPECT_EQ(cuda::nvrtcNeighbours(cuda::windowsNvrtc, folder.path() / "missing" / "a.dll"), none);
}

}  // namespace
}  // namespace zeph

#endif
