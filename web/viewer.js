// pelcast viewer: opens a ZPAK or linear file in the page (nothing leaves
// the machine), decodes it with the library compiled to WebAssembly
// (pelcast.js, viewer_glue.cc) and shows it on a canvas with zoom, pan, a
// readout of the samples under the pointer, how each tile is stored, the
// storage figures of each frame, and a comparison with a second file.
//
// Hooks for automated tests: input#file, select#format, input#width,
// input#height, canvas#view and window.pelcastViewer (pixel, frameInfo and
// the rest at the end of this file).
'use strict';

(function () {
  const FORMAT_CODES = { nv12: 1, rgba8888: 2, rgb565: 3 };
  const PLANE_NAMES = { nv12: ['y', 'uv'], rgba8888: ['rgba'], rgb565: ['rgb565'] };
  const SAMPLE_NAMES = { nv12: ['Y', 'U', 'V'], rgba8888: ['R', 'G', 'B', 'A'], rgb565: ['R', 'G', 'B'] };
  // File name extensions of linear files, and the format they hold.
  const LINEAR_EXTENSIONS = {
    nv12: 'nv12', yuv: 'nv12', rgba: 'rgba8888', rgba8888: 'rgba8888', rgb565: 'rgb565', 565: 'rgb565',
  };
  // identify's best candidate below this score is no evidence of a ZPAK file.
  const POOR_SCORE = 0.5;
  const CANDIDATES_SHOWN = 6;
  // Differing tiles the compare figures list, and the panel shows, per plane.
  const LISTED_TILES = 256;
  const TILES_SHOWN = 24;

  // pelcast_tile_info: u32 data_offset, u32 metadata_offset, u16 stream_bits,
  // u8 metadata, u8 units, u8 flags, 3 reserved.
  const TILE_INFO_BYTES = 16;
  const TILE_RAW = 1;
  const TILE_BAD_METADATA = 2;
  const TILE_OVERRUN = 4;
  const UNIT_BITS = 512;
  // The cost map's classes, in zpak info's colours (tools/zpak/pictures.cc).
  const CLASSES = [
    ['1 unit', '#286eff'], ['2 units', '#00c85a'], ['3 units', '#fadc00'], ['raw', '#e61414'],
    ['bad metadata', '#dc00dc'], ['overrun', '#00e6e6'],
  ];

  const ZOOM_STEP = 1.25;
  const MIN_SCALE = 1 / 64;
  const MAX_SCALE = 256;
  // Tile grid lines are drawn once tiles are this many screen pixels apart.
  const MIN_GRID_SPACING = 4;
  const CHECKER = 8;
  const MEGA = 1e6;
  // Larger pictures are not shown: each viewer keeps two RGBA copies.
  const MAX_PICTURE_PIXELS = 8192 * 8192;

  const el = (id) => document.getElementById(id);

  let M = null; // the WebAssembly module
  let work = null; // the chain of pending work, so loads never interleave

  function newSide() {
    return {
      name: '', bytes: null, kind: 'zpak', viewer: 0, frameBytes: 0, frames: 0,
      loaded: -1, decodeMs: 0, stats: null, picture: null, error: '', display: null, extra: 0,
    };
  }
  const a = newSide();
  const b = newSide();
  const state = {
    frame: 0, mode: 'picture', grid: false, identify: null, compare: null,
    overlay: null, overlayKey: '', hover: null, fitted: true,
  };
  const view = { scale: 1, tx: 0, ty: 0 };

  // --- the module ------------------------------------------------------------

  function cString(text) {
    const bytes = M.lengthBytesUTF8(text) + 1;
    const ptr = M._malloc(bytes);
    M.stringToUTF8(text, ptr, bytes);
    return ptr;
  }

  function withString(text, call) {
    const ptr = cString(text);
    try {
      return call(ptr);
    } finally {
      M._free(ptr);
    }
  }

  function jsonOf(ptr) {
    return JSON.parse(M.UTF8ToString(ptr));
  }

  function settings() {
    return {
      kind: el('kind').value,
      format: el('format').value,
      width: parseInt(el('width').value, 10) || 0,
      height: parseInt(el('height').value, 10) || 0,
    };
  }

  function setSettings(s) {
    el('kind').value = s.kind;
    el('format').value = s.format;
    el('width').value = s.width;
    el('height').value = s.height;
  }

  function frameBytesOf(kind, format, width, height) {
    const code = FORMAT_CODES[format];
    return kind === 'zpak' ? M._pv_zpak_frame_size(code, width, height)
      : M._pv_linear_frame_size(code, width, height);
  }

  // --- guessing what a file holds --------------------------------------------

  function extensionOf(name) {
    const dot = name.lastIndexOf('.');
    return dot < 0 ? '' : name.slice(dot + 1).toLowerCase();
  }

  function identify(bytes, name) {
    M.pelcastReadFile = (offset, count, out) => {
      const end = Math.min(bytes.length, offset + count);
      if (end <= offset) return 0;
      M.HEAPU8.set(bytes.subarray(offset, end), out);
      return end - offset;
    };
    const started = performance.now();
    const result = withString(name, (ptr) => jsonOf(M._pv_identify(bytes.length, ptr)));
    result.ms = performance.now() - started;
    return result;
  }

  // A size the file name names whose frames fit the file whole, or null.
  function namedLinearSize(bytes, name, format) {
    const hints = withString(name, (ptr) => jsonOf(M._pv_name_hints(ptr)));
    for (const [width, height] of hints.sizes) {
      const frame = frameBytesOf('linear', format, width, height);
      if (frame > 0 && bytes.length >= frame && bytes.length % frame === 0) return { width, height };
    }
    return null;
  }

  function linearFormatOf(name) {
    const fromExtension = LINEAR_EXTENSIONS[extensionOf(name)];
    if (fromExtension) return fromExtension;
    const hints = withString(name, (ptr) => jsonOf(M._pv_name_hints(ptr)));
    return hints.formats[0] || settings().format;
  }

  // The kind, format and size to open a file with: linear by its extension
  // or name, ZPAK by identify's best candidate.
  function guessSettings(bytes, name) {
    const current = settings();
    const extension = extensionOf(name);
    let identified = null;
    if (!LINEAR_EXTENSIONS[extension]) {
      identified = identify(bytes, name);
      const best = identified.candidates[0];
      const linearSize = namedLinearSize(bytes, name, linearFormatOf(name));
      const zpak = extension === 'zpak' || (best && (best.score >= POOR_SCORE || !linearSize));
      if (zpak && best) {
        return { kind: 'zpak', format: best.format, width: best.width, height: best.height, identified };
      }
    }
    const format = linearFormatOf(name);
    const size = namedLinearSize(bytes, name, format) || current;
    return { kind: 'linear', format, width: size.width, height: size.height, identified };
  }

  // B is read with A's format and size; only how it is stored may differ.
  function kindOfSecond() {
    const chosen = el('kind2').value;
    if (chosen !== 'auto') return chosen;
    const extension = extensionOf(b.name);
    if (LINEAR_EXTENSIONS[extension]) return 'linear';
    if (extension === 'zpak') return 'zpak';
    const s = settings();
    const zpak = frameBytesOf('zpak', s.format, s.width, s.height);
    const linear = frameBytesOf('linear', s.format, s.width, s.height);
    const fits = (frame) => frame > 0 && b.bytes.length >= frame && b.bytes.length % frame === 0;
    return fits(zpak) || !fits(linear) ? 'zpak' : 'linear';
  }

  // --- viewers and frames -----------------------------------------------------

  function releaseViewer(side) {
    if (side.viewer) M._pv_destroy(side.viewer);
    side.viewer = 0;
    side.display = null;
    side.picture = null;
    side.stats = null;
    side.loaded = -1;
    side.frames = 0;
  }

  function makeViewer(side, s) {
    releaseViewer(side);
    side.error = '';
    if (!side.bytes) return;
    // A size that leaves no whole frame in the file (a typo, often) or whose
    // pictures would not fit the module's memory is refused before anything
    // is allocated.
    const frameBytes = frameBytesOf(side.kind, s.format, s.width, s.height);
    if (frameBytes > side.bytes.length || s.width * s.height > MAX_PICTURE_PIXELS) {
      side.error = frameBytes > side.bytes.length
        ? `${side.name} holds no whole ${side.kind} frame of ${s.format} ${s.width}x${s.height}` +
          ` (${frameBytes} bytes a frame, ${side.bytes.length} in the file)`
        : `${s.width}x${s.height} is too large to show here`;
      return;
    }
    side.viewer = M._pv_create(FORMAT_CODES[s.format], s.width, s.height, side.kind === 'zpak' ? 1 : 0);
    if (!side.viewer) {
      side.error = `${s.format} ${s.width}x${s.height} is not a size the library takes`;
      return;
    }
    side.frameBytes = M._pv_input_size(side.viewer);
    side.frames = Math.floor(side.bytes.length / side.frameBytes);
    side.extra = side.bytes.length - side.frames * side.frameBytes;
  }

  function pictureCanvas(ptr, width, height) {
    const canvas = document.createElement('canvas');
    canvas.width = width;
    canvas.height = height;
    const pixels = new Uint8ClampedArray(M.HEAPU8.buffer, ptr, width * height * 4).slice();
    canvas.getContext('2d').putImageData(new ImageData(pixels, width, height), 0, 0);
    return canvas;
  }

  function loadSide(side, frame) {
    side.loaded = -1;
    side.picture = null;
    side.stats = null;
    if (!side.viewer || frame >= side.frames) return;
    const start = frame * side.frameBytes;
    M.HEAPU8.set(side.bytes.subarray(start, start + side.frameBytes), M._pv_input(side.viewer));
    const status = M._pv_load(side.viewer);
    if (status !== 0) {
      side.error = `frame ${frame}: ${M.UTF8ToString(M._pv_status_string(status))}`;
      return;
    }
    const s = settings();
    side.loaded = frame;
    side.decodeMs = M._pv_decode_ms(side.viewer);
    side.stats = jsonOf(M._pv_stats_json(side.viewer));
    side.picture = pictureCanvas(M._pv_picture(side.viewer), s.width, s.height);
  }

  function loadFrame() {
    const s = settings();
    const display = [Number(el('matrix').value), el('opaque').checked ? 1 : 0];
    for (const side of [a, b]) {
      if (side.viewer && String(side.display) !== String(display)) {
        M._pv_set_display(side.viewer, ...display);
        side.display = display;
      }
      loadSide(side, state.frame);
    }
    state.compare = a.loaded >= 0 && b.loaded >= 0
      ? jsonOf(M._pv_compare_json(a.viewer, b.viewer, LISTED_TILES)) : null;
    state.overlay = null;
    state.overlayKey = '';
    updateFrameControls();
    updatePanels(s);
    draw();
  }

  function rebuild() {
    const s = settings();
    makeViewer(a, s);
    if (b.bytes) {
      b.kind = kindOfSecond();
      makeViewer(b, s);
    }
    state.frame = Math.max(0, Math.min(state.frame, a.frames - 1));
    loadFrame();
    if (state.fitted) fitView();
  }

  // --- work queue ---------------------------------------------------------------

  function enqueue(task) {
    work = work.then(task).catch(showError);
    return work;
  }

  async function idle() {
    let seen;
    do {
      seen = work;
      await seen;
    } while (seen !== work);
  }

  function showError(error) {
    console.error(error);
    setStatus(String(error && error.message ? error.message : error), true);
  }

  function setStatus(text, isError) {
    const status = el('status');
    status.textContent = text;
    status.classList.toggle('error', Boolean(isError));
  }

  // --- opening files --------------------------------------------------------------

  async function openFirst(file) {
    const bytes = new Uint8Array(await file.arrayBuffer());
    a.name = file.name;
    a.bytes = bytes;
    el('file-name').textContent = `${file.name} (${bytes.length.toLocaleString('en')} bytes)`;
    el('drop-hint').classList.add('hidden');
    const guess = guessSettings(bytes, file.name);
    state.identify = guess.identified;
    setSettings(guess);
    a.kind = guess.kind;
    state.frame = 0;
    state.fitted = true;
    rebuild();
    showIdentify();
    setStatus(`opened ${file.name}`);
  }

  async function openSecond(file) {
    b.name = file.name;
    b.bytes = new Uint8Array(await file.arrayBuffer());
    el('file2-name').textContent = `${file.name} (${b.bytes.length.toLocaleString('en')} bytes)`;
    if (state.mode !== 'difference') state.mode = 'side';
    el('mode').value = state.mode;
    state.fitted = true;
    rebuild();
  }

  function closeSecond() {
    releaseViewer(b);
    Object.assign(b, newSide());
    el('file2-name').textContent = 'no second file';
    if (state.mode === 'side' || state.mode === 'difference') state.mode = 'picture';
    el('mode').value = state.mode;
    state.fitted = true;
    rebuild();
  }

  // --- panels ---------------------------------------------------------------------------

  function hex(value, digits) {
    return `0x${value.toString(16).toUpperCase().padStart(digits, '0')}`;
  }

  function percent(part, whole) {
    return whole === 0 ? '-' : `${((100 * part) / whole).toFixed(1)}%`;
  }

  function clear(node) {
    while (node.firstChild) node.removeChild(node.firstChild);
  }

  function tableRow(table, cells, header) {
    const row = table.insertRow();
    for (const text of cells) {
      const cell = document.createElement(header ? 'th' : 'td');
      cell.textContent = text;
      row.appendChild(cell);
    }
    return row;
  }

  function updateFrameControls() {
    const frames = a.frames;
    const slider = el('frame');
    slider.max = Math.max(0, frames - 1);
    slider.value = state.frame;
    slider.disabled = frames <= 1;
    el('frame-prev').disabled = state.frame <= 0;
    el('frame-next').disabled = state.frame >= frames - 1;
    el('frame-label').textContent = `frame ${frames ? state.frame + 1 : 0} / ${frames}`;
  }

  function updatePanels(s) {
    const errors = [a.error, b.error].filter(Boolean);
    if (errors.length) setStatus(errors.join('; '), true);
    else if (a.bytes) {
      const extra = a.extra ? `, ${a.extra} bytes past the last whole frame` : '';
      setStatus(`${a.name}: ${a.kind} ${s.format} ${s.width}x${s.height}, ${a.frames} frame(s)${extra}`);
    }
    showDecodeTime(s);
    showStats();
    showCompare();
    showPointer();
  }

  function showDecodeTime(s) {
    const node = el('decode-time');
    if (a.loaded < 0) {
      node.textContent = ' ';
      return;
    }
    const linear = M._pv_linear_frame_size(FORMAT_CODES[s.format], s.width, s.height);
    if (a.kind !== 'zpak') {
      node.textContent = `frame ${a.loaded}: linear ${s.format}, ${linear.toLocaleString('en')} bytes`;
      return;
    }
    const rate = a.decodeMs > 0 ? ` (${(linear / MEGA / (a.decodeMs / 1000)).toFixed(1)} MB/s)` : '';
    node.textContent = `frame ${a.loaded}: decoded in ${a.decodeMs.toFixed(2)} ms${rate}`;
    node.dataset.ms = a.decodeMs;
  }

  function showStats() {
    const table = el('stats');
    clear(table);
    clear(el('legend'));
    if (!a.stats || a.stats.length === 0) return;
    tableRow(table, ['plane', 'tiles', 'units', 'ratio', '1', '2', '3', 'raw', 'bad'], true);
    for (const p of a.stats) {
      const row = tableRow(table, [
        p.plane, p.tiles, p.units, p.ratio.toFixed(3),
        percent(p.by_units[0], p.tiles), percent(p.by_units[1], p.tiles), percent(p.by_units[2], p.tiles),
        percent(p.raw, p.tiles), percent(p.bad_metadata, p.tiles),
      ]);
      row.dataset.plane = p.plane;
      row.dataset.units = p.units;
      row.dataset.rawUnits = p.raw_units;
      if (p.overrun) tableRow(table, [`${p.plane}: ${p.overrun} tile(s) overrun their units`]);
    }
    for (const [label, colour] of CLASSES) {
      const entry = document.createElement('span');
      const swatch = document.createElement('span');
      swatch.className = 'swatch';
      swatch.style.background = colour;
      entry.appendChild(swatch);
      entry.appendChild(document.createTextNode(label));
      el('legend').appendChild(entry);
    }
  }

  function showIdentify() {
    const node = el('identify');
    clear(node);
    const result = state.identify;
    if (!result) {
      node.textContent = a.kind === 'linear' ? 'linear file: format and size from its name or as set above' : '';
      return;
    }
    const s = settings();
    for (const c of result.candidates.slice(0, CANDIDATES_SHOWN)) {
      const line = document.createElement('div');
      line.className = 'candidate';
      if (a.kind === 'zpak' && c.format === s.format && c.width === s.width && c.height === s.height) {
        line.classList.add('chosen');
      }
      line.textContent = `${c.format} ${c.width}x${c.height}, ${c.frames} frame(s), score ${c.score.toFixed(3)} (${c.from})`;
      line.title = 'open the file with this format and size';
      line.addEventListener('click', () => enqueue(() => {
        setSettings({ kind: 'zpak', format: c.format, width: c.width, height: c.height });
        a.kind = 'zpak';
        state.fitted = true;
        rebuild();
        showIdentify();
      }));
      node.appendChild(line);
    }
    if (result.candidates.length === 0) node.appendChild(document.createTextNode('no ZPAK format and size fits this file'));
    for (const note of result.notes) {
      const line = document.createElement('div');
      line.className = 'note';
      line.textContent = note;
      node.appendChild(line);
    }
    const timing = document.createElement('div');
    timing.className = 'note';
    timing.textContent = `identified in ${result.ms.toFixed(0)} ms`;
    node.appendChild(timing);
  }

  function showCompare() {
    const table = el('compare');
    const tiles = el('compare-tiles');
    clear(table);
    tiles.textContent = '';
    if (!b.bytes) return;
    if (!state.compare) {
      tiles.textContent = b.error || `B has no frame ${state.frame}`;
      return;
    }
    tableRow(table, ['plane', 'tiles', 'samples', 'max diff', 'PSNR'], true);
    const lines = [];
    for (const p of state.compare.planes) {
      const row = tableRow(table, [
        p.plane, p.differing_tiles, p.differing_samples, p.max_abs_diff,
        p.psnr === null ? 'identical' : `${p.psnr.toFixed(2)} dB`,
      ]);
      row.dataset.plane = p.plane;
      if (p.tiles.length) {
        const shown = p.tiles.slice(0, TILES_SHOWN);
        const more = p.differing_tiles > shown.length ? ` and ${p.differing_tiles - shown.length} more` : '';
        lines.push(`${p.plane}: ${shown.map(([c, r]) => `(${c},${r})`).join(' ')}${more}`);
      }
    }
    tiles.textContent = state.compare.identical ? `frame ${state.frame}: identical`
      : `differing tiles (column,row)\n${lines.join('\n')}`;
  }

  // --- the pointer ------------------------------------------------------------------------

  function samplesOf(side, x, y) {
    if (side.loaded < 0) return null;
    const out = M._malloc(16);
    const count = M._pv_samples(side.viewer, x, y, out);
    const values = Array.from(M.HEAPU32.subarray(out >> 2, (out >> 2) + count));
    M._free(out);
    return count ? values : null;
  }

  function gridOf(side, plane) {
    const ptr = side.viewer ? M._pv_grid(side.viewer, plane) : 0;
    if (!ptr) return null;
    const [columns, rows, tileWidth, tileHeight, rawUnits] = M.HEAPU32.subarray(ptr >> 2, (ptr >> 2) + 5);
    return { columns, rows, tileWidth, tileHeight, rawUnits };
  }

  // How the tile of `plane` under picture pixel (x, y) is stored (ZPAK only).
  function tileAt(side, plane, x, y) {
    const grid = gridOf(side, plane);
    if (!grid) return null;
    const column = Math.floor(x / grid.tileWidth);
    const row = Math.floor(y / grid.tileHeight);
    const tile = { plane: PLANE_NAMES[settings().format][plane], column, row };
    const tiles = side.loaded >= 0 ? M._pv_tiles(side.viewer, plane) : 0;
    if (!tiles || column >= grid.columns || row >= grid.rows) return tile;
    const at = tiles + TILE_INFO_BYTES * (row * grid.columns + column);
    const data = new DataView(M.HEAPU8.buffer, at, TILE_INFO_BYTES);
    const flags = data.getUint8(12);
    return Object.assign(tile, {
      dataOffset: data.getUint32(0, true), metadataOffset: data.getUint32(4, true),
      streamBits: data.getUint16(8, true), metadata: data.getUint8(10), units: data.getUint8(11),
      rawUnits: grid.rawUnits, raw: (flags & TILE_RAW) !== 0, badMetadata: (flags & TILE_BAD_METADATA) !== 0,
      overrun: (flags & TILE_OVERRUN) !== 0,
    });
  }

  function storageWords(t) {
    if (t.badMetadata) return 'bad metadata (no unit count)';
    if (t.raw) return 'raw';
    return t.overrun ? 'compressed, stream overruns its units' : 'compressed';
  }

  function tileText(t) {
    const head = `plane ${t.plane}  column ${t.column}  row ${t.row}`;
    if (t.metadata === undefined) return head;
    return `${head}\nmetadata ${t.metadata} (${hex(t.metadata, 2)})  units ${t.units} of ${t.rawUnits}\n` +
      `${storageWords(t)}, stream ${t.streamBits} bits of ${t.units * UNIT_BITS}\n` +
      `slot at ${hex(t.dataOffset, 6)}, metadata at ${hex(t.metadataOffset, 6)}`;
  }

  function hoverInfo(x, y) {
    const s = settings();
    const info = { x, y, a: samplesOf(a, x, y), b: samplesOf(b, x, y), tiles: [] };
    const planes = PLANE_NAMES[s.format].length;
    for (let plane = 0; plane < planes; plane++) {
      const t = tileAt(a, plane, x, y);
      if (t) info.tiles.push(t);
    }
    return info;
  }

  function sampleText(format, values) {
    return SAMPLE_NAMES[format].map((name, i) => `${name} ${String(values[i]).padStart(3)} ${hex(values[i], 2)}`).join('  ');
  }

  function showPointer() {
    const hover = state.hover;
    const readout = el('readout');
    const tileNode = el('tile-info');
    if (!hover || a.loaded < 0) {
      readout.textContent = ' ';
      tileNode.textContent = 'hover the picture';
      return;
    }
    const info = hoverInfo(hover.x, hover.y);
    state.hover.info = info;
    const format = settings().format;
    const lines = [`pixel (${info.x}, ${info.y})`];
    if (info.a) lines.push(`${b.bytes ? 'A ' : ''}${sampleText(format, info.a)}`);
    if (info.b) lines.push(`B ${sampleText(format, info.b)}`);
    lines.push(`tile ${info.tiles.map((t) => `${t.plane} (${t.column}, ${t.row})`).join('  ')}`);
    readout.textContent = lines.join('\n');
    tileNode.textContent = a.kind === 'zpak' ? info.tiles.map(tileText).join('\n\n') : 'linear file: no tiles stored';
  }

  // --- drawing -----------------------------------------------------------------------------

  let checker = null;
  function checkerPattern(ctx) {
    if (!checker) {
      const tile = document.createElement('canvas');
      tile.width = tile.height = 2 * CHECKER;
      const t = tile.getContext('2d');
      t.fillStyle = '#666';
      t.fillRect(0, 0, 2 * CHECKER, 2 * CHECKER);
      t.fillStyle = '#999';
      t.fillRect(0, 0, CHECKER, CHECKER);
      t.fillRect(CHECKER, CHECKER, CHECKER, CHECKER);
      checker = tile;
    }
    return ctx.createPattern(checker, 'repeat');
  }

  function overlayPicture() {
    const s = settings();
    const key = `${state.mode}:${state.frame}`;
    if (state.overlayKey === key) return state.overlay;
    let ptr = 0;
    if (state.mode === 'cost0' || state.mode === 'cost1') {
      const plane = Number(state.mode.slice(4));
      if (a.loaded >= 0 && a.kind === 'zpak' && plane < PLANE_NAMES[s.format].length) ptr = M._pv_cost_map(a.viewer, plane);
    } else if (state.mode === 'difference' && a.loaded >= 0 && b.loaded >= 0) {
      ptr = M._pv_difference(a.viewer, b.viewer);
    }
    state.overlay = ptr ? pictureCanvas(ptr, s.width, s.height) : null;
    state.overlayKey = key;
    return state.overlay;
  }

  function canvasSize() {
    const canvas = el('view');
    const ratio = window.devicePixelRatio || 1;
    const width = Math.max(1, Math.round(canvas.clientWidth * ratio));
    const height = Math.max(1, Math.round(canvas.clientHeight * ratio));
    if (canvas.width !== width || canvas.height !== height) {
      canvas.width = width;
      canvas.height = height;
    }
    return { width, height, ratio };
  }

  // The panels the canvas is split into: one, or A and B side by side.
  function panels(width) {
    if (state.mode === 'side' && b.picture) {
      const half = Math.floor(width / 2);
      return [{ x: 0, width: half, side: a }, { x: half, width: width - half, side: b }];
    }
    return [{ x: 0, width, side: a }];
  }

  function gridPlane() {
    return state.mode === 'cost1' ? 1 : 0;
  }

  function drawGrid(ctx, s) {
    const grid = gridOf(a, gridPlane());
    if (!grid || grid.tileHeight * view.scale < MIN_GRID_SPACING) return;
    ctx.beginPath();
    for (let c = 0; c <= grid.columns; c++) {
      const x = Math.min(c * grid.tileWidth, s.width);
      ctx.moveTo(x, 0);
      ctx.lineTo(x, s.height);
    }
    for (let r = 0; r <= grid.rows; r++) {
      const y = Math.min(r * grid.tileHeight, s.height);
      ctx.moveTo(0, y);
      ctx.lineTo(s.width, y);
    }
    ctx.strokeStyle = 'rgba(255, 255, 255, 0.35)';
    ctx.lineWidth = 1 / view.scale;
    ctx.stroke();
  }

  function drawHoveredTile(ctx) {
    const hover = state.hover;
    const grid = hover && gridOf(a, gridPlane());
    if (!grid) return;
    const column = Math.floor(hover.x / grid.tileWidth);
    const row = Math.floor(hover.y / grid.tileHeight);
    ctx.strokeStyle = '#ffffff';
    ctx.lineWidth = 2 / view.scale;
    ctx.strokeRect(column * grid.tileWidth, row * grid.tileHeight, grid.tileWidth, grid.tileHeight);
  }

  function drawPanel(ctx, panel, picture, s, height) {
    ctx.save();
    ctx.beginPath();
    ctx.rect(panel.x, 0, panel.width, height);
    ctx.clip();
    // Transparent pixels show a checkerboard of fixed screen size.
    if (s.format === 'rgba8888' && !el('opaque').checked && picture === panel.side.picture) {
      ctx.fillStyle = checkerPattern(ctx);
      ctx.fillRect(panel.x + view.tx, view.ty, s.width * view.scale, s.height * view.scale);
    }
    ctx.translate(panel.x + view.tx, view.ty);
    ctx.scale(view.scale, view.scale);
    ctx.imageSmoothingEnabled = view.scale < 1;
    ctx.drawImage(picture, 0, 0);
    if (state.grid) drawGrid(ctx, s);
    drawHoveredTile(ctx);
    ctx.restore();
  }

  function labelPanel(ctx, panel) {
    const ratio = window.devicePixelRatio || 1;
    const text = `${panel.side === a ? 'A' : 'B'}: ${panel.side.name} (${panel.side.kind})`;
    ctx.font = `${12 * ratio}px system-ui, sans-serif`;
    const padding = 4 * ratio;
    const boxWidth = ctx.measureText(text).width + 2 * padding;
    ctx.fillStyle = 'rgba(16, 17, 20, 0.75)';
    ctx.fillRect(panel.x + padding, padding, boxWidth, 18 * ratio);
    ctx.fillStyle = '#d8dbe0';
    ctx.fillText(text, panel.x + 2 * padding, padding + 13 * ratio);
  }

  let drawPending = false;
  function draw() {
    if (drawPending) return;
    drawPending = true;
    requestAnimationFrame(() => {
      drawPending = false;
      drawNow();
    });
  }

  function drawNow() {
    const { width, height } = canvasSize();
    const ctx = el('view').getContext('2d');
    ctx.setTransform(1, 0, 0, 1, 0, 0);
    ctx.fillStyle = '#101114';
    ctx.fillRect(0, 0, width, height);
    if (!a.picture) return;
    const s = settings();
    const overlay = overlayPicture();
    for (const panel of panels(width)) {
      const picture = panel.side === a && overlay ? overlay : panel.side.picture;
      if (picture) drawPanel(ctx, panel, picture, s, height);
    }
    if (panels(width).length === 2) {
      ctx.fillStyle = '#5aa0ff';
      ctx.fillRect(Math.floor(width / 2) - 1, 0, 2, height);
      for (const panel of panels(width)) labelPanel(ctx, panel);
    }
    el('zoom-label').textContent = `${(view.scale * 100).toFixed(view.scale < 0.1 ? 1 : 0)} %`;
  }

  // --- zoom and pan -------------------------------------------------------------------------

  function fitView() {
    const s = settings();
    const { width, height } = canvasSize();
    const panelWidth = panels(width)[0].width;
    if (!s.width || !s.height) return;
    view.scale = Math.max(MIN_SCALE, Math.min(panelWidth / s.width, height / s.height));
    view.tx = (panelWidth - s.width * view.scale) / 2;
    view.ty = (height - s.height * view.scale) / 2;
    state.fitted = true;
    draw();
  }

  // Zooms to `scale` keeping the picture point under canvas point (cx, cy).
  function zoomAt(scale, cx, cy) {
    const clamped = Math.max(MIN_SCALE, Math.min(MAX_SCALE, scale));
    const { width } = canvasSize();
    const panel = panels(width).find((p) => cx >= p.x && cx < p.x + p.width) || panels(width)[0];
    const px = (cx - panel.x - view.tx) / view.scale;
    const py = (cy - view.ty) / view.scale;
    view.scale = clamped;
    view.tx = cx - panel.x - px * clamped;
    view.ty = cy - py * clamped;
    state.fitted = false;
    draw();
  }

  function zoomCentre(scale) {
    const { width, height } = canvasSize();
    zoomAt(scale, panels(width)[0].width / 2, height / 2);
  }

  // The picture pixel under a mouse event, or null.
  function pixelOf(event) {
    const canvas = el('view');
    const rect = canvas.getBoundingClientRect();
    const ratio = canvas.width / rect.width;
    const cx = (event.clientX - rect.left) * ratio;
    const cy = (event.clientY - rect.top) * ratio;
    const panel = panels(canvas.width).find((p) => cx >= p.x && cx < p.x + p.width);
    if (!panel) return null;
    const x = Math.floor((cx - panel.x - view.tx) / view.scale);
    const y = Math.floor((cy - view.ty) / view.scale);
    const s = settings();
    return x >= 0 && y >= 0 && x < s.width && y < s.height ? { x, y, cx, cy } : { outside: true, cx, cy };
  }

  function wireCanvas() {
    const canvas = el('view');
    let drag = null;
    canvas.addEventListener('wheel', (event) => {
      event.preventDefault();
      const p = pixelOf(event);
      if (!p) return;
      zoomAt(view.scale * (event.deltaY < 0 ? ZOOM_STEP : 1 / ZOOM_STEP), p.cx, p.cy);
    }, { passive: false });
    canvas.addEventListener('mousedown', (event) => {
      drag = { x: event.clientX, y: event.clientY, tx: view.tx, ty: view.ty };
      canvas.classList.add('dragging');
    });
    window.addEventListener('mouseup', () => {
      drag = null;
      canvas.classList.remove('dragging');
    });
    canvas.addEventListener('mousemove', (event) => {
      if (drag && event.buttons) {
        const ratio = canvas.width / canvas.getBoundingClientRect().width;
        view.tx = drag.tx + (event.clientX - drag.x) * ratio;
        view.ty = drag.ty + (event.clientY - drag.y) * ratio;
        state.fitted = false;
      }
      const p = pixelOf(event);
      state.hover = p && !p.outside ? { x: p.x, y: p.y } : null;
      showPointer();
      draw();
    });
    canvas.addEventListener('mouseleave', () => {
      state.hover = null;
      showPointer();
      draw();
    });
    window.addEventListener('resize', () => (state.fitted ? fitView() : draw()));
  }

  // --- controls ------------------------------------------------------------------------------

  function stepFrame(delta) {
    const next = Math.max(0, Math.min(a.frames - 1, state.frame + delta));
    if (next === state.frame) return work;
    state.frame = next;
    return enqueue(loadFrame);
  }

  function wireControls() {
    el('file').addEventListener('change', (event) => {
      const file = event.target.files[0];
      if (file) enqueue(() => openFirst(file));
    });
    el('file2').addEventListener('change', (event) => {
      const file = event.target.files[0];
      if (file) enqueue(() => openSecond(file));
    });
    el('close2').addEventListener('click', () => enqueue(closeSecond));
    for (const id of ['format', 'width', 'height', 'kind', 'kind2']) {
      el(id).addEventListener('input', () => enqueue(() => {
        a.kind = el('kind').value;
        state.fitted = true;
        rebuild();
        showIdentify();
      }));
    }
    for (const id of ['matrix', 'opaque']) el(id).addEventListener('input', () => enqueue(loadFrame));
    el('frame').addEventListener('input', () => {
      state.frame = Number(el('frame').value);
      enqueue(loadFrame);
    });
    el('frame-prev').addEventListener('click', () => stepFrame(-1));
    el('frame-next').addEventListener('click', () => stepFrame(1));
    el('mode').addEventListener('input', () => {
      const wasSide = state.mode === 'side';
      state.mode = el('mode').value;
      if (wasSide !== (state.mode === 'side') && state.fitted) fitView();
      draw();
    });
    el('grid').addEventListener('input', () => {
      state.grid = el('grid').checked;
      draw();
    });
    el('zoom-fit').addEventListener('click', fitView);
    el('zoom-1').addEventListener('click', () => zoomCentre(1));
    window.addEventListener('keydown', (event) => {
      const target = event.target;
      if (target instanceof HTMLSelectElement || (target instanceof HTMLInputElement && target.type !== 'range')) return;
      const keys = {
        ArrowLeft: () => stepFrame(-1), ArrowRight: () => stepFrame(1), f: fitView,
        '+': () => zoomCentre(view.scale * ZOOM_STEP), '-': () => zoomCentre(view.scale / ZOOM_STEP),
      };
      if (keys[event.key]) {
        event.preventDefault();
        keys[event.key]();
      }
    });
  }

  // Drop one file to open it; two to open and compare them; a file dropped
  // on the Compare section becomes B.
  function wireDrop() {
    const body = document.body;
    window.addEventListener('dragover', (event) => {
      event.preventDefault();
      body.classList.add('dragover');
    });
    window.addEventListener('dragleave', (event) => {
      if (event.relatedTarget === null) body.classList.remove('dragover');
    });
    window.addEventListener('drop', (event) => {
      event.preventDefault();
      body.classList.remove('dragover');
      const files = Array.from(event.dataTransfer.files);
      if (files.length === 0) return;
      const onCompare = el('compare-section').contains(event.target);
      if (onCompare && a.bytes) {
        enqueue(() => openSecond(files[0]));
        return;
      }
      enqueue(() => openFirst(files[0]));
      if (files[1]) enqueue(() => openSecond(files[1]));
    });
  }

  // --- hooks for tests and scripts --------------------------------------------------------

  function totalUnits() {
    if (!a.stats || a.kind !== 'zpak') return null;
    return a.stats.reduce((sum, p) => sum + p.units, 0);
  }

  window.pelcastViewer = {
    // Sample values at picture pixel (x, y) of the current frame of the file
    // opened: NV12 [Y, U, V]; RGBA8888 [R, G, B, A]; RGB565 [R, G, B] as
    // its 5-, 6- and 5-bit fields. null outside the picture or with no frame.
    pixel: (x, y) => (a.loaded >= 0 ? samplesOf(a, x, y) : null),
    // {format, width, height, frames, units} of the current frame; units is
    // the 64-byte units its planes are stored in (null for a linear file).
    frameInfo: () => {
      const s = settings();
      return {
        format: s.format, width: s.width, height: s.height, frames: a.frames, units: totalUnits(),
        frame: state.frame, kind: a.kind, decodeMs: a.loaded >= 0 ? a.decodeMs : null,
      };
    },
    // Resolves when every load, decode and redraw asked for so far is done.
    idle: async () => {
      await idle();
      // Hidden pages get no animation frames: there the drawing waits.
      if (document.visibilityState === 'visible') await new Promise((resolve) => requestAnimationFrame(() => resolve()));
    },
    stats: () => a.stats,
    identify: () => state.identify,
    compare: () => state.compare,
    hover: () => (state.hover ? state.hover.info || null : null),
    view: () => ({ scale: view.scale, tx: view.tx, ty: view.ty, mode: state.mode }),
    // Screen position (CSS pixels, page coordinates) of the centre of picture
    // pixel (x, y) in the first panel.
    screenPoint: (x, y) => {
      const canvas = el('view');
      const rect = canvas.getBoundingClientRect();
      const ratio = canvas.width / rect.width;
      return {
        x: rect.left + (view.tx + (x + 0.5) * view.scale) / ratio,
        y: rect.top + (view.ty + (y + 0.5) * view.scale) / ratio,
      };
    },
    // Decodes the current frame `runs` times (pelcast_codec_decode, one
    // thread) and reports the time and the rate in MB of linear frame a
    // second.
    benchmarkDecode: (runs) => {
      if (a.loaded < 0 || a.kind !== 'zpak') return null;
      const s = settings();
      const linearBytes = M._pv_linear_frame_size(FORMAT_CODES[s.format], s.width, s.height);
      M._pv_benchmark(a.viewer, 1);
      const ms = M._pv_benchmark(a.viewer, runs);
      return { runs, ms, linearBytes, mbPerS: (linearBytes * runs) / MEGA / (ms / 1000) };
    },
    version: () => (M ? M.UTF8ToString(M._pv_version()) : null),
  };

  wireControls();
  wireCanvas();
  wireDrop();
  work = createPelcastModule().then((module) => {
    M = module;
    setStatus(`decoder ready (libpelcast ${M.UTF8ToString(M._pv_version())}, WebAssembly, one thread)`);
    draw();
  });
}());
