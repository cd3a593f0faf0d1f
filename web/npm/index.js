// Flairize's picture effects for JavaScript: the engine compiled to
// WebAssembly, rendering RGBA pictures bit for bit as `flairize render`.
// Works in Node (the .wasm read from disk) and in browsers (fetched), both
// found beside this module.
import FlairizeEngine from './flairize-engine.mjs';

const WASM_NAME = 'flairize-engine.wasm';
const FULL_PROGRESS = 16384;
const SETTINGS_BLOCK_SIZE = 20;
const IS_NODE = typeof process === 'object' && !!(process.versions && process.versions.node);

// Names as the command matches them: case, spaces, dashes and marks ignored.
function nameKey(text) {
  return String(text).toLowerCase().replace(/\[[^\]]*\]/g, '').replace(/[^a-z0-9]/g, '');
}

function wholeNumber(what, value, lowest, highest) {
  if (typeof value !== 'number' || !Number.isInteger(value) || value < lowest || value > highest)
    throw new RangeError(`${what}: expected a whole number ${lowest}..${highest}, got ${String(value)}`);
  return value;
}

// '#1a2b3c', '1a2b3c', '#abc' or 0x1a2b3c (red first, as a person types it) -> the engine's colour, red lowest.
function engineColour(colour) {
  let rgb;
  if (typeof colour === 'number') {
    rgb = wholeNumber('colour', colour, 0, 0xffffff);
  } else {
    const hex = String(colour).replace(/^#/, '');
    if (/^[0-9a-fA-F]{3}$/.test(hex)) rgb = parseInt(hex.replace(/./g, '$&$&'), 16);
    else if (/^[0-9a-fA-F]{6}$/.test(hex)) rgb = parseInt(hex, 16);
    else throw new TypeError(`colour: expected "#rrggbb", "#rgb" or a number 0xrrggbb, got ${JSON.stringify(colour)}`);
  }
  return ((rgb >>> 16) & 0xff) | (rgb & 0xff00) | ((rgb & 0xff) << 16);
}

function colourText(engineValue) {
  const rgb = ((engineValue & 0xff) << 16) | (engineValue & 0xff00) | ((engineValue >>> 16) & 0xff);
  return '#' + rgb.toString(16).padStart(6, '0');
}

async function wasmBytes(location) {
  if (IS_NODE && location.protocol === 'file:') {
    const { readFile } = await import('node:fs/promises');
    return readFile(location);
  }
  const response = await fetch(location);
  if (!response.ok) throw new Error(`flairize: cannot fetch ${location} (HTTP ${response.status})`);
  return new Uint8Array(await response.arrayBuffer());
}

export class Flairize {
  // Use Flairize.load() or load(): the engine starts asynchronously.
  constructor(engine) {
    this._engine = engine;
    const catalog = JSON.parse(engine.UTF8ToString(engine._fz_catalog()));
    this._effects = catalog.effects.map((e) => Object.freeze({
      index: e.index,
      name: e.name,
      slug: e.slug,
      description: e.description,
      category: e.category,
      offered: e.offered,
      fadesIn: e.fadesIn,
      usesColour: e.usesColour,
      sliders: Object.freeze(e.labels.flatMap((label, k) => (label ? [Object.freeze({
        slider: k + 1,
        option: e.options[k],
        label,
        default: e.defaults[k],
        minimum: e.ranges[k][0],
        maximum: e.ranges[k][1],
        unit: e.units[k],
        meaning: e.meanings[k],
      })] : []))),
    }));
    this._list = catalog.list.map((i) => this._effects[i]);
    this.directions = Object.freeze(catalog.directions.slice());
    this.defaultEffect = this._effects[catalog.defaultEffect];
  }

  // Starts the engine. options.wasm: where the .wasm is (URL or path string), or its bytes.
  static async load(options = {}) {
    let binary = options.wasm;
    if (!(binary instanceof Uint8Array || binary instanceof ArrayBuffer)) {
      const location = binary ? new URL(String(binary), import.meta.url) : new URL(WASM_NAME, import.meta.url);
      binary = await wasmBytes(location);
    }
    return new Flairize(await FlairizeEngine({ wasmBinary: binary }));
  }

  // Every effect by index (offered: false for the hidden ones).
  effects() {
    return this._effects.slice();
  }

  // The offered effects in the editor's list order.
  offeredEffects() {
    return this._list.slice();
  }

  // An effect by index, slug or name (case, spaces and dashes ignored), or the effect object itself.
  effect(which) {
    if (typeof which === 'object' && which !== null && this._effects[which.index] === which) return which;
    if (typeof which === 'number') {
      wholeNumber('effect', which, 0, this._effects.length - 1);
      return this._effects[which];
    }
    const key = nameKey(which);
    const found = key && this._effects.find((e) => nameKey(e.slug) === key || nameKey(e.name) === key);
    if (!found) throw new RangeError(`effect: no effect is called ${JSON.stringify(String(which))}`);
    return found;
  }

  // Sliders P1..P3 for an effect: its defaults changed by options named as the
  // command's options (amount, angle, ...) or by position (p1, p2, p3).
  _sliders(effect, options) {
    const values = [0, 0, 0];
    for (const s of effect.sliders) values[s.slider - 1] = s.default;
    for (const [key, value] of Object.entries(options)) {
      if (['progress', 'progressSteps', 'colour', 'color', 'mix', 'channels', 'direction'].includes(key)) continue;
      const byPosition = /^p([123])$/.exec(key);
      const slider = byPosition ? Number(byPosition[1]) : (effect.sliders.find((s) => s.option === key) || {}).slider;
      if (!slider) {
        const names = effect.sliders.map((s) => s.option).join(', ') || 'none';
        throw new RangeError(`${effect.name} has no slider "${key}" (its sliders: ${names})`);
      }
      values[slider - 1] = wholeNumber(key, value, 0, 255);
    }
    return values;
  }

  _progressSteps(options) {
    if (options.progress !== undefined && options.progressSteps !== undefined)
      throw new TypeError('give progress (0..1) or progressSteps (0..16384), not both');
    if (options.progressSteps !== undefined) return wholeNumber('progressSteps', options.progressSteps, 0, FULL_PROGRESS);
    if (options.progress !== undefined) {
      const p = options.progress;
      if (typeof p !== 'number' || !(p >= 0 && p <= 1)) throw new RangeError(`progress: expected 0..1, got ${String(p)}`);
      return Math.floor(p * FULL_PROGRESS + 0.5);   // rounded to the nearest step, as --progress 0.5
    }
    return FULL_PROGRESS;
  }

  _direction(direction) {
    if (direction === undefined) return 2;   // Forward
    if (typeof direction === 'number') return wholeNumber('direction', direction, 0, 3);
    const d = this.directions.findIndex((name) => nameKey(name) === nameKey(direction));
    if (d < 0) throw new RangeError(`direction: expected one of ${this.directions.join(', ')}, got ${JSON.stringify(direction)}`);
    return d;
  }

  // Renders a picture (ImageData or {data, width, height}, RGBA) into a new one.
  render(picture, effect, options = {}) {
    const chosen = this.effect(effect);
    const sliders = this._sliders(chosen, options);
    const progress = this._progressSteps(options);
    const colourOption = options.colour !== undefined ? options.colour : options.color;
    const colour = colourOption === undefined ? 0 : engineColour(colourOption);
    const mix = options.mix === undefined ? true : !!options.mix;
    const channels = options.channels === undefined ? 4 : options.channels;
    if (channels !== 3 && channels !== 4) throw new RangeError(`channels: expected 3 or 4, got ${String(channels)}`);
    if (!picture || typeof picture !== 'object') throw new TypeError('render: expected ImageData or {data, width, height}');
    const { width, height, data } = picture;
    wholeNumber('width', width, 1, 32767);
    wholeNumber('height', height, 1, 32767);
    if (!ArrayBuffer.isView(data) || data.BYTES_PER_ELEMENT !== 1 || data.length !== width * height * 4)
      throw new TypeError(`render: data must hold width x height x 4 bytes (RGBA), ${width * height * 4} here`);

    const m = this._engine;
    const pixels = width * height;
    const bytes = pixels * channels;
    const source = m._malloc(bytes);
    const output = source ? m._malloc(bytes) : 0;
    if (!source || !output) {
      if (source) m._free(source);
      throw new Error('flairize: not enough memory for the picture');
    }
    try {
      // RGBA in, blue-green-red(-mask) for the engine.
      let heap = m.HEAPU8;
      for (let i = 0, o = source; i < pixels; ++i, o += channels) {
        const s = i * 4;
        heap[o] = data[s + 2];
        heap[o + 1] = data[s + 1];
        heap[o + 2] = data[s];
        if (channels === 4) heap[o + 3] = data[s + 3];
      }
      const rc = m._fz_render_mix(source, width, height, channels, chosen.index, sliders[0], sliders[1], sliders[2],
                                  colour >>> 0, progress, mix ? 1 : 0, output);
      if (rc !== 0) throw new Error('flairize: ' + m.UTF8ToString(m._fz_message()));
      heap = m.HEAPU8;   // memory may have grown during the render
      const result = new Uint8ClampedArray(pixels * 4);
      for (let i = 0, o = output; i < pixels; ++i, o += channels) {
        const d = i * 4;
        result[d] = heap[o + 2];
        result[d + 1] = heap[o + 1];
        result[d + 2] = heap[o];
        result[d + 3] = channels === 4 ? heap[o + 3] : 255;
      }
      return typeof ImageData === 'function' ? new ImageData(result, width, height) : { data: result, width, height };
    } finally {
      m._free(source);
      m._free(output);
    }
  }

  // Sequence position (0..16384) -> progress (0..16384) at a speed (-128..127) and direction.
  frameProgress(position, speed = 0, direction = 'Forward') {
    wholeNumber('position', position, 0, FULL_PROGRESS);
    wholeNumber('speed', speed, -128, 127);
    return this._engine._fz_position_progress(position, speed, this._direction(direction)) >>> 0;
  }

  // Position of frame i of n: i * 16384 / (n - 1); a single frame sits at the end.
  sequencePosition(frame, frames) {
    wholeNumber('frames', frames, 1, 0x7fffffff);
    wholeNumber('frame', frame, 0, frames - 1);
    return this._engine._fz_sequence_position(frame, frames) >>> 0;
  }

  // The 20-byte settings block of a .flr file, as `flairize settings` writes it.
  settingsBlock(effect, options = {}) {
    const chosen = this.effect(effect);
    const sliders = this._sliders(chosen, options);
    const colourOption = options.colour !== undefined ? options.colour : options.color;
    const colour = colourOption === undefined ? 0 : engineColour(colourOption);
    // Unless given, the progress of a new record (0), as `flairize settings` writes it.
    const given = options.progress !== undefined || options.progressSteps !== undefined;
    const progress = given ? this._progressSteps(options) : 0;
    const m = this._engine;
    const block = m._malloc(SETTINGS_BLOCK_SIZE);
    if (!block) throw new Error('flairize: not enough memory');
    try {
      m._fz_settings_block(chosen.index, sliders[0], sliders[1], sliders[2], this._direction(options.direction),
                           colour >>> 0, progress, block);
      return m.HEAPU8.slice(block, block + SETTINGS_BLOCK_SIZE);
    } finally {
      m._free(block);
    }
  }

  // A settings block read back: the effect, its sliders by option, direction, colour and progress.
  readSettingsBlock(bytes) {
    if (!ArrayBuffer.isView(bytes) && !(bytes instanceof ArrayBuffer)) throw new TypeError('readSettingsBlock: expected bytes');
    const view = bytes instanceof ArrayBuffer ? new Uint8Array(bytes) : new Uint8Array(bytes.buffer, bytes.byteOffset, bytes.byteLength);
    if (view.length !== SETTINGS_BLOCK_SIZE)
      throw new RangeError(`readSettingsBlock: a settings block is ${SETTINGS_BLOCK_SIZE} bytes, got ${view.length}`);
    const m = this._engine;
    const memory = m._malloc(SETTINGS_BLOCK_SIZE + 7 * 4);
    if (!memory) throw new Error('flairize: not enough memory');
    let fields;
    try {
      m.HEAPU8.set(view, memory);
      const at = memory + SETTINGS_BLOCK_SIZE;   // 4-byte aligned: malloc's blocks are, and 20 is a multiple of 4
      m._fz_read_settings_block(memory, at);
      fields = Array.from(m.HEAPU32.subarray(at / 4, at / 4 + 7));
    } finally {
      m._free(memory);
    }
    const [effectIndex, p1, p2, p3, direction, colour, progress] = fields;
    if (effectIndex >= this._effects.length) throw new RangeError(`readSettingsBlock: no effect has index ${effectIndex}`);
    const effect = this._effects[effectIndex];
    const p = [p1, p2, p3];
    const sliders = {};
    for (const s of effect.sliders) sliders[s.option] = p[s.slider - 1];
    return {
      effect,
      sliders,
      p: p,
      direction: this.directions[direction & 3],
      directionField: direction,
      colour: colourText(colour),
      progressSteps: progress,
    };
  }
}

export async function load(options) {
  return Flairize.load(options);
}

export default Flairize;
