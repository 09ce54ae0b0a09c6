#!/bin/bash
# Runs inside `dbus-run-session`: the accessibility bus, an X server, the player on both, and the
# AT-SPI client. Exit 77 when the accessibility bus cannot be started (the test then skips).
#   run_accessibility.sh QUIVERA QUIVERA_CLI SCRIPT LOG   (LOG: the player's output)
set -u
quivera="$1" cli="$2" script="$3" log="$4"

/usr/libexec/at-spi-bus-launcher --launch-immediately >/dev/null 2>&1 &
launcher=$!
for _ in $(seq 50); do
  if dbus-send --session --print-reply --dest=org.a11y.Bus /org/a11y/bus org.a11y.Bus.GetAddress >/dev/null 2>&1; then
    up=1; break
  fi
  sleep 0.1
done
if [ -z "${up:-}" ]; then
  echo "the accessibility bus did not start" >&2
  kill "$launcher" 2>/dev/null
  exit 77
fi

xvfb-run -a -s "-screen 0 1920x1080x24" bash -c '
  QT_QPA_PLATFORM=xcb QT_LINUX_ACCESSIBILITY_ALWAYS_ON=1 QT_ACCESSIBILITY=1 "$1" >"$4" 2>&1 &
  player=$!
  /usr/bin/python3 "$3" "$2"
  rc=$?
  kill "$player" 2>/dev/null
  wait "$player" 2>/dev/null
  exit $rc' _ "$quivera" "$cli" "$script" "$log"
rc=$?
kill "$launcher" 2>/dev/null
exit $rc
