# SPDX-License-Identifier: ISC
# What every target of ours is compiled with, and the helpers that the folders share.

add_library(quillworks_options INTERFACE)
target_compile_options(quillworks_options INTERFACE -Wall -Wextra -Wpedantic -Wconversion
                       # The same formula gives the same bits on every instruction set.
                       -ffp-contract=off)
target_include_directories(quillworks_options INTERFACE ${CMAKE_SOURCE_DIR})
if(QUILLWORKS_WERROR)
  target_compile_options(quillworks_options INTERFACE -Werror)
endif()
if(QUILLWORKS_SANITIZE)
  add_compile_options(-fsanitize=${QUILLWORKS_SANITIZE} -fno-sanitize-recover=all
                      -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${QUILLWORKS_SANITIZE})
  # Instrumented programs are large: linked in a quarter of the time.
  find_program(QUILLWORKS_LLD ld.lld)
  if(QUILLWORKS_LLD)
    add_link_options(-fuse-ld=lld)
  endif()
  # The rules of the effect interface too, as in a debug build.
  target_compile_definitions(quillworks_options INTERFACE QUILLWORKS_CHECK_RULES)
endif()

# A build from nothing for a first look (./demo), in half the time: vector code in its plain form alone,
# the headers that most files include read once, and what waits for files and people not optimised. Not
# for development, since it hides a missing #include and keeps ccache from its work.
option(QUILLWORKS_FIRST_LOOK "Compile quickly rather than for speed" OFF)
if(QUILLWORKS_FIRST_LOOK)
  target_compile_definitions(quillworks_options INTERFACE HWY_COMPILE_ONLY_STATIC)
elseif(QUILLWORKS_SANITIZE)
  # Instrumented vector code compiles for minutes: AVX2 and the scalar set stand for all sets.
  target_compile_definitions(quillworks_options INTERFACE
    "HWY_DISABLED_TARGETS=(HWY_SSSE3|HWY_SSE4|HWY_AVX3|HWY_AVX3_DL)")
endif()

# quillworks_precompile(TARGET HEADERS...), or (TARGET REUSE_FROM OTHER) where the flags of the two are
# the same: headers beside the standard library's that are read once for a first look.
function(quillworks_precompile target)
  if(NOT QUILLWORKS_FIRST_LOOK)
    return()
  endif()
  if("REUSE_FROM" IN_LIST ARGN)
    target_precompile_headers(${target} ${ARGN})
  else()
    target_precompile_headers(${target} PRIVATE <algorithm> <array> <atomic> <bit> <cmath> <concepts>
      <cstdint> <cstring> <functional> <limits> <map> <memory> <numbers> <optional> <span> <string>
      <string_view> <tuple> <utility> <vector> ${ARGN})
  endif()
endfunction()

# quillworks_light(TARGET): for what is not optimised for a first look.
function(quillworks_light target)
  if(QUILLWORKS_FIRST_LOOK)
    target_compile_options(${target} PRIVATE -O0)
  endif()
endfunction()

# quillworks_library(NAME [LIBRARIES...]): a static library of the .cpp files in the current folder.
# New files are found by themselves.
function(quillworks_library name)
  file(GLOB sources CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/*.cpp)
  add_library(${name} STATIC ${sources})
  target_link_libraries(${name} PUBLIC quillworks_options ${ARGN})
endfunction()

# The folders of the effect families hold source pairs only: one library each, no build file.
function(quillworks_effect_families)
  set(families "")
  foreach(family IN LISTS ARGN)
    file(GLOB sources CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/${family}/*.cpp)
    if(sources)
      add_library(${family} STATIC ${sources})
      target_link_libraries(${family} PUBLIC quillworks_options framework)
      quillworks_precompile(${family} REUSE_FROM framework)
      list(APPEND families ${family})
    endif()
  endforeach()
  set_property(GLOBAL PROPERTY QUILLWORKS_FAMILIES ${families})
endfunction()
