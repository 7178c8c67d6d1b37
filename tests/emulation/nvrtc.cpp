// NVRTC's functions. Their PTX is the path of a shared library of the host.
#include <nvrtc.h>

#include <cstring>
#include <filesystem>
#include <list>
#include <stdexcept>
#include <string>

#include "device/cuda/nvrtc_library.h"
#include "tests/emulation/module_compiler.h"
#include "tests/emulation/state.h"

using namespace zeph::emulation;

struct _nvrtcProgram {
  std::string source;
  std::string log;
  std::string code;
};

namespace {

// Kept here, because VkFFT does not destroy its program after a failure.
std::list<_nvrtcProgram>& programs() {
  static std::list<_nvrtcProgram> alive;
  return alive;
}

nvrtcResult start(const char* function) {
  const std::lock_guard lock(state().mutex);
  return beginCall(function) == cudaSuccess ? NVRTC_SUCCESS : NVRTC_ERROR_INTERNAL_ERROR;
}

nvrtcResult give(const std::string& text, char* to) {
  std::memcpy(to, text.c_str(), text.size() + 1);
  return NVRTC_SUCCESS;
}

}  // namespace

extern "C" {

nvrtcResult nvrtcCreateProgram(nvrtcProgram* program, const char* source, const char*, int,
                               const char* const*, const char* const*) {
  const nvrtcResult result = start("nvrtcCreateProgram");
  if (result != NVRTC_SUCCESS) return result;
  const std::lock_guard lock(state().mutex);
  programs().push_back({source, {}, {}});
  *program = &programs().back();
  return result;
}

nvrtcResult nvrtcDestroyProgram(nvrtcProgram* program) {
  const nvrtcResult result = start("nvrtcDestroyProgram");
  const std::lock_guard lock(state().mutex);
  programs().remove_if([=](const _nvrtcProgram& alive) { return &alive == *program; });
  *program = nullptr;
  return result;
}

nvrtcResult nvrtcCompileProgram(nvrtcProgram program, int, const char* const*) {
  const nvrtcResult result = start("nvrtcCompileProgram");
  if (result != NVRTC_SUCCESS) return result;
  program->code = compileModule(program->source, program->log).string();
  return program->code.empty() ? NVRTC_ERROR_COMPILATION : NVRTC_SUCCESS;
}

nvrtcResult nvrtcGetPTXSize(nvrtcProgram program, std::size_t* bytes) {
  *bytes = program->code.size() + 1;
  return start("nvrtcGetPTXSize");
}

nvrtcResult nvrtcGetPTX(nvrtcProgram program, char* code) {
  const nvrtcResult result = start("nvrtcGetPTX");
  return result == NVRTC_SUCCESS ? give(program->code, code) : result;
}

nvrtcResult nvrtcGetProgramLogSize(nvrtcProgram program, std::size_t* bytes) {
  *bytes = program->log.size() + 1;
  return NVRTC_SUCCESS;
}

nvrtcResult nvrtcGetProgramLog(nvrtcProgram program, char* text) {
  return give(program->log, text);
}

const char* nvrtcGetErrorString(nvrtcResult) {
  return "";
}

}  // extern "C"

namespace zeph::cuda {

void requireNvrtc() {
  if (!machine().hasCompiler) throw std::runtime_error("NVRTC is missing.");
}

}  // namespace zeph::cuda
