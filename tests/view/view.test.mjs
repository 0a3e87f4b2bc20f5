// Starts `teli-grab view` on the simulated rig and drives its page in headless chromium:
// the live image updates and zooms, an exposure change reaches the camera and its read-back
// shows, a refused value shows the driver's text, settings files save and load, the still
// is a PNG, a sequence of 12 shows its contact sheet, bad input is refused, off
// 127.0.0.1 a request without the token is refused and changes nothing, and two cameras
// show side by side, each streaming with its own rate and histogram. Every server is stopped by its pid with SIGINT, killed if it lingers.
// Usage: node view.test.mjs TELI_GRAB ARTIFACT_DIR CHROMIUM
import {spawn} from 'node:child_process';
import {mkdirSync, mkdtempSync, rmSync, writeFileSync} from 'node:fs';
import http from 'node:http';
import net from 'node:net';
import {tmpdir} from 'node:os';
import path from 'node:path';
import puppeteer from 'puppeteer-core';

const [teliGrab, artifacts, chromium] = process.argv.slice(2);
const STOP_MS = 10000;
const failures = [];

function check(condition, what) {
  console.log(`${condition ? 'ok  ' : 'FAIL'} ${what}`);
  if (!condition) failures.push(what);
}

// teli-grab view on the simulated rig; resolves once it prints its address.
function startView(listen, more = []) {
  const child = spawn(teliGrab, ['--sdk', 'sim', '--mode', 'gray', 'view', '--listen', listen, ...more],
                      {stdio: ['ignore', 'pipe', 'pipe']});
  let output = '';
  child.stderr.on('data', (d) => process.stderr.write(d));
  const exited = new Promise((resolve) => child.on('exit', (code, signal) => resolve({code, signal})));
  const url = new Promise((resolve, reject) => {
    const timer = setTimeout(() => reject(new Error('teli-grab view printed no address: ' + output)), 30000);
    child.stdout.on('data', (d) => {
      output += d;
      const match = /(http:\/\/\S+)/.exec(output);
      if (match) { clearTimeout(timer); resolve(new URL(match[1])); }
    });
    exited.then(({code}) => reject(new Error(`teli-grab view ended (${code}) before serving: ${output}`)));
  });
  return {child, url, exited, output: () => output};
}

// SIGINT as Ctrl-C would send; SIGKILL when it does not end in time.
async function stopView(view, label, stopped = /stopped after \d+ frames/) {
  if (view.child.exitCode !== null || view.child.signalCode !== null) return;
  view.child.kill('SIGINT');
  const result = await Promise.race([view.exited, new Promise((r) => setTimeout(() => r(null), STOP_MS))]);
  if (!result) {
    view.child.kill('SIGKILL');
    await view.exited;
  }
  check(result && result.code === 0,
        `${label}: Ctrl-C ends teli-grab view with exit code 0 within ${STOP_MS} ms (${JSON.stringify(result)})`);
  check(stopped.test(view.output()), `${label}: it reports how it stopped`);
}

async function api(base, method, route, body) {
  const response = await fetch(new URL(route, base), {method, body});
  const text = await response.text();
  let json = null;
  try { json = JSON.parse(text); } catch { /* not JSON */ }
  return {status: response.status, json, text};
}

// A request as curl -X POST or -F sends it (no Content-Length, or a form), written on a
// connection of its own as given; resolves with the status and the body.
function rawRequest(base, method, route, headers, body) {
  return new Promise((resolve, reject) => {
    const socket = net.connect(Number(base.port), base.hostname);
    let reply = '';
    socket.setEncoding('utf8');
    socket.on('data', (d) => { reply += d; });
    socket.on('error', reject);
    socket.on('end', () => {
      const split = reply.indexOf('\r\n\r\n');
      resolve({status: Number((/^HTTP\/1\.1 (\d+)/.exec(reply) || [])[1]), text: reply.slice(split + 4)});
    });
    // Not half-closed: httplib drops a request whose client has shut its side.
    socket.write(`${method} ${route} HTTP/1.1\r\nHost: ${base.host}\r\n${headers}Connection: close\r\n\r\n${body}`);
  });
}

const numberIn = (page, selector) => page.$eval(selector, (e) => Number(e.textContent));
const tile = (index, field) => `.tile[data-camera="${index}"] .${field}`;

// Waits until the tile of camera `index` has drawn two different frames.
async function tileUpdates(page, index) {
  const live = tile(index, 'live');
  // The tiles are built once the server has listed the cameras and the controls: a
  // predicate that threw on a missing tile would end the page's polling for good.
  await page.waitForSelector(live, {timeout: 20000});
  await page.waitForFunction((s) => Number(document.querySelector(s).dataset.stamp) > 0, {timeout: 20000}, live);
  const first = await page.$eval(live, (e) => Number(e.dataset.stamp));
  await page.waitForFunction((s, f) => Number(document.querySelector(s).dataset.stamp) !== f, {timeout: 20000},
                             live, first);
  return [first, await page.$eval(live, (e) => Number(e.dataset.stamp))];
}

async function setControl(page, key, value) {
  await page.$eval(`.control[data-key="${key}"] input, .control[data-key="${key}"] select`, (input, v) => {
    input.value = v;
    input.dispatchEvent(new Event('change'));
  }, String(value));
}

async function keptAfter(page, key, expected) {
  const selector = `.control[data-key="${key}"] .kept`;
  await page.waitForFunction((s, text) => document.querySelector(s).textContent === text, {timeout: 15000},
                             selector, `kept: ${expected}`);
  return page.$eval(selector, (e) => e.textContent);
}

async function livePage(view) {
  const base = await view.url;
  const userDataDir = mkdtempSync(path.join(tmpdir(), 'teli-view-chromium-'));
  const browser = await puppeteer.launch({
    executablePath: chromium,
    headless: true,
    userDataDir,
    args: ['--no-sandbox', '--disable-gpu', '--disable-quic', '--no-first-run', '--disable-background-networking',
           '--disable-component-update', '--disable-sync'],
  });
  const page = await browser.newPage();
  // The page must fetch nothing but its own server.
  const foreign = [];
  await page.setRequestInterception(true);
  page.on('request', (request) => {
    if (new URL(request.url()).origin === base.origin) return request.continue();
    foreign.push(request.url());
    return request.abort();
  });
  page.on('pageerror', (error) => failures.push('page error: ' + error.message));
  await page.setViewport({width: 1440, height: 900});
  await page.goto(base.href);
  return {base, browser, page, foreign, userDataDir};
}

async function liveViewCase() {
  const view = startView('127.0.0.1:0');
  let session = null;
  try {
    const base = await view.url;
    check(base.hostname === '127.0.0.1' && !base.searchParams.has('token'), 'on 127.0.0.1 no token is asked for');
    session = await livePage(view);
    const {page} = session;

    // Two different frame stamps on the drawn image.
    const [first, second] = await tileUpdates(page, 0);
    check(second !== first, `the image updates (frame stamps ${first} then ${second})`);

    // A click shows the image 1:1 around that point; a second click fits it again.
    const live = tile(0, 'live');
    const box = await (await page.$(live)).boundingBox();
    await page.mouse.click(box.x + box.width / 2, box.y + box.height / 2);
    await page.waitForFunction((s) => /^region=\d+,\d+,\d+,\d+$/.test(document.querySelector(s).dataset.view),
                               {timeout: 20000}, live);
    check(true, `a click shows the image 1:1 (${await page.$eval(live, (e) => e.dataset.view)})`);
    await page.mouse.click(box.x + box.width / 2, box.y + box.height / 2);
    await page.waitForFunction((s) => /^fit=/.test(document.querySelector(s).dataset.view), {timeout: 20000}, live);

    // The controls are the server's list of writable settings, with its words.
    const served = (await api(base, 'GET', '/api/controls')).json.controls.filter((c) => c.writable);
    const built = await page.$$eval('.control', (list) => list.map((c) => [c.dataset.key,
        [...c.querySelectorAll('option')].map((o) => o.value).join(',')]));
    check(JSON.stringify(built) === JSON.stringify(served.map((c) => [c.key, c.words.join(',')])),
          `the page's controls are the settings the server lists (${built.map((c) => c[0]).join(', ')})`);
    // The rig's exposure range bounds its field.
    const exposure = served.find((c) => c.key === 'ExposureTime');
    const field = await page.$eval('[data-key="ExposureTime"] input', (e) => [e.min, e.max, e.step].join(' '));
    check(exposure.min === 20 && exposure.max === 1000000 && field === '20 1000000 1',
          `the exposure field carries the camera's range (${field})`);

    // An exposure change reaches the camera; the page shows what the camera kept.
    await page.waitForFunction(() => document.querySelector('[data-key="ExposureTime"] .kept').textContent !== '');
    await setControl(page, 'ExposureTime', 4321);
    check(await keptAfter(page, 'ExposureTime', 4321) === 'kept: 4321', 'the page shows the exposure read back');
    const camera = await api(base, 'GET', '/api/settings');
    check(camera.json.settings.ExposureTime === 4321, 'the camera holds the new exposure');
    // The rig stores balance ratios on a 1/64 grid: the page shows the stored value.
    await setControl(page, 'RedBalance', 1.3);
    check(await keptAfter(page, 'RedBalance', 1.296875) === 'kept: 1.296875',
          'a balance ratio shows the value the camera kept, not the one asked for');
    // Settings saved as `teli-grab settings` prints them load back through the page.
    const saved = await api(base, 'GET', '/api/settings/file');
    const edited = JSON.parse(saved.text);
    check(edited.ExposureTime === 4321 && edited.Camera.TriggerType === 'Hardware',
          'the saved settings file holds the camera\'s settings');
    edited.ExposureTime = 7777;
    const file = path.join(mkdtempSync(path.join(tmpdir(), 'teli-view-settings-')), 'camera.json');
    writeFileSync(file, JSON.stringify(edited));
    await (await page.$('#loadSettings')).uploadFile(file);
    check(await keptAfter(page, 'ExposureTime', 7777) === 'kept: 7777', 'a loaded settings file reaches the camera');
    rmSync(path.dirname(file), {recursive: true, force: true});
    await setControl(page, 'ExposureTime', 4321);
    await keptAfter(page, 'ExposureTime', 4321);

    // An exposure below the camera's range is refused by the driver, with its text.
    await setControl(page, 'ExposureTime', 5);
    await page.waitForFunction(
        () => document.querySelector('[data-key="ExposureTime"] .refusal').textContent !== '', {timeout: 15000});
    check(await page.$eval('[data-key="ExposureTime"] .refusal', (e) => e.textContent) ===
              'Failed to set camera exposure',
          'a refused exposure shows the driver\'s text');
    check(await page.$eval('[data-key="ExposureTime"] .kept', (e) => e.textContent) === 'kept: 4321',
          'after a refusal the camera\'s value is shown unchanged');

    // The still is a full-size PNG.
    const still = Buffer.from(await (await fetch(new URL('/api/still.png', base))).arrayBuffer());
    check(still.subarray(1, 4).toString() === 'PNG' && still.readUInt32BE(16) === 1920 && still.readUInt32BE(20) === 1200,
          'the still is a 1920 x 1200 PNG');

    // A sequence of 12 as a contact sheet: 4 columns x 3 rows of 240 x 150 thumbnails.
    await page.$eval('#sequenceCount', (e) => { e.value = '12'; });
    await page.click('#sequence');
    await page.waitForFunction(() => {
      const sheet = document.getElementById('sheet');
      return (sheet.dataset.count === '12' && sheet.complete && sheet.naturalWidth > 0) ||
             document.getElementById('sequenceMessage').classList.contains('error');
    }, {timeout: 30000});
    const sequenceMessage = await page.$eval('#sequenceMessage', (e) => e.textContent);
    const sheet = await page.$eval('#sheet', (e) => [e.naturalWidth, e.naturalHeight]);
    check(sheet[0] === 4 * 244 + 4 && sheet[1] === 3 * 154 + 4,
          `a sequence of 12 shows a contact sheet of 4 x 3 (${sheet[0]} x ${sheet[1]} pixels; ${sequenceMessage})`);
    check(await page.$eval('#sheetPanel', (e) => !e.hidden), 'the contact sheet is visible');

    // Bad input is refused with a reason and the server goes on.
    const bad = [
      ['POST', '/api/settings', '{"Shutter": 1}', /unknown setting 'Shutter'/],
      ['POST', '/api/settings', '{"Camera/Gain": "loud"}', /Camera\/Gain must be a number/],
      ['POST', '/api/settings', '{"Camera/TriggerType": "Sometimes"}', /must be one of Hardware, Software, NoTrigger/],
      ['POST', '/api/settings', 'not json', /expected a JSON object/],
      ['POST', '/api/sequence?count=0', '', /whole number from 1 to 120/],
      ['POST', '/api/sequence?count=121', '', /whole number from 1 to 120/],
      ['POST', '/api/settings/file', '{"Lens": {"MaxIris": 2}}', /none of the camera's settings/],
      ['GET', '/api/status?camera=1', undefined, /camera must be a whole number from 0 to 0, got '1'/],
      // Sent raw: a plain POST has no Content-Length; a route without a body runs anyway.
      ['POST', '/api/settings', '', /needs a JSON body with its length/, ''],
      ['POST', '/api/sequence?count=0', '', /whole number from 1 to 120/, ''],
      ['POST', '/api/settings', '--b\r\nContent-Disposition: form-data; name="f"\r\n\r\n{}\r\n--b--\r\n',
       /not a form/, 'Content-Type: multipart/form-data; boundary=b\r\nContent-Length: 60\r\n'],
    ];
    for (const [method, route, body, reason, rawHeaders] of bad) {
      const reply = rawHeaders !== undefined ? await rawRequest(base, method, route, rawHeaders, body)
                                             : await page.evaluate(async (m, r, b) => {
        const response = await fetch(r, {method: m, body: b});
        return {status: response.status, text: await response.text()};
      }, method, route, body);
      check(reply.status === 400 && reason.test(reply.text), `${route} ${body || ''}: refused (${reply.text})`);
    }
    check((await api(base, 'GET', '/api/status')).status === 200, 'the server still answers after bad input');

    // Without a token, requests another web page (or a rebound host name) makes are refused.
    for (const headers of [{Origin: 'http://example.invalid'}, {Host: 'example.invalid'}]) {
      const status = await new Promise((resolve, reject) => {
        const request = http.request(new URL('/api/settings', base), {method: 'POST', headers}, (response) => {
          response.resume();
          resolve(response.statusCode);
        });
        request.on('error', reject);
        request.end('{"ExposureTime": 100}');
      });
      check(status === 403, `a request with ${JSON.stringify(headers)}: 403`);
    }
    check((await api(base, 'GET', '/api/settings')).json.settings.ExposureTime === 4321,
          'the refused cross-site change did not reach the camera');

    // The picture for the README: saturated pixels marked, the sheet open.
    await setControl(page, 'Camera/Gain', 6);
    await keptAfter(page, 'Camera/Gain', 6);
    await page.click('#markSaturated');
    await new Promise((resolve) => setTimeout(resolve, 3000));
    const shown = await numberIn(page, tile(0, 'shownFps'));
    const cameraRate = await numberIn(page, tile(0, 'cameraFps'));
    console.log(`note: the page showed ${shown} frames per second; the camera delivered ${cameraRate}`);
    mkdirSync(artifacts, {recursive: true});
    await page.screenshot({path: path.join(artifacts, 'view.png')});
    console.log(`screenshot: ${path.join(artifacts, 'view.png')}`);
    check(session.foreign.length === 0, `the page fetches nothing elsewhere (${session.foreign.join(', ')})`);
  } finally {
    if (session) {
      await session.browser.close();
      rmSync(session.userDataDir, {recursive: true, force: true});
    }
    await stopView(view, 'loopback');
  }
}

// Any address but 127.0.0.1 needs the token; 127.0.0.2 is such an address on loopback.
async function tokenCase() {
  const view = startView('127.0.0.2:0');
  try {
    const printed = await view.url;
    const token = printed.searchParams.get('token');
    check(/^[0-9a-f]{32}$/.test(token || ''), 'off 127.0.0.1 a random token is printed at start');
    const bare = new URL(printed.origin);
    const wrong = (route) => `${route}${route.includes('?') ? '&' : '?'}token=${'0'.repeat(32)}`;
    for (const [method, route, body] of [['GET', '/', undefined], ['GET', '/stream', undefined],
                                         ['POST', '/api/settings', '{"ExposureTime": 777}'],
                                         ['POST', wrong('/api/settings'), '{"ExposureTime": 777}'],
                                         ['POST', '/api/sequence?count=3', '']]) {
      const reply = await api(bare, method, route, body);
      check(reply.status === 403, `${method} ${route} without the right token: 403`);
    }
    // A second view on the same address is refused, not sharing the port.
    const second = startView(`${printed.hostname}:${printed.port}`);
    second.url.catch(() => {});
    const secondEnd = await Promise.race([second.exited, new Promise((r) => setTimeout(() => r(null), 30000))]);
    if (!secondEnd) await stopView(second, 'second view');
    check(secondEnd && secondEnd.code === 1, 'a second view on a port in use ends with exit code 1');

    const settings = await api(bare, 'GET', `/api/settings?token=${token}`);
    check(settings.status === 200 && settings.json.settings.ExposureTime === 8333,
          'with the token: answered, and the refused change did not reach the camera');
  } finally {
    await stopView(view, 'token');
  }
}

// `--all` on the default rig: SIM0001 and SIM0002 side by side, each streaming with its
// rate and histogram; the controls act on the camera chosen beside them.
async function twoCameraCase() {
  const view = startView('127.0.0.1:0', ['--all']);
  let session = null;
  try {
    session = await livePage(view);
    const {base, page} = session;
    await page.waitForFunction(() => document.querySelectorAll('.tile').length === 2, {timeout: 20000});
    for (const index of [0, 1]) {
      const serial = await page.$eval(tile(index, 'serial'), (e) => e.textContent);
      const [first, second] = await tileUpdates(page, index);
      await page.waitForFunction((s) => Number(document.querySelector(s).textContent) > 0, {timeout: 20000},
                                 tile(index, 'cameraFps'));
      await page.waitForFunction((s) => document.querySelector(s).textContent !== '–', {timeout: 20000},
                                 tile(index, 'format'));
      const status = (await api(base, 'GET', `/api/status?camera=${index}`)).json;
      check(serial === `SIM000${index + 1}` && status.serial === serial && status.histogram.length === 256 &&
                second !== first,
            `camera ${index} (${serial}) streams in its own tile (frames ${first} then ${second}), with its rate ` +
            `(${await page.$eval(tile(index, 'cameraFps'), (e) => e.textContent)} fps) and histogram`);
    }
    const boxes = await Promise.all([0, 1].map(async (i) => (await page.$(tile(i, 'live'))).boundingBox()));
    check(boxes[1].x >= boxes[0].x + boxes[0].width && Math.abs(boxes[1].y - boxes[0].y) < 1,
          'the two cameras are side by side');

    // The controls follow the camera chosen: an exposure for SIM0002 leaves SIM0001 as it was.
    await page.select('#camera', '1');
    await page.waitForFunction(() => document.querySelector('[data-key="ExposureTime"] .kept').textContent !== '');
    await setControl(page, 'ExposureTime', 2468);
    await keptAfter(page, 'ExposureTime', 2468);
    const exposures = await Promise.all([0, 1].map(async (i) =>
      (await api(base, 'GET', `/api/settings?camera=${i}`)).json.settings.ExposureTime));
    check(exposures[0] === 8333 && exposures[1] === 2468,
          `a change reaches the chosen camera only (exposures ${exposures.join(', ')})`);
    mkdirSync(artifacts, {recursive: true});
    await page.screenshot({path: path.join(artifacts, 'view-two-cameras.png')});
  } finally {
    if (session) {
      await session.browser.close();
      rmSync(session.userDataDir, {recursive: true, force: true});
    }
    await stopView(view, 'two cameras', /SIM0001 stopped after \d+ frames[^]*SIM0002 stopped after \d+ frames/);
  }
}

try {
  await liveViewCase();
  await tokenCase();
  await twoCameraCase();
} catch (error) {
  failures.push(String(error.stack || error));
}
if (failures.length) {
  console.error(`${failures.length} failure(s):\n  ${failures.join('\n  ')}`);
  process.exit(1);
}
console.log('all checks passed');
