#!/usr/bin/env bash
# Instructions per line of the chunk path, counted by callgrind (the same on
# every run, unlike the timings of bench_chunk_path on a busy machine): for
# the generated recording and each recording in data/, with the default
# receiver options and with every talker accepted.
#
#   bench/chunk_path_instructions.sh [BUILD-DIR]    (default build/release)
#
# Only what runs inside ReceiverStateStore::ProcessChunk is counted, over the
# bench's warm-up pass and its one --smoke pass.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
bench=${1:-build/release}/bench/bench_chunk_path
command -v valgrind >/dev/null || { echo "needs valgrind (Debian package valgrind: apt-get install valgrind)" >&2; exit 2; }
[ -x "$bench" ] || { echo "no $bench: cmake --preset release -B build/release && cmake --build build/release --target bench_chunk_path" >&2; exit 2; }
all_talkers=(--talkers GP,GN,GL,GA,GB,BD,GQ,QZ)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# Prints "instructions lines" for one run of the bench.
count() {
  valgrind --tool=callgrind --callgrind-out-file="$work/out" \
    --toggle-collect='kavo::nmea::ReceiverStateStore::ProcessChunk*' \
    "$bench" --smoke "$@" >"$work/stdout" 2>"$work/stderr" || { cat "$work/stderr" >&2; return 1; }
  local ir repeats lines
  ir=$(sed -n 's/.*Collected : \([0-9]*\).*/\1/p' "$work/stderr")
  repeats=$(sed -n 's/^recording: .* x \([0-9]*\)$/\1/p' "$work/stdout")
  lines=$(sed -n 's/^lines: \([0-9]*\),.*/\1/p' "$work/stdout")
  [ "${ir:-0}" -gt 0 ] || { echo "callgrind counted nothing in ProcessChunk (renamed?)" >&2; return 1; }
  echo "$ir $((lines + lines / repeats))"  # the passes, and the warm-up over the recording once
}

printf '%-24s %7s %12s %12s %12s %12s\n' recording lines 'default Ir' 'per line' 'all-talk Ir' 'per line'
for recording in generated data/*.nmea; do
  file=()
  [ "$recording" = generated ] || file=("$recording")
  read -r ir lines < <(count "${file[@]}")
  read -r irAll linesAll < <(count "${all_talkers[@]}" "${file[@]}")
  awk -v r="$recording" -v l="$lines" -v a="$ir" -v b="$irAll" -v m="$linesAll" \
    'BEGIN { printf "%-24s %7d %12d %12.0f %12d %12.0f\n", r, l, a, a / l, b, b / m }'
done
