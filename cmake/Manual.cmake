lumsar_component(MANUALS "manual pages" HELP2MAN help2man)

# A manual page for the program TARGET, made of its own --help, so that the two never differ.
function(lumsar_manual target summary)
  if(NOT LUMSAR_MANUALS OR LUMSAR_SANITIZE)
    return()
  endif()
  set(page ${PROJECT_BINARY_DIR}/man/${target}.1)
  add_custom_command(OUTPUT ${page}
    COMMAND ${CMAKE_COMMAND} -E make_directory ${PROJECT_BINARY_DIR}/man
    COMMAND ${HELP2MAN} --no-info --name=${summary} --output=${page} $<TARGET_FILE:${target}>
    DEPENDS ${target} VERBATIM)
  add_custom_target(${target}-manual ALL DEPENDS ${page})
  install(FILES ${page} DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
endfunction()
