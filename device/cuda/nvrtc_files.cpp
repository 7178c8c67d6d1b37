#include "device/cuda/nvrtc_files.h"

#include <algorithm>
#include <cstdlib>
#include <set>

namespace zeph::cuda {
namespace {

namespace fs = std::filesystem;

// Derived from the paths of the files that Python has loaded, which are like
// PREFIX/site-packages/... or, for its own modules, PREFIX/lib/python3.x/lib-dynload/... on Linux
// and PREFIX/DLLs/... on Windows.
std::set<fs::path> packageFolders(const NvrtcNaming& naming, const std::vector<fs::path>& loaded) {
  std::set<fs::path> folders;
  for (const fs::path& file : loaded) {
    for (fs::path at = file.parent_path(); at.has_relative_path(); at = at.parent_path()) {
      if (at.filename() == "site-packages" || at.filename() == "dist-packages") folders.insert(at);
      if (at.filename() != naming.modules) continue;
      for (const std::string& packages : naming.fromModules)
        folders.insert(at.parent_path() / packages);
    }
  }
  return folders;
}

// Folders in `where` whose names begin so, the last in alphabetical order first, each with the
// folders of its libraries.
void addToolkits(std::vector<fs::path>& folders, const fs::path& where, const std::string& begin,
                 const std::vector<std::string>& libraries) {
  std::vector<fs::path> toolkits;
  std::error_code error;
  for (fs::directory_iterator at(where, error), end; !error && at != end; at.increment(error)) {
    if (at->path().filename().string().starts_with(begin)) toolkits.push_back(at->path());
  }
  std::sort(toolkits.rbegin(), toolkits.rend());
  for (const fs::path& toolkit : toolkits) {
    for (const std::string& folder : libraries) folders.push_back(toolkit / folder);
  }
}

}  // namespace

const NvrtcNaming linuxNvrtc = {
    .library = [](int major) { return "libnvrtc.so." + std::to_string(major); },
    .package =
        [](int major) {
          return "nvidia/" + (major >= 13 ? "cu" + std::to_string(major) : "cuda_nvrtc") + "/lib";
        },
    .modules = "lib-dynload",
    .fromModules = {"site-packages", "dist-packages"},
    .neighbours = ""};

const NvrtcNaming windowsNvrtc = {
    .library = [](int major) { return "nvrtc64_" + std::to_string(major) + "0_0.dll"; },
    .package =
        [](int major) {
          return major >= 13 ? "nvidia/cu" + std::to_string(major) + "/bin/x86_64"
                             : std::string("nvidia/cuda_nvrtc/bin");
        },
    .modules = "DLLs",
    .fromModules = {"Lib/site-packages"},
    .neighbours = "nvrtc-builtins64_"};

const NvrtcNaming& nvrtcOfThisSystem() {
#ifdef _WIN32
  return windowsNvrtc;
#else
  return linuxNvrtc;
#endif
}

std::vector<fs::path> nvrtcCandidates(const NvrtcNaming& naming, int driverMajor,
                                      const std::vector<fs::path>& toolkits,
                                      const std::vector<fs::path>& loaded) {
  std::array order = nvrtcMajors;
  std::stable_partition(order.begin(), order.end(), [=](int m) { return m <= driverMajor; });
  const std::set<fs::path> packages = packageFolders(naming, loaded);
  std::vector<fs::path> candidates;
  for (const int major : order) {
    const std::string file = naming.library(major);
    candidates.emplace_back(file);
    for (const fs::path& toolkit : toolkits) candidates.push_back(toolkit / file);
    for (const fs::path& folder : packages)
      candidates.push_back(folder / naming.package(major) / file);
  }
  return candidates;
}

std::vector<fs::path> toolkitFolders() {
#ifdef _WIN32
  std::vector<fs::path> folders;
  const wchar_t* programs = _wgetenv(L"ProgramFiles");
  if (programs != nullptr)
    addToolkits(folders, fs::path(programs) / "NVIDIA GPU Computing Toolkit" / "CUDA", "v",
                {"bin/x64", "bin"});
#else
  std::vector<fs::path> folders = {"/usr/local/cuda/lib64", "/opt/cuda/lib64",
                                   "/usr/lib/cuda/lib64"};
  addToolkits(folders, "/usr/local", "cuda-", {"lib64"});
#endif
  return folders;
}

std::vector<fs::path> nvrtcNeighbours(const NvrtcNaming& naming, const fs::path& library) {
  std::vector<fs::path> found;
  if (naming.neighbours.empty() || !library.has_parent_path()) return found;
  std::error_code error;
  for (fs::directory_iterator at(library.parent_path(), error), end; !error && at != end;
       at.increment(error)) {
    if (at->path().filename().string().starts_with(naming.neighbours)) found.push_back(at->path());
  }
  std::sort(found.begin(), found.end());
  return found;
}

}  // namespace zeph::cuda
