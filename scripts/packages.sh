# shellcheck shell=bash disable=SC2034
# Finds out which packages are missing and installs them. Sourced by ./demo and ./test.
#
# A line of a list: the Debian package and a file, command or pkg-config module that proves that it
# is there, so that nothing is asked of a package manager when nothing is missing.

build_packages='
g++                              cmd:g++
cmake                            cmd:cmake
ninja-build                      cmd:ninja
pkg-config                       cmd:pkg-config
qtbase5-dev                      pc:Qt5Core
libasio-dev                      file:/usr/include/asio.hpp
libcli11-dev                     file:/usr/include/CLI/CLI.hpp
libfmt-dev                       file:/usr/include/fmt/core.h
libedit-dev                      file:/usr/include/editline/readline.h
libgstreamer1.0-dev              pc:gstreamer-1.0
libgstreamer-plugins-base1.0-dev pc:gstreamer-app-1.0
'
run_packages='
gstreamer1.0-plugins-base        file:/usr/lib/*/gstreamer-1.0/libgstvideotestsrc.so
gstreamer1.0-plugins-good        file:/usr/lib/*/gstreamer-1.0/libgstjpeg.so
jq                               cmd:jq
'
# For ./demo --record.
record_packages='
gstreamer1.0-tools               cmd:gst-launch-1.0
'
test_packages='
libgtest-dev                     file:/usr/include/gtest/gtest.h
binutils                         cmd:readelf
'
# Without these some tests are skipped, and say so.
wanted_test_packages='
libspice-client-glib-2.0-dev     pc:spice-client-glib-2.0
libgtk-3-dev                     pc:gtk+-3.0
virt-viewer                      cmd:remote-viewer
spice-client-gtk                 cmd:spicy
xvfb                             cmd:Xvfb
xdotool                          cmd:xdotool
gettext                          cmd:msgfmt
freerdp2-dev                     pc:freerdp2
qemu-system-x86                  cmd:qemu-system-x86_64
make                             cmd:make
xz-utils                         cmd:xz
openssl                          cmd:openssl
abigail-tools                    cmd:abidiff
chromium                         cmd:chromium
v4l-utils                        cmd:v4l2-ctl
ffmpeg                           cmd:ffmpeg
desktop-file-utils               cmd:desktop-file-validate
appstream                        cmd:appstreamcli
help2man                         cmd:help2man
man-db                           cmd:man
gstreamer1.0-plugins-ugly        file:/usr/lib/*/gstreamer-1.0/libgstx264.so
gstreamer1.0-plugins-bad         file:/usr/lib/*/gstreamer-1.0/libgstopenh264.so
libpipewire-0.3-dev              pc:libpipewire-0.3
libturbojpeg0-dev                pc:libturbojpeg
libavcodec-dev                   pc:libavcodec
libswscale-dev                   pc:libswscale
libseccomp-dev                   pc:libseccomp
pipewire                         cmd:pipewire
pipewire-bin                     cmd:pw-cli
wireplumber                      cmd:wireplumber
dbus-daemon                      cmd:dbus-daemon
gstreamer1.0-pipewire            file:/usr/lib/*/gstreamer-1.0/libgstpipewire.so
gstreamer1.0-tools               cmd:gst-launch-1.0
doxygen                          cmd:doxygen
'
# For bench/run, besides those of the tests.
bench_packages='
libgtest-dev                     file:/usr/include/gtest/gtest.h
libbenchmark-dev                 file:/usr/include/benchmark/benchmark.h
valgrind                         cmd:valgrind
'
# Besides those without which some tests are skipped; the rows that use them are left out.
wanted_bench_packages='
libusbredirparser-dev            pc:libusbredirparser-0.5
'
# For a real VM as the peer.
vm_packages='
qemu-system-x86                  cmd:qemu-system-x86_64
libspice-client-glib-2.0-dev     pc:spice-client-glib-2.0
make                             cmd:make
xz-utils                         cmd:xz
'
clang_packages='
clang                            cmd:clang++
dpkg-dev                         cmd:dpkg-buildflags
'
fuzz_packages='
clang                            cmd:clang++
libclang-rt-14-dev               file:/usr/lib/llvm-*/lib/clang/*/lib/linux/libclang_rt.fuzzer-x86_64.a
'
# For the longer tests: programs that are not ours as the peer.
long_packages='
firefox-esr                      cmd:firefox-esr
xserver-xorg-core                cmd:Xorg
valgrind                         cmd:valgrind
xrdp                             file:/usr/sbin/xrdp
tigervnc-standalone-server       cmd:Xvnc
freerdp2-x11                     cmd:xfreerdp
remmina                          cmd:remmina
remmina-plugin-rdp               file:/usr/lib/*/remmina/plugins/remmina-plugin-rdp.so
xvfb                             cmd:Xvfb
libvirt-daemon                   file:/usr/sbin/libvirtd
libvirt-daemon-driver-qemu       file:/usr/lib/*/libvirt/connection-driver/libvirt_driver_qemu.so
libvirt-clients                  cmd:virsh
virt-manager                     cmd:virt-manager
gir1.2-spiceclientgtk-3.0        file:/usr/lib/*/girepository-1.0/SpiceClientGtk-3.0.typelib
gnome-boxes                      cmd:gnome-boxes
xdg-desktop-portal               file:/usr/libexec/xdg-desktop-portal
libglib2.0-bin                   cmd:gdbus
debootstrap                      cmd:debootstrap
dpkg-dev                         cmd:dpkg-buildpackage
debhelper                        cmd:dh
lintian                          cmd:lintian
kmod                             cmd:depmod
openssl                          cmd:openssl
'
coverage_packages='
gcovr                            cmd:gcovr
jq                               cmd:jq
'
lint_packages='
clang-format                     cmd:clang-format
clang-tidy                       cmd:clang-tidy
shellcheck                       cmd:shellcheck
cppcheck                         cmd:cppcheck
'

is_there() {
  case $1 in
    cmd:*) command -v "${1#cmd:}" >/dev/null ;;
    pc:*) command -v pkg-config >/dev/null && pkg-config --exists "${1#pc:}" ;;
    file:*) compgen -G "${1#file:}" >/dev/null ;;
  esac
}

# missing_of LIST: the packages of a list that are not there.
missing_of() {
  local package proof
  while read -r package proof; do
    [ -z "$package" ] || is_there "$proof" || echo "$package"
  done <<<"$1"
}

as_root() {
  if [ "$(id -u)" = 0 ]; then
    "$@"
  elif command -v sudo >/dev/null; then
    sudo "$@"
  else
    echo "This needs root, and there is no sudo. Run as root: $*" >&2
    return 1
  fi
}

# need_packages LIST...: installs what is missing of the lists, or says what is and stops.
need_packages() {
  local missing
  missing=$(for list in "$@"; do missing_of "$list"; done | tr '\n' ' ')
  [ -n "${missing// /}" ] || return 0
  if ! command -v apt-get >/dev/null; then
    echo "Missing (names of Debian's packages): $missing" >&2
    echo "Install what provides them on this system, then run this again." >&2
    exit 1
  fi
  echo "Installing: $missing"
  # A list of words.
  # shellcheck disable=SC2086
  install_packages $missing || { echo "Could not install: $missing" >&2; exit 1; }
}

# want_packages LIST...: tries to install what is missing; does without what cannot be had.
want_packages() {
  local list package
  command -v apt-get >/dev/null || return 0
  for package in $(for list in "$@"; do missing_of "$list"; done); do
    echo "Installing: $package"
    install_packages "$package" || echo "  not available here; what uses it is left out"
  done
}

# Waits for another package manager instead of failing on its lock.
apt_get() {
  as_root env DEBIAN_FRONTEND=noninteractive apt-get -o DPkg::Lock::Timeout=600 "$@"
}

# The lock on the lists has no such option.
update_lists() {
  local tries
  for tries in {1..120}; do
    apt_get update -qq 2>&1 | tee /dev/stderr | grep -q 'Could not get lock' || return 0
    echo "another package manager is at work; waiting ($tries)"
    sleep 5
  done
  return 1
}

install_packages() {
  local log status=0
  log=$(mktemp)
  {
    if [ -z "${lists_are_fresh:-}" ]; then update_lists; fi &&
      apt_get install -y -qq --no-install-recommends "$@"
  } >"$log" 2>&1 || status=$?
  lists_are_fresh=yes
  [ $status = 0 ] || tail -n 15 "$log" >&2
  rm -f "$log"
  return $status
}
