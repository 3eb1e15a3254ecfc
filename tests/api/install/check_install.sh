#!/bin/sh
# check_install.sh BUILD_DIR EXAMPLES_DIR C_COMPILER GENERATOR
# Installs BUILD_DIR into a fresh prefix, then builds and runs the example
# against it both ways (CMake package, pkg-config, when there is one), links
# the static library into a shared object that must export nothing of ours,
# and plays the installed recording with the installed tool. Removes
# everything it made.
set -eu
build=$1 examples=$2 cc=$3 generator=$4
work=$(mktemp -d "${TMPDIR:-/tmp}/kavogps-install.XXXXXX")
trap 'rm -rf "$work"' EXIT
prefix=$work/prefix
fail() { echo "install check: $*" >&2; exit 1; }

cmake --install "$build" --prefix "$prefix" >"$work/install.log" || { cat "$work/install.log"; fail "install failed"; }
libdir=$(ls -d "$prefix"/lib*/ | head -1)
libdir=${libdir%/}
for f in include/KavoMobileGPS.h bin/kavogps share/kavogps/walk.nmea; do
  [ -f "$prefix/$f" ] || fail "$f is not installed"
done
for f in libKavoMobileGPS.so libKavoMobileGPS.a pkgconfig/KavoMobileGPS.pc \
         cmake/KavoMobileGPS/KavoMobileGPSConfig.cmake cmake/KavoMobileGPS/KavoMobileGPSConfigVersion.cmake; do
  [ -e "$libdir/$f" ] || fail "$libdir/$f is not installed"
done
recording=$prefix/share/kavogps/walk.nmea

# The README shows the example program; it must be the one built here.
awk '/^```c$/ {inside = 1; next} /^```$/ {inside = 0} inside' "$examples/../README.md" >"$work/readme.c"
cmp -s "$work/readme.c" "$examples/play_recording.c" || fail "README.md's C example differs from examples/play_recording.c"

# Each program plays the recording at 1 ms per line and must report fixes
# (it exits non-zero when it saw none).
check_example() {
  "$@" "$recording" 1 >"$work/example.out" 2>"$work/example.err" || { cat "$work/example.err"; fail "$1 failed"; }
  grep -Eq "^[1-9][0-9]* fixes, [1-9][0-9]* satellites in view at the end$" "$work/example.out" || { cat "$work/example.out"; fail "$1: no summary"; }
  head -1 "$work/example.out" | grep -q "^ 48\.11[0-9]* *11\.51" || fail "$1: the fixes are not the recording's"
}

# 1. find_package, shared and static.
cmake -S "$examples" -B "$work/cmake" -G "$generator" -DCMAKE_C_COMPILER="$cc" -DCMAKE_PREFIX_PATH="$prefix" \
  >"$work/cmake.log" 2>&1 || { cat "$work/cmake.log"; fail "find_package(KavoMobileGPS) failed"; }
cmake --build "$work/cmake" >>"$work/cmake.log" 2>&1 || { cat "$work/cmake.log"; fail "building the example failed"; }
check_example "$work/cmake/play_recording"
check_example "$work/cmake/play_recording_static"
# The example may not find the build tree's library by accident.
ldd "$work/cmake/play_recording" | grep -q "$prefix" || fail "the example does not use the installed library"

# 2. pkg-config.
if command -v pkg-config >/dev/null; then
  export PKG_CONFIG_PATH="$libdir/pkgconfig"
  pkg-config --exists KavoMobileGPS || fail "pkg-config does not know KavoMobileGPS"
  # shellcheck disable=SC2046
  "$cc" -std=c11 -Wall -Wextra -Werror -o "$work/pc_example" "$examples/play_recording.c" \
    $(pkg-config --cflags --libs KavoMobileGPS) -Wl,-rpath,"$(pkg-config --variable=libdir KavoMobileGPS)" ||
    fail "building with pkg-config failed"
  check_example "$work/pc_example"
else
  echo "install check: pkg-config not found; skipping the pkg-config build"
fi

# 3. The whole static library inside a user's shared object: that object
# exports its own function and nothing of ours.
printf 'int probe_entry(void) { return 1; }\n' >"$work/probe.c"
"$cc" -shared -fPIC -o "$work/probe.so" "$work/probe.c" -Wl,--whole-archive "$libdir/libKavoMobileGPS.a" \
  -Wl,--no-whole-archive -lstdc++ -lm -lpthread -ldl || fail "linking the static library into a shared object failed"
nm -D --defined-only "$work/probe.so" >"$work/probe.syms" || fail "nm could not read the shared object"
grep -q ' probe_entry$' "$work/probe.syms" || fail "the export check does not see the probe's own function"
if grep -E 'GPS|COMPort|KavoMobileGPS|kavo' "$work/probe.syms"; then
  fail "a shared object linking the static library exports the symbols above"
fi

# 4. The installed tool finds its installed recording by itself.
"$prefix/bin/kavogps" play --interval 1 --json >"$work/play.out" 2>"$work/play.err" ||
  { cat "$work/play.err"; fail "the installed kavogps could not play its recording"; }
grep -q "share/kavogps/walk.nmea" "$work/play.out" || fail "kavogps played another recording than the installed one"
grep -q '"class":"TPV"' "$work/play.out" || fail "kavogps reported no fix"
echo "install check passed: $prefix"
