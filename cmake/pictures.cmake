# The renderer. On Linux it needs Vulkan's, libpng's, XCB's and Pango's headers, and glslangValidator
# to compile the shaders; the libraries themselves are looked for while the process runs. On Windows
# it needs what every compiler for Windows has; the shaders are compiled already
# (scripts/compile_direct3d_shaders).
#
# ZEPHANE_PICTURES_FOUND says whether it is built; zephane_pictures(TARGET) adds it to a target, or
# if it is not built, a replacement that reports that.

set(ZEPHANE_PICTURES_FOUND FALSE)
set(ZEPHANE_PICTURES_LACK "ZEPHANE_PICTURES is off")
if(ZEPHANE_PICTURES AND WIN32)
  enable_language(RC)
  set(ZEPHANE_PICTURES_FOUND TRUE)
elseif(ZEPHANE_PICTURES)
  find_path(ZEPHANE_VULKAN_FOLDER vulkan/vulkan.h)
  find_path(ZEPHANE_PNG_FOLDER png.h)
  find_path(ZEPHANE_ZLIB_FOLDER zlib.h)
  find_path(ZEPHANE_XCB_FOLDER xcb/xcb.h)
  find_package(PkgConfig QUIET)
  if(PkgConfig_FOUND)
    pkg_check_modules(ZEPHANE_PANGO QUIET pangocairo)
  endif()
  find_program(ZEPHANE_GLSLANG glslangValidator)
  if(NOT ZEPHANE_VULKAN_FOLDER)
    set(ZEPHANE_PICTURES_LACK "Vulkan's headers were not found")
  elseif(NOT ZEPHANE_PNG_FOLDER OR NOT ZEPHANE_ZLIB_FOLDER)
    set(ZEPHANE_PICTURES_LACK "libpng's headers were not found")
  elseif(NOT ZEPHANE_XCB_FOLDER)
    set(ZEPHANE_PICTURES_LACK "XCB's headers were not found")
  elseif(NOT ZEPHANE_PANGO_FOUND)
    set(ZEPHANE_PICTURES_LACK "Pango's headers were not found by pkg-config")
  elseif(NOT ZEPHANE_GLSLANG)
    set(ZEPHANE_PICTURES_LACK "glslangValidator was not found")
  else()
    set(ZEPHANE_PICTURES_FOUND TRUE)
  endif()
endif()

# Compiles a shader to SPIR-V. Registers t0, t1, ... are the bindings from 1 on, b0 is binding 0.
function(zephane_shader output source stage)
  set(folder ${PROJECT_SOURCE_DIR}/render/shaders)
  file(GLOB shared CONFIGURE_DEPENDS ${folder}/*.hlsli)
  add_custom_command(
    OUTPUT ${output}
    COMMAND ${ZEPHANE_GLSLANG} -D -V -DSPECIALIZED ${ARGN} --quiet --target-env vulkan1.1 -S ${stage} -e main
            --shift-texture-binding ${stage} 1 --shift-ssbo-binding ${stage} 1 -o ${output}
            ${folder}/${source}
    DEPENDS ${folder}/${source} ${shared}
    COMMENT "Compiling ${source} ${ARGN}"
    VERBATIM)
endfunction()

function(zephane_shaders folder list)
  file(MAKE_DIRECTORY ${folder})
  zephane_shader(${folder}/field_vertex.spv field_vertex.hlsl vert)
  zephane_shader(${folder}/field_pixel.spv field_pixel.hlsl frag)
  zephane_shader(${folder}/flow_vertex.spv flow_vertex.hlsl vert)
  zephane_shader(${folder}/flow_pixel.spv flow_pixel.hlsl frag)
  zephane_shader(${folder}/field_pixel_of_pieces.spv field_pixel.hlsl frag -DFIELD_PIECES)
  zephane_shader(${folder}/flow_vertex_of_pieces.spv flow_vertex.hlsl vert -DFIELD_PIECES)
  zephane_shader(${folder}/interface_vertex.spv interface_vertex.hlsl vert)
  zephane_shader(${folder}/interface_pixel.spv interface_pixel.hlsl frag)
  set(${list}
      ${folder}/field_vertex.spv ${folder}/field_pixel.spv ${folder}/flow_vertex.spv
      ${folder}/flow_pixel.spv ${folder}/field_pixel_of_pieces.spv
      ${folder}/flow_vertex_of_pieces.spv ${folder}/interface_vertex.spv
      ${folder}/interface_pixel.spv
      PARENT_SCOPE)
endfunction()

function(zephane_pictures target)
  if(NOT ZEPHANE_PICTURES_FOUND)
    target_sources(${target} PRIVATE ${PROJECT_SOURCE_DIR}/render/none/no_renderer.cpp)
  elseif(WIN32)
    zephane_direct3d_pictures(${target})
  else()
    zephane_vulkan_pictures(${target})
  endif()
endfunction()

function(zephane_direct3d_pictures target)
  set(folder ${PROJECT_SOURCE_DIR}/render/d3d11)
  file(GLOB sources CONFIGURE_DEPENDS ${folder}/*.cpp ${PROJECT_SOURCE_DIR}/render/win32/*.cpp)
  file(GLOB bytecode CONFIGURE_DEPENDS ${folder}/bytecode/*.cso)
  target_sources(${target} PRIVATE ${sources} ${folder}/shaders.rc)
  set_source_files_properties(
    ${folder}/shaders.rc PROPERTIES INCLUDE_DIRECTORIES ${folder} OBJECT_DEPENDS "${bytecode}")
  target_link_libraries(${target} PUBLIC ole32 uuid dxguid windowscodecs winmm)
endfunction()

function(zephane_vulkan_pictures target)
  set(folder ${PROJECT_BINARY_DIR}/shaders)
  zephane_shaders(${folder} shaders)
  file(GLOB sources CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/render/vulkan/*.cpp
       ${PROJECT_SOURCE_DIR}/render/png/*.cpp ${PROJECT_SOURCE_DIR}/render/cairo/*.cpp
       ${PROJECT_SOURCE_DIR}/render/x11/*.cpp)
  target_sources(${target} PRIVATE ${sources})
  # Vulkan's records are filled by designated initialisers; unnamed members are zero.
  set_source_files_properties(${sources} PROPERTIES COMPILE_OPTIONS
                                                    -Wno-missing-field-initializers)
  set_source_files_properties(
    ${PROJECT_SOURCE_DIR}/render/vulkan/shader_resources.cpp
    PROPERTIES COMPILE_DEFINITIONS ZEPHANE_SHADERS="${folder}" OBJECT_DEPENDS "${shaders}")
  target_include_directories(
    ${target} SYSTEM PRIVATE ${ZEPHANE_VULKAN_FOLDER} ${ZEPHANE_PNG_FOLDER} ${ZEPHANE_ZLIB_FOLDER}
                             ${ZEPHANE_PANGO_INCLUDE_DIRS})
endfunction()
