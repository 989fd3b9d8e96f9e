# The files of a guest, in two components of which one is chosen, as only one program can have the
# port open: "guest", lumsar-agent-static as a service of the system, and "session", lumsar-agent in
# the user's session, with PipeWire. Debian's packages are made of them, and for other systems there is
# `DESTDIR=DIRECTORY cmake --install BUILD --component guest --prefix /usr`.

# lumsar_guest_files(COMPONENT DESTINATION FILES|PROGRAMS FILE... [RENAME NAME])
function(lumsar_guest_files component destination)
  install(${ARGN} DESTINATION ${destination} COMPONENT ${component} EXCLUDE_FROM_ALL)
endfunction()

# lumsar_guest_component(COMPONENT PACKAGE UNIT UNIT-DIRECTORY PROGRAM)
function(lumsar_guest_component component package unit unit_directory program)
  set(CMAKE_INSTALL_FULL_BINDIR /usr/bin)
  configure_file(${unit}.in ${PROJECT_BINARY_DIR}/guest/${unit} @ONLY)
  lumsar_guest_files(${component} lib/systemd/${unit_directory}
    FILES ${PROJECT_BINARY_DIR}/guest/${unit})
  lumsar_guest_files(${component} bin PROGRAMS $<TARGET_FILE:${program}> RENAME lumsar-agent)
  lumsar_guest_files(${component} share/doc/${package}
    FILES ${PROJECT_SOURCE_DIR}/LICENSE RENAME copyright)
  lumsar_guest_files(${component} share/bash-completion/completions
    FILES ${PROJECT_BINARY_DIR}/completion/bash/lumsar-agent)
  lumsar_guest_files(${component} ${LUMSAR_ZSH_COMPLETIONS}
    FILES ${PROJECT_BINARY_DIR}/completion/zsh/lumsar-agent RENAME _lumsar-agent)
  if(TARGET lumsar-agent-manual)
    lumsar_guest_files(${component} share/man/man1 FILES ${PROJECT_BINARY_DIR}/man/lumsar-agent.1)
  endif()
endfunction()

if(TARGET lumsar-agent-static)
  lumsar_guest_component(guest lumsar-agent lumsar-agent.service system lumsar-agent-static)
  lumsar_guest_files(guest lib/modprobe.d FILES lumsar-agent.modprobe.conf RENAME lumsar-agent.conf)
endif()
if(TARGET lumsar_agent_pipewire)
  lumsar_guest_component(session lumsar-agent-session lumsar-agent-session.service user lumsar-agent)
  if(TARGET lumsar-decoder)
    lumsar_guest_files(session ${CMAKE_INSTALL_LIBEXECDIR}/lumsar
      PROGRAMS $<TARGET_FILE:lumsar-decoder>)
  endif()
  lumsar_guest_files(session lib/udev/rules.d FILES 70-lumsar-agent.rules)
  lumsar_guest_files(session /etc/xdg/autostart FILES lumsar-agent-xrdp.desktop)
endif()
