#!/usr/bin/env bash
# The RDP side against programs that are not ours: lumsar-rdp, or xfreerdp or Remmina with the add-in
# under Xvfb, to xrdp with Xvnc behind it. Run by ctest (label long) or by hand.
#   xrdp_test.sh BIN lumsar-rdp|xfreerdp|remmina
# Exit codes: 0 passed, 1 failed, 77 skipped because something is not installed.
set -euo pipefail
PATH=$PATH:/usr/sbin
top=$(cd "$(dirname "$0")/../../.." && pwd)
. "$top/scripts/stack.sh"
. "$top/scripts/screen.sh"
. "$top/scripts/xrdp.sh"

usage="usage: xrdp_test.sh BIN lumsar-rdp|xfreerdp|remmina"
bin=$(realpath "${1:?$usage}")
client=${2:?$usage}

need() {  # COMMAND PACKAGE
  command -v "$1" >/dev/null || { echo "skipped: there is no $1 (package $2)" >&2; exit 77; }
}
need xrdp xrdp
need xrdp-chansrv xrdp
need Xvnc tigervnc-standalone-server
need openssl openssl
case $client in
  remmina)
    need remmina "remmina remmina-plugin-rdp"
    need dbus-daemon dbus-daemon
    need xdotool xdotool ;;
  xfreerdp) need xfreerdp freerdp2-x11 ;;
esac
[ "$client" = lumsar-rdp ] || need Xvfb xvfb

pictures() { find "$run/pictures" -name '*.jpg' 2>/dev/null | wc -l; }
more_frames_than() { [ "$(pictures)" -gt "$1" ]; }
said() { [ "$(grep -c "$2" "$run/$1.log")" -ge "${3:-1}" ]; }  # LOG TEXT [TIMES]

expect() {  # WHAT COMMAND...
  wait_until "$@"
  echo "ok: $1"
}

xrdp_begin
[ "$client" = lumsar-rdp ] || link_addin
start_xrdp 640x480
xrdp_configuration no false "$((port + 1))"
start xrdp-no xrdp --nodaemon --config "$run/no.ini"
start_service --config /dev/null --camera test:Front,640x480@30
start vm env "DISPLAY=:$display" "$bin/lumsar-agent" --xrdp --share-all --save "$run/pictures"

# An xrdp without log-on of its own still wants to be told to begin at once.
export LUMSAR_USER=na LUMSAR_PASSWORD=na
fingerprint=$(openssl x509 -noout -fingerprint -sha256 -in "$run/cert.pem" | cut -d= -f2)
rdp() {  # PORT OPTION...
  local to=$1
  shift
  timeout 60 "$bin/lumsar-rdp" --accept-certificate "$fingerprint" --json "$@" \
    "127.0.0.1:$to"
}

test_lumsar_rdp() {
  start host1 rdp "$port" --duration 5s
  expect "frames come through xrdp" more_frames_than 60
  expect "the host is done" said host1 '"handshakes":1'
  expect "the guest agent sees the client leave" said vm 'host: disconnected'

  local before
  before=$(pictures)
  start host2 rdp "$port" --duration 5s
  expect "frames come to the client that came back" more_frames_than $((before + 60))
  expect "the second host is done" said host2 '"handshakes":1'

  start host3 rdp "$((port + 1))" --duration 1s --timeout 20s
  expect "a channel that is not allowed is explained" said host3 'does the server allow the channel?'
  expect "the third host gives up" said host3 'the VM has not answered'
}

test_remmina() {
  local remmina before desktop
  start_screen 1280x900
  pids+=("$screen_pid")
  start_session_bus
  remmina_profile "$run/one.remmina" one "$port"
  remmina_profile "$run/two.remmina" two "$((port + 1))"
  start remmina remmina -c "$run/one.remmina"
  remmina=$!
  expect "frames come from Remmina with the add-in" more_frames_than 60

  expect "Remmina shows the desktop" has_window --name '^one$'
  desktop=$(window --name '^one$')
  open_cameras "$desktop"
  press "$cameras" alt+n
  expect "the camera window's button takes the camera back" said service 'is no longer shared with VM'
  before=$(pictures)
  click "$cameras" 50 88
  expect "a click on its switch shares it" said service 'is shared with VM' 2
  expect "frames come again" more_frames_than $((before + 60))

  start second remmina -c "$run/two.remmina"
  expect "a second connection says why it has no cameras" \
    said remmina 'no cameras: another connection of this program has them'
  before=$(pictures)
  expect "the first goes on" more_frames_than $((before + 60))
  kill "$remmina"
  expect "the guest agent sees Remmina leave" said vm 'host: disconnected'
}

test_xfreerdp() {
  local xfreerdp before
  start_screen 800x600
  pids+=("$screen_pid")
  start xfreerdp xfreerdp "/v:127.0.0.1:$port" /u:na /p:na /sec:tls \
    "/cert:fingerprint:sha256:$fingerprint" /vc:lumsar
  xfreerdp=$!
  expect "frames come from xfreerdp with the add-in" more_frames_than 60

  kill_service
  expect "the add-in misses the killed service" said xfreerdp 'camera service lost'
  before=$(pictures)
  rm -f "$run/lumsar/lumsar.sock"
  start_service --config /dev/null --camera test:Front,640x480@30
  expect "frames come from the service that came back" more_frames_than $((before + 60))

  kill "$xfreerdp"
  expect "the guest agent sees xfreerdp leave" said vm 'host: disconnected'
}

"test_${client//-/_}"
echo "passed"
