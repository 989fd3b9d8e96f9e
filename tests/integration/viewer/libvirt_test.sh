#!/usr/bin/env bash
# Viewers that ask libvirt for their VM, with the module: a camera is switched on in the window and
# read in the guest, with most of them also once the VM has been started again. Run by ctest (label long) or by hand.
#   libvirt_test.sh BIN virt-viewer|virt-manager|gnome-boxes
# Exit codes: 0 passed, 1 failed, 77 skipped because something is not installed.
set -euo pipefail
bin=$(realpath "$1")
viewer=$2
uuid=6a1f2d5c-3f0e-4a57-9d2b-5b1c8e7f0a11
top=$(cd "$(dirname "$0")/../../.." && pwd)
. "$top/scripts/stack.sh"
. "$top/scripts/screen.sh"

skip() { echo "skipped: $*" >&2; exit 77; }
for tool in qemu-system-x86_64 libvirtd virsh Xvfb xdotool "$viewer"; do
  PATH=$PATH:/usr/sbin command -v "$tool" >/dev/null || skip "there is no $tool"
done
guest=$("$top/tests/integration/vm/build-guest") || skip "no guest to boot"
# libvirt serves a user's session to anyone but root.
as_user=()
if [ "$(id -u)" = 0 ]; then
  as_user=(unshare --user --map-user=1000 --map-group=1000)
  "${as_user[@]}" true 2>/dev/null || skip "root cannot be another user here"
fi

write_autostart() {
  cat >"$run/autostart" <<'SH'
#!/bin/busybox sh
lumsar-agent --v4l2 &
until guest_reader /dev/video20 5 >/dev/null; do sleep 0.2; done
echo "the guest has read frames" >/dev/console
SH
  chmod +x "$run/autostart"
}

# With the channel of docs/spice.md.
write_domain() {
  cat >"$run/domain.xml" <<XML
<domain type='qemu'>
  <name>Desktop</name>
  <uuid>$uuid</uuid>
  <memory unit='MiB'>256</memory>
  <os>
    <type arch='x86_64' machine='q35'>hvm</type>
    <kernel>$guest/vmlinux</kernel>
    <initrd>$run/initramfs</initrd>
    <cmdline>console=ttyS0 quiet panic=-1</cmdline>
  </os>
  <features><acpi/></features>
  <devices>
    <emulator>$(command -v qemu-system-x86_64)</emulator>
    <serial type='file'><source path='$run/console.log'/></serial>
    <graphics type='spice'><listen type='none'/></graphics>
    <video><model type='vga'/></video>
    <memballoon model='none'/>
    <channel type='null'><target type='virtio' name='org.lumsar.test.0'/></channel>
    $(sed -n "/<channel type='spiceport'>/,/<\/channel>/p" "$top/docs/spice.md")
  </devices>
</domain>
XML
}

virsh() { "${as_user[@]}" virsh --quiet --connect qemu:///session "$@"; }

start_libvirt() {
  mkdir -p "$run/libvirt"
  # What a VM writes is kept by no further daemon.
  echo 'stdio_handler = "file"' >"$run/libvirt/qemu.conf"
  PATH=$PATH:/usr/sbin "${as_user[@]}" libvirtd >"$run/libvirt.log" 2>&1 &
  libvirt_pid=$!
  # Nobody but this test starts one.
  export LIBVIRT_AUTOSTART=0
  wait_until "libvirt's start" test -S "$run/libvirt/libvirt-sock"
  wait_until "libvirt's answer" virsh list
}

start_viewer() {
  local words
  case $viewer in
    virt-viewer) words=(--connect qemu:///session --attach --reconnect Desktop) ;;
    virt-manager) words=(--connect qemu:///session --show-domain-console Desktop --no-fork) ;;
    gnome-boxes) words=(--open-uuid "$uuid") ;;
  esac
  # One window less at the start.
  mkdir -p "$run/glib-2.0/settings"
  printf '[org/gnome/boxes]\nfirst-run=false\n' >"$run/glib-2.0/settings/keyfile"
  export GSETTINGS_BACKEND=keyfile
  mkdir -p "$run/virt-viewer"
  printf '[virt-viewer]\nask-quit=false\n' >"$run/virt-viewer/settings"
  "${as_user[@]}" "$bin/lumsar-viewer" "$viewer" "${words[@]}" >"$run/viewer.log" 2>&1 &
  viewer_pid=$!
}

# The VM is libvirt's child.
end_all() {
  local pid
  virsh destroy Desktop >/dev/null 2>&1 || true
  for pid in $viewer_pid $libvirt_pid $screen_pid $bus_pid; do
    if kill "$pid" 2>/dev/null; then wait "$pid" || true; fi
  done
  stack_end
}

said() { [ "$(grep -cF "$2" "$run/$1")" -ge "$3" ]; }  # LOG TEXT TIMES

wait_limit=180  # an emulated VM boots
stack_begin
viewer_pid='' libvirt_pid='' screen_pid='' bus_pid=''
trap end_all EXIT
start_service --camera test:Front,320x240@10
write_autostart
"$top/tests/integration/vm/make-initramfs" "$guest" "$run/initramfs" desktop \
  "$bin/lumsar-agent-static:bin/lumsar-agent" "$bin/../guest/guest_reader" "$run/autostart"
write_domain
start_screen 1280x900
# GNOME Boxes and virt-manager are programs of a desktop's session.
export DBUS_SESSION_BUS_ADDRESS=unix:path=$run/bus
"${as_user[@]}" dbus-daemon --session --nofork "--address=$DBUS_SESSION_BUS_ADDRESS" \
  >"$run/bus.log" 2>&1 &
bus_pid=$!
wait_until "the session's bus" test -S "$run/bus"
start_libvirt
virsh define "$run/domain.xml"
virsh start Desktop
start_viewer
wait_until "the VM's answer" said viewer.log "VM answered" 1
wait_until "the viewer's window" has_window --name 'Desktop|^Boxes$'
open_cameras "$(window --name 'Desktop|^Boxes$')"
press "$cameras" space
wait_until "the switch" said service.log "is shared with VM" 1
press "$cameras" alt+r
wait_until "a camera's frames in the guest" said console.log "the guest has read frames" 1

# GNOME Boxes leaves a VM that has ended.
if [ "$viewer" != gnome-boxes ]; then
  virsh destroy Desktop
  wait_until "the end of the connection" said viewer.log "connection to the VM has ended" 1
  virsh start Desktop
  wait_until "the answer of the VM that was started again" said viewer.log "VM answered" 2
  wait_until "the camera that was remembered" said service.log "is shared with VM" 2
  wait_until "its frames" said console.log "the guest has read frames" 1
fi

if [ "$viewer" = virt-viewer ]; then
  press "$cameras" Escape
  click "$(window --class virt-viewer)" 26 27
  wait "$viewer_pid" || stack_fail "the viewer ended with $?"
  viewer_pid=''
fi
stop_service
echo passed
