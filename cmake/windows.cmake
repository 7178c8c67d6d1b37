# What is special to a build for Windows, with GCC from MinGW-w64.

# The library and its programs need nothing that Windows lacks.
target_link_options(zephane_flags INTERFACE -static)
# Windows 10, whose headers then leave out what we never use and the macros min and max.
target_compile_definitions(zephane_flags INTERFACE _WIN32_WINNT=0x0A00 UNICODE NOMINMAX
                                                   WIN32_LEAN_AND_MEAN)
# Windows aligns the stack to 16 bytes, and GCC takes its own 32 and 64 bytes for granted (GCC bug
# 54412). So the assembler turns every aligned move of a vector into an unaligned one.
target_compile_options(zephane_flags INTERFACE -Wa,-muse-unaligned-vector-move)

# Headers of this machine must be found without the rest of /usr/include. A package that is headers
# alone is used through a link to its folder.
function(zephane_headers_of target folder)
  if(NOT CMAKE_CROSSCOMPILING)
    return()
  endif()
  get_target_property(include ${target} INTERFACE_INCLUDE_DIRECTORIES)
  list(GET include 0 include)
  set(alone ${PROJECT_BINARY_DIR}/headers)
  file(MAKE_DIRECTORY ${alone})
  file(CREATE_LINK ${include}/${folder} ${alone}/${folder} SYMBOLIC)
  set_target_properties(${target} PROPERTIES INTERFACE_INCLUDE_DIRECTORIES ${alone})
endfunction()

# The system's libraries that are linked with the parts in platform/windows.
function(zephane_windows target)
  target_link_libraries(${target} INTERFACE winmm comdlg32)
endfunction()

# GoogleTest, built from the sources that Debian's package googletest installs.
function(zephane_googletest)
  set(folder /usr/src/googletest)
  if(EXISTS ${folder}/CMakeLists.txt)
    set(BUILD_GMOCK OFF)
    set(INSTALL_GTEST OFF)
    add_subdirectory(${folder} ${PROJECT_BINARY_DIR}/googletest EXCLUDE_FROM_ALL SYSTEM)
    set(GTest_FOUND TRUE PARENT_SCOPE)
  endif()
endfunction()
