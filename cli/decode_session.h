// What the decode commands U, G and B share between their skeleton
// (decode_commands.cc) and the reading of ZPAK frames and writing of
// decoded rows (decode_frames.cc).
#pragma once

#include <cstdint>
#include <cstdio>

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
};

// Reads the next frame of the input: whole, or from a regular file (when
// pieceByPiece is set) just its metadata planes, the data following band by
// band as DecodeAndWriteFrame decodes. False when no whole frame is left.
bool ReadNextFrame(const DecodeCommand& command, DecodeSession* s);

// Whether the command's frames can be read piece by piece; the descriptor
// is filled for the frame buffer on the way.
bool CanReadPieceByPiece(const DecodeCommand& command, DecodeSession* s);

// Decodes the frame just read and writes its rows as the command lays them
// out; false when U's write falls short.
bool DecodeAndWriteFrame(const DecodeCommand& command, DecodeSession* s);

}  // namespace pelcast::decode_detail
