#!/usr/bin/env bash
# The RDP side against programs that are not ours: lumsar-rdp, or xfreerdp or Remmina with the add-in
# under Xvfb, to xrdp with Xvnc behind it. Run by ctest (label long) or by hand.
#   xrdp_test.sh BUILD-DIRECTORY lumsar-rdp|xfreerdp|remmina
# Exit codes: 0 passed, 1 failed, 77 skipped because something is not installed.
set -euo pipefail
PATH=$PATH:/usr/sbin

usage="usage: xrdp_test.sh BUILD-DIRECTORY lumsar-rdp|xfreerdp|remmina"
build=$(realpath "${1:?$usage}")
client=${2:?$usage}

skip() { echo "skipped: $*" >&2; exit 77; }
need() {  # COMMAND PACKAGE
  command -v "$1" >/dev/null || skip "there is no $1 (package $2)"
}
need xrdp xrdp
need xrdp-chansrv xrdp
need Xvnc tigervnc-standalone-server
need openssl openssl
if [ "$client" != lumsar-rdp ]; then
  if [ "$client" = remmina ]; then
    need remmina "remmina remmina-plugin-rdp"
    need dbus-run-session dbus-daemon
  else
    need xfreerdp freerdp2-x11
  fi
  need Xvfb xvfb
  # FreeRDP's library looks for add-ins in one place only.
  directory=$(dirname "$(ldconfig -p | sed -n 's/.* => \(.*libfreerdp2.so.2\)$/\1/p' | head -1)")/freerdp2
  mkdir -p "$directory" 2>/dev/null || skip "$directory cannot be made"
  [ -w "$directory" ] || skip "$directory cannot be written"
  [ ! -e "$directory/liblumsar-client.so" ] || skip "there is an add-in in $directory already"
fi

work=$(mktemp -d)
pids=()
failures=0
addin=
cleanup() {
  for pid in "${pids[@]}"; do kill "$pid" 2>/dev/null || true; done
  wait 2>/dev/null || true
  if [ -n "$addin" ]; then
    rm -f "$addin"
    rmdir "$directory" 2>/dev/null || true
  fi
  rm -f /run/xrdp/sockdir/*_"${display:-none}"  # xrdp-chansrv leaves them there
  rm -rf "$work"
}
trap cleanup EXIT

export HOME=$work XDG_RUNTIME_DIR=$work TMPDIR=$work
chmod 700 "$work"

start() {  # NAME COMMAND...: in the background, with its output in NAME.log
  local name=$1
  shift
  "$@" >"$work/$name.log" 2>&1 &
  pids+=($!)
}

free_display() {  # FROM: the first display number that nobody uses
  local number=$1
  while [ -e "/tmp/.X11-unix/X$number" ] || [ -e "/tmp/.X$number-lock" ]; do
    number=$((number + 1))
  done
  echo "$number"
}

expect() {  # WHAT COMMAND...: the command succeeds within 20 s
  local what=$1 tries=0
  shift
  until "$@" >/dev/null 2>&1; do
    tries=$((tries + 1))
    if [ $tries -gt 100 ]; then
      echo "FAILED: $what"
      failures=$((failures + 1))
      tail -n 12 "$work"/*.log
      return 0
    fi
    sleep 0.2
  done
  echo "ok: $what"
}

pictures() { find "$work/pictures" -name '*.jpg' 2>/dev/null | wc -l; }
more_frames_than() { [ "$(pictures)" -gt "$1" ]; }
listens() { (exec 3<>"/dev/tcp/127.0.0.1/$1") 2>/dev/null; }

display=$(free_display 30)
port=$((33890 + display))
vnc_port=$((5900 + display))

openssl req -x509 -newkey rsa:2048 -nodes -days 2 -subj /CN=xrdp.invalid \
  -keyout "$work/key.pem" -out "$work/cert.pem" 2>/dev/null
fingerprint=$(openssl x509 -noout -fingerprint -sha256 -in "$work/cert.pem" | cut -d= -f2)

configure() {  # FILE ALLOWED PORT: xrdp's configuration, with the channel allowed or not
  cat >"$1" <<INI
[Globals]
ini_version=1
port=tcp://127.0.0.1:$3
security_layer=tls
certificate=$work/cert.pem
key_file=$work/key.pem
autorun=vnc
allow_channels=true
[Logging]
LogFile=$work/$(basename "$1").log
LogLevel=INFO
EnableSyslog=false
[Channels]
lumsar=$2
[vnc]
name=vnc
lib=libvnc.so
username=na
password=na
ip=127.0.0.1
port=$vnc_port
chansrvport=DISPLAY($display)
INI
}
configure "$work/yes.ini" true "$port"
configure "$work/no.ini" false "$((port + 1))"

start xvnc Xvnc ":$display" -SecurityTypes None -rfbport "$vnc_port" -localhost \
  -geometry 640x480 -depth 16
expect "Xvnc runs" listens "$vnc_port"
start chansrv env "DISPLAY=:$display" xrdp-chansrv
start xrdp xrdp --nodaemon --config "$work/yes.ini"
start xrdp-no xrdp --nodaemon --config "$work/no.ini"
expect "xrdp runs" listens "$port"
start_service() {
  start service "$build/bin/lumsar-camera-service" --config /dev/null --camera test:Front,640x480@30
  service=$!
}
start_service
start vm env "DISPLAY=:$display" "$build/bin/lumsar-agent" --xrdp --share-all --save "$work/pictures"

# An xrdp without log-on of its own still wants to be told to begin at once.
export LUMSAR_USER=na LUMSAR_PASSWORD=na
rdp() {  # PORT OPTION...
  local to=$1
  shift
  timeout 60 "$build/bin/lumsar-rdp" --accept-certificate "$fingerprint" --json "$@" \
    "127.0.0.1:$to"
}

test_lumsar_rdp() {
  start host1 rdp "$port" --duration 5s
  expect "frames come through xrdp" more_frames_than 60
  expect "the host is done" grep -q '"handshakes":1' "$work/host1.log"
  expect "the guest agent sees the client leave" grep -q 'host: disconnected' "$work/vm.log"

  local before
  before=$(pictures)
  start host2 rdp "$port" --duration 5s
  expect "frames come to the client that came back" more_frames_than $((before + 60))
  expect "the second host is done" grep -q '"handshakes":1' "$work/host2.log"

  start host3 rdp "$((port + 1))" --duration 1s --timeout 20s
  expect "a channel that is not allowed is explained" \
    grep -q 'does the server allow the channel?' "$work/host3.log"
  expect "the third host gives up" grep -q 'the VM has not answered' "$work/host3.log"
}

start_screen() {
  addin=$directory/liblumsar-client.so
  ln -s "$build/lib/freerdp2/liblumsar-client.so" "$addin"
  screen=$(free_display $((display + 1)))
  start xvfb Xvfb ":$screen" -screen 0 800x600x24
  expect "Xvfb runs" test -e "/tmp/.X11-unix/X$screen"
}

profile() {  # FILE NAME PORT: of Remmina, with the line that docs/rdp.md shows
  cat >"$1" <<INI
[remmina]
name=$2
protocol=RDP
server=127.0.0.1:$3
username=na
security=tls
cert_ignore=1
vc=lumsar
INI
  remmina --update-profile "$1" --set-option password=na >/dev/null 2>&1
}

# Both connections are in one process: the second is asked of the first by the session's bus.
test_remmina() {
  local screen remmina before
  start_screen
  export DISPLAY=:$screen GDK_BACKEND=x11 NO_AT_BRIDGE=1 DBUS_SESSION_BUS_ADDRESS=unix:path=$work/bus
  start bus dbus-daemon --session --nofork "--address=$DBUS_SESSION_BUS_ADDRESS"
  expect "the session's bus runs" test -S "$work/bus"
  profile "$work/one.remmina" one "$port"
  profile "$work/two.remmina" two "$((port + 1))"
  start remmina remmina -c "$work/one.remmina"
  remmina=$!
  expect "frames come from Remmina with the add-in" more_frames_than 60
  start second remmina -c "$work/two.remmina"
  expect "a second connection says why it has no cameras" \
    grep -q 'no cameras: another connection of this program has them' "$work/remmina.log"
  before=$(pictures)
  expect "the first goes on" more_frames_than $((before + 60))
  kill "$remmina"
  expect "the guest agent sees Remmina leave" grep -q 'host: disconnected' "$work/vm.log"
}

test_xfreerdp() {
  local screen xfreerdp before
  start_screen
  start xfreerdp env "DISPLAY=:$screen" xfreerdp "/v:127.0.0.1:$port" /u:na /p:na /sec:tls \
    "/cert:fingerprint:sha256:$fingerprint" /vc:lumsar
  xfreerdp=$!
  expect "frames come from xfreerdp with the add-in" more_frames_than 60

  kill -KILL "$service"
  expect "the add-in misses the killed service" grep -q 'camera service lost' "$work/xfreerdp.log"
  before=$(pictures)
  start_service
  expect "frames come from the service that came back" more_frames_than $((before + 60))

  kill "$xfreerdp"
  expect "the guest agent sees xfreerdp leave" grep -q 'host: disconnected' "$work/vm.log"
}

"test_${client//-/_}"
[ $failures = 0 ] || exit 1
echo "passed"
