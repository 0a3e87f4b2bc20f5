'use strict';
// The live view page: one tile per camera, side by side. Each tile reads its camera's
// multipart JPEG stream, draws it scaled to the tile (or 1:1 around a clicked point) and
// polls the camera's status for its rate and histogram. The controls, built from the
// server's list of settings, act on the camera chosen beside them; each change shows the
// value the camera kept and any refusal.

const token = new URLSearchParams(location.search).get('token');
const $ = (id) => document.getElementById(id);
let chosen = 0;  // the camera the controls, the still, the sequence and the settings file act on

function withToken(path) {
  if (!token) return path;
  return path + (path.includes('?') ? '&' : '?') + 'token=' + encodeURIComponent(token);
}

// The path for camera `index`; camera 0 needs no parameter, as with one camera.
function forCamera(path, index = chosen) {
  if (index === 0) return path;
  return path + (path.includes('?') ? '&' : '?') + 'camera=' + index;
}

async function call(method, path, body) {
  const response = await fetch(withToken(path), {method, body, cache: 'no-store'});
  const type = response.headers.get('Content-Type') || '';
  const data = type.startsWith('application/json') ? await response.json() : await response.blob();
  return {ok: response.ok, status: response.status, data};
}

// ---- one camera's tile ----------------------------------------------------------------
// The server sends each frame in the view shown: scaled to the canvas, or a canvas-sized
// region at full resolution for the 1:1 zoom. A change of view starts a new stream.

class Tile {
  constructor(index, serial) {
    this.index = index;
    this.element = $('tileTemplate').content.firstElementChild.cloneNode(true);
    this.element.dataset.camera = index;
    this.field('serial').textContent = serial;
    this.live = this.field('live');
    this.context = this.live.getContext('2d');
    this.bitmap = null;
    this.imageSize = null;  // the camera's frame size, from the stream's part headers
    this.zoomAt = null;     // image point at the canvas centre in 1:1 view, or null: fit
    this.shownFrames = 0;
    this.generation = 0;
    this.controller = null;
    this.decoding = false;
    this.waiting = null;
    this.live.addEventListener('click', (event) => this.toggleZoom(event));
    $('tiles').appendChild(this.element);
  }

  field(name) { return this.element.querySelector('.' + name); }

  sizeCanvas() {
    const ratio = window.devicePixelRatio || 1;
    const live = this.live;
    const w = Math.max(16, Math.round(live.clientWidth * ratio)), h = Math.max(16, Math.round(live.clientHeight * ratio));
    if (live.width !== w || live.height !== h) { live.width = w; live.height = h; }
  }

  fitRect() {
    const {live, imageSize} = this;
    const scale = Math.min(live.width / imageSize.width, live.height / imageSize.height, 1);
    const w = Math.round(imageSize.width * scale), h = Math.round(imageSize.height * scale);
    return {x: Math.round((live.width - w) / 2), y: Math.round((live.height - h) / 2), w, h, scale};
  }

  // The region of the 1:1 view: canvas-sized, around zoomAt, inside the image.
  zoomRegion() {
    const {live, imageSize, zoomAt} = this;
    const w = Math.min(live.width, imageSize.width), h = Math.min(live.height, imageSize.height);
    const x = Math.min(Math.max(Math.round(zoomAt.x - w / 2), 0), imageSize.width - w);
    const y = Math.min(Math.max(Math.round(zoomAt.y - h / 2), 0), imageSize.height - h);
    return {x, y, w, h};
  }

  viewQuery() {
    if (this.zoomAt && this.imageSize) {
      const r = this.zoomRegion();
      return `region=${r.x},${r.y},${Math.max(r.w, 16)},${Math.max(r.h, 16)}`;
    }
    return `fit=${this.live.width}x${this.live.height}`;
  }

  draw() {
    this.sizeCanvas();
    const {live, context, bitmap} = this;
    context.fillStyle = '#000';
    context.fillRect(0, 0, live.width, live.height);
    if (!bitmap || !this.imageSize) return;
    if (this.zoomAt) {
      context.drawImage(bitmap, Math.max(0, Math.round((live.width - bitmap.width) / 2)),
                        Math.max(0, Math.round((live.height - bitmap.height) / 2)));
    } else {
      const r = this.fitRect();
      context.drawImage(bitmap, r.x, r.y, r.w, r.h);
    }
  }

  restartStream() {
    ++this.generation;
    if (this.controller) this.controller.abort();
  }

  toggleZoom(event) {
    if (!this.imageSize) return;
    if (this.zoomAt) {
      this.zoomAt = null;
    } else {
      const ratio = window.devicePixelRatio || 1;
      const r = this.fitRect();
      this.zoomAt = {x: (event.offsetX * ratio - r.x) / r.scale, y: (event.offsetY * ratio - r.y) / r.scale};
    }
    this.live.classList.toggle('zoomed', this.zoomAt !== null);
    this.restartStream();
  }

  // Decodes only the newest frame: while one decodes, later ones replace each other.
  async show(part) {
    if (this.decoding) { this.waiting = part; return; }
    this.decoding = true;
    try {
      const next = await createImageBitmap(new Blob([part.jpeg], {type: 'image/jpeg'}));
      if (part.generation !== this.generation) {
        next.close();  // a frame of the view before
      } else {
        if (this.bitmap) this.bitmap.close();
        this.bitmap = next;
        this.imageSize = part.size;
        ++this.shownFrames;
        ++window.viewCounters.shown;
        this.live.dataset.stamp = part.stamp;
        this.live.dataset.view = part.view;
        this.field('stamp').textContent = part.stamp;
        this.draw();
      }
    } finally {
      this.decoding = false;
    }
    if (this.waiting) { const w = this.waiting; this.waiting = null; this.show(w); }
  }

  // Parts: "--frame\r\n" headers with Content-Length, X-Frame-Stamp and X-Frame-Size, a
  // blank line, the JPEG, "\r\n". The length is read from the headers, so the JPEG is
  // never scanned.
  async readStream() {
    this.sizeCanvas();
    const mine = this.generation;
    const view = this.viewQuery();
    this.controller = new AbortController();
    const response = await fetch(withToken(forCamera('/stream?' + view, this.index)),
                                 {cache: 'no-store', signal: this.controller.signal});
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
        this.show({jpeg: buffer.slice(start, start + length), stamp, size: {width, height}, generation: mine, view});
        buffer = buffer.slice(start + length + 2);
      }
    }
  }

  async keepStreaming() {
    for (;;) {
      try {
        await this.readStream();
      } catch (error) {
        if (error.name === 'AbortError') continue;  // a new view was asked for
        this.field('lastFailure').textContent = String(error.message || error);
      }
      await new Promise((resolve) => setTimeout(resolve, 1000));
    }
  }

  drawHistogram(bins) {
    const histogram = this.field('histogram');
    const g = histogram.getContext('2d');
    g.clearRect(0, 0, histogram.width, histogram.height);
    const top = Math.log1p(Math.max(...bins));
    for (let i = 0; i < bins.length; ++i) {
      const h = top > 0 ? Math.log1p(bins[i]) / top * histogram.height : 0;
      g.fillStyle = i === 255 ? '#ff5252' : '#9fb3c8';
      g.fillRect(i, histogram.height - h, 1, h);
    }
  }

  async pollStatus() {
    try {
      const {ok, data} = await call('GET', forCamera('/api/status', this.index));
      if (ok) {
        this.field('cameraFps').textContent = data.cameraFps.toFixed(1);
        this.field('failures').textContent = data.failures;
        this.field('missing').textContent = data.missing;
        this.field('lastFailure').textContent = data.lastFailure;
        if (data.histogram) {
          this.drawHistogram(data.histogram);
          this.field('saturated').textContent = (data.saturatedShare * 100).toFixed(2) + ' %';
          this.field('format').textContent = data.width + ' × ' + data.height;
        }
      }
    } catch (error) {
      this.field('lastFailure').textContent = 'status: ' + (error.message || error);
    }
    setTimeout(() => this.pollStatus(), 500);
  }

}

function indexOfBlankLine(bytes) {
  for (let i = 0; i + 3 < bytes.length && i < 1024; ++i)
    if (bytes[i] === 13 && bytes[i + 1] === 10 && bytes[i + 2] === 13 && bytes[i + 3] === 10) return i;
  return -1;
}

window.viewCounters = {received: 0, shown: 0};
const tiles = [];

let resizeTimer = null;
window.addEventListener('resize', () => {
  for (const tile of tiles) tile.draw();
  clearTimeout(resizeTimer);
  resizeTimer = setTimeout(() => { for (const tile of tiles) tile.restartStream(); }, 200);
});
setInterval(() => {
  for (const tile of tiles) tile.field('shownFps').textContent = String(tile.shownFrames);
  for (const tile of tiles) tile.shownFrames = 0;
}, 1000);

$('markSaturated').addEventListener('change', (event) => {
  call('POST', '/api/overlay?saturated=' + (event.target.checked ? 1 : 0));
});

// ---- controls -------------------------------------------------------------------------

let controls = [];

// One control per writable setting: a number field, or a list of the accepted words. A
// row may carry min, max and increment where the camera's backend knows them.
function buildControl(setting) {
  const control = document.createElement('div');
  control.className = 'control';
  control.dataset.key = setting.key;
  const label = Object.assign(document.createElement('label'), {textContent: setting.label});
  let input;
  if (setting.kind === 'number') {
    input = document.createElement('input');
    input.type = 'number';
    input.step = setting.increment ?? 'any';
    if (setting.min !== undefined) input.min = setting.min;
    if (setting.max !== undefined) input.max = setting.max;
  } else {
    input = document.createElement('select');
    for (const word of setting.words) input.add(new Option(word, word));
  }
  const kept = Object.assign(document.createElement('span'), {className: 'kept'});
  control.append(label, input, kept, Object.assign(document.createElement('div'), {className: 'refusal'}));
  input.addEventListener('change', () => change(control));
  return control;
}

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
}

async function change(control) {
  const key = control.dataset.key;
  const input = control.querySelector('input, select');
  const value = input.tagName === 'SELECT' ? input.value : Number(input.value);
  const refusal = control.querySelector('.refusal');
  refusal.textContent = '';
  control.classList.add('busy');
  try {
    const {ok, data} = await call('POST', forCamera('/api/settings'),
                                  JSON.stringify({[key]: input.value === '' ? '' : value}));
    if (data.settings) showKept(data.settings, false);
    if (!ok) refusal.textContent = data.error;
    else if (data.refusals.length) refusal.textContent = data.refusals.join(' · ');
  } catch (error) {
    refusal.textContent = String(error.message || error);
  } finally {
    control.classList.remove('busy');
  }
}

async function loadCurrentSettings() {
  for (const control of controls) control.querySelector('.refusal').textContent = '';
  const {ok, data} = await call('GET', forCamera('/api/settings'));
  if (ok) showKept(data.settings, true);
}

// The still, the sequence and the settings file follow the chosen camera.
function chooseCamera(index) {
  chosen = index;
  $('still').href = withToken(forCamera('/api/still.png'));
  $('saveSettings').href = withToken(forCamera('/api/settings/file'));
  loadCurrentSettings();
}

// ---- capture and settings files -------------------------------------------------------

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
    const {ok, data} = await call('POST', forCamera('/api/sequence?count=' + encodeURIComponent(count)));
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
    const {ok, data} = await call('POST', forCamera('/api/settings/file'), await file.text());
    if (data.settings) showKept(data.settings, true);
    if (!ok) message('fileMessage', data.error, true);
    else if (data.refusals.length) message('fileMessage', data.refusals.join(' · '), true);
    else message('fileMessage', 'applied ' + file.name);
  } catch (error) {
    message('fileMessage', String(error.message || error), true);
  }
  event.target.value = '';
});

$('camera').addEventListener('change', (event) => chooseCamera(Number(event.target.value)));

// The cameras and the settings come from the server; then every tile starts.
async function start() {
  try {
    const [cameras, settings] = await Promise.all([call('GET', '/api/cameras'), call('GET', '/api/controls')]);
    if (!cameras.ok || !settings.ok) throw new Error(cameras.data.error || settings.data.error);
    controls = settings.data.controls.filter((setting) => setting.writable).map(buildControl);
    $('controls').append(...controls);
    cameras.data.cameras.forEach(({serial}, index) => {
      tiles.push(new Tile(index, serial));
      $('camera').add(new Option(serial, index));
    });
    $('cameraChoice').hidden = tiles.length < 2;
    document.body.classList.toggle('several', tiles.length > 1);
    chooseCamera(0);
    for (const tile of tiles) {
      tile.pollStatus();
      tile.keepStreaming();
    }
  } catch (error) {
    $('pageMessage').textContent = 'the view could not start: ' + (error.message || error);
  }
}

start();
