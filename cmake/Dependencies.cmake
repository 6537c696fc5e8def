# Every dependency comes from Debian 12 packages (scripts/setup installs them).
find_package(Threads REQUIRED)
find_package(Boost 1.81 REQUIRED CONFIG COMPONENTS json url)
find_package(fmt REQUIRED)
find_package(PkgConfig REQUIRED)
find_package(OpenSSL 3 REQUIRED)
pkg_check_modules(CURL REQUIRED IMPORTED_TARGET libcurl)
pkg_check_modules(HTTPLIB REQUIRED IMPORTED_TARGET cpp-httplib)
pkg_check_modules(ICU REQUIRED IMPORTED_TARGET icu-uc icu-i18n)
pkg_check_modules(CLI11 REQUIRED IMPORTED_TARGET CLI11)
# The HTTP cache's shared disk index; OpenSSL signs the tile proxy's credential.
pkg_check_modules(SQLITE REQUIRED IMPORTED_TARGET sqlite3)
pkg_check_modules(OPENSSL REQUIRED IMPORTED_TARGET openssl)
# The simulator's radar tiles.
pkg_check_modules(PNG REQUIRED IMPORTED_TARGET libpng)
# sd-bus: desktop notifications over the session D-Bus.
pkg_check_modules(SYSTEMD REQUIRED IMPORTED_TARGET libsystemd)
pkg_check_modules(CAIRO REQUIRED IMPORTED_TARGET cairo fontconfig)
# Radar loops (animated GIF).
pkg_check_modules(GIF REQUIRED IMPORTED_TARGET libgif)
if(OMBRINE_TESTS)
  find_package(GTest REQUIRED)
  include(GoogleTest)
endif()
if(OMBRINE_BENCH)
  find_package(benchmark REQUIRED)
endif()

# Boost.Asio is compiled once (platform/asio_impl.cpp) instead of in every translation unit.
add_library(ombrine_boost INTERFACE)
target_compile_definitions(ombrine_boost INTERFACE
  BOOST_ASIO_SEPARATE_COMPILATION BOOST_ASIO_NO_DEPRECATED BOOST_ASIO_DISABLE_BOOST_COROUTINE)
target_link_libraries(ombrine_boost INTERFACE Boost::headers Boost::json Boost::url Threads::Threads)

# Storm overlays: KML through expat, KMZ entries inflated with libdeflate.
pkg_check_modules(EXPAT REQUIRED IMPORTED_TARGET expat)
pkg_check_modules(LIBDEFLATE REQUIRED IMPORTED_TARGET libdeflate)

# A short run of the program (a cached forecast, a place lookup) spends most of its instructions
# in the dynamic loader, in proportion to the shared libraries it loads and their symbol
# relocations. The dependencies that no shared library the program links needs as well are
# therefore linked from their static archives in release builds: ICU (with its data), SQLite,
# giflib, libdeflate, libpng, zlib, expat and Boost.JSON/URL. (cairo, libcurl and the server module, opened on
# first use, bring their own shared copies of the last three; the program's static copies are
# not exported, so neither side binds to the other's.)
if(CMAKE_BUILD_TYPE STREQUAL "Release" AND NOT OMBRINE_SANITIZE)
  set(ombrine_static_default ON)
else()
  set(ombrine_static_default OFF)
endif()
option(OMBRINE_STATIC_DEPENDENCIES "Link ICU, SQLite, giflib, libdeflate, libpng, zlib, expat and Boost statically"
       ${ombrine_static_default})

# Replaces the shared libraries NAMES (as in -lNAME) among the link libraries of the imported
# `target` by their static archives, and adds the libraries those archives need (EXTRA).
function(ombrine_link_archives target)
  cmake_parse_arguments(ARG "" "" "NAMES;EXTRA" ${ARGN})
  get_target_property(libraries ${target} INTERFACE_LINK_LIBRARIES)
  set(linked "")
  foreach(library IN LISTS libraries)
    get_filename_component(file ${library} NAME)
    string(REGEX REPLACE "^lib(.*)\\.so$" "\\1" name "${file}")
    if(name IN_LIST ARG_NAMES)
      get_filename_component(folder ${library} DIRECTORY)
      if(NOT EXISTS "${folder}/lib${name}.a")
        message(FATAL_ERROR "OMBRINE_STATIC_DEPENDENCIES: ${folder}/lib${name}.a is missing")
      endif()
      list(APPEND linked "${folder}/lib${name}.a")
    else()
      list(APPEND linked "${library}")
    endif()
  endforeach()
  set_target_properties(${target} PROPERTIES INTERFACE_LINK_LIBRARIES "${linked};${ARG_EXTRA}")
endfunction()

if(OMBRINE_STATIC_DEPENDENCIES)
  ombrine_link_archives(PkgConfig::ICU NAMES icuuc icui18n icudata EXTRA ${CMAKE_DL_LIBS} Threads::Threads m)
  find_library(OMBRINE_ZLIB_ARCHIVE libz.a REQUIRED)
  ombrine_link_archives(PkgConfig::SQLITE NAMES sqlite3 EXTRA Threads::Threads m ${OMBRINE_ZLIB_ARCHIVE})
  ombrine_link_archives(PkgConfig::GIF NAMES gif)
  ombrine_link_archives(PkgConfig::LIBDEFLATE NAMES deflate)
  ombrine_link_archives(PkgConfig::PNG NAMES png16 EXTRA m ${OMBRINE_ZLIB_ARCHIVE})
  ombrine_link_archives(PkgConfig::EXPAT NAMES expat)
  # Boost's config files picked the shared variants; their archives replace them at link time.
  # (The variants' compile definitions differ only in BOOST_*_DYN_LINK, which selects the symbol
  # import decoration: empty on ELF, so the objects are the same.)
  foreach(part json url container)
    get_target_property(location Boost::${part} IMPORTED_LOCATION_RELEASE)
    string(REGEX REPLACE "\\.so[.0-9]*$" ".a" archive "${location}")
    if(NOT EXISTS "${archive}")
      message(FATAL_ERROR "OMBRINE_STATIC_DEPENDENCIES: ${archive} is missing")
    endif()
    set_target_properties(Boost::${part} PROPERTIES IMPORTED_LOCATION_RELEASE "${archive}")
  endforeach()
endif()
