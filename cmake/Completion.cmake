set(LUMSAR_ZSH_COMPLETIONS ${CMAKE_INSTALL_DATADIR}/zsh/site-functions CACHE STRING
  "Where zsh looks for completions of what is installed")

# What a shell completes after the name of the program TARGET, made of its own --help.
function(lumsar_completion target)
  if(LUMSAR_SANITIZE)
    return()
  endif()
  set(script ${PROJECT_SOURCE_DIR}/packaging/completion)
  foreach(shell IN ITEMS bash zsh)
    set(file ${PROJECT_BINARY_DIR}/completion/${shell}/${target})
    add_custom_command(OUTPUT ${file}
      COMMAND ${CMAKE_COMMAND} -E make_directory ${PROJECT_BINARY_DIR}/completion/${shell}
      COMMAND ${script} ${shell} $<TARGET_FILE:${target}> > ${file}
      DEPENDS ${target} ${script} VERBATIM)
    list(APPEND files ${file})
  endforeach()
  add_custom_target(${target}-completion ALL DEPENDS ${files})
  list(GET files 0 bash)
  list(GET files 1 zsh)
  install(FILES ${bash} DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
  install(FILES ${zsh} DESTINATION ${LUMSAR_ZSH_COMPLETIONS} RENAME _${target})
endfunction()
