'use strict';
// The live view page: reads the multipart JPEG stream, draws it scaled to the window
// (or 1:1 around a clicked point), polls the camera's status, and sends each control
// change to the server, showing the value the camera kept and any refusal.

const token = new URLSearchParams(location.search).get('token');
const $ = (id) => document.getElementById(id);

function withToken(path) {
  if (!token) return path;
  return path + (path.includes('?') ? '&' : '?') + 'token=' + encodeURIComponent(token);
}

async function call(method, path, body) {
  const response = await fetch(withToken(path), {method, body, cache: 'no-store'});
  const type = response.headers.get('Content-Type') || '';
  const data = type.startsWith('application/json') ? await response.json() : await response.blob();
  return {ok: response.ok, status: response.status, data};
}

// ---- live image -------------------------------------------------------------------
// The server sends each frame in the view shown: scaled to the canvas, or a canvas-sized
// region at full resolution for the 1:1 zoom. A change of view starts a new stream.

const live = $('live');
const context = live.getContext('2d');
let bitmap = null;
let imageSize = null;  // the camera's frame size, from the stream's part headers
let zoomAt = null;     // image point at the canvas centre in 1:1 view, or null: fit
let shownFrames = 0;
window.viewCounters = {received: 0, shown: 0};

function sizeCanvas() {
  const ratio = window.devicePixelRatio || 1;
  const w = Math.max(16, Math.round(live.clientWidth * ratio)), h = Math.max(16, Math.round(live.clientHeight * ratio));
  if (live.width !== w || live.height !== h) { live.width = w; live.height = h; }
}

function fitRect() {
  const scale = Math.min(live.width / imageSize.width, live.height / imageSize.height, 1);
  const w = Math.round(imageSize.width * scale), h = Math.round(imageSize.height * scale);
  return {x: Math.round((live.width - w) / 2), y: Math.round((live.height - h) / 2), w, h, scale};
}

// The region of the 1:1 view: canvas-sized, around zoomAt, inside the image.
function zoomRegion() {
  const w = Math.min(live.width, imageSize.width), h = Math.min(live.height, imageSize.height);
  const x = Math.min(Math.max(Math.round(zoomAt.x - w / 2), 0), imageSize.width - w);
  const y = Math.min(Math.max(Math.round(zoomAt.y - h / 2), 0), imageSize.height - h);
  return {x, y, w, h};
}

function viewQuery() {
  if (zoomAt && imageSize) {
    const r = zoomRegion();
    return `region=${r.x},${r.y},${Math.max(r.w, 16)},${Math.max(r.h, 16)}`;
  }
  return `fit=${live.width}x${live.height}`;
}

function draw() {
  sizeCanvas();
  context.fillStyle = '#000';
  context.fillRect(0, 0, live.width, live.height);
  if (!bitmap || !imageSize) return;
  if (zoomAt) {
    context.drawImage(bitmap, Math.max(0, Math.round((live.width - bitmap.width) / 2)),
                      Math.max(0, Math.round((live.height - bitmap.height) / 2)));
  } else {
    const r = fitRect();
    context.drawImage(bitmap, r.x, r.y, r.w, r.h);
  }
}

let generation = 0;
let controller = null;
function restartStream() {
  ++generation;
  if (controller) controller.abort();
}

live.addEventListener('click', (event) => {
  if (!imageSize) return;
  if (zoomAt) {
    zoomAt = null;
  } else {
    const ratio = window.devicePixelRatio || 1;
    const r = fitRect();
    zoomAt = {x: (event.offsetX * ratio - r.x) / r.scale, y: (event.offsetY * ratio - r.y) / r.scale};
  }
  live.classList.toggle('zoomed', zoomAt !== null);
  restartStream();
});
let resizeTimer = null;
window.addEventListener('resize', () => {
  draw();
  clearTimeout(resizeTimer);
  resizeTimer = setTimeout(restartStream, 200);
});

// Decodes only the newest frame: while one decodes, later ones replace each other.
let decoding = false;
let waiting = null;
async function show(part) {
  if (decoding) { waiting = part; return; }
  decoding = true;
  try {
    const next = await createImageBitmap(new Blob([part.jpeg], {type: 'image/jpeg'}));
    if (part.generation !== generation) {
      next.close();  // a frame of the view before
    } else {
      if (bitmap) bitmap.close();
      bitmap = next;
      imageSize = part.size;
      ++shownFrames;
      ++window.viewCounters.shown;
      live.dataset.stamp = part.stamp;
      live.dataset.view = part.view;
      $('stamp').textContent = part.stamp;
      draw();
    }
  } finally {
    decoding = false;
  }
  if (waiting) { const w = waiting; waiting = null; show(w); }
}

function indexOfBlankLine(bytes) {
  for (let i = 0; i + 3 < bytes.length && i < 1024; ++i)
    if (bytes[i] === 13 && bytes[i + 1] === 10 && bytes[i + 2] === 13 && bytes[i + 3] === 10) return i;
  return -1;
}

// Parts: "--frame\r\n" headers with Content-Length, X-Frame-Stamp and X-Frame-Size, a blank
// line, the JPEG, "\r\n". The length is read from the headers, so the JPEG is never scanned.
async function readStream() {
  sizeCanvas();
  const mine = generation;
  const view = viewQuery();
  controller = new AbortController();
  const response = await fetch(withToken('/stream?' + view), {cache: 'no-store', signal: controller.signal});
  if (!response.ok) throw new Error('stream: ' + ((await response.json()).error || 'HTTP ' + response.status));
  const reader = response.body.getReader();
  const decoder = new TextDecoder();
  let buffer = new Uint8Array(0);
  for (;;) {
    const {value, done} = await reader.read();
    if (done) return;
    const joined = new Uint8Array(buffer.length + value.length);
    joined.set(buffer);
    joined.set(value, buffer.length);
    buffer = joined;
    for (;;) {
      const end = indexOfBlankLine(buffer);
      if (end < 0) break;
      const headers = decoder.decode(buffer.subarray(0, end));
      const length = Number((/Content-Length:\s*(\d+)/i.exec(headers) || [])[1]);
      const stamp = Number((/X-Frame-Stamp:\s*(\d+)/i.exec(headers) || [])[1]);
      const [, width, height] = (/X-Frame-Size:\s*(\d+)x(\d+)/i.exec(headers) || []).map(Number);
      if (!Number.isFinite(length)) throw new Error('stream: a part without Content-Length');
      const start = end + 4;
      if (buffer.length < start + length + 2) break;
      ++window.viewCounters.received;
      show({jpeg: buffer.slice(start, start + length), stamp, size: {width, height}, generation: mine, view});
      buffer = buffer.slice(start + length + 2);
    }
  }
}

async function keepStreaming() {
  for (;;) {
    try {
      await readStream();
    } catch (error) {
      if (error.name === 'AbortError') continue;  // a new view was asked for
      $('lastFailure').textContent = String(error.message || error);
    }
    await new Promise((resolve) => setTimeout(resolve, 1000));
  }
}

setInterval(() => {
  $('shownFps').textContent = shownFrames.toFixed(0);
  shownFrames = 0;
}, 1000);

// ---- status and histogram ---------------------------------------------------------

const histogram = $('histogram');
function drawHistogram(bins) {
  const g = histogram.getContext('2d');
  g.clearRect(0, 0, histogram.width, histogram.height);
  const top = Math.log1p(Math.max(...bins));
  for (let i = 0; i < bins.length; ++i) {
    const h = top > 0 ? Math.log1p(bins[i]) / top * histogram.height : 0;
    g.fillStyle = i === 255 ? '#ff5252' : '#9fb3c8';
    g.fillRect(i, histogram.height - h, 1, h);
  }
}

async function pollStatus() {
  try {
    const {ok, data} = await call('GET', '/api/status');
    if (ok) {
      $('cameraFps').textContent = data.cameraFps.toFixed(1);
      $('failures').textContent = data.failures;
      $('missing').textContent = data.missing;
      $('lastFailure').textContent = data.lastFailure;
      if (data.histogram) {
        drawHistogram(data.histogram);
        $('saturated').textContent = (data.saturatedShare * 100).toFixed(2) + ' %';
        $('format').textContent = data.width + ' × ' + data.height;
      }
    }
  } catch (error) {
    $('lastFailure').textContent = 'status: ' + (error.message || error);
  }
  setTimeout(pollStatus, 500);
}

$('markSaturated').addEventListener('change', (event) => {
  call('POST', '/api/overlay?saturated=' + (event.target.checked ? 1 : 0));
});

// ---- controls ---------------------------------------------------------------------

const controls = [...document.querySelectorAll('.control')];

function valueAt(tree, key) {
  let node = tree;
  for (const part of key.split('/')) node = node === undefined ? undefined : node[part];
  return node !== null && typeof node === 'object' && '$value' in node ? node.$value : node;
}

function showKept(tree, fillInputs) {
  for (const control of controls) {
    const value = valueAt(tree, control.dataset.key);
    control.querySelector('.kept').textContent = value === undefined ? '' : 'kept: ' + value;
    if (fillInputs && value !== undefined) control.querySelector('input, select').value = value;
  }
  const mode = valueAt(tree, 'Camera/ColorMode');
  if (mode) $('format').dataset.mode = mode;
}

async function change(control) {
  const key = control.dataset.key;
  const input = control.querySelector('input, select');
  const value = input.tagName === 'SELECT' ? input.value : Number(input.value);
  const refusal = control.querySelector('.refusal');
  refusal.textContent = '';
  control.classList.add('busy');
  try {
    const {ok, data} = await call('POST', '/api/settings', JSON.stringify({[key]: input.value === '' ? '' : value}));
    if (data.settings) showKept(data.settings, false);
    if (!ok) refusal.textContent = data.error;
    else if (data.refusals.length) refusal.textContent = data.refusals.join(' · ');
  } catch (error) {
    refusal.textContent = String(error.message || error);
  } finally {
    control.classList.remove('busy');
  }
}

for (const control of controls)
  control.querySelector('input, select').addEventListener('change', () => change(control));

async function loadCurrentSettings() {
  const {ok, data} = await call('GET', '/api/settings');
  if (ok) showKept(data.settings, true);
}

// ---- capture and settings files ---------------------------------------------------

$('still').href = withToken('/api/still.png');
$('saveSettings').href = withToken('/api/settings/file');

function message(id, text, isError) {
  $(id).textContent = text;
  $(id).classList.toggle('error', !!isError);
}

let sheetUrl = null;
$('sequence').addEventListener('click', async () => {
  const count = $('sequenceCount').value;
  $('sequence').disabled = true;
  message('sequenceMessage', 'taking ' + count + ' triggered images…');
  try {
    const {ok, data} = await call('POST', '/api/sequence?count=' + encodeURIComponent(count));
    if (!ok) return message('sequenceMessage', data.error, true);
    if (sheetUrl) URL.revokeObjectURL(sheetUrl);
    sheetUrl = URL.createObjectURL(data);
    $('sheet').src = sheetUrl;
    $('sheet').dataset.count = count;
    $('sheetCaption').textContent = '(' + count + ' images)';
    $('sheetPanel').hidden = false;
    message('sequenceMessage', count + ' images');
  } catch (error) {
    message('sequenceMessage', String(error.message || error), true);
  } finally {
    $('sequence').disabled = false;
  }
});
$('closeSheet').addEventListener('click', () => { $('sheetPanel').hidden = true; });

$('loadSettings').addEventListener('change', async (event) => {
  const file = event.target.files[0];
  if (!file) return;
  try {
    const {ok, data} = await call('POST', '/api/settings/file', await file.text());
    if (data.settings) showKept(data.settings, true);
    if (!ok) message('fileMessage', data.error, true);
    else if (data.refusals.length) message('fileMessage', data.refusals.join(' · '), true);
    else message('fileMessage', 'applied ' + file.name);
  } catch (error) {
    message('fileMessage', String(error.message || error), true);
  }
  event.target.value = '';
});

loadCurrentSettings();
pollStatus();
keepStreaming();
