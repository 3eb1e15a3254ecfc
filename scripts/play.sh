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
TOOL=$ROOT/build/release/tools/kavogps/kavogps

"$ROOT/scripts/install-packages.sh" cmake ninja-build g++ libasio-dev nlohmann-json3-dev

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
