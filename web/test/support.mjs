// What the viewer's browser tests share: the paths of the built page and
// programs, the files they make from the committed frames (tests/data), the
// references the commands decode, and a headless Debian chromium driven by
// puppeteer-core.
import { execFileSync } from 'node:child_process';
import fs from 'node:fs';
import os from 'node:os';
import path from 'node:path';
import { fileURLToPath } from 'node:url';
import puppeteer from 'puppeteer-core';

export const root = path.resolve(path.dirname(fileURLToPath(import.meta.url)), '../..');
const buildDir = path.resolve(root, process.env.PELCAST_BUILD_DIR || 'build/release');
export const pelcast = path.join(buildDir, 'pelcast');
export const helper = path.join(buildDir, 'web/pelcast-web-helper');
export const zpakCommand = path.join(buildDir, 'tools/zpak/zpak');
export const pageUrl = `file://${path.join(root, 'build/web/index.html')}`;
export const testData = path.join(root, 'tests/data');
export const workDir = path.join(root, 'build/web-test');
export const screenshotDir = path.join(workDir, 'screenshots');
// PELCAST_DOC_SCREENSHOTS=1 also writes the documentation's pictures.
export const docImages = process.env.PELCAST_DOC_SCREENSHOTS ? path.join(root, 'docs/images') : null;

const chromium = process.env.PELCAST_CHROMIUM || '/usr/bin/chromium';
// Flags that work as root on a machine with no network: no sandbox, no
// GPU, and none of the browser's own background traffic.
const chromiumFlags = [
  '--headless', '--no-sandbox', '--disable-gpu', '--disable-quic', '--no-first-run',
  '--disable-background-networking', '--disable-component-update', '--disable-sync',
];
export const viewport = { width: 1400, height: 860 };

export const FORMAT_COMMANDS = {
  nv12: { encode: 'N', decode: 'U' }, rgba8888: { encode: 'H', decode: 'G' }, rgb565: { decode: 'B' },
};

export function freshWorkDir() {
  fs.rmSync(workDir, { recursive: true, force: true });
  fs.mkdirSync(screenshotDir, { recursive: true });
}

export function run(program, args) {
  return execFileSync(program, args, { cwd: workDir, encoding: 'utf8', maxBuffer: 64 << 20 });
}

// Encodes a linear file to ZPAK: pelcast N or H, or the helper for RGB565
// (no pelcast command encodes it).
export function encode(format, width, height, linearPath, zpakName) {
  const out = path.resolve(workDir, zpakName);
  const command = FORMAT_COMMANDS[format].encode;
  if (command) run(pelcast, [command, linearPath, out, String(width), String(height)]);
  else run(helper, ['encode', format, String(width), String(height), linearPath, out]);
  if (!fs.existsSync(out)) throw new Error(`${zpakName} was not written`);
  return out;
}

// The frames the pelcast decode command (U, G or B) makes of a ZPAK file.
export function decodeWithCommand(format, width, height, zpakPath) {
  const out = `${zpakPath}.${FORMAT_COMMANDS[format].decode}.out`;
  run(pelcast, [FORMAT_COMMANDS[format].decode, zpakPath, out, String(width), String(height)]);
  return fs.readFileSync(out);
}

// How every tile of one frame is stored, from the native library.
export function nativeTiles(format, width, height, zpakPath, frame) {
  return JSON.parse(run(helper, ['tiles', format, String(width), String(height), zpakPath, String(frame)]));
}

// The plane figures of every frame as `zpak info --json` gives them, in the
// shape of the page's stats(): [[{plane, tiles, units, ...}, ...], ...].
export function zpakInfo(format, width, height, zpakPath) {
  const info = JSON.parse(run(zpakCommand, ['info', '--json', format, zpakPath, String(width), String(height)]));
  return info.frames.map((f) => f.planes.filter((p) => p.plane !== 'all').map((p) => ({
    plane: p.plane, tiles: p.tiles, units: p.units, raw_units: p.raw_units,
    by_units: [p.tiles_by_units['1'], p.tiles_by_units['2'], p.tiles_by_units['3']],
    raw: p.tiles_by_units.raw, bad_metadata: p.tiles_by_units.bad_metadata, overrun: p.overrun_tiles,
  })));
}

export function linearFrameBytes(format, width, height) {
  const chromaRows = Math.floor((height + 1) / 2);
  if (format === 'nv12') return width * height + (width + (width & 1)) * chromaRows;
  return width * height * (format === 'rgba8888' ? 4 : 2);
}

// The samples at (x, y) of frame `frame` of a packed linear file, as the
// viewer's pixel() gives them; null where a short file (pelcast U's odd
// sizes) does not reach.
export function expectedSamples(bytes, format, width, height, frame, x, y) {
  const base = frame * linearFrameBytes(format, width, height);
  const at = (offset) => (base + offset < bytes.length ? bytes[base + offset] : null);
  let values;
  if (format === 'nv12') {
    const pair = width * height + Math.floor(y / 2) * (width + (width & 1)) + Math.floor(x / 2) * 2;
    values = [at(y * width + x), at(pair), at(pair + 1)];
  } else if (format === 'rgba8888') {
    const p = (y * width + x) * 4;
    values = [at(p), at(p + 1), at(p + 2), at(p + 3)];
  } else {
    const p = (y * width + x) * 2;
    const word = at(p) === null || at(p + 1) === null ? null : at(p) | (at(p + 1) << 8);
    values = word === null ? [null] : [word >> 11, (word >> 5) & 0x3f, word & 0x1f];
  }
  return values.includes(null) ? null : values;
}

// Points spread over the picture: a grid, the corners and edges, and
// pseudo-random ones (the same every run).
export function samplePoints(width, height, count = 160) {
  const points = [[0, 0], [width - 1, 0], [0, height - 1], [width - 1, height - 1]];
  const across = 12;
  const down = 8;
  for (let i = 0; i < across; i++) {
    for (let j = 0; j < down; j++) {
      points.push([Math.floor(((i + 0.5) * width) / across), Math.floor(((j + 0.5) * height) / down)]);
    }
  }
  let seed = 12345;
  while (points.length < count) {
    seed = (seed * 1103515245 + 12345) % 2147483648;
    const x = seed % width;
    seed = (seed * 1103515245 + 12345) % 2147483648;
    points.push([x, seed % height]);
  }
  return points;
}

export async function launch() {
  const profile = fs.mkdtempSync(path.join(os.tmpdir(), 'pelcast-viewer-profile-'));
  const browser = await puppeteer.launch({
    executablePath: chromium, userDataDir: profile, args: chromiumFlags, defaultViewport: viewport,
  });
  const close = async () => {
    await browser.close();
    fs.rmSync(profile, { recursive: true, force: true });
  };
  return { browser, close };
}

// A fresh page with the viewer loaded; page errors fail the test that
// reads them from `errors`.
export async function openViewer(browser) {
  const page = await browser.newPage();
  const errors = [];
  page.on('pageerror', (error) => errors.push(error.message));
  page.on('console', (message) => {
    if (message.type() === 'error') errors.push(message.text());
  });
  await page.goto(pageUrl);
  await page.waitForFunction(() => window.pelcastViewer && window.pelcastViewer.version() !== null);
  return { page, errors };
}

export async function idle(page) {
  await page.evaluate(() => window.pelcastViewer.idle());
}

export async function openFile(page, filePath, inputId = 'file') {
  const input = await page.$(`#${inputId}`);
  await input.uploadFile(filePath);
  await idle(page);
}

// Sets a control's value as a person would and lets the page follow.
export async function setControl(page, id, value) {
  await page.evaluate((elementId, v) => {
    const element = document.getElementById(elementId);
    if (element.type === 'checkbox') element.checked = v;
    else element.value = String(v);
    element.dispatchEvent(new Event('input', { bubbles: true }));
  }, id, value);
  await idle(page);
}

export async function pixels(page, points) {
  return page.evaluate((list) => list.map(([x, y]) => window.pelcastViewer.pixel(x, y)), points);
}

export async function screenshot(page, name) {
  const file = path.join(screenshotDir, name);
  await page.screenshot({ path: file });
  if (docImages) fs.copyFileSync(file, path.join(docImages, name));
  return file;
}
