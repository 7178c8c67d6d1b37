// The compiled shaders, embedded in the library.
#pragma once

#include <cstddef>
#include <span>

namespace zeph {

enum class ShaderResource {
  fieldVertex = 101,
  fieldPixel = 102,
  flowVertex = 103,
  flowPixel = 104,
  // Variants of the two that read the field, for a field in several buffers.
  fieldPixelOfPieces = 112,
  flowVertexOfPieces = 113,
  // The interface, where the processor draws it into memory.
  interfaceVertex = 121,
  interfacePixel = 122,
};

// Raises std::runtime_error if there is no such resource.
std::span<const std::byte> shaderResource(ShaderResource resource);

}  // namespace zeph
