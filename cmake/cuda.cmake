# The part of the system that runs on NVIDIA GPUs. It needs nvcc, the toolkit's headers and its
# static runtime, and VkFFT's headers; if something is missing, the library is built without it.
#
# ZEPHANE_CUDA_FOUND says whether it is built; zephane_cuda(TARGET) adds it to a target.

set(ZEPHANE_CUDA_FOUND FALSE)
set(ZEPHANE_CUDA_LACK "ZEPHANE_CUDA is off")
if(ZEPHANE_CUDA)
  find_package(CUDAToolkit 12.8 QUIET)
  find_path(ZEPHANE_VKFFT_FOLDER vkFFT.h PATH_SUFFIXES vkFFT)
  if(NOT CUDAToolkit_FOUND OR NOT CUDAToolkit_NVCC_EXECUTABLE)
    set(ZEPHANE_CUDA_LACK "the CUDA toolkit, 12.8 or later, was not found")
  elseif(NOT ZEPHANE_VKFFT_FOLDER)
    set(ZEPHANE_CUDA_LACK "VkFFT's headers were not found")
  else()
    set(ZEPHANE_CUDA_FOUND TRUE)
  endif()
endif()

# Machine code for these kinds of GPU, and PTX for the first, which newer kinds can run too.
set(ZEPHANE_CUDA_ARCHITECTURES 75 80 86 89 90 120)
list(GET ZEPHANE_CUDA_ARCHITECTURES 0 ZEPHANE_OLDEST_GPU)
set(ZEPHANE_NVCC_FLAGS -std=c++20 --fmad=false --expt-relaxed-constexpr --no-compress
                       -I${PROJECT_SOURCE_DIR})

# Compiles the kernels for all architectures into one file.
function(zephane_kernel_image image)
  set(source ${PROJECT_SOURCE_DIR}/kernels/cuda/kernels.cu)
  set(codes "")
  list(APPEND codes -gencode
       arch=compute_${ZEPHANE_OLDEST_GPU},code=compute_${ZEPHANE_OLDEST_GPU})
  foreach(architecture IN LISTS ZEPHANE_CUDA_ARCHITECTURES)
    list(APPEND codes -gencode arch=compute_${architecture},code=sm_${architecture})
  endforeach()
  file(GLOB bodies CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/kernels/*.h
       ${PROJECT_SOURCE_DIR}/kernels/bodies/*.h)
  add_custom_command(
    OUTPUT ${image}
    COMMAND ${CUDAToolkit_NVCC_EXECUTABLE} ${ZEPHANE_NVCC_FLAGS} ${codes} -fatbin ${source} -o
            ${image}
    DEPENDS ${source} ${bodies}
    COMMENT "Compiling the kernels for GPUs"
    VERBATIM)
endfunction()

# The CUDA functions that the target calls are in a library of their own, so that a test can replace
# them.
function(zephane_toolkit)
  set(folder ${PROJECT_SOURCE_DIR}/device/cuda)
  set(image ${PROJECT_BINARY_DIR}/kernels.fatbin)
  zephane_kernel_image(${image})
  add_library(zephane_toolkit OBJECT ${folder}/toolkit_functions.cpp ${folder}/nvrtc_library.cpp
                                     ${folder}/kernel_image.cpp)
  set_source_files_properties(
    ${folder}/kernel_image.cpp PROPERTIES COMPILE_DEFINITIONS ZEPHANE_KERNEL_IMAGE="${image}"
                                          OBJECT_DEPENDS ${image})
  target_include_directories(zephane_toolkit SYSTEM PRIVATE ${CUDAToolkit_INCLUDE_DIRS})
  target_link_libraries(zephane_toolkit PUBLIC zephane_flags CUDA::cudart_static)
  target_sources(zephane_toolkit INTERFACE $<TARGET_OBJECTS:zephane_toolkit>)
endfunction()

function(zephane_cuda target)
  zephane_toolkit()
  file(GLOB sources CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/device/cuda/*.cpp)
  list(FILTER sources EXCLUDE REGEX "/(toolkit_functions|nvrtc_library|kernel_image)\\.cpp$")
  target_sources(${target} PRIVATE ${sources})
  target_include_directories(${target} SYSTEM PRIVATE ${ZEPHANE_VKFFT_FOLDER}
                                                      ${CUDAToolkit_INCLUDE_DIRS})
  set_source_files_properties(${PROJECT_SOURCE_DIR}/device/cuda/vkfft_transform.cpp
                              PROPERTIES COMPILE_DEFINITIONS VKFFT_BACKEND=1)
  set_source_files_properties(${PROJECT_SOURCE_DIR}/device/cuda/devices.cpp
                              PROPERTIES COMPILE_DEFINITIONS
                                         ZEPHANE_OLDEST_GPU=${ZEPHANE_OLDEST_GPU})
  target_compile_definitions(${target} PUBLIC ZEPHANE_CUDA=1)
  target_link_libraries(${target} INTERFACE zephane_toolkit)
endfunction()
