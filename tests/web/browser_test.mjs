#!/usr/bin/env node
// Drives the web editor in headless Chromium and checks that the pictures it
// makes are byte for byte those of `flairize render` with the same settings,
// and that its settings download and its render command line reproduce them.
//
//   node tests/web/browser_test.mjs SITE_DIR FLAIRIZE_BIN WORKDIR [--bench] [--screenshots DIR]
//
// --bench prints, instead of checking, the render time of every offered effect
// on a 1280x720 picture measured inside the page's worker, the gallery's time to
// fill for a 1920x1080 picture and the in-page video render speed for a 720p
// clip. --screenshots DIR also saves pictures of the page there. Exit 0: all equal; 1: a difference;
// 77: Chromium or puppeteer-core is missing.
import { execFileSync } from 'node:child_process';
import fs from 'node:fs';
import http from 'node:http';
import path from 'node:path';
import zlib from 'node:zlib';

const CHROMIUM = process.env.CHROMIUM || '/usr/bin/chromium';

const args = process.argv.slice(2);
const bench = args.includes('--bench');
const shotsAt = args.indexOf('--screenshots');
const shotsDir = shotsAt >= 0 ? path.resolve(args[shotsAt + 1]) : null;
const positional = args.filter((a, i) => !a.startsWith('--') && (shotsAt < 0 || i !== shotsAt + 1));
if (positional.length !== 3) {
  console.error('usage: browser_test.mjs SITE_DIR FLAIRIZE_BIN WORKDIR [--bench] [--screenshots DIR]');
  process.exit(2);
}
const [siteDir, flairize, workDir] = positional.map((p) => path.resolve(p));

if (!fs.existsSync(CHROMIUM)) {
  console.log('SKIP: no Chromium at ' + CHROMIUM + ' (Debian package chromium)');
  process.exit(77);
}
let puppeteer;
try {
  puppeteer = (await import('puppeteer-core')).default;
} catch {
  console.log('SKIP: puppeteer-core is not installed (npm ci in tests/web)');
  process.exit(77);
}
for (const f of [path.join(siteDir, 'index.html'), path.join(siteDir, 'flairize-engine.js'), flairize]) {
  if (!fs.existsSync(f)) {
    console.error('missing: ' + f);
    process.exit(2);
  }
}
fs.rmSync(workDir, { recursive: true, force: true });
fs.mkdirSync(workDir, { recursive: true });

// --- test pictures ----------------------------------------------------------

function png(width, height, channels, pixel) {
  const raw = Buffer.alloc((width * channels + 1) * height);
  for (let y = 0, o = 0; y < height; ++y) {
    raw[o++] = 0;
    for (let x = 0; x < width; ++x) for (const v of pixel(x, y).slice(0, channels)) raw[o++] = v;
  }
  const chunk = (type, data) => {
    const head = Buffer.alloc(8);
    head.writeUInt32BE(data.length);
    head.write(type, 4, 'latin1');
    const crc = Buffer.alloc(4);
    crc.writeUInt32BE(zlib.crc32(Buffer.concat([head.subarray(4), data])));
    return Buffer.concat([head, data, crc]);
  };
  const ihdr = Buffer.alloc(13);
  ihdr.writeUInt32BE(width);
  ihdr.writeUInt32BE(height, 4);
  ihdr[8] = 8;
  ihdr[9] = channels === 4 ? 6 : 2;
  return Buffer.concat([Buffer.from([137, 80, 78, 71, 13, 10, 26, 10]), chunk('IHDR', ihdr),
                        chunk('IDAT', zlib.deflateSync(raw)), chunk('IEND', Buffer.alloc(0))]);
}

// Gradients, a disc and noise, so that edges, blurs and tones all have work.
// Alpha: 0 on the left quarter (with colours the effect must keep), noise in
// the middle, 255 on the right.
function scene(width, height) {
  return (x, y) => {
    let h = (Math.imul(x + 1, 73856093) ^ Math.imul(y + 1, 19349663)) >>> 0;
    h = Math.imul(h ^ (h >>> 15), 2246822519) >>> 0;
    const inDisc = (x - width / 2) ** 2 + (y - height / 2) ** 2 < (Math.min(width, height) / 3) ** 2;
    const r = Math.round((x * 255) / Math.max(1, width - 1));
    const g = inDisc ? 255 - Math.round((y * 255) / Math.max(1, height - 1)) : Math.round((y * 255) / Math.max(1, height - 1));
    const b = inDisc ? 40 : (h & 255);
    const a = x < width / 4 ? 0 : x < width / 2 ? (h >>> 8) & 255 : 255;
    return [r, g, b, a];
  };
}

function writePicture(name, width, height, channels) {
  const file = path.join(workDir, name);
  fs.writeFileSync(file, png(width, height, channels, scene(width, height)));
  return file;
}

// --- reading results -------------------------------------------------------

// A BMP's pixels as packed rows, top first, and its bits per pixel.
function readBmp(file) {
  const b = fs.readFileSync(file);
  const offset = b.readUInt32LE(10);
  const width = b.readInt32LE(18);
  const rawHeight = b.readInt32LE(22);
  const bits = b.readUInt16LE(28);
  const height = Math.abs(rawHeight);
  const bpp = bits / 8;
  const stride = Math.ceil((width * bits) / 32) * 4;
  const out = Buffer.alloc(width * height * bpp);
  for (let y = 0; y < height; ++y) {
    const from = offset + (rawHeight > 0 ? height - 1 - y : y) * stride;
    b.copy(out, y * width * bpp, from, from + width * bpp);
  }
  return { width, height, bpp, pixels: out };
}

// The page's PNG download: every chunk's CRC checked, the image data inflated
// by zlib, every row filter 0, turned into B,G,R(,A).
function readPagePng(file) {
  const b = fs.readFileSync(file);
  const idat = [];
  let width = 0, height = 0, colourType = -1;
  for (let at = 8; at < b.length;) {
    const length = b.readUInt32BE(at);
    const type = b.toString('latin1', at + 4, at + 8);
    const data = b.subarray(at + 8, at + 8 + length);
    if (zlib.crc32(b.subarray(at + 4, at + 8 + length)) !== b.readUInt32BE(at + 8 + length)) {
      throw new Error(type + ' chunk CRC is wrong');
    }
    if (type === 'IHDR') [width, height, colourType] = [data.readUInt32BE(0), data.readUInt32BE(4), data[9]];
    if (type === 'IDAT') idat.push(data);
    at += 12 + length;
  }
  const bpp = colourType === 6 ? 4 : 3;
  const raw = zlib.inflateSync(Buffer.concat(idat));
  const out = Buffer.alloc(width * height * bpp);
  for (let y = 0; y < height; ++y) {
    const row = y * (width * bpp + 1);
    if (raw[row] !== 0) throw new Error('row ' + y + ' has filter ' + raw[row]);
    for (let x = 0; x < width * bpp; x += bpp) {
      const o = y * width * bpp + x;
      out[o] = raw[row + 1 + x + 2];
      out[o + 1] = raw[row + 1 + x + 1];
      out[o + 2] = raw[row + 1 + x];
      if (bpp === 4) out[o + 3] = raw[row + 1 + x + 3];
    }
  }
  return { width, height, bpp, pixels: out };
}

function run(argv, cwd = workDir) {
  return execFileSync(flairize, argv, { cwd, stdio: ['ignore', 'pipe', 'pipe'] }).toString();
}

// A shell command line split into words (plain words and '…' quoting).
function shellWords(line) {
  const words = [];
  const re = /'((?:[^']|'\\'')*)'|(\S+)/g;
  for (let m; (m = re.exec(line));) words.push(m[1] !== undefined ? m[1].replace(/'\\''/g, "'") : m[2]);
  return words;
}

// `flairize render` of a picture with the page's state (effect, sliders, colour, progress).
function expectedFor(input, s, file) {
  run(['render', input, file, '--effect', s.slug, '--p1', String(s.sliders[0]), '--p2', String(s.sliders[1]),
       '--p3', String(s.sliders[2]), '--colour', s.colour, '--progress', String(s.progress)]);
  return readBmp(file);
}

// '' when equal, otherwise where and how they differ.
function difference(what, got, want) {
  if (got.width !== want.width || got.height !== want.height || got.bpp !== want.bpp) {
    return `${what}: ${got.width}x${got.height}x${got.bpp} where ${want.width}x${want.height}x${want.bpp} was expected`;
  }
  if (Buffer.compare(got.pixels, want.pixels) === 0) return '';
  let count = 0, first = -1;
  for (let i = 0; i < want.pixels.length; ++i) {
    if (got.pixels[i] !== want.pixels[i]) { ++count; if (first < 0) first = i; }
  }
  const px = Math.floor(first / want.bpp);
  return `${what}: ${count} bytes differ, first at pixel (${px % want.width}, ${Math.floor(px / want.width)}) ` +
    `byte ${first % want.bpp}: ${got.pixels[first]} where ${want.pixels[first]} was expected`;
}

// --- the site ----------------------------------------------------------------

const types = { '.html': 'text/html', '.js': 'text/javascript', '.css': 'text/css', '.png': 'image/png',
                '.wasm': 'application/wasm', '.json': 'application/json' };
const server = http.createServer((req, res) => {
  const url = new URL(req.url, 'http://x');
  let file;
  if (url.pathname.startsWith('/picture/')) file = path.join(workDir, path.basename(decodeURIComponent(url.pathname)));
  else file = path.join(siteDir, path.normalize(decodeURIComponent(url.pathname)).replace(/^([/\\])+/, '') || 'index.html');
  if (file.endsWith(path.sep)) file = path.join(file, 'index.html');
  fs.readFile(file, (err, data) => {
    if (err) { res.writeHead(404); res.end('not found'); return; }
    res.writeHead(200, { 'Content-Type': types[path.extname(file)] || 'application/octet-stream' });
    res.end(data);
  });
});
await new Promise((resolve) => server.listen(0, '127.0.0.1', resolve));
const origin = 'http://127.0.0.1:' + server.address().port + '/';

const browser = await puppeteer.launch({
  executablePath: CHROMIUM,
  headless: true,
  args: ['--no-sandbox', '--enable-unsafe-swiftshader', '--use-angle=swiftshader'],
});
const page = await browser.newPage();
await page.setViewport({ width: 1280, height: 960 });
const pageErrors = [];
page.on('pageerror', (err) => pageErrors.push(String(err)));
page.on('console', (msg) => { if (msg.type() === 'error') pageErrors.push(msg.text()); });
const cdp = await page.createCDPSession();

async function openPage(query = '') {
  await page.goto(origin + query, { waitUntil: 'load' });
  await page.waitForFunction(() => window.flairizeEditor && document.body.dataset.busy === 'false', { timeout: 60000 });
}

async function waitIdle(timeout = 120000) {
  await page.waitForFunction(() => document.body.dataset.busy === 'false' && window.flairizeEditor.lastResult() !== null,
                             { timeout, polling: 50 });
}

// Opens a picture of WORKDIR by the file input, a drop on the preview or a paste.
async function openPicture(how, name) {
  const opened = await page.evaluate(() => window.flairizeEditor.state().opened);
  if (how === 'file') {
    await (await page.$('#file')).uploadFile(path.join(workDir, name));
  } else {
    await page.evaluate(async (how, n) => {
      const blob = await (await fetch('/picture/' + n)).blob();
      const data = new DataTransfer();
      data.items.add(new File([blob], n, { type: 'image/png' }));
      if (how === 'drop') {
        document.getElementById('stage').dispatchEvent(new DragEvent('drop', { dataTransfer: data, bubbles: true, cancelable: true }));
      } else {
        document.dispatchEvent(new ClipboardEvent('paste', { clipboardData: data, bubbles: true }));
      }
    }, how, name);
  }
  await page.waitForFunction((was, n) => {
    const s = window.flairizeEditor.state();
    return s.opened > was && s.picture.name === n;
  }, { timeout: 60000 }, opened, name);
  await waitIdle();
}

// Sets a control's value as a person would leave it, with its input and change events.
async function setControl(id, value) {
  await page.$eval('#' + id, (el, v) => {
    el.value = String(v);
    el.dispatchEvent(new Event('input', { bubbles: true }));
    el.dispatchEvent(new Event('change', { bubbles: true }));
  }, value);
}

async function chooseEffect(name) {
  const value = await page.$$eval('#effect option', (opts, n) => (opts.find((o) => o.textContent === n) || {}).value, name);
  if (value === undefined) throw new Error('no effect ' + name + ' in the list');
  await page.select('#effect', value);
}

let downloadCount = 0;
async function downloadBy(buttonId, expectedName) {
  const dir = path.join(workDir, 'downloads' + ++downloadCount);
  fs.mkdirSync(dir);
  await cdp.send('Browser.setDownloadBehavior', { behavior: 'allow', downloadPath: dir });
  await page.click('#' + buttonId);
  const file = path.join(dir, expectedName);
  // Done when the file is there, not empty, no partial download is left and its size holds.
  const size = () => (fs.existsSync(file) ? fs.statSync(file).size : 0);
  for (let i = 0, last = -1; i < 600; ++i) {
    const partial = fs.readdirSync(dir).some((f) => f.endsWith('.crdownload'));
    const now = size();
    if (now > 0 && !partial && now === last) break;
    last = now;
    await new Promise((r) => setTimeout(r, 50));
  }
  if (!fs.existsSync(file)) throw new Error('no download ' + expectedName + ' (found: ' + fs.readdirSync(dir).join(', ') + ')');
  return file;
}

// --- benchmark mode --------------------------------------------------------------

if (bench) {
  const file = writePicture('bench-1280x720.png', 1280, 720, 3);
  await openPage();
  await openPicture('file', path.basename(file));
  const r = await page.evaluate(() => window.flairizeEditor.benchmark(3));
  console.log(`Render time per offered effect, ${r.width}x${r.height} ${r.bpp * 8}-bit, defaults, full progress,`);
  console.log('in the page\'s worker (headless Chromium ' + (await browser.version()).replace(/^\D+/, '') + '), best of 3:');
  console.log('| Effect | ms |\n|---|---:|');
  for (const row of r.rows) console.log(`| ${row.name} | ${row.ms.toFixed(1)} |`);
  const total = r.rows.reduce((t, row) => t + row.ms, 0);
  console.log(`| all ${r.rows.length} | ${total.toFixed(0)} |`);

  // The gallery's time to fill for a 1080p picture: from the picture decoded to its last thumbnail
  // (the preview's reduced and full-size renders run first), three openings.
  const big = writePicture('bench-1920x1080.png', 1920, 1080, 3);
  const fills = [];
  for (let k = 0; k < 3; ++k) {
    await openPage();
    await openPicture('file', path.basename(big));
    await page.waitForFunction(() => window.flairizeEditor.gallery().ms !== null, { timeout: 120000 });
    fills.push(await page.evaluate(() => window.flairizeEditor.gallery()));
  }
  console.log(`\nGallery of ${r.rows.length} effects for 1920x1080 24-bit, three openings: filled ` +
              fills.map((g) => `${g.msSinceOpen.toFixed(0)} ms after the file was chosen (${g.ms.toFixed(0)} after decoding)`).join('; '));

  // In-page video render speed for a 720p clip (2 s at 30 frames a second, VP9): decoding, the effect and encoding.
  const clip720 = path.join(workDir, 'bench-720p.webm');
  execFileSync('ffmpeg', ['-v', 'error', '-y', '-f', 'lavfi', '-i', 'testsrc2=size=1280x720:rate=30', '-t', '2',
                          '-c:v', 'libvpx-vp9', '-b:v', '2M', clip720]);
  await openPage();
  await (await page.$('#video-file')).uploadFile(clip720);
  await page.waitForFunction(() => window.flairizeEditor.video().info, { timeout: 60000 });
  const encoders = await page.evaluate(() => window.flairizeEditor.video().info.encoders);
  for (const effect of ['Weave', 'Posterize', 'Pointillize']) {
    await chooseEffect(effect);
    for (const container of encoders) {
      await page.select('#video-format', container);
      await page.click('#video-render');
      await page.waitForFunction(() => { const x = window.flairizeEditor.video(); return !x.rendering && x.result; }, { timeout: 300000 });
      const v = await page.evaluate(() => window.flairizeEditor.video().result);
      console.log(`720p video, ${effect}, ${container}: ${v.frames} frames in ${v.seconds.toFixed(2)} s = ${(v.frames / v.seconds).toFixed(1)} frames a second`);
    }
  }
  await browser.close();
  server.close();
  process.exit(0);
}

// --- checks ----------------------------------------------------------------------

const failures = [];
const fail = (text) => { failures.push(text); console.log('FAIL: ' + text); };

// Widths of a multiple of 16 for ffmpeg 5.1's frei0r frames (see the README), heights odd.
const rgbFile = writePicture('scene.png', 208, 121, 3);
const rgbaFile = writePicture('scene-alpha.png', 160, 99, 4);
writePicture('large.png', 1712, 1001, 3);
// A BMP and a lossless WebP with alpha, written by the command from effect renders of those.
run(['render', rgbFile, 'scene.bmp', '--effect', 'tiles']);
run(['render', rgbaFile, 'scene-alpha.webp', '--effect', 'charcoal']);
// The site built without its npm libraries (no npm at build time) has no TIFF, video or zips: those checks skip.
const libsFile = path.join(siteDir, 'site-libs.js');
const libsBuilt = fs.existsSync(libsFile) && !fs.readFileSync(libsFile, 'utf8').includes('FlairizeLibs = null');
if (!libsBuilt) console.log('SKIP TIFF, video and preset zips: the site was built without its npm libraries');
// TIFF, 24-bit and with alpha (ExtraSamples), written by ffmpeg where it is installed.
const tiffs = [];
for (const [from, to] of libsBuilt ? [[rgbFile, 'scene.tif'], [rgbaFile, 'scene-alpha.tif']] : []) {
  try {
    execFileSync('ffmpeg', ['-v', 'error', '-y', '-i', from, '-compression_algo', 'deflate', path.join(workDir, to)]);
    tiffs.push(path.join(workDir, to));
  } catch {
    console.log('TIFF cases skipped: ffmpeg could not write ' + to);
  }
}

// The frei0r plug-ins beside the command, and ffmpeg to run them.
let frei0r = path.join(path.dirname(flairize), 'frei0r-1');
let ffmpegChecked = 0;
try {
  execFileSync('ffmpeg', ['-version'], { stdio: 'ignore' });
  if (!fs.existsSync(frei0r)) throw new Error();
} catch {
  frei0r = null;
}

// The effect table as the command prints it: offered effects, labels, defaults.
const table = run(['list', '--tsv']).trim().split('\n').map((l) => l.split('\t'))
  .filter((f) => f[2] === '1')
  .map((f) => ({ name: f[1], labels: f.slice(4, 7), defaults: f.slice(7, 10).map(Number) }));
const byName = new Map(table.map((e) => [e.name, e]));

// Frame positions and progresses as `flairize timing` prints them.
function timing(frames, direction, speed) {
  return run(['timing', '--frames', String(frames), '--direction', direction, '--speed', String(speed)])
    .trim().split('\n').map((l) => l.trim().split(/\s+/).map(Number));
}

await openPage();

// The effect list and the direction list.
const listed = await page.$$eval('#effect option', (o) => o.map((x) => x.textContent));
const alphabetical = table.map((e) => e.name).sort((a, b) => a.toLowerCase().localeCompare(b.toLowerCase()));
if (JSON.stringify(listed) !== JSON.stringify(alphabetical)) fail('effect list: ' + listed.join(', '));
const directions = await page.$$eval('#direction option', (o) => o.map((x) => x.textContent));
if (directions.join('|') !== 'Backward|Cycle|Forward|Reverse Cycle') fail('direction list: ' + directions.join(', '));
const start = await page.evaluate(() => window.flairizeEditor.state());
if (start.position !== 16384 || start.direction !== 2 || start.speed !== 0 || start.name !== 'Weave') {
  fail('start settings: ' + JSON.stringify(start));
}

// Each row: the picture, then the settings made through the controls. `frame`
// moves the position bar to that frame of `timing --frames 5`, whose progress
// the page must then use.
const cases = [
  { title: 'the default effect, 24-bit', open: rgbFile },
  { title: 'a fading effect half in, keyboard on the bar', effect: 'Posterize', sliders: [40], frame: 2,
    keys: 'ArrowLeft' },
  { title: 'a colour effect with a colour, Cycle', effect: 'Find Edges', colour: '#1a2b3c', direction: 'Cycle',
    speed: 40, frame: 1 },
  { title: 'two sliders, Reverse Cycle, negative speed', effect: 'Pointillize', sliders: [37, 201], colour: '#e0ff10',
    direction: 'Reverse Cycle', speed: -90, frame: 3 },
  { title: 'no sliders shown (their defaults kept)', effect: 'Bricks', direction: 'Backward', frame: 2 },
  { title: 'alpha: its mask, sliders', open: rgbaFile, effect: 'Shake', sliders: [200, 30], direction: 'Backward',
    speed: 60, frame: 1 },
  { title: 'alpha: an effect that moves the alpha', effect: 'Glass' },
  { title: 'alpha: colour effect', effect: 'Rain', sliders: [90, 10], colour: '#ff0080', frame: 2 },
  { title: 'alpha: fades in, quick changes, latest wins', effect: 'Motion Blur', burst: true },
  { title: 'dropped, 24-bit', open: rgbFile, by: 'drop', effect: 'Solarize', frame: 3 },
  { title: 'pasted, 32-bit', open: rgbaFile, by: 'paste', effect: 'Reflection', sliders: [77] },
  { title: 'a BMP', open: path.join(workDir, 'scene.bmp'), effect: 'Stamp', colour: '#3399ff' },
  { title: 'a lossless WebP with alpha', open: path.join(workDir, 'scene-alpha.webp'), effect: 'Center Blur',
    sliders: [200] },
  { title: 'large picture from ?picture=, reduced first', url: '?picture=/picture/large.png', effect: 'Mosaic',
    large: true },
  ...tiffs.map((f, k) => ({ title: 'a TIFF' + (k ? ' with alpha' : ''), open: f, effect: k ? 'Glass' : 'Tiles',
                            sliders: k ? [] : [30] })),
];

for (const [n, c] of cases.entries()) {
  const label = `${n + 1}. ${c.title}`;
  const before = failures.length;
  try {
    if (c.url) {
      await openPage(c.url);
      await page.waitForFunction(() => window.flairizeEditor.state().picture, { timeout: 60000 });
    }
    if (c.open) await openPicture(c.by || 'file', path.basename(c.open));
    if (c.effect) {
      await chooseEffect(c.effect);
      const s = await page.evaluate(() => window.flairizeEditor.state());
      const want = byName.get(c.effect);
      if (JSON.stringify(s.sliders) !== JSON.stringify(want.defaults)) fail(`${label}: defaults ${s.sliders}`);
      const shown = await page.$$eval('.slider', (rows) => rows.map((r) => (r.hidden ? '' : r.querySelector('label').textContent)));
      if (shown.join('|') !== want.labels.join('|')) fail(`${label}: sliders shown ${JSON.stringify(shown)}`);
      const colourOn = await page.$eval('#colour', (el) => !el.disabled);
      if (colourOn !== s.usesColour) fail(`${label}: colour chooser enabled ${colourOn}`);
    }
    for (const [k, v] of (c.sliders || []).entries()) await setControl('p' + k, v);
    if (c.colour) await setControl('colour', c.colour);
    if (c.direction) await page.select('#direction', String(directions.indexOf(c.direction)));
    if (c.speed !== undefined) await setControl('speed', c.speed);
    let expectProgress = null;
    if (c.frame !== undefined) {
      const s = await page.evaluate(() => window.flairizeEditor.state());
      const [, position, progress] = timing(5, directions[s.direction], s.speed)[c.frame];
      await setControl('position', position);
      expectProgress = progress;
    }
    let keysFrom = 0;
    if (c.keys) {
      keysFrom = await page.evaluate(() => window.flairizeEditor.state().position);
      await page.focus('#position');
      for (let i = 0; i < 3; ++i) await page.keyboard.press(c.keys);
    }
    if (c.burst) {
      await page.evaluate(() => {
        const el = document.getElementById('position');
        for (let p = 16384; p >= 9000; p -= 500) {
          el.value = String(p);
          el.dispatchEvent(new Event('input', { bubbles: true }));
        }
      });
    }
    await waitIdle();

    const s = await page.evaluate(() => window.flairizeEditor.state());
    const r = await page.evaluate(() => window.flairizeEditor.lastResult());
    if (expectProgress !== null && !c.keys && s.progress !== expectProgress) {
      fail(`${label}: progress ${s.progress}, timing says ${expectProgress}`);
    }
    if (c.keys && s.position !== keysFrom - 3) fail(`${label}: position ${s.position} after three ${c.keys}`);
    if (c.burst && s.position !== 9384) fail(`${label}: position ${s.position} after the burst`);
    if (c.large && !(s.picture.reduced && s.picture.reduced.width < s.picture.width)) fail(`${label}: no reduced preview`);
    const rs = r.settings;
    if (rs.effect !== s.effect || rs.p1 !== s.sliders[0] || rs.p2 !== s.sliders[1] || rs.p3 !== s.sliders[2] ||
        rs.colour !== s.colourRef || rs.progress !== s.progress) {
      fail(`${label}: the result is of other settings ${JSON.stringify(rs)}`);
    }
    const got = { width: r.width, height: r.height, bpp: r.bpp, pixels: Buffer.from(r.base64, 'base64') };

    const dir = path.join(workDir, 'case' + (n + 1));
    fs.mkdirSync(dir);
    const input = path.join(workDir, s.picture.name);
    const want = expectedFor(input, s, path.join(dir, 'expected.bmp'));
    const wantBpp = c.large || !s.picture.name.includes('alpha') ? 3 : 4;
    if (want.bpp !== wantBpp || s.picture.bpp !== wantBpp) fail(`${label}: depth ${s.picture.bpp * 8}-bit`);
    let d = difference('preview', got, want);
    if (d) fail(`${label}: ${d}`);

    // The settings download, through --settings.
    const flr = await downloadBy('save-flr', s.slug + '.flr');
    if (fs.statSync(flr).size !== 20) fail(`${label}: the .flr is ${fs.statSync(flr).size} bytes`);
    const viaSettings = path.join(dir, 'settings.bmp');
    run(['render', input, viaSettings, '--settings', flr, '--progress', String(s.progress)]);
    d = difference('.flr render', readBmp(viaSettings), want);
    if (d) fail(`${label}: ${d}`);

    // The PNG download.
    const base = s.picture.name.replace(/\.[^.]*$/, '');
    const pngFile = await downloadBy('save-png', `${base}-${s.slug}.png`);
    d = difference('PNG download', readPagePng(pngFile), want);
    if (d) fail(`${label}: ${d}`);

    // The render command line, run as shown but for a BMP output, in the picture's folder.
    const words = shellWords(await page.$eval('#cmd-render', (el) => el.textContent));
    if (words[0] !== 'flairize' || words[1] !== 'render' || words[2] !== s.picture.name) {
      fail(`${label}: command line ${words.join(' ')}`);
    } else {
      words[3] = path.join(dir, 'command.bmp');
      run(words.slice(1));
      d = difference('command line', readBmp(words[3]), want);
      if (d) fail(`${label}: ${d}`);
    }
    // The ffmpeg line through the frei0r plug-ins, given BGRA frames so that they are the engine's pictures.
    const filter = (await page.$eval('#cmd-ffmpeg', (el) => el.textContent)).match(/-vf "([^"]+)"/);
    if (!filter) fail(`${label}: no filter in the ffmpeg line`);
    else if (frei0r && s.picture.width % 16 === 0) {
      const raw = path.join(dir, 'ffmpeg.raw');
      execFileSync('ffmpeg', ['-v', 'error', '-y', '-i', input, '-vf', 'format=bgra,' + filter[1], '-pix_fmt', 'bgra',
                              '-f', 'rawvideo', raw], { env: { ...process.env, FREI0R_PATH: frei0r }, stdio: 'pipe' });
      const bgra = fs.readFileSync(raw);
      const pixels = Buffer.alloc(want.pixels.length);
      for (let i = 0, o = 0; o < pixels.length; i += 4, o += want.bpp) bgra.copy(pixels, o, i, i + want.bpp);
      d = difference('ffmpeg frei0r', { ...want, pixels }, want);
      if (d) fail(`${label}: ${d}`);
      ++ffmpegChecked;
    }
    console.log(`${failures.length > before ? "" : "ok  "}${label}: ${s.name} ${s.sliders} colour ${s.colour} progress ${s.progress}`);

    if (shotsDir && n === 3) {
      fs.mkdirSync(shotsDir, { recursive: true });
      await page.screenshot({ path: path.join(shotsDir, 'web-editor.png'), fullPage: true });
      await setControl('split', 50);
      const stage = await page.$('#stage');
      await stage.screenshot({ path: path.join(shotsDir, 'web-editor-compare.png') });
      await setControl('split', 0);
    }
  } catch (err) {
    fail(`${label}: ${err && err.stack || err}`);
  }
}

// The video command carries the direction and the speed.
const video = await page.$eval('#cmd-video', (el) => el.textContent);
const videoState = await page.evaluate(() => window.flairizeEditor.state());
if (!video.includes('--direction ' + directions[videoState.direction]) || !video.includes('--speed ' + videoState.speed)) {
  fail('video command line: ' + video);
}

// --- the editor's own features --------------------------------------------------

// Each check runs on its own; a failure names it and the next one goes on.
const checks = [];
async function check(title, body) {
  const before = failures.length;
  try {
    await body((text) => fail(`${title}: ${text}`));
  } catch (err) {
    fail(`${title}: ${err && err.stack || err}`);
  }
  checks.push(title);
  console.log(`${failures.length > before ? '' : 'ok  '}${title}`);
}

const state = () => page.evaluate(() => window.flairizeEditor.state());
async function pageResult() {
  await waitIdle();
  const r = await page.evaluate(() => window.flairizeEditor.lastResult());
  return { width: r.width, height: r.height, bpp: r.bpp, pixels: Buffer.from(r.base64, 'base64') };
}
// The page's picture now against `flairize render` of INPUT with the page's settings.
async function compareWithCommand(input, what, complain) {
  const s = await state();
  const d = difference(what, await pageResult(), expectedFor(input, s, path.join(workDir, 'expect-' + ++downloadCount + '.bmp')));
  if (d) complain(`${d} (${s.name} ${s.sliders} colour ${s.colour} progress ${s.progress})`);
  return s;
}
async function keys(...combo) {
  await page.evaluate(() => document.activeElement && document.activeElement.blur());
  for (const k of combo.slice(0, -1)) await page.keyboard.down(k);
  await page.keyboard.press(combo[combo.length - 1]);
  for (const k of combo.slice(0, -1).reverse()) await page.keyboard.up(k);
}
const sameSettings = (a, b) => ['effect', 'sliders', 'colour', 'direction', 'speed', 'position']
  .every((k) => JSON.stringify(a[k]) === JSON.stringify(b[k]));
const effectIndex = async (name) => page.$$eval('#effect option', (o, n) => Number(o.find((x) => x.textContent === n).value), name);

await check('gallery: every offered effect drawn, a click selects it at its defaults', async (complain) => {
  await openPage('?picture=/picture/scene.png');
  await page.waitForFunction(() => { const g = window.flairizeEditor.gallery(); return g.total > 0 && g.done === g.total; },
                             { timeout: 60000 });
  const thumbs = await page.$$eval('#gallery button', (bs) => bs.map((b) => ({
    name: b.textContent, pixels: b.querySelector('canvas').toDataURL() })));
  if (thumbs.length !== table.length) complain(`${thumbs.length} thumbnails for ${table.length} effects`);
  const distinct = new Set(thumbs.map((t) => t.pixels)).size;
  if (distinct < thumbs.length - 2) complain(`only ${distinct} different thumbnails of ${thumbs.length}`);
  // A thumbnail is the effect on the reduced picture, with the page's colour and progress.
  await setControl('colour', '#c03010');
  await setControl('position', 9000);
  await page.waitForFunction(() => { const g = window.flairizeEditor.gallery(); return g.current && g.done === g.total; },
                             { timeout: 60000, polling: 50 });
  const t = await page.evaluate(() => window.flairizeEditor.galleryThumb('Rain'));
  const src = Buffer.from(t.source, 'base64');
  const small = path.join(workDir, 'thumb.png');
  fs.writeFileSync(small, png(t.width, t.height, 3, (x, y) => { const i = (y * t.width + x) * 3; return [src[i + 2], src[i + 1], src[i]]; }));
  const s0 = await state();
  const wantThumb = expectedFor(small, { ...s0, slug: 'rain', sliders: byName.get('Rain').defaults }, small + '.bmp');
  const drawn = Buffer.from(t.drawn, 'base64');
  const gotThumb = Buffer.alloc(t.width * t.height * 3);
  for (let i = 0, o = 0; o < gotThumb.length; i += 4, o += 3) [gotThumb[o], gotThumb[o + 1], gotThumb[o + 2]] = [drawn[i + 2], drawn[i + 1], drawn[i]];
  const dt = difference('Rain thumbnail', { width: t.width, height: t.height, bpp: 3, pixels: gotThumb }, wantThumb);
  if (dt) complain(dt);
  for (const name of ['Frazzle', 'Pointillize', 'Rain']) {
    const at = thumbs.findIndex((t) => t.name === name);
    if (at < 0) { complain('no thumbnail for ' + name); continue; }
    await page.click(`#gallery button:nth-child(${at + 1})`);
    const s = await compareWithCommand(rgbFile, name, complain);
    if (s.name !== name || JSON.stringify(s.sliders) !== JSON.stringify(byName.get(name).defaults)) complain(`clicked ${name}, got ${s.name} ${s.sliders}`);
    const pressed = await page.$$eval('#gallery button[aria-pressed=true]', (bs) => bs.map((b) => b.textContent));
    if (pressed.join() !== name) complain('pressed: ' + pressed.join());
  }
});

await check('undo, redo, reset and the effect keys', async (complain) => {
  const frazzle = await state();
  // Steps and the state each leaves: [what to do, the settings expected after it].
  await setControl('p0', 17);
  const moved = await state();
  // A drag: many inputs, one change event, one undo step.
  await page.$eval('#position', (el) => {
    for (const v of [15000, 12000, 9000]) { el.value = String(v); el.dispatchEvent(new Event('input', { bubbles: true })); }
    el.dispatchEvent(new Event('change', { bubbles: true }));
  });
  const dragged = await state();
  const steps = [
    [() => keys('Control', 'z'), moved],
    [() => keys('Control', 'z'), frazzle],
    [() => keys('Control', 'Shift', 'Z'), moved],
    [() => keys('Control', 'y'), dragged],
    [() => keys('r'), { ...dragged, sliders: frazzle.sliders, colour: '000000', direction: 2, speed: 0, position: 16384 }],
    [() => keys('Control', 'z'), dragged],
    [() => page.click('#undo'), moved],
    [() => keys(']'), null],
    [() => keys('['), frazzle],
  ];
  for (const [k, [act, want]] of steps.entries()) {
    await act();
    const s = await state();
    if (want && !sameSettings(s, want)) complain(`step ${k + 1}: ${JSON.stringify(s)}`);
    if (k === 7 && s.effect === frazzle.effect) complain('] kept the effect');
  }
  await compareWithCommand(rgbFile, 'after the history', complain);
  // A new change ends what could be redone.
  const last = await state();
  await keys('Control', 'y');
  if (last.redo !== 0 || !sameSettings(await state(), last)) complain('redo after a new change: ' + JSON.stringify(await state()));
});

await check('links: the address holds the settings and reproduces the picture', async (complain) => {
  await chooseEffect('Pointillize');
  await setControl('p1', 99);
  await setControl('colour', '#12ab34');
  await page.select('#direction', '1');
  await setControl('speed', 40);
  await setControl('position', 7000);
  const s = await state();
  const address = await page.evaluate(() => location.hash);
  const want = await pageResult();
  await openPage('?picture=/picture/scene.png' + address);
  await waitIdle();
  const t = await state();
  if (!sameSettings(s, t)) complain(`${address} gives ${JSON.stringify(t)}`);
  const d = difference('linked', await pageResult(), want);
  if (d) complain(d);
  // Written by hand: option names, case and spaces in names ignored; values out of range refused.
  const table2 = [
    ['#effect=find-edges&colour=ff0000&direction=Backward&position=5000', { slug: 'find-edges', colour: 'ff0000', direction: 0, position: 5000 }],
    ['#effect=Posterize&colors=7&speed=-30', { slug: 'posterize', sliders0: 7, speed: -30 }],
    ['#effect=posterize&colors=300', { refused: 'colors 300' }],
    ['#effect=no-such-effect', { refused: 'no effect' }],
  ];
  for (const [hash, want2] of table2) {
    await openPage('?picture=/picture/scene.png' + hash);
    await waitIdle();
    const u = await state();
    const status = await page.$eval('#status', (el) => el.textContent);
    if (want2.refused) {
      if (!status.includes(want2.refused)) complain(`${hash}: status "${status}"`);
      continue;
    }
    for (const [k, v] of Object.entries(want2)) {
      const got = k === 'sliders0' ? u.sliders[0] : u[k];
      if (got !== v) complain(`${hash}: ${k} ${got}, expected ${v}`);
    }
    await compareWithCommand(rgbFile, hash, complain);
  }
});

await check('presets: saved, kept across a reload, exported as .flr and as a zip, imported, opened', async (complain) => {
  await page.evaluate(() => localStorage.clear());
  await openPage('?picture=/picture/scene.png');
  await chooseEffect('Rain');
  await setControl('p0', 120);
  await setControl('colour', '#336699');
  await setControl('position', 12000);
  const saved = await state();
  const want = await pageResult();
  await page.$eval('#preset-name', (el) => { el.value = 'Blue rain/1'; });
  await page.click('#preset-save');
  await chooseEffect('Tiles');
  await page.$eval('#preset-name', (el) => { el.value = 'tiles'; });
  await page.click('#preset-save');
  await openPage('?picture=/picture/scene.png');
  const names = (await page.evaluate(() => window.flairizeEditor.presets())).map((p) => p.name);
  if (names.join('|') !== 'Blue rain/1|tiles') complain('after a reload: ' + names.join('|'));
  await page.select('#presets', 'Blue rain/1');
  await page.click('#preset-load');
  if (!sameSettings(await state(), saved)) complain('loaded: ' + JSON.stringify(await state()));
  let d = difference('preset', await pageResult(), want);
  if (d) complain(d);
  const flr = await downloadBy('preset-export', 'Blue rain_1.flr');
  const viaSettings = path.join(workDir, 'preset.bmp');
  run(['render', rgbFile, viaSettings, '--settings', flr, '--progress', String(saved.progress)]);
  d = difference('preset .flr through --settings', readBmp(viaSettings), want);
  if (d) complain(d);
  // Opening a settings file: the settings, and a position that gives its progress.
  await chooseEffect('Weave');
  await (await page.$('#open-flr')).uploadFile(flr);
  await page.waitForFunction((e) => window.flairizeEditor.state().effect === e, { timeout: 10000 }, saved.effect);
  const opened = await state();
  if (!sameSettings(opened, saved)) complain('opened .flr: ' + JSON.stringify(opened));
  d = difference('opened .flr', await pageResult(), want);
  if (d) complain(d);
  if (!libsBuilt) return;
  const zip = await downloadBy('preset-export-all', 'flairize-presets.zip');
  const listing = execFileSync('python3', ['-c', 'import sys, zipfile; print(" ".join(sorted(zipfile.ZipFile(sys.argv[1]).namelist())))', zip]).toString().trim();
  if (listing !== 'Blue rain_1.flr tiles.flr') complain('zip holds ' + listing);
  for (const name of ['Blue rain/1', 'tiles']) {
    await page.select('#presets', name);
    await page.click('#preset-delete');
  }
  if ((await page.evaluate(() => window.flairizeEditor.presets())).length) complain('presets left after deleting');
  await (await page.$('#preset-import')).uploadFile(zip);
  await page.waitForFunction(() => window.flairizeEditor.presets().length === 2, { timeout: 10000 });
  const back = (await page.evaluate(() => window.flairizeEditor.presets())).find((p) => p.name === 'Blue rain_1');
  if (!back || !sameSettings({ ...back.settings, colour: back.settings.colour.replace('#', '') }, saved)) complain('imported from the zip: ' + JSON.stringify(back));
});

await check('pictures refused with the reason', async (complain) => {
  fs.writeFileSync(path.join(workDir, 'too-wide.png'), png(32768, 1, 3, () => [1, 2, 3]));
  await (await page.$('#file')).uploadFile(path.join(workDir, 'too-wide.png'));
  await page.waitForFunction(() => document.getElementById('status').textContent.startsWith('Cannot open'), { timeout: 30000 });
  const status = await page.$eval('#status', (el) => el.textContent);
  if (!status.includes('32767') || !status.includes('flairize render')) complain(status);
});

// A 2-second clip, lossless VP9 so that ffmpeg and the browser see the same pictures.
let clip = null;
if (libsBuilt) try {
  clip = path.join(workDir, 'clip.webm');
  execFileSync('ffmpeg', ['-v', 'error', '-y', '-f', 'lavfi', '-i', 'testsrc2=size=96x64:rate=12', '-t', '2',
                          '-c:v', 'libvpx-vp9', '-lossless', '1', clip]);
} catch {
  clip = null;
  console.log('SKIP video: ffmpeg could not make a VP9 clip');
}
const countFrames = (file) => Number(execFileSync('ffprobe', ['-v', 'error', '-count_frames', '-select_streams', 'v:0',
  '-show_entries', 'stream=nb_read_frames', '-of', 'csv=p=0', file]).toString().trim());
const bgrPng = (file, width, height, bgr) =>
  fs.writeFileSync(file, png(width, height, 3, (x, y) => { const i = (y * width + x) * 3; return [bgr[i + 2], bgr[i + 1], bgr[i]]; }));

if (clip) await check('video: timeline preview and the whole clip rendered in the page', async (complain) => {
  const frames = countFrames(clip);
  await openPage('?picture=/picture/scene.png');
  await page.evaluate(() => window.flairizeEditor.keepVideoFrames(true));
  await chooseEffect('Posterize');
  await setControl('p0', 9);
  await page.select('#direction', '1');
  await setControl('speed', 30);
  await (await page.$('#video-file')).uploadFile(clip);
  await page.waitForFunction(() => { const v = window.flairizeEditor.video(); return v.info || v.status.startsWith('Video:'); }, { timeout: 60000 });
  const v = await page.evaluate(() => window.flairizeEditor.video());
  if (!v.info) return complain(v.status);
  if (v.info.frames !== frames) complain(`${v.info.frames} frames listed, ffprobe counts ${frames}`);
  const rows = timing(frames, 'Cycle', 30);
  // The timeline: frame 7's preview at its progress.
  await setControl('video-frame', 6);
  await page.waitForFunction(() => (window.flairizeEditor.state().picture || {}).name === 'clip-frame7.png', { timeout: 30000 });
  const s = await state();
  if (s.position !== rows[6][1] || s.progress !== rows[6][2]) complain(`frame 7 at ${s.position}/${s.progress}, timing says ${rows[6][1]}/${rows[6][2]}`);
  const encoders = v.info.encoders;
  const wanted = ['webm', 'mp4'];
  for (const c of wanted.filter((x) => !encoders.includes(x))) console.log(`SKIP video ${c}: this Chromium has no encoder for it`);
  for (const container of wanted.filter((x) => encoders.includes(x))) {
    await page.select('#video-format', container);
    await page.click('#video-render');
    await page.waitForFunction(() => { const x = window.flairizeEditor.video(); return !x.rendering && (x.result || x.status.startsWith('Video:')); },
                               { timeout: 120000 });
    const r = await page.evaluate(() => window.flairizeEditor.video());
    if (!r.result) { complain(`${container}: ${r.status}`); continue; }
    const out = path.join(workDir, 'rendered.' + container);
    fs.writeFileSync(out, Buffer.from(r.result.base64, 'base64'));
    const got = countFrames(out);
    if (r.result.frames !== frames || got !== frames) complain(`${container}: ${r.result.frames} frames rendered, ${got} in the file, ${frames} in the clip`);
    if (r.kept.length !== frames) complain(`${container}: ${r.kept.length} frames kept`);
    // Each frame before encoding against the command on the same decoded frame at the frame's progress.
    let differing = 0;
    for (const k of r.kept) {
      const source = path.join(workDir, `frame-${container}-${k.frame}.png`);
      bgrPng(source, r.result.width, r.result.height, Buffer.from(k.source, 'base64'));
      if (k.progress !== rows[k.frame][2]) complain(`frame ${k.frame + 1}: progress ${k.progress}, timing says ${rows[k.frame][2]}`);
      const want = expectedFor(source, { ...s, progress: rows[k.frame][2] }, source + '.bmp');
      const d = difference(`frame ${k.frame + 1}`, { ...want, pixels: Buffer.from(k.output, 'base64') }, want);
      if (d && ++differing <= 3) complain(`${container}: ${d}`);
    }
    if (differing) complain(`${container}: ${differing} of ${r.kept.length} frames differ`);
    else console.log(`    ${container}: ${r.kept.length} frames equal to flairize render of the decoded frames`);
  }
  // Cancel: a longer clip stopped after its first frames leaves no result and says where it stopped.
  if (encoders.length) {
    const long = path.join(workDir, 'long.webm');
    execFileSync('ffmpeg', ['-v', 'error', '-y', '-f', 'lavfi', '-i', 'testsrc2=size=320x240:rate=30', '-t', '10',
                            '-c:v', 'libvpx-vp9', '-deadline', 'realtime', '-cpu-used', '8', long]);
    await page.evaluate(() => window.flairizeEditor.keepVideoFrames(false));
    await (await page.$('#video-file')).uploadFile(long);
    await page.waitForFunction(() => (window.flairizeEditor.video().info || {}).frames === 300, { timeout: 60000 });
    await page.click('#video-render');
    await page.waitForFunction(() => /Rendering frame [1-9]/.test(window.flairizeEditor.video().status), { timeout: 60000 });
    await page.click('#video-cancel');
    await page.waitForFunction(() => !window.flairizeEditor.video().rendering, { timeout: 60000 });
    const c = await page.evaluate(() => window.flairizeEditor.video());
    if (c.result || !/^Cancelled after \d+ of 300 frames/.test(c.status)) complain('cancel: ' + c.status);
  }
});

await check('accessibility: axe-core finds no WCAG 2 A/AA violations', async (complain) => {
  const axe = path.join(path.dirname(new URL(import.meta.url).pathname), 'node_modules', 'axe-core', 'axe.min.js');
  if (!fs.existsSync(axe)) { console.log('SKIP axe-core: not installed (npm ci in tests/web)'); return; }
  await openPage('?picture=/picture/scene-alpha.png');
  await page.waitForFunction(() => { const g = window.flairizeEditor.gallery(); return g.done === g.total; }, { timeout: 60000 });
  await page.$eval('#help', (el) => { el.open = true; });
  for (const zoom of ['zoom-fit', 'zoom-actual']) {
    await page.click('#' + zoom);
    await page.addScriptTag({ path: axe });
    const found = await page.evaluate(async () => {
      const r = await window.axe.run(document, { runOnly: { type: 'tag', values: ['wcag2a', 'wcag2aa', 'wcag21a', 'wcag21aa'] } });
      return { passes: r.passes.length, violations: r.violations.map((v) =>
        `${v.id} (${v.impact}): ${v.nodes.slice(0, 3).map((n) => n.target.join(' ')).join(', ')}`) };
    });
    if (found.passes < 10) complain(`${zoom}: axe-core checked only ${found.passes} rules`);
    for (const v of found.violations) complain(`${zoom}: ${v}`);
    console.log(`    ${zoom}: ${found.passes} rules passed, ${found.violations.length} violated`);
  }
});

await check('view: 100% with panning by dragging, and fit', async (complain) => {
  await openPage('?picture=/picture/large.png');
  await waitIdle();
  await keys('1');
  const box = () => page.evaluate(() => {
    const stage = document.getElementById('stage');
    return { actual: stage.classList.contains('actual'), width: document.getElementById('canvases').getBoundingClientRect().width,
             stage: stage.clientWidth, scrollWidth: stage.scrollWidth, left: stage.scrollLeft, top: stage.scrollTop,
             rect: stage.getBoundingClientRect().toJSON() };
  });
  const a = await box();
  if (!a.actual || Math.round(a.width) !== 1712 || a.scrollWidth <= a.stage) complain('at 100%: ' + JSON.stringify(a));
  const x = a.rect.x + a.rect.width / 2;
  const y = a.rect.y + a.rect.height / 2;
  await page.mouse.move(x, y);
  await page.mouse.down();
  await page.mouse.move(x - 150, y - 100, { steps: 5 });
  await page.mouse.up();
  const b = await box();
  if (b.left !== a.left + 150 || b.top !== a.top + 100) complain(`dragged by (-150, -100): scrolled from (${a.left}, ${a.top}) to (${b.left}, ${b.top})`);
  await keys('f');
  const c = await box();
  if (c.actual || Math.round(c.width) !== c.stage) complain('fit: ' + JSON.stringify(c));
});

await check('narrow screens: no sideways overflow at 390 and 360 px, the controls below the picture', async (complain) => {
  for (const width of [390, 360]) {
    await page.setViewport({ width, height: 844 });
    await openPage('?picture=/picture/large.png');
    const m = await page.evaluate(() => ({ scroll: document.documentElement.scrollWidth, client: document.documentElement.clientWidth,
      view: document.getElementById('view').getBoundingClientRect().bottom,
      controls: document.getElementById('controls').getBoundingClientRect().top }));
    if (m.scroll > m.client) complain(`${width} px: the page is ${m.scroll} px wide`);
    if (m.controls < m.view) complain(`${width} px: the controls are not below the picture`);
  }
  await page.setViewport({ width: 1280, height: 960 });
});

if (shotsDir) {
  await openPage('?picture=/picture/scene.png#effect=pointillize');
  await page.waitForFunction(() => { const g = window.flairizeEditor.gallery(); return g.done === g.total; }, { timeout: 60000 });
  await (await page.$('#gallery-box')).screenshot({ path: path.join(shotsDir, 'web-editor-gallery.png') });
  if (clip) {
    await (await page.$('#video-file')).uploadFile(clip);
    await page.waitForFunction(() => window.flairizeEditor.video().info, { timeout: 60000 });
    await setControl('video-frame', 12);
    await page.waitForFunction(() => (window.flairizeEditor.state().picture || {}).name === 'clip-frame13.png', { timeout: 30000 });
    await page.click('#video-render');
    await page.waitForFunction(() => window.flairizeEditor.video().result, { timeout: 120000 });
    await waitIdle();
    await setControl('split', 40);
    await (await page.$('#view')).screenshot({ path: path.join(shotsDir, 'web-editor-video-frame.png') });
    await setControl('split', 0);
    await (await page.$('#video')).screenshot({ path: path.join(shotsDir, 'web-editor-video.png') });
  }
}

for (const e of pageErrors) fail('page: ' + e);
console.log(frei0r ? `ffmpeg command lines checked through the frei0r plug-ins: ${ffmpegChecked}`
                   : 'ffmpeg command lines not run: no ffmpeg or no frei0r-1 folder beside ' + flairize);
await browser.close();
server.close();
console.log(failures.length ? `${failures.length} difference(s)` : `all ${cases.length} cases equal to flairize render, ${checks.length} checks of the editor passed`);
process.exit(failures.length ? 1 : 0);
