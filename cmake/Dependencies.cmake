# All libraries that are not ours. None is an error here: each component says what it needs.
find_package(Threads REQUIRED)
find_package(Qt5 5.15 QUIET COMPONENTS Core)
find_package(PkgConfig QUIET)

# Headers alone, so that nothing is added to what a program needs at run time.
# lumsar_header_library(TARGET HEADER DEFINITIONS...)
function(lumsar_header_library target header)
  find_path(${target}_INCLUDE_DIR ${header})
  mark_as_advanced(${target}_INCLUDE_DIR)
  if(${target}_INCLUDE_DIR)
    add_library(${target} INTERFACE)
    target_include_directories(${target} SYSTEM INTERFACE ${${target}_INCLUDE_DIR})
    target_compile_definitions(${target} INTERFACE ${ARGN})
  endif()
endfunction()

# Compiled into the library that all programs share.
lumsar_header_library(lumsar_fmt fmt/format-inl.h)
lumsar_header_library(lumsar_cli11 CLI/CLI.hpp)

# Compiled the same way everywhere: it chooses its allocator by what was included before it, unless
# told.
lumsar_header_library(lumsar_asio asio.hpp
  ASIO_STANDALONE ASIO_NO_DEPRECATED ASIO_DISABLE_STD_ALIGNED_ALLOC ASIO_SEPARATE_COMPILATION)
if(TARGET lumsar_asio)
  target_link_libraries(lumsar_asio INTERFACE Threads::Threads)
  if(LUMSAR_SANITIZE MATCHES thread AND CMAKE_CXX_COMPILER_ID STREQUAL GNU)
    target_compile_options(lumsar_asio INTERFACE -Wno-tsan)  # Asio has fences
  endif()
endif()

find_path(EDITLINE_INCLUDE_DIR editline/readline.h)
find_library(EDITLINE_LIBRARY edit)
mark_as_advanced(EDITLINE_INCLUDE_DIR EDITLINE_LIBRARY)
if(EDITLINE_INCLUDE_DIR AND EDITLINE_LIBRARY)
  add_library(lumsar_editline INTERFACE)
  target_include_directories(lumsar_editline SYSTEM INTERFACE ${EDITLINE_INCLUDE_DIR})
  target_link_libraries(lumsar_editline INTERFACE ${EDITLINE_LIBRARY})
endif()

if(PkgConfig_FOUND)
  pkg_check_modules(GSTREAMER IMPORTED_TARGET QUIET
    gstreamer-1.0>=1.20 gstreamer-app-1.0 gstreamer-video-1.0 gstreamer-pbutils-1.0)
  pkg_check_modules(SPICE IMPORTED_TARGET GLOBAL QUIET spice-client-glib-2.0)
  pkg_check_modules(GTK IMPORTED_TARGET GLOBAL QUIET gtk+-3.0>=3.22)
  pkg_check_modules(GDK_PIXBUF IMPORTED_TARGET GLOBAL QUIET gdk-pixbuf-2.0)
  pkg_check_modules(FREERDP IMPORTED_TARGET GLOBAL QUIET freerdp2 winpr2)
  pkg_check_modules(PIPEWIRE IMPORTED_TARGET GLOBAL QUIET libpipewire-0.3>=0.3.65)
  pkg_check_modules(LIBAV IMPORTED_TARGET GLOBAL QUIET
    libavcodec>=59 libavutil>=57 libswscale>=6)
  pkg_check_modules(SECCOMP IMPORTED_TARGET GLOBAL QUIET libseccomp)
  pkg_check_modules(TURBOJPEG IMPORTED_TARGET GLOBAL QUIET libturbojpeg>=2.1)
endif()

find_program(HELP2MAN help2man)
mark_as_advanced(HELP2MAN)
