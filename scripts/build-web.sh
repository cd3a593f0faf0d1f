#!/usr/bin/env bash
# Builds the web editor with Emscripten into build/web/site (the page, its
# worker and the engine module: the folder is the whole site), the npm package
# "flairize" (build/web/npm, packed into build/web/flairize-VERSION.tgz where npm
# is installed) and the conformance check for Node (build/web/conformance.js).
# Exit 77: Emscripten is not installed (Debian package emscripten).
set -euo pipefail
cd "$(dirname "$0")/.."
if ! command -v emcmake >/dev/null; then
  echo "build-web: Emscripten is not installed (Debian package emscripten): no web editor"
  exit 77
fi
# Debian's Emscripten runs its JavaScript tools with node; they need Debian's node modules (acorn).
export NODE_PATH=${NODE_PATH:-/usr/share/nodejs}
emcmake cmake -S . -B build/web -DCMAKE_BUILD_TYPE=Release -DFLAIRIZE_TESTS="${FLAIRIZE_TESTS:-ON}" \
  -DFLAIRIZE_BENCH=OFF >/dev/null
cmake --build build/web -j"$(nproc 2>/dev/null || echo 2)"
if command -v npm >/dev/null; then
  (cd build/web/npm && npm pack --pack-destination .. --loglevel=error)
fi
