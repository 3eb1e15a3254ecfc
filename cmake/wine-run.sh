#!/bin/sh
# Runs one Windows program under Wine for ctest: in the prefix named by the
# first argument, without Wine's debug chatter, and with the prefix booted
# once before the first program (tests start in parallel, hence the lock).
# `wineserver -k` with the same WINEPREFIX shuts the prefix down afterwards.
set -e
prefix=$1
shift
export WINEPREFIX="$prefix" WINEDEBUG=-all WINEDLLOVERRIDES="mscoree,mshtml="
if [ ! -f "$prefix/system.reg" ]; then
  mkdir -p "$prefix"
  exec 9>"$prefix.lock"
  flock 9
  if [ ! -f "$prefix/system.reg" ]; then
    wineboot -i >/dev/null 2>&1 || { echo "wine-run: wineboot -i failed in $prefix" >&2; exit 1; }
    wineserver -w
  fi
  exec 9>&-
fi
exec wine "$@"
