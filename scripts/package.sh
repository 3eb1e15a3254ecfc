#!/usr/bin/env bash
# Builds every package of KavoMobileGPS into build/packages/ and prints
# their paths:
#   libkavomobilegps0_VERSION_ARCH.deb      the shared library
#   libkavomobilegps-dev_VERSION_ARCH.deb   header, static library, pkg-config, CMake package
#   kavogps_VERSION_ARCH.deb                the tool, its recordings, man page, service
#   KavoMobileGPS-VERSION-win64.zip         DLL, import libraries, .def, header, tool
# with CPack from the install rules (cmake/Packaging.cmake): release builds
# without tests, the Debian one with Debian's hardening flags, the Windows
# one cross-built with mingw-w64 (preset windows-release).
#
#   scripts/package.sh [CMAKE-ARGUMENT...]    # e.g. -DKAVOGPS_WERROR=ON
#
# Installs the Debian packages it needs when they are missing
# (scripts/install-packages.sh); KAVOGPS_NO_INSTALL=1 names a missing one
# instead. KAVOGPS_BUILD_ROOT (default <repo>/build) holds the builds,
# KAVOGPS_JOBS (default 2) is the build parallelism.
set -u -o pipefail

ROOT=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
BUILD_ROOT=${KAVOGPS_BUILD_ROOT:-$ROOT/build}
JOBS=${KAVOGPS_JOBS:-2}
OUT=$BUILD_ROOT/packages
# package:command, for the message when a package is missing.
NEEDS=(cmake:cmake ninja-build:ninja g++:g++ libasio-dev:/usr/include/asio.hpp
       nlohmann-json3-dev:/usr/include/nlohmann/json.hpp scdoc:scdoc dpkg-dev:dpkg-shlibdeps file:file
       g++-mingw-w64-x86-64-posix:x86_64-w64-mingw32-g++-posix wine:wine llvm:llvm-dlltool lld:ld.lld)

die() { echo "package.sh: $*" >&2; exit 1; }

if [ "${KAVOGPS_NO_INSTALL:-0}" != 1 ]; then
  "$ROOT/scripts/install-packages.sh" "${NEEDS[@]%%:*}" || die "installing the packages it needs failed"
fi
for need in "${NEEDS[@]}"; do
  what=${need#*:}
  if [[ $what == /* ]]; then [ -e "$what" ]; else command -v "$what" >/dev/null; fi ||
    die "needs the Debian package ${need%%:*} (apt-get install ${need%%:*})"
done

# Debian's compiler and linker flags (hardening), as its own packages get them.
# Without debugging information: the static library would carry it.
export DEB_BUILD_MAINT_OPTIONS=hardening=+all DEB_CFLAGS_MAINT_STRIP=-g DEB_CXXFLAGS_MAINT_STRIP=-g
cppflags=$(dpkg-buildflags --get CPPFLAGS)
linux=$BUILD_ROOT/package-linux
windows=$BUILD_ROOT/package-windows
rm -rf "$OUT"
mkdir -p "$OUT"

cmake --preset release -B "$linux" -DKAVOGPS_BUILD_BENCH=OFF -DKAVOGPS_BUILD_TESTS=OFF \
  -DCMAKE_INSTALL_PREFIX=/usr -DCMAKE_INSTALL_SYSCONFDIR=/etc -DKAVOGPS_DEBIAN_PACKAGES=ON -DKAVOGPS_MAN_PAGES=ON \
  -DCMAKE_SKIP_INSTALL_RPATH=ON \
  -DCMAKE_C_FLAGS="$(dpkg-buildflags --get CFLAGS) $cppflags" \
  -DCMAKE_CXX_FLAGS="$(dpkg-buildflags --get CXXFLAGS) $cppflags" \
  -DCMAKE_EXE_LINKER_FLAGS="$(dpkg-buildflags --get LDFLAGS)" \
  -DCMAKE_SHARED_LINKER_FLAGS="$(dpkg-buildflags --get LDFLAGS)" "$@" </dev/null >"$OUT/configure-linux.log" ||
  { cat "$OUT/configure-linux.log"; die "configuring the Linux build failed"; }
cmake --build "$linux" -j "$JOBS" </dev/null || die "the Linux build failed"
(cd "$linux" && cpack -G DEB -B "$OUT" </dev/null >"$OUT/cpack-deb.log") ||
  { cat "$OUT/cpack-deb.log"; die "making the Debian packages failed"; }

cmake --preset windows-release -B "$windows" "$@" </dev/null >"$OUT/configure-windows.log" ||
  { cat "$OUT/configure-windows.log"; die "configuring the Windows build failed"; }
cmake --build "$windows" -j "$JOBS" </dev/null || die "the Windows build failed"
(cd "$windows" && cpack -G ZIP -B "$OUT" </dev/null >"$OUT/cpack-zip.log") ||
  { cat "$OUT/cpack-zip.log"; die "making the Windows zip failed"; }

rm -rf "$OUT/_CPack_Packages"
ls "$OUT"/*.deb "$OUT"/*.zip
