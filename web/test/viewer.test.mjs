// The viewer in a real browser (Debian's chromium, headless): the committed
// frames of every format opened as ZPAK and as linear files, identify's
// guess, pixel() against the pelcast commands' decoded frames, tile info
// under the pointer against the native library, frame stepping, zoom and
// pan, comparison figures, and the screenshots of the documentation.
import assert from 'node:assert/strict';
import fs from 'node:fs';
import path from 'node:path';
import { after, before, describe, test } from 'node:test';
import {
  decodeWithCommand, docImages, encode, expectedSamples, freshWorkDir, idle, launch, linearFrameBytes,
  nativeTiles, openFile, openViewer, pixels, root, samplePoints, screenshot, setControl, testData, workDir,
  zpakInfo,
} from './support.mjs';

// The page's plane figures without the ratio (zpak info rounds it otherwise).
const withoutRatio = (stats) => stats.map(({ ratio, ...rest }) => rest);

// ZPAK files made from the committed frames. `name` is the file's name in the
// page (identify reads sizes in names, so most carry none); `guessed` is
// whether identify must rank the true format and size first.
const ZPAK_CASES = [
  { source: 'photo-meadow-256x144.nv12', format: 'nv12', width: 256, height: 144, name: 'capture-a.zpak', frames: 1, guessed: true },
  { source: 'screen-messages-256x144.rgba', format: 'rgba8888', width: 256, height: 144, name: 'ui-layer.zpak', frames: 1, guessed: true },
  { source: 'photo-mountains-256x144.rgb565', format: 'rgb565', width: 256, height: 144, name: 'panel_256x144.zpak', frames: 1, guessed: true },
  { source: 'photo-mountains-97x61.nv12', format: 'nv12', width: 97, height: 61, name: 'rock.zpak', frames: 1, guessed: true },
  { source: 'screen-navbar-133x75.rgba', format: 'rgba8888', width: 133, height: 75, name: 'navbar.zpak', frames: 1, guessed: true },
  { source: 'screen-navbar-133x75.rgb565', format: 'rgb565', width: 133, height: 75, name: 'navbar-565.zpak', frames: 1, guessed: true },
  { source: 'pan-hillside-192x108-4f.nv12', format: 'nv12', width: 192, height: 108, name: 'pan.zpak', frames: 4, guessed: true },
];

// Committed linear frames opened as they are: format from the extension,
// size from the name.
const LINEAR_CASES = [
  { source: 'screen-player-256x144.rgba', format: 'rgba8888', width: 256, height: 144, frames: 1 },
  { source: 'photo-mountains-97x61.nv12', format: 'nv12', width: 97, height: 61, frames: 1 },
  { source: 'screen-messages-256x144.rgb565', format: 'rgb565', width: 256, height: 144, frames: 1 },
  { source: 'pan-hillside-192x108-4f.nv12', format: 'nv12', width: 192, height: 108, frames: 4 },
];

const PLANES = { nv12: ['y', 'uv'], rgba8888: ['rgba'], rgb565: ['rgb565'] };

let session;
const made = new Map(); // case name -> {zpak, decoded}

function prepare(c) {
  if (made.has(c.name)) return made.get(c.name);
  const zpak = encode(c.format, c.width, c.height, path.resolve(testData, c.source), c.name);
  const decoded = decodeWithCommand(c.format, c.width, c.height, zpak);
  const entry = { zpak, decoded };
  made.set(c.name, entry);
  return entry;
}

async function newPage() {
  const opened = await openViewer(session.browser);
  return opened;
}

async function checkPixels(page, c, reference, frame) {
  const points = samplePoints(c.width, c.height);
  const got = await pixels(page, points);
  let checked = 0;
  points.forEach(([x, y], i) => {
    const want = expectedSamples(reference, c.format, c.width, c.height, frame, x, y);
    if (want === null) return;
    assert.deepEqual(got[i], want, `${c.name || c.source} frame ${frame} pixel (${x}, ${y})`);
    checked++;
  });
  assert.ok(checked >= points.length - 8, `only ${checked} of ${points.length} points had a reference`);
}

before(async () => {
  freshWorkDir();
  session = await launch();
});

after(async () => {
  if (session) await session.close();
});

describe('opening ZPAK files', () => {
  for (const c of ZPAK_CASES) {
    test(`${c.source} as ${c.name}`, async () => {
      const { zpak, decoded } = prepare(c);
      const { page, errors } = await newPage();
      await openFile(page, zpak);
      const info = await page.evaluate(() => window.pelcastViewer.frameInfo());
      const best = (await page.evaluate(() => window.pelcastViewer.identify())).candidates[0];
      if (c.guessed) {
        assert.deepEqual([best.format, best.width, best.height], [c.format, c.width, c.height], 'identify');
        assert.deepEqual([info.format, info.width, info.height], [c.format, c.width, c.height]);
      }
      assert.equal(info.kind, 'zpak');
      assert.equal(info.frames, c.frames);
      const controls = await page.evaluate(() => ['format', 'width', 'height'].map((id) => document.getElementById(id).value));
      assert.deepEqual(controls, [c.format, String(c.width), String(c.height)], 'the controls show the guess');

      const native = nativeTiles(c.format, c.width, c.height, zpak, 0);
      const stats = await page.evaluate(() => window.pelcastViewer.stats());
      assert.deepEqual(stats, native.stats, 'plane figures');
      assert.deepEqual(withoutRatio(stats), zpakInfo(c.format, c.width, c.height, zpak)[0], 'zpak info');
      assert.equal(info.units, native.stats.reduce((sum, p) => sum + p.units, 0), 'units of the frame');
      const rows = await page.$$eval('#stats tr[data-plane]', (list) => list.map((r) => [r.dataset.plane, Number(r.dataset.units)]));
      assert.deepEqual(rows, native.stats.map((p) => [p.plane, p.units]), 'statistics panel');
      await checkPixels(page, c, decoded, 0);
      assert.match(await page.$eval('#decode-time', (n) => n.textContent), /decoded in \d+\.\d\d ms/);
      assert.deepEqual(errors, []);
      await page.close();
    });
  }

  test('a candidate of identify chosen by a click opens the file with that format and size', async () => {
    const c = { ...ZPAK_CASES[2], name: 'dump.zpak' };
    const { zpak, decoded } = prepare(c);
    const { page, errors } = await newPage();
    await openFile(page, zpak);
    await page.evaluate(() => {
      const s = document.getElementById('width');
      s.value = '8';
      s.dispatchEvent(new Event('input'));
    });
    await idle(page);
    const wanted = `${c.format} ${c.width}x${c.height},`;
    const clicked = await page.$$eval('#identify .candidate', (lines, text) => {
      const line = lines.find((l) => l.textContent.startsWith(text));
      if (line) line.click();
      return Boolean(line);
    }, wanted);
    assert.ok(clicked, `identify lists ${wanted}`);
    await idle(page);
    const info = await page.evaluate(() => window.pelcastViewer.frameInfo());
    assert.deepEqual([info.format, info.width, info.height, info.frames], [c.format, c.width, c.height, 1]);
    await checkPixels(page, c, decoded, 0);
    assert.deepEqual(errors, []);
    await page.close();
  });
});

describe('opening linear files', () => {
  for (const c of LINEAR_CASES) {
    test(c.source, async () => {
      const file = path.join(testData, c.source);
      const bytes = fs.readFileSync(file);
      const { page, errors } = await newPage();
      await openFile(page, file);
      const info = await page.evaluate(() => window.pelcastViewer.frameInfo());
      assert.deepEqual(info, { ...info, kind: 'linear', format: c.format, width: c.width, height: c.height, frames: c.frames, units: null });
      for (let frame = 0; frame < c.frames; frame++) {
        if (frame > 0) await page.click('#frame-next');
        await idle(page);
        await checkPixels(page, c, bytes, frame);
      }
      assert.deepEqual(errors, []);
      await page.close();
    });
  }

  test('changing the format and size redraws at once', async () => {
    const file = path.join(testData, 'photo-meadow-256x144.rgba');
    const bytes = fs.readFileSync(file);
    const { page, errors } = await newPage();
    await openFile(page, file);
    const settingsCases = [
      { control: 'width', value: 128, format: 'rgba8888', width: 128, height: 144 },
      { control: 'format', value: 'rgb565', format: 'rgb565', width: 128, height: 144 },
      { control: 'height', value: 72, format: 'rgb565', width: 128, height: 72 },
    ];
    for (const s of settingsCases) {
      await setControl(page, s.control, s.value);
      const info = await page.evaluate(() => window.pelcastViewer.frameInfo());
      const frames = Math.floor(bytes.length / linearFrameBytes(s.format, s.width, s.height));
      assert.deepEqual([info.format, info.width, info.height, info.frames], [s.format, s.width, s.height, frames]);
      await checkPixels(page, s, bytes, 0);
      // The canvas shows the new layout: the screen pixel over picture pixel
      // (5, 7) has that pixel's colour.
      const want = expectedSamples(bytes, s.format, s.width, s.height, 0, 5, 7);
      const rgb = s.format === 'rgb565'
        ? [(want[0] << 3) | (want[0] >> 2), (want[1] << 2) | (want[1] >> 4), (want[2] << 3) | (want[2] >> 2)]
        : want.slice(0, 3);
      assert.deepEqual(await canvasColour(page, 5, 7), rgb, `canvas after ${s.control} = ${s.value}`);
    }
    // A size whose frame is larger than the file says so and shows nothing.
    await setControl(page, 'height', 5000);
    const info = await page.evaluate(() => window.pelcastViewer.frameInfo());
    assert.deepEqual([info.height, info.frames], [5000, 0]);
    assert.equal(await page.evaluate(() => window.pelcastViewer.pixel(0, 0)), null);
    assert.match(await page.$eval('#status', (n) => n.textContent), /holds no whole linear frame of rgb565 128x5000/);
    assert.deepEqual(errors, []);
    await page.close();
  });
});

// Limited-range YCbCr to RGB in floating point, rounded and clamped.
const MATRICES = { 0: { rv: 1.792741, gu: 0.213249, gv: 0.532909, bu: 2.112402 }, 1: { rv: 1.596027, gu: 0.391762, gv: 0.812968, bu: 2.017232 } };
function yuvToRgb([y, u, v], matrix) {
  const m = MATRICES[matrix];
  const l = 1.164383 * (y - 16);
  const clamp = (x) => Math.max(0, Math.min(255, Math.round(x)));
  return [clamp(l + m.rv * (v - 128)), clamp(l - m.gu * (u - 128) - m.gv * (v - 128)), clamp(l + m.bu * (u - 128))];
}

describe('the picture', () => {
  test('NV12 is its samples through the chosen matrix', async () => {
    const c = ZPAK_CASES[0];
    const { zpak } = prepare(c);
    const { page, errors } = await newPage();
    await openFile(page, zpak);
    const points = samplePoints(c.width, c.height, 40);
    for (const matrix of [0, 1]) {
      await setControl(page, 'matrix', matrix);
      const samples = await pixels(page, points);
      for (const [i, [x, y]] of points.entries()) {
        const got = await canvasColour(page, x, y);
        const want = yuvToRgb(samples[i], matrix);
        got.forEach((value, k) => assert.ok(Math.abs(value - want[k]) <= 1, `matrix ${matrix} (${x}, ${y}): ${got} against ${want}`));
      }
    }
    assert.deepEqual(errors, []);
    await page.close();
  });

  test('RGBA8888 shows its alpha over a checkerboard, or ignores it', async () => {
    // The player crop's video cut-out has alpha 0 (and, premultiplied, black).
    const file = path.join(testData, 'screen-player-256x144.rgba');
    const bytes = fs.readFileSync(file);
    const { page, errors } = await newPage();
    await openFile(page, file);
    const index = Array.from({ length: 256 * 144 }, (_, i) => i).find((i) => bytes[i * 4 + 3] === 0);
    assert.ok(index !== undefined, 'the crop has a transparent pixel');
    const clear = [index % 256, Math.floor(index / 256)];
    const opaque = [5, 5];
    const stored = ([x, y]) => [...bytes.subarray((y * 256 + x) * 4, (y * 256 + x) * 4 + 4)];
    assert.equal(stored(opaque)[3], 255);
    const checker = await canvasColour(page, ...clear);
    assert.ok([0x66, 0x99].includes(checker[0]) && checker[0] === checker[1] && checker[1] === checker[2], `checkerboard ${checker}`);
    assert.deepEqual(await canvasColour(page, ...opaque), stored(opaque).slice(0, 3));
    await setControl(page, 'opaque', true);
    assert.deepEqual(await canvasColour(page, ...clear), stored(clear).slice(0, 3), 'alpha ignored');
    assert.deepEqual(await page.evaluate((x, y) => window.pelcastViewer.pixel(x, y), ...clear), stored(clear), 'pixel() gives the stored alpha');
    assert.deepEqual(errors, []);
    await page.close();
  });
});

async function canvasColour(page, x, y) {
  return page.evaluate((px, py) => {
    const canvas = document.getElementById('view');
    const rect = canvas.getBoundingClientRect();
    const point = window.pelcastViewer.screenPoint(px, py);
    const ratio = canvas.width / rect.width;
    const data = canvas.getContext('2d').getImageData(Math.floor((point.x - rect.left) * ratio),
      Math.floor((point.y - rect.top) * ratio), 1, 1).data;
    return [data[0], data[1], data[2]];
  }, x, y);
}

// The first tile of every storage class in a plane, and the last tile.
function tilesToHover(plane) {
  const seen = new Map();
  plane.tiles.forEach(([metadata, units, flags], index) => {
    const key = `${units}:${flags}`;
    if (!seen.has(key)) seen.set(key, index);
  });
  seen.set('last', plane.tiles.length - 1);
  return [...seen.values()].map((index) => ({ column: index % plane.columns, row: Math.floor(index / plane.columns) }));
}

async function hoverPixel(page, x, y) {
  const point = await page.evaluate((px, py) => window.pelcastViewer.screenPoint(px, py), x, y);
  await page.mouse.move(point.x, point.y);
  await idle(page);
  return page.evaluate(() => window.pelcastViewer.hover());
}

describe('tiles under the pointer', () => {
  for (const c of [ZPAK_CASES[0], ZPAK_CASES[1], ZPAK_CASES[5]]) {
    test(`${c.name}: plane, column, row, metadata, units, storage and stream bits`, async () => {
      const { zpak } = prepare(c);
      const native = nativeTiles(c.format, c.width, c.height, zpak, 0);
      const { page, errors } = await newPage();
      await openFile(page, zpak);
      let hovered = 0;
      for (const [planeIndex, plane] of native.planes.entries()) {
        for (const [i, { column, row }] of tilesToHover(plane).entries()) {
          // The tile's first or last picture pixel, in turn (tiles at the
          // right and bottom edges are partial).
          const corner = i % 2;
          const x = Math.min(c.width - 1, (column + corner) * plane.tile_width - corner);
          const y = Math.min(c.height - 1, (row + corner) * plane.tile_height - corner);
          const info = await hoverPixel(page, x, y);
          assert.deepEqual([info.x, info.y], [x, y], 'pixel under the pointer');
          const tile = info.tiles[planeIndex];
          const [metadata, units, flags, streamBits] = plane.tiles[row * plane.columns + column];
          const where = `${c.name} ${PLANES[c.format][planeIndex]} tile (${column}, ${row})`;
          assert.deepEqual(
            [tile.plane, tile.column, tile.row, tile.metadata, tile.units, tile.raw, tile.badMetadata, tile.streamBits],
            [PLANES[c.format][planeIndex], column, row, metadata, units, (flags & 1) !== 0, (flags & 2) !== 0, streamBits], where);
          const text = await page.$eval('#tile-info', (n) => n.textContent);
          assert.ok(text.includes(`plane ${tile.plane}  column ${column}  row ${row}`), `${where}: ${text}`);
          const rawUnits = c.format === 'rgb565' ? 2 : 4;
          assert.ok(text.includes(`metadata ${metadata} `) && text.includes(`units ${units} of ${rawUnits}`), `${where}: ${text}`);
          assert.ok(text.includes(`stream ${streamBits} bits`) && text.includes((flags & 1) ? 'raw' : 'compressed'), `${where}: ${text}`);
          hovered++;
        }
      }
      assert.ok(hovered >= 3, `hovered ${hovered} tiles`);
      const readout = await page.$eval('#readout', (n) => n.textContent);
      assert.match(readout, /pixel \(\d+, \d+\)/);
      assert.deepEqual(errors, []);
      await page.close();
    });
  }

  test('zoomed in with the wheel, the pointer still reads the pixel under it', async () => {
    const c = ZPAK_CASES[1];
    const { zpak, decoded } = prepare(c);
    const { page, errors } = await newPage();
    await openFile(page, zpak);
    const target = [100, 50];
    let point = await page.evaluate((x, y) => window.pelcastViewer.screenPoint(x, y), ...target);
    await page.mouse.move(point.x, point.y);
    const before = await page.evaluate(() => window.pelcastViewer.view().scale);
    for (let i = 0; i < 6; i++) await page.mouse.wheel({ deltaY: -100 });
    await idle(page);
    const zoomed = await page.evaluate(() => window.pelcastViewer.view());
    assert.ok(Math.abs(zoomed.scale / before - 1.25 ** 6) < 1e-6, `scale ${before} -> ${zoomed.scale}`);
    // The picture point under the pointer stayed there.
    point = await page.evaluate((x, y) => window.pelcastViewer.screenPoint(x, y), ...target);
    const info = await hoverPixel(page, ...target);
    assert.deepEqual([info.x, info.y], target);
    assert.deepEqual(info.a, expectedSamples(decoded, c.format, c.width, c.height, 0, ...target));
    // Past 100 % samples are blocks of one colour (nearest neighbour).
    const colours = await page.evaluate(() => {
      const canvas = document.getElementById('view');
      const p = window.pelcastViewer.screenPoint(100, 50);
      const rect = canvas.getBoundingClientRect();
      const scale = window.pelcastViewer.view().scale;
      const ctx = canvas.getContext('2d');
      const cx = Math.floor(p.x - rect.left);
      const cy = Math.floor(p.y - rect.top);
      const step = Math.floor(scale / 2) - 1;
      return [[0, 0], [-step, -step], [step, step], [step, -step]].map(([dx, dy]) => Array.from(ctx.getImageData(cx + dx, cy + dy, 1, 1).data));
    });
    for (const colour of colours) assert.deepEqual(colour, colours[0], 'one colour within a sample');
    // Dragging pans by the distance dragged.
    await page.mouse.down();
    await page.mouse.move(point.x - 120, point.y - 40, { steps: 4 });
    await page.mouse.up();
    await idle(page);
    const panned = await page.evaluate(() => window.pelcastViewer.view());
    assert.ok(Math.abs(panned.tx - zoomed.tx + 120) < 1e-6 && Math.abs(panned.ty - zoomed.ty + 40) < 1e-6, JSON.stringify(panned));
    assert.deepEqual(errors, []);
    await page.close();
  });
});

describe('frames', () => {
  test('stepping the four frames of the pan with the buttons, the slider and the keys', async () => {
    const c = ZPAK_CASES[6];
    const { zpak, decoded } = prepare(c);
    const { page, errors } = await newPage();
    await openFile(page, zpak);
    const frameOf = () => page.evaluate(() => window.pelcastViewer.frameInfo().frame);
    const info = zpakInfo(c.format, c.width, c.height, zpak);
    assert.equal(info.length, 4);
    const steps = [
      ['#frame-next', 1], ['#frame-next', 2], ['#frame-next', 3], ['#frame-next', 3], ['slider', 1],
      ['#frame-prev', 0], ['#frame-prev', 0], ['ArrowRight', 1], ['ArrowLeft', 0],
    ];
    for (const [how, frame] of steps) {
      if (how === 'slider') await setControl(page, 'frame', frame);
      else if (how.startsWith('Arrow')) await page.keyboard.press(how);
      else await page.click(how);
      await idle(page);
      assert.equal(await frameOf(), frame, `after ${how}`);
      await checkPixels(page, c, decoded, frame);
      assert.deepEqual(withoutRatio(await page.evaluate(() => window.pelcastViewer.stats())), info[frame], `figures of frame ${frame}`);
      const label = await page.$eval('#frame-label', (n) => n.textContent);
      assert.equal(label, `frame ${frame + 1} / 4`);
    }
    assert.equal(await page.$eval('#frame-next', (n) => n.disabled), false);
    assert.equal(await page.$eval('#frame-prev', (n) => n.disabled), true);
    assert.deepEqual(errors, []);
    await page.close();
  });

  test('a file dropped on the page opens', async () => {
    const c = ZPAK_CASES[6];
    const { zpak } = prepare(c);
    const { page, errors } = await newPage();
    const base64 = fs.readFileSync(zpak).toString('base64');
    await page.evaluate((data) => {
      const bytes = Uint8Array.from(atob(data), (ch) => ch.charCodeAt(0));
      const transfer = new DataTransfer();
      transfer.items.add(new File([bytes], 'dropped.zpak'));
      document.getElementById('view').dispatchEvent(new DragEvent('drop', { dataTransfer: transfer, bubbles: true, cancelable: true }));
    }, base64);
    await idle(page);
    const info = await page.evaluate(() => window.pelcastViewer.frameInfo());
    assert.deepEqual([info.format, info.width, info.height, info.frames], [c.format, c.width, c.height, 4]);
    assert.match(await page.$eval('#file-name', (n) => n.textContent), /^dropped\.zpak/);
    assert.deepEqual(errors, []);
    await page.close();
  });
});

// --- compare ---------------------------------------------------------------------------

// Tiles changed in B: [plane, column, row, xor applied to the samples]. NV12
// Y tiles are 32 x 8 samples, UV tiles 16 pairs x 8 rows.
const CHANGED_TILES = [['y', 2, 3, 0x08], ['y', 7, 12, 0x03], ['uv', 5, 6, 0x04]];

function changeTiles(bytes, width, height, changes = CHANGED_TILES) {
  const out = Buffer.from(bytes);
  const chroma = width * height;
  for (const [plane, column, row, xor] of changes) {
    for (let y = 0; y < 8; y++) {
      for (let x = 0; x < 32; x++) {
        // Every other sample, and the U of each pair only, in the chroma.
        if ((x + y) % 2 === 1 || (plane === 'uv' && x % 2 === 1)) continue;
        const at = plane === 'y' ? (row * 8 + y) * width + column * 32 + x : chroma + (row * 8 + y) * width + column * 32 + x;
        out[at] ^= xor;
      }
    }
  }
  return out;
}

// zpak compare's figures, computed here from the two linear frames.
function expectedFigures(a, b, width, height) {
  const planes = [
    { plane: 'y', start: 0, length: width * height, rowBytes: width, tileBytes: 32 },
    { plane: 'uv', start: width * height, length: (width * height) / 2, rowBytes: width, tileBytes: 32 },
  ];
  return planes.map((p) => {
    let samples = 0;
    let max = 0;
    let squared = 0;
    const tiles = new Set();
    for (let i = 0; i < p.length; i++) {
      const d = Math.abs(a[p.start + i] - b[p.start + i]);
      if (d === 0) continue;
      samples++;
      max = Math.max(max, d);
      squared += d * d;
      const row = Math.floor(i / p.rowBytes);
      tiles.add(`${Math.floor((i % p.rowBytes) / p.tileBytes)},${Math.floor(row / 8)}`);
    }
    const psnr = samples === 0 ? null : 10 * Math.log10((255 * 255 * p.length) / squared);
    return { plane: p.plane, samples, max, psnr, tiles: [...tiles].sort() };
  });
}

describe('compare', () => {
  const c = ZPAK_CASES[0];
  let a;
  let bZpak;
  let bLinear;
  let figures;
  before(() => {
    a = prepare(c);
    const original = fs.readFileSync(path.join(testData, c.source));
    const changed = changeTiles(original, c.width, c.height);
    bLinear = path.join(workDir, 'capture-b-256x144.nv12');
    fs.writeFileSync(bLinear, changed);
    bZpak = encode(c.format, c.width, c.height, bLinear, 'capture-b.zpak');
    figures = expectedFigures(original, changed, c.width, c.height);
  });

  function checkFigures(got) {
    assert.equal(got.identical, false);
    for (const [i, want] of figures.entries()) {
      const p = got.planes[i];
      const tiles = CHANGED_TILES.filter(([plane]) => plane === want.plane).map(([, col, row]) => `${col},${row}`).sort();
      assert.deepEqual(want.tiles, tiles, 'the reference names the changed tiles');
      assert.deepEqual(
        [p.plane, p.differing_tiles, p.tiles.map(([col, row]) => `${col},${row}`).sort(), p.differing_samples, p.max_abs_diff],
        [want.plane, tiles.length, tiles, want.samples, want.max], `plane ${want.plane}`);
      assert.ok(Math.abs(p.psnr - want.psnr) < 0.006, `PSNR ${p.psnr} against ${want.psnr}`);
    }
  }

  for (const [label, second] of [['a ZPAK file', () => bZpak], ['a linear file', () => bLinear]]) {
    test(`against ${label} with three tiles changed: the figures name exactly those tiles`, async () => {
      const { page, errors } = await newPage();
      await openFile(page, a.zpak);
      await openFile(page, second(), 'file2');
      checkFigures(await page.evaluate(() => window.pelcastViewer.compare()));
      const table = await page.$$eval('#compare tr[data-plane]', (rows) => rows.map((r) => Array.from(r.cells, (cell) => cell.textContent)));
      assert.deepEqual(table.map((r) => r.slice(0, 4)), figures.map((f) => [f.plane, String(f.tiles.length), String(f.samples), String(f.max)]));
      const listed = await page.$eval('#compare-tiles', (n) => n.textContent);
      assert.ok(listed.includes('y: (2,3) (7,12)') && listed.includes('uv: (5,6)'), listed);
      assert.equal(await page.evaluate(() => window.pelcastViewer.view().mode), 'side');
      await setControl(page, 'mode', 'difference');
      // A changed sample is painted red to yellow; an unchanged one grey.
      const changed = await canvasColour(page, 2 * 32 + 2, 3 * 8 + 2);
      const same = await canvasColour(page, 100, 100);
      assert.equal(changed[0], 255);
      assert.equal(changed[2], 0);
      assert.ok(same[0] === same[1] && same[1] === same[2], `grey ${same}`);
      assert.deepEqual(errors, []);
      await page.close();
    });
  }

  test('against the same frame: identical, no PSNR', async () => {
    const { page, errors } = await newPage();
    const copy = path.join(workDir, 'capture-a-copy.zpak');
    fs.copyFileSync(a.zpak, copy);
    await openFile(page, a.zpak);
    await openFile(page, copy, 'file2');
    const got = await page.evaluate(() => window.pelcastViewer.compare());
    assert.equal(got.identical, true);
    assert.deepEqual(got.planes.map((p) => [p.differing_tiles, p.differing_samples, p.max_abs_diff, p.psnr]), [[0, 0, 0, null], [0, 0, 0, null]]);
    const psnrCells = await page.$$eval('#compare tr[data-plane] td:last-child', (cells) => cells.map((cell) => cell.textContent));
    assert.deepEqual(psnrCells, ['identical', 'identical']);
    assert.deepEqual(errors, []);
    await page.close();
  });
});

// --- screenshots --------------------------------------------------------------------------

// The documentation's pictures are of a real 1920x1080 frame when
// PELCAST_DOC_SCREENSHOTS is set and PELCAST_CORPUS_DIR names the corpus:
// the rendered screen, whose flat areas keep the PNGs small. Otherwise, and
// always in CI, of the committed crops.
function screenshotFrames() {
  const corpus = process.env.PELCAST_CORPUS_DIR;
  const screen = corpus ? path.join(corpus, 'screen-home-1920x1080.rgba') : '';
  if (!docImages || !screen || !fs.existsSync(screen)) {
    return {
      frame: ZPAK_CASES[1], tiles: { ...ZPAK_CASES[1], at: [72, 30] }, compare: ZPAK_CASES[0],
      changes: CHANGED_TILES, changeTiles, changedAt: [2 * 32 + 2, 3 * 8 + 2],
    };
  }
  const home = { source: screen, format: 'rgba8888', width: 1920, height: 1080, name: 'screen-home-1920x1080.zpak', frames: 1 };
  // A block of 6 x 12 tiles (16 x 4 pixels each) with red and green changed.
  const changes = [];
  for (let column = 58; column < 64; column++) {
    for (let row = 96; row < 108; row++) changes.push(['rgba', column, row, 0x30]);
  }
  const changeRgbaTiles = (bytes, width) => {
    const out = Buffer.from(bytes);
    for (const [, column, row, xor] of changes) {
      for (let y = row * 4; y < row * 4 + 4; y++) {
        for (let x = column * 16; x < column * 16 + 16; x++) {
          out[(y * width + x) * 4] ^= xor;
          out[(y * width + x) * 4 + 1] ^= xor;
        }
      }
    }
    return out;
  };
  return {
    // The same spot as the committed crop's (72, 30): the crop was cut at (128, 556).
    frame: home, tiles: { ...home, at: [200, 586] }, compare: home,
    changes, changeTiles: changeRgbaTiles, changedAt: [61 * 16 + 4, 102 * 4 + 1],
  };
}

describe('screenshots', () => {
  test('the page with a frame, zoomed to tile level, and comparing', async () => {
    const frames = screenshotFrames();
    const { page, errors } = await newPage();
    await openFile(page, prepare(frames.frame).zpak);
    const shots = [await screenshot(page, 'viewer-frame.png')];

    const [x, y] = frames.tiles.at;
    await openFile(page, prepare(frames.tiles).zpak);
    await setControl(page, 'grid', true);
    await setControl(page, 'mode', 'cost0');
    const point = await page.evaluate((px, py) => window.pelcastViewer.screenPoint(px, py), x, y);
    await page.mouse.move(point.x, point.y);
    const steps = Math.round(Math.log(24 / (await page.evaluate(() => window.pelcastViewer.view().scale))) / Math.log(1.25));
    for (let i = 0; i < steps; i++) await page.mouse.wheel({ deltaY: -100 });
    await hoverPixel(page, x, y);
    shots.push(await screenshot(page, 'viewer-tiles.png'));

    await setControl(page, 'mode', 'picture');
    await setControl(page, 'grid', false);
    const c = frames.compare;
    const original = fs.readFileSync(path.resolve(testData, c.source));
    const changed = path.join(workDir, `changed-${c.width}x${c.height}.raw`);
    fs.writeFileSync(changed, frames.changeTiles(original, c.width, c.height, frames.changes));
    await openFile(page, prepare(c).zpak);
    await openFile(page, encode(c.format, c.width, c.height, changed, `changed-${c.width}x${c.height}.zpak`), 'file2');
    await setControl(page, 'mode', 'difference');
    const figures = await page.evaluate(() => window.pelcastViewer.compare());
    assert.deepEqual(figures.planes.map((p) => p.differing_tiles),
      figures.planes.map((p) => frames.changes.filter(([plane]) => plane === p.plane).length));
    const info = await hoverPixel(page, ...frames.changedAt);
    assert.notDeepEqual(info.a, info.b, `A and B differ under the pointer: ${JSON.stringify(info)}`);
    shots.push(await screenshot(page, 'viewer-compare.png'));
    for (const shot of shots) assert.ok(fs.statSync(shot).size > 10000, `${shot} holds a picture`);
    assert.deepEqual(errors, []);
    await page.close();
  });
});
