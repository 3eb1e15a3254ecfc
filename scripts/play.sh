#!/usr/bin/env bash
# Builds the kavogps tool (release preset) and plays a bundled recording
# through the library. Arguments go to `kavogps play` unchanged:
#
#   scripts/play.sh                                   # data/walk.nmea
#   scripts/play.sh data/noisy-drive.nmea --interval 20
#   scripts/play.sh --json | head                     # TPV/SKY objects
#   scripts/play.sh --gpx /tmp/walk.gpx               # and a GPX track
#
# Installs what the build needs with apt-get when it is missing (as root or
# through sudo -n). KAVOGPS_JOBS (default 2) sets the build parallelism.
set -euo pipefail

ROOT=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
PACKAGES=(cmake ninja-build g++ libgtest-dev libgmock-dev)
TOOL=$ROOT/build/release/tools/kavogps/kavogps

install_missing_packages() {
  local missing=() p
  for p in "${PACKAGES[@]}"; do
    dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
  done
  [ ${#missing[@]} -eq 0 ] && return 0
  echo "play.sh: installing ${missing[*]}" >&2
  local sudo=()
  if [ "$(id -u)" -ne 0 ]; then
    command -v sudo >/dev/null || { echo "play.sh: not root and no sudo: install ${missing[*]} by hand" >&2; return 1; }
    sudo=(sudo -n)
  fi
  export DEBIAN_FRONTEND=noninteractive
  "${sudo[@]}" apt-get update -q </dev/null >&2 &&
    "${sudo[@]}" apt-get install -y -q --no-install-recommends "${missing[@]}" </dev/null >&2
}

if command -v dpkg-query >/dev/null; then
  install_missing_packages
fi

# Build messages go to standard error, so `scripts/play.sh --json` gives
# only the tool's output on standard output.
cd "$ROOT"
log=$(mktemp)
trap 'rm -f "$log"' EXIT
echo "play.sh: building kavogps (release preset, build/release)..." >&2
if ! { cmake --preset release && cmake --build --preset release --target kavogps -j "${KAVOGPS_JOBS:-2}"; } \
    >"$log" 2>&1 </dev/null; then
  cat "$log" >&2
  echo "play.sh: the build failed" >&2
  exit 1
fi
rm -f "$log"
trap - EXIT
exec "$TOOL" play "$@"
