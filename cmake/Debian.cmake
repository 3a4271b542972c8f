# make deb: the Debian packages, made by CPack from a build configured with
# CMAKE_INSTALL_PREFIX=/usr (scripts/build-deb.sh). One package per install
# component:
#   liborlix-util2     runtime  the shared object
#   liborlix-util-dev  dev      headers, the .so link, the static archive,
#                               the pkg-config and CMake files
#   orlix-tools        tools    the orlix program, its manual page and its
#                               bash completion
# dpkg-shlibdeps finds the dependencies on the C, C++ and GMP runtimes; the
# packages depend on each other at exactly this version.
set(ORLIX_DEB_MAINTAINER "liborlix_util developers <maintainers@liborlix-util.example>")
set(ORLIX_DEB_REVISION 1)
set(ORLIX_DEB_VERSION ${PROJECT_VERSION}-${ORLIX_DEB_REVISION})
set(ORLIX_DEB_PACKAGES liborlix-util2 liborlix-util-dev orlix-tools)
set(ORLIX_DEB_COMPONENTS runtime dev tools)

# Every package carries its copyright file and a changelog, as Debian policy
# asks; only the packages install them.
set(ORLIX_DEB_DIR ${PROJECT_BINARY_DIR}/debian)
file(READ ${PROJECT_SOURCE_DIR}/LICENSE license)
string(REGEX REPLACE "^BSD 2-Clause License\n\n(Copyright [^\n]*)\n.*" "\\1" copyright "${license}")
string(REGEX REPLACE "^.*All rights reserved.\n\n" "" license_terms "${license}")
string(REGEX REPLACE "\n\n" "\n.\n" license_terms "${license_terms}")
string(REGEX REPLACE "\n([^\n])" "\n \\1" license_terms "${license_terms}")
string(REGEX REPLACE "\n$" "" license_terms "${license_terms}")
string(REPLACE "Copyright (c) " "" copyright "${copyright}")
file(WRITE ${ORLIX_DEB_DIR}/copyright
"Format: https://www.debian.org/doc/packaging-manuals/copyright-format/1.0/
Upstream-Name: liborlix_util

Files: *
Copyright: ${copyright}
License: BSD-2-Clause

License: BSD-2-Clause
 ${license_terms}
")
string(TIMESTAMP changelog_date "%a, %d %b %Y %H:%M:%S +0000" UTC)
file(WRITE ${ORLIX_DEB_DIR}/changelog
"liborlix-util (${ORLIX_DEB_VERSION}) unstable; urgency=medium

  * liborlix_util ${PROJECT_VERSION}.

 -- ${ORLIX_DEB_MAINTAINER}  ${changelog_date}
")
execute_process(COMMAND gzip -9 -n -c ${ORLIX_DEB_DIR}/changelog
  OUTPUT_FILE ${ORLIX_DEB_DIR}/changelog.Debian.gz RESULT_VARIABLE gzip_result)
if(NOT gzip_result EQUAL 0)
  message(FATAL_ERROR "gzip failed on the Debian changelog")
endif()
foreach(package component IN ZIP_LISTS ORLIX_DEB_PACKAGES ORLIX_DEB_COMPONENTS)
  install(FILES ${ORLIX_DEB_DIR}/copyright ${ORLIX_DEB_DIR}/changelog.Debian.gz
    DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${package}
    COMPONENT ${component} EXCLUDE_FROM_ALL)
endforeach()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME liborlix-util)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT "${ORLIX_DEB_MAINTAINER}")
# Each package's description starts with its own summary line.
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")
set(CPACK_PACKAGING_INSTALL_PREFIX ${CMAKE_INSTALL_PREFIX})
set(CPACK_STRIP_FILES ON)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL ${ORLIX_DEB_COMPONENTS})
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE ${ORLIX_DEB_REVISION})
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_HOMEPAGE "")
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR}/lib)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME liborlix-util2)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_RUNTIME_DESCRIPTION "utility library for security and certificate software
liborlix_util gives C and C++ programs one error scheme, replaceable
allocation, chains of filter streams (memory, file, base64, hex, digests),
Unicode strings with normalization, string preparation and IDNA, calendar
time with leap seconds and a compiled-in time-zone database, JSON, big
integers over GMP and small containers.

This package holds the shared library.")
# dpkg's ldconfig trigger refreshes the loader cache, as policy asks (the
# maintainer scripts CPack writes call ldconfig as well).
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA ${PROJECT_SOURCE_DIR}/cmake/debian/triggers)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_STRICT_PERMISSION ON)

set(CPACK_DEBIAN_DEV_PACKAGE_NAME liborlix-util-dev)
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS "liborlix-util2 (= ${ORLIX_DEB_VERSION}), libgmp-dev")
set(CPACK_DEBIAN_DEV_DESCRIPTION "utility library for security software - development files
liborlix_util gives C and C++ programs one error scheme, replaceable
allocation, filter streams, Unicode strings with IDNA, time with a
time-zone database, JSON and big integers.

This package holds the headers, the static library and the pkg-config and
CMake files needed to build programs that use the library.")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME orlix-tools)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION utils)
# dpkg-shlibdeps takes the library in this build for the package's own and
# leaves it out, so the dependency on it is stated.
set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS "liborlix-util2 (= ${ORLIX_DEB_VERSION})")
set(CPACK_DEBIAN_TOOLS_DESCRIPTION "command-line front end to liborlix_util
The orlix program exposes the codecs (JSON, base64, hex, PEM), Unicode
normalization, case folding, string preparation and IDNA, time-zone
conversion with leap seconds and prime generation of liborlix_util from
the shell.")

include(CPack)
