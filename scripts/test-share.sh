#!/usr/bin/env bash
# Prints the tests' share of the code: non-blank lines of the C and C++
# files (.c, .cpp, .h) under tests/ against those under src/, include/,
# sim/ and tools/, as a percentage.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

lines() {
  find "$@" -type f \( -name '*.c' -o -name '*.cpp' -o -name '*.h' \) -exec cat {} + | grep -cv '^\s*$'
}

tests=$(lines tests)
code=$(lines src include sim tools)
awk -v t="$tests" -v c="$code" \
  'BEGIN { printf "tests: %d lines, code: %d lines, test share: %.1f %%\n", t, c, 100 * t / c }'
