# shellcheck shell=bash disable=SC2154
# An RDP server that is not ours, xrdp with Xvnc behind it, and clients with the add-in. Sourced by
# scripts/screenshot and a test, after scripts/stack.sh and scripts/screen.sh; bin is the directory of the built programs.

pids=()
start() {  # NAME COMMAND...: in the background, with its output in NAME.log
  local name=$1
  shift
  "$@" >"$run/$name.log" 2>&1 &
  pids+=($!)
}

free_display() {  # FROM: the first display number that nobody uses
  local number=$1
  while [ -e "/tmp/.X11-unix/X$number" ] || [ -e "/tmp/.X$number-lock" ]; do
    number=$((number + 1))
  done
  echo "$number"
}

listens() { (exec 3<>"/dev/tcp/127.0.0.1/$1") 2>/dev/null; }

xrdp_begin() {
  stack_begin
  addin='' display=''
  trap xrdp_end EXIT
  export HOME=$run TMPDIR=$run
}

xrdp_end() {
  local pid
  for pid in "${pids[@]}"; do kill "$pid" 2>/dev/null || true; done
  for pid in "${pids[@]}"; do wait "$pid" 2>/dev/null || true; done
  if [ -n "$addin" ]; then
    rm -f "$addin"
    rmdir "$(dirname "$addin")" 2>/dev/null || true
  fi
  rm -f /run/xrdp/sockdir/*_"${display:-none}"  # xrdp-chansrv leaves them there
  stack_end
}

xrdp_configuration() {  # NAME ALLOWED PORT: NAME.ini, with the channel allowed or not
  cat >"$run/$1.ini" <<INI
[Globals]
ini_version=1
port=tcp://127.0.0.1:$3
security_layer=tls
certificate=$run/cert.pem
key_file=$run/key.pem
autorun=vnc
allow_channels=true
[Logging]
LogFile=$run/$1.log
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

# start_xrdp WIDTHxHEIGHT: sets display, port and vnc_port
start_xrdp() {
  display=$(free_display 30)
  port=$((33890 + display))
  vnc_port=$((5900 + display))
  openssl req -x509 -newkey rsa:2048 -nodes -days 2 -subj /CN=xrdp.invalid \
    -keyout "$run/key.pem" -out "$run/cert.pem" 2>/dev/null
  xrdp_configuration yes true "$port"
  start xvnc Xvnc ":$display" -SecurityTypes None -rfbport "$vnc_port" -localhost \
    -geometry "$1" -depth 24
  wait_until "Xvnc's start" listens "$vnc_port"
  start chansrv env "DISPLAY=:$display" xrdp-chansrv
  start xrdp xrdp --nodaemon --config "$run/yes.ini"
  wait_until "xrdp's start" listens "$port"
}

# FreeRDP's library looks for add-ins in one place only. Ends with 77 where that cannot be used.
link_addin() {
  local directory
  directory=$(dirname "$(ldconfig -p | sed -n 's/.* => \(.*libfreerdp2.so.2\)$/\1/p' | head -1)")/freerdp2
  local name=$directory/liblumsar-client.so
  [ ! -e "$name" ] || { echo "skipped: there is an add-in in $directory already" >&2; exit 77; }
  if ! mkdir -p "$directory" 2>/dev/null || ! ln -s "$bin/../lib/freerdp2/liblumsar-client.so" "$name"; then
    echo "skipped: $directory cannot be written" >&2
    exit 77
  fi
  addin=$name
}

# Several connections are in one process: it is asked by the session's bus.
start_session_bus() {
  export DBUS_SESSION_BUS_ADDRESS=unix:path=$run/bus
  start bus dbus-daemon --session --nofork "--address=$DBUS_SESSION_BUS_ADDRESS"
  wait_until "the start of the session's bus" test -S "$run/bus"
}

remmina_profile() {  # FILE NAME PORT [OPTIONS]: with the line that docs/rdp.md shows
  cat >"$1" <<INI
[remmina]
name=$2
protocol=RDP
server=127.0.0.1:$3
username=na
security=tls
cert_ignore=1
vc=lumsar${4:-}
resolution_mode=2
resolution_width=${width:-640}
resolution_height=${height:-480}
INI
  remmina --update-profile "$1" --set-option password=na >/dev/null 2>&1
}
