# What `cmake --install` puts under its prefix: the library, its header, a CMake package
# (find_package(zephane) gives zephane::zephane) and a pkg-config file. Nothing in them names the
# prefix, so that the installed folder can be moved.

include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

target_include_directories(zephane INTERFACE $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
install(TARGETS zephane EXPORT zephane LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(FILES boundary/zephane.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(FILES LICENSE DESTINATION ${CMAKE_INSTALL_DOCDIR})

set(package ${CMAKE_INSTALL_LIBDIR}/cmake/zephane)
install(EXPORT zephane NAMESPACE zephane:: FILE zephaneConfig.cmake DESTINATION ${package})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/zephaneConfigVersion.cmake
                                 COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/zephaneConfigVersion.cmake DESTINATION ${package})

# The pkg-config file finds the prefix from where it is itself. APPEND leaves absolute folders alone.
set(pkgconfig ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
cmake_path(ABSOLUTE_PATH pkgconfig BASE_DIRECTORY ${CMAKE_INSTALL_PREFIX} OUTPUT_VARIABLE from)
cmake_path(RELATIVE_PATH CMAKE_INSTALL_PREFIX BASE_DIRECTORY ${from} OUTPUT_VARIABLE prefix)
foreach(folder LIBDIR INCLUDEDIR)
  cmake_path(APPEND ZEPHANE_${folder} "\${prefix}" ${CMAKE_INSTALL_${folder}})
endforeach()
cmake_path(APPEND ZEPHANE_PREFIX "\${pcfiledir}" ${prefix})
configure_file(cmake/zephane.pc.in zephane.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/zephane.pc DESTINATION ${pkgconfig})
