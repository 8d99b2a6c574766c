// Linear frames to ZPAK frames.
#pragma once

#include <cstdint>

#include "surface/tile_band.h"
#include "surface/zpak_context.h"

namespace pelcast {

// Encodes one NV12 (surfaceFormat 1) or RGBA8888 (3) frame described by
// `config` into its zero-filled compressed planes. Always returns 0.
uint64_t EncodeZpakFrame(ZpakContext* context, const ZpakConfig* config);

// Encodes one RGB565 frame, the mirror of DecodeZpakFrameRgb565: half tiles in
// slot halves, metadata in columns 2c and 2c + 1. Always returns 0.
//
// The frame is cut as that decoder writes it: tile rows of 4 rows, and per
// row only (ceil(width / 16)) / 2 whole tiles of 32 pixels. So a width of 16
// or less stores nothing, and when ceil(width / 16) is odd the last 16-pixel
// column of the image is not stored (the decoder leaves those columns as its
// caller gave them). A non-zero bypass stores nothing; `enable` is not read.
uint64_t EncodeZpakFrameRgb565(ZpakContext* context, const ZpakConfig* config);

// Encode only the band's tile rows, reading the whole linear image the
// descriptor names and storing just those tiles (and their metadata bytes),
// exactly as the whole-frame encoders store them. Tiles are independent, so
// bands of one frame may be encoded in any order or at the same time, each
// with a context of its own. A whole-frame band encodes every plane.
uint64_t EncodeZpakFrameBand(ZpakContext* context, const ZpakConfig* config,
                             const TileRowBand& band);
uint64_t EncodeZpakFrameRgb565Band(ZpakContext* context, const ZpakConfig* config,
                                   const TileRowBand& band);

// Builds the address tables EncodeZpakFrame will use for `config` (NV12 or
// RGBA8888; other formats need none), so that a command can allocate them
// before its frame loop. Returns false when they cannot be allocated.
bool PrepareZpakFrameTables(ZpakContext* context, const ZpakConfig* config);

// The same for EncodeZpakFrameRgb565.
bool PrepareZpakFrameTablesRgb565(ZpakContext* context, const ZpakConfig* config);

// Copies tile (tileColumn, tileRow) of a linear image into the 256-byte
// destination, row-major, zero where the tile leaves the image.
void GatherLinearTile(const uint8_t* source, const uint8_t* uSource, const uint8_t* vSource,
                      uint64_t tileColumn, uint64_t tileRow, uint8_t* destination, uint64_t width,
                      uint64_t height, uint64_t surfaceFormat, uint64_t planeIndex);

}  // namespace pelcast
