// The compiled shaders, resources of the library itself.
#pragma once

#include <cstddef>
#include <span>

namespace zeph {

enum class ShaderResource {
  fieldVertex = 101,
  fieldPixel = 102,
  flowVertex = 103,
  flowPixel = 104,
  // The two that read the field, for a field in pieces.
  fieldPixelOfPieces = 112,
  flowVertexOfPieces = 113,
  // The interface, where it is drawn into memory.
  interfaceVertex = 121,
  interfacePixel = 122,
};

// Raises std::runtime_error for a number that there is no resource for.
std::span<const std::byte> shaderResource(ShaderResource resource);

}  // namespace zeph
