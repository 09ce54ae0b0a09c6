#!/bin/bash
# Runs inside `dbus-run-session`: the accessibility bus, an X server, the player on both, and the
# AT-SPI client. Exit 77 when the accessibility bus cannot be started (the test then skips).
#   run_accessibility.sh QUIVERA QUIVERA_CLI SCRIPT LOG   (LOG: the player's output)
set -u
quivera="$1" cli="$2" script="$3" log="$4"
# One run at a time on the machine: an X server that goes away next door while one starts here
# can hand over its display number and then answer the check below in its stead. The programs
# started here do not inherit the lock, so it goes with this script.
exec {lock}>"${TMPDIR:-/tmp}/quivera-accessibility.lock"
flock -w 240 "$lock" || { echo "another accessibility run held the lock for 4 minutes" >&2; exit 1; }
pids=()
# Everything started here is gone when this ends, the X server included, so the next run's
# server never meets this one shutting down.
trap 'kill "${pids[@]}" 2>/dev/null; wait 2>/dev/null' EXIT

/usr/libexec/at-spi-bus-launcher --launch-immediately >/dev/null 2>&1 {lock}>&- &
pids+=($!)
for _ in $(seq 100); do
  if dbus-send --session --print-reply --dest=org.a11y.Bus /org/a11y/bus org.a11y.Bus.GetAddress >/dev/null 2>&1; then
    up=1; break
  fi
  sleep 0.1
done
if [ -z "${up:-}" ]; then
  echo "the accessibility bus did not start" >&2
  exit 77
fi

# The X server picks a free display itself and says which once it takes connections: no race
# with other servers starting at the same time, as `xvfb-run -a` has. A server that goes away
# next door can still take our socket with it, so the display is checked, and started again once
# or twice if it does not answer.
xserver=
start_x() {
  exec {fd}<> <(:)
  Xvfb -displayfd "$fd" -screen 0 1920x1080x24 -nolisten tcp >>"$log.x" 2>&1 {lock}>&- &
  xserver=$!
  pids+=("$xserver")
  read -r -t 30 -u "$fd" display || return 1
  export DISPLAY=":$display"
  for _ in $(seq 50); do
    xdpyinfo >/dev/null 2>&1 && return 0
    sleep 0.1
  done
  return 1
}
for attempt in 1 2 3; do
  start_x && break
  kill "$xserver" 2>/dev/null; wait "$xserver" 2>/dev/null
  [ "$attempt" = 3 ] && { echo "Xvfb did not start" >&2; exit 1; }
done

QT_QPA_PLATFORM=xcb QT_LINUX_ACCESSIBILITY_ALWAYS_ON=1 QT_ACCESSIBILITY=1 "$quivera" >"$log" 2>&1 {lock}>&- &
player=$!
# The scripts share tests/support/screen_reader.py.
PYTHONPATH="$(dirname "$0")/../../support" /usr/bin/python3 "$script" "$cli" {lock}>&-
rc=$?
kill "$player" 2>/dev/null
wait "$player" 2>/dev/null
exit $rc
