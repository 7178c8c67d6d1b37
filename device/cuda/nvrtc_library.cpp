#include "device/cuda/nvrtc_library.h"

#include <algorithm>
#include <array>
#include <mutex>
#include <set>
#include <stdexcept>

#include "device/cuda/devices.h"
#include "platform/dynamic_library.h"

namespace zeph::cuda {
namespace {

namespace fs = std::filesystem;

constexpr std::array majors{13, 12};

std::string fileOf(int major) {
  return "libnvrtc.so." + std::to_string(major);
}

// Where Python keeps its packages, derived from the paths of its own loaded files, which are like
// PREFIX/site-packages/... or PREFIX/lib/python3.x/lib-dynload/....
std::set<fs::path> packageFolders(const std::vector<fs::path>& loaded) {
  std::set<fs::path> folders;
  for (const fs::path& file : loaded) {
    for (fs::path at = file.parent_path(); at.has_relative_path(); at = at.parent_path()) {
      if (at.filename() == "site-packages" || at.filename() == "dist-packages") folders.insert(at);
      if (at.filename() == "lib-dynload") {
        folders.insert(at.parent_path() / "site-packages");
        folders.insert(at.parent_path() / "dist-packages");
      }
    }
  }
  return folders;
}

// Up to CUDA 12 each library has a package of its own; from 13 on all share one folder.
fs::path inPackages(const fs::path& packages, int major) {
  const fs::path folder = major >= 13 ? "cu" + std::to_string(major) : std::string("cuda_nvrtc");
  return packages / "nvidia" / folder / "lib" / fileOf(major);
}

std::vector<fs::path> toolkitFolders() {
  std::vector<fs::path> folders = {"/usr/local/cuda/lib64", "/opt/cuda/lib64",
                                   "/usr/lib/cuda/lib64"};
  std::error_code error;
  std::vector<fs::path> versions;
  for (fs::directory_iterator at("/usr/local", error), end; !error && at != end;
       at.increment(error)) {
    if (at->path().filename().string().starts_with("cuda-"))
      versions.push_back(at->path() / "lib64");
  }
  std::sort(versions.rbegin(), versions.rend());
  folders.insert(folders.end(), versions.begin(), versions.end());
  return folders;
}

void* findLibrary() {
  int driver = 0;
  if (driverVersion(&driver) != cudaSuccess) driver = 1000 * majors.front();
  for (const fs::path& candidate :
       nvrtcCandidates(driver / 1000, toolkitFolders(), platform::loadedFiles())) {
    if (void* library = platform::openLibrary(candidate)) return library;
  }
  return nullptr;
}

// Search again while it is missing: the host may have installed or loaded it since the last time.
void* library() {
  static std::mutex mutex;
  static void* found = nullptr;
  const std::lock_guard lock(mutex);
  if (found == nullptr) found = findLibrary();
  return found;
}

}  // namespace

std::vector<fs::path> nvrtcCandidates(int driverMajor, const std::vector<fs::path>& toolkits,
                                      const std::vector<fs::path>& loaded) {
  std::array order = majors;
  std::stable_partition(order.begin(), order.end(), [=](int m) { return m <= driverMajor; });
  const std::set<fs::path> packages = packageFolders(loaded);
  std::vector<fs::path> candidates;
  for (const int major : order) {
    candidates.emplace_back(fileOf(major));
    for (const fs::path& toolkit : toolkits) candidates.push_back(toolkit / fileOf(major));
    for (const fs::path& folder : packages) candidates.push_back(inPackages(folder, major));
  }
  return candidates;
}

void requireNvrtc() {
  if (library() != nullptr) return;
  throw std::runtime_error("NVRTC, the run-time compiler of CUDA, is missing: neither " +
                           fileOf(majors[0]) + " nor " + fileOf(majors[1]) +
                           " was found. Install the CUDA toolkit or the Python package "
                           "nvidia-cuda-nvrtc.");
}

void* nvrtcFunction(const char* name) {
  void* found = library();
  return found != nullptr ? platform::findFunction(found, name) : nullptr;
}

}  // namespace zeph::cuda
