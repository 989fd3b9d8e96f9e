# What all targets share: warnings, sanitizers, and the summary of what was built and left out.

option(LUMSAR_WERROR "Treat warnings as errors" ON)
set(LUMSAR_SANITIZE "" CACHE STRING "Sanitizers for everything, such as address,undefined or thread")

add_library(lumsar_flags INTERFACE)
target_compile_options(lumsar_flags INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion -Wold-style-cast
  -Wnon-virtual-dtor -Woverloaded-virtual -Wcast-align -Wformat=2 -Wundef
  $<$<BOOL:${LUMSAR_WERROR}>:-Werror>)
target_link_options(lumsar_flags INTERFACE -Wl,-z,defs)
if(LUMSAR_SANITIZE)
  add_compile_options(-fsanitize=${LUMSAR_SANITIZE} -fno-sanitize-recover=all
    -fno-omit-frame-pointer -g)
  add_link_options(-fsanitize=${LUMSAR_SANITIZE})
endif()
option(LUMSAR_FUZZ "Build the fuzzers, with Clang" OFF)
if(LUMSAR_FUZZ)
  add_compile_options(-fsanitize=fuzzer-no-link)
endif()

# Asio for those who ask for it, compiled the same way everywhere: it chooses its allocator by what
# was included before it, unless told.
find_path(ASIO_INCLUDE_DIR asio.hpp)
mark_as_advanced(ASIO_INCLUDE_DIR)
if(ASIO_INCLUDE_DIR)
  find_package(Threads REQUIRED)
  add_library(lumsar_asio INTERFACE)
  target_include_directories(lumsar_asio SYSTEM INTERFACE ${ASIO_INCLUDE_DIR})
  target_compile_definitions(lumsar_asio INTERFACE
    ASIO_STANDALONE ASIO_NO_DEPRECATED ASIO_DISABLE_STD_ALIGNED_ALLOC)
  target_link_libraries(lumsar_asio INTERFACE Threads::Threads)
  if(LUMSAR_SANITIZE MATCHES thread AND CMAKE_CXX_COMPILER_ID STREQUAL GNU)
    target_compile_options(lumsar_asio INTERFACE -Wno-tsan)  # Asio has fences
  endif()
endif()

# Says in the summary that NAME is built.
function(lumsar_built name)
  set_property(GLOBAL APPEND PROPERTY LUMSAR_BUILT "${name}")
endfunction()

# Says in the summary that NAME is left out and which Debian package would bring it.
function(lumsar_left_out name package)
  set_property(GLOBAL APPEND PROPERTY LUMSAR_LEFT_OUT "${name} (install ${package})")
endfunction()

# A manual page for the program TARGET, made of its own --help, so that the two never differ.
find_program(HELP2MAN help2man)
mark_as_advanced(HELP2MAN)
if(NOT HELP2MAN)
  lumsar_left_out("manual pages" help2man)
endif()
function(lumsar_manual target summary)
  if(NOT HELP2MAN OR LUMSAR_SANITIZE)
    return()
  endif()
  set(page ${CMAKE_BINARY_DIR}/man/${target}.1)
  add_custom_command(OUTPUT ${page}
    COMMAND ${CMAKE_COMMAND} -E make_directory ${CMAKE_BINARY_DIR}/man
    COMMAND ${HELP2MAN} --no-info --name=${summary} --output=${page} $<TARGET_FILE:${target}>
    DEPENDS ${target} VERBATIM)
  add_custom_target(${target}-manual ALL DEPENDS ${page})
  install(FILES ${page} DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
endfunction()

function(lumsar_print_summary)
  get_property(built GLOBAL PROPERTY LUMSAR_BUILT)
  get_property(left_out GLOBAL PROPERTY LUMSAR_LEFT_OUT)
  message(STATUS "")
  foreach(name IN LISTS built)
    message(STATUS "will be built: ${name}")
  endforeach()
  foreach(name IN LISTS left_out)
    message(STATUS "left out:      ${name}")
  endforeach()
  message(STATUS "")
endfunction()
