#!/usr/bin/env bash
# Makes Flairize's Debian packages with CPack: configures a release build for
# the prefix /usr with the packages' hardening flags, builds it and packs one
# .deb per install component into OUTPUT_DIR (default build/debs).
#   make-debs.sh [OUTPUT_DIR] [-DOPTION=VALUE ...]
# Options after the folder go to cmake (e.g. -DFLAIRIZE_WEB=OFF leaves out the
# web editor's site). BUILD_DIR (default build/debian) is the build's folder.
set -euo pipefail
cd "$(dirname "$0")/.."
out=build/debs
if [ $# -gt 0 ] && [[ $1 != -* ]]; then out=$1; shift; fi
build=${BUILD_DIR:-build/debian}
jobs=$(nproc 2>/dev/null || echo 2)
for tool in cpack dpkg-deb dpkg-shlibdeps; do
  command -v $tool >/dev/null || { echo "make-debs: $tool is missing (Debian packages cmake, dpkg-dev)" >&2; exit 77; }
done

# Debian's hardening: stack protector, fortified functions, read-only
# relocations (without -g: the packages are stripped).
flags() {
  if command -v dpkg-buildflags >/dev/null; then
    DEB_BUILD_MAINT_OPTIONS=hardening=+all dpkg-buildflags --get "$1" | sed -E 's/(^| )-g( |$)/ /'
  fi
}
cppflags=$(flags CPPFLAGS)
mkdir -p "$(dirname "$build")"
CFLAGS="$(flags CFLAGS) $cppflags" CXXFLAGS="$(flags CXXFLAGS) $cppflags" LDFLAGS="$(flags LDFLAGS)" \
  cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=Release -DCMAKE_INSTALL_PREFIX=/usr -DFLAIRIZE_TESTS=OFF \
    -DFLAIRIZE_BENCH=OFF "$@" >"$build.configure.log" 2>&1 ||
  { cat "$build.configure.log" >&2; exit 1; }
cmake --build "$build" -j"$jobs"
rm -rf "$build/debs"
(cd "$build" && cpack -G DEB -B debs >cpack.log 2>&1) || { cat "$build/cpack.log" >&2; exit 1; }
mkdir -p "$out"
rm -f "$out"/*.deb
cp "$build"/debs/*.deb "$out"/
ls -l "$out"/*.deb
