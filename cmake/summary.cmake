# What this configuration builds, in a few lines.
function(zephane_say name available without)
  if(${available})
    message(STATUS "  ${name}: yes")
  else()
    message(STATUS "  ${name}: no (${without})")
  endif()
endfunction()

message(STATUS "Zephane ${PROJECT_VERSION}, ${CMAKE_BUILD_TYPE}")
zephane_say("NVIDIA GPUs" ZEPHANE_CUDA_FOUND "${ZEPHANE_CUDA_LACK}")
zephane_say("unit tests" GTest_FOUND "GoogleTest was not found or is switched off")
zephane_say("benchmark" benchmark_FOUND "Google Benchmark was not found or is switched off")
zephane_say("fuzz target" ZEPHANE_FUZZ "ZEPHANE_FUZZ is off")
