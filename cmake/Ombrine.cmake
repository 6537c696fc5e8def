# Project-wide flags and the helpers every folder uses to declare its targets.

set(OMBRINE_WARNINGS -Wall -Wextra -Wpedantic -Wno-unused-parameter)
if(CMAKE_CXX_COMPILER_ID MATCHES "Clang")
  # Checks the GUARDED_BY/REQUIRES annotations of platform/thread_annotations.hpp.
  list(APPEND OMBRINE_WARNINGS -Wthread-safety)
endif()
set(OMBRINE_SOURCE_DIR "${CMAKE_CURRENT_SOURCE_DIR}")

if(OMBRINE_SANITIZE)
  add_compile_options(-fsanitize=address,undefined -fno-sanitize-recover=undefined
                      -fno-omit-frame-pointer)
  add_link_options(-fsanitize=address,undefined)
  if(OMBRINE_FUZZ)
    # Coverage instrumentation everywhere so fuzz targets explore the libraries they link.
    add_compile_options(-fsanitize=fuzzer-no-link)
  endif()
endif()

# ombrine_library(NAME SOURCES ... DEPS ...): the one static library of a folder.
function(ombrine_library name)
  cmake_parse_arguments(ARG "" "" "SOURCES;DEPS" ${ARGN})
  add_library(${name} STATIC ${ARG_SOURCES})
  target_include_directories(${name} PUBLIC ${OMBRINE_SOURCE_DIR})
  target_compile_options(${name} PRIVATE ${OMBRINE_WARNINGS})
  target_link_libraries(${name} PUBLIC ${ARG_DEPS})
endfunction()

# ombrine_tests(NAME SOURCES ... DEPS ...): one GoogleTest program per folder, each test
# registered with CTest individually.
function(ombrine_tests name)
  if(NOT OMBRINE_TESTS)
    return()
  endif()
  cmake_parse_arguments(ARG "" "" "SOURCES;DEPS" ${ARGN})
  add_executable(${name} ${ARG_SOURCES})
  target_compile_options(${name} PRIVATE ${OMBRINE_WARNINGS})
  target_compile_definitions(${name} PRIVATE
    OMBRINE_TESTDATA_DIR="${CMAKE_CURRENT_SOURCE_DIR}/testdata")
  target_link_libraries(${name} PRIVATE ${ARG_DEPS} GTest::gtest GTest::gmock GTest::gtest_main)
  gtest_discover_tests(${name} DISCOVERY_MODE PRE_TEST DISCOVERY_TIMEOUT 60
                       PROPERTIES TIMEOUT 300)
endfunction()

# ombrine_fuzz(NAME SOURCE DEPS ...): a libFuzzer program; built only with OMBRINE_FUZZ.
function(ombrine_fuzz name source)
  if(NOT OMBRINE_FUZZ)
    return()
  endif()
  cmake_parse_arguments(ARG "" "" "DEPS" ${ARGN})
  add_executable(${name} ${source})
  target_link_libraries(${name} PRIVATE ${ARG_DEPS})
  target_link_options(${name} PRIVATE -fsanitize=fuzzer)
  set_target_properties(${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/fuzz)
  # The seed corpus of a target is testdata/<name>/ beside its source (scripts/fuzz-smoke).
  file(WRITE ${CMAKE_BINARY_DIR}/fuzz/${name}.seeds "${CMAKE_CURRENT_SOURCE_DIR}/testdata/${name}")
endfunction()

# ombrine_bench(NAME SOURCES ... DEPS ...): a Google Benchmark program.
function(ombrine_bench name)
  cmake_parse_arguments(ARG "" "" "SOURCES;DEPS" ${ARGN})
  add_executable(${name} ${ARG_SOURCES})
  target_link_libraries(${name} PRIVATE ${ARG_DEPS} benchmark::benchmark)
endfunction()
