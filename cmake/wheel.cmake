# What scikit-build-core, which sets SKBUILD, puts into the wheel's package beside its Python files.
# The build folder's library is a link, and a wheel holds none.

if(ZEPHANE_PREBUILT)
  cmake_path(ABSOLUTE_PATH ZEPHANE_PREBUILT BASE_DIRECTORY ${PROJECT_SOURCE_DIR})
  file(REAL_PATH ${ZEPHANE_PREBUILT} library)
  add_custom_target(zephane)
else()
  set(library $<TARGET_FILE:zephane>)
endif()
install(FILES ${library} DESTINATION zephane RENAME libzephane.so)
install(FILES VERSION DESTINATION zephane)
