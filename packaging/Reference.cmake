# The reference of the public headers, made of their comments: `cmake --build BUILD --target reference`
# leaves it in BUILD/reference/html. A warning is an error.
find_program(DOXYGEN doxygen)
mark_as_advanced(DOXYGEN)
if(NOT DOXYGEN)
  lumsar_left_out("reference of the public headers, with --target reference" "install doxygen")
  return()
endif()
configure_file(reference/Doxyfile.in ${PROJECT_BINARY_DIR}/Doxyfile @ONLY)
add_custom_target(reference COMMAND ${DOXYGEN} Doxyfile WORKING_DIRECTORY ${PROJECT_BINARY_DIR}
  COMMENT "${PROJECT_BINARY_DIR}/reference/html/index.html" VERBATIM)
