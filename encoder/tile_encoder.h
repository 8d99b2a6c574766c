// One tile in micro-block order to its smallest stored form.
#pragma once

#include <cstdint>

#include "surface/zpak_context.h"

namespace pelcast {

// Encodes the tile `ordered` (micro-block order, as many bytes as a raw tile
// of the plane selected by the context's planeIndex) into `output` (at least
// 256 bytes) and stores its length in 64-byte units in *unitCount. The
// stream is the shortest the tile format allows for the tile (see
// tile_stream.cc), or the raw tile when no stream is shorter than it.
// Returns 1 after storing the tile, 0 without writing anything for bad
// parameter counts or null pointers.
int64_t EncodeZpakTile(ZpakContext* context, const uint8_t* ordered, uint8_t* output,
                       uint64_t* unitCount);

// Length in bits of the stream EncodeZpakTile would write for `ordered`
// before deciding between it and the raw tile; 0 for a plane it only stores
// raw. For measurements and tests.
uint64_t PlannedTileBits(ZpakContext* context, const uint8_t* ordered);

}  // namespace pelcast
