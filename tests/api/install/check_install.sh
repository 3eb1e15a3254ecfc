#!/bin/sh
# check_install.sh BUILD_DIR SOURCE_DIR GENERATOR C_COMPILER [windows TOOLCHAIN_FILE WINE_RUN WINEPREFIX]
# Installs BUILD_DIR into a fresh prefix and uses it as a user would: the C
# example (a C-only project) and the C++ example built with find_package,
# shared and static, and the C example with pkg-config; each plays a
# recording and ends with a message on an empty and a non-NMEA file. A
# program of 16 drivers with context callbacks on two recordings checks that
# no callback gets another driver's context. Natively also: the static
# library inside a user's shared object exports nothing of ours, the
# installed tool plays its recording and reports a malformed KAVOGPS_REGISTRY
# file. For a Windows build (cross-compiled), everything builds with its
# toolchain and runs under Wine. Removes everything it made.
set -eu
build=$1 source=$2 generator=$3 cc=$4
platform=${5:-native}
examples=$source/examples
work=$(mktemp -d "${TMPDIR:-/tmp}/kavogps-install.XXXXXX")
trap 'rm -rf "$work"' EXIT
prefix=$work/prefix
fail() { echo "install check: $*" >&2; exit 1; }

cross=
exe=
if [ "$platform" = windows ]; then
  toolchain=$6 wine_run=$7 wineprefix=$8
  cross="-DCMAKE_TOOLCHAIN_FILE=$toolchain"
  exe=.exe
fi
# Runs a program the way its platform does; a Windows one under Wine, with
# the installed DLL on its search path.
run() {
  if [ "$platform" = windows ]; then
    timeout 120 sh "$wine_run" "$wineprefix" "$prefix/bin" "$@"
  else
    timeout 120 "$@"
  fi
}

cmake --install "$build" --prefix "$prefix" >"$work/install.log" || { cat "$work/install.log"; fail "install failed"; }
libdir=$(ls -d "$prefix"/lib*/ | head -1)
libdir=${libdir%/}
for f in include/KavoMobileGPS.h include/KavoMobileGPS.hpp bin/kavogps$exe share/kavogps/walk.nmea; do
  [ -f "$prefix/$f" ] || fail "$f is not installed"
done
for f in libKavoMobileGPS.a pkgconfig/KavoMobileGPS.pc \
         cmake/KavoMobileGPS/KavoMobileGPSConfig.cmake cmake/KavoMobileGPS/KavoMobileGPSConfigVersion.cmake; do
  [ -e "$libdir/$f" ] || fail "$libdir/$f is not installed"
done
if [ "$platform" = windows ]; then
  [ -f "$prefix/bin/KavoMobileGPS.dll" ] && [ -f "$libdir/libKavoMobileGPS.dll.a" ] || fail "the DLL is not installed"
else
  [ -e "$libdir/libKavoMobileGPS.so" ] || fail "libKavoMobileGPS.so is not installed"
fi

# The README shows the C example; it must be the one built here.
awk '/^```c$/ {inside = 1; next} /^```$/ {inside = 0} inside' "$source/README.md" >"$work/readme.c"
cmp -s "$work/readme.c" "$examples/play_recording.c" || fail "README.md's C example differs from examples/play_recording.c"

# The programs run in the work folder, with recordings of their own there:
# the installed one, an empty one and one of text that is not NMEA.
cd "$work"
cp "$prefix/share/kavogps/walk.nmea" walk.nmea
: >empty.nmea
printf 'Dear diary,\r\nno sentences here.\r\n' >prose.nmea

# Each program plays the recording at 1 ms per line and must report what it
# saw; an empty or non-NMEA file must end it with a message, not a hang.
check_example() {
  summary=$1
  shift
  run "$@" walk.nmea 1 >example.out 2>example.err || { cat example.err; fail "$1 failed"; }
  grep -Eq "^[1-9][0-9]* $summary, [1-9][0-9]* satellites in view at the end" example.out ||
    { cat example.out; fail "$1: no summary"; }
  head -1 example.out | grep -q "^ 48\.11[0-9]* *11\.51" || fail "$1: the fixes are not the recording's"
  for file in empty.nmea prose.nmea; do
    status=0
    run "$@" $file 1 >example.out 2>example.err || status=$?
    [ $status = 1 ] && grep -q "^$file: no NMEA sentence" example.err ||
      { cat example.err; fail "$1 on $file: status $status, not 1 with a message"; }
  done
}

# 1. find_package, shared and static: the C example in a C-only project,
# the C++ example in a C++ one. A cross toolchain searches packages only
# under its own root, so the Windows build names the package's folder.
[ "$platform" = windows ] && cross="$cross -DKavoMobileGPS_DIR=$libdir/cmake/KavoMobileGPS"
for project in "$examples" "$examples/cpp"; do
  name=$(basename "$project")
  # shellcheck disable=SC2086
  cmake -S "$project" -B "$work/$name" -G "$generator" $cross -DCMAKE_PREFIX_PATH="$prefix" \
    -DCMAKE_BUILD_TYPE=Release >"$work/cmake.log" 2>&1 ||
    { cat "$work/cmake.log"; fail "find_package(KavoMobileGPS) failed for $name"; }
  cmake --build "$work/$name" >>"$work/cmake.log" 2>&1 || { cat "$work/cmake.log"; fail "building $name failed"; }
done
check_example fixes "$work/examples/play_recording$exe"
check_example fixes "$work/examples/play_recording_static$exe"
check_example "positions reported" "$work/cpp/play_recording_cpp$exe"
check_example "positions reported" "$work/cpp/play_recording_cpp_static$exe"

# 2. pkg-config, and with what --static adds (on Windows with -static, which
# takes the static library rather than the DLL's import library).
export PKG_CONFIG_LIBDIR="$libdir/pkgconfig"
pkg-config --exists KavoMobileGPS || fail "pkg-config does not know KavoMobileGPS"
pkg-config --static --cflags KavoMobileGPS | grep -q -- -DKAVOGPS_STATIC || fail "pkg-config --static does not define KAVOGPS_STATIC"
pause=$examples/pause_posix.c static= rpath=-Wl,-rpath,$libdir
[ "$platform" = windows ] && pause=$examples/pause_win32.c static=-static rpath=
# shellcheck disable=SC2046,SC2086
"$cc" -std=c99 -Wall -Wextra -Werror -o "$work/pc_shared$exe" "$examples/play_recording.c" "$pause" \
  $(pkg-config --cflags --libs KavoMobileGPS) $rpath || fail "building with pkg-config failed"
check_example fixes "$work/pc_shared$exe"
# shellcheck disable=SC2046,SC2086
"$cc" -std=c99 -Wall -Wextra -Werror $static -o "$work/pc_static$exe" "$examples/play_recording.c" "$pause" \
  $(pkg-config --static --cflags --libs KavoMobileGPS) $rpath || fail "building with pkg-config --static failed"
check_example fixes "$work/pc_static$exe"

# 3. Context callbacks of 16 drivers on two recordings at once never cross.
# shellcheck disable=SC2046,SC2086
"$cc" -std=c99 -Wall -Wextra -Werror -o "$work/context_check$exe" "$source/tests/api/install/context_check.c" "$pause" \
  -I"$examples" $(pkg-config --cflags --libs KavoMobileGPS) $rpath || fail "building context_check failed"
run "$work/context_check$exe" || fail "context_check failed"

if [ "$platform" = windows ]; then
  echo "install check passed (Windows): $prefix"
  exit 0
fi

# The examples may not find the build tree's library by accident.
ldd "$work/examples/play_recording" | grep -q "$prefix" || fail "the example does not use the installed library"

# 4. The whole static library inside a user's shared object: that object
# exports its own function and nothing of ours.
printf 'int probe_entry(void) { return 1; }\n' >"$work/probe.c"
# shellcheck disable=SC2046
"$cc" -shared -fPIC -o "$work/probe.so" "$work/probe.c" -Wl,--whole-archive "$libdir/libKavoMobileGPS.a" \
  -Wl,--no-whole-archive $(pkg-config --static --libs-only-l KavoMobileGPS | sed 's/-lKavoMobileGPS//') ||
  fail "linking the static library into a shared object failed"
nm -D --defined-only "$work/probe.so" >"$work/probe.syms" || fail "nm could not read the shared object"
grep -q ' probe_entry$' "$work/probe.syms" || fail "the export check does not see the probe's own function"
if grep -E 'GPS|COMPort|KavoMobileGPS|kavo' "$work/probe.syms"; then
  fail "a shared object linking the static library exports the symbols above"
fi

# 5. The installed tool finds its library and its recording by itself, and
# tells what is wrong with a registry file (status 3, with the line).
ldd "$prefix/bin/kavogps" | grep -q "$prefix/.*libKavoMobileGPS" || fail "the installed kavogps does not use the installed library"
"$prefix/bin/kavogps" play --interval 1 --json >play.out 2>play.err ||
  { cat play.err; fail "the installed kavogps could not play its recording"; }
grep -q "share/kavogps/walk.nmea" play.out || fail "kavogps played another recording than the installed one"
grep -q '"class":"TPV"' play.out || fail "kavogps reported no fix"
printf 'Windows Registry Editor Version 5.00\r\n\r\n[HKEY_LOCAL_MACHINE\\Drivers\\Active\\01\r\n"Name"="COM3:"\r\n' >bad.reg
for command in ports find; do
  status=0
  KAVOGPS_REGISTRY=$work/bad.reg "$prefix/bin/kavogps" $command >tool.out 2>tool.err || status=$?
  [ $status = 3 ] && grep -q "bad.reg.*line 3" tool.err ||
    { cat tool.out tool.err; fail "kavogps $command on a malformed registry file: status $status, not 3 with the line"; }
done
echo "install check passed: $prefix"
