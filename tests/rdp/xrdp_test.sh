#!/usr/bin/env bash
# The RDP side against servers and clients that are not ours: xrdp with Xvnc behind it, xfreerdp
# under Xvfb with the add-in. Run by ctest (label long) or by hand: xrdp_test.sh BUILD_DIRECTORY
# Exit codes: 0 passed, 1 failed, 77 skipped because something is not installed.
set -euo pipefail

build=$(realpath "${1:?usage: xrdp_test.sh BUILD_DIRECTORY}")
for command in xrdp xrdp-chansrv Xvnc openssl; do
  command -v "$command" >/dev/null || {
    echo "skipped: there is no $command (packages xrdp tigervnc-standalone-server openssl)"
    exit 77
  }
done

work=$(mktemp -d)
pids=()
failures=0
addin=
cleanup() {
  for pid in "${pids[@]}"; do kill "$pid" 2>/dev/null || true; done
  wait 2>/dev/null || true
  if [ -n "$addin" ]; then
    rm -f "$addin"
    rmdir "$(dirname "$addin")" 2>/dev/null || true
  fi
  rm -rf "$work"
}
trap cleanup EXIT

export HOME=$work XDG_RUNTIME_DIR=$work
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
more_pictures_than() { [ "$(pictures)" -gt "$1" ]; }
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
start service "$build/bin/lumsar-camera-service" --camera test:Front,640x480@30
start vm env "DISPLAY=:$display" "$build/bin/lumsar-vm" --xrdp --share-all --save "$work/pictures"

# An xrdp without log-on of its own still wants to be told to begin at once.
export LUMSAR_USER=na LUMSAR_PASSWORD=na
rdp() {  # PORT OPTION...
  local to=$1
  shift
  timeout 60 "$build/bin/lumsar-rdp" --accept-certificate "$fingerprint" --json "$@" \
    "127.0.0.1:$to"
}

start host1 rdp "$port" --for 5s
expect "pictures come through xrdp" more_pictures_than 60
expect "the host is done" grep -q '"handshakes":1' "$work/host1.log"
expect "the VM's side sees the client leave" grep -q 'host: disconnected' "$work/vm.log"

before=$(pictures)
start host2 rdp "$port" --for 5s
expect "pictures come to the client that came back" more_pictures_than $((before + 60))
expect "the second host is done" grep -q '"handshakes":1' "$work/host2.log"

start host3 rdp "$((port + 1))" --for 1s --wait 7s
expect "a channel that is not allowed is explained" \
  grep -q 'does the server allow the channel?' "$work/host3.log"
expect "the third host gives up" grep -q 'the VM has not answered' "$work/host3.log"

directory=$(dirname "$(ldconfig -p | sed -n 's/.* => \(.*libfreerdp2.so.2\)$/\1/p' | head -1)")/freerdp2
if ! command -v xfreerdp >/dev/null || ! command -v Xvfb >/dev/null; then
  echo "left out: xfreerdp with the add-in (packages freerdp2-x11 xvfb)"
elif ! mkdir -p "$directory" 2>/dev/null || ! [ -w "$directory" ]; then
  echo "left out: xfreerdp with the add-in, $directory cannot be written"
elif [ -e "$directory/liblumsar-client.so" ]; then
  echo "left out: xfreerdp with the add-in, there is one in $directory already"
else
  addin=$directory/liblumsar-client.so
  ln -s "$build/lib/freerdp2/liblumsar-client.so" "$addin"
  screen=$(free_display $((display + 1)))
  start xvfb Xvfb ":$screen" -screen 0 800x600x24
  expect "Xvfb runs" test -e "/tmp/.X11-unix/X$screen"
  before=$(pictures)
  start xfreerdp env "DISPLAY=:$screen" xfreerdp "/v:127.0.0.1:$port" /u:na /p:na /sec:tls \
    /cert:ignore /vc:lumsar
  expect "pictures come from xfreerdp with the add-in" more_pictures_than $((before + 60))
fi

[ $failures = 0 ] || exit 1
echo "passed"
