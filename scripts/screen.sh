# shellcheck shell=bash disable=SC2154
# An X server without a monitor, and a hand at its keyboard and mouse. Sourced by scripts/screenshot
# and tests, with $run a directory of their own and wait_until as in scripts/stack.sh.

# start_screen WIDTHxHEIGHT: sets screen_pid and DISPLAY, for programs at home in $run
start_screen() {
  Xvfb -displayfd 1 -screen 0 "$1x24" -nolisten tcp -noreset >"$run/display" 2>"$run/screen.log" &
  screen_pid=$!
  wait_until "the screen" test -s "$run/display"
  DISPLAY=:$(cat "$run/display")
  export DISPLAY HOME=$run XDG_DATA_HOME=$run XDG_CACHE_HOME=$run GDK_BACKEND=x11 NO_AT_BRIDGE=1 \
    GSETTINGS_BACKEND=memory DBUS_SESSION_BUS_ADDRESS=disabled: LC_ALL=C.UTF-8
}

# window HOW PATTERN: the number of a visible one
window() { xdotool search --onlyvisible "$1" "$2" 2>/dev/null | head -n 1 || true; }
has_window() { [ -n "$(window "$@")" ]; }

# press WINDOW KEY...
press() { xdotool windowfocus "$1" key "${@:2}"; }

# click WINDOW RIGHT TOP: so far from its right edge and from its top
click() {
  local WINDOW X Y WIDTH HEIGHT SCREEN
  eval "$(xdotool getwindowgeometry --shell "$1")"
  xdotool mousemove --window "$1" $((WIDTH - $2)) "$3" click 1
}

# open_cameras DESKTOP: sets cameras, the camera window. Keys that come while a window appears are
# lost.
open_cameras() {
  # A desktop below the pointer has the keyboard for itself.
  xdotool mousemove 10000 10000
  wait_until "the camera window" open_cameras_once "$1"
  cameras=$(window --name '^Cameras$')
}
open_cameras_once() {
  has_window --name '^Cameras$' && return
  press "$1" ctrl+alt+c
  sleep 0.5
  has_window --name '^Cameras$'
}
