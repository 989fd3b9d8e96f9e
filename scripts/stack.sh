# shellcheck shell=bash disable=SC2154
# Starts and stops the whole stack (camera service, guest agent, host) in a private runtime directory.
# Sourced by ./demo and the end-to-end tests; bin is the directory of the built programs.

stack_begin() {
  run=$(mktemp -d "${TMPDIR:-/tmp}/lumsar-stack-XXXXXX")
  export XDG_RUNTIME_DIR=$run XDG_CONFIG_HOME=$run
  mkdir -m 700 "$run/plug" "$run/frames"
  service_pid='' vm_pid='' host_pid=''
  trap stack_end EXIT
  trap 'exit 130' INT
  trap 'exit 143' TERM
}

# Leaves no process, no socket and no file behind, however the run ends.
stack_end() {
  trap - EXIT
  trap '' INT TERM
  local pid
  for pid in $host_pid $vm_pid $service_pid; do kill "$pid" 2>/dev/null || true; done
  for pid in $host_pid $vm_pid $service_pid; do wait "$pid" 2>/dev/null || true; done
  rm -rf "$run"
  trap - INT TERM
}

# In seconds. What is waited for takes milliseconds; a busy machine may need more.
wait_limit=60

# wait_until WHAT COMMAND...: until COMMAND succeeds; fails with WHAT and the logs.
wait_until() {
  local end=$((SECONDS + wait_limit)) what=$1
  shift
  until "$@" >/dev/null 2>&1; do
    [ $SECONDS -lt $end ] || stack_fail "$what did not happen in time"
    sleep 0.05
  done
}

stack_fail() {
  echo "FAILED: $*" >&2
  local log
  for log in "$run"/*.log; do
    echo "--- the end of $(basename "$log"):" >&2
    tail -n 15 "$log" >&2
  done
  exit 1
}

start_service() {
  "$bin/lumsar-camera-service" "$@" >>"$run/service.log" 2>&1 &
  service_pid=$!
  wait_until "the camera service's start" test -S "$run/lumsar/lumsar.sock"
}

# service_is EXPRESSION: whether it is true of the service's status.
service_is() { "$bin/lumsar-camera-service" --status --json | jq -e "$1"; }

# The service dies without a word, as in a crash.
kill_service() {
  kill -KILL "$service_pid"
  wait "$service_pid" 2>/dev/null || true
  service_pid=''
}

stop_service() {
  kill "$service_pid"
  wait "$service_pid" || stack_fail "the camera service ended with $?"
  service_pid=''
}

# start_vm KIND OPTION...
start_vm() {
  local kind=$1
  shift
  "$bin/lumsar-agent" --protocol "$kind" --listen "unix:$run/vm.sock" --status-file "$run/vm.json" "$@" \
    >>"$run/vm.log" 2>&1 &
  vm_pid=$!
  wait_until "the guest agent's start" test -S "$run/vm.sock"
}

stop_vm() {
  kill "$vm_pid"
  wait "$vm_pid" || stack_fail "the guest agent ended with $?"
  vm_pid=''
}

# start_host KIND OPTION...: a host that takes commands by `tell`.
start_host() {
  local kind=$1
  shift
  rm -f "$run/commands" && mkfifo "$run/commands"
  "$bin/lumsar-host" --protocol "$kind" --vm "unix:$run/vm.sock" --json "$@" \
    <"$run/commands" >"$run/host.json" 2>>"$run/host.log" &
  host_pid=$!
  exec 9>"$run/commands"
  wait_until "the VM's answer to the host" grep -q 'VM answered' "$run/host.log"
}

# tell COMMAND: the host carries it out, and says that it succeeded.
tell() {
  local before
  before=$(grep -cF "$1: done" "$run/host.log" || true)
  echo "$1" >&9
  wait_until "\"$1\"" host_has_done "$1" "$before"
}
host_has_done() { [ "$(grep -cF "$1: done" "$run/host.log")" -gt "$2" ]; }

# Ends the host, which leaves its summary in host.json.
stop_host() {
  echo quit >&9
  exec 9>&-
  wait "$host_pid" || stack_fail "the host ended with $?"
  host_pid=''
}

# vm EXPRESSION: a value of the VM's status; with vm_is, whether it is true.
vm() { jq -r "$1" "$run/vm.json"; }
vm_is() { jq -e "$1" "$run/vm.json"; }

# The VM has shown another N frames of each camera that is there, COUNT cameras in all.
frames_of() { vm "[.cameras[] | select(.present) | .frames] | min // 0"; }
cameras_flow() {
  local before
  wait_until "$1 cameras in the VM" vm_is "[.cameras[] | select(.present)] | length == $1"
  before=$(frames_of)
  wait_until "frames of $1 cameras" vm_is \
    "[.cameras[] | select(.present) | .frames] | min > $before + $2"
}
