# Headers, library, CMake package and pkg-config file.
include(CMakePackageConfigHelpers)

install(TARGETS qvx_common EXPORT QVX_CommonTargets
  LIBRARY DESTINATION "${CMAKE_INSTALL_LIBDIR}" COMPONENT runtime NAMELINK_COMPONENT development)
install(DIRECTORY include/qvx DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}" COMPONENT development
  FILES_MATCHING PATTERN "*.h")

set(package_dir "${CMAKE_INSTALL_LIBDIR}/cmake/QVX_Common")
install(EXPORT QVX_CommonTargets NAMESPACE QVX:: DESTINATION "${package_dir}"
  COMPONENT development)
configure_package_config_file(cmake/QVX_CommonConfig.cmake.in QVX_CommonConfig.cmake
  INSTALL_DESTINATION "${package_dir}")
write_basic_package_version_file(QVX_CommonConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES "${CMAKE_CURRENT_BINARY_DIR}/QVX_CommonConfig.cmake"
              "${CMAKE_CURRENT_BINARY_DIR}/QVX_CommonConfigVersion.cmake"
  DESTINATION "${package_dir}" COMPONENT development)

# The prefix is told relative to the file, so that an installed tree can be moved.
cmake_path(SET pkgconfig_dir NORMALIZE "${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_LIBDIR}/pkgconfig")
file(RELATIVE_PATH QVX_PC_PREFIX "${pkgconfig_dir}" "${CMAKE_INSTALL_PREFIX}")
configure_file(cmake/qvx_common.pc.in qvx_common.pc @ONLY)
install(FILES "${CMAKE_CURRENT_BINARY_DIR}/qvx_common.pc"
  DESTINATION "${CMAKE_INSTALL_LIBDIR}/pkgconfig" COMPONENT development)
