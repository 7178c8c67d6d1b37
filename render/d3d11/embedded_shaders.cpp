// The shaders as resources of the module that holds this code.
#include <windows.h>

#include <stdexcept>

#include "render/shader_resources.h"

namespace zeph {
namespace {

HMODULE ownModule() {
  HMODULE module = nullptr;
  GetModuleHandleExW(
      GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
      reinterpret_cast<const wchar_t*>(&ownModule), &module);
  return module;
}

}  // namespace

std::span<const std::byte> shaderResource(ShaderResource resource) {
  HMODULE module = ownModule();
  HRSRC found =
      FindResourceW(module, MAKEINTRESOURCEW(static_cast<WORD>(resource)), MAKEINTRESOURCEW(10));
  if (found == nullptr) throw std::runtime_error("Missing embedded application resource.");
  HGLOBAL loaded = LoadResource(module, found);
  const void* code = loaded != nullptr ? LockResource(loaded) : nullptr;
  if (code == nullptr) throw std::runtime_error("Cannot load embedded application resource.");
  return {static_cast<const std::byte*>(code), SizeofResource(module, found)};
}

}  // namespace zeph
