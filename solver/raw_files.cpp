#include "solver/raw_files.h"

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <system_error>

#include "platform/system.h"
#include "platform/whole_file.h"

namespace zeph {
namespace {

std::uintmax_t sizeOf(const std::string& path) {
  std::error_code error;
  const std::uintmax_t bytes = std::filesystem::file_size(platform::pathFromUtf8(path), error);
  if (error) throw std::runtime_error("file_size: " + error.message() + ": \"" + path + "\"");
  return bytes;
}

}  // namespace

std::vector<float> loadInitialFile(int resolution, const std::string& path) {
  if (path.empty()) return {};
  const auto side = static_cast<std::size_t>(resolution);
  if (sizeOf(path) != std::uintmax_t{side} * side * sizeof(float))
    throw std::runtime_error("Initial file must contain exactly N² Float32 samples.");
  return readSamples(path, side * side);
}

std::vector<float> readSamples(const std::string& path, std::size_t count) {
  std::vector<float> samples(count);
  const auto bytes = static_cast<std::streamsize>(count * sizeof(float));
  std::ifstream file(platform::pathFromUtf8(path), std::ios::binary);
  if (!file.read(reinterpret_cast<char*>(samples.data()), bytes))
    throw std::runtime_error("Cannot read initial file.");
  return samples;
}

void writeRawFile(const std::string& path, std::span<const std::byte> bytes) {
  platform::WholeFile file;
  if (file.open(platform::pathFromUtf8(path)) != 0 || file.write(bytes) != 0 || file.commit() != 0)
    throw std::runtime_error("Cannot write export file.");
}

}  // namespace zeph
