# SPDX-License-Identifier: Apache-2.0
# The package files that let another project say find_package(Vorn) and link Vorn::vorn.
include(CMakePackageConfigHelpers)
configure_package_config_file(
  "${PROJECT_SOURCE_DIR}/cmake/VornConfig.cmake.in" "${PROJECT_BINARY_DIR}/VornConfig.cmake"
  INSTALL_DESTINATION "${CMAKE_INSTALL_LIBDIR}/cmake/Vorn")
write_basic_package_version_file("${PROJECT_BINARY_DIR}/VornConfigVersion.cmake" COMPATIBILITY SameMinorVersion)
install(FILES "${PROJECT_BINARY_DIR}/VornConfig.cmake" "${PROJECT_BINARY_DIR}/VornConfigVersion.cmake"
        DESTINATION "${CMAKE_INSTALL_LIBDIR}/cmake/Vorn")
