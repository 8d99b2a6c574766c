// What the decode commands U, G and B share between their skeleton
// (decode_commands.cc) and the reading of ZPAK frames and writing of
// decoded rows (decode_frames.cc).
#pragma once

#include <cstdint>
#include <cstdio>
#include <vector>

#include "api/worker_pool.h"
#include "decoder/frame_decoder.h"
#include "surface/plane_geometry.h"
#include "surface/zpak_context.h"

namespace pelcast::decode_detail {

inline constexpr uint32_t kRgbaBytesPerPixel = 4;
inline constexpr uint32_t kRgb565BytesPerPixel = 2;

struct DecodeCommand {
  PlaneFormat planeFormat;
  const char* banner;
  // B leaves an output behind (created if missing, never emptied) even when
  // its input cannot be opened.
  bool openOutputWithInput;
};

// What one thread decodes a band with: a codec context (its address tables
// are its own) and the buffer a band's data bytes are read into.
struct BandWorker {
  ZpakContext* context;
  uint8_t* window;
};

// Everything a command obtains, released in one place.
struct DecodeSession {
  const char* inputPath;
  const char* outputPath;
  int32_t width;
  int32_t height;
  FILE* input;
  FILE* output;
  ZpakConfig* config;
  ZpakContext* context;
  uint8_t* frameBuffer;
  uint8_t* outputBuffer;
  PlaneGeometry geometry;
  bool pieceByPiece;  // frames may be read piece by piece (see ReadNextFrame)
  bool pieceFrame;    // the current frame is being read piece by piece
  long frameStart;    // where the current frame starts in the input
  // Threads (see PrepareBands). With one, the band is decoded into the
  // start of outputBuffer and its data read into the frame buffer after the
  // first metadata plane, by `context`.
  uint32_t threads;
  std::vector<BandWorker> workers;  // one per thread; worker 0 is `context` and the frame buffer
  uint8_t* ring;                    // ringSlots band buffers of slotBytes (in outputBuffer
  bool ringOwned;                   // unless it did not fit there)
  uint32_t ringSlots;
  uint64_t slotBytes;
  std::vector<uint64_t> ringBands;  // per slot: 1 + the band decoded there in this frame, or 0
  std::vector<BandWindow> bandWindows;  // per band, when frames are read piece by piece
  uint8_t* windows;  // workers' data buffers, when they do not fit in the frame buffer
  api::WorkerPool* pool;            // with threads - 1 workers
};

// Reads the next frame of the input: whole, or from a regular file (when
// pieceByPiece is set) just its metadata planes, the data following band by
// band as DecodeAndWriteFrame decodes. False when no whole frame is left.
bool ReadNextFrame(const DecodeCommand& command, DecodeSession* s);

// Decodes the frame just read and writes its rows as the command lays them
// out; false when U's write falls short.
bool DecodeAndWriteFrame(const DecodeCommand& command, DecodeSession* s);

// Decides how the command's frames are decoded: the threads a frame's bands
// are shared out to (the command's setting; one when a frame has a single
// band or is decoded whole, or when what the threads need cannot be had),
// the buffers and contexts they use, and whether frames are read piece by
// piece (from a regular file, when every band's data fits in the room left
// for it; each band's data window is worked out here once). Fills the
// descriptor for the frame buffer on the way.
void PrepareBands(const DecodeCommand& command, DecodeSession* s, uint32_t threads);

// Stops the workers and releases what PrepareBands obtained.
void ReleaseBands(DecodeSession* s);

}  // namespace pelcast::decode_detail
