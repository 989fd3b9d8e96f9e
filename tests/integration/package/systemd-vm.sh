# shellcheck shell=bash disable=SC2154
# A small Debian with systemd in an emulated VM, with a camera service and lumsar-spice beside it.
# Sourced; packages and build are the directories of the Debian packages and of the built programs.
PATH=$PATH:/usr/sbin:/sbin
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
port=org.lumsar.camera.0

skip() { echo "skipped: $*" >&2; exit 77; }

# vm_begin PACKAGE: this one is to be tried.
vm_begin() {
  local tool
  [ "$(id -u)" = 0 ] || skip "only root can make a Debian system"
  for tool in debootstrap depmod qemu-system-x86_64; do
    command -v "$tool" >/dev/null || skip "$tool is missing"
  done
  [ -n "$(compgen -G "$packages/$1_*.deb")" ] || skip "the package was not built"
  guest=$("$here/../vm/build-guest")
  work=$(mktemp -d /tmp/lumsar-systemd.XXXXXX)
  root=$work/root
  trap vm_end EXIT
  trap 'exit 130' INT
  trap 'exit 143' TERM
}

vm_end() {
  trap '' INT TERM
  local child
  for child in $(jobs -pr); do kill "$child" || true; done
  wait
  rm -rf "$work"
}

in_background() {
  local name=$1
  shift
  timeout "$time_limit" "$@" >"$work/$name.log" 2>&1 </dev/null &
}

# make_root PACKAGE DEBIAN CHECKS: with PACKAGE to be installed, what it needs of Debian's packages,
# and CHECKS, which run at the end of the start. The camera module is left beside.
make_root() {
  local modules release
  release=$(cat "$guest/complete")
  debootstrap --variant=minbase --include="systemd-sysv,udev,kmod${2:+,$2}" \
    bookworm "$root" >"$work/debootstrap.log" 2>&1 ||
    skip "debootstrap failed: $(tail -n 1 "$work/debootstrap.log")"
  rm -rf "$root"/var/{cache/apt,lib/apt/lists} "$root"/usr/share/{doc,locale,man}
  modules=$root/lib/modules/$release
  mkdir -p "$modules/kernel"
  cp "$guest"/modules/*.ko "$modules/kernel/"
  mv "$modules/kernel/v4l2loopback.ko" "$root/root/"
  depmod -b "$root" "$release" 2>/dev/null
  cp "$packages/$1"_*.deb "$root/root/$1.deb"
  cp "$build/guest/guest_reader" "$3" "$root/usr/bin/"
  cat >"$root/etc/systemd/system/checks.service" <<TEXT
[Service]
Type=idle
ExecStart=/usr/bin/$(basename "$3")
ExecStopPost=/usr/bin/systemctl poweroff
StandardOutput=tty
StandardError=tty
TTYPath=/dev/ttyS0
TEXT
  # A login would take the console away from the checks.
  ln -s /dev/null "$root/etc/systemd/system/serial-getty@ttyS0.service"
  mkdir -p "$root/etc/systemd/system/multi-user.target.wants"
  ln -s ../checks.service "$root/etc/systemd/system/multi-user.target.wants/"
}

# Not the initial file system itself, as no sandbox can be built on that.
make_image() {
  mkdir -p "$work/image/bin"
  cp "$guest/busybox" "$work/image/bin/"
  (cd "$root" && find . | "$guest/busybox" cpio -o -H newc 2>/dev/null) >"$work/image/root.cpio"
  cat >"$work/image/init" <<'TEXT'
#!/bin/busybox sh
/bin/busybox mkdir /root
/bin/busybox mount -t tmpfs -o size=90%,mode=755 root /root
cd /root && /bin/busybox cpio -i -d -m </root.cpio
/bin/busybox rm /root.cpio
exec /bin/busybox switch_root /root /sbin/init
TEXT
  chmod +x "$work/image/init"
  (cd "$work/image" && find . | "$guest/busybox" cpio -o -H newc 2>/dev/null) >"$work/initramfs"
}

# run_vm HOST_COMMAND...: until the checks have run. Where with_programs is set, this machine's files
# can be mounted by the name "programs".
with_programs=''
run_vm() {
  local command commands=() files=()
  if [ -n "$with_programs" ]; then
    files=(-fsdev "local,id=programs,path=/,security_model=none,readonly=on,multidevs=remap"
      -device "virtio-9p-pci,fsdev=programs,mount_tag=programs")
  fi
  for command in "$@"; do commands+=(--exec "$command"); done
  make_image
  in_background qemu qemu-system-x86_64 -nodefaults -no-user-config -display none -no-reboot \
    -machine q35 -accel tcg -m 3072 -kernel "$guest/vmlinux" -initrd "$work/initramfs" \
    -append "console=ttyS0 quiet systemd.show_status=0" -serial "file:$work/console" \
    "${files[@]}" \
    -spice "unix=on,disable-ticketing=on,addr=$work/spice" -device virtio-serial-pci \
    -chardev "spiceport,id=camera,name=$port" -device "virtserialport,chardev=camera,name=$port"
  local vm=$!
  in_background service "$build/bin/lumsar-camera-service" --config /dev/null \
    --ipc-channel "$work/cameras" --camera test:Desk,640x480@10
  in_background host "$build/bin/lumsar-spice" "spice+unix://$work/spice" \
    --ipc-channel "$work/cameras" --timeout "${time_limit}s" "${commands[@]}" --duration "${time_limit}s"
  wait "$vm" || true
}

# The checks print lines that begin with "check: "; standard input has what they are to be.
expect_checks() {
  local found
  found=$(tr -d '\r' <"$work/console" | sed -n 's/^check: //p')
  diff -u --label expected --label found - <(echo "$found") ||
    { cat "$work/console" "$work"/*.log; exit 1; }
}
