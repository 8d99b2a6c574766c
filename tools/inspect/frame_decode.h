// Decoding one ZPAK frame exactly as the decode commands do (same context
// format, same descriptor, same output buffer and, for RGB565, the same
// red/blue exchange), so the picture shows what they would write.
#pragma once

#include <cstdint>

#include "surface/plane_geometry.h"
#include "surface/zpak_context.h"
#include "tools/inspect/rgb_image.h"
#include "tools/inspect/tile_stats.h"

namespace pelcast::inspect {

struct DecodeSession {
  InspectFormat format;
  int32_t width;
  int32_t height;
  PlaneGeometry geometry;
  ZpakContext* context;
  uint8_t* output;  // the command's output buffer (geometry.outputSize bytes)
};

// Obtains and configures the context and the output buffer. Returns false
// when memory is exhausted (nothing stays allocated then).
bool OpenDecodeSession(InspectFormat format, int32_t width, int32_t height, DecodeSession* session);

void ReleaseDecodeSession(DecodeSession* session);

// Decodes `frame` (geometry.frameSize bytes) into the output buffer and
// returns the decoded image as the command would write it.
LinearFrame DecodeFrame(DecodeSession* session, uint8_t* frame);

}  // namespace pelcast::inspect
