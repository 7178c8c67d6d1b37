#include "solver/state_file.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <span>
#include <stdexcept>
#include <system_error>

#include "platform/system.h"
#include "platform/whole_file.h"
#include "solver/checksum.h"
#include "solver/state_header.h"

namespace zeph {
namespace {

constexpr std::uint64_t longestHeader = 1 << 20;  // bytes; this library's have about a thousand

[[noreturn]] void cannotRead(const std::string& why) {
  throw std::runtime_error("Cannot read state file: " + why);
}

[[noreturn]] void refuseTruncated(const std::string& what) {
  throw std::runtime_error("State file is truncated: " + what);
}

class StateReader {
 public:
  StateReader(std::istream& file, std::uint64_t size) : file_(file), size_(size) {}
  StateRecord read();

 private:
  void take(void* to, std::uint64_t bytes);
  std::string takeHeader();
  std::vector<V2> takeArray(const char* name, const Config& config, std::uint32_t checksum);

  std::istream& file_;
  std::uint64_t size_;
};

void StateReader::take(void* to, std::uint64_t bytes) {
  if (!file_.read(static_cast<char*>(to), static_cast<std::streamsize>(bytes)))
    cannotRead("it cannot be opened, or has become shorter.");
}

std::string StateReader::takeHeader() {
  std::uint64_t length = 0;
  if (size_ < sizeof(length)) refuseForeign("it is too short");
  take(&length, sizeof(length));
  const std::uint64_t left = size_ - sizeof(length);
  if (length > longestHeader) refuseForeign("it has no header");
  std::string text(std::min(length, left), '\0');
  take(text.data(), text.size());
  if (length > left && beginsStateHeader(text)) refuseTruncated("it ends within its header.");
  return text;
}

std::vector<V2> StateReader::takeArray(const char* name, const Config& config,
                                       std::uint32_t checksum) {
  const std::string quoted = std::string("\"") + name + "\"";
  std::vector<V2> array(stateArrayBytes(config) / sizeof(V2));
  take(array.data(), array.size() * sizeof(V2));
  if (crc32(std::as_bytes(std::span(array))) != checksum) refuseDamaged(quoted);
  const auto isFinite = [](V2 value) { return std::isfinite(value.re) && std::isfinite(value.im); };
  if (!std::all_of(array.begin(), array.end(), isFinite))
    refuseInvalid(quoted + " has a number that is not finite");
  return array;
}

StateRecord StateReader::read() {
  const std::string text = takeHeader();
  StateHeader header = parseStateHeader(text);
  StateRecord& state = header.state;
  const std::uint64_t end =
      sizeof(std::uint64_t) + text.size() + 2 * std::uint64_t{stateArrayBytes(state.config)};
  const std::string sizes = std::to_string(size_) + " of " + std::to_string(end) + " bytes.";
  if (size_ < end) refuseTruncated("it has " + sizes);
  if (size_ > end) throw std::runtime_error("State file is too long: it has " + sizes);
  state.omega = takeArray(spectrumArray, state.config, header.checksums.spectrum);
  state.correction = takeArray(compensationArray, state.config, header.checksums.compensation);
  return std::move(state);
}

}  // namespace

void writeStateFile(const std::string& path, const StateRecord& state) {
  const auto spectrum = std::as_bytes(std::span(state.omega));
  const auto compensation = std::as_bytes(std::span(state.correction));
  const StateChecksums checksums = {.spectrum = crc32(spectrum),
                                    .compensation = crc32(compensation)};
  const std::string text = formatStateHeader(state, checksums);
  const std::uint64_t length = text.size();

  platform::WholeFile file;
  const bool written = file.open(platform::pathFromUtf8(path)) == 0 &&
                       file.write(std::as_bytes(std::span(&length, 1))) == 0 &&
                       file.write(std::as_bytes(std::span(text))) == 0 &&
                       file.write(spectrum) == 0 && file.write(compensation) == 0 &&
                       file.commit() == 0;
  if (!written) throw std::runtime_error("Cannot write export file.");
}

StateRecord readState(std::istream& file, std::uint64_t bytes) {
  return StateReader(file, bytes).read();
}

StateRecord readStateFile(const std::string& path) {
  const std::filesystem::path native = platform::pathFromUtf8(path);
  std::error_code error;
  const std::uint64_t bytes = std::filesystem::file_size(native, error);
  if (error) cannotRead(error.message() + ": \"" + path + "\"");
  std::ifstream file(native, std::ios::binary);
  return readState(file, bytes);
}

}  // namespace zeph
