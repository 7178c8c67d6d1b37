// The shaders' bytecode in the resources of the module.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <set>
#include <string>

#include "render/shader_resources.h"
#include "tests/boundary/failure_text.h"

namespace zeph {
namespace {

constexpr ShaderResource resources[] = {ShaderResource::fieldVertex, ShaderResource::fieldPixel,
                                        ShaderResource::flowVertex, ShaderResource::flowPixel};

std::uint32_t wordAt(std::span<const std::byte> bytes, std::size_t at) {
  std::uint32_t word = 0;
  if (at + sizeof(word) <= bytes.size()) std::memcpy(&word, &bytes[at], sizeof(word));
  return word;
}

// A container begins with its name, a checksum, 1, its length, and the number and places of its
// parts. The first word of the part with the program is its kind and its version.
std::uint32_t programOf(std::span<const std::byte> bytes) {
  const std::uint32_t parts = wordAt(bytes, 28);
  for (std::uint32_t part = 0; part < parts; ++part) {
    const std::uint32_t at = wordAt(bytes, 32 + 4 * part);
    if (std::memcmp(&bytes[at], "SHEX", 4) == 0) return wordAt(bytes, at + 8);
  }
  return 0;
}

TEST(EmbeddedShaders, AreWholeContainersOfShaderModelFive) {
  for (const ShaderResource resource : resources) {
    const std::span<const std::byte> bytes = shaderResource(resource);
    ASSERT_GT(bytes.size(), 32u);
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(bytes.data()), 4), "DXBC");
    EXPECT_EQ(wordAt(bytes, 24), bytes.size());
    const bool isVertex =
        resource == ShaderResource::fieldVertex || resource == ShaderResource::flowVertex;
    EXPECT_EQ(programOf(bytes), isVertex ? 0x00010050u : 0x00000050u) << static_cast<int>(resource);
  }
}

TEST(EmbeddedShaders, AreAllDifferent) {
  std::set<std::string> seen;
  for (const ShaderResource resource : resources) {
    const std::span<const std::byte> bytes = shaderResource(resource);
    seen.emplace(reinterpret_cast<const char*>(bytes.data()), bytes.size());
  }
  EXPECT_EQ(seen.size(), std::size(resources));
}

TEST(EmbeddedShaders, ThatDoNotExistAreMissing) {
  EXPECT_EQ(failureText<std::runtime_error>([] { shaderResource(static_cast<ShaderResource>(7)); }),
            "Missing embedded application resource.");
}

}  // namespace
}  // namespace zeph
