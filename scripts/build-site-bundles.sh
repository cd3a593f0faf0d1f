#!/usr/bin/env bash
# Bundles the web editor's npm libraries into its site with esbuild: the video
# worker (mediabunny: demuxing, WebCodecs encoding, WebM/MP4 muxing) and
# site-libs.js (the TIFF decoder utif2, fflate for zips of presets). They are
# installed with `npm ci` from web/site/package-lock.json into WORK_DIR. Where
# npm cannot be had the site is built without them, saying so, and the page
# says which of its features are missing.
# usage: build-site-bundles.sh SITE_SOURCE_DIR SITE_DIR WORK_DIR
set -euo pipefail
src=$(realpath "$1")
site=$(realpath -m "$2")
work=$(realpath -m "$3")
mkdir -p "$site" "$work"

without() {
  echo "web editor: $1: the site is built without video, TIFF and zips of presets"
  rm -f "$site/video-worker.js"
  printf '%s\n' "// Built without the npm libraries: $1." "self.FlairizeLibs = null;" \
    "self.FlairizeLibsMissing = $(node -e 'console.log(JSON.stringify(process.argv[1]))' "$1" 2>/dev/null || echo '"npm is missing"');" \
    >"$site/site-libs.js"
  exit 0
}

command -v node >/dev/null || without "node is not installed"
command -v npm >/dev/null || without "npm is not installed"
if [ ! -d "$work/node_modules" ] || ! cmp -s "$src/package-lock.json" "$work/package-lock.json"; then
  cp "$src/package.json" "$src/package-lock.json" "$work/"
  rm -f "$work/.installed"
  if ! (cd "$work" && npm ci --no-audit --no-fund --loglevel=error >npm-ci.log 2>&1); then
    rm -f "$work/package-lock.json"   # tried again on the next build
    without "npm ci failed ($(tail -n 1 "$work/npm-ci.log"))"
  fi
fi
esbuild="$work/node_modules/.bin/esbuild"
# The sources live in the source tree; their imports resolve in WORK_DIR's node_modules.
export NODE_PATH="$work/node_modules"
"$esbuild" "$src/src/video-worker.mjs" --bundle --format=iife --minify --target=chrome110 --log-level=warning \
  --legal-comments=none --outfile="$site/video-worker.js"
"$esbuild" "$src/src/site-libs.mjs" --bundle --format=iife --minify --target=chrome110 --log-level=warning \
  --legal-comments=none --outfile="$site/site-libs.js"
