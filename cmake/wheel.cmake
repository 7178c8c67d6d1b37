# What scikit-build-core, which sets SKBUILD, puts into the wheel's package beside its Python files.
# The build folder's library is a link, and a wheel holds none. A library that was built before may
# be for another system (scripts/windows_wheel).

if(ZEPHANE_PREBUILT)
  cmake_path(ABSOLUTE_PATH ZEPHANE_PREBUILT BASE_DIRECTORY ${PROJECT_SOURCE_DIR})
  file(REAL_PATH ${ZEPHANE_PREBUILT} library)
  add_custom_target(zephane)
else()
  set(library $<TARGET_FILE:zephane>)
endif()
if(WIN32 OR ZEPHANE_PREBUILT MATCHES "\\.dll$")
  set(name zephane.dll)
else()
  set(name libzephane.so)
endif()
install(FILES ${library} DESTINATION zephane RENAME ${name})
install(FILES VERSION DESTINATION zephane)
