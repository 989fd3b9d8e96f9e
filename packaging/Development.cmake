# What client makers find an installed Lumsar by: find_package(Lumsar) and pkg-config. Both follow the
# files when the prefix is moved.
include(CMakePackageConfigHelpers)
set(package_directory ${CMAKE_INSTALL_LIBDIR}/cmake/Lumsar)
set(plugin ${CMAKE_INSTALL_LIBDIR}/liblumsar.so.${PROJECT_VERSION_MAJOR})
set(ipc_directory ${CMAKE_INSTALL_LIBDIR}/lumsar)
configure_package_config_file(LumsarConfig.cmake.in ${PROJECT_BINARY_DIR}/cmake/LumsarConfig.cmake
  INSTALL_DESTINATION ${package_directory} PATH_VARS plugin ipc_directory)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/cmake/LumsarConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/cmake/LumsarConfig.cmake
  ${PROJECT_BINARY_DIR}/cmake/LumsarConfigVersion.cmake DESTINATION ${package_directory})
install(EXPORT Lumsar FILE LumsarTargets.cmake NAMESPACE Lumsar:: DESTINATION ${package_directory})

# From the directory of lumsar.pc.
foreach(directory IN ITEMS PREFIX FULL_LIBDIR FULL_INCLUDEDIR)
  file(RELATIVE_PATH ${directory}
    ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_${directory}})
  string(REGEX REPLACE "/$" "" ${directory} ${${directory}})
endforeach()
configure_file(lumsar.pc.in ${PROJECT_BINARY_DIR}/lumsar.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/lumsar.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
