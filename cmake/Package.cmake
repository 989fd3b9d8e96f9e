# The package for a guest: everything that lumsar-vm needs there, and nothing of the other programs.
# `cmake --build BUILD --target package` makes lumsar-vm_VERSION_ARCHITECTURE.deb; the same files for
# other systems: `DESTDIR=FOLDER cmake --install BUILD --component guest --prefix /usr`.
if(NOT TARGET lumsar-vm-static)
  lumsar_left_out("package for the guest" "nothing, but build lumsar-vm-static")
  return()
endif()

function(lumsar_guest_files destination)
  install(${ARGN} DESTINATION ${destination} COMPONENT guest EXCLUDE_FROM_ALL)
endfunction()

set(guest ${PROJECT_SOURCE_DIR}/peers/vm)
block()
  set(CMAKE_INSTALL_FULL_BINDIR /usr/bin)
  configure_file(${guest}/lumsar-vm.service.in ${PROJECT_BINARY_DIR}/guest/lumsar-vm.service @ONLY)
endblock()
lumsar_guest_files(bin PROGRAMS $<TARGET_FILE:lumsar-vm-static> RENAME lumsar-vm)
lumsar_guest_files(lib/systemd/system FILES ${PROJECT_BINARY_DIR}/guest/lumsar-vm.service)
lumsar_guest_files(lib/modprobe.d FILES ${guest}/modprobe.conf RENAME lumsar-vm.conf)
lumsar_guest_files(share/doc/lumsar-vm FILES LICENSE RENAME copyright)

if(TARGET lumsar-vm-manual)
  set(page ${PROJECT_BINARY_DIR}/man/lumsar-vm.1)
  add_custom_command(OUTPUT ${page}.gz COMMAND gzip -9nkf ${page} DEPENDS ${page} VERBATIM)
  add_custom_target(guest-manual ALL DEPENDS ${page}.gz)
  add_dependencies(guest-manual lumsar-vm-manual)
  lumsar_guest_files(share/man/man1 FILES ${page}.gz)
endif()

# It asks dpkg for the architecture, and guesses wrongly without.
find_program(DPKG_DEB dpkg-deb)
mark_as_advanced(DPKG_DEB)
if(NOT DPKG_DEB)
  lumsar_left_out("package for the guest" dpkg)
  return()
endif()
set(CPACK_GENERATOR DEB)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL guest)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_PACKAGE_CONTACT "The Lumsar authors")
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_GUEST_PACKAGE_NAME lumsar-vm)
set(CPACK_DEBIAN_GUEST_PACKAGE_SECTION video)
set(CPACK_DEBIAN_GUEST_PACKAGE_RECOMMENDS v4l2loopback-dkms)
set(CPACK_DEBIAN_GUEST_DESCRIPTION "cameras of the remote desktop's user, inside the VM
The cameras that the user shares from their own machine appear as /dev/videoN.
This service receives them over a virtio port. A camera runs only while a
program in the VM has its device open.")
set(CPACK_DEBIAN_GUEST_PACKAGE_CONTROL_EXTRA
  ${guest}/debian/postinst ${guest}/debian/prerm ${guest}/debian/postrm)
include(CPack)
lumsar_built("package for the guest, with --target package")
