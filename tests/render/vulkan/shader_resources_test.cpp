// The shaders that the library carries.
#include "render/shader_resources.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <set>
#include <vector>

#include "tests/boundary/failure_text.h"

namespace zeph {
namespace {

constexpr ShaderResource resources[] = {
    ShaderResource::fieldVertex,        ShaderResource::fieldPixel,
    ShaderResource::flowVertex,         ShaderResource::flowPixel,
    ShaderResource::fieldPixelOfPieces, ShaderResource::flowVertexOfPieces};

std::vector<std::uint32_t> wordsOf(ShaderResource resource) {
  const std::span<const std::byte> bytes = shaderResource(resource);
  EXPECT_EQ(bytes.size() % 4, 0u);
  std::vector<std::uint32_t> words(bytes.size() / 4);
  std::memcpy(words.data(), bytes.data(), words.size() * 4);
  return words;
}

// OpEntryPoint is instruction 15; its first operand is the stage, 0 for vertices and 4 for pixels.
std::uint32_t stageOf(const std::vector<std::uint32_t>& words) {
  for (std::size_t at = 5; at < words.size(); at += words[at] >> 16) {
    if ((words[at] & 0xffff) == 15) return words[at + 1];
    if (words[at] >> 16 == 0) break;
  }
  return 0xffffffff;
}

TEST(ShaderResources, AreSpirv) {
  for (const ShaderResource resource : resources) {
    const std::vector<std::uint32_t> words = wordsOf(resource);
    ASSERT_GT(words.size(), 5u);
    EXPECT_EQ(words[0], 0x07230203u);
    EXPECT_LE(words[1], 0x00010300u);  // 1.3, that of Vulkan 1.1
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(shaderResource(resource).data()) % 4, 0u);
  }
}

TEST(ShaderResources, EachIsOfItsStage) {
  for (const ShaderResource resource : resources) {
    const bool isVertex = resource == ShaderResource::fieldVertex ||
                          resource == ShaderResource::flowVertex ||
                          resource == ShaderResource::flowVertexOfPieces;
    EXPECT_EQ(stageOf(wordsOf(resource)), isVertex ? 0u : 4u) << static_cast<int>(resource);
  }
}

TEST(ShaderResources, AreAllDifferent) {
  std::set<std::vector<std::uint32_t>> seen;
  for (const ShaderResource resource : resources) seen.insert(wordsOf(resource));
  EXPECT_EQ(seen.size(), std::size(resources));
}

TEST(ShaderResources, ThatDoNotExistAreMissing) {
  EXPECT_EQ(failureText<std::runtime_error>([] { shaderResource(static_cast<ShaderResource>(7)); }),
            "Missing embedded application resource.");
}

}  // namespace
}  // namespace zeph
