#!/usr/bin/env bash
# The packages as users get them: builds them with scripts/package.sh,
# runs lintian on the Debian ones, then
# - the Windows zip, unpacked into a scratch folder: its files, its .def
#   and MSVC import library, the example program built against it with
#   mingw-w64 and run under Wine on the zip's recording, and its kavogps.exe;
# - the Debian packages, installed with dpkg (as root on Debian; skipped
#   with a message elsewhere) and used from the installed files only: the
#   example built with pkg-config and with CMake's find_package and run on
#   the installed recording, kavogps itself, its man page, its service
#   units (systemd-analyze, where there is one), serve started with a
#   socket handed over as the service manager hands it; then purged, also
#   when a check fails.
#
#   tests/packages/check_packages.sh [CMAKE-ARGUMENT...]   # passed to package.sh
set -u -o pipefail

ROOT=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
OUT=${KAVOGPS_BUILD_ROOT:-$ROOT/build}/packages
PACKAGES=(kavogps libkavomobilegps-dev libkavomobilegps0)
work=$(mktemp -d "${TMPDIR:-/tmp}/kavogps-packages.XXXXXX")
installed=0

say() { printf 'packages: %s\n' "$*"; }
fail() { printf 'packages: FAILED: %s\n' "$*" >&2; exit 1; }
cleanup() {
  if [ "$installed" = 1 ]; then
    say "purging ${PACKAGES[*]}"
    dpkg --purge "${PACKAGES[@]}" >/dev/null 2>&1 || echo "packages: purging failed; remove ${PACKAGES[*]} by hand" >&2
  fi
  [ -d "$work/wineprefix" ] && "$ROOT/cmake/wine-run.sh" "$work/wineprefix" "$work" --shutdown
  rm -rf "$work"
}
trap cleanup EXIT
trap 'exit 1' INT TERM

# Runs a play_recording program on a recording at 1 ms a line: it must end
# well and report fixes.
check_example() {
  local name=$1
  shift
  "$@" >"$work/example.out" 2>&1 || { cat "$work/example.out"; fail "$name failed"; }
  grep -Eq "^[1-9][0-9]* fixes, [0-9]+ satellites in view at the end" "$work/example.out" ||
    { cat "$work/example.out"; fail "$name reported no fixes"; }
  say "$name: $(grep -E 'fixes, ' "$work/example.out" | tr -d '\r')"
}

# What the checks run, by the Debian package that has it (scripts/test-all.sh installs them).
for need in lintian:lintian unzip:unzip pkg-config:pkg-config python3:python3 man:man-db wine:wine \
            x86_64-w64-mingw32-gcc-posix:gcc-mingw-w64-x86-64-posix; do
  command -v "${need%%:*}" >/dev/null || fail "needs the Debian package ${need#*:} (apt-get install ${need#*:})"
done

"$ROOT/scripts/package.sh" "$@" || fail "scripts/package.sh failed"
debs=()
for p in "${PACKAGES[@]}"; do
  debs+=("$(ls "$OUT/${p}_"*.deb 2>/dev/null | head -1)")
  [ -f "${debs[-1]}" ] || fail "no package $p in $OUT"
done
zip=$(ls "$OUT"/KavoMobileGPS-*-win64.zip 2>/dev/null | head -1)
[ -f "$zip" ] || fail "no Windows zip in $OUT"

# --- lintian: no error (warnings are listed, and explained in the notes) ---
lintian --fail-on error --display-info "${debs[@]}" >"$work/lintian.out" 2>&1
status=$?
sed 's/^/  lintian: /' "$work/lintian.out"
[ "$status" -eq 0 ] || fail "lintian found errors"
say "lintian: no errors"

# --- the Windows zip ---
unzip -q "$zip" -d "$work/zip" || fail "cannot unpack $zip"
win=$work/zip/$(basename "$zip" .zip)
for f in bin/KavoMobileGPS.dll bin/kavogps.exe lib/libKavoMobileGPS.dll.a lib/KavoMobileGPS.def lib/KavoMobileGPS.lib \
         include/KavoMobileGPS.h lib/cmake/KavoMobileGPS/KavoMobileGPSConfig.cmake share/kavogps/walk.nmea \
         README.md LICENSE; do
  [ -f "$win/$f" ] || fail "the zip has no $f"
done
# The .def exports every function of the interface, and nothing else.
sed -n '/^EXPORTS/,$p' "$win/lib/KavoMobileGPS.def" | awk 'NR > 1 {print $1}' | sed 's/@.*//' | sort >"$work/def.txt"
sort "$ROOT/tests/api/exported_functions.txt" | diff - "$work/def.txt" >"$work/def.diff" ||
  { cat "$work/def.diff"; fail "the .def does not export exactly tests/api/exported_functions.txt"; }
# An MSVC-style linker (lld-link) takes the import library.
if command -v lld-link >/dev/null && command -v clang >/dev/null; then
  printf '__declspec(dllimport) unsigned KavoMobileGPS_GetLastError(void);\nunsigned probe(void) { return KavoMobileGPS_GetLastError(); }\n' >"$work/probe.c"
  clang --target=x86_64-pc-windows-msvc -c "$work/probe.c" -o "$work/probe.obj" &&
    lld-link -dll -noentry -nodefaultlib -out:"$work/probe.dll" "$work/probe.obj" "$win/lib/KavoMobileGPS.lib" \
      >"$work/lld.out" 2>&1 || { cat "$work/lld.out"; fail "lld-link does not take KavoMobileGPS.lib"; }
  say "KavoMobileGPS.lib: lld-link links against it"
else
  say "no lld-link or clang here (Debian packages lld, clang): the MSVC import library is not tried"
fi
# The example, built against the zip with mingw-w64, under Wine.
mingw=x86_64-w64-mingw32-gcc-posix
"$mingw" -std=c99 -Wall -Wextra -I "$win/include" -o "$work/play_recording.exe" "$ROOT/examples/play_recording.c" \
  "$ROOT/examples/pause_win32.c" -L "$win/lib" -lKavoMobileGPS || fail "the example does not build against the zip"
recording='Z:'$(printf '%s' "$win/share/kavogps/walk.nmea" | tr / '\\')
check_example "play_recording.exe (Wine, zip)" \
  "$ROOT/cmake/wine-run.sh" "$work/wineprefix" "$win/bin" "$work/play_recording.exe" "$recording" 1
"$ROOT/cmake/wine-run.sh" "$work/wineprefix" "$win/bin" "$win/bin/kavogps.exe" play --interval 1 >"$work/exe.out" 2>&1 ||
  { cat "$work/exe.out"; fail "the zip's kavogps.exe cannot play its own recording"; }
grep -q "Fixes: *[1-9]" "$work/exe.out" || { cat "$work/exe.out"; fail "the zip's kavogps.exe reported no fixes"; }
say "kavogps.exe (Wine, zip) plays its own recording"

# --- the Debian packages, installed ---
if [ "$(id -u)" -ne 0 ] || ! command -v dpkg >/dev/null; then
  say "skipping the install checks: they install into /usr with dpkg, as root on Debian"
  exit 0
fi
for p in "${PACKAGES[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q installed &&
    fail "$p is installed already; purge it first (dpkg --purge $p)"
done
installed=1
dpkg -i "${debs[@]}" >"$work/dpkg.out" 2>&1 || { cat "$work/dpkg.out"; fail "dpkg -i failed"; }
say "installed: $(dpkg-query -W -f='${Package} ${Version}, ' "${PACKAGES[@]}")"
examples=/usr/share/doc/libkavomobilegps-dev/examples
recording=/usr/share/kavogps/walk.nmea
[ -f "$examples/play_recording.c" ] && [ -f "$recording" ] || fail "the example or the recording is not installed"

# pkg-config, then CMake's find_package, from /usr alone.
# shellcheck disable=SC2046
cc -std=c99 -Wall -Wextra -Werror -o "$work/pc_example" "$examples/play_recording.c" "$examples/pause_posix.c" \
  $(pkg-config --cflags --libs KavoMobileGPS) || fail "the example does not build with pkg-config"
check_example "play_recording (pkg-config)" "$work/pc_example" "$recording" 1
# The loader's pick is the package's file (/lib and /usr/lib are one folder on a merged /usr).
loaded=$(ldd "$work/pc_example" | sed -n 's/.*libKavoMobileGPS\.so\.0 => \([^ ]*\).*/\1/p')
packaged=$(dpkg -L libkavomobilegps0 | grep '/libKavoMobileGPS\.so\.0$')
[ -n "$loaded" ] && [ "$(realpath "$loaded")" = "$(realpath "$packaged")" ] ||
  fail "the example loads ${loaded:-no libKavoMobileGPS.so.0}, not the package's $packaged"
cmake -S "$examples" -B "$work/cmake" -G Ninja >"$work/cmake.out" 2>&1 && cmake --build "$work/cmake" >>"$work/cmake.out" 2>&1 ||
  { cat "$work/cmake.out"; fail "the example does not build with find_package(KavoMobileGPS)"; }
check_example "play_recording (find_package)" "$work/cmake/play_recording" "$recording" 1
check_example "play_recording_static (find_package)" "$work/cmake/play_recording_static" "$recording" 1

# The tool, its man pages and units.
kavogps --version | grep -qx "kavogps [0-9.]*" || fail "kavogps --version"
kavogps play --json | head -2 >"$work/json.out"
python3 -c 'import json, sys
lines = open(sys.argv[1]).read().splitlines()
assert len(lines) == 2 and all(json.loads(l)["class"] in ("TPV", "SKY") for l in lines), lines' "$work/json.out" ||
  fail "kavogps play --json | head -2 gave no two JSON reports"
say "kavogps play --json | head -2: $(cut -c1-60 "$work/json.out" | tr '\n' ' ')"
man -w kavogps >/dev/null && man -w 3 KavoMobileGPS >/dev/null || fail "man -w finds no kavogps(1) or KavoMobileGPS(3)"
units=(/usr/lib/systemd/system/kavogps-serve.socket /usr/lib/systemd/system/kavogps-serve.service)
if command -v systemd-analyze >/dev/null; then
  systemd-analyze verify "${units[@]}" >"$work/verify.out" 2>&1 || { cat "$work/verify.out"; fail "systemd-analyze verify"; }
  say "systemd-analyze verify: the units are sound"
else
  say "no systemd-analyze here: the units are not verified"
fi
# Installing starts nothing: the tool's package has no script to start it
# with, and no process runs the installed program (others' may run here).
scripts=$(dpkg-deb --ctrl-tarfile "${debs[0]}" | tar -t)
grep -Eq 'postinst$' <<<"$scripts" && fail "the kavogps package runs a script on installing"
for pid in $(pgrep -x kavogps); do
  [ "$(readlink "/proc/$pid/exe")" = /usr/bin/kavogps ] && fail "the installed kavogps runs after installing"
done
# serve on a socket handed over, as the service manager hands it.
managers=(python)
command -v systemd-socket-activate >/dev/null && managers+=(systemd-socket-activate)
for manager in "${managers[@]}"; do
  python3 "$ROOT/tests/tool/serve/socket_activation.py" --manager "$manager" /usr/bin/kavogps --interval 20 --repeat ||
    fail "kavogps serve with sockets handed over ($manager)"
done

# Purged, nothing of them stays.
dpkg --purge "${PACKAGES[@]}" >"$work/dpkg.out" 2>&1 || { cat "$work/dpkg.out"; fail "dpkg --purge failed"; }
installed=0
for f in /usr/bin/kavogps /etc/default/kavogps /usr/share/kavogps "${units[@]}"; do
  [ -e "$f" ] && fail "$f is still there after purging"
done
say "all checks passed"
