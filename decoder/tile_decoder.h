// One stored tile, raw or compressed, back to a raster tile of pixels.
#pragma once

#include <cstdint>

#include "surface/zpak_context.h"

namespace pelcast {

// Decodes the stored tile `stored` (256 staged bytes; for RGB565 the half
// tile's 128 bytes followed by 128 more) of the plane selected by the
// context's contextFormat and planeIndex, with its metadata byte, into
// `output` in raster order. Returns 1 after writing a tile, -1 (writing
// nothing) when contextFormat has no output layout. Bits read past the 256
// staged bytes are zero.
int64_t DecodeTile(ZpakContext* context, const uint8_t* stored, uint32_t metadataByte,
                   uint8_t* output);

}  // namespace pelcast
