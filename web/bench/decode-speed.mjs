// Decode speed of the viewer's WebAssembly module in the page against the
// native library, measured in one run on the same 1920x1080 frames:
// pelcast_codec_decode on one thread both times (the page through
// pelcastViewer.benchmarkDecode, the native library through
// pelcast-web-helper time-decode). MB/s counts the linear frame written.
//
//   node web/bench/decode-speed.mjs [RUNS [ROUNDS]]   (tools/web-bench.sh builds first)
//
// Each round times the native library, then the page, back to back; the
// report gives the medians and the median of the rounds' page/native ratios
// (the machine's load drifts less within a round than across the run).
//
// The frames are the project's corpus, in the folder PELCAST_CORPUS_DIR
// names (tools/web-bench.sh names it). Without it the frames are mosaics of
// the committed test crops, which the report says.
import fs from 'node:fs';
import path from 'node:path';
import {
  encode, helper, launch, openFile, openViewer, root, run, testData,
} from '../test/support.mjs';

const runs = Number(process.argv[2] || 30);
const rounds = Number(process.argv[3] || 5);
const width = 1920;
const height = 1080;
const corpus = process.env.PELCAST_CORPUS_DIR || '';
const outDir = path.join(root, 'build/web-bench');

const FRAMES = [
  { format: 'nv12', corpusFile: 'photo-boats-1920x1080.nv12', crop: 'photo-meadow-256x144.nv12' },
  { format: 'rgba8888', corpusFile: 'screen-home-1920x1080.rgba', crop: 'screen-messages-256x144.rgba' },
];

// A width x height frame of the 256 x 144 crop repeated (rows and, for
// NV12, chroma rows cut from the crop's own), when the corpus is absent.
function mosaic(cropPath, format) {
  const crop = fs.readFileSync(cropPath);
  const cw = 256;
  const ch = 144;
  const bpp = format === 'nv12' ? 1 : 4;
  const out = Buffer.alloc(format === 'nv12' ? (width * height * 3) / 2 : width * height * 4);
  const copyPlane = (srcOffset, dstOffset, rowBytes, rows, srcRowBytes, srcRows) => {
    for (let y = 0; y < rows; y++) {
      for (let x = 0; x < rowBytes; x++) {
        out[dstOffset + y * rowBytes + x] = crop[srcOffset + (y % srcRows) * srcRowBytes + (x % srcRowBytes)];
      }
    }
  };
  copyPlane(0, 0, width * bpp, height, cw * bpp, ch);
  if (format === 'nv12') copyPlane(cw * ch, width * height, width, height / 2, cw, ch / 2);
  return out;
}

function median(values) {
  const sorted = [...values].sort((x, y) => x - y);
  return sorted[Math.floor(sorted.length / 2)];
}

fs.mkdirSync(outDir, { recursive: true });
const session = await launch();
const rows = [];
try {
  for (const f of FRAMES) {
    let linear = corpus ? path.join(corpus, f.corpusFile) : '';
    let source = `corpus ${f.corpusFile}`;
    if (!linear || !fs.existsSync(linear)) {
      linear = path.join(outDir, `mosaic-${f.format}.raw`);
      fs.writeFileSync(linear, mosaic(path.join(testData, f.crop), f.format));
      source = `mosaic of tests/data/${f.crop} (${corpus ? `no corpus at ${corpus}` : 'PELCAST_CORPUS_DIR unset'})`;
    }
    const zpak = encode(f.format, width, height, linear, path.join(outDir, `${f.format}-1920x1080.zpak`));
    const { page, errors } = await openViewer(session.browser);
    await openFile(page, zpak);
    const info = await page.evaluate(() => window.pelcastViewer.frameInfo());
    if (info.width !== width || info.height !== height || info.format !== f.format) {
      throw new Error(`the page opened ${zpak} as ${JSON.stringify(info)}`);
    }
    const native = [];
    const wasm = [];
    for (let round = 0; round < rounds; round++) {
      const n = JSON.parse(run(helper, ['time-decode', f.format, String(width), String(height), zpak, String(runs)]));
      native.push(n.mb_per_s);
      const w = await page.evaluate((count) => window.pelcastViewer.benchmarkDecode(count), runs);
      wasm.push(w.mbPerS);
    }
    if (errors.length) throw new Error(errors.join('\n'));
    await page.close();
    rows.push({
      format: f.format, source, native: median(native), page: median(wasm), nativeAll: native, pageAll: wasm,
      ratio: median(wasm.map((w, i) => w / native[i])),
    });
  }
} finally {
  await session.close();
}

console.log(`decode of one 1920x1080 frame, ${runs} runs x ${rounds} rounds, median MB/s of linear frame written, one thread;`
  + ' page/native: median of the rounds\' ratios');
for (const r of rows) {
  console.log(`${r.format.padEnd(9)} native ${r.native.toFixed(0).padStart(6)}  page ${r.page.toFixed(0).padStart(6)}  page/native ${r.ratio.toFixed(2)}`
    + `   [native ${r.nativeAll.map((v) => v.toFixed(0)).join(', ')}; page ${r.pageAll.map((v) => v.toFixed(0)).join(', ')}]  ${r.source}`);
}
