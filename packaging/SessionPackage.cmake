# The package for a guest with PipeWire: the agent runs in the user's session instead of as a
# service of the system. It takes the place of the other package, as both use the same port.
find_program(DPKG_SHLIBDEPS dpkg-shlibdeps)
mark_as_advanced(DPKG_SHLIBDEPS)
lumsar_component(SESSION_PACKAGE "package for a guest's sessions, with --target package"
  LUMSAR_GUEST_PACKAGE "what the package for the guest needs"
  lumsar_agent_pipewire "what the PipeWire output needs" DPKG_SHLIBDEPS dpkg-dev)
if(NOT LUMSAR_SESSION_PACKAGE)
  return()
endif()

block()
  set(CMAKE_INSTALL_FULL_BINDIR /usr/bin)
  configure_file(${guest}/lumsar-agent-session.service.in
    ${PROJECT_BINARY_DIR}/guest/lumsar-agent-session.service @ONLY)
endblock()
lumsar_package_files(session bin PROGRAMS $<TARGET_FILE:lumsar-agent>)
lumsar_package_files(session lib/systemd/user
  FILES ${PROJECT_BINARY_DIR}/guest/lumsar-agent-session.service)
lumsar_package_files(session lib/udev/rules.d FILES ${guest}/70-lumsar-agent.rules)
lumsar_package_files(session /etc/xdg/autostart FILES ${guest}/lumsar-agent-xrdp.desktop)
lumsar_package_files(session share/doc/lumsar-agent-session
  FILES ${PROJECT_SOURCE_DIR}/LICENSE RENAME copyright)
if(TARGET lumsar-agent-manual)
  lumsar_package_files(session share/man/man1 FILES ${PROJECT_BINARY_DIR}/man/lumsar-agent.1.gz)
endif()

list(APPEND CPACK_COMPONENTS_ALL session)
set(CPACK_DEBIAN_SESSION_PACKAGE_NAME lumsar-agent-session)
set(CPACK_DEBIAN_SESSION_PACKAGE_SECTION video)
set(CPACK_DEBIAN_SESSION_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_SESSION_PACKAGE_DEPENDS "libpipewire-0.3-modules")
set(CPACK_DEBIAN_SESSION_PACKAGE_RECOMMENDS "pipewire, wireplumber")
set(CPACK_DEBIAN_SESSION_PACKAGE_CONFLICTS lumsar-agent)
set(CPACK_DEBIAN_SESSION_PACKAGE_REPLACES lumsar-agent)
set(CPACK_DEBIAN_SESSION_DESCRIPTION "cameras of the remote desktop's user, inside a session
The cameras that the user shares from their own machine appear in the programs
of the session, through PipeWire. A camera runs only while a program takes
frames from it.")
set(CPACK_DEBIAN_SESSION_PACKAGE_CONTROL_EXTRA
  ${guest}/debian/session/postinst ${guest}/debian/session/postrm
  ${guest}/debian/session/conffiles)
