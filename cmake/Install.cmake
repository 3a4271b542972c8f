# make install PREFIX=...: libraries, headers under include/orlix/, a
# pkg-config file and a CMake package giving Orlix::util (and
# Orlix::util_static). Each file belongs to one component, which the Debian
# packages follow: runtime (the shared object), dev (what building against
# the library needs) and tools (the orlix program, see cli/).
include(CMakePackageConfigHelpers)

set(ORLIX_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/OrlixUtil)

install(TARGETS orlix_util orlix_util_static
  EXPORT OrlixUtilTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT dev
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT dev
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT runtime)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/orlix COMPONENT dev
  FILES_MATCHING PATTERN "*.h")

install(EXPORT OrlixUtilTargets
  NAMESPACE Orlix::
  DESTINATION ${ORLIX_CMAKE_DIR} COMPONENT dev)
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/OrlixUtilConfig.cmake.in
  ${PROJECT_BINARY_DIR}/OrlixUtilConfig.cmake
  INSTALL_DESTINATION ${ORLIX_CMAKE_DIR})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/OrlixUtilConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/OrlixUtilConfig.cmake
              ${PROJECT_BINARY_DIR}/OrlixUtilConfigVersion.cmake
              ${PROJECT_SOURCE_DIR}/cmake/FindGMP.cmake
  DESTINATION ${ORLIX_CMAKE_DIR} COMPONENT dev)

# The pkg-config file finds its prefix from where it lies,
# <prefix>/<libdir>/pkgconfig, so it stays right for any libdir
# (lib, lib64, lib/x86_64-linux-gnu) and when the tree is moved. Absolute
# directories are written as they are.
if(IS_ABSOLUTE "${CMAKE_INSTALL_LIBDIR}" OR IS_ABSOLUTE "${CMAKE_INSTALL_INCLUDEDIR}")
  set(ORLIX_PC_PREFIX "${CMAKE_INSTALL_PREFIX}")
  set(ORLIX_PC_LIBDIR "${CMAKE_INSTALL_FULL_LIBDIR}")
  set(ORLIX_PC_INCLUDEDIR "${CMAKE_INSTALL_FULL_INCLUDEDIR}/orlix")
else()
  set(ORLIX_PC_PREFIX "\${pcfiledir}/..")
  string(REGEX MATCHALL "[^/]+" libdir_parts "${CMAKE_INSTALL_LIBDIR}")
  foreach(part IN LISTS libdir_parts)
    if(part STREQUAL "..")
      message(FATAL_ERROR "CMAKE_INSTALL_LIBDIR must not climb out of the prefix: ${CMAKE_INSTALL_LIBDIR}")
    endif()
    if(NOT part STREQUAL ".")
      string(APPEND ORLIX_PC_PREFIX "/..")
    endif()
  endforeach()
  set(ORLIX_PC_LIBDIR "\${prefix}/${CMAKE_INSTALL_LIBDIR}")
  set(ORLIX_PC_INCLUDEDIR "\${prefix}/${CMAKE_INSTALL_INCLUDEDIR}/orlix")
endif()
configure_file(${PROJECT_SOURCE_DIR}/cmake/orlix_util.pc.in
  ${PROJECT_BINARY_DIR}/orlix_util.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/orlix_util.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT dev)
