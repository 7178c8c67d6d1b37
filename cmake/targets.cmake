# How the system's targets are made.
#
# A folder's sources are its *.cpp files. A file FILE.isa.cpp is compiled once for each vector
# instruction set; ZEPH_ISA is then the namespace of its code and ZEPH_VECTOR_WIDTH the width of a
# vector in floats. Everything it defines outside that namespace has internal linkage, so that no
# machine ever runs code of a set that it lacks.

add_library(zephane_flags INTERFACE)
target_compile_options(zephane_flags INTERFACE -Wall -Wextra -Wpedantic -Wshadow -Wconversion
                                               -ffp-contract=off)
target_include_directories(zephane_flags INTERFACE ${PROJECT_SOURCE_DIR})
target_compile_definitions(zephane_flags INTERFACE ZEPHANE_VERSION="${PROJECT_VERSION}")
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
  # False alarms about std::string operator+ (GCC bug 105651).
  target_compile_options(zephane_flags INTERFACE -Wno-restrict)
endif()
if(ZEPHANE_WERROR)
  target_compile_options(zephane_flags INTERFACE -Werror)
endif()
if(ZEPHANE_SANITIZE)
  target_compile_options(zephane_flags INTERFACE -fsanitize=${ZEPHANE_SANITIZE}
                                                 -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_link_options(zephane_flags INTERFACE -fsanitize=${ZEPHANE_SANITIZE})
endif()

function(zephane_objects target)
  set(sources "")
  foreach(folder IN LISTS ARGN)
    file(GLOB found CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/${folder}/*.cpp)
    list(APPEND sources ${found})
  endforeach()
  list(FILTER sources EXCLUDE REGEX "(\\.isa|/exports)\\.cpp$")
  add_library(${target} OBJECT ${sources})
  target_link_libraries(${target} PUBLIC zephane_flags)
endfunction()

set(ZEPHANE_FLAGS_sse2 -msse2)
set(ZEPHANE_FLAGS_avx2 -mavx2 -mtune=haswell)
set(ZEPHANE_FLAGS_avx512 -mavx512f -mavx512dq -mavx512bw -mavx512vl -mprefer-vector-width=512
                         -mtune=icelake-server)
set(ZEPHANE_VECTOR_WIDTH_sse2 4)
set(ZEPHANE_VECTOR_WIDTH_avx2 8)
set(ZEPHANE_VECTOR_WIDTH_avx512 16)

function(zephane_instruction_sets target)
  foreach(folder IN LISTS ARGN)
    file(GLOB found CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/${folder}/*.isa.cpp)
    list(APPEND sources ${found})
  endforeach()
  if(ZEPHANE_FUZZ)
    # Hostile requests end long before the numerics, which take minutes to compile with sanitizers.
    set_source_files_properties(${sources} PROPERTIES COMPILE_OPTIONS -fno-sanitize=all)
  endif()
  foreach(set sse2 avx2 avx512)
    add_library(${target}_${set} OBJECT ${sources})
    target_link_libraries(${target}_${set} PRIVATE zephane_flags)
    target_compile_definitions(
      ${target}_${set} PRIVATE ZEPH_ISA=${set} ZEPH_VECTOR_WIDTH=${ZEPHANE_VECTOR_WIDTH_${set}})
    # GCC vectorises some loops only if it may do operations whose result is then discarded, which
    # these options allow. They change no result.
    target_compile_options(${target}_${set} PRIVATE ${ZEPHANE_FLAGS_${set}} -fno-math-errno
                                                    -fno-trapping-math)
    if(ZEPHANE_SANITIZE MATCHES "address")
      # Their many short-lived vectors would take minutes to compile.
      target_compile_options(${target}_${set} PRIVATE -fno-sanitize-address-use-after-scope)
    endif()
    target_sources(${target} INTERFACE $<TARGET_OBJECTS:${target}_${set}>)
  endforeach()
  target_sources(${target} INTERFACE $<TARGET_OBJECTS:${target}>)
endfunction()

function(zephane_library target core)
  add_library(${target} SHARED boundary/exports.cpp)
  target_link_libraries(${target} PRIVATE ${core})
  set_target_properties(${target} PROPERTIES LIBRARY_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}
                                             RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}
                                             ARCHIVE_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR})
  if(WIN32)
    # zephane.dll. The header marks what it exports.
    set_target_properties(${target} PROPERTIES PREFIX "")
    target_link_options(${target} PRIVATE -Wl,--exclude-all-symbols)
  else()
    zephane_shared_object(${target})
  endif()
endfunction()

function(zephane_shared_object target)
  set(map ${PROJECT_SOURCE_DIR}/boundary/exports.map)
  # Never unloaded: the library's threads sleep in its code.
  target_link_options(${target} PRIVATE -Wl,--version-script=${map} -Wl,-z,nodelete)
  # SOVERSION is the version of the interface, which zp_initialize() reports as "abi_version".
  set_target_properties(${target} PROPERTIES SOVERSION 1 LINK_DEPENDS ${map})
  if(NOT ZEPHANE_SANITIZE)
    # The library must run on machines whose C++ library is older, or missing. (The sanitizers'
    # symbols come from the process that loads it.)
    target_link_options(${target} PRIVATE -Wl,--no-undefined -static-libstdc++ -static-libgcc)
  endif()
endfunction()
