// Where the files of NVRTC, the run-time compiler of CUDA, may be. It comes with the toolkit and as
// a Python package.
#pragma once

#include <array>
#include <filesystem>
#include <string>
#include <vector>

namespace zeph::cuda {

// The major versions that can be used, the newest first.
inline constexpr std::array nvrtcMajors{13, 12};

// How a system names and places the files.
struct NvrtcNaming {
  std::string (*library)(int major);
  // The library's folder in a folder of Python packages. Up to CUDA 12 each library has a package
  // for itself; from 13 on all share one folder.
  std::string (*package)(int major);
  // From the folder of Python's own modules to those of packages.
  std::string modules;
  std::vector<std::string> fromModules;
  // How the names of the libraries begin that NVRTC opens by their names alone; empty where it
  // finds them beside itself.
  std::string neighbours;
};
extern const NvrtcNaming linuxNvrtc;
extern const NvrtcNaming windowsNvrtc;
const NvrtcNaming& nvrtcOfThisSystem();

// The libraries to try, best first: for each version, what the loader finds by name, then the
// folders of toolkits, then those of the Python packages that `loaded`, the files mapped by the
// process, point to. A compiler newer than the driver may write code that the driver cannot read,
// so versions up to the driver's major number come first.
std::vector<std::filesystem::path> nvrtcCandidates(
    const NvrtcNaming& naming, int driverMajor, const std::vector<std::filesystem::path>& toolkits,
    const std::vector<std::filesystem::path>& loaded);

// The folders of the toolkits on this machine that have libraries.
std::vector<std::filesystem::path> toolkitFolders();

// The files in the folder of a library that it opens by their names alone.
std::vector<std::filesystem::path> nvrtcNeighbours(const NvrtcNaming& naming,
                                                   const std::filesystem::path& library);

}  // namespace zeph::cuda
