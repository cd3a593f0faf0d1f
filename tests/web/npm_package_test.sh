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

# In a browser: the installed package served as it is, imported by a page that
# renders a picture through a few effects; its pixels must equal Node's.
browser=$(command -v chromium || command -v chromium-browser || true)
if [ -n "$browser" ] && command -v python3 >/dev/null; then
  cat >renders.mjs <<'JS'
export function picture() {
  const data = new Uint8ClampedArray(23 * 17 * 4);
  for (let i = 0; i < data.length; ++i) data[i] = (Math.imul(i, 2654435761) >>> 13) & 255;
  return { data, width: 23, height: 17 };
}
export function renders(flairize) {
  return [['posterize', { colors: 40 }], ['glass', { progress: 0.5 }], ['rain', { colour: '#336699' }]]
    .map(([effect, options]) => effect + ':' + Array.from(flairize.render(picture(), effect, options).data).join(','));
}
JS
  cat >page.html <<'HTML'
<!doctype html><html><body>waiting<script type="module">
import { load } from './node_modules/flairize/index.js';
import { renders } from './renders.mjs';
load().then((f) => { document.body.textContent = 'RESULT ' + renders(f).join(' '); },
            (e) => { document.body.textContent = 'ERROR ' + e; });
</script></body></html>
HTML
  python3 -u -m http.server 0 --bind 127.0.0.1 >server.log 2>&1 &
  server=$!
  for _ in $(seq 50); do grep -q "port" server.log && break; sleep 0.1; done
  port=$(sed -n 's/.* port \([0-9]*\).*/\1/p' server.log | head -n 1)
  timeout 120 "$browser" --headless --no-sandbox --disable-gpu --user-data-dir="$work/browser-profile" \
    --virtual-time-budget=20000 --dump-dom "http://127.0.0.1:$port/page.html" 2>/dev/null >dom.html || true
  kill $server
  node --input-type=module -e "
    import fs from 'node:fs';
    import { load } from 'flairize';
    import { renders } from './renders.mjs';
    const dom = fs.readFileSync('dom.html', 'utf8');
    const got = (/RESULT ([^<]*)/.exec(dom) || [])[1];
    if (!got) { console.error('npm package in the browser: no result: ' + dom.slice(0, 300)); process.exit(1); }
    const want = renders(await load()).join(' ');
    if (got !== want) {
      const g = got.split(' '), w = want.split(' ');
      const which = w.map((r, k) => r === g[k] ? '' : r.split(':')[0] + ' (' +
        r.split(',').filter((v, i) => v !== (g[k] || '').split(',')[i]).length + ' values)').filter(Boolean);
      console.error('npm package in the browser: pixels differ from Node: ' + which.join(', '));
      process.exit(1);
    }
    console.log('npm package: the browser renders as Node does');"
else
  echo "npm package: no chromium or python3: the browser check skipped"
fi

# TypeScript from the tests' own npm dependencies (npm ci in tests/web), else one on PATH.
tsc=$here/node_modules/.bin/tsc
[ -x "$tsc" ] || tsc=$(command -v tsc || true)
if [ -n "$tsc" ]; then
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
  "$tsc" --noEmit --strict --module nodenext --moduleResolution nodenext --target es2022 types_check.ts
  echo "npm package: index.d.ts type-checks with $("$tsc" --version)"
else
  echo "npm package: tsc is not installed: index.d.ts not type-checked"
fi
