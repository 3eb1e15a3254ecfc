#!/usr/bin/env bash
# Runs every test tier of KavoMobileGPS, or the tiers named on the command
# line, and prints how long each took and a closing "N passed, N failed"
# line (tiers). Installs the Debian packages it needs when they are missing.
#
#   scripts/test-all.sh                  # every tier, in order
#   scripts/test-all.sh native windows   # just these
#   scripts/test-all.sh --list           # the tiers there are
#
# Environment: KAVOGPS_BUILD_ROOT (default <repo>/build) holds one build
# folder per tier; KAVOGPS_JOBS (default 2) is the build and test
# parallelism; KAVOGPS_NO_INSTALL=1 skips the package check.
#
# A tier is a function named tier_<name> ('-' in the name becomes '_') that
# returns non-zero on failure; add it to ALL_TIERS to run it by default.
set -u -o pipefail

ROOT=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
BUILD_ROOT=${KAVOGPS_BUILD_ROOT:-$ROOT/build}
JOBS=${KAVOGPS_JOBS:-2}
ALL_TIERS=(native asan tsan windows fuzz bench-smoke packages)
PACKAGES=(cmake ninja-build g++ clang libclang-rt-dev libgtest-dev libgmock-dev googletest locales
          g++-mingw-w64-x86-64-posix wine wine64 gpsbabel pkg-config
          libasio-dev nlohmann-json3-dev gpsd-clients python3-gps chrony
          libmosquitto-dev mosquitto mosquitto-clients
          scdoc dpkg-dev file lintian llvm lld man-db unzip)
# A command ctest runs under (build_and_test), such as setarch for tsan.
CTEST_PREFIX=()

say() { printf '==> %s\n' "$*"; }

# Every build here treats a compiler warning as an error.
WERROR=-DKAVOGPS_WERROR=ON

# configure + build + ctest in BUILD_ROOT/<tier> from a configure preset.
# Extra arguments go to ctest; ctest runs under CTEST_PREFIX when set.
build_and_test() {
  local preset=$1 dir=$2
  shift 2
  cmake --preset "$preset" -B "$dir" "$WERROR" </dev/null &&
    cmake --build "$dir" -j "$JOBS" </dev/null &&
    "${CTEST_PREFIX[@]}" ctest --test-dir "$dir" -j "$JOBS" --output-on-failure --no-tests=error "$@" </dev/null
}

# The number parser must not follow the process locale; a test proves it
# under a comma-decimal locale, which is generated here when missing.
ensure_comma_locale() {
  locale -a 2>/dev/null | grep -qi '^de_DE\.utf-\?8$' && return 0
  command -v localedef >/dev/null || return 0
  localedef -i de_DE -f UTF-8 de_DE.UTF-8 </dev/null >/dev/null 2>&1 || true
}

tier_native() { ensure_comma_locale; build_and_test debug "$BUILD_ROOT/native"; }

tier_asan() {
  ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1:abort_on_error=0} \
  UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1} \
    build_and_test asan "$BUILD_ROOT/asan"
}

tier_tsan() {
  # ThreadSanitizer needs a memory layout that high address randomisation
  # can break; run without randomisation where the system lets us.
  local CTEST_PREFIX=()
  if command -v setarch >/dev/null && setarch "$(uname -m)" -R true 2>/dev/null; then
    CTEST_PREFIX=(setarch "$(uname -m)" -R)
  fi
  TSAN_OPTIONS=${TSAN_OPTIONS:-halt_on_error=1 second_deadlock_stack=1} build_and_test tsan "$BUILD_ROOT/tsan"
}

tier_windows() {
  # Cross-built with mingw-w64; cmake/wine-run.sh runs each test under Wine
  # in a prefix inside the build folder, which is shut down afterwards.
  local dir=$BUILD_ROOT/windows rc=0
  build_and_test windows "$dir" || rc=1
  cmake --build "$dir" --target wine-shutdown </dev/null >/dev/null 2>&1 || true
  return $rc
}

tier_fuzz() {
  # Each libFuzzer target for a bounded time under ASan+UBSan, from the
  # committed seed corpus; a crash, a leak or a sanitizer report fails.
  local dir=$BUILD_ROOT/fuzz seconds=${KAVOGPS_FUZZ_SECONDS:-30} t
  local targets=(chunk_path conversions reg_file ini_reader)
  cmake --preset fuzz -B "$dir" "$WERROR" </dev/null &&
    cmake --build "$dir" -j "$JOBS" --target "${targets[@]/#/fuzz_}" </dev/null || return 1
  for t in "${targets[@]}"; do
    mkdir -p "$dir/corpus-$t"
    ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=halt_on_error=1:print_stacktrace=1 \
      "$dir/fuzz/fuzz_$t" -max_total_time="$seconds" -print_final_stats=1 \
      "$dir/corpus-$t" "fuzz/corpus/$t" </dev/null 2>&1 | tail -n 15 || return 1
  done
}

tier_bench_smoke() {
  # The benchmarks run briefly, to show they still work; the figures are
  # for people, not a pass mark.
  local dir=$BUILD_ROOT/release
  cmake --preset release -B "$dir" "$WERROR" </dev/null &&
    cmake --build "$dir" -j "$JOBS" --target bench_chunk_path bench_driver bench_floor_server </dev/null &&
    "$dir/bench/bench_chunk_path" --smoke </dev/null &&
    "$dir/bench/bench_driver" --smoke </dev/null 2>/dev/null
}

tier_packages() {
  # The Debian packages and the Windows zip, built by scripts/package.sh and
  # used as a user would: installed (as root on Debian), then purged.
  "$ROOT/tests/packages/check_packages.sh" "$WERROR"
}

main() {
  local tiers=() t
  for t in "$@"; do
    case $t in
      -h|--help) sed -n '2,15p' "${BASH_SOURCE[0]}" | sed 's/^# \{0,1\}//'; return 0 ;;
      --list) printf '%s\n' "${ALL_TIERS[@]}"; return 0 ;;
      *) declare -F "tier_${t//-/_}" >/dev/null || { echo "unknown tier '$t'; tiers: ${ALL_TIERS[*]}" >&2; return 2; }
         tiers+=("$t") ;;
    esac
  done
  [ ${#tiers[@]} -eq 0 ] && tiers=("${ALL_TIERS[@]}")

  if [ "${KAVOGPS_NO_INSTALL:-0}" != 1 ]; then
    "$ROOT/scripts/install-packages.sh" "${PACKAGES[@]}" ||
      { echo "package installation failed"; echo "0 passed, ${#tiers[@]} failed"; return 1; }
  fi

  local passed=0 failed=0 report=() start seconds
  for t in "${tiers[@]}"; do
    say "tier $t"
    start=$(date +%s)
    if (cd "$ROOT" && "tier_${t//-/_}"); then
      seconds=$(($(date +%s) - start))
      passed=$((passed + 1))
      report+=("$(printf '%-12s passed  %5ds' "$t" "$seconds")")
    else
      seconds=$(($(date +%s) - start))
      failed=$((failed + 1))
      report+=("$(printf '%-12s FAILED  %5ds' "$t" "$seconds")")
    fi
    say "tier $t done in ${seconds}s"
  done

  echo
  echo "Tiers:"
  printf '  %s\n' "${report[@]}"
  echo "$passed passed, $failed failed"
  [ "$failed" -eq 0 ]
}

main "$@"
