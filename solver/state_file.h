// The state of a flow as a file, in the safetensors layout: the length of a header, the header as
// JSON text, and the arrays as little-endian floats. Paths are UTF-8 text.
#pragma once

#include <cstdint>
#include <istream>
#include <string>

#include "solver/state_record.h"

namespace zeph {

// Replaces the file as a whole, or leaves it as it was and raises std::runtime_error.
void writeStateFile(const std::string& path, const StateRecord& state);

// Raises std::runtime_error for a file that cannot be read or is not a whole state.
StateRecord readStateFile(const std::string& path);

// The same for a file of `bytes` bytes that is open.
StateRecord readState(std::istream& file, std::uint64_t bytes);

}  // namespace zeph
