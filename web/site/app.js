// The editor page: opens a picture, keeps the settings, asks the worker for
// previews (one request at a time, always the newest settings) and writes the
// result, the settings block and the matching command lines. The engine is
// loaded here too for its small calls (catalogue, frame timing, settings block).
'use strict';

(() => {
  const $ = (id) => document.getElementById(id);
  const PREVIEW_PIXELS = 1280 * 720;  // larger pictures are previewed reduced first
  const FULL_DELAY_MS = 200;          // quiet time before a large picture renders at full size

  let engine = null;
  let catalog = null;
  const worker = new Worker('worker.js');

  const settings = { effect: 0, sliders: [0, 0, 0], colour: '#000000', direction: 2, speed: 0, position: 16384 };
  let picture = null;     // {name, width, height, bpp, pixels, small}
  let version = 0;        // bumped on every change of the picture or the settings
  let inFlight = null;    // the render request the worker is working on
  let shownVersion = -1;  // the version of the preview on screen
  let fullDone = null;    // the newest full-size result
  let failedVersion = -1; // the version the engine refused (not asked again)
  let pictureGen = 0;     // which picture the worker holds
  let smallDoneVersion = -1;
  let fullTimer = 0;
  let decoding = false;
  let requestSeq = 0;
  const benchWaiters = new Map();

  // --- the engine's small calls -------------------------------------------

  function progressOf(s) {
    return engine._fz_position_progress(s.position, s.speed, s.direction) >>> 0;
  }

  // COLORREF: red in the lowest byte.
  function colourRef(hex) {
    const v = parseInt(hex.slice(1), 16);
    return ((v >> 16) & 255) | (v & 0xff00) | ((v & 255) << 16);
  }

  function renderSettings() {
    const s = settings;
    return { effect: s.effect, p1: s.sliders[0], p2: s.sliders[1], p3: s.sliders[2],
             colour: colourRef(s.colour), progress: progressOf(s) };
  }

  function settingsBlock() {
    const r = renderSettings();
    const at = engine._malloc(20);
    engine._fz_settings_block(r.effect, r.p1, r.p2, r.p3, settings.direction, r.colour, r.progress, at);
    const block = engine.HEAPU8.slice(at, at + 20);
    engine._free(at);
    return block;
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

  function reduced(bitmap, bpp) {
    const { width, height } = bitmap;
    if (width * height <= PREVIEW_PIXELS * 1.1) return null;
    const scale = Math.sqrt(PREVIEW_PIXELS / (width * height));
    const w = Math.max(1, Math.round(width * scale));
    const h = Math.max(1, Math.round(height * scale));
    const canvas = document.createElement('canvas');
    canvas.width = w;
    canvas.height = h;
    const ctx = canvas.getContext('2d', { willReadFrequently: true });
    ctx.imageSmoothingQuality = 'high';
    ctx.drawImage(bitmap, 0, 0, w, h);
    const rgba = ctx.getImageData(0, 0, w, h).data;
    return { width: w, height: h, bpp, pixels: toEngine(rgba, w * h, bpp) };
  }

  async function openBlob(blob, name) {
    decoding = true;
    updateBusy();
    setStatus('Opening ' + name + ' …');
    try {
      const bytes = new Uint8Array(await blob.arrayBuffer());
      const bitmap = await createImageBitmap(blob, { colorSpaceConversion: 'none', premultiplyAlpha: 'none' });
      const { width, height } = bitmap;
      const rgba = exactPixels(bitmap);
      const png = pngInfo(bytes);
      let alpha = png ? png.alpha : false;
      if (!png) for (let i = 3; i < rgba.length; i += 4) if (rgba[i] !== 255) { alpha = true; break; }
      const bpp = alpha ? 4 : 3;
      const pixels = toEngine(rgba, width * height, bpp);
      const small = reduced(bitmap, bpp);

      const before = $('before');
      before.width = width;
      before.height = height;
      before.getContext('2d').drawImage(bitmap, 0, 0);
      bitmap.close();

      picture = { name, width, height, bpp, pixels, small, palette: !!(png && png.palette) };
      ++pictureGen;
      const full = { width, height, bpp, pixels: pixels.slice().buffer };
      const smallCopy = small && { ...small, pixels: small.pixels.slice().buffer };
      worker.postMessage({ type: 'picture', full, small: smallCopy },
                         [full.pixels].concat(smallCopy ? [smallCopy.pixels] : []));
      fullDone = null;
      smallDoneVersion = -1;
      $('stage').classList.remove('empty');
      $('stage').style.aspectRatio = width + ' / ' + height;
      setStatus(name + ': ' + width + ' × ' + height + ', ' + bpp * 8 + '-bit' +
                (picture.palette ? ' (a palette picture, rendered here as 24-bit)' : ''));
      decoding = false;
      changed();
    } catch (err) {
      decoding = false;
      setStatus('Cannot open ' + name + ': ' + (err && err.message || err));
      updateBusy();
    }
  }

  // --- rendering ----------------------------------------------------------

  function send(size) {
    inFlight = { seq: ++requestSeq, version, size, picture: pictureGen };
    worker.postMessage({ type: 'render', seq: inFlight.seq, size, settings: renderSettings() });
  }

  function schedule() {
    clearTimeout(fullTimer);
    if (!picture || !engine || inFlight) return updateBusy();
    if ((fullDone && fullDone.version === version) || failedVersion === version) return updateBusy();
    if (picture.small && smallDoneVersion !== version) send('small');
    else if (picture.small) {
      const v = version;
      fullTimer = setTimeout(() => { if (v === version && !inFlight) send('full'); updateBusy(); }, FULL_DELAY_MS);
    } else send('full');
    updateBusy();
  }

  function show(result) {
    const after = $('after');
    after.width = result.width;
    after.height = result.height;
    const px = new Uint8Array(result.pixels);
    const image = new ImageData(result.width, result.height);
    const d = image.data;
    for (let i = 0, o = 0; o < d.length; i += result.bpp, o += 4) {
      d[o] = px[i + 2];
      d[o + 1] = px[i + 1];
      d[o + 2] = px[i];
      d[o + 3] = result.bpp === 4 ? px[i + 3] : 255;
    }
    after.getContext('2d').putImageData(image, 0, 0);
  }

  worker.onmessage = (event) => {
    const msg = event.data;
    if (msg.type === 'bench' || (msg.type === 'error' && msg.request === 'bench')) {
      const w = benchWaiters.get(msg.seq);
      benchWaiters.delete(msg.seq);
      if (w) msg.type === 'bench' ? w.resolve(msg) : w.reject(new Error(msg.message));
      return;
    }
    if (msg.type === 'error') setStatus('The engine refused: ' + msg.message);
    if ((msg.type === 'result' || msg.type === 'error') && inFlight && msg.seq === inFlight.seq) {
      const done = inFlight;
      inFlight = null;
      if (msg.type === 'error') failedVersion = done.version;
      if (msg.type === 'result' && done.picture === pictureGen) {
        // The newest result goes on screen (a full-size one replaces a reduced one of the same settings).
        if (done.version >= shownVersion) { show(msg); shownVersion = done.version; }
        if (done.size === 'small') smallDoneVersion = done.version;
        else fullDone = { version: done.version, ...msg };
      }
      schedule();
    }
  };

  // --- settings and the controls ------------------------------------------

  function effectInfo() { return catalog.effects[settings.effect]; }

  function changed() {
    ++version;
    updateControls();
    updateCommands();
    schedule();
  }

  function updateBusy() {
    const idle = !!engine && !decoding && !inFlight &&
      (!picture || failedVersion === version || (fullDone && fullDone.version === version));
    document.body.dataset.busy = idle ? 'false' : 'true';
    const ready = idle && !!picture;
    $('save-png').disabled = !ready;
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
    $('speed').value = String(settings.speed);
    $('position').value = String(settings.position);
    $('progress-value').textContent = 'progress ' + progressOf(settings);
    $('position').setAttribute('aria-valuetext', settings.position + ' of 16384, progress ' + progressOf(settings));
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

  // --- wiring ---------------------------------------------------------------

  function bytesToBase64(bytes) {
    let s = '';
    for (let i = 0; i < bytes.length; i += 0x8000) s += String.fromCharCode.apply(null, bytes.subarray(i, i + 0x8000));
    return btoa(s);
  }

  function expose() {
    window.flairizeEditor = Object.freeze({
      state() {
        const e = effectInfo();
        return { effect: settings.effect, name: e.name, slug: e.slug, sliders: settings.sliders.slice(),
                 labels: e.labels.slice(), usesColour: e.usesColour, fadesIn: e.fadesIn,
                 colour: settings.colour.slice(1), colourRef: colourRef(settings.colour),
                 direction: settings.direction, speed: settings.speed, position: settings.position,
                 progress: progressOf(settings),
                 opened: pictureGen,
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

  function selectEffect(index) {
    settings.effect = index;
    settings.sliders = catalog.effects[index].defaults.slice();  // hidden sliders too, as the dialog does
    changed();
  }

  function wire() {
    const effectList = $('effect');
    for (const i of catalog.list) effectList.add(new Option(catalog.effects[i].name, String(i)));
    catalog.directions.forEach((d, i) => $('direction').add(new Option(d, String(i))));

    effectList.addEventListener('change', () => selectEffect(Number(effectList.value)));
    for (let k = 0; k < 3; ++k) {
      $('p' + k).addEventListener('input', (ev) => { settings.sliders[k] = Number(ev.target.value); changed(); });
    }
    $('colour').addEventListener('input', (ev) => { settings.colour = ev.target.value.toLowerCase(); changed(); });
    $('direction').addEventListener('change', (ev) => { settings.direction = Number(ev.target.value); changed(); });
    $('speed').addEventListener('input', (ev) => {
      const v = parseInt(ev.target.value, 10);
      if (Number.isNaN(v)) return;
      settings.speed = Math.max(-124, Math.min(127, v));
      changed();
    });
    $('speed').addEventListener('change', updateControls);
    $('position').addEventListener('input', (ev) => { settings.position = Number(ev.target.value); changed(); });
    $('frames').addEventListener('input', updateCommands);

    $('file').addEventListener('change', (ev) => {
      const f = ev.target.files[0];
      if (f) openBlob(f, f.name);
    });
    // A picture dropped anywhere on the page opens (rather than the browser navigating to it).
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

    $('split').addEventListener('input', (ev) => {
      const at = Number(ev.target.value);
      $('after').style.clipPath = 'inset(0 0 0 ' + at + '%)';
      $('divider').style.left = at + '%';
      $('divider').hidden = at === 0;
    });
    $('divider').hidden = true;

    $('save-png').addEventListener('click', async () => {
      const r = fullDone;
      if (!r || r.version !== version) return;
      download(await encodePng(r.width, r.height, r.bpp, new Uint8Array(r.pixels)),
               baseName() + '-' + effectInfo().slug + '.png');
    });
    $('save-flr').addEventListener('click', () => {
      download(new Blob([settingsBlock()], { type: 'application/octet-stream' }), effectInfo().slug + '.flr');
    });
    for (const button of document.querySelectorAll('button.copy')) {
      button.addEventListener('click', async () => {
        const text = $(button.dataset.for).textContent;
        try {
          await navigator.clipboard.writeText(text);
          setStatus('Copied.');
        } catch {
          setStatus('Select the text to copy it (the clipboard is not available here).');
        }
      });
    }
  }

  async function start() {
    engine = await FlairizeEngine();
    catalog = JSON.parse(engine.UTF8ToString(engine._fz_catalog()));
    wire();
    expose();
    selectEffect(catalog.defaultEffect);
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
