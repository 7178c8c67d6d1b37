// A library of NVRTC's name that compiles nothing.
#include <nvrtc.h>

#include <cstddef>

#define EXPORTED extern "C" __declspec(dllexport)

EXPORTED nvrtcResult nvrtcCreateProgram(nvrtcProgram* program, const char*, const char*, int,
                                        const char* const*, const char* const*) {
  *program = nullptr;
  return NVRTC_SUCCESS;
}

EXPORTED nvrtcResult nvrtcCompileProgram(nvrtcProgram, int, const char* const*) {
  return NVRTC_ERROR_COMPILATION;
}

EXPORTED nvrtcResult nvrtcGetProgramLogSize(nvrtcProgram, std::size_t* bytes) {
  *bytes = 1;
  return NVRTC_SUCCESS;
}

EXPORTED nvrtcResult nvrtcGetProgramLog(nvrtcProgram, char* text) {
  *text = '\0';
  return NVRTC_SUCCESS;
}

EXPORTED nvrtcResult nvrtcDestroyProgram(nvrtcProgram*) {
  return NVRTC_SUCCESS;
}
