#!/usr/bin/env bash
# Installs what Flairize needs from Debian's packages, skipping what is there.
# Required packages must install; optional ones are reported plainly when they
# cannot be had, and only the work that needs them is skipped later.
#   install-deps.sh             what the main job needs: the command, the frei0r plug-ins, the man page,
#                               the web editor (Emscripten; skipped, saying so, without it)
#   install-deps.sh --test      also what the tests need (GoogleTest, Nettle, mingw-w64, Wine, ffmpeg, melt, clang,
#                               chromium, curl, node and npm ...)
#   install-deps.sh --aarch64   also the aarch64 cross build and qemu
set -u

tests=0 aarch64=0
case "${1:-}" in
  "") ;;
  --test) tests=1 ;;
  --aarch64) tests=1 aarch64=1 ;;
  *) echo "usage: install-deps.sh [--test|--aarch64]" >&2; exit 2 ;;
esac

installed() { dpkg-query -W -f='${Status}' "$1" 2>/dev/null | grep -q 'install ok installed'; }

required=(build-essential cmake pkg-config libpng-dev libjpeg62-turbo-dev libturbojpeg0-dev libwebp-dev libtiff-dev
          libtbb-dev libavformat-dev libavcodec-dev libswscale-dev libswresample-dev libavutil-dev libmicrohttpd-dev
          libgif-dev libexiv2-dev)
# emscripten: the web editor's site; the GIMP plug-in and the GEGL module are built only where these are found.
optional=(frei0r-plugins-dev emscripten libgimp2.0-dev libgegl-dev
          python3-pybind11 pybind11-dev python3-numpy python3-dev)   # the Python module
if [ $tests -eq 1 ]; then
  required+=(libgtest-dev nettle-dev python3)   # python3: the tests read the JSON output with it
  optional+=(libbenchmark-dev g++-mingw-w64-i686-posix binutils-mingw-w64-i686 mingw-w64-i686-dev
             g++-mingw-w64-x86-64-posix binutils-mingw-w64-x86-64 mingw-w64-x86-64-dev
             python3-pefile xvfb xauth wine wine64 wine32:i386 ffmpeg melt
             gstreamer1.0-tools gstreamer1.0-plugins-base gstreamer1.0-plugins-bad
             gstreamer1.0-plugins-good gstreamer1.0-libav   # the GStreamer example in docs/video-hosts.md
             clang libclang-rt-dev   # libFuzzer, for scripts/fuzz.sh
             chromium curl           # the web editor's browser test, flairize edit's test
             gimp gegl               # gimp-console-2.10 and the gegl command: the editors' tests
             python3-pytest          # the Python module's tests
             lintian abigail-tools   # the Debian packages' check, the C library's ABI check
             slurm-wlm munge)        # a one-node Slurm cluster for flairize-farm's test
  # Node and npm run the web editor's tests. A node from elsewhere (nodesource's
  # nodejs bundles npm) is kept: only what is missing is asked for.
  installed nodejs || command -v node >/dev/null || optional+=(nodejs)
  command -v npm >/dev/null || optional+=(npm)
fi
# The aarch64 cross build runs statically linked under qemu; Nettle comes from
# Debian's arm64 architecture.
if [ $aarch64 -eq 1 ]; then
  optional+=(g++-aarch64-linux-gnu qemu-user nettle-dev:arm64)
fi

missing=()
for p in "${required[@]}" "${optional[@]}"; do installed "$p" || missing+=("$p"); done
if [ ${#missing[@]} -eq 0 ]; then
  echo "install-deps: everything is installed"
  exit 0
fi

run() { if [ "$(id -u)" -eq 0 ]; then "$@"; else sudo "$@"; fi; }
export DEBIAN_FRONTEND=noninteractive

# 32-bit Wine comes from Debian's i386 architecture (the tests only).
if [ $tests -eq 1 ] && ! dpkg --print-foreign-architectures | grep -qx i386; then
  run dpkg --add-architecture i386
fi
if [ $aarch64 -eq 1 ] && ! dpkg --print-foreign-architectures | grep -qx arm64; then
  run dpkg --add-architecture arm64
fi

echo "install-deps: installing ${missing[*]}"
# One failed index (seen with Debian's i386 security index) must not stop us:
# the packages come from the indexes that did arrive.
if ! run apt-get update -q >/tmp/flairize-apt-update.log 2>&1; then
  echo "install-deps: apt-get update reported a problem (continuing with the indexes that arrived):"
  grep -E '^(E|W):' /tmp/flairize-apt-update.log | head -n 5
fi
if ! run apt-get install -y -q --no-install-recommends "${missing[@]}" >/tmp/flairize-apt-install.log 2>&1; then
  # Install one by one so a single unavailable package does not block the rest.
  for p in "${missing[@]}"; do
    run apt-get install -y -q --no-install-recommends "$p" >>/tmp/flairize-apt-install.log 2>&1 || true
  done
fi

status=0
for p in "${required[@]}"; do
  if ! installed "$p"; then
    echo "install-deps: required package $p could not be installed"
    status=1
  fi
done
for p in "${optional[@]}"; do
  installed "$p" || echo "install-deps: optional package $p could not be installed; the work that needs it is skipped"
done
exit $status
