// Run from a folder where the packed "flairize" tarball is installed: renders
// pictures through the package and compares them byte for byte with
// `flairize render`, and checks the catalogue, frame timing and settings
// blocks against the command's own answers.
// usage: node npm_package_check.mjs FLAIRIZE WORK_DIR
import { execFileSync } from 'node:child_process';
import fs from 'node:fs';
import path from 'node:path';
import zlib from 'node:zlib';
import { load, Flairize } from 'flairize';

const [flairizeCommand, workDir] = process.argv.slice(2);
if (!flairizeCommand || !workDir) {
  console.error('usage: node npm_package_check.mjs FLAIRIZE WORK_DIR');
  process.exit(2);
}
fs.mkdirSync(workDir, { recursive: true });
const run = (args) => execFileSync(flairizeCommand, args, { cwd: workDir, encoding: 'utf8' });

let failures = 0;
let checks = 0;
function check(what, ok, detail = '') {
  ++checks;
  if (!ok) {
    ++failures;
    console.error(`FAIL ${what}${detail ? ': ' + detail : ''}`);
  }
}

// --- pictures ---------------------------------------------------------------

function crc32(bytes) {
  let c = ~0;
  for (const b of bytes) {
    c ^= b;
    for (let k = 0; k < 8; ++k) c = (c >>> 1) ^ (0xedb88320 & -(c & 1));
  }
  return ~c >>> 0;
}

// An RGBA picture as PNG, 8 bits a channel, with or without its alpha.
function png(picture, channels) {
  const { width, height, data } = picture;
  const raw = Buffer.alloc((width * channels + 1) * height);
  for (let y = 0, o = 0; y < height; ++y) {
    raw[o++] = 0;
    for (let x = 0; x < width; ++x)
      for (let c = 0; c < channels; ++c) raw[o++] = data[(y * width + x) * 4 + c];
  }
  const chunk = (type, body) => {
    const head = Buffer.alloc(8);
    head.writeUInt32BE(body.length);
    head.write(type, 4, 'latin1');
    const crc = Buffer.alloc(4);
    crc.writeUInt32BE(crc32(Buffer.concat([head.subarray(4), body])));
    return Buffer.concat([head, body, crc]);
  };
  const ihdr = Buffer.alloc(13);
  ihdr.writeUInt32BE(width);
  ihdr.writeUInt32BE(height, 4);
  ihdr[8] = 8;
  ihdr[9] = channels === 4 ? 6 : 2;
  return Buffer.concat([Buffer.from([137, 80, 78, 71, 13, 10, 26, 10]), chunk('IHDR', ihdr),
                        chunk('IDAT', zlib.deflateSync(raw)), chunk('IEND', Buffer.alloc(0))]);
}

// Gradients, a disc and noise; alpha 0 on the left quarter (colours kept behind it), noise, then 255.
function scene(width, height) {
  const data = new Uint8ClampedArray(width * height * 4);
  for (let y = 0; y < height; ++y) {
    for (let x = 0; x < width; ++x) {
      let h = (Math.imul(x + 1, 73856093) ^ Math.imul(y + 1, 19349663)) >>> 0;
      h = Math.imul(h ^ (h >>> 15), 2246822519) >>> 0;
      const inDisc = (x - width / 2) ** 2 + (y - height / 2) ** 2 < (Math.min(width, height) / 3) ** 2;
      const o = (y * width + x) * 4;
      data[o] = Math.round((x * 255) / (width - 1));
      data[o + 1] = inDisc ? 255 - Math.round((y * 255) / (height - 1)) : Math.round((y * 255) / (height - 1));
      data[o + 2] = inDisc ? 40 : h & 255;
      data[o + 3] = x < width / 4 ? 0 : x < width / 2 ? (h >>> 8) & 255 : 255;
    }
  }
  return { data, width, height };
}

// A BMP the command wrote (24- or 32-bit) as RGBA, alpha 255 for 24-bit.
function readBmpRgba(file) {
  const b = fs.readFileSync(file);
  const offset = b.readUInt32LE(10);
  const width = b.readInt32LE(18);
  const rawHeight = b.readInt32LE(22);
  const bpp = b.readUInt16LE(28) / 8;
  const height = Math.abs(rawHeight);
  const stride = Math.ceil((width * bpp) / 4) * 4;
  const data = new Uint8ClampedArray(width * height * 4);
  for (let y = 0; y < height; ++y) {
    const row = offset + (rawHeight > 0 ? height - 1 - y : y) * stride;
    for (let x = 0; x < width; ++x) {
      const s = row + x * bpp;
      const d = (y * width + x) * 4;
      data[d] = b[s + 2];
      data[d + 1] = b[s + 1];
      data[d + 2] = b[s];
      data[d + 3] = bpp === 4 ? b[s + 3] : 255;
    }
  }
  return { width, height, bpp, data };
}

// --- renders against the command ---------------------------------------------

const flairize = await load();
check('Flairize.load gives the same engine', (await Flairize.load()) instanceof Flairize);

const picture = scene(61, 37);
fs.writeFileSync(path.join(workDir, 'rgba.png'), png(picture, 4));
fs.writeFileSync(path.join(workDir, 'rgb.png'), png(picture, 3));

// [effect, package options, the command's options]; channels 3 renders the 24-bit picture.
const renders = [
  ['weave', {}, []],
  ['pointillize', { number: 40, randomness: 200, colour: '#3399ff' }, ['--number', '40', '--randomness', '200', '--colour', '3399ff']],
  ['Motion Blur', { angle: 30, progress: 0.5 }, ['--angle', '30', '--progress', '0.5']],
  ['find-edges', { colour: '#abc', progressSteps: 5000 }, ['--colour', 'aabbcc', '--progress', '5000']],
  ['posterize', { colors: 10, mix: false, progress: 0.3 }, ['--colors', '10', '--filter-only', '--progress', '0.3']],
  ['shake', { p1: 12, p2: 200, progress: 0.75 }, ['--p1', '12', '--p2', '200', '--progress', '0.75']],
  ['mosaic', { progressSteps: 9000 }, ['--progress', '9000']],
  ['kaleidoscope', {}, []],
  ['glass', { progress: 0.4 }, ['--progress', '0.4']],
  ['crosshair', { size: 100, colour: 0xff2000, channels: 3 }, ['--size', '100', '--colour', 'ff2000']],
  ['watercolor', { channels: 3, progress: 0.6 }, ['--progress', '0.6']],
  ['smudge', { number: 90, channels: 3 }, ['--number', '90']],
];
for (const [effect, options, commandOptions] of renders) {
  const what = `render ${effect} ${JSON.stringify(options)}`;
  const input = options.channels === 3 ? 'rgb.png' : 'rgba.png';
  const expectedFile = `expected-${renders.findIndex((r) => r[1] === options)}.bmp`;
  run(['render', input, expectedFile, '--effect', effect, ...commandOptions, '-q']);
  const expected = readBmpRgba(path.join(workDir, expectedFile));
  const got = flairize.render(picture, effect, options);
  check(`${what}: size`, got.width === picture.width && got.height === picture.height);
  check(`${what}: the command wrote ${options.channels === 3 ? 24 : 32}-bit`, expected.bpp === (options.channels || 4));
  check(`${what}: a new Uint8ClampedArray`, got.data instanceof Uint8ClampedArray && got.data !== picture.data);
  const at = got.data.findIndex((v, i) => v !== expected.data[i]);
  check(`${what}: pixels equal flairize render`, at < 0 && got.data.length === expected.data.length,
        at < 0 ? '' : `first difference at byte ${at}: ${got.data[at]} != ${expected.data[at]}`);
}
// The effect must have done something, or equal pictures prove little.
check('pointillize changes the picture', flairize.render(picture, 'pointillize').data.some((v, i) => v !== picture.data[i]));

// --- the catalogue against `flairize list --json` -----------------------------

const listed = JSON.parse(run(['list', '--json'])).effects;
const effects = flairize.effects();
check('catalogue: as many effects as flairize list', effects.length === listed.length);
for (const want of listed) {
  const got = effects[want.index];
  const sliders = (e) => JSON.stringify(e.sliders.map((s) => [s.slider, s.option, s.label, s.min ?? s.minimum,
                                                               s.max ?? s.maximum, s.default, s.unit, s.meaning]));
  check(`catalogue: ${want.slug}`, got && got.slug === want.slug && got.name === want.name &&
        got.description === want.description && got.category === want.category && got.offered === want.offered &&
        got.fadesIn === want.fades_in && got.usesColour === want.uses_colour && sliders(got) === sliders(want),
        JSON.stringify(got));
  check(`effect lookup: ${want.slug}`, flairize.effect(want.slug) === got && flairize.effect(want.index) === got);
}
check('effect lookup by name, case and spaces ignored', flairize.effect('MOTION blur').slug === 'motion-blur');

// --- timing against `flairize timing --json` -----------------------------------

for (const [frames, speed, direction] of [[7, 0, 'Forward'], [12, 60, 'Cycle'], [5, -100, 'Reverse Cycle'],
                                          [1, 0, 'Backward'], [33, 127, 'Backward']]) {
  const want = JSON.parse(run(['timing', '--frames', String(frames), '--speed', String(speed),
                               '--direction', direction, '--json'])).timing;
  const got = want.map((row) => {
    const position = flairize.sequencePosition(row.frame, frames);
    return { frame: row.frame, position, progress: flairize.frameProgress(position, speed, direction) };
  });
  check(`timing ${frames} ${speed} ${direction}`, JSON.stringify(got) === JSON.stringify(want),
        `${JSON.stringify(got)} != ${JSON.stringify(want)}`);
}

// --- settings blocks against `flairize settings` --------------------------------

const blocks = [
  ['rain', { number: 7, colour: '#102030', direction: 'Reverse Cycle' },
   ['--number', '7', '--colour', '102030', '--direction', 'Reverse Cycle']],
  ['shake', { angle: 200 }, ['--angle', '200']],
  ['posterize', { direction: 'Backward' }, ['--direction', 'Backward']],
];
// A progress given is stored; without one the block keeps a new record's.
check('settings block with a progress', flairize.readSettingsBlock(flairize.settingsBlock('weave', { progress: 0.5 }))
  .progressSteps === 8192);
for (const [effect, options, commandOptions] of blocks) {
  const file = `${effect}.flr`;
  run(['settings', file, '--effect', effect, ...commandOptions, '-q']);
  const want = new Uint8Array(fs.readFileSync(path.join(workDir, file)));
  const got = flairize.settingsBlock(effect, options);
  check(`settings block ${effect}`, Buffer.from(got).equals(Buffer.from(want)), `${got} != ${want}`);
  const read = flairize.readSettingsBlock(want);
  const decoded = JSON.parse(run(['settings', 'again.flr', '--settings', file, '--json', '-q']));
  check(`read settings block ${effect}`, read.effect.index === decoded.effect && read.colour === decoded.colour &&
        read.direction === decoded.direction && read.progressSteps === decoded.progress &&
        decoded.sliders.every((s) => read.p[s.slider - 1] === s.value && (!s.option || read.sliders[s.option] === s.value)),
        `${JSON.stringify(read)} vs ${JSON.stringify(decoded)}`);
}

// --- refusals ----------------------------------------------------------------

const refusals = [
  ['an unknown effect', () => flairize.render(picture, 'no-such-effect')],
  ['an effect index past the table', () => flairize.render(picture, effects.length)],
  ['a slider the effect lacks', () => flairize.render(picture, 'posterize', { angle: 3 })],
  ['a slider above 255', () => flairize.render(picture, 'posterize', { colors: 256 })],
  ['a fractional slider', () => flairize.render(picture, 'posterize', { colors: 2.5 })],
  ['progress above 1', () => flairize.render(picture, 'weave', { progress: 1.5 })],
  ['progress and progressSteps together', () => flairize.render(picture, 'weave', { progress: 1, progressSteps: 9 })],
  ['a bad colour', () => flairize.render(picture, 'rain', { colour: '#12345' })],
  ['data of the wrong length', () => flairize.render({ data: new Uint8ClampedArray(10), width: 2, height: 2 }, 'weave')],
  ['a zero width', () => flairize.render({ data: new Uint8ClampedArray(0), width: 0, height: 1 }, 'weave')],
  ['3 channels of data', () => flairize.render({ data: new Uint8ClampedArray(12), width: 2, height: 2 }, 'weave')],
  ['a frame past the sequence', () => flairize.sequencePosition(5, 5)],
  ['a position past 16384', () => flairize.frameProgress(16385, 0, 'Forward')],
  ['an unknown direction', () => flairize.frameProgress(0, 0, 'Sideways')],
  ['a short settings block', () => flairize.readSettingsBlock(new Uint8Array(19))],
];
for (const [what, call] of refusals) {
  let threw = false;
  try {
    call();
  } catch (e) {
    threw = e instanceof Error && e.message.length > 0;
  }
  check(`refuses ${what}`, threw);
}
// A refusal leaves the engine working.
check('renders after refusals', flairize.render(picture, 'weave').data.length === picture.data.length);

console.log(`npm package: ${checks} checks, ${failures} failed`);
process.exit(failures ? 1 : 0);
