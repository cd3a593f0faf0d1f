#!/usr/bin/env bash
# The npm package "flairize": `npm pack` in its built folder, the tarball
# installed offline into a fresh folder, and tests/web/npm_package_check.mjs run
# there against `flairize render`; index.d.ts type-checked where tsc is installed.
# usage: npm_package_test.sh PACKAGE_DIR FLAIRIZE [WORK_DIR]
# Exit 77 (skipped) without node or npm, or where the package was not built (no Emscripten).
set -euo pipefail
package_dir=$(realpath -m "$1")
flairize=$(realpath -m "$2")
work=$(realpath -m "${3:-$(mktemp -d)}")
here=$(cd "$(dirname "$0")" && pwd)
for tool in node npm; do
  if ! command -v $tool >/dev/null; then
    echo "skipped: the npm package test needs $tool"
    exit 77
  fi
done
if [ ! -f "$package_dir/flairize-engine.wasm" ]; then
  echo "skipped: the npm package is not built in $package_dir (scripts/build-web.sh builds it with Emscripten)"
  exit 77
fi
rm -rf "$work"
mkdir -p "$work/pack" "$work/app"
(cd "$package_dir" && npm pack --pack-destination "$work/pack" --json --loglevel=error) >"$work/pack.json"
tarball=$(ls "$work"/pack/flairize-*.tgz)
node -e '
  const [info] = JSON.parse(require("fs").readFileSync(process.argv[1], "utf8"));
  console.log(`npm package: ${info.filename}, ${info.size} bytes packed, ${info.unpackedSize} unpacked, ${info.entryCount} files`);
  const want = ["LICENSE", "README.md", "flairize-engine.mjs", "flairize-engine.wasm", "index.d.ts", "index.js", "package.json"];
  const got = info.files.map((f) => f.path).sort();
  if (JSON.stringify(got) !== JSON.stringify(want)) { console.error("tarball holds " + got.join(" ")); process.exit(1); }
' "$work/pack.json"
cd "$work/app"
echo '{"name": "flairize-package-check", "private": true, "type": "module"}' >package.json
npm install --offline --no-audit --no-fund --loglevel=error "$tarball" >/dev/null
cp "$here/npm_package_check.mjs" .
node npm_package_check.mjs "$flairize" "$work/pictures"

if command -v tsc >/dev/null; then
  cat >types_check.ts <<'TS'
import { load, Flairize, Effect, RenderedPicture } from 'flairize';
const flairize: Flairize = await load();
const effects: Effect[] = flairize.effects();
const out: RenderedPicture = flairize.render({ data: new Uint8ClampedArray(4), width: 1, height: 1 }, effects[3],
                                             { angle: 3, progress: 0.5, colour: '#fff', mix: false, channels: 4 });
const block: Uint8Array = flairize.settingsBlock('rain', { direction: 'Cycle', number: 9 });
const progress: number = flairize.frameProgress(flairize.sequencePosition(1, 3), 10, 'Reverse Cycle');
console.log(out.width, block.length, progress, flairize.readSettingsBlock(block).colour);
TS
  tsc --noEmit --strict --module nodenext --moduleResolution nodenext --target es2022 types_check.ts
  echo "npm package: index.d.ts type-checks with $(tsc --version)"
else
  echo "npm package: tsc is not installed: index.d.ts not type-checked"
fi
