lumsar_component(MANUALS "manual pages" HELP2MAN help2man)

# A manual page for the program TARGET, made of its own --help, so that the two never differ.
function(lumsar_manual target summary)
  if(NOT LUMSAR_MANUALS OR LUMSAR_SANITIZE)
    return()
  endif()
  set(see_also ${PROJECT_SOURCE_DIR}/packaging/see-also.h2m)
  set(page ${PROJECT_BINARY_DIR}/man/${target}.1)
  add_custom_command(OUTPUT ${page}
    COMMAND ${CMAKE_COMMAND} -E make_directory ${PROJECT_BINARY_DIR}/man
    COMMAND ${HELP2MAN} --no-info --name=${summary} --include=${see_also} --output=${page}
      $<TARGET_FILE:${target}>
    # The one section that a manual has and the tool does not know.
    COMMAND sed -i "s/^.SS .Exit status:.$/.SH \"EXIT STATUS\"/" ${page}
    DEPENDS ${target} ${see_also} VERBATIM)
  add_custom_target(${target}-manual ALL DEPENDS ${page})
  set_property(GLOBAL APPEND PROPERTY LUMSAR_MANUAL_PAGES ${page})
  install(FILES ${page} DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
endfunction()
