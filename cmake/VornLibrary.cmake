# vorn_library(<target> <namespace>): what the three shared libraries have in common: the alias
# <namespace>::<target>, version and SONAME, include paths, warnings, and installation with headers.
#
# The library's file is lib<namespace>.so; its headers install below include/<namespace>/.
function(vorn_library target namespace)
  add_library(${namespace}::${target} ALIAS ${target})
  set_target_properties(
    ${target}
    PROPERTIES OUTPUT_NAME ${namespace}
               EXPORT_NAME ${target}
               VERSION ${PROJECT_VERSION}
               SOVERSION ${PROJECT_VERSION_MAJOR})
  target_compile_features(${target} PUBLIC cxx_std_20)
  target_include_directories(
    ${target} PUBLIC $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}> $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
  vorn_warnings(${target})
  # What a library calls in itself is its own: no detour over the table of what others might replace.
  target_compile_options(${target} PRIVATE -fno-semantic-interposition)
  target_link_options(${target} PRIVATE -Wl,-Bsymbolic-functions)

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
