// Commands U, G and B: a file of ZPAK frames to a file of linear NV12,
// RGBA8888 or RGB565 frames. One skeleton serves all three: open the files,
// set up the codec context and descriptor, print the plane geometry, check
// the input size, then read, decode and write frame after frame (how frames
// are read and rows written is in decode_frames.cc).
#include <cstdio>
#include <cstdlib>

#include "api/worker_pool.h"
#include "cli/command_threads.h"
#include "cli/commands.h"
#include "cli/decode_session.h"
#include "io/file_io.h"
#include "surface/frame_config.h"
#include "surface/plane_geometry.h"
#include "surface/zpak_context.h"

namespace pelcast {
namespace {

using decode_detail::DecodeCommand;
using decode_detail::DecodeSession;

constexpr DecodeCommand kNv12Command{PlaneFormat::kNv12, "Converting buffer from ZPAK to NV12",
                                     false};
constexpr DecodeCommand kRgba8888Command{PlaneFormat::kRgba8888,
                                         "Converting buffer from ZPAK to RGBA8888", false};
constexpr DecodeCommand kRgb565Command{PlaneFormat::kRgb565,
                                       "Converting buffer from ZPAK to RGB565", true};

constexpr char kOpenFailed[] = "ERROR: Unable to open File %s\n";

// B has always left an output file behind when its input could not be
// opened; it still creates one where none was, but never empties one that
// exists.
bool OpenFiles(const DecodeCommand& command, DecodeSession* s) {
  s->input = OpenInput(s->inputPath);
  if (s->input == nullptr) {
    if (command.openOutputWithInput) CreateIfMissing(s->outputPath);
    std::printf(kOpenFailed, s->inputPath);
    return false;
  }
  s->output = OpenOutput(s->outputPath, s->inputPath);
  if (s->output == nullptr) {
    std::printf(kOpenFailed, s->outputPath);
    return false;
  }
  return true;
}

void PrintGeometry(const PlaneGeometry& g) {
  std::printf("Y_Stride %u, Y_BufLength %u,\n", g.yStride, g.yBufLength);
  std::printf("UV_Stride %u, UV_BufLength %u,\n", g.uvStride, g.uvBufLength);
  std::printf("Y_Meta_Stride %u, Y_Meta_BufLength %u,\n", g.yMetaStride, g.yMetaBufLength);
  std::printf("UV_Meta_Stride %u, UV_Meta_BufLength %u,\n", g.uvMetaStride, g.uvMetaBufLength);
  std::printf("Y_Meta_Buf_Size %u, Y_Data_Buf_Size %u\n", g.yMetaBufSize, g.yDataBufSize);
  std::printf("UV_Meta_Buf_Size %u, UV_Data_Buf_Size %u\n", g.uvMetaBufSize, g.uvDataBufSize);
  std::printf("Aligned ZPAK Buffer Size %u\n", g.frameSize);
  std::printf("Output YUV Buf Size %u\n", g.outputSize);
}

// The input's size as a 32-bit value (larger files wrap); leaves the stream
// at its start with the end-of-file mark cleared.
uint32_t InputSize(FILE* input) {
  std::fseek(input, 0, SEEK_END);
  const long end = std::ftell(input);
  std::fseek(input, 0, SEEK_SET);
  return static_cast<uint32_t>(end);
}

void WarnIfPartialFrames(uint32_t fileSize, uint32_t frameSize) {
  const bool whole = frameSize == 0 ? fileSize == 0 : fileSize % frameSize == 0;
  if (whole) return;
  std::puts("WARN:FileSize is not multiple of calculated ZPAK buffer size.");
  std::printf("WARN:inputFileSize %u ZPAKBufSize %u\n", fileSize, frameSize);
}

// The frame loop. Buffers are not cleared between frames: a frame is decoded
// only from bytes read for it (the whole frame, or its metadata planes and,
// just before each band, the bytes the band's tiles are fetched from), and
// the decoders rewrite every output byte that is written out (and, for B,
// every byte the red/blue swap touches) on every frame and band of these
// geometries.
bool DecodeFrames(const DecodeCommand& command, DecodeSession* s) {
  const uint32_t frameSize = s->geometry.frameSize;
  uint32_t frame = 0;
  while (ReadNextFrame(command, s)) {
    std::printf("Input Frame Read completed=%u\n", frame);
    FillDecodeConfig(s->config, command.planeFormat, s->geometry, s->width, s->height,
                     s->frameBuffer, s->outputBuffer);
    if (!DecodeAndWriteFrame(command, s)) {
      std::printf("ERROR: Failed to write to file %s", s->outputPath);
      return false;
    }
    if (s->pieceFrame) std::fseek(s->input, s->frameStart + static_cast<long>(frameSize), SEEK_SET);
    std::fflush(s->output);
    ++frame;
  }
  std::puts(AtEndOfFile(s->input) ? "End of file Reached" : "Incomplete file read");
  std::puts("Process complete. Exiting..");
  return true;
}

bool Convert(const DecodeCommand& command, DecodeSession* s) {
  s->config = static_cast<ZpakConfig*>(std::calloc(1, sizeof(ZpakConfig)));
  s->context = AllocateZpakContext();
  if (s->config == nullptr || s->context == nullptr) {
    std::printf("ERROR: Allocation Failed pZPAKConfig %p, hZPAK %p\n",
                static_cast<void*>(s->config), static_cast<void*>(s->context));
    return false;
  }
  ConfigureZpakContext(s->context, ContextFormatOf(command.planeFormat));
  std::puts(command.banner);
  s->geometry = ComputePlaneGeometry(command.planeFormat, s->width, s->height);
  PrintGeometry(s->geometry);
  WarnIfPartialFrames(InputSize(s->input), s->geometry.frameSize);
  if (const char* problem = DecodeSizeProblem(command.planeFormat, s->width, s->height)) {
    std::puts(problem);
    return false;
  }
  s->frameBuffer = AllocateZeroed(s->geometry.frameSize);
  s->outputBuffer = AllocateZeroed(s->geometry.outputSize);
  if (s->frameBuffer == nullptr || s->outputBuffer == nullptr) {
    std::printf("ERROR: Buffer allocation failed frm_buf_tile %p frm_buf %p\n",
                static_cast<void*>(s->frameBuffer), static_cast<void*>(s->outputBuffer));
    return false;
  }
  PrepareBands(command, s, CommandThreads());
  return DecodeFrames(command, s);
}

void RunDecodeCommand(const DecodeCommand& command, const char* inputPath, const char* outputPath,
                      int32_t width, int32_t height) {
  api::WorkerPool pool;
  DecodeSession s{};
  s.pool = &pool;
  s.inputPath = inputPath;
  s.outputPath = outputPath;
  s.width = width;
  s.height = height;
  const bool succeeded = OpenFiles(command, &s) && Convert(command, &s);
  ReleaseBands(&s);
  ReleaseZeroed(s.frameBuffer);
  ReleaseZeroed(s.outputBuffer);
  ReleaseZpakContext(s.context);
  std::free(s.config);
  CloseFile(s.input);
  CloseFile(s.output);
  if (!succeeded) PrintUsage();
}

}  // namespace

void DecodeNv12Command(const char* input, const char* output, int32_t width, int32_t height) {
  RunDecodeCommand(kNv12Command, input, output, width, height);
}

void DecodeRgba8888Command(const char* input, const char* output, int32_t width, int32_t height) {
  RunDecodeCommand(kRgba8888Command, input, output, width, height);
}

void DecodeRgb565Command(const char* input, const char* output, int32_t width, int32_t height) {
  RunDecodeCommand(kRgb565Command, input, output, width, height);
}

}  // namespace pelcast
