# make install PREFIX=...: libraries, headers under include/orlix/, a
# pkg-config file and a CMake package giving Orlix::util.
include(CMakePackageConfigHelpers)

set(ORLIX_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/OrlixUtil)

install(TARGETS orlix_util orlix_util_static
  EXPORT OrlixUtilTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/orlix
  FILES_MATCHING PATTERN "*.h")

install(EXPORT OrlixUtilTargets
  NAMESPACE Orlix::
  DESTINATION ${ORLIX_CMAKE_DIR})
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/OrlixUtilConfig.cmake.in
  ${PROJECT_BINARY_DIR}/OrlixUtilConfig.cmake
  INSTALL_DESTINATION ${ORLIX_CMAKE_DIR})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/OrlixUtilConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/OrlixUtilConfig.cmake
              ${PROJECT_BINARY_DIR}/OrlixUtilConfigVersion.cmake
  DESTINATION ${ORLIX_CMAKE_DIR})

configure_file(${PROJECT_SOURCE_DIR}/cmake/orlix_util.pc.in
  ${PROJECT_BINARY_DIR}/orlix_util.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/orlix_util.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

install(FILES ${PROJECT_SOURCE_DIR}/docs/orlix.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
