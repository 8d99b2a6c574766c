// How U, G and B read ZPAK frames and write decoded rows: band by band into
// the start of the output buffer, each band written at once, and from a
// regular file piece by piece (metadata planes, then each band's slots),
// with exactly the bytes the whole-frame read, decode and write give.
#include <algorithm>
#include <bit>
#include <cerrno>
#include <condition_variable>
#include <cstdio>
#include <cstring>
#include <mutex>

#include <sys/stat.h>
#include <unistd.h>

#include "cli/decode_session.h"
#include "decoder/frame_decoder.h"
#include "surface/frame_config.h"
#include "surface/tile_format.h"

namespace pelcast::decode_detail {
namespace {

// Exchanges the red and blue fields of every 16-bit little-endian pixel. The
// pixels are moved as whole 16-bit words so the loop vectorises.
void SwapRedAndBlue(uint8_t* buffer, uint32_t bytes) {
  constexpr uint16_t kGreen = 0x07E0;
  constexpr uint16_t kLowField = 0x001F;
  constexpr uint32_t kHighFieldShift = 11;
  const uint32_t pixels = bytes / sizeof(uint16_t);
  for (uint32_t i = 0; i < pixels; ++i) {
    uint16_t p;
    std::memcpy(&p, buffer + sizeof p * i, sizeof p);
    if constexpr (std::endian::native == std::endian::big) p = __builtin_bswap16(p);
    auto swapped = static_cast<uint16_t>((p & kGreen) | (p >> kHighFieldShift) |
                                         ((p & kLowField) << kHighFieldShift));
    if constexpr (std::endian::native == std::endian::big) swapped = __builtin_bswap16(swapped);
    std::memcpy(buffer + sizeof p * i, &swapped, sizeof p);
  }
}

// Writes `count` zero bytes; returns how many went out.
uint64_t WriteZeros(FILE* output, uint64_t count) {
  static constexpr uint8_t kZeros[4096] = {};
  uint64_t written = 0;
  for (uint64_t left = count; left != 0;) {
    const uint64_t chunk = std::min<uint64_t>(left, sizeof kZeros);
    written += std::fwrite(kZeros, 1, chunk, output);
    left -= chunk;
  }
  return written;
}

// Writes `rows` rows of `rowBytes` bytes taken `pitch` apart from `buffer`;
// bytes a row would take from past the end of the buffer are written as
// zeros. Rows that follow each other without padding go out in one write.
// Row writes are not checked.
void WriteRows(FILE* output, const uint8_t* buffer, uint64_t bufferBytes, uint64_t rowBytes,
               uint64_t rows, uint64_t pitch) {
  if (pitch == rowBytes && rows != 0 && rowBytes <= bufferBytes / rows) {
    std::fwrite(buffer, 1, rows * rowBytes, output);
    return;
  }
  for (uint64_t i = 0; i < rows; ++i) {
    const uint64_t start = i * pitch;
    const uint64_t inside = start < bufferBytes ? std::min(rowBytes, bufferBytes - start) : 0;
    if (inside != 0) std::fwrite(buffer + start, 1, inside, output);
    WriteZeros(output, rowBytes - inside);
  }
}

// Writes one decoded frame; false when U's single write falls short.
bool WriteFrame(const DecodeCommand& command, const DecodeSession& s) {
  const PlaneGeometry& g = s.geometry;
  const uint64_t rows = s.height >= 1 ? static_cast<uint64_t>(s.height) : 0;
  switch (command.planeFormat) {
    case PlaneFormat::kNv12: {
      const auto bytes = static_cast<size_t>(int64_t{s.width} * s.height * 3 / 2);
      return std::fwrite(s.outputBuffer, 1, bytes, s.output) == bytes;
    }
    case PlaneFormat::kRgba8888:
      WriteRows(s.output, s.outputBuffer, g.outputSize, uint64_t{kRgbaBytesPerPixel} * s.width,
                rows, g.yStride);
      return true;
    case PlaneFormat::kRgb565:
      if (g.outputSize != 0) SwapRedAndBlue(s.outputBuffer, g.outputSize);
      WriteRows(s.output, s.outputBuffer, g.outputSize, uint64_t{kRgb565BytesPerPixel} * s.width,
                rows, g.yStride);
      return true;
  }
  return true;
}

// Band by band: each run of tile rows is decoded into a small buffer and
// written out at once, so a frame never sits in memory whole. On one thread
// the buffer is the start of the output buffer, the only part of it ever
// touched (its pages cost faults and zeroing once), and the write copies
// bytes that are still in cache. On more, each band goes to a slot of a ring
// of band buffers: the threads decode bands ahead while the bands are
// written in order. The file receives exactly the bytes of the whole-frame
// decode and write.
constexpr uint64_t kBandBytes = uint64_t{1} << 18;
// With threads, a plane is cut into at least this many bands per thread, so
// that a thread that finishes early takes over the rest.
constexpr uint64_t kBandsPerThread = 4;
// Band buffers per thread: room to decode ahead while earlier bands wait to
// be written.
constexpr uint32_t kRingSlotsPerThread = 3;

struct BandPlane {
  uint64_t plane;        // band plane for the decoder
  uint64_t tileRows;     // tile rows of the plane
  uint64_t rowsPerTile;  // linear rows per tile row
  uint64_t pitch;        // bytes between linear rows in the output
  uint64_t rows;         // linear rows written out
  uint64_t rowBytes;     // bytes written out per row
  uint64_t start;        // where the plane starts in the whole-frame output
  uint64_t limit;        // bytes of the whole-frame output that are written out
};

// Tile rows of a band: about kBandBytes of output, and on `threads` > 1 at
// most a share of kBandsPerThread bands per thread.
uint64_t BandTileRows(const BandPlane& p, uint32_t threads) {
  const uint64_t rowBytes = p.rowsPerTile * p.pitch;
  uint64_t rows = rowBytes == 0 ? p.tileRows : kBandBytes / rowBytes;
  if (threads > 1) rows = std::min(rows, CeilDiv(p.tileRows, kBandsPerThread * threads));
  return std::max<uint64_t>(rows, 1);
}

// Writes linear rows [first, end) of the plane, held from `band` on, as the
// whole-frame write gives them: cut at the plane's limit, and bytes at or
// past `bufferBytes` of the whole-frame output as zeros. True when every
// byte went out.
bool WriteBandRows(FILE* output, const uint8_t* band, const BandPlane& p, uint64_t first,
                   uint64_t end, uint64_t bufferBytes) {
  if (p.pitch == p.rowBytes) {  // back to back: one write
    const uint64_t at = p.start + first * p.pitch;
    const uint64_t stop = std::min(p.start + end * p.pitch, p.limit);
    if (stop <= at) return true;
    const uint64_t inside = std::min(stop, std::max(bufferBytes, at)) - at;
    uint64_t written = inside != 0 ? std::fwrite(band, 1, inside, output) : 0;
    written += WriteZeros(output, stop - at - inside);
    return written == stop - at;
  }
  bool whole = true;
  for (uint64_t i = first; i < end; ++i) {
    const uint64_t start = p.start + i * p.pitch;
    const uint64_t inside = start < bufferBytes ? std::min(p.rowBytes, bufferBytes - start) : 0;
    uint64_t written = 0;
    if (inside != 0) written = std::fwrite(band + (i - first) * p.pitch, 1, inside, output);
    written += WriteZeros(output, p.rowBytes - inside);
    whole = whole && written == p.rowBytes;
  }
  return whole;
}

// Where a band plane's bytes lie in a frame of the input: its metadata plane
// and its data plane (offsets from the frame's start), and how many bytes of
// the frame buffer after the first metadata plane a band's data may fill
// (for NV12 the chroma metadata plane is loaded in place after the luma data).
struct PlanePieces {
  uint64_t metaAt;
  uint64_t metaBytes;
  uint64_t dataAt;
  uint64_t windowCapacity;
};

PlanePieces PiecesOf(const DecodeCommand& command, const PlaneGeometry& g, uint64_t plane) {
  const uint64_t lumaData = uint64_t{g.yMetaBufSize};
  if (command.planeFormat != PlaneFormat::kNv12) {
    return PlanePieces{0, g.yMetaBufSize, lumaData, uint64_t{g.frameSize} - lumaData};
  }
  const uint64_t uvMeta = lumaData + g.yDataBufSize;
  if (plane == kChromaPlane) {
    return PlanePieces{uvMeta, g.uvMetaBufSize, uvMeta + g.uvMetaBufSize, g.yDataBufSize};
  }
  return PlanePieces{0, g.yMetaBufSize, lumaData, g.yDataBufSize};
}

// The data bytes a band's tiles are fetched from, as named by `context`'s
// tables; false when the band cannot be read piece by piece.
bool BandWindowOf(const DecodeCommand& command, const DecodeSession& s, ZpakContext* context,
                  const TileRowBand& band, BandWindow* window) {
  const PlanePieces pieces = PiecesOf(command, s.geometry, band.plane);
  const bool named =
      command.planeFormat == PlaneFormat::kRgb565
          ? ZpakRgb565BandWindow(context, *s.config, band, pieces.metaBytes, window)
          : ZpakBandWindow(context, *s.config, band, pieces.metaBytes, window);
  return named && window->dataEnd - window->dataFirst <= pieces.windowCapacity;
}

// Reads up to `bytes` bytes at offset `at` of the file; returns how many
// arrived (fewer when the file ends first). Positioned reads leave the
// stream's own position alone and may run on several threads at once.
uint64_t ReadAt(int fd, uint8_t* to, uint64_t bytes, uint64_t at) {
  uint64_t got = 0;
  while (got < bytes) {
    const ssize_t n = pread(fd, to + got, bytes - got, static_cast<off_t>(at + got));
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;
    got += static_cast<uint64_t>(n);
  }
  return got;
}

// Reads the data bytes band `index`'s tiles are fetched from into the
// worker's buffer, and decodes the band from there. A read that comes up
// short (the file shrank under the command) leaves the rest reading as zeros.
void DecodeBandPieceByPiece(const DecodeCommand& command, const DecodeSession& s,
                            const BandWorker& worker, const ZpakConfig& config,
                            const TileRowBand& band, uint64_t index) {
  const PlanePieces pieces = PiecesOf(command, s.geometry, band.plane);
  BandWindow window = s.bandWindows[index];
  uint64_t got = 0;
  if (window.dataEnd > window.dataFirst) {
    got = ReadAt(fileno(s.input), worker.window, window.dataEnd - window.dataFirst,
                 static_cast<uint64_t>(s.frameStart) + pieces.dataAt + window.dataFirst);
  }
  window.dataEnd = window.dataFirst + got;
  window.data = worker.window;
  if (command.planeFormat == PlaneFormat::kRgb565) {
    DecodeZpakFrameRgb565BandFromWindow(worker.context, &config, band, window);
  } else {
    DecodeZpakFrameBandFromWindow(worker.context, &config, band, window);
  }
}

// The planes of the frame as the whole-frame write gives them, or none when
// this geometry must be decoded whole (the decoder's row pitch is not the one
// the write uses, or rows overlap).
uint32_t BandPlanes(const DecodeCommand& command, const DecodeSession& s, BandPlane* planes) {
  const PlaneGeometry& g = s.geometry;
  const ZpakConfig& c = *s.config;
  const uint64_t rows = s.height >= 1 ? static_cast<uint64_t>(s.height) : 0;
  const uint64_t width = s.width >= 1 ? static_cast<uint64_t>(s.width) : 0;
  constexpr uint64_t kRgbTileRows = 4;
  constexpr uint64_t kNv12TileRows = 8;
  constexpr uint64_t kRgbaTilePixels = 16;
  constexpr uint64_t kNoLimit = UINT64_MAX;  // G and B write every row whole
  switch (command.planeFormat) {
    case PlaneFormat::kNv12: {
      const uint64_t bytes = width * rows * 3 / 2;
      const uint64_t chromaPitch = 2 * ((width + 1) / 2);
      planes[0] = BandPlane{kLumaPlane, ZpakPlaneTileRows(c, kLumaPlane), kNv12TileRows, width,
                            rows, width, 0, bytes};
      planes[1] = BandPlane{kChromaPlane, ZpakPlaneTileRows(c, kChromaPlane), kNv12TileRows,
                            chromaPitch, (rows + 1) / 2, chromaPitch, width * rows, bytes};
      return 2;
    }
    case PlaneFormat::kRgba8888: {
      const uint64_t tilesPerRow = (c.width + kRgbaTilePixels - 1) / kRgbaTilePixels;
      if (std::max<uint64_t>(c.stride, 4 * tilesPerRow) != g.yStride) return 0;
      planes[0] = BandPlane{kLumaPlane, ZpakPlaneTileRows(c, kLumaPlane), kRgbTileRows, g.yStride,
                            rows, kRgbaBytesPerPixel * width, 0, kNoLimit};
      break;
    }
    case PlaneFormat::kRgb565:
      if (kRgb565BytesPerPixel * c.width != g.yStride) return 0;
      planes[0] = BandPlane{kLumaPlane, ZpakRgb565TileRows(c), kRgbTileRows, g.yStride, rows,
                            kRgb565BytesPerPixel * width, 0, kNoLimit};
      break;
  }
  // Rows longer than the pitch run into the next row, which may lie in the
  // next band.
  return planes[0].rowBytes <= planes[0].pitch ? 1 : 0;
}

// The bands of one frame, numbered plane after plane.
struct FrameBands {
  BandPlane planes[2];
  uint64_t step[2];   // tile rows per band
  uint64_t count[2];  // bands of the plane
  uint32_t planeCount;
  uint64_t total;
};

// The frame's bands when it is split for `threads` threads (none when the
// geometry is decoded whole). The descriptor must be filled.
FrameBands MakeFrameBands(const DecodeCommand& command, const DecodeSession& s, uint32_t threads) {
  FrameBands bands{};
  bands.planeCount = BandPlanes(command, s, bands.planes);
  for (uint32_t i = 0; i < bands.planeCount; ++i) {
    bands.step[i] = BandTileRows(bands.planes[i], threads);
    bands.count[i] = CeilDiv(bands.planes[i].tileRows, bands.step[i]);
    bands.total += bands.count[i];
  }
  return bands;
}

// Band `index` of the frame: its plane and tile rows.
struct FrameBand {
  const BandPlane* plane;
  TileRowBand rows;
};

FrameBand BandAt(const FrameBands& bands, uint64_t index) {
  uint32_t i = 0;
  while (i + 1 < bands.planeCount && index >= bands.count[i]) index -= bands.count[i++];
  const BandPlane& p = bands.planes[i];
  const uint64_t first = index * bands.step[i];
  return FrameBand{&p, TileRowBand{p.plane, first, std::min(bands.step[i], p.tileRows - first)}};
}

// Linear rows [first, end) of its plane that a band writes out.
struct LinearRows {
  uint64_t first;
  uint64_t end;
};

LinearRows LinearRowsOf(const FrameBand& band) {
  const BandPlane& p = *band.plane;
  const uint64_t first = band.rows.firstTileRow * p.rowsPerTile;
  const uint64_t end = (band.rows.firstTileRow + band.rows.tileRowCount) * p.rowsPerTile;
  return LinearRows{std::min(first, p.rows), std::min(end, p.rows)};
}

// One frame's bands shared out to the threads. Band i is decoded into ring
// slot i % ringSlots once band i - ringSlots has been written; whichever
// thread finishes the band next in line writes it, and every band after it
// that is ready, while the others go on decoding.
struct FrameRun {
  const DecodeCommand* command;
  DecodeSession* session;
  FrameBands bands;
  std::mutex mutex;
  std::condition_variable slotFreed;
  uint64_t nextWrite = 0;  // the band to be written next
  bool writing = false;    // a thread is writing bands
  bool failed = false;     // U's write fell short: nothing more is written
};

uint8_t* SlotOf(const DecodeSession& s, uint64_t index) {
  return s.ring + (index % s.ringSlots) * s.slotBytes;
}

// Writes band `index` from its slot; only U's writes are checked.
void WriteBand(FrameRun* run, uint64_t index) {
  const DecodeSession& s = *run->session;
  const FrameBand band = BandAt(run->bands, index);
  const LinearRows rows = LinearRowsOf(band);
  if (run->failed || rows.first >= rows.end) return;
  const bool whole = WriteBandRows(s.output, SlotOf(s, index), *band.plane, rows.first, rows.end,
                                   s.geometry.outputSize);
  if (!whole && run->command->planeFormat == PlaneFormat::kNv12) run->failed = true;
}

// Marks band `index` decoded and, unless another thread is writing, writes
// the bands that are next in line.
void FinishBand(FrameRun* run, uint64_t index) {
  DecodeSession& s = *run->session;
  std::unique_lock<std::mutex> lock(run->mutex);
  s.ringBands[index % s.ringSlots] = index + 1;
  if (run->writing) return;
  run->writing = true;
  while (run->nextWrite < run->bands.total &&
         s.ringBands[run->nextWrite % s.ringSlots] == run->nextWrite + 1) {
    const uint64_t next = run->nextWrite;
    lock.unlock();
    WriteBand(run, next);
    lock.lock();
    ++run->nextWrite;
    run->slotFreed.notify_all();
  }
  run->writing = false;
}

void DecodeBandJob(void* argument, uint32_t worker, uint64_t index) {
  auto* run = static_cast<FrameRun*>(argument);
  const DecodeCommand& command = *run->command;
  const DecodeSession& s = *run->session;
  {
    std::unique_lock<std::mutex> lock(run->mutex);
    run->slotFreed.wait(lock, [&] { return run->nextWrite + s.ringSlots > index; });
  }
  const FrameBand band = BandAt(run->bands, index);
  uint8_t* slot = SlotOf(s, index);
  ZpakConfig config = *s.config;
  config.linearY = slot;
  const BandWorker& w = s.workers[worker];
  if (s.pieceFrame) {
    DecodeBandPieceByPiece(command, s, w, config, band.rows, index);
  } else if (command.planeFormat == PlaneFormat::kRgb565) {
    DecodeZpakFrameRgb565Band(w.context, &config, band.rows);
  } else {
    DecodeZpakFrameBand(w.context, &config, band.rows);
  }
  const LinearRows rows = LinearRowsOf(band);
  if (command.planeFormat == PlaneFormat::kRgb565 && rows.first < rows.end) {
    // While the band is in this thread's cache.
    SwapRedAndBlue(slot, static_cast<uint32_t>((rows.end - rows.first) * band.plane->pitch));
  }
  FinishBand(run, index);
}

// Whether the input holds a whole frame from where it stands.
bool WholeFrameAhead(const DecodeSession& s, long at) {
  struct stat info {};
  if (at < 0 || fstat(fileno(s.input), &info) != 0) return false;
  return info.st_size >= at && static_cast<uint64_t>(info.st_size - at) >= s.geometry.frameSize;
}

// Reads the metadata planes of the frame at `at` into their places in the
// frame buffer.
bool ReadMetadataPlanes(const DecodeCommand& command, DecodeSession* s, long at) {
  const uint32_t planes = command.planeFormat == PlaneFormat::kNv12 ? 2 : 1;
  for (uint32_t plane = 0; plane < planes; ++plane) {
    const PlanePieces pieces = PiecesOf(command, s->geometry, plane);
    if (pieces.metaBytes == 0) continue;
    if (std::fseek(s->input, at + static_cast<long>(pieces.metaAt), SEEK_SET) != 0 ||
        std::fread(s->frameBuffer + pieces.metaAt, pieces.metaBytes, 1, s->input) != 1) {
      return false;
    }
  }
  return true;
}

// The data window of every band of `bands`, as `context` names them (which
// builds its tables); false when some band cannot be read piece by piece.
bool FindBandWindows(const DecodeCommand& command, DecodeSession* s, const FrameBands& bands) {
  s->bandWindows.assign(bands.total, BandWindow{});
  for (uint64_t i = 0; i < bands.total; ++i) {
    if (!BandWindowOf(command, *s, s->context, BandAt(bands, i).rows, &s->bandWindows[i])) {
      return false;
    }
  }
  return true;
}

bool IsRegularFile(FILE* file) {
  struct stat info {};
  return fstat(fileno(file), &info) == 0 && S_ISREG(info.st_mode);
}

// The one-thread set-up: worker 0 alone, decoding into the start of the
// output buffer. Also the state a session is released in, where the frame
// buffer may never have been allocated.
void UseOneThread(DecodeSession* s) {
  s->threads = 1;
  uint8_t* const window = s->frameBuffer != nullptr ? s->frameBuffer + s->geometry.yMetaBufSize : nullptr;
  s->workers.assign(1, BandWorker{s->context, window});
  s->ring = s->outputBuffer;
  s->ringSlots = 1;
  s->slotBytes = 0;
  s->ringBands.assign(1, 0);
}

// The smallest room for data windows after the first metadata plane of the
// frame buffer, over the frame's planes.
uint64_t WindowRoom(const DecodeCommand& command, const DecodeSession& s) {
  uint64_t room = PiecesOf(command, s.geometry, kLumaPlane).windowCapacity;
  if (command.planeFormat == PlaneFormat::kNv12) {
    room = std::min(room, PiecesOf(command, s.geometry, kChromaPlane).windowCapacity);
  }
  return room;
}

// Obtains the buffers and contexts of s->threads threads for `bands`; false
// when some cannot be had. Where they fit, the ring lies at the start of the
// output buffer and the threads' data windows one after the other after the
// frame buffer's first metadata plane, parts of those buffers that
// piece-by-piece decoding leaves unused and whose first pages are touched
// anyway.
bool ObtainThreadBuffers(const DecodeCommand& command, DecodeSession* s, const FrameBands& bands,
                         uint64_t windowBytes) {
  const uint32_t threads = s->threads;
  uint64_t slotBytes = 0;
  for (uint32_t i = 0; i < bands.planeCount; ++i) {
    slotBytes = std::max(slotBytes, bands.step[i] * bands.planes[i].rowsPerTile * bands.planes[i].pitch);
  }
  s->ringSlots = kRingSlotsPerThread * threads;
  s->slotBytes = slotBytes;
  s->ringBands.assign(s->ringSlots, 0);
  const uint64_t ringBytes = s->ringSlots * slotBytes;
  s->ringOwned = ringBytes > s->geometry.outputSize;
  s->ring = s->ringOwned ? AllocateZeroed(ringBytes) : s->outputBuffer;
  uint8_t* const room = s->frameBuffer + s->geometry.yMetaBufSize;
  const bool windowsFit = threads * windowBytes <= WindowRoom(command, *s);
  if (!windowsFit) s->windows = AllocateZeroed((threads - 1) * windowBytes);
  s->workers.assign(threads, BandWorker{s->context, room});
  bool obtained = s->ring != nullptr && (windowsFit || s->windows != nullptr);
  for (uint32_t t = 1; t < threads; ++t) {
    ZpakContext* context = AllocateZpakContext();
    if (context != nullptr) {
      ConfigureZpakContext(context, ContextFormatOf(command.planeFormat));
      BorrowTileAddressTables(&context->addressTables, s->context->addressTables);
    }
    uint8_t* window = windowsFit              ? room + t * windowBytes
                      : s->windows != nullptr ? s->windows + (t - 1) * windowBytes
                                              : nullptr;
    s->workers[t] = BandWorker{context, window};
    obtained = obtained && context != nullptr;
  }
  return obtained;
}

}  // namespace

void PrepareBands(const DecodeCommand& command, DecodeSession* s, uint32_t threads) {
  UseOneThread(s);
  s->pieceByPiece = false;
  if (s->geometry.frameSize == 0) return;
  FillDecodeConfig(s->config, command.planeFormat, s->geometry, s->width, s->height,
                   s->frameBuffer, s->outputBuffer);
  // A frame of one band (or decoded whole) keeps to one thread; the workers
  // are started first, as the bands are cut for the threads there are.
  if (threads > 1 && MakeFrameBands(command, *s, threads).total > 1) {
    s->threads = 1 + api::StartWorkers(s->pool, threads - 1);
  }
  const FrameBands bands = MakeFrameBands(command, *s, s->threads);
  if (bands.planeCount == 0) return;
  // Built once: the windows follow from the geometry alone. They also build
  // the tables the other threads borrow.
  const bool windows = FindBandWindows(command, s, bands);
  s->pieceByPiece = windows && IsRegularFile(s->input);
  uint64_t windowBytes = 0;
  if (s->pieceByPiece) {
    for (const BandWindow& w : s->bandWindows) windowBytes = std::max(windowBytes, w.dataEnd - w.dataFirst);
  }
  if (s->threads > 1 && !ObtainThreadBuffers(command, s, bands, windowBytes)) {
    // Without them, one thread; the windows of its bands instead.
    const bool pieceByPiece = s->pieceByPiece;
    ReleaseBands(s);
    s->pieceByPiece = pieceByPiece && FindBandWindows(command, s, MakeFrameBands(command, *s, 1));
  }
}

void ReleaseBands(DecodeSession* s) {
  if (s->pool != nullptr) api::StopWorkers(s->pool);
  for (size_t t = 1; t < s->workers.size(); ++t) ReleaseZpakContext(s->workers[t].context);
  if (s->ringOwned) ReleaseZeroed(s->ring);
  s->ringOwned = false;
  ReleaseZeroed(s->windows);
  s->windows = nullptr;
  UseOneThread(s);
}

// Decodes and writes one frame; false when U's write falls short.
bool DecodeAndWriteFrame(const DecodeCommand& command, DecodeSession* s) {
  FrameRun run{};
  run.command = &command;
  run.session = s;
  run.bands = MakeFrameBands(command, *s, s->threads);
  if (run.bands.planeCount == 0) {
    if (command.planeFormat == PlaneFormat::kRgb565) {
      DecodeZpakFrameRgb565(s->context, s->config);
    } else {
      DecodeZpakFrame(s->context, s->config);
    }
    return WriteFrame(command, *s);
  }
  std::fill(s->ringBands.begin(), s->ringBands.end(), 0);
  api::RunJobs(s->pool, run.bands.total, DecodeBandJob, &run);
  return !run.failed;
}

// Reads the next frame, whole or (from a regular file) its metadata planes
// only; false when no whole frame is left.
bool ReadNextFrame(const DecodeCommand& command, DecodeSession* s) {
  const uint32_t frameSize = s->geometry.frameSize;
  s->pieceFrame = false;
  if (s->pieceByPiece) {
    const long at = std::ftell(s->input);
    if (WholeFrameAhead(*s, at)) {
      if (ReadMetadataPlanes(command, s, at)) {
        s->frameStart = at;
        s->pieceFrame = true;
        return true;
      }
      std::fseek(s->input, at, SEEK_SET);
    }
  }
  return std::fread(s->frameBuffer, frameSize, 1, s->input) == 1;
}

}  // namespace pelcast::decode_detail
