# SPDX-License-Identifier: Apache-2.0
# vorn_warnings(<target>): the warnings every target of this project is compiled with. They are errors
# where VORN_WERROR is on, as it is in all presets.
function(vorn_warnings target)
  target_compile_options(
    ${target}
    PRIVATE -Wall
            -Wextra
            -Wpedantic
            -Wcast-align
            -Wconversion
            -Wformat=2
            -Wnon-virtual-dtor
            -Wold-style-cast
            -Woverloaded-virtual
            -Wshadow
            -Wsign-conversion
            $<$<CXX_COMPILER_ID:GNU>:-Wduplicated-cond>
            $<$<CXX_COMPILER_ID:GNU>:-Wlogical-op>
            $<$<BOOL:${VORN_WERROR}>:-Werror>)
  if(VORN_SANITIZE AND CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    # Instrumented, the insides of std::regex look uninitialised to g++ 12.
    target_compile_options(${target} PRIVATE -Wno-maybe-uninitialized)
  endif()
endfunction()
