// The raw files that a host names: starting fields, spectra and fields, with no header and in the
// machine's own little-endian floats. Paths are UTF-8 text.
#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <vector>

namespace zeph {

// The N * N samples of a starting field, or none where the path is empty. Their values are not
// checked. Raises std::runtime_error.
std::vector<float> loadInitialFile(int resolution, const std::string& path);

// Exactly `count` floats from the start of a file. Raises std::runtime_error if the file has become
// shorter since its size was read.
std::vector<float> readSamples(const std::string& path, std::size_t count);

// Replaces the file as a whole, or leaves it as it was and raises std::runtime_error.
void writeRawFile(const std::string& path, std::span<const std::byte> bytes);

template <class Element>
void writeRawFile(const std::string& path, const std::vector<Element>& elements) {
  writeRawFile(path, std::as_bytes(std::span(elements)));
}

}  // namespace zeph
