// A kernel as a launch needs it: how to call it, and the sizes of its arguments.
#pragma once

#include <cstddef>
#include <utility>

namespace zeph::emulation {

struct KernelFunction {
  const char* name;
  void (*call)(void** arguments);  // their addresses
  const std::size_t* sizes;        // of the arguments, in bytes
  std::size_t count;
};

template <auto kernel, class Signature = decltype(kernel)>
struct FunctionOf;

template <auto kernel, class... Arguments>
struct FunctionOf<kernel, void (*)(Arguments...)> {
  static constexpr std::size_t count = sizeof...(Arguments);
  static constexpr std::size_t sizes[count + 1] = {sizeof(Arguments)...};

  static void call(void** arguments) {
    callWith(arguments, std::index_sequence_for<Arguments...>());
  }

 private:
  template <std::size_t... at>
  static void callWith(void** arguments, std::index_sequence<at...>) {
    kernel(*static_cast<Arguments*>(arguments[at])...);
  }
};

template <auto kernel>
constexpr KernelFunction functionOf(const char* name) {
  using Function = FunctionOf<kernel>;
  return {name, Function::call, Function::sizes, Function::count};
}

}  // namespace zeph::emulation
