# SPDX-License-Identifier: Apache-2.0
# vorn_library(<target> <namespace> <description> <target>...): what the three libraries have in common: the
# alias <namespace>::<target>, version and SONAME, include paths, warnings, what is exported, the libraries that it stands
# upon, and installation with headers, CMake targets and a pkg-config file.
#
# While the major version is 0 the SONAME carries the minor one too: such versions do not replace each other.
#
# The library's file is lib<namespace>.so, or .a; its headers install below include/<namespace>/.
function(vorn_library target namespace description)
  set(soversion ${PROJECT_VERSION_MAJOR})
  if(PROJECT_VERSION_MAJOR EQUAL 0)
    string(APPEND soversion .${PROJECT_VERSION_MINOR})
  endif()
  add_library(${namespace}::${target} ALIAS ${target})
  set_target_properties(
    ${target}
    PROPERTIES OUTPUT_NAME ${namespace}
               EXPORT_NAME ${target}
               VERSION ${PROJECT_VERSION}
               SOVERSION ${soversion})
  target_compile_features(${target} PUBLIC cxx_std_20)
  target_include_directories(${target} PUBLIC $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}>)
  target_link_libraries(${target} PUBLIC ${ARGN})
  vorn_warnings(${target})

  if(BUILD_SHARED_LIBS)
    set(exports "${PROJECT_BINARY_DIR}/${namespace}.map")
    configure_file("${PROJECT_SOURCE_DIR}/cmake/exports.map.in" "${exports}" @ONLY)
    set_target_properties(${target} PROPERTIES LINK_DEPENDS "${exports}")
    # What a library calls in itself is its own: no detour over the table of what others might replace.
    target_compile_options(${target} PRIVATE -fno-semantic-interposition)
    target_link_options(${target} PRIVATE -Wl,-Bsymbolic-functions "-Wl,--version-script=${exports}")
  endif()

  if(VORN_INSTALL)
    install(TARGETS ${target} EXPORT ${namespace}Targets INCLUDES DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}")
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

    # The file tells its paths from where it stands, so what is installed may be moved.
    file(RELATIVE_PATH prefix "${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig" "${CMAKE_INSTALL_PREFIX}")
    cmake_path(APPEND includedir "\${prefix}" "${CMAKE_INSTALL_INCLUDEDIR}")
    list(JOIN ARGN ", " requires)
    configure_file("${PROJECT_SOURCE_DIR}/cmake/library.pc.in" "${PROJECT_BINARY_DIR}/${target}.pc" @ONLY)
    install(FILES "${PROJECT_BINARY_DIR}/${target}.pc" DESTINATION "${CMAKE_INSTALL_LIBDIR}/pkgconfig")
  endif()
endfunction()
