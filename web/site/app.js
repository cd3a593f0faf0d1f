// The editor page: opens a picture (or a video's frame), keeps the settings
// with their undo history, presets and address, asks the worker for previews
// and gallery thumbnails (one request at a time, the preview of the newest
// settings first), and writes the result, the settings block and the matching
// command lines. Whole videos render in a second worker (video-worker.js). The
// engine is loaded here too for its small calls (catalogue, frame timing,
// settings block).
'use strict';

(() => {
  const $ = (id) => document.getElementById(id);
  const PREVIEW_PIXELS = 1280 * 720;  // larger pictures are previewed reduced first
  const FULL_DELAY_MS = 200;          // quiet time before a large picture renders at full size
  const THUMB_WIDTH = 160;            // gallery thumbnails fit in 160 x 120
  const THUMB_HEIGHT = 120;
  const GALLERY_DELAY_MS = 250;       // quiet time before the gallery follows a change of colour or progress
  const MAX_SIDE = 32767;
  // The engine in the page addresses at most 2 GiB; a render needs the source,
  // the result and the effect's own working memory.
  const ENGINE_MEMORY = 2 ** 31;
  const HISTORY_LIMIT = 500;
  const PRESETS_KEY = 'flairize-editor-presets';
  const NEW_RECORD = { colour: '#000000', direction: 2, speed: 0, position: 16384 };

  let engine = null;
  let catalog = null;
  const worker = new Worker('worker.js');
  const libs = window.FlairizeLibs || null;
  const libsMissing = libs ? '' : (window.FlairizeLibsMissing || 'its libraries are missing');

  const settings = { effect: 0, sliders: [0, 0, 0], ...NEW_RECORD };
  let picture = null;     // {name, width, height, bpp, pixels, small, thumb}
  let version = 0;        // bumped on every change of the picture or the settings
  let inFlight = null;    // the request the worker is working on
  let shownVersion = -1;  // the version of the preview on screen
  let fullDone = null;    // the newest full-size result
  let failedVersion = -1; // the version the engine refused (not asked again)
  let pictureGen = 0;     // which picture the worker holds
  let smallDoneVersion = -1;
  let fullTimer = 0;
  let fullTimerVersion = -1;
  let fullReadyVersion = -1;
  let decoding = false;
  let requestSeq = 0;
  const benchWaiters = new Map();
  const gallery = { key: '', gen: 0, queue: [], total: 0, done: 0, started: 0, ms: null, timer: 0, buttons: new Map(),
                    opened: null, msSinceOpen: null };
  let openedAt = null;   // when the newest picture's file was chosen (for the gallery's time to fill)

  // --- the engine's small calls -------------------------------------------

  function progressOf(s) {
    return engine._fz_position_progress(s.position, s.speed, s.direction) >>> 0;
  }

  // COLORREF: red in the lowest byte.
  function colourRef(hex) {
    const v = parseInt(hex.slice(1), 16);
    return ((v >> 16) & 255) | (v & 0xff00) | ((v & 255) << 16);
  }

  function renderSettings(s = settings) {
    return { effect: s.effect, p1: s.sliders[0], p2: s.sliders[1], p3: s.sliders[2],
             colour: colourRef(s.colour), progress: progressOf(s) };
  }

  function settingsBlock(s = settings) {
    const r = renderSettings(s);
    const at = engine._malloc(20);
    engine._fz_settings_block(r.effect, r.p1, r.p2, r.p3, s.direction, r.colour, r.progress, at);
    const block = engine.HEAPU8.slice(at, at + 20);
    engine._free(at);
    return block;
  }

  // A settings block read back into the page's settings; the position is one
  // whose progress at the speed (the page's, else 0) is the stored progress.
  function settingsFromBlock(bytes) {
    if (bytes.length !== 20) throw new Error('a settings file holds 20 bytes, this one ' + bytes.length);
    const at = engine._malloc(20 + 7 * 4);
    engine.HEAPU8.set(bytes, at);
    engine._fz_read_settings_block(at, at + 20);
    const [effect, p1, p2, p3, direction, colour, progress] = Array.from(engine.HEAPU32.subarray((at + 20) / 4, (at + 20) / 4 + 7));
    engine._free(at);
    const e = catalog.effects[effect];
    if (!e || !e.offered) throw new Error('effect ' + effect + ' is not one the editor offers');
    if ([p1, p2, p3].some((p) => p > 255)) throw new Error('a slider value above 255');
    if (progress > 16384) throw new Error('progress ' + progress + ' is beyond the end (16384)');
    const rgb = ((colour & 255) << 16) | (colour & 0xff00) | ((colour >>> 16) & 255);
    const s = { effect, sliders: [p1, p2, p3], colour: '#' + rgb.toString(16).padStart(6, '0'), direction: direction & 3,
                speed: settings.speed, position: 16384 };
    for (const speed of [settings.speed, 0]) {
      s.speed = speed;
      for (let p = 16384; p >= 0; --p) {
        if ((engine._fz_position_progress(p, speed, s.direction) >>> 0) === progress) { s.position = p; return s; }
      }
    }
    return s;
  }

  // --- decoding -------------------------------------------------------------

  // Whether a PNG file carries alpha: colour type 4 or 6, or a tRNS chunk.
  function pngInfo(bytes) {
    const sig = [137, 80, 78, 71, 13, 10, 26, 10];
    if (bytes.length < 33 || sig.some((b, i) => bytes[i] !== b)) return null;
    const view = new DataView(bytes.buffer, bytes.byteOffset, bytes.byteLength);
    const colourType = bytes[25];
    let alpha = colourType === 4 || colourType === 6;
    for (let at = 8; at + 8 <= bytes.length;) {
      const length = view.getUint32(at);
      const type = String.fromCharCode(...bytes.subarray(at + 4, at + 8));
      if (type === 'tRNS') alpha = true;
      if (type === 'IDAT' || type === 'IEND') break;
      at += 12 + length;
    }
    return { alpha, palette: colourType === 3 };
  }

  function isTiff(bytes) {
    return bytes.length >= 8 && ((bytes[0] === 0x49 && bytes[1] === 0x49 && bytes[2] === 42 && bytes[3] === 0) ||
                                 (bytes[0] === 0x4d && bytes[1] === 0x4d && bytes[2] === 0 && bytes[3] === 42));
  }

  // The decoded pixels as RGBA exactly as stored: through WebGL, as a 2D canvas
  // keeps premultiplied colours and would change pixels that are not opaque.
  function exactPixels(bitmap) {
    const { width, height } = bitmap;
    const canvas = document.createElement('canvas');
    const gl = canvas.getContext('webgl2', { premultipliedAlpha: false, antialias: false });
    if (gl && width <= gl.getParameter(gl.MAX_TEXTURE_SIZE) && height <= gl.getParameter(gl.MAX_TEXTURE_SIZE)) {
      const texture = gl.createTexture();
      gl.bindTexture(gl.TEXTURE_2D, texture);
      gl.pixelStorei(gl.UNPACK_PREMULTIPLY_ALPHA_WEBGL, false);
      gl.pixelStorei(gl.UNPACK_COLORSPACE_CONVERSION_WEBGL, gl.NONE);
      gl.pixelStorei(gl.UNPACK_FLIP_Y_WEBGL, false);
      gl.texImage2D(gl.TEXTURE_2D, 0, gl.RGBA8, gl.RGBA, gl.UNSIGNED_BYTE, bitmap);
      const framebuffer = gl.createFramebuffer();
      gl.bindFramebuffer(gl.FRAMEBUFFER, framebuffer);
      gl.framebufferTexture2D(gl.FRAMEBUFFER, gl.COLOR_ATTACHMENT0, gl.TEXTURE_2D, texture, 0);
      let rgba = null;
      if (gl.checkFramebufferStatus(gl.FRAMEBUFFER) === gl.FRAMEBUFFER_COMPLETE) {
        rgba = new Uint8Array(width * height * 4);
        gl.readPixels(0, 0, width, height, gl.RGBA, gl.UNSIGNED_BYTE, rgba);  // row 0 is the top row
        if (gl.getError() !== gl.NO_ERROR) rgba = null;
      }
      const lose = gl.getExtension('WEBGL_lose_context');
      if (lose) lose.loseContext();
      if (rgba) return rgba;
    }
    const c2 = document.createElement('canvas');
    c2.width = width;
    c2.height = height;
    const ctx = c2.getContext('2d', { willReadFrequently: true });
    ctx.drawImage(bitmap, 0, 0);
    return new Uint8Array(ctx.getImageData(0, 0, width, height).data.buffer);
  }

  // RGBA to the engine's packed B,G,R(,A).
  function toEngine(rgba, pixelCount, bpp) {
    const out = new Uint8Array(pixelCount * bpp);
    for (let i = 0, o = 0; i < pixelCount * 4; i += 4, o += bpp) {
      out[o] = rgba[i + 2];
      out[o + 1] = rgba[i + 1];
      out[o + 2] = rgba[i];
      if (bpp === 4) out[o + 3] = rgba[i + 3];
    }
    return out;
  }

  // A smaller copy of the picture on the 'before' canvas, w x h, for previews and thumbnails.
  function scaled(source, w, h, bpp) {
    const canvas = document.createElement('canvas');
    canvas.width = w;
    canvas.height = h;
    const ctx = canvas.getContext('2d', { willReadFrequently: true });
    ctx.imageSmoothingQuality = 'high';
    ctx.drawImage(source, 0, 0, w, h);
    const rgba = ctx.getImageData(0, 0, w, h).data;
    return { width: w, height: h, bpp, pixels: toEngine(rgba, w * h, bpp) };
  }

  function reduced(source, bpp) {
    const { width, height } = source;
    if (width * height <= PREVIEW_PIXELS * 1.1) return null;
    const scale = Math.sqrt(PREVIEW_PIXELS / (width * height));
    return scaled(source, Math.max(1, Math.round(width * scale)), Math.max(1, Math.round(height * scale)), bpp);
  }

  function thumbnail(source, bpp) {
    const scale = Math.min(1, THUMB_WIDTH / source.width, THUMB_HEIGHT / source.height);
    return scaled(source, Math.max(1, Math.round(source.width * scale)), Math.max(1, Math.round(source.height * scale)), bpp);
  }

  // Why a picture of this size cannot be rendered here, or ''.
  function tooLarge(width, height, bpp) {
    if (width > MAX_SIDE || height > MAX_SIDE) return width + ' × ' + height + ' is beyond the engine\'s ' + MAX_SIDE + ' pixels a side';
    const need = width * height * bpp * 4;
    if (need > ENGINE_MEMORY) {
      return width + ' × ' + height + ' needs about ' + Math.round(need / 2 ** 20) + ' MiB, more than the ' +
        (ENGINE_MEMORY / 2 ** 20) + ' MiB the engine has in a page';
    }
    return '';
  }

  // 8-bit RGBA and whether it has alpha, through the TIFF decoder of site-libs.js.
  function decodeTiff(bytes) {
    if (!libs) throw new Error('this site was built without its TIFF decoder (' + libsMissing + '): use flairize render');
    const { UTIF } = libs;
    const buffer = bytes.buffer.slice(bytes.byteOffset, bytes.byteOffset + bytes.byteLength);
    const ifds = UTIF.decode(buffer);
    if (!ifds.length) throw new Error('no picture in the TIFF');
    const ifd = ifds[0];
    const width = ifd.width || (ifd.t256 && ifd.t256[0]);
    const height = ifd.height || (ifd.t257 && ifd.t257[0]);
    const reason = tooLarge(width, height, 4);
    if (reason) throw new Error(reason + ': render it with flairize render');
    UTIF.decodeImage(buffer, ifd);
    const rgba = new Uint8Array(UTIF.toRGBA8(ifd));
    const bits = ifd.t258 ? Array.from(ifd.t258) : [1];
    const exact = bits.every((b) => b === 8) && [2].includes(ifd.t262 ? ifd.t262[0] : 2);
    return { width: ifd.width, height: ifd.height, rgba, alpha: !!ifd.t338, exact };
  }

  function isVideo(blob, name) {
    return (blob.type || '').startsWith('video/') || /\.(webm|mp4|m4v|mkv|mov|ogv)$/i.test(name);
  }

  async function openBlob(blob, name) {
    if (isVideo(blob, name)) return openVideo(blob, name);
    if (/\.flr$/i.test(name)) return openSettingsFile(blob, name);
    decoding = true;
    openedAt = performance.now();
    updateBusy();
    setStatus('Opening ' + name + ' …');
    try {
      const bytes = new Uint8Array(await blob.arrayBuffer());
      let p;
      if (isTiff(bytes)) {
        const t = decodeTiff(bytes);
        p = { name, width: t.width, height: t.height, bpp: t.alpha ? 4 : 3, rgba: t.rgba,
              note: t.exact ? '' : ' (a TIFF the page reduces to 8-bit RGB(A): it may differ from flairize render)' };
      } else {
        const bitmap = await createImageBitmap(blob, { colorSpaceConversion: 'none', premultiplyAlpha: 'none' });
        const png = pngInfo(bytes);
        const reason = tooLarge(bitmap.width, bitmap.height, png && png.alpha ? 4 : 3);
        if (reason) { bitmap.close(); throw new Error(reason + ': render it with flairize render'); }
        const rgba = exactPixels(bitmap);
        let alpha = png ? png.alpha : false;
        if (!png) for (let i = 3; i < rgba.length; i += 4) if (rgba[i] !== 255) { alpha = true; break; }
        p = { name, width: bitmap.width, height: bitmap.height, bpp: alpha ? 4 : 3, rgba, bitmap,
              note: png && png.palette ? ' (a palette picture, rendered here as 24-bit)' : '' };
      }
      usePicture(p, true);
      setStatus(name + ': ' + p.width + ' × ' + p.height + ', ' + p.bpp * 8 + '-bit' + p.note);
    } catch (err) {
      setStatus('Cannot open ' + name + ': ' + (err && err.message || err));
    } finally {
      decoding = false;
      updateBusy();
    }
  }

  // Makes a decoded picture the one the page works on: {name, width, height, bpp, rgba, bitmap?}.
  function usePicture(p, galleryNow) {
    const { width, height, bpp } = p;
    const pixels = toEngine(p.rgba, width * height, bpp);
    const before = $('before');
    before.width = width;
    before.height = height;
    if (p.bitmap) {
      before.getContext('2d').drawImage(p.bitmap, 0, 0);
      p.bitmap.close();
    } else {
      before.getContext('2d').putImageData(new ImageData(new Uint8ClampedArray(p.rgba.buffer, p.rgba.byteOffset, width * height * 4), width, height), 0, 0);
    }
    const small = reduced(before, bpp);
    const thumb = thumbnail(before, bpp);
    picture = { name: p.name, width, height, bpp, pixels, small, thumb };
    ++pictureGen;
    const full = { width, height, bpp, pixels: pixels.slice().buffer };
    const copy = (x) => x && { ...x, pixels: x.pixels.slice().buffer };
    const smallCopy = copy(small);
    const thumbCopy = copy(thumb);
    worker.postMessage({ type: 'picture', full, small: smallCopy, thumb: thumbCopy },
                       [full.pixels].concat(smallCopy ? [smallCopy.pixels] : [], [thumbCopy.pixels]));
    fullDone = null;
    smallDoneVersion = -1;
    $('stage').classList.remove('empty');
    $('stage').style.aspectRatio = width + ' / ' + height;
    setZoom(zoomActual);
    for (const button of gallery.buttons.values()) {
      const c = button.querySelector('canvas');
      c.width = thumb.width;
      c.height = thumb.height;
    }
    gallery.key = '';
    changed();
    refreshGallery(galleryNow);
  }

  // --- rendering ----------------------------------------------------------

  function send(size) {
    inFlight = { kind: 'preview', seq: ++requestSeq, version, size, picture: pictureGen };
    worker.postMessage({ type: 'render', seq: inFlight.seq, size, settings: renderSettings() });
    updateBusy();
  }

  // Thumbnails: each offered effect at its defaults, with the page's colour and progress.
  function sendThumb() {
    const effect = gallery.queue.shift();
    const e = catalog.effects[effect];
    inFlight = { kind: 'thumb', seq: ++requestSeq, gen: gallery.gen, effect, picture: pictureGen };
    worker.postMessage({ type: 'render', seq: inFlight.seq, size: 'thumb',
                         settings: { effect, p1: e.defaults[0], p2: e.defaults[1], p3: e.defaults[2],
                                     colour: colourRef(settings.colour), progress: progressOf(settings) } });
    updateBusy();
  }

  // The next request: the preview of the newest settings (reduced first for a
  // large picture, full size once the controls rest), then the gallery.
  function pump() {
    if (!picture || !engine || inFlight) return updateBusy();
    const previewDone = (fullDone && fullDone.version === version) || failedVersion === version;
    if (!previewDone) {
      if (picture.small && smallDoneVersion !== version) return send('small');
      if (!picture.small || fullReadyVersion === version) return send('full');
      if (fullTimerVersion !== version) {
        clearTimeout(fullTimer);
        fullTimerVersion = version;
        const v = version;
        fullTimer = setTimeout(() => { if (v === version) { fullReadyVersion = v; pump(); } }, FULL_DELAY_MS);
      }
    }
    if (gallery.queue.length) return sendThumb();
    updateBusy();
  }

  function toImageData(result) {
    const px = new Uint8Array(result.pixels);
    const image = new ImageData(result.width, result.height);
    const d = image.data;
    for (let i = 0, o = 0; o < d.length; i += result.bpp, o += 4) {
      d[o] = px[i + 2];
      d[o + 1] = px[i + 1];
      d[o + 2] = px[i];
      d[o + 3] = result.bpp === 4 ? px[i + 3] : 255;
    }
    return image;
  }

  function show(result) {
    const after = $('after');
    after.width = result.width;
    after.height = result.height;
    after.getContext('2d').putImageData(toImageData(result), 0, 0);
  }

  // What the thumbnails depend on besides the effect: the picture, the colour and the progress.
  const galleryKey = () => pictureGen + '|' + settings.colour + '|' + progressOf(settings);

  function refreshGallery(now) {
    clearTimeout(gallery.timer);
    if (!picture) return;
    const start = () => {
      const key = galleryKey();
      if (key === gallery.key) return;
      gallery.key = key;
      ++gallery.gen;
      gallery.queue = catalog.list.slice();
      gallery.total = gallery.queue.length;
      gallery.done = 0;
      gallery.ms = null;
      gallery.started = performance.now();
      gallery.opened = now ? openedAt : null;
      gallery.msSinceOpen = null;
      updateGalleryStatus();
      pump();
    };
    if (now) start();
    else gallery.timer = setTimeout(start, GALLERY_DELAY_MS);
  }

  function updateGalleryStatus() {
    $('gallery-status').textContent = !picture ? 'Open a picture to see it through every effect.'
      : gallery.done < gallery.total ? 'Rendering the gallery: ' + gallery.done + ' of ' + gallery.total + ' …'
      : 'Every effect at its defaults, with this colour and progress: click one to choose it.';
  }

  worker.onmessage = (event) => {
    const msg = event.data;
    if (msg.type === 'bench' || (msg.type === 'error' && msg.request === 'bench')) {
      const w = benchWaiters.get(msg.seq);
      benchWaiters.delete(msg.seq);
      if (w) msg.type === 'bench' ? w.resolve(msg) : w.reject(new Error(msg.message));
      return;
    }
    if (msg.type === 'error' && msg.request === 'picture') {
      setStatus('Cannot render this picture: ' + msg.message);
      failedVersion = version;
      gallery.queue = [];
      picture = null;
      $('stage').classList.add('empty');
      return updateBusy();
    }
    if (!(msg.type === 'result' || msg.type === 'error') || !inFlight || msg.seq !== inFlight.seq) return;
    const done = inFlight;
    inFlight = null;
    if (done.kind === 'thumb') {
      if (done.gen === gallery.gen && done.picture === pictureGen) {
        if (msg.type === 'result') {
          const c = gallery.buttons.get(done.effect).querySelector('canvas');
          c.width = msg.width;
          c.height = msg.height;
          c.getContext('2d').putImageData(toImageData(msg), 0, 0);
        }
        if (++gallery.done === gallery.total) {
          gallery.ms = performance.now() - gallery.started;
          if (gallery.opened !== null) gallery.msSinceOpen = performance.now() - gallery.opened;
        }
        updateGalleryStatus();
      }
    } else {
      if (msg.type === 'error') {
        setStatus('The engine refused: ' + msg.message);
        failedVersion = done.version;
      }
      if (msg.type === 'result' && done.picture === pictureGen) {
        // The newest result goes on screen (a full-size one replaces a reduced one of the same settings).
        if (done.version >= shownVersion) { show(msg); shownVersion = done.version; }
        if (done.size === 'small') smallDoneVersion = done.version;
        else fullDone = { version: done.version, ...msg };
      }
    }
    pump();
  };

  // --- settings, their history and the address ------------------------------

  function effectInfo() { return catalog.effects[settings.effect]; }

  const undoStack = [];
  const redoStack = [];
  let editKey = null;   // the control being dragged: its inputs make one step of the history
  const snapshot = () => JSON.stringify(settings);
  function restore(text) { Object.assign(settings, JSON.parse(text)); }

  // Every change of the settings goes through here: one undo step per change,
  // or per gesture of one control (key) until its change event ends it.
  function edit(key, apply) {
    const before = snapshot();
    apply();
    if (snapshot() === before) return updateControls();
    if (key === null || key !== editKey) {
      undoStack.push(before);
      if (undoStack.length > HISTORY_LIMIT) undoStack.shift();
      redoStack.length = 0;
    }
    editKey = key;
    changed();
  }

  function endEdit() { editKey = null; }

  function undo() {
    if (!undoStack.length) return;
    redoStack.push(snapshot());
    restore(undoStack.pop());
    editKey = null;
    changed();
  }

  function redo() {
    if (!redoStack.length) return;
    undoStack.push(snapshot());
    restore(redoStack.pop());
    editKey = null;
    changed();
  }

  function changed() {
    ++version;
    updateControls();
    updateCommands();
    writeAddress();
    refreshGallery(false);
    pump();
  }

  function selectEffect(index) {
    edit(null, () => {
      settings.effect = index;
      settings.sliders = catalog.effects[index].defaults.slice();  // hidden sliders too, as the dialog does
    });
  }

  function resetSettings() {
    edit(null, () => Object.assign(settings, { sliders: effectInfo().defaults.slice(), ...NEW_RECORD }));
  }

  function stepEffect(by) {
    const at = catalog.list.indexOf(settings.effect);
    selectEffect(catalog.list[(at + by + catalog.list.length) % catalog.list.length]);
  }

  // Names as the command matches them: case, spaces, dashes and marks ignored.
  const nameKey = (text) => String(text).toLowerCase().replace(/\[[^\]]*\]/g, '').replace(/[^a-z0-9]/g, '');

  function wholeIn(text, lowest, highest, what) {
    if (!/^-?\d+$/.test(String(text))) throw new Error(what + ' "' + text + '" is not a whole number');
    const v = Number(text);
    if (v < lowest || v > highest) throw new Error(what + ' ' + v + ' is outside ' + lowest + ' … ' + highest);
    return v;
  }

  // The address's part after # for these settings: the effect, its sliders by
  // their command options (a hidden slider only where it is not its default),
  // the colour, direction, speed and position.
  function addressOf(s) {
    const e = catalog.effects[s.effect];
    const q = new URLSearchParams();
    q.set('effect', e.slug);
    e.labels.forEach((label, k) => {
      if (label) q.set(e.options[k] || 'p' + (k + 1), String(s.sliders[k]));
      else if (s.sliders[k] !== e.defaults[k]) q.set('p' + (k + 1), String(s.sliders[k]));
    });
    q.set('colour', s.colour.slice(1));
    q.set('direction', catalog.directions[s.direction]);
    q.set('speed', String(s.speed));
    q.set('position', String(s.position));
    return q.toString();
  }

  // Settings from an address's part after #, or a settings-like object; throws naming what is wrong.
  function settingsFromParams(q) {
    const get = (k) => (q instanceof URLSearchParams ? q.get(k) : (q[k] === undefined ? null : String(q[k])));
    const name = get('effect');
    const key = nameKey(name || '');
    const index = catalog.list.find((i) => nameKey(catalog.effects[i].slug) === key || nameKey(catalog.effects[i].name) === key);
    if (index === undefined) throw new Error('no effect is called "' + name + '"');
    const e = catalog.effects[index];
    const s = { effect: index, sliders: e.defaults.slice(), ...NEW_RECORD };
    for (let k = 0; k < 3; ++k) {
      for (const option of [e.options[k], 'p' + (k + 1)]) {
        const v = option ? get(option) : null;
        if (v !== null) s.sliders[k] = wholeIn(v, 0, 255, option);
      }
    }
    const colour = get('colour');
    if (colour !== null) {
      if (!/^#?[0-9a-fA-F]{6}$/.test(colour)) throw new Error('colour "' + colour + '" is not rrggbb');
      s.colour = '#' + colour.replace('#', '').toLowerCase();
    }
    const direction = get('direction');
    if (direction !== null) {
      const d = catalog.directions.findIndex((n) => nameKey(n) === nameKey(direction));
      if (d < 0) throw new Error('direction "' + direction + '" is none of ' + catalog.directions.join(', '));
      s.direction = d;
    }
    if (get('speed') !== null) s.speed = wholeIn(get('speed'), -124, 127, 'speed');
    if (get('position') !== null) s.position = wholeIn(get('position'), 0, 16384, 'position');
    return s;
  }

  let writtenAddress = '';
  function writeAddress() {
    writtenAddress = '#' + addressOf(settings);
    if (location.hash !== writtenAddress) history.replaceState(null, '', writtenAddress);
  }

  // Applies the address's settings; false where it holds none.
  function readAddress(undoable) {
    const q = new URLSearchParams(location.hash.replace(/^#/, ''));
    if (!q.has('effect')) return false;
    try {
      const s = settingsFromParams(q);
      if (undoable) edit(null, () => Object.assign(settings, s));
      else { Object.assign(settings, s); changed(); }
    } catch (err) {
      setStatus('The address\'s settings are not used: ' + err.message);
      writeAddress();
    }
    return true;
  }

  function addressLink() { return location.href.replace(/#.*$/, '') + '#' + addressOf(settings); }

  // --- presets ----------------------------------------------------------------

  function presetList() {
    try {
      const list = JSON.parse(localStorage.getItem(PRESETS_KEY) || '[]');
      return Array.isArray(list) ? list.filter((p) => p && typeof p.name === 'string' && p.settings) : [];
    } catch {
      return [];
    }
  }

  function storePresets(list, selectName) {
    try {
      localStorage.setItem(PRESETS_KEY, JSON.stringify(list));
    } catch (err) {
      setStatus('The browser keeps no presets here: ' + (err && err.message || err));
    }
    showPresets(selectName);
  }

  function showPresets(selectName) {
    const select = $('presets');
    const keep = selectName !== undefined ? selectName : select.value;
    select.textContent = '';
    const list = presetList();
    for (const p of list) select.add(new Option(p.name + ' (' + (catalog.effects[p.settings.effect] || {}).name + ')', p.name));
    if (list.some((p) => p.name === keep)) select.value = keep;
    const none = list.length === 0;
    if (none) select.add(new Option('No presets yet', ''));
    select.disabled = none;
    for (const id of ['preset-load', 'preset-delete', 'preset-export']) $(id).disabled = none;
    $('preset-export-all').disabled = none || !libs;
  }

  function addPreset(name, s) {
    const list = presetList().filter((p) => p.name !== name);
    list.push({ name, settings: { ...s, sliders: s.sliders.slice() } });
    list.sort((a, b) => a.name.localeCompare(b.name));
    storePresets(list, name);
  }

  // A stored preset's settings, checked as an address's are (the storage may hold anything).
  function checkedPreset(s) {
    const e = catalog.effects[s.effect];
    if (!e || !Array.isArray(s.sliders)) throw new Error('no such effect');
    return settingsFromParams({ effect: e.slug, p1: s.sliders[0], p2: s.sliders[1], p3: s.sliders[2], colour: s.colour,
                                direction: catalog.directions[s.direction], speed: s.speed, position: s.position });
  }

  function chosenPreset() {
    const p = presetList().find((x) => x.name === $('presets').value);
    if (!p) return null;
    try {
      return { name: p.name, settings: checkedPreset(p.settings) };
    } catch (err) {
      setStatus('The preset ' + p.name + ' is damaged: ' + (err && err.message || err));
      return null;
    }
  }

  const fileName = (name) => name.replace(/[^A-Za-z0-9 ._-]+/g, '_').replace(/^[ .]+/, '') || 'preset';

  async function importPresets(files) {
    const added = [];
    for (const file of files) {
      try {
        const bytes = new Uint8Array(await file.arrayBuffer());
        if (/\.zip$/i.test(file.name)) {
          if (!libs) throw new Error('this site was built without zip support (' + libsMissing + ')');
          for (const [entry, data] of Object.entries(libs.unzipSync(bytes))) {
            if (!/\.flr$/i.test(entry)) continue;
            const name = entry.replace(/^.*\//, '').replace(/\.flr$/i, '');
            addPreset(name, settingsFromBlock(data));
            added.push(name);
          }
        } else {
          const name = file.name.replace(/\.flr$/i, '');
          addPreset(name, settingsFromBlock(bytes));
          added.push(name);
        }
      } catch (err) {
        setStatus('Cannot import ' + file.name + ': ' + (err && err.message || err));
        return;
      }
    }
    setStatus(added.length ? 'Imported ' + added.length + ' preset' + (added.length > 1 ? 's' : '') + ': ' + added.join(', ')
                           : 'No .flr files found.');
  }

  async function openSettingsFile(blob, name) {
    try {
      const s = settingsFromBlock(new Uint8Array(await blob.arrayBuffer()));
      edit(null, () => Object.assign(settings, s));
      setStatus('Settings from ' + name + ': ' + effectInfo().name);
    } catch (err) {
      setStatus('Cannot open ' + name + ': ' + (err && err.message || err));
    }
  }

  // --- the controls -----------------------------------------------------------

  function updateBusy() {
    const idle = !!engine && !decoding && !(inFlight && inFlight.kind === 'preview') &&
      (!picture || failedVersion === version || (fullDone && fullDone.version === version));
    document.body.dataset.busy = idle ? 'false' : 'true';
    $('save-png').disabled = !(idle && !!picture);
    $('save-flr').disabled = !engine;
  }

  function setStatus(text) { $('status').textContent = text; }

  function updateControls() {
    const e = effectInfo();
    $('effect').value = String(settings.effect);
    $('effect-description').textContent = e.description;
    for (let k = 0; k < 3; ++k) {
      const row = $('slider' + k);
      row.hidden = e.labels[k] === '';
      row.querySelector('label').textContent = e.labels[k];
      $('p' + k).title = e.meanings[k];
      $('p' + k).value = String(settings.sliders[k]);
      $('p' + k + '-value').textContent = String(settings.sliders[k]);
    }
    $('colour').disabled = !e.usesColour;
    $('colour').value = settings.colour;
    $('direction').value = String(settings.direction);
    if (document.activeElement !== $('speed') || Number($('speed').value) !== settings.speed) $('speed').value = String(settings.speed);
    $('position').value = String(settings.position);
    $('progress-value').textContent = 'progress ' + progressOf(settings);
    $('position').setAttribute('aria-valuetext', settings.position + ' of 16384, progress ' + progressOf(settings));
    $('undo').disabled = undoStack.length === 0;
    $('redo').disabled = redoStack.length === 0;
    for (const [i, button] of gallery.buttons) button.setAttribute('aria-pressed', String(i === settings.effect));
  }

  // --- command lines --------------------------------------------------------

  function shellWord(s) {
    return /^[A-Za-z0-9._\/:=+-]+$/.test(s) ? s : "'" + s.replace(/'/g, "'\\''") + "'";
  }

  // The shortest decimal that the frei0r plug-ins round back to `steps` of `scale`.
  function fraction(steps, scale) {
    for (let digits = 1; digits < 8; ++digits) {
      const text = (steps / scale).toFixed(digits);
      if (Math.round(Number(text) * scale) === steps) return text.replace(/\.?0+$/, '') || '0';
    }
    return String(steps / scale);
  }

  function effectOptions(e) {
    const words = ['--effect', e.slug];
    e.options.forEach((option, k) => { if (option) words.push('--' + option, String(settings.sliders[k])); });
    if (e.usesColour) words.push('--colour', settings.colour.slice(1));
    return words;
  }

  function baseName() {
    const name = picture ? picture.name : 'picture.png';
    return name.replace(/\.[^.\/]*$/, '');
  }

  function updateCommands() {
    const e = effectInfo();
    const input = picture ? picture.name : 'picture.png';
    const progress = progressOf(settings);
    $('cmd-render').textContent = ['flairize', 'render', input, baseName() + '-' + e.slug + '.png']
      .concat(effectOptions(e), ['--progress', String(progress)]).map(shellWord).join(' ');
    $('cmd-video').textContent = ['flairize', 'video', 'clip.mp4', 'out.mp4']
      .concat(effectOptions(e), ['--direction', catalog.directions[settings.direction],
                                 '--speed', String(settings.speed)]).map(shellWord).join(' ');

    const rgb = [1, 3, 5].map((i) => parseInt(settings.colour.slice(i, i + 2), 16));
    const params = [];
    e.labels.forEach((label, k) => { if (label) params.push(fraction(settings.sliders[k], 255)); });
    params.push(fraction(progress, 16384));
    if (e.usesColour) params.push(rgb.map((c) => fraction(c, 255)).join('/'));
    if (e.fadesIn) params.push('y');
    $('cmd-ffmpeg').textContent = 'ffmpeg -i clip.mp4 -vf "frei0r=flairize-' + e.slug + ':' + params.join('|') +
      '" -pix_fmt yuv420p out.mp4';

    const melt = ['melt', 'clip.mp4', '-filter', 'frei0r.flairize-' + e.slug];
    e.labels.forEach((label, k) => { if (label) melt.push(label + '=' + fraction(settings.sliders[k], 255)); });
    melt.push('Progress="' + meltKeyframes() + '"');
    if (e.usesColour) melt.push('Color="' + settings.colour + '"');
    melt.push('-consumer', 'avformat:out.mp4');
    $('cmd-melt').textContent = melt.join(' ');
  }

  // Progress keyframed over the clip. Forward at speed 0 is the straight line
  // from 0 to 1 (melt rounds where flairize video's timing truncates, at most
  // one step of 16384 apart); other timings get the frames of flairize video,
  // leaving out each frame melt's straight-line interpolation already hits.
  function meltKeyframes() {
    const frames = Math.max(2, Math.min(100000, parseInt($('frames').value, 10) || 50));
    if (settings.direction === 2 && settings.speed === 0) return '0=0;' + (frames - 1) + '=1';
    const p = [];
    for (let i = 0; i < frames; ++i) p.push(engine._fz_frame_progress(i, frames, settings.speed, settings.direction) >>> 0);
    const text = p.map((v) => fraction(v, 16384));
    const value = text.map(Number);
    const straight = (a, b) => {
      for (let f = a + 1; f < b; ++f) {
        if (Math.round((value[a] + ((value[b] - value[a]) * (f - a)) / (b - a)) * 16384) !== p[f]) return false;
      }
      return true;
    };
    const keys = [0];
    for (let a = 0, b = 1; b < frames; a = b, b = a + 1) {
      while (b + 1 < frames && straight(a, b + 1)) ++b;
      keys.push(b);
    }
    return keys.map((i) => i + '=' + text[i]).join(';');
  }

  // --- downloads ------------------------------------------------------------

  const crcTable = (() => {
    const t = new Uint32Array(256);
    for (let n = 0; n < 256; ++n) {
      let c = n;
      for (let k = 0; k < 8; ++k) c = c & 1 ? 0xedb88320 ^ (c >>> 1) : c >>> 1;
      t[n] = c >>> 0;
    }
    return t;
  })();

  function crc32(bytes) {
    let c = 0xffffffff;
    for (let i = 0; i < bytes.length; ++i) c = crcTable[(c ^ bytes[i]) & 255] ^ (c >>> 8);
    return (c ^ 0xffffffff) >>> 0;
  }

  function chunk(type, data) {
    const out = new Uint8Array(12 + data.length);
    const view = new DataView(out.buffer);
    view.setUint32(0, data.length);
    for (let i = 0; i < 4; ++i) out[4 + i] = type.charCodeAt(i);
    out.set(data, 8);
    view.setUint32(8 + data.length, crc32(out.subarray(4, 8 + data.length)));
    return out;
  }

  // PNG of the engine's bytes: RGB for 24-bit, RGBA for 32-bit, filter 0 rows.
  async function encodePng(width, height, bpp, pixels) {
    const rowBytes = width * bpp + 1;
    const raw = new Uint8Array(rowBytes * height);
    for (let y = 0; y < height; ++y) {
      const from = y * width * bpp;
      const to = y * rowBytes + 1;
      for (let x = 0; x < width * bpp; x += bpp) {
        raw[to + x] = pixels[from + x + 2];
        raw[to + x + 1] = pixels[from + x + 1];
        raw[to + x + 2] = pixels[from + x];
        if (bpp === 4) raw[to + x + 3] = pixels[from + x + 3];
      }
    }
    const zlib = new Uint8Array(await new Response(
      new Blob([raw]).stream().pipeThrough(new CompressionStream('deflate'))).arrayBuffer());
    const header = new Uint8Array(13);
    const hv = new DataView(header.buffer);
    hv.setUint32(0, width);
    hv.setUint32(4, height);
    header[8] = 8;
    header[9] = bpp === 4 ? 6 : 2;
    const signature = new Uint8Array([137, 80, 78, 71, 13, 10, 26, 10]);
    return new Blob([signature, chunk('IHDR', header), chunk('IDAT', zlib), chunk('IEND', new Uint8Array(0))],
                    { type: 'image/png' });
  }

  function download(blob, name) {
    const url = URL.createObjectURL(blob);
    const a = document.createElement('a');
    a.href = url;
    a.download = name;
    document.body.appendChild(a);
    a.click();
    a.remove();
    setTimeout(() => URL.revokeObjectURL(url), 10000);
  }

  // --- the view: fit or 100% with panning, the before/after split -------------

  let zoomActual = false;

  function setZoom(actual) {
    zoomActual = actual;
    const stage = $('stage');
    stage.classList.toggle('actual', actual);
    $('zoom-fit').setAttribute('aria-pressed', String(!actual));
    $('zoom-actual').setAttribute('aria-pressed', String(actual));
    const box = $('canvases');
    if (actual && picture) {
      box.style.width = picture.width + 'px';
      box.style.height = picture.height + 'px';
      // Scrollable, so reachable by keyboard: the arrow keys pan.
      stage.tabIndex = 0;
      stage.setAttribute('role', 'region');
      stage.setAttribute('aria-label', 'The picture at 100%: drag or use the arrow keys to pan');
    } else {
      box.style.width = '';
      box.style.height = '';
      stage.removeAttribute('tabindex');
      stage.removeAttribute('role');
      stage.removeAttribute('aria-label');
    }
  }

  function wirePanning() {
    const stage = $('stage');
    let drag = null;
    stage.addEventListener('pointerdown', (ev) => {
      if (!zoomActual || ev.button !== 0) return;
      drag = { x: ev.clientX, y: ev.clientY, left: stage.scrollLeft, top: stage.scrollTop };
      stage.setPointerCapture(ev.pointerId);
      stage.classList.add('dragging');
    });
    stage.addEventListener('pointermove', (ev) => {
      if (!drag) return;
      stage.scrollLeft = drag.left - (ev.clientX - drag.x);
      stage.scrollTop = drag.top - (ev.clientY - drag.y);
    });
    const stop = () => { drag = null; stage.classList.remove('dragging'); };
    stage.addEventListener('pointerup', stop);
    stage.addEventListener('pointercancel', stop);
  }

  function setSplit(at) {
    $('after').style.clipPath = at ? 'inset(0 0 0 ' + at + '%)' : '';
    $('divider').style.left = at + '%';
    $('divider').hidden = at === 0;
    $('split').setAttribute('aria-valuetext', at === 0 ? 'before hidden' : 'before on the left ' + at + '%');
  }

  // --- video ------------------------------------------------------------------

  const video = { worker: null, seq: 0, openSeq: 0, info: null, name: '', wanted: null, busy: false, job: null, keep: false,
                  kept: [], result: null, url: '' };

  function videoStatus(text) { $('video-status').textContent = text; }

  function openVideo(file, name) {
    $('video').scrollIntoView({ block: 'nearest' });
    if (!libs) return videoStatus('This site was built without its video libraries (' + libsMissing + '): use flairize video.');
    if (typeof VideoDecoder !== 'function') return videoStatus('This browser has no WebCodecs video decoder: use flairize video.');
    if (!video.worker) {
      video.worker = new Worker('video-worker.js');
      video.worker.onmessage = onVideoMessage;
    }
    if (video.job) cancelVideo();
    video.info = null;
    video.name = name;
    video.result = null;
    $('video-download').hidden = true;
    for (const id of ['video-frame', 'video-format', 'video-render']) $(id).disabled = true;
    videoStatus('Opening ' + name + ' …');
    video.openSeq = ++video.seq;
    video.worker.postMessage({ type: 'open', seq: video.openSeq, file });
  }

  function requestFrame(frame) {
    video.wanted = frame;
    if (video.busy || !video.info) return;
    video.busy = true;
    video.wanted = null;
    video.worker.postMessage({ type: 'frame', seq: video.openSeq, frame });
  }

  function renderVideo() {
    if (!video.info || video.job) return;
    const container = $('video-format').value;
    video.job = { seq: ++video.seq, container, started: performance.now() };
    video.kept = [];
    video.result = null;
    if (video.url) URL.revokeObjectURL(video.url);
    $('video-download').hidden = true;
    $('video-render').disabled = true;
    $('video-cancel').disabled = false;
    $('video-progress').value = 0;
    videoStatus('Rendering …');
    const s = { ...renderSettings(), direction: settings.direction, speed: settings.speed };
    video.worker.postMessage({ type: 'render', seq: video.job.seq, container, settings: s, keepFrames: video.keep });
  }

  function cancelVideo() {
    if (!video.job) return;
    video.worker.postMessage({ type: 'cancel', seq: video.job.seq });
    $('video-cancel').disabled = true;
    videoStatus('Cancelling …');
  }

  function endVideoJob() {
    video.job = null;
    $('video-render').disabled = !video.info || video.info.encoders.length === 0;
    $('video-cancel').disabled = true;
  }

  const CONTAINER_NAMES = { webm: 'WebM (VP9)', mp4: 'MP4 (H.264)' };

  function onVideoMessage(event) {
    const msg = event.data;
    if (msg.type === 'opened' && msg.seq === video.openSeq) {
      video.info = msg;
      const slider = $('video-frame');
      slider.max = String(msg.frames - 1);
      slider.value = '0';
      slider.disabled = false;
      const format = $('video-format');
      format.textContent = '';
      for (const c of msg.encoders) format.add(new Option(CONTAINER_NAMES[c], c));
      format.disabled = msg.encoders.length === 0;
      $('video-render').disabled = msg.encoders.length === 0;
      videoStatus(video.name + ': ' + msg.width + ' × ' + msg.height + ', ' + msg.frames + ' frames, ' +
                  msg.duration.toFixed(2) + ' s (' + msg.codec + ')' + (msg.encoders.length ? ''
                    : '. This browser has neither a VP9 nor an H.264 encoder: the clip can be previewed, not rendered here.'));
      requestFrame(0);
    } else if (msg.type === 'frame') {
      video.busy = false;
      if (msg.seq === video.openSeq) {
        const rgba = new Uint8Array(msg.source);
        const base = video.name.replace(/\.[^.]*$/, '');
        // The frame's place in the clip: its progress is the one flairize video gives it.
        settings.position = engine._fz_sequence_position(msg.frame, msg.frames) >>> 0;
        usePicture({ name: base + '-frame' + (msg.frame + 1) + '.png', width: msg.width, height: msg.height, bpp: 3, rgba }, false);
        $('video-frame-value').textContent = 'frame ' + (msg.frame + 1) + ' of ' + msg.frames + ', progress ' + progressOf(settings);
        setStatus(video.name + ', frame ' + (msg.frame + 1) + ' of ' + msg.frames + ': ' + msg.width + ' × ' + msg.height);
      }
      if (video.wanted !== null) requestFrame(video.wanted);
    } else if (msg.type === 'progress' && video.job && msg.seq === video.job.seq) {
      $('video-progress').value = msg.done / msg.frames;
      videoStatus('Rendering frame ' + msg.done + ' of ' + msg.frames + ' …');
    } else if (msg.type === 'kept' && video.job && msg.seq === video.job.seq) {
      video.kept.push(msg);
    } else if (msg.type === 'rendered' && video.job && msg.seq === video.job.seq) {
      const blob = new Blob([msg.data], { type: msg.mime });
      video.url = URL.createObjectURL(blob);
      const link = $('video-download');
      link.href = video.url;
      link.download = video.name.replace(/\.[^.]*$/, '') + '-' + effectInfo().slug + '.' + msg.container;
      link.hidden = false;
      video.result = { frames: msg.frames, listed: msg.listed, seconds: msg.seconds, width: msg.width, height: msg.height,
                       container: msg.container, bytes: new Uint8Array(msg.data) };
      videoStatus('Rendered ' + msg.frames + ' frames in ' + msg.seconds.toFixed(1) + ' s (' +
                  (msg.frames / msg.seconds).toFixed(1) + ' frames a second).');
      endVideoJob();
    } else if (msg.type === 'cancelled' && video.job && msg.seq === video.job.seq) {
      videoStatus('Cancelled after ' + msg.done + ' of ' + msg.frames + ' frames.');
      $('video-progress').value = 0;
      endVideoJob();
    } else if (msg.type === 'error') {
      if (msg.request === 'frame') video.busy = false;
      if (msg.request === 'render' && video.job && msg.seq === video.job.seq) endVideoJob();
      if (msg.seq === video.openSeq || (msg.request === 'render' && msg.seq === video.seq)) videoStatus('Video: ' + msg.message);
    }
  }

  // --- keyboard ----------------------------------------------------------------

  function onKey(ev) {
    const t = ev.target;
    const typing = t instanceof HTMLElement && (t.matches('input[type=text], input[type=number], textarea, select') || t.isContentEditable);
    const ctrl = ev.ctrlKey || ev.metaKey;
    const key = ev.key.length === 1 ? ev.key.toLowerCase() : ev.key;
    let done = true;
    if (ctrl && !ev.altKey) {
      if (typing && t.matches('input[type=text], input[type=number]') && (key === 'z' || key === 'y')) return;
      if (key === 'z' && !ev.shiftKey) undo();
      else if ((key === 'z' && ev.shiftKey) || key === 'y') redo();
      else if (key === 's') $('save-png').click();
      else if (key === 'o') $('file').click();
      else done = false;
    } else if (!ctrl && !ev.altKey && !typing) {
      if (key === '[') stepEffect(-1);
      else if (key === ']') stepEffect(1);
      else if (key === 'r') resetSettings();
      else if (key === 'f') setZoom(false);
      else if (key === '1') setZoom(true);
      else if (key === '?') $('help').open = !$('help').open;
      else done = false;
    } else done = false;
    if (done) ev.preventDefault();
  }

  // --- wiring ---------------------------------------------------------------

  function bytesToBase64(bytes) {
    let s = '';
    for (let i = 0; i < bytes.length; i += 0x8000) s += String.fromCharCode.apply(null, bytes.subarray(i, i + 0x8000));
    return btoa(s);
  }

  // For tests and measurements in a browser: the page's state and results.
  function expose() {
    window.flairizeEditor = Object.freeze({
      state() {
        const e = effectInfo();
        return { effect: settings.effect, name: e.name, slug: e.slug, sliders: settings.sliders.slice(),
                 labels: e.labels.slice(), usesColour: e.usesColour, fadesIn: e.fadesIn,
                 colour: settings.colour.slice(1), colourRef: colourRef(settings.colour),
                 direction: settings.direction, speed: settings.speed, position: settings.position,
                 progress: progressOf(settings),
                 opened: pictureGen, undo: undoStack.length, redo: redoStack.length, address: addressOf(settings),
                 picture: picture && { name: picture.name, width: picture.width, height: picture.height,
                                       bpp: picture.bpp, reduced: picture.small &&
                                         { width: picture.small.width, height: picture.small.height } } };
      },
      // The full-size result of the current settings, or null while it is not ready.
      lastResult() {
        if (!fullDone || fullDone.version !== version) return null;
        const r = fullDone;
        return { width: r.width, height: r.height, bpp: r.bpp, ms: r.ms, settings: { ...r.settings },
                 base64: bytesToBase64(new Uint8Array(r.pixels)) };
      },
      // The gallery's progress; ms: from its start (the picture decoded) to its last thumbnail;
      // msSinceOpen: from the file chosen (decoding included), for the first gallery of a picture.
      gallery() {
        return { done: gallery.done, total: gallery.total, ms: gallery.ms, msSinceOpen: gallery.msSinceOpen,
                 queued: gallery.queue.length, current: gallery.key === galleryKey(),
                 thumb: picture && { width: picture.thumb.width, height: picture.thumb.height } };
      },
      // A gallery thumbnail as drawn (RGBA) and the reduced picture it was rendered from (the engine's bytes).
      galleryThumb(name) {
        const i = catalog.list.find((k) => catalog.effects[k].name === name);
        const c = gallery.buttons.get(i).querySelector('canvas');
        const drawn = c.getContext('2d').getImageData(0, 0, c.width, c.height).data;
        return { width: c.width, height: c.height, bpp: picture.thumb.bpp, source: bytesToBase64(picture.thumb.pixels),
                 drawn: bytesToBase64(new Uint8Array(drawn.buffer)) };
      },
      presets() { return presetList(); },
      // Keep every rendered video frame (its decoded source and its result, B,G,R) for comparison.
      keepVideoFrames(on) { video.keep = !!on; },
      video() {
        const r = video.result;
        return { info: video.info && { frames: video.info.frames, width: video.info.width, height: video.info.height,
                                       encoders: video.info.encoders.slice(), codec: video.info.codec },
                 rendering: !!video.job, status: $('video-status').textContent,
                 result: r && { frames: r.frames, listed: r.listed, seconds: r.seconds, container: r.container,
                                width: r.width, height: r.height, base64: bytesToBase64(r.bytes) },
                 kept: video.kept.map((k) => ({ frame: k.frame, progress: k.progress,
                                                source: bytesToBase64(new Uint8Array(k.source)),
                                                output: bytesToBase64(new Uint8Array(k.output)) })) };
      },
      // Render times of every offered effect at its defaults on the open picture (best of `repeats`).
      benchmark(repeats = 3) {
        const seq = ++requestSeq;
        const effects = catalog.list.map((i) => {
          const e = catalog.effects[i];
          return { effect: i, p1: e.defaults[0], p2: e.defaults[1], p3: e.defaults[2], colour: 0, progress: 16384 };
        });
        return new Promise((resolve, reject) => {
          benchWaiters.set(seq, { resolve, reject });
          worker.postMessage({ type: 'bench', seq, repeats, effects });
        }).then((r) => ({ width: r.width, height: r.height, bpp: r.bpp,
                          rows: r.rows.map((row) => ({ name: catalog.effects[row.effect].name, ms: row.ms })) }));
      },
    });
  }

  function wire() {
    const effectList = $('effect');
    for (const i of catalog.list) effectList.add(new Option(catalog.effects[i].name, String(i)));
    catalog.directions.forEach((d, i) => $('direction').add(new Option(d, String(i))));

    const box = $('gallery');
    for (const i of catalog.list) {
      const button = document.createElement('button');
      button.type = 'button';
      button.setAttribute('aria-pressed', 'false');
      const canvas = document.createElement('canvas');
      canvas.width = THUMB_WIDTH;
      canvas.height = THUMB_HEIGHT;
      canvas.setAttribute('aria-hidden', 'true');
      const name = document.createElement('span');
      name.textContent = catalog.effects[i].name;
      button.append(canvas, name);
      button.addEventListener('click', () => selectEffect(i));
      box.append(button);
      gallery.buttons.set(i, button);
    }

    effectList.addEventListener('change', () => selectEffect(Number(effectList.value)));
    for (let k = 0; k < 3; ++k) {
      $('p' + k).addEventListener('input', (ev) => edit('p' + k, () => { settings.sliders[k] = Number(ev.target.value); }));
      $('p' + k).addEventListener('change', endEdit);
    }
    $('colour').addEventListener('input', (ev) => edit('colour', () => { settings.colour = ev.target.value.toLowerCase(); }));
    $('colour').addEventListener('change', endEdit);
    $('direction').addEventListener('change', (ev) => edit(null, () => { settings.direction = Number(ev.target.value); }));
    $('speed').addEventListener('input', (ev) => {
      const v = parseInt(ev.target.value, 10);
      if (Number.isNaN(v)) return;
      edit('speed', () => { settings.speed = Math.max(-124, Math.min(127, v)); });
    });
    $('speed').addEventListener('change', () => { endEdit(); updateControls(); });
    $('position').addEventListener('input', (ev) => edit('position', () => { settings.position = Number(ev.target.value); }));
    $('position').addEventListener('change', endEdit);
    $('frames').addEventListener('input', updateCommands);
    $('undo').addEventListener('click', undo);
    $('redo').addEventListener('click', redo);
    $('reset').addEventListener('click', resetSettings);

    $('file').addEventListener('change', (ev) => {
      const f = ev.target.files[0];
      if (f) openBlob(f, f.name);
    });
    $('open-flr').addEventListener('change', (ev) => {
      const f = ev.target.files[0];
      if (f) openSettingsFile(f, f.name);
      ev.target.value = '';
    });
    // A picture, video or .flr dropped anywhere on the page opens (rather than the browser navigating to it).
    const stage = $('stage');
    document.addEventListener('dragover', (ev) => { ev.preventDefault(); stage.classList.add('drop'); });
    document.addEventListener('dragleave', (ev) => { if (!ev.relatedTarget) stage.classList.remove('drop'); });
    document.addEventListener('drop', (ev) => {
      ev.preventDefault();
      stage.classList.remove('drop');
      const f = ev.dataTransfer.files[0];
      if (f) openBlob(f, f.name);
    });
    document.addEventListener('paste', (ev) => {
      const item = [...ev.clipboardData.items].find((i) => i.kind === 'file' && i.type.startsWith('image/'));
      if (!item) return;
      const file = item.getAsFile();
      openBlob(file, file.name || 'pasted.png');
    });
    document.addEventListener('keydown', onKey);
    window.addEventListener('hashchange', () => { if (location.hash !== writtenAddress) readAddress(true); });

    $('split').addEventListener('input', (ev) => setSplit(Number(ev.target.value)));
    setSplit(0);
    $('zoom-fit').addEventListener('click', () => setZoom(false));
    $('zoom-actual').addEventListener('click', () => setZoom(true));
    wirePanning();

    $('save-png').addEventListener('click', async () => {
      const r = fullDone;
      if (!r || r.version !== version) return;
      download(await encodePng(r.width, r.height, r.bpp, new Uint8Array(r.pixels)),
               baseName() + '-' + effectInfo().slug + '.png');
    });
    $('save-flr').addEventListener('click', () => {
      download(new Blob([settingsBlock()], { type: 'application/octet-stream' }), effectInfo().slug + '.flr');
    });
    $('copy-link').addEventListener('click', () => copyText(addressLink(), 'Link copied.'));

    $('preset-save').addEventListener('click', () => {
      const name = $('preset-name').value.trim() || effectInfo().name;
      addPreset(name, settings);
      setStatus('Preset saved: ' + name);
    });
    $('preset-load').addEventListener('click', () => {
      const p = chosenPreset();
      if (!p) return;
      edit(null, () => Object.assign(settings, p.settings));
      setStatus('Preset loaded: ' + p.name);
    });
    $('preset-delete').addEventListener('click', () => {
      const name = $('presets').value;
      storePresets(presetList().filter((p) => p.name !== name));
      setStatus('Preset deleted: ' + name);
    });
    $('preset-export').addEventListener('click', () => {
      const p = chosenPreset();
      if (p) download(new Blob([settingsBlock(p.settings)], { type: 'application/octet-stream' }), fileName(p.name) + '.flr');
    });
    $('preset-export-all').addEventListener('click', () => {
      const files = {};
      for (const p of presetList()) {
        let name = fileName(p.name);
        for (let n = 2; files[name + '.flr']; ++n) name = fileName(p.name) + '-' + n;
        try {
          files[name + '.flr'] = settingsBlock(checkedPreset(p.settings));
        } catch { /* a damaged preset is left out */ }
      }
      download(new Blob([libs.zipSync(files)], { type: 'application/zip' }), 'flairize-presets.zip');
    });
    $('preset-import').addEventListener('change', async (ev) => {
      await importPresets([...ev.target.files]);
      ev.target.value = '';
    });
    for (const button of document.querySelectorAll('button.copy')) {
      button.addEventListener('click', () => copyText($(button.dataset.for).textContent, 'Copied.'));
    }

    $('video-file').addEventListener('change', (ev) => {
      const f = ev.target.files[0];
      if (f) openVideo(f, f.name);
    });
    $('video-frame').addEventListener('input', (ev) => requestFrame(Number(ev.target.value)));
    $('video-render').addEventListener('click', renderVideo);
    $('video-cancel').addEventListener('click', cancelVideo);
    if (!libs) {
      $('video-note').textContent = 'This site was built without its video libraries (' + libsMissing +
        '): videos cannot be opened here; flairize video renders them.';
      $('video-file').disabled = true;
    }
  }

  async function copyText(text, done) {
    try {
      await navigator.clipboard.writeText(text);
      setStatus(done);
    } catch {
      setStatus('Select the text to copy it (the clipboard is not available here).');
    }
  }

  async function start() {
    engine = await FlairizeEngine();
    catalog = JSON.parse(engine.UTF8ToString(engine._fz_catalog()));
    wire();
    expose();
    settings.effect = catalog.defaultEffect;
    settings.sliders = catalog.effects[catalog.defaultEffect].defaults.slice();
    if (!readAddress(false)) changed();
    showPresets();
    const wanted = new URLSearchParams(location.search).get('picture');
    if (wanted) {
      try {
        const response = await fetch(wanted);
        if (!response.ok) throw new Error(response.status + ' ' + response.statusText);
        const name = decodeURIComponent(new URL(wanted, location.href).pathname.split('/').pop()) || 'picture.png';
        await openBlob(await response.blob(), name);
      } catch (err) {
        setStatus('Cannot open ' + wanted + ': ' + (err && err.message || err));
      }
    }
    updateBusy();
  }

  start().catch((err) => setStatus('The engine did not start: ' + (err && err.message || err)));
})();
