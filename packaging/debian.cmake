# The Debian packages: `cpack -G DEB` in a build tree (`make deb` builds a release tree for
# /usr and runs it) gives ombrine_<version>_<arch>.deb, the program with its resources, man
# pages, completions and unit templates, and ombrine-dev_<version>_<arch>.deb, the library
# with its headers and description files. The program's Depends: is computed by dpkg-shlibdeps
# from the shared libraries it links.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME ombrine)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT "Ombrine developers <ombrine@localhost>")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL program library)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_COMPRESSION_TYPE xz)
if(NOT CMAKE_BUILD_TYPE STREQUAL "Debug")
  set(CPACK_STRIP_FILES ON)
endif()

set(CPACK_DEBIAN_PROGRAM_PACKAGE_NAME ombrine)
# The first line is the package's synopsis.
set(CPACK_DEBIAN_PROGRAM_DESCRIPTION
    "weather forecasts, warnings, tides and radar on the command line\n"
    "Forecasts from several weather services for any place on earth, severe weather warnings,\n"
    "tides, storms, fires and radar images, with a background refresh (systemd user units)\n"
    "and desktop notifications.")
string(JOIN "" CPACK_DEBIAN_PROGRAM_DESCRIPTION ${CPACK_DEBIAN_PROGRAM_DESCRIPTION})
set(CPACK_DEBIAN_PROGRAM_PACKAGE_SHLIBDEPS ON)
# libcurl, libsystemd, cairo and libcrypto are opened on first use rather than linked, so
# dpkg-shlibdeps cannot see them.
set(CPACK_DEBIAN_PROGRAM_PACKAGE_DEPENDS
    "libcurl4 (>= 7.74.0), libsystemd0, libcairo2 (>= 1.16), libfontconfig1, libssl3 (>= 3.0.0)")
# Text in the radar and map images is drawn with this font.
set(CPACK_DEBIAN_PROGRAM_PACKAGE_RECOMMENDS "fonts-dejavu-core")

# The archive is static: a program that links it needs the development files of what it uses.
set(CPACK_DEBIAN_LIBRARY_PACKAGE_NAME ombrine-dev)
set(CPACK_DEBIAN_LIBRARY_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_LIBRARY_DESCRIPTION
    "Ombrine weather library (static) and headers\n"
    "libombrine with its public headers, ombrine.pc for pkg-config and OmbrineConfig.cmake for\n"
    "find_package(Ombrine). Reads its place index and time-zone data from the ombrine package.")
string(JOIN "" CPACK_DEBIAN_LIBRARY_DESCRIPTION ${CPACK_DEBIAN_LIBRARY_DESCRIPTION})
set(CPACK_DEBIAN_LIBRARY_PACKAGE_DEPENDS
    "ombrine (= ${PROJECT_VERSION}), pkg-config, libboost1.81-dev, libboost-json1.81-dev, libboost-url1.81-dev, libcurl4-openssl-dev, libssl-dev, libicu-dev, libsqlite3-dev, libpng-dev, libsystemd-dev, libcairo2-dev, libexpat1-dev, libdeflate-dev, libfmt-dev, libgif-dev")
include(CPack)
