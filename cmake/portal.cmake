# The desktop's portal, over the session's D-Bus. It needs the headers of libdbus-1; the library
# itself is looked for while the process runs.
#
# ZEPHANE_PORTAL_FOUND says whether it is built; zephane_portal(TARGET) adds it to a target.

set(ZEPHANE_PORTAL_FOUND FALSE)
set(ZEPHANE_PORTAL_LACK "ZEPHANE_PORTAL is off")
if(WIN32)
  set(ZEPHANE_PORTAL_LACK "Windows has its own dialogs")
elseif(ZEPHANE_PORTAL)
  find_path(ZEPHANE_DBUS_FOLDER dbus/dbus.h PATH_SUFFIXES dbus-1.0)
  # The header that depends on the architecture is in a folder beside the library.
  get_filename_component(prefix "${ZEPHANE_DBUS_FOLDER}/../.." ABSOLUTE)
  find_path(
    ZEPHANE_DBUS_ARCHITECTURE_FOLDER dbus/dbus-arch-deps.h
    HINTS ${prefix}/lib/${CMAKE_LIBRARY_ARCHITECTURE} ${prefix}/lib64 ${prefix}/lib
    PATH_SUFFIXES dbus-1.0/include)
  if(ZEPHANE_DBUS_FOLDER AND ZEPHANE_DBUS_ARCHITECTURE_FOLDER)
    set(ZEPHANE_PORTAL_FOUND TRUE)
  else()
    set(ZEPHANE_PORTAL_LACK "the headers of libdbus-1 were not found")
  endif()
endif()

function(zephane_portal target)
  file(GLOB sources CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/platform/linux/portal/*.cpp)
  target_sources(${target} PRIVATE ${sources})
  target_include_directories(${target} SYSTEM PRIVATE ${ZEPHANE_DBUS_FOLDER}
                                                      ${ZEPHANE_DBUS_ARCHITECTURE_FOLDER})
  target_compile_definitions(${target} PRIVATE ZEPHANE_PORTAL=1)
endfunction()
