# The part of the system that runs on NVIDIA GPUs. It needs nvcc, the toolkit's headers and VkFFT's
# headers; if something is missing, the library is built without it.
#
# CUDA's runtime is linked in where the toolkit has a static one for the system. Where it has none,
# which is so for Windows with GCC, the library does with the driver alone (device/cuda/driver).
#
# ZEPHANE_CUDA_FOUND says whether it is built; zephane_cuda(TARGET) adds it to a target.

option(ZEPHANE_CUDA_DRIVER "Do without CUDA's runtime: call the driver alone" ${WIN32})

# The toolkit of this machine serves a build for another system too: nvcc compiles for GPUs alone,
# and the headers are the same.
function(zephane_find_toolkit)
  find_program(CUDAToolkit_NVCC_EXECUTABLE nvcc PATHS /usr/local/cuda/bin /opt/cuda/bin)
  get_filename_component(nvcc "${CUDAToolkit_NVCC_EXECUTABLE}" REALPATH)
  get_filename_component(folder "${nvcc}/../../include" ABSOLUTE)
  set(version 0)
  if(EXISTS ${folder}/cuda.h)
    file(STRINGS ${folder}/cuda.h line REGEX "^#define CUDA_VERSION [0-9]+")
    string(REGEX MATCH "[0-9]+$" version "${line}")
  endif()
  set(CUDAToolkit_FOUND FALSE PARENT_SCOPE)
  if(version GREATER_EQUAL 12080)
    set(CUDAToolkit_FOUND TRUE PARENT_SCOPE)
    set(CUDAToolkit_INCLUDE_DIRS ${folder} PARENT_SCOPE)
  endif()
endfunction()

# Links to VkFFT's headers, since the folder they are in has those of this machine's system too.
function(zephane_link_vkfft)
  find_path(ZEPHANE_VKFFT_OF_THIS_MACHINE vkFFT.h PATH_SUFFIXES vkFFT PATHS /usr/include
            /usr/local/include NO_CMAKE_FIND_ROOT_PATH)
  if(ZEPHANE_VKFFT_OF_THIS_MACHINE)
    set(alone ${PROJECT_BINARY_DIR}/headers/vkFFT)
    file(MAKE_DIRECTORY ${alone})
    file(GLOB parts RELATIVE ${ZEPHANE_VKFFT_OF_THIS_MACHINE}
         ${ZEPHANE_VKFFT_OF_THIS_MACHINE}/vkFFT*)
    foreach(part IN LISTS parts)
      file(CREATE_LINK ${ZEPHANE_VKFFT_OF_THIS_MACHINE}/${part} ${alone}/${part} SYMBOLIC)
    endforeach()
    set(ZEPHANE_VKFFT_FOLDER ${alone} PARENT_SCOPE)
  endif()
endfunction()

set(ZEPHANE_CUDA_FOUND FALSE)
set(ZEPHANE_CUDA_LACK "ZEPHANE_CUDA is off")
if(ZEPHANE_CUDA)
  if(CMAKE_CROSSCOMPILING)
    zephane_find_toolkit()
    zephane_link_vkfft()
  else()
    find_package(CUDAToolkit 12.8 QUIET)
    find_path(ZEPHANE_VKFFT_FOLDER vkFFT.h PATH_SUFFIXES vkFFT)
  endif()
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
  set(sources ${folder}/toolkit_functions.cpp ${folder}/nvrtc_library.cpp
              ${folder}/kernel_image.cpp)
  if(ZEPHANE_CUDA_DRIVER)
    file(GLOB runtime CONFIGURE_DEPENDS ${folder}/driver/*.cpp)
    list(APPEND sources ${runtime})
  endif()
  add_library(zephane_toolkit OBJECT ${sources})
  set_source_files_properties(
    ${folder}/kernel_image.cpp PROPERTIES COMPILE_DEFINITIONS ZEPHANE_KERNEL_IMAGE="${image}"
                                          OBJECT_DEPENDS ${image})
  target_include_directories(zephane_toolkit SYSTEM PRIVATE ${CUDAToolkit_INCLUDE_DIRS})
  target_link_libraries(zephane_toolkit PUBLIC zephane_flags)
  if(NOT ZEPHANE_CUDA_DRIVER)
    target_link_libraries(zephane_toolkit PUBLIC CUDA::cudart_static)
  endif()
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
