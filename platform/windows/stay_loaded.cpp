// The library is never unloaded: its threads sleep in its code.
#include <windows.h>

namespace {

bool stayLoaded() {
  HMODULE module = nullptr;
  constexpr DWORD forever = GET_MODULE_HANDLE_EX_FLAG_PIN | GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS;
  return GetModuleHandleExW(forever, reinterpret_cast<const wchar_t*>(&stayLoaded), &module) != 0;
}

[[maybe_unused]] const bool isPinned = stayLoaded();

}  // namespace
