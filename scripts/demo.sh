#!/usr/bin/env bash
# The main job: installs what is missing, builds, and renders the bundled sample
# picture through every offered effect, one picture each, plus a contact sheet.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/install-deps.sh
jobs=$(nproc 2>/dev/null || echo 2)
# The command, its man page, the frei0r plug-ins and, where Emscripten is installed,
# the web editor's site; the tests are built by scripts/test.sh.
cmake -S . -B build/release -DCMAKE_BUILD_TYPE=Release -DFLAIRIZE_TESTS=OFF -DFLAIRIZE_BENCH=OFF >/dev/null
cmake --build build/release -j"$jobs"

bin=build/release
out=out/demo
mkdir -p "$out"
while IFS=$'\t' read -r index name offered _; do
  [ "$offered" = 1 ] || continue
  slug=$(echo "$name" | tr '[:upper:] ' '[:lower:]-')
  "$bin/flairize" render samples/sample.png "$out/$slug.png" --effect "$index"
  echo "rendered $out/$slug.png"
done < <("$bin/flairize" list --tsv)
"$bin/flairize" sheet samples/sample.png "$out/contact-sheet.png"
echo "contact sheet: $out/contact-sheet.png"
if [ -f "$bin/site/index.html" ]; then
  echo "web editor: $bin/flairize edit samples/sample.png"
fi
