# SPDX-License-Identifier: Apache-2.0
# vorn_library(<target> <namespace>): what the three shared libraries have in common: the alias
# <namespace>::<target>, version and SONAME, include paths, warnings, what is exported, and installation with headers.
#
# While the major version is 0 the SONAME carries the minor one too: such versions do not replace each other.
#
# The library's file is lib<namespace>.so; its headers install below include/<namespace>/.
function(vorn_library target namespace)
  set(soversion ${PROJECT_VERSION_MAJOR})
  if(PROJECT_VERSION_MAJOR EQUAL 0)
    string(APPEND soversion .${PROJECT_VERSION_MINOR})
  endif()
  set(exports "${PROJECT_BINARY_DIR}/${namespace}.map")
  configure_file("${PROJECT_SOURCE_DIR}/cmake/exports.map.in" "${exports}" @ONLY)
  add_library(${namespace}::${target} ALIAS ${target})
  set_target_properties(
    ${target}
    PROPERTIES OUTPUT_NAME ${namespace}
               EXPORT_NAME ${target}
               VERSION ${PROJECT_VERSION}
               SOVERSION ${soversion}
               LINK_DEPENDS "${exports}")
  target_compile_features(${target} PUBLIC cxx_std_20)
  target_include_directories(
    ${target} PUBLIC $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}> $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
  vorn_warnings(${target})
  # What a library calls in itself is its own: no detour over the table of what others might replace.
  target_compile_options(${target} PRIVATE -fno-semantic-interposition)
  target_link_options(${target} PRIVATE -Wl,-Bsymbolic-functions "-Wl,--version-script=${exports}")

  install(TARGETS ${target} EXPORT ${namespace}Targets)
  install(
    DIRECTORY "${CMAKE_CURRENT_SOURCE_DIR}/"
    DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}/${namespace}"
    FILES_MATCHING
    PATTERN "*.h"
    PATTERN internal EXCLUDE)
  install(
    EXPORT ${namespace}Targets
    NAMESPACE ${namespace}::
    DESTINATION "${CMAKE_INSTALL_LIBDIR}/cmake/Vorn")
endfunction()
