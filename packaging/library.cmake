# The library for other programs: libombrine.a, one archive of every static library under the
# composition root (the simulator and the test helpers are not part of it), the headers of those
# folders under include/ombrine/, ombrine.pc for pkg-config and OmbrineConfig.cmake for
# find_package(Ombrine). Both description files find the prefix relative to themselves, so a
# moved install still links.

# The parts: ombrine_wiring and, transitively, every ombrine_* static library it links.
set(OMBRINE_LIBRARY_ROOTS ombrine_wiring)
set(OMBRINE_LIBRARY_EXCLUDED ombrine_sim ombrine_platform_testing)
function(ombrine_collect_parts target)
  string(REGEX REPLACE "^\\$<LINK_ONLY:(.*)>$" "\\1" target "${target}")
  if(NOT TARGET ${target} OR NOT target MATCHES "^ombrine_" OR target IN_LIST OMBRINE_LIBRARY_EXCLUDED)
    return()
  endif()
  get_target_property(type ${target} TYPE)
  if(type STREQUAL "INTERFACE_LIBRARY")
    # An umbrella target (ombrine_core): its parts are the libraries it links.
    get_target_property(deps ${target} INTERFACE_LINK_LIBRARIES)
    foreach(dep IN LISTS deps)
      ombrine_collect_parts(${dep})
    endforeach()
    return()
  endif()
  get_property(parts GLOBAL PROPERTY OMBRINE_LIBRARY_PARTS)
  if(NOT type STREQUAL "STATIC_LIBRARY" OR target IN_LIST parts)
    return()
  endif()
  set_property(GLOBAL APPEND PROPERTY OMBRINE_LIBRARY_PARTS ${target})
  get_target_property(deps ${target} INTERFACE_LINK_LIBRARIES)
  foreach(dep IN LISTS deps)
    ombrine_collect_parts(${dep})
  endforeach()
endfunction()
foreach(root IN LISTS OMBRINE_LIBRARY_ROOTS)
  ombrine_collect_parts(${root})
endforeach()
get_property(OMBRINE_LIBRARY_PARTS GLOBAL PROPERTY OMBRINE_LIBRARY_PARTS)

set(objects "")
set(headers "")
foreach(part IN LISTS OMBRINE_LIBRARY_PARTS)
  list(APPEND objects $<TARGET_OBJECTS:${part}>)
  get_target_property(dir ${part} SOURCE_DIR)
  file(GLOB_RECURSE found RELATIVE ${OMBRINE_SOURCE_DIR} ${dir}/*.hpp)
  list(APPEND headers ${found})
endforeach()
list(REMOVE_DUPLICATES headers)
list(FILTER headers EXCLUDE REGEX "(^|/)(testing|testdata)/")

add_library(ombrine_public STATIC ${objects})
set_target_properties(ombrine_public PROPERTIES OUTPUT_NAME ombrine LINKER_LANGUAGE CXX
                      ARCHIVE_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/lib)
install(TARGETS ombrine_public ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT library)
foreach(header IN LISTS headers)
  get_filename_component(folder ${header} DIRECTORY)
  install(FILES ${OMBRINE_SOURCE_DIR}/${header} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/ombrine/${folder}
          COMPONENT library)
endforeach()

# What a program that links the archive needs besides it.
set(OMBRINE_PC_REQUIRES "libcurl openssl icu-uc icu-i18n sqlite3 libpng libsystemd cairo fontconfig expat libdeflate fmt")
set(OMBRINE_PC_DEFINES "-DBOOST_ASIO_SEPARATE_COMPILATION -DBOOST_ASIO_NO_DEPRECATED -DBOOST_ASIO_DISABLE_BOOST_COROUTINE")
set(OMBRINE_PC_LIBS "-lboost_json -lboost_url -pthread")
if(OMBRINE_SANITIZE)
  # An archive built with the sanitizers needs their run-time in the program that links it.
  string(APPEND OMBRINE_PC_LIBS " -fsanitize=address,undefined")
endif()
file(RELATIVE_PATH OMBRINE_PC_TO_PREFIX /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
file(RELATIVE_PATH OMBRINE_CMAKE_TO_PREFIX /${CMAKE_INSTALL_LIBDIR}/cmake/Ombrine /)
configure_file(${CMAKE_CURRENT_SOURCE_DIR}/ombrine.pc.in ${CMAKE_BINARY_DIR}/ombrine.pc @ONLY)
configure_file(${CMAKE_CURRENT_SOURCE_DIR}/OmbrineConfig.cmake.in ${CMAKE_BINARY_DIR}/OmbrineConfig.cmake @ONLY)
write_basic_package_version_file(${CMAKE_BINARY_DIR}/OmbrineConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${CMAKE_BINARY_DIR}/ombrine.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT library)
install(FILES ${CMAKE_BINARY_DIR}/OmbrineConfig.cmake ${CMAKE_BINARY_DIR}/OmbrineConfigVersion.cmake
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/Ombrine COMPONENT library)
