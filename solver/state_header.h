// The header of a state file as JSON text: the configuration, the clock, the settings in force, and
// what the arrays are. The arrays themselves are the file's (state_file.h).
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "solver/state_record.h"

namespace zeph {

struct StateChecksums {
  std::uint32_t spectrum = 0;
  std::uint32_t compensation = 0;
};

struct StateHeader {
  StateRecord state;  // without its arrays
  StateChecksums checksums;
};

// The names of the arrays in the file.
inline constexpr const char* spectrumArray = "vorticity_spectrum";
inline constexpr const char* compensationArray = "compensation";

// The bytes of one array.
std::size_t stateArrayBytes(const Config& config);

// The text is filled up with blanks to a multiple of 8 bytes.
std::string formatStateHeader(const StateRecord& state, const StateChecksums& checksums);

// Raises std::runtime_error for a text that is not the header of a state, or a damaged one.
StateHeader parseStateHeader(const std::string& text);

// Raise the std::runtime_error of a file with wrong checksums, and of one that breaks the rules
// although its checksums are right.
[[noreturn]] void refuseDamaged(const std::string& part);
[[noreturn]] void refuseInvalid(const std::string& what);
[[noreturn]] void refuseForeign(const std::string& what);

// Whether a text is the beginning of a state's header, as far as it goes.
bool beginsStateHeader(std::string_view text);

// Writes the checksum of a header into the text. Nothing is done if the text has no place for it.
void sealStateHeader(std::string& text);

}  // namespace zeph
