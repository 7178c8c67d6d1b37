// A Windows program that compiles one HLSL file to Direct3D bytecode:
//
//   compile SOURCE PROFILE OUTPUT
//
// scripts/compile_direct3d_shaders builds and runs it.
#include <d3dcompiler.h>
#include <windows.h>

#include <cstdio>
#include <filesystem>
#include <fstream>

int wmain(int count, wchar_t** words) {
  if (count != 4) return 2;
  const std::string profile = std::filesystem::path(words[2]).string();
  ID3DBlob* code = nullptr;
  ID3DBlob* messages = nullptr;
  const HRESULT result = D3DCompileFromFile(words[1], nullptr, D3D_COMPILE_STANDARD_FILE_INCLUDE,
                                            "main", profile.c_str(),
                                            D3DCOMPILE_OPTIMIZATION_LEVEL3, 0, &code, &messages);
  if (messages != nullptr) std::fputs(static_cast<char*>(messages->GetBufferPointer()), stderr);
  if (FAILED(result)) {
    std::fprintf(stderr, "D3DCompileFromFile: 0x%lx\n", static_cast<unsigned long>(result));
    return 1;
  }
  std::ofstream file(std::filesystem::path(words[3]), std::ios::binary);
  file.write(static_cast<char*>(code->GetBufferPointer()),
             static_cast<std::streamsize>(code->GetBufferSize()));
  return file.flush() ? 0 : 1;
}
