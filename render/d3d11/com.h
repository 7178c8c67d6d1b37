// COM as the renderer uses it.
#pragma once

#include <objbase.h>
#include <wrl/client.h>

#include <string_view>

#include "render/failure.h"

namespace zeph::d3d11 {

using Microsoft::WRL::ComPtr;

inline void check(HRESULT result, std::string_view step) {
  checkResult(static_cast<std::int32_t>(result), step);
}

// Another interface of the same object.
template <class Wanted, class Present>
ComPtr<Wanted> query(const ComPtr<Present>& object, std::string_view step) {
  ComPtr<Wanted> wanted;
  check(object.As(&wanted), step);
  return wanted;
}

// The calling thread may use COM while this lives. A thread that the host has given to an apartment
// of its own stays in it.
class ComUse {
 public:
  ComUse() : result_(CoInitializeEx(nullptr, COINIT_MULTITHREADED)) {
    if (result_ != RPC_E_CHANGED_MODE) check(result_, "Initialize COM");
  }
  ~ComUse() {
    if (SUCCEEDED(result_)) CoUninitialize();
  }
  ComUse(const ComUse&) = delete;
  ComUse& operator=(const ComUse&) = delete;

 private:
  HRESULT result_;
};

}  // namespace zeph::d3d11
