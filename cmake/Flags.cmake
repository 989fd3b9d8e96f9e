# Warnings and instrumentation, the same for every target.
option(LUMSAR_WERROR "Treat warnings as errors (for developers and CI)" OFF)
option(LUMSAR_FUZZ "Build the fuzzers, with Clang" OFF)
set(LUMSAR_SANITIZE "" CACHE STRING "Sanitizers for everything, such as address,undefined or thread")

add_library(lumsar_flags INTERFACE)
target_compile_options(lumsar_flags INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion -Wold-style-cast
  -Wnon-virtual-dtor -Woverloaded-virtual -Wcast-align -Wformat=2 -Wundef
  $<$<BOOL:${LUMSAR_WERROR}>:-Werror>)
# Clang leaves a sanitizer's functions to the program, which every library of a fuzzer would miss.
target_link_options(lumsar_flags INTERFACE $<$<NOT:$<BOOL:${LUMSAR_FUZZ}>>:-Wl,-z,defs>)
# Some packages ask for it; what shares a precompiled header needs the same everywhere.
add_compile_options(-pthread)
# The same bytes wherever the source tree is.
add_compile_options(-ffile-prefix-map=${PROJECT_SOURCE_DIR}=. -ffile-prefix-map=${PROJECT_BINARY_DIR}=.)
if(LUMSAR_SANITIZE)
  add_compile_options(-fsanitize=${LUMSAR_SANITIZE} -fno-sanitize-recover=all
    -fno-omit-frame-pointer -g)
  add_link_options(-fsanitize=${LUMSAR_SANITIZE})
endif()
if(LUMSAR_FUZZ)
  add_compile_options(-fsanitize=fuzzer-no-link)
endif()

# Headers that nearly every file of a target includes, compiled once. Builds with
# CMAKE_DISABLE_PRECOMPILE_HEADERS, as in scripts/builds, see to it that files still include what
# they use.
set(lumsar_standard_headers
  <algorithm> <chrono> <functional> <map> <memory> <optional> <span> <string> <vector>)
function(lumsar_precompile target)
  target_precompile_headers(${target} PRIVATE ${lumsar_standard_headers} ${ARGN})
endfunction()
# lumsar_share_precompiled(OWNER TARGET...): uses those of OWNER, compiled with the same options.
function(lumsar_share_precompiled owner)
  foreach(target IN LISTS ARGN)
    target_precompile_headers(${target} REUSE_FROM ${owner})
  endforeach()
endfunction()
