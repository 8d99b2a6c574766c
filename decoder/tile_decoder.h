// One stored tile, raw or compressed, back to a raster tile of pixels.
#pragma once

#include <cstdint>

#include "surface/zpak_context.h"

namespace pelcast {

// Pixel order inside a 4 x 4 micro-block of raw and staged tiles: entry v
// names the pixel at column v % 4, row v / 4.
inline constexpr uint8_t kMicroBlockOrder[16] = {0, 1, 4, 5, 2, 3, 6, 7,
                                                 8, 9, 12, 13, 10, 11, 14, 15};

// Decodes the stored tile `stored` (256 staged bytes; for RGB565 the half
// tile's 128 bytes followed by 128 more) of the plane selected by the
// context's contextFormat and planeIndex, with its metadata byte, into
// `output` in raster order. Returns 1 after writing a tile, -1 (writing
// nothing) when contextFormat has no output layout. Bits read past the 256
// staged bytes are zero.
int64_t DecodeTile(ZpakContext* context, const uint8_t* stored, uint32_t metadataByte,
                   uint8_t* output);

}  // namespace pelcast
