# SPDX-License-Identifier: Apache-2.0
# What the options VORN_SANITIZE, VORN_FUZZ and VORN_COVERAGE add to every target.
if(VORN_SANITIZE)
  add_compile_options(-fsanitize=${VORN_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${VORN_SANITIZE})
endif()

if(VORN_FUZZ)
  if(NOT CMAKE_CXX_COMPILER_ID MATCHES "Clang")
    message(FATAL_ERROR "VORN_FUZZ needs clang++: libFuzzer is part of it")
  endif()
  # Instrumentation only; a harness adds -fsanitize=fuzzer when it links.
  add_compile_options(-fsanitize=fuzzer-no-link)
  add_link_options(-fsanitize=fuzzer-no-link)
endif()

if(VORN_COVERAGE)
  add_compile_options(--coverage -fprofile-update=atomic)
  add_link_options(--coverage)
endif()
