// Renders videos for the editor page off its main thread. The clip is demuxed
// and decoded by the browser's own decoders (mediabunny over WebCodecs); every
// frame goes through the engine at its frame's progress, as `flairize video`
// times it, and is encoded (VP9 or H.264, where the browser has the encoder)
// and muxed into WebM or MP4. Frames are rendered 24-bit, as video has no alpha.
import {
  ALL_FORMATS, BlobSource, BufferTarget, EncodedPacketSink, Input, Mp4OutputFormat, Output, QUALITY_HIGH,
  VideoSample, VideoSampleSink, VideoSampleSource, WebMOutputFormat, canEncodeVideo,
} from 'mediabunny';

/* global FlairizeEngine */
importScripts('flairize-engine.js');

let engine = null;
const ready = FlairizeEngine().then((m) => { engine = m; });

let clip = null;    // {input, track, sink, times, width, height}
let job = null;     // the render in progress: {seq, cancelled}
let buffers = null; // engine memory for one frame: {src, out, bytes}

const CONTAINERS = {
  webm: { codec: 'vp9', format: () => new WebMOutputFormat(), type: 'video/webm' },
  mp4: { codec: 'avc', format: () => new Mp4OutputFormat({ fastStart: 'in-memory' }), type: 'video/mp4' },
};

function frameBuffers(bytes) {
  if (buffers && buffers.bytes === bytes) return buffers;
  if (buffers) { engine._free(buffers.src); engine._free(buffers.out); }
  buffers = null;
  const src = engine._malloc(bytes);
  const out = src ? engine._malloc(bytes) : 0;
  if (!src || !out) {
    if (src) engine._free(src);
    throw new Error('not enough memory for a frame of this size');
  }
  buffers = { src, out, bytes };
  return buffers;
}

// A decoded frame as RGBA, drawn at the clip's display size.
function frameRgba(sample, canvas) {
  const ctx = canvas.getContext('2d', { willReadFrequently: true });
  ctx.clearRect(0, 0, canvas.width, canvas.height);
  sample.draw(ctx, 0, 0, canvas.width, canvas.height);
  return ctx.getImageData(0, 0, canvas.width, canvas.height).data;
}

// RGBA -> the engine's B,G,R -> rendered -> RGBA (alpha 255); also returns the two B,G,R pictures.
function renderFrame(rgba, width, height, s, frame, frames) {
  const pixels = width * height;
  const b = frameBuffers(pixels * 3);
  let heap = engine.HEAPU8;
  for (let i = 0, o = b.src; i < pixels * 4; i += 4, o += 3) {
    heap[o] = rgba[i + 2];
    heap[o + 1] = rgba[i + 1];
    heap[o + 2] = rgba[i];
  }
  const progress = engine._fz_frame_progress(frame, frames, s.speed, s.direction) >>> 0;
  const rc = engine._fz_render(b.src, width, height, 3, s.effect, s.p1, s.p2, s.p3, s.colour >>> 0, progress, b.out);
  if (rc !== 0) throw new Error(engine.UTF8ToString(engine._fz_message()));
  heap = engine.HEAPU8;  // memory may have grown during the render
  const out = new Uint8Array(pixels * 4);
  for (let i = 0, o = b.out; i < pixels * 4; i += 4, o += 3) {
    out[i] = heap[o + 2];
    out[i + 1] = heap[o + 1];
    out[i + 2] = heap[o];
    out[i + 3] = 255;
  }
  return { out, progress, sourceBgr: heap.slice(b.src, b.src + pixels * 3), outputBgr: heap.slice(b.out, b.out + pixels * 3) };
}

async function open(file) {
  if (clip) clip.input.dispose();
  clip = null;
  const input = new Input({ source: new BlobSource(file), formats: ALL_FORMATS });
  const track = await input.getPrimaryVideoTrack();
  if (!track) throw new Error('the file holds no video track');
  const codec = track.codec || 'an unknown codec';
  if (!(await track.canDecode())) throw new Error('this browser has no decoder for its video (' + codec + ')');
  // Every frame's presentation time, from the packets alone (nothing decoded).
  const times = [];
  for await (const packet of new EncodedPacketSink(track).packets(undefined, undefined, { metadataOnly: true })) {
    times.push(packet.timestamp);
  }
  times.sort((a, b) => a - b);
  if (times.length === 0) throw new Error('the video has no frames');
  const width = track.displayWidth;
  const height = track.displayHeight;
  clip = { input, track, sink: new VideoSampleSink(track), times, width, height };
  const encoders = [];
  for (const [container, c] of Object.entries(CONTAINERS)) {
    if (await canEncodeVideo(c.codec, { width, height })) encoders.push(container);
  }
  const duration = await track.computeDuration();
  return { type: 'opened', frames: times.length, width, height, codec, duration, encoders };
}

// One decoded frame, for the page's timeline: the page previews it as a picture.
async function frameAt(msg) {
  if (!clip) throw new Error('no video');
  const sample = await clip.sink.getSample(clip.times[msg.frame]);
  if (!sample) throw new Error('frame ' + msg.frame + ' could not be decoded');
  const rgba = frameRgba(sample, new OffscreenCanvas(clip.width, clip.height));
  sample.close();
  return { type: 'frame', seq: msg.seq, frame: msg.frame, frames: clip.times.length, width: clip.width,
           height: clip.height, source: rgba.buffer, transfer: [rgba.buffer] };
}

async function render(msg) {
  if (!clip) throw new Error('no video');
  const c = CONTAINERS[msg.container];
  if (!c) throw new Error('unknown container ' + msg.container);
  const me = { seq: msg.seq, cancelled: false };
  job = me;
  const { width, height, times } = clip;
  const frames = times.length;
  const output = new Output({ format: c.format(), target: new BufferTarget() });
  const source = new VideoSampleSource({ codec: c.codec, bitrate: QUALITY_HIGH });
  output.addVideoTrack(source);
  await output.start();
  const canvas = new OffscreenCanvas(width, height);
  const t0 = performance.now();
  let frame = 0;
  try {
    for await (const sample of clip.sink.samples()) {
      if (me.cancelled) { sample.close(); break; }
      const timestamp = sample.timestamp;
      const duration = sample.duration;
      const rgba = frameRgba(sample, canvas);
      sample.close();
      if (frame >= frames) throw new Error('the decoder gave more frames than the file lists (' + frames + ')');
      const r = renderFrame(rgba, width, height, msg.settings, frame, frames);
      if (msg.keepFrames) {
        self.postMessage({ type: 'kept', seq: msg.seq, frame, progress: r.progress, width, height,
                           source: r.sourceBgr.buffer, output: r.outputBgr.buffer },
                         [r.sourceBgr.buffer, r.outputBgr.buffer]);
      }
      const out = new VideoSample(r.out, { format: 'RGBX', codedWidth: width, codedHeight: height, timestamp, duration });
      await source.add(out);
      out.close();
      ++frame;
      self.postMessage({ type: 'progress', seq: msg.seq, done: frame, frames });
    }
  } catch (err) {
    await output.cancel();
    throw err;
  } finally {
    if (job === me) job = null;
  }
  if (me.cancelled) {
    await output.cancel();
    return { type: 'cancelled', seq: msg.seq, done: frame, frames };
  }
  await output.finalize();
  const seconds = (performance.now() - t0) / 1000;
  const data = output.target.buffer;
  return { type: 'rendered', seq: msg.seq, frames: frame, listed: frames, seconds, width, height, container: msg.container,
           mime: c.type, data, transfer: [data] };
}

async function handle(msg) {
  await ready;
  switch (msg.type) {
    case 'open': return { ...(await open(msg.file)), seq: msg.seq };
    case 'frame': return frameAt(msg);
    case 'render': return render(msg);
    default: throw new Error('unknown request ' + msg.type);
  }
}

self.onmessage = (event) => {
  const msg = event.data;
  if (msg.type === 'cancel') {
    if (job && job.seq === msg.seq) job.cancelled = true;
    return;
  }
  handle(msg).then((reply) => {
    const transfer = reply.transfer || [];
    delete reply.transfer;
    self.postMessage(reply, transfer);
  }, (err) => {
    self.postMessage({ type: 'error', seq: msg.seq, request: msg.type, message: String(err && err.message || err) });
  });
};
