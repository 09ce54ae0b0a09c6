# Shared by scripts/run and scripts/test: install what is missing, configure, build.
# shellcheck shell=bash

QUIVERA_ROOT="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"

# Debian packages the build, the program and the tests need.
QUIVERA_PACKAGES=(
  cmake ninja-build ccache pkg-config g++
  qt6-base-dev qt6-svg-dev
  libsqlite3-dev sqlite3
  libavformat-dev libavcodec-dev libavutil-dev libswresample-dev
  libtag1-dev libsoxr-dev libasound2-dev liblilv-dev lv2-dev
  libplist-dev libplist-utils libavahi-client-dev
  libgtest-dev libgmock-dev libbenchmark-dev
  sox ffmpeg xvfb xauth dbus playerctl avahi-daemon avahi-utils swh-lv2 mda-lv2
  python3
  clang-format
  at-spi2-core python3-pyatspi xdotool x11-utils imagemagick
  fonts-roboto-unhinted
)

quivera_missing_packages() {
  local missing=() p
  for p in "${QUIVERA_PACKAGES[@]}"; do
    dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
  done
  echo "${missing[@]:-}"
}

quivera_install() {
  local missing
  missing="$(quivera_missing_packages)"
  [ -z "$missing" ] && return 0
  if [ "$(id -u)" -eq 0 ]; then
    echo "Installing: $missing"
    export DEBIAN_FRONTEND=noninteractive
    apt-get update -qq
    # shellcheck disable=SC2086
    apt-get install -y -qq --no-install-recommends $missing
  else
    echo "These Debian packages are missing. Install them, then run this again:" >&2
    echo "  sudo apt-get install $missing" >&2
    exit 1
  fi
}

# quivera_build BUILD_DIR [extra cmake args...]
# QUIVERA_TARGETS="a b" builds only those targets (and what they need) instead of everything.
quivera_build() {
  local dir="$1"; shift
  local jobs targets=()
  jobs="$(nproc 2>/dev/null || echo 2)"
  export CCACHE_DIR="${CCACHE_DIR:-$HOME/.cache/ccache}"
  cmake -S "$QUIVERA_ROOT" -B "$QUIVERA_ROOT/$dir" -G Ninja "$@" >/dev/null
  # shellcheck disable=SC2206
  [ -n "${QUIVERA_TARGETS:-}" ] && targets=(--target $QUIVERA_TARGETS)
  cmake --build "$QUIVERA_ROOT/$dir" -j "$jobs" "${targets[@]}"
}
