#!/usr/bin/env bash
# Installs those of the named Debian packages that are missing, with
# apt-get, as root or through sudo -n. Without dpkg-query (not a Debian
# system) it says so and leaves the packages to the user.
#
#   scripts/install-packages.sh PACKAGE...
#
# Messages go to standard error.
set -u -o pipefail

missing=()
if ! command -v dpkg-query >/dev/null; then
  echo "install-packages: no dpkg-query here; make sure these are installed: $*" >&2
  exit 0
fi
for p in "$@"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done
[ ${#missing[@]} -eq 0 ] && exit 0

echo "install-packages: installing ${missing[*]}" >&2
sudo=()
if [ "$(id -u)" -ne 0 ]; then
  command -v sudo >/dev/null || { echo "install-packages: not root and no sudo: install ${missing[*]} by hand" >&2; exit 1; }
  sudo=(sudo -n)
fi
export DEBIAN_FRONTEND=noninteractive
"${sudo[@]}" apt-get update -q </dev/null >&2 &&
  "${sudo[@]}" apt-get install -y -q --no-install-recommends "${missing[@]}" </dev/null >&2
