// Renders for the editor page off its main thread. The page sends the picture
// once (full size, for large pictures a reduced copy for quick previews, and a
// thumbnail for the gallery), then one render request at a time; every result
// carries the time the engine took, measured here around the render call alone.
'use strict';
importScripts('flairize-engine.js');

let engine = null;
const pictures = {};  // 'full' / 'small' / 'thumb' -> {width, height, bpp, src, out, bytes}

const ready = FlairizeEngine().then((m) => { engine = m; });

function release(size) {
  const p = pictures[size];
  if (!p) return;
  engine._free(p.src);
  engine._free(p.out);
  delete pictures[size];
}

function store(size, picture) {
  release(size);
  if (!picture) return;
  const bytes = picture.width * picture.height * picture.bpp;
  const src = engine._malloc(bytes);
  const out = src ? engine._malloc(bytes) : 0;
  if (!src || !out) {
    if (src) engine._free(src);
    throw new Error('the picture (' + picture.width + ' × ' + picture.height + ') does not fit in the engine\'s ' +
                    'memory in this page: render it with flairize render');
  }
  engine.HEAPU8.set(new Uint8Array(picture.pixels), src);
  pictures[size] = { width: picture.width, height: picture.height, bpp: picture.bpp, src, out, bytes };
}

// One render of the stored picture; returns the engine's time in milliseconds.
function renderOnce(p, s) {
  const t0 = performance.now();
  const rc = engine._fz_render(p.src, p.width, p.height, p.bpp, s.effect, s.p1, s.p2, s.p3, s.colour >>> 0,
                               s.progress, p.out);
  const ms = performance.now() - t0;
  if (rc !== 0) throw new Error(engine.UTF8ToString(engine._fz_message()));
  return ms;
}

async function handle(msg) {
  await ready;
  switch (msg.type) {
    case 'picture':
      for (const size of ['full', 'small', 'thumb']) release(size);
      store('full', msg.full);
      store('small', msg.small);
      store('thumb', msg.thumb);
      return { type: 'picture', id: msg.id };
    case 'render': {
      const p = pictures[msg.size];
      if (!p) throw new Error('no picture');
      const ms = renderOnce(p, msg.settings);
      const pixels = engine.HEAPU8.slice(p.out, p.out + p.bytes).buffer;
      return { type: 'result', seq: msg.seq, size: msg.size, width: p.width, height: p.height, bpp: p.bpp,
               settings: msg.settings, ms, pixels, transfer: [pixels] };
    }
    case 'bench': {
      // Each effect at its defaults, full progress, best of `repeats` runs.
      const p = pictures.full;
      if (!p) throw new Error('no picture');
      const rows = [];
      for (const e of msg.effects) {
        let best = Infinity;
        for (let r = 0; r < msg.repeats; ++r) best = Math.min(best, renderOnce(p, e));
        rows.push({ effect: e.effect, ms: best });
      }
      return { type: 'bench', seq: msg.seq, width: p.width, height: p.height, bpp: p.bpp, rows };
    }
    default:
      throw new Error('unknown request ' + msg.type);
  }
}

self.onmessage = (event) => {
  const msg = event.data;
  handle(msg).then((reply) => {
    const transfer = reply.transfer || [];
    delete reply.transfer;
    self.postMessage(reply, transfer);
  }, (err) => {
    self.postMessage({ type: 'error', seq: msg.seq, request: msg.type, message: String(err && err.message || err) });
  });
};
