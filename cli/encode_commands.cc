// Commands H and N: linear RGBA8888 and NV12 frames to ZPAK frames.
//
// Both read one linear frame into a zero-filled staging buffer laid out with
// the aligned strides, have the frame encoder fill a compressed frame buffer,
// and append that whole buffer to the output. Geometry and buffers come from
// PrepareZpakBuffers; dimensions whose buffers would reach 2^31 bytes are
// refused before anything is allocated.
//
// The work of a frame is shared out to the library's worker threads: while
// the previous frame is written, the frame is read band by band and each
// band of tile rows is encoded as soon as its rows are in. Messages, files
// and their order are those of doing it all one step after the other, which
// is what one thread does.
#include <algorithm>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <vector>

#include "api/worker_pool.h"
#include "cli/command_threads.h"
#include "cli/commands.h"
#include "encoder/frame_encoder.h"
#include "io/file_io.h"
#include "surface/frame_config.h"
#include "surface/plane_geometry.h"
#include "surface/tile_band.h"
#include "surface/tile_format.h"
#include "surface/zpak_context.h"

namespace pelcast {
namespace {

constexpr uint64_t kRgbaPixelBytes = 4;
// Chroma rows are read in chunks of at most this many bytes (an even count,
// so U and V keep their parity from chunk to chunk).
constexpr size_t kChromaChunkBytes = 16384;
// A band of about this many staging bytes is read, then encoded, at a time.
constexpr uint64_t kBandBytes = uint64_t{1} << 18;
// With threads, a plane is cut into at least this many bands per thread.
constexpr uint64_t kBandsPerThread = 4;
constexpr uint64_t kNv12TileRows = 8;  // linear rows of an NV12 tile row
constexpr uint64_t kRgbaTileRows = 4;
// Compressed frame buffers: with threads, frame n is encoded into buffer
// n % 2 while frame n - 1 is written from the other.
constexpr uint32_t kCompressedBuffers = 2;

// What both commands obtain before their frame loop.
struct EncodeSession {
  FILE* input = nullptr;
  FILE* output = nullptr;
  ZpakContext* context = nullptr;
  ZpakConfig* config = nullptr;
  ZpakInfo* info = nullptr;
  uint8_t* compressed = nullptr;
  uint8_t* staging = nullptr;
  uint64_t surface = 0;        // kSurfaceNv12 or kSurfaceRgba8888
  uint64_t contextFormat = 0;  // kContextNv12 or kContextRgba8888
  int32_t width = 0;
  int32_t height = 0;
  // Threads: contexts[t] is thread t's (contexts[0] is `context`); with more
  // than one, frames alternate between `compressed` and `second`.
  api::WorkerPool pool;
  std::vector<ZpakContext*> contexts;
  uint8_t* second = nullptr;
};

// Opens both files; prints the open-failure message naming the file that
// failed. The output is refused when it is the input itself.
bool OpenFiles(const char* inputPath, const char* outputPath, EncodeSession* s) {
  s->input = OpenInput(inputPath);
  if (s->input == nullptr) {
    std::printf("ERROR: Unable to open File %s\n", inputPath);
    return false;
  }
  s->output = OpenOutput(outputPath, inputPath);
  if (s->output == nullptr) {
    std::printf("ERROR: Unable to open File %s\n", outputPath);
    return false;
  }
  return true;
}

// Obtains the zero-filled context, descriptor and info record.
bool ObtainRecords(EncodeSession* s) {
  s->context = AllocateZpakContext();
  s->config = static_cast<ZpakConfig*>(std::calloc(1, sizeof(ZpakConfig)));
  s->info = static_cast<ZpakInfo*>(std::calloc(1, sizeof(ZpakInfo)));
  if (s->context != nullptr && s->config != nullptr && s->info != nullptr) return true;
  std::printf("ERROR: Allocation Failure hZPAK=%p pZPAKConfig=%p zpakInfo=%p\n",
              static_cast<void*>(s->context), static_cast<void*>(s->config),
              static_cast<void*>(s->info));
  return false;
}

// Refuses impossible dimensions, else lays out and allocates the buffers.
bool PrepareBuffers(EncodeSession* s, uint32_t format) {
  if (const char* problem = EncodeSizeProblem(format, s->width, s->height)) {
    std::puts(problem);
    return false;
  }
  PrepareZpakBuffers(s->info, &s->compressed, &s->staging, static_cast<uint32_t>(s->width),
                     static_cast<uint32_t>(s->height), format);
  if (s->compressed != nullptr && s->staging != nullptr) return true;
  std::printf("ERROR: Allocation Failure pDataAddr=%p scratch=%p \n",
              static_cast<void*>(s->compressed), static_cast<void*>(s->staging));
  return false;
}

// The thread count's contexts, reading the tables of `context`, and the
// second compressed buffer; false when they cannot all be had.
bool ObtainThreadState(EncodeSession* s, uint32_t threads) {
  s->contexts.assign(threads, nullptr);
  s->contexts[0] = s->context;
  bool obtained = true;
  for (uint32_t t = 1; t < threads; ++t) {
    s->contexts[t] = AllocateZpakContext();
    if (s->contexts[t] == nullptr) {
      obtained = false;
      continue;
    }
    ConfigureZpakContext(s->contexts[t], s->contextFormat);
    BorrowTileAddressTables(&s->contexts[t]->addressTables, s->context->addressTables);
  }
  // Touched only when a second frame comes.
  s->second = AllocateZeroed(s->info->bufferSize);
  return obtained && s->second != nullptr;
}

void ReleaseThreadState(EncodeSession* s) {
  api::StopWorkers(&s->pool);
  for (size_t t = 1; t < s->contexts.size(); ++t) ReleaseZpakContext(s->contexts[t]);
  s->contexts.assign(1, s->context);
  ReleaseZeroed(s->second);
  s->second = nullptr;
}

// Starts up to `threads` - 1 workers with what they need (even for frames of
// a single band: a frame is then read while the one before is written).
void PrepareThreads(EncodeSession* s, uint32_t threads) {
  s->contexts.assign(1, s->context);
  if (threads <= 1) return;
  threads = 1 + api::StartWorkers(&s->pool, threads - 1);
  if (threads <= 1 || !ObtainThreadState(s, threads)) ReleaseThreadState(s);
}

void ReleaseSession(EncodeSession* s) {
  ReleaseThreadState(s);
  ReleaseZeroed(s->compressed);
  ReleaseZeroed(s->staging);
  std::free(s->config);
  std::free(s->info);
  ReleaseZpakContext(s->context);
  CloseFile(s->output);
  CloseFile(s->input);
}

// Splits `pairs` interleaved U/V pairs into the U and V rows.
void SplitChromaPairs(const uint8_t* interleaved, size_t pairs, uint8_t* u, uint8_t* v) {
  for (size_t i = 0; i < pairs; ++i) {
    u[i] = interleaved[2 * i];
    v[i] = interleaved[2 * i + 1];
  }
}

// A plane of the staged frame as the encoder walks it in bands.
struct EncodePlane {
  uint64_t plane;        // kLumaPlane or kChromaPlane
  uint64_t tileRows;     // tile rows the encoder stores
  uint64_t rowsPerTile;  // staging rows of a tile row
  uint64_t imageRows;    // rows of the plane the input fills
  uint64_t step;         // tile rows per band
  uint64_t bands;
};

// The planes of a frame and their bands, numbered plane after plane.
struct EncodeBands {
  EncodePlane planes[2];
  uint32_t planeCount;
  uint64_t total;
};

EncodePlane MakeEncodePlane(uint64_t plane, uint64_t tileRows, uint64_t rowsPerTile,
                            uint64_t imageRows, uint64_t rowBytes, uint32_t threads) {
  const uint64_t tileRowBytes = std::max<uint64_t>(rowsPerTile * rowBytes, 1);
  uint64_t step = std::max<uint64_t>(kBandBytes / tileRowBytes, 1);
  if (threads > 1) step = std::min(step, CeilDiv(tileRows, kBandsPerThread * threads));
  step = std::max<uint64_t>(step, 1);
  return EncodePlane{plane, tileRows, rowsPerTile, imageRows, step, CeilDiv(tileRows, step)};
}

EncodeBands MakeEncodeBands(const EncodeSession& s, uint32_t threads) {
  const ZpakInfo& info = *s.info;
  const auto rows = static_cast<uint64_t>(s.height);
  EncodeBands bands{};
  if (s.surface == kSurfaceNv12) {
    const uint64_t lumaRows = CeilDiv(uint64_t{info.linearScanlines}, kNv12TileRows);
    bands.planes[0] =
        MakeEncodePlane(kLumaPlane, lumaRows, kNv12TileRows, rows, info.linearStride, threads);
    bands.planes[1] = MakeEncodePlane(kChromaPlane, (lumaRows + 1) / 2, kNv12TileRows,
                                      (rows + 1) / 2, info.linearStride, threads);
    bands.planeCount = 2;
  } else {
    bands.planes[0] = MakeEncodePlane(kLumaPlane, CeilDiv(uint64_t{info.yScanlines}, kRgbaTileRows),
                                      kRgbaTileRows, rows, info.yStride, threads);
    bands.planeCount = 1;
  }
  for (uint32_t p = 0; p < bands.planeCount; ++p) bands.total += bands.planes[p].bands;
  return bands;
}

// One frame's work: job 0 writes the previous frame (when one waits), job 1
// reads this frame, and the jobs after encode its bands, each once the rows
// it covers are in. A band of a frame that could not be read whole is not
// encoded.
struct FrameRun {
  EncodeSession* session;
  EncodeBands bands;
  uint8_t* compressed;      // this frame's buffer
  const uint8_t* previous;  // the frame to write first, or null
  bool clearSlots;          // the buffer holds an earlier frame
  std::mutex mutex;
  std::condition_variable progress;
  uint64_t rowsIn[2] = {};  // image rows of each plane staged so far
  bool readDone = false;
  bool readWhole = false;
  size_t lumaBytes = 0;      // N: bytes of the Y plane that arrived
  bool writeFailed = false;  // the previous frame's write fell short
};

constexpr uint64_t kWriteJob = 0;
constexpr uint64_t kReadJob = 1;
constexpr uint64_t kFirstBandJob = 2;

// Publishes that `rows` image rows of `plane` are staged.
void Publish(FrameRun* run, uint64_t plane, uint64_t rows) {
  std::lock_guard<std::mutex> lock(run->mutex);
  run->rowsIn[plane] = rows;
  run->progress.notify_all();
}

void FinishRead(FrameRun* run, bool whole) {
  std::lock_guard<std::mutex> lock(run->mutex);
  run->readDone = true;
  run->readWhole = whole;
  run->progress.notify_all();
}

// Reads `rows` rows of `rowBytes` bytes into `buffer`, row i at i x `pitch`,
// a band at a time, publishing each band; returns how many bytes arrived
// before the input ended (as that many consecutive one-row reads would give).
// Rows that lie back to back go in one read per band; padded rows one read
// each, so the padding is never written.
size_t ReadPlaneRows(FrameRun* run, uint8_t* buffer, size_t rowBytes, size_t rows, size_t pitch) {
  FILE* input = run->session->input;
  const EncodePlane& plane = run->bands.planes[0];
  const size_t bandRows = plane.step * plane.rowsPerTile;
  size_t total = 0;
  for (size_t first = 0; first < rows; first += bandRows) {
    const size_t count = std::min(bandRows, rows - first);
    size_t got = 0;
    if (pitch == rowBytes) {
      got = std::fread(buffer + first * pitch, 1, rowBytes * count, input);
    } else {
      for (size_t i = first; i < first + count; ++i) {
        const size_t row = std::fread(buffer + i * pitch, 1, rowBytes, input);
        got += row;
        if (row < rowBytes) break;
      }
    }
    total += got;
    if (got < rowBytes * count) break;
    Publish(run, kLumaPlane, first + count);
  }
  return total;
}

// Reads the interleaved chroma of one frame into the separate U and V planes
// of the staging buffer (cs bytes to a row, chs rows each), in bulk. A short
// read means the input has ended, so every later read would return nothing:
// the rest of the chroma is zeroed, exactly as reading it byte by byte into
// a cleared buffer would leave it.
void ReadNv12Chroma(FrameRun* run) {
  const EncodeSession& s = *run->session;
  const ZpakInfo& info = *s.info;
  uint8_t* uPlane = s.staging + static_cast<size_t>(info.linearScanlines) * info.linearStride;
  const size_t cs = (static_cast<size_t>(info.linearStride) + 1) >> 1;
  const size_t chs = (static_cast<size_t>(info.linearScanlines) + 1) >> 1;
  uint8_t* vPlane = uPlane + cs * chs;
  const size_t pairs = (static_cast<size_t>(s.width) + 1) >> 1;
  const int64_t rows = (static_cast<int64_t>(s.height) + 1) >> 1;
  const EncodePlane& plane = run->bands.planes[1];
  const auto bandRows = static_cast<int64_t>(plane.step * plane.rowsPerTile);
  uint8_t chunk[kChromaChunkBytes];
  bool ended = false;
  for (int64_t r = 0; r < rows; ++r) {
    uint8_t* u = uPlane + static_cast<size_t>(r) * cs;
    uint8_t* v = vPlane + static_cast<size_t>(r) * cs;
    // Every chunk is a whole number of pairs: rows and chunks are even.
    for (size_t done = 0; done < 2 * pairs;) {
      const size_t want = std::min(2 * pairs - done, kChromaChunkBytes);
      const size_t got = ended ? 0 : std::fread(chunk, 1, want, s.input);
      std::memset(chunk + got, 0, want - got);
      SplitChromaPairs(chunk, want / 2, u + done / 2, v + done / 2);
      ended = ended || got < want;
      done += want;
    }
    if ((r + 1) % bandRows == 0 || r + 1 == rows) Publish(run, kChromaPlane, static_cast<uint64_t>(r + 1));
  }
}

// Reads h rows of 4w bytes (H), or the Y rows and the chroma (N).
void ReadJob(FrameRun* run) {
  const EncodeSession& s = *run->session;
  const ZpakInfo& info = *s.info;
  const auto rows = static_cast<size_t>(s.height);
  if (s.surface == kSurfaceRgba8888) {
    const size_t rowBytes = kRgbaPixelBytes * static_cast<size_t>(s.width);
    // A read of a zero-byte row fails, as a one-item read of it would.
    if (rowBytes == 0) {
      FinishRead(run, rows == 0);
      return;
    }
    FinishRead(run, ReadPlaneRows(run, s.staging, rowBytes, rows, info.yStride) == rowBytes * rows);
    return;
  }
  const auto rowBytes = static_cast<size_t>(s.width);
  run->lumaBytes = ReadPlaneRows(run, s.staging, rowBytes, rows, info.linearStride);
  if (run->lumaBytes < rowBytes * rows) {
    FinishRead(run, false);
    return;
  }
  ReadNv12Chroma(run);
  FinishRead(run, true);
}

void WriteJob(FrameRun* run) {
  const EncodeSession& s = *run->session;
  if (std::fwrite(run->previous, s.info->bufferSize, 1, s.output) != 1) {
    run->writeFailed = true;
    return;
  }
  std::fflush(s.output);
}

void EncodeBandJob(FrameRun* run, uint32_t worker, uint64_t index) {
  const EncodeBands& bands = run->bands;
  uint32_t p = 0;
  while (p + 1 < bands.planeCount && index >= bands.planes[p].bands) index -= bands.planes[p++].bands;
  const EncodePlane& plane = bands.planes[p];
  const uint64_t first = index * plane.step;
  const TileRowBand band{plane.plane, first, std::min(plane.step, plane.tileRows - first)};
  const uint64_t needed =
      std::min((band.firstTileRow + band.tileRowCount) * plane.rowsPerTile, plane.imageRows);
  {
    std::unique_lock<std::mutex> lock(run->mutex);
    run->progress.wait(lock, [&] { return run->readDone || run->rowsIn[p] >= needed; });
    if (run->rowsIn[p] < needed || (run->readDone && !run->readWhole)) return;
  }
  EncodeSession& s = *run->session;
  ZpakConfig config;
  FillEncodeConfig(&config, s.surface, *s.info, run->compressed, s.staging);
  config.clearUnusedSlotBytes = run->clearSlots ? 1 : 0;
  EncodeZpakFrameBand(s.contexts[worker], &config, band);
}

void FrameJob(void* argument, uint32_t worker, uint64_t index) {
  auto* run = static_cast<FrameRun*>(argument);
  if (index == kWriteJob) {
    if (run->previous != nullptr) WriteJob(run);
  } else if (index == kReadJob) {
    ReadJob(run);
  } else {
    EncodeBandJob(run, worker, index - kFirstBandJob);
  }
}

// The frame loop's state: the frame whose write is due, and the buffers.
struct FrameLoop {
  EncodeSession* session;
  EncodeBands bands;
  uint8_t* buffers[kCompressedBuffers];
  uint32_t bufferCount;
  const uint8_t* pending = nullptr;  // a converted frame not yet written
};

FrameLoop MakeFrameLoop(EncodeSession* s) {
  const auto threads = static_cast<uint32_t>(s->contexts.size());
  FrameLoop loop{s, MakeEncodeBands(*s, threads), {s->compressed, s->second}, 1};
  if (threads > 1) loop.bufferCount = kCompressedBuffers;
  return loop;
}

// Reads and encodes frame n while frame n - 1 (when pending) is written.
void RunFrame(FrameLoop* loop, unsigned n, FrameRun* run) {
  run->session = loop->session;
  run->bands = loop->bands;
  run->compressed = loop->buffers[n % loop->bufferCount];
  run->previous = loop->pending;
  // Fresh buffers are zero; a reused one still holds an earlier frame.
  run->clearSlots = n >= loop->bufferCount;
  api::RunJobs(&loop->session->pool, kFirstBandJob + run->bands.total, FrameJob, run);
}

// Runs H's frame loop to its end: the end-of-input messages, or the
// write-failure message (which names the input path).
void RunRgbaLoop(EncodeSession* s, const char* inputPath) {
  FrameLoop loop = MakeFrameLoop(s);
  // The staging buffer is zero from its allocation, and every frame fills the
  // same bytes of it (a frame whose rows cannot all be read is not encoded),
  // so clearing it again before each frame would change nothing.
  for (unsigned n = 0;; ++n) {
    FrameRun run;
    RunFrame(&loop, n, &run);
    if (run.writeFailed) {
      std::printf("ERROR: Failed to write to file %s", inputPath);
      return;
    }
    if (!run.readWhole) break;
    std::printf("Input Frame Read completed=%u\n", n);
    std::printf("Input Frame CONVERSION completed=%u\n", n);
    loop.pending = run.compressed;
  }
  std::puts(AtEndOfFile(s->input) ? "End of file Reached" : "Incomplete file read");
  std::puts("Process complete....Exiting ");
}

// Runs N's frame loop; returns whether the usage text is due (a short Y
// row).
bool RunNv12Loop(EncodeSession* s, const char* inputPath) {
  FrameLoop loop = MakeFrameLoop(s);
  const auto rowBytes = static_cast<size_t>(s->width);
  // As in H, the staging buffer needs no clearing between frames: Y rows are
  // read whole or the loop ends, and the chroma read writes every byte it
  // covers (zero past the end of the input).
  for (unsigned n = 0;; ++n) {
    FrameRun run;
    RunFrame(&loop, n, &run);
    if (run.writeFailed) {
      std::printf("ERROR: Failed to write to file %s", inputPath);
      return false;
    }
    if (!run.readWhole) {
      // The row that came up short, as a read of that row alone reports it.
      std::printf("fread Y plane failed readCount %u",
                  static_cast<unsigned>(run.lumaBytes % rowBytes));
      return true;
    }
    std::printf("Input Frame Read completed=%u\n", n);
    loop.pending = run.compressed;
  }
}

// Opens, checks and prepares everything for `format`; false after a
// failure message.
bool StartSession(EncodeSession* s, const char* input, const char* output, uint32_t format) {
  if (!OpenFiles(input, output, s) || !ObtainRecords(s)) return false;
  ConfigureZpakContext(s->context, s->contextFormat);
  if (!PrepareBuffers(s, format)) return false;
  // Tables are built before the loop so that it allocates nothing.
  FillEncodeConfig(s->config, s->surface, *s->info, s->compressed, s->staging);
  PrepareZpakFrameTables(s->context, s->config);
  std::memset(s->config, 0, sizeof(ZpakConfig));
  PrepareThreads(s, CommandThreads());
  return true;
}

}  // namespace

void EncodeRgba8888Command(const char* input, const char* output, int32_t width, int32_t height) {
  EncodeSession s;
  s.surface = kSurfaceRgba8888;
  s.contextFormat = kContextRgba8888;
  s.width = width;
  s.height = height;
  const bool started = StartSession(&s, input, output, kPrepareRgba8888);
  if (started) RunRgbaLoop(&s, input);
  ReleaseSession(&s);
  if (!started) PrintUsage();
}

void EncodeNv12Command(const char* input, const char* output, int32_t width, int32_t height) {
  EncodeSession s;
  s.surface = kSurfaceNv12;
  s.contextFormat = kContextNv12;
  s.width = width;
  s.height = height;
  bool failed = !StartSession(&s, input, output, kPrepareNv12);
  if (!failed) failed = RunNv12Loop(&s, input);
  ReleaseSession(&s);
  if (failed) PrintUsage();
}

}  // namespace pelcast
