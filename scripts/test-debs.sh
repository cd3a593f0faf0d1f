#!/usr/bin/env bash
# Makes the Debian packages (scripts/make-debs.sh), checks each with lintian
# (errors fail; warnings are listed), installs them with apt-get, uses what
# they installed as a user would, with no FREI0R_PATH, and purges them again,
# also when a check fails. Skipped (77) where packages cannot be installed:
# not root, or no dpkg-deb or apt-get.
#   test-debs.sh [DEB_DIR] [-DOPTION=VALUE ...]   (options go to make-debs.sh)
set -euo pipefail
cd "$(dirname "$0")/.."
debs=build/debs
if [ $# -gt 0 ] && [[ $1 != -* ]]; then debs=$1; shift; fi
if [ "$(id -u)" -ne 0 ]; then echo "skipped: the Debian packages' test (installing packages needs root)"; exit 77; fi
for tool in dpkg-deb apt-get cpack dpkg-shlibdeps; do
  command -v $tool >/dev/null || { echo "skipped: the Debian packages' test ($tool is missing)"; exit 77; }
done

bash scripts/make-debs.sh "$debs" "$@"
debs=$(cd "$debs" && pwd)
packages=()
for deb in "$debs"/*.deb; do packages+=("$(dpkg-deb -f "$deb" Package)"); done
echo "== packages"
for deb in "$debs"/*.deb; do
  printf '%-32s %8s bytes, installed %6s KiB\n' "$(dpkg-deb -f "$deb" Package)" "$(stat -c %s "$deb")" \
    "$(dpkg-deb -f "$deb" Installed-Size)"
done

if command -v lintian >/dev/null; then
  echo "== lintian"
  lintian --tag-display-limit 0 "$debs"/*.deb 2>&1 | grep -v 'running with root privileges' | tee "$debs/lintian.log" || true
  if grep -q '^E: ' "$debs/lintian.log"; then echo "lintian reports errors"; exit 1; fi
else
  echo "skipped: lintian (Debian package lintian is not installed)"
fi

# Installed only for this test: whatever happens next, they go again.
purge() { apt-get purge -y -q "${packages[@]}" >/dev/null 2>&1 || echo "could not purge ${packages[*]}"; }
installed_any=0
cleanup() { if [ $installed_any -eq 1 ]; then purge; fi; rm -rf "${work:-}"; }
trap cleanup EXIT
installed_any=1
DEBIAN_FRONTEND=noninteractive apt-get install -y -q --no-install-recommends "$debs"/*.deb >"$debs/apt-install.log" 2>&1 ||
  { tail -n 20 "$debs/apt-install.log"; exit 1; }

unset FREI0R_PATH GST_PLUGIN_PATH
work=$(mktemp -d)
echo "== flairize --version"
/usr/bin/flairize --version
if command -v ffmpeg >/dev/null; then
  echo "== ffmpeg with frei0r=flairize-posterize"
  ffmpeg -hide_banner -loglevel error -f lavfi -i testsrc=s=64x48:d=0.2 -vf frei0r=flairize-posterize -f null -
else
  echo "skipped: ffmpeg (not installed)"
fi
# A registry of its own, so GStreamer scans its plug-ins (and the frei0r folder) afresh.
export GST_REGISTRY="$work/gst-registry.bin"
if command -v gst-launch-1.0 >/dev/null && gst-inspect-1.0 frei0r >/dev/null 2>&1; then
  echo "== gst-launch-1.0 with frei0r-filter-flairize-posterize"
  gst-launch-1.0 -q videotestsrc num-buffers=5 ! video/x-raw,width=64,height=48 ! videoconvert \
    ! frei0r-filter-flairize-posterize ! videoconvert ! fakesink
else
  echo "skipped: GStreamer's frei0r elements (gst-launch-1.0 or gstreamer1.0-plugins-bad not installed)"
fi
if [[ " ${packages[*]} " == *" python3-flairize "* ]]; then
  echo "== python3 -c 'import flairize'"
  # Debian's interpreter, whose dist-packages the package fills (another may come first on PATH).
  (cd "$work" && /usr/bin/python3 -c 'import flairize; print(flairize.__file__, len(flairize.effects()))')
fi
echo "== a C program with pkg-config --cflags --libs flairize"
cat >"$work/effects.c" <<'C'
#include <flairize/flairize.h>
#include <stdio.h>
int main(void) {
  unsigned count = flairize_effect_count();
  printf("%u effects, the first %s\n", count, flairize_effect_name(0));
  return count > 0 ? 0 : 1;
}
C
# shellcheck disable=SC2046
cc -o "$work/effects" "$work/effects.c" $(pkg-config --cflags --libs flairize)
ldd "$work/effects" | grep -Eq 'libflairize.so.0 => /(usr/)?lib/' || { echo "not linked with the installed library"; exit 1; }
"$work/effects"
echo "the Debian packages install and work"
