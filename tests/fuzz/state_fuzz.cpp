// Feeds arbitrary bytes to the reader of state files. An input that begins with a brace is the text
// of a header, which gets its length, its checksum and arrays of zeros, so that what is behind the
// checks is reached as well; any other is a whole file. A state that is accepted starts a flow.
#include <cstdint>
#include <cstring>
#include <sstream>
#include <stdexcept>
#include <string>

#include "solver/solver.h"
#include "solver/state_file.h"
#include "solver/state_header.h"
#include "tests/fuzz/fuzzing.h"

namespace {

using namespace zeph::fuzz;

constexpr int corpusGrid = 16;

std::string fileOf(std::string header) {
  zeph::Config config;
  config.resolution = corpusGrid;
  zeph::sealStateHeader(header);
  const std::uint64_t length = header.size();
  std::string file(sizeof(length), '\0');
  std::memcpy(file.data(), &length, sizeof(length));
  return file + header + std::string(2 * zeph::stateArrayBytes(config), '\0');
}

void start(const zeph::StateRecord& state) {
  if (state.config.resolution > largestGrid) return;
  try {
    zeph::Solver solver(state);
    solver.advance(2);
    require(solver.state().config == state.config, "a flow keeps the configuration of its state");
  } catch (const std::exception&) {  // numbers that lead to no usable step
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::string bytes(reinterpret_cast<const char*>(data), size);
  if (bytes.starts_with('{')) bytes = fileOf(bytes);
  std::istringstream file(bytes);
  try {
    start(zeph::readState(file, bytes.size()));
  } catch (const std::runtime_error& refusal) {
    require(*refusal.what() != '\0', "a refusal has a text");
  }
  return 0;
}
