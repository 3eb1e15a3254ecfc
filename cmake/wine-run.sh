#!/bin/sh
# Runs one Windows program under Wine for ctest:
#   wine-run.sh PREFIX DLL-FOLDER PROGRAM [ARGS...]
# in the Wine prefix PREFIX, without Wine's debug chatter, finding the
# library's DLL in DLL-FOLDER (on the search path, as an installed DLL would
# be), and with the prefix booted once before the first program (tests start
# in parallel, hence the lock).
#   wine-run.sh PREFIX DLL-FOLDER --host COMMAND [ARGS...]
# runs a native COMMAND that starts Wine programs itself, with the same
# settings, and
#   wine-run.sh PREFIX DLL-FOLDER --shutdown
# shuts the prefix's Wine down afterwards. Every Wine setting the build uses
# is here.
set -e
prefix=$1
dlls=$2
shift 2
export WINEPREFIX="$prefix" WINEDEBUG=-all WINEDLLOVERRIDES="mscoree,mshtml="
if [ "${1-}" = --shutdown ]; then
  wineserver -k 2>/dev/null || true
  exit 0
fi
# Wine shows the host's root as drive Z:.
export WINEPATH="Z:$(printf '%s' "$dlls" | tr / '\\')${WINEPATH:+;$WINEPATH}"
mkdir -p "$prefix"
# The lock is fd 9; what starts under it must not inherit it (9>&-), or the
# server and the services it starts would hold the lock for their lives.
exec 9>"$prefix.lock"
flock 9
if [ ! -f "$prefix/system.reg" ]; then
  wineboot -i >/dev/null 2>&1 9>&- || { echo "wine-run: wineboot -i failed in $prefix" >&2; exit 1; }
  wineserver -w 9>&-
fi
# One server for a whole test run: tests start and end in parallel, and a
# server that was just exiting as a test connected reset that test's
# connection. It stays 30 s after its last client, then goes by itself.
wineserver -p30 >/dev/null 2>&1 9>&- || true
# A fresh server's first program starts Wine's services, and they inherit
# its output: from a test they would hold the test's output open for the
# server's whole life (ctest waits for it until the test's time-out, then
# kills them under every other test). A silent program starts them instead.
wine cmd /c exit </dev/null >/dev/null 2>&1 9>&- || true
exec 9>&-
if [ "${1-}" = --host ]; then
  shift
  exec "$@"
fi
exec wine "$@"
