// A Windows program that compiles one HLSL file to Direct3D bytecode:
//
//   compile_hlsl SOURCE PROFILE OUTPUT
//
// scripts/compile_direct3d_shaders builds and runs it.
#include <d3dcompiler.h>
#include <windows.h>

#include <array>
#include <bit>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <utility>

namespace {

// A container begins with its name and a checksum of all that follows the checksum.
constexpr std::size_t checksumPlace = 4;
constexpr std::size_t checkedPlace = 20;

using Words = std::array<std::uint32_t, 4>;

// One block of MD5 (RFC 1321, section 3.4).
void addBlock(Words& state, const char* block) {
  constexpr int turns[4][4] = {{7, 12, 17, 22}, {5, 9, 14, 20}, {4, 11, 16, 23}, {6, 10, 15, 21}};
  std::array<std::uint32_t, 16> x;
  std::memcpy(x.data(), block, sizeof(x));
  auto [a, b, c, d] = state;
  for (unsigned i = 0; i < 64; ++i) {
    const unsigned round = i / 16;
    const std::uint32_t mixed[] = {(b & c) | (~b & d), (b & d) | (c & ~d), b ^ c ^ d, c ^ (b | ~d)};
    const unsigned taken[] = {i, 5 * i + 1, 3 * i + 5, 7 * i};
    const auto t = static_cast<std::uint32_t>(std::floor(std::fabs(std::sin(i + 1.0)) * 0x1p32));
    const std::uint32_t sum = a + mixed[round] + x[taken[round] % 16] + t;
    a = std::exchange(d,
                      std::exchange(c, std::exchange(b, b + std::rotl(sum, turns[round][i % 4]))));
  }
  const Words added = {a, b, c, d};
  for (std::size_t k = 0; k < 4; ++k) state[k] += added[k];
}

// MD5 but for its end: the last block begins with the length in bits and ends with another form of
// it.
Words checksumOf(const std::string& container) {
  Words state = {0x67452301, 0xefcdab89, 0x98badcfe, 0x10325476};
  const std::string bytes = container.substr(checkedPlace);
  const auto bits = static_cast<std::uint32_t>(8 * bytes.size());
  const std::uint32_t last = bits >> 2 | 1;
  const std::size_t whole = bytes.size() / 64 * 64;
  for (std::size_t at = 0; at < whole; at += 64) addBlock(state, &bytes[at]);
  std::string rest = bytes.substr(whole);
  if (rest.size() >= 56) {
    rest += '\x80';
    rest.resize(64);
    addBlock(state, rest.data());
    rest.clear();
    rest.resize(4);
  } else {
    rest = std::string(4, '\0') + rest + '\x80';
  }
  std::memcpy(rest.data(), &bits, 4);
  rest.resize(64);
  std::memcpy(&rest[60], &last, 4);
  addBlock(state, rest.data());
  return state;
}

bool hasItsChecksum(const std::string& container) {
  const Words checksum = checksumOf(container);
  return std::memcmp(&container[checksumPlace], checksum.data(), sizeof(checksum)) == 0;
}

// Wine's compiler gives the part with the program the name of earlier shader models.
void renameProgram(std::string& container) {
  std::uint32_t parts = 0;
  std::memcpy(&parts, &container[28], 4);
  for (std::uint32_t part = 0; part < parts; ++part) {
    std::uint32_t at = 0;
    std::memcpy(&at, &container[32 + 4 * part], 4);
    if (container.compare(at, 4, "SHDR") == 0) container.replace(at, 4, "SHEX");
  }
  const Words checksum = checksumOf(container);
  std::memcpy(&container[checksumPlace], checksum.data(), sizeof(checksum));
}

}  // namespace

int wmain(int count, wchar_t** words) {
  if (count != 4) return 2;
  const std::string profile = std::filesystem::path(words[2]).string();
  ID3DBlob* code = nullptr;
  ID3DBlob* messages = nullptr;
  const HRESULT result =
      D3DCompileFromFile(words[1], nullptr, D3D_COMPILE_STANDARD_FILE_INCLUDE, "main",
                         profile.c_str(), D3DCOMPILE_OPTIMIZATION_LEVEL3, 0, &code, &messages);
  if (messages != nullptr) std::fputs(static_cast<char*>(messages->GetBufferPointer()), stderr);
  if (FAILED(result)) {
    std::fprintf(stderr, "D3DCompileFromFile: 0x%lx\n", static_cast<unsigned long>(result));
    return 1;
  }
  std::string container(static_cast<char*>(code->GetBufferPointer()), code->GetBufferSize());
  if (!hasItsChecksum(container)) {
    std::fputs("The compiler's checksum is not the expected one.\n", stderr);
    return 1;
  }
  renameProgram(container);
  std::ofstream file(std::filesystem::path(words[3]), std::ios::binary);
  file << container;
  return file.flush() ? 0 : 1;
}
