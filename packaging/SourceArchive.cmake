# The sources as one file, of what was committed last: `cmake --build BUILD --target dist`.
find_program(GIT git)
mark_as_advanced(GIT)
if(NOT GIT OR NOT EXISTS ${PROJECT_SOURCE_DIR}/.git)
  lumsar_left_out("source archive" "needs git and a checkout")
  return()
endif()
set(archive lumsar-${PROJECT_VERSION})
add_custom_target(dist
  COMMAND ${GIT} archive --prefix=${archive}/ --output=${PROJECT_BINARY_DIR}/${archive}.tar.gz HEAD
  WORKING_DIRECTORY ${PROJECT_SOURCE_DIR}
  COMMENT "${PROJECT_BINARY_DIR}/${archive}.tar.gz" VERBATIM)
