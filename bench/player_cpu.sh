#!/usr/bin/env bash
# CPU of the whole windowed program while a song plays with the player window shown at size 2
# (1200 by 300), on an X server of its own (Xvfb), against `quivera-cli play` of the same song
# (the audio alone) and the X server's own share. Target: the program under 4% of one core.
#
#   bench/player_cpu.sh [SECONDS]      (default 30; the build in build/ is used)
# Prints the share of one core each used over the measured stretch, after 5 s of warm-up.
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
bin="$root/build/bin"
seconds="${1:-30}"
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT
export XDG_CONFIG_HOME="$work/config" XDG_DATA_HOME="$work/data" XDG_RUNTIME_DIR="$work/run"
mkdir -p "$XDG_CONFIG_HOME" "$XDG_DATA_HOME" "$XDG_RUNTIME_DIR"
chmod 700 "$XDG_RUNTIME_DIR"
unset QT_QPA_PLATFORM

# A song longer than the measurement: a plucked figure over noise, 44.1 kHz, 16-bit FLAC.
sox -n -r 44100 -c 2 -b 16 "$work/song.flac" synth $((seconds + 60)) brownnoise \
  tremolo 0.1 60 gain -6 2>/dev/null
"$bin/quivera-cli" import "$work/song.flac" >/dev/null
"$bin/quivera-cli" settings set outputDevice '{"UID": "null"}' >/dev/null
# The one-time question about the iTunes library was answered.
"$bin/quivera-cli" settings set seenAccessiTunesLibraryQuery true >/dev/null
"$bin/quivera-cli" settings set playerSize 2 >/dev/null

# Ticks (user + system) of a process so far.
cat >"$work/measure.sh" <<'MEASURE'
ticks() { awk '{print $14 + $15}' "/proc/$1/stat"; }
hz=$(getconf CLK_TCK)
pid="$1" xpid="$2" seconds="$3" label="$4"
sleep 5
a=$(ticks "$pid"); xa=$( [ -n "$xpid" ] && ticks "$xpid" || echo 0); t0=$(date +%s.%N)
sleep "$seconds"
b=$(ticks "$pid"); xb=$( [ -n "$xpid" ] && ticks "$xpid" || echo 0); t1=$(date +%s.%N)
awk -v a="$a" -v b="$b" -v xa="$xa" -v xb="$xb" -v t0="$t0" -v t1="$t1" -v hz="$hz" -v l="$label" -v x="$xpid" 'BEGIN {
  printf "%-44s %5.2f%% of one core\n", l, 100 * (b - a) / hz / (t1 - t0);
  if (x != "") printf "%-44s %5.2f%% of one core\n", "  the X server (Xvfb) meanwhile", 100 * (xb - xa) / hz / (t1 - t0);
}'
MEASURE

# The windowed program, playing, the window shown at size 2.
dbus-run-session -- "$root/scripts/with-xvfb" 1920x1080 bash -c '
  QT_QPA_PLATFORM=xcb "$1" >/dev/null 2>&1 &
  player=$!
  for _ in $(seq 100); do
    xdotool search --onlyvisible --name "^Quivera$" >/dev/null 2>&1 && break
    sleep 0.1
  done
  xserver="$XVFB_PID"
  playerctl -p quivera play
  bash "$2" "$player" "$xserver" "$3" "quivera, window at size 2, playing:"
  echo "  (MPRIS says: $(playerctl -p quivera status 2>&1), at $(playerctl -p quivera position 2>&1) s)"
  kill "$player"; wait "$player" 2>/dev/null || true' _ "$bin/quivera" "$work/measure.sh" "$seconds" 2>/dev/null

# The audio alone: the command-line player on the same device and song.
"$bin/quivera-cli" play >/dev/null 2>&1 &
cli=$!
bash "$work/measure.sh" "$cli" "" "$seconds" "quivera-cli play (the audio alone):"
kill "$cli"; wait "$cli" 2>/dev/null || true
