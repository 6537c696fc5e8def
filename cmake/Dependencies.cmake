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
