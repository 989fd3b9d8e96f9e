# The package for a guest: everything that lumsar-agent needs there, and nothing of the other programs.
# `cmake --build BUILD --target package` makes lumsar-agent_VERSION_ARCHITECTURE.deb; the same files for
# other systems: `DESTDIR=DIRECTORY cmake --install BUILD --component guest --prefix /usr`.
lumsar_component(GUEST_PACKAGE "package for the guest, with --target package"
  lumsar-agent-static "what lumsar-agent-static needs" DPKG_DEB dpkg)
if(NOT LUMSAR_GUEST_PACKAGE)
  return()
endif()

# lumsar_package_files(COMPONENT DESTINATION WHAT...)
function(lumsar_package_files component destination)
  install(${ARGN} DESTINATION ${destination} COMPONENT ${component} EXCLUDE_FROM_ALL)
endfunction()

set(guest ${PROJECT_SOURCE_DIR}/packaging)
block()
  set(CMAKE_INSTALL_FULL_BINDIR /usr/bin)
  configure_file(${guest}/lumsar-agent.service.in ${PROJECT_BINARY_DIR}/guest/lumsar-agent.service @ONLY)
endblock()
lumsar_package_files(guest bin PROGRAMS $<TARGET_FILE:lumsar-agent-static> RENAME lumsar-agent)
lumsar_package_files(guest lib/systemd/system FILES ${PROJECT_BINARY_DIR}/guest/lumsar-agent.service)
lumsar_package_files(guest lib/modprobe.d FILES ${guest}/lumsar-agent.modprobe.conf RENAME lumsar-agent.conf)
lumsar_package_files(guest share/doc/lumsar-agent FILES ${PROJECT_SOURCE_DIR}/LICENSE RENAME copyright)

if(TARGET lumsar-agent-manual)
  set(page ${PROJECT_BINARY_DIR}/man/lumsar-agent.1)
  add_custom_command(OUTPUT ${page}.gz COMMAND gzip -9nkf ${page} DEPENDS ${page} VERBATIM)
  add_custom_target(guest-manual ALL DEPENDS ${page}.gz)
  add_dependencies(guest-manual lumsar-agent-manual)
  lumsar_package_files(guest share/man/man1 FILES ${page}.gz)
endif()

set(CPACK_GENERATOR DEB)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL guest)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_PACKAGE_CONTACT "The Lumsar authors")
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_GUEST_PACKAGE_NAME lumsar-agent)
set(CPACK_DEBIAN_GUEST_PACKAGE_SECTION video)
set(CPACK_DEBIAN_GUEST_PACKAGE_RECOMMENDS v4l2loopback-dkms)
set(CPACK_DEBIAN_GUEST_DESCRIPTION "cameras of the remote desktop's user, inside the VM
The cameras that the user shares from their own machine appear as /dev/videoN.
This service receives them over a virtio port. A camera runs only while a
program in the VM has its device open.")
set(CPACK_DEBIAN_GUEST_PACKAGE_CONTROL_EXTRA
  ${guest}/debian/postinst ${guest}/debian/prerm ${guest}/debian/postrm)
include(SessionPackage.cmake)
include(CPack)
