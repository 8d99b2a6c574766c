// Commands H and N: linear RGBA8888 and NV12 frames to ZPAK frames.
//
// Both read one linear frame into a zero-filled staging buffer laid out with
// the aligned strides, have the frame encoder fill a zero-filled compressed
// frame buffer, and append that whole buffer to the output. Geometry and
// buffers come from PrepareZpakBuffers; dimensions whose buffers would reach
// 2^31 bytes are refused before anything is allocated.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "cli/commands.h"
#include "io/file_io.h"
#include "encoder/frame_encoder.h"
#include "surface/frame_config.h"
#include "surface/plane_geometry.h"
#include "surface/zpak_context.h"

namespace pelcast {
namespace {

constexpr uint64_t kRgbaPixelBytes = 4;
constexpr uint64_t kEncoderFailed = 1;
// Chroma rows are read in chunks of at most this many bytes (an even count,
// so U and V keep their parity from chunk to chunk).
constexpr size_t kChromaChunkBytes = 16384;

// What both commands obtain before their frame loop.
struct EncodeSession {
  FILE* input = nullptr;
  FILE* output = nullptr;
  ZpakContext* context = nullptr;
  ZpakConfig* config = nullptr;
  ZpakInfo* info = nullptr;
  uint8_t* compressed = nullptr;
  uint8_t* staging = nullptr;
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
bool PrepareBuffers(EncodeSession* s, int32_t width, int32_t height, uint32_t format) {
  if (const char* problem = EncodeSizeProblem(format, width, height)) {
    std::puts(problem);
    return false;
  }
  PrepareZpakBuffers(s->info, &s->compressed, &s->staging, static_cast<uint32_t>(width),
                     static_cast<uint32_t>(height), format);
  if (s->compressed != nullptr && s->staging != nullptr) return true;
  std::printf("ERROR: Allocation Failure pDataAddr=%p scratch=%p \n",
              static_cast<void*>(s->compressed), static_cast<void*>(s->staging));
  return false;
}

void ReleaseSession(EncodeSession* s) {
  ReleaseZeroed(s->compressed);
  ReleaseZeroed(s->staging);
  std::free(s->config);
  std::free(s->info);
  ReleaseZpakContext(s->context);
  CloseFile(s->output);
  CloseFile(s->input);
}

void FillRgbaConfig(const EncodeSession& s) {
  FillEncodeConfig(s.config, kSurfaceRgba8888, *s.info, s.compressed, s.staging);
}

void FillNv12Config(const EncodeSession& s) {
  FillEncodeConfig(s.config, kSurfaceNv12, *s.info, s.compressed, s.staging);
}

// Reads `rows` rows of `rowBytes` bytes into `buffer`, row i at i x `pitch`,
// as that many consecutive reads of one row would, and returns how many bytes
// arrived before the input ended. Rows that lie back to back go in one read;
// padded rows one read each, so the padding is never written.
size_t ReadRows(FILE* input, uint8_t* buffer, size_t rowBytes, size_t rows, size_t pitch) {
  if (pitch == rowBytes) return std::fread(buffer, 1, rowBytes * rows, input);
  size_t total = 0;
  for (size_t i = 0; i < rows; ++i) {
    const size_t got = std::fread(buffer + i * pitch, 1, rowBytes, input);
    total += got;
    if (got < rowBytes) break;
  }
  return total;
}

// Reads h rows of 4w bytes, row i at i x yStride. False when the input ends
// before the last row is whole.
bool ReadRgbaFrame(const EncodeSession& s, int32_t width, int32_t height) {
  const size_t rowBytes = kRgbaPixelBytes * static_cast<size_t>(width);
  const size_t rows = static_cast<size_t>(height);
  // A read of a zero-byte row fails, as a one-item read of it would.
  if (rowBytes == 0) return rows == 0;
  return ReadRows(s.input, s.staging, rowBytes, rows, s.info->yStride) == rowBytes * rows;
}

// Splits `pairs` interleaved U/V pairs into the U and V rows.
void SplitChromaPairs(const uint8_t* interleaved, size_t pairs, uint8_t* u, uint8_t* v) {
  for (size_t i = 0; i < pairs; ++i) {
    u[i] = interleaved[2 * i];
    v[i] = interleaved[2 * i + 1];
  }
}

// Reads the interleaved chroma of one frame into the separate U and V planes
// of the staging buffer (cs bytes to a row, chs rows each), in bulk. A short
// read means the input has ended, so every later read would return nothing:
// the rest of the chroma is zeroed, exactly as reading it byte by byte into
// a cleared buffer would leave it.
void ReadNv12Chroma(const EncodeSession& s, int32_t width, int32_t height) {
  const ZpakInfo& info = *s.info;
  uint8_t* uPlane = s.staging + static_cast<size_t>(info.linearScanlines) * info.linearStride;
  const size_t cs = (static_cast<size_t>(info.linearStride) + 1) >> 1;
  const size_t chs = (static_cast<size_t>(info.linearScanlines) + 1) >> 1;
  uint8_t* vPlane = uPlane + cs * chs;
  const size_t pairs = (static_cast<size_t>(width) + 1) >> 1;
  const int64_t rows = (static_cast<int64_t>(height) + 1) >> 1;
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
  }
}

// Runs H's frame loop to its end: the end-of-input messages, or the
// write-failure message (which names the input path).
void RunRgbaLoop(const EncodeSession& s, int32_t width, int32_t height, const char* inputPath) {
  const ZpakInfo& info = *s.info;
  // The staging buffer is zero from its allocation, and every frame fills the
  // same bytes of it (a frame whose rows cannot all be read is not encoded),
  // so clearing it again before each frame would change nothing.
  for (unsigned n = 0;; ++n) {
    if (n != 0) std::memset(s.compressed, 0, info.bufferSize);  // fresh buffers are zero
    if (!ReadRgbaFrame(s, width, height)) break;
    std::printf("Input Frame Read completed=%u\n", n);
    FillRgbaConfig(s);
    EncodeZpakFrame(s.context, s.config);
    std::printf("Input Frame CONVERSION completed=%u\n", n);
    if (std::fwrite(s.compressed, info.bufferSize, 1, s.output) != 1) {
      std::printf("ERROR: Failed to write to file %s", inputPath);
      return;
    }
    std::fflush(s.output);
  }
  std::puts(AtEndOfFile(s.input) ? "End of file Reached" : "Incomplete file read");
  std::puts("Process complete....Exiting ");
}

// Runs N's frame loop; returns whether the usage text is due (a short Y row,
// or an encoder failure before a failed write).
bool RunNv12Loop(const EncodeSession& s, int32_t width, int32_t height, const char* inputPath) {
  const ZpakInfo& info = *s.info;
  const size_t rowBytes = static_cast<size_t>(width);
  // As in H, the staging buffer needs no clearing between frames: Y rows are
  // read whole or the loop ends, and the chroma read writes every byte it
  // covers (zero past the end of the input).
  for (unsigned n = 0;; ++n) {
    if (n != 0) std::memset(s.compressed, 0, info.bufferSize);  // fresh buffers are zero
    const size_t got =
        ReadRows(s.input, s.staging, rowBytes, static_cast<size_t>(height), info.linearStride);
    if (got < rowBytes * static_cast<size_t>(height)) {
      // The row that came up short, as a read of that row alone reports it.
      std::printf("fread Y plane failed readCount %u", static_cast<unsigned>(got % rowBytes));
      return true;
    }
    ReadNv12Chroma(s, width, height);
    std::printf("Input Frame Read completed=%u\n", n);
    FillNv12Config(s);
    const bool failed = EncodeZpakFrame(s.context, s.config) == kEncoderFailed;
    if (std::fwrite(s.compressed, info.bufferSize, 1, s.output) != 1) {
      std::printf("ERROR: Failed to write to file %s", inputPath);
      return failed;
    }
    std::fflush(s.output);
  }
}

}  // namespace

void EncodeRgba8888Command(const char* input, const char* output, int32_t width, int32_t height) {
  EncodeSession s;
  bool failed = !OpenFiles(input, output, &s) || !ObtainRecords(&s);
  if (!failed) {
    ConfigureZpakContext(s.context, kContextRgba8888);
    failed = !PrepareBuffers(&s, width, height, kPrepareRgba8888);
  }
  if (!failed) {
    // Tables are built before the loop so that it allocates nothing.
    FillRgbaConfig(s);
    PrepareZpakFrameTables(s.context, s.config);
    std::memset(s.config, 0, sizeof(ZpakConfig));
    RunRgbaLoop(s, width, height, input);
  }
  ReleaseSession(&s);
  if (failed) PrintUsage();
}

void EncodeNv12Command(const char* input, const char* output, int32_t width, int32_t height) {
  EncodeSession s;
  bool failed = !OpenFiles(input, output, &s) || !ObtainRecords(&s);
  if (!failed) {
    ConfigureZpakContext(s.context, kContextNv12);
    failed = !PrepareBuffers(&s, width, height, kPrepareNv12);
  }
  if (!failed) {
    FillNv12Config(s);
    PrepareZpakFrameTables(s.context, s.config);
    std::memset(s.config, 0, sizeof(ZpakConfig));
    failed = RunNv12Loop(s, width, height, input);
  }
  ReleaseSession(&s);
  if (failed) PrintUsage();
}

}  // namespace pelcast
