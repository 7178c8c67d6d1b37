#include "render/shader_resources.h"

#include <stdexcept>

// The SPIR-V that the build compiles from render/shaders.
#define EMBED(name)                                  \
  asm(".section .rodata\n"                           \
      ".balign 16\n"                                 \
      "zephaneShader_" #name                         \
      ":\n"                                          \
      ".incbin \"" ZEPHANE_SHADERS "/" #name         \
      ".spv\"\n"                                     \
      "zephaneShader_" #name                         \
      "_end:\n"                                      \
      ".previous\n");                                \
  extern "C" const std::byte zephaneShader_##name[]; \
  extern "C" const std::byte zephaneShader_##name##_end[];

EMBED(field_vertex)
EMBED(field_pixel)
EMBED(flow_vertex)
EMBED(flow_pixel)
EMBED(field_pixel_of_pieces)
EMBED(flow_vertex_of_pieces)
EMBED(interface_vertex)
EMBED(interface_pixel)

namespace zeph {

#define RESOURCE(name) std::span(zephaneShader_##name, zephaneShader_##name##_end)

std::span<const std::byte> shaderResource(ShaderResource resource) {
  switch (resource) {
    case ShaderResource::fieldVertex:
      return RESOURCE(field_vertex);
    case ShaderResource::fieldPixel:
      return RESOURCE(field_pixel);
    case ShaderResource::flowVertex:
      return RESOURCE(flow_vertex);
    case ShaderResource::flowPixel:
      return RESOURCE(flow_pixel);
    case ShaderResource::fieldPixelOfPieces:
      return RESOURCE(field_pixel_of_pieces);
    case ShaderResource::flowVertexOfPieces:
      return RESOURCE(flow_vertex_of_pieces);
    case ShaderResource::interfaceVertex:
      return RESOURCE(interface_vertex);
    case ShaderResource::interfacePixel:
      return RESOURCE(interface_pixel);
  }
  throw std::runtime_error("Missing embedded application resource.");
}

}  // namespace zeph
