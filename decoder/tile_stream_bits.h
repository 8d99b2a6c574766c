// The length of a tile's compressed stream: how many bits the tile decoder
// reads from it. A stream that reads past the units its metadata byte gives
// still decodes (the bits past them read as whatever follows, zeros at the
// end of the frame), but hardware that wrote it stored it wrongly; the tools
// report such tiles.
#pragma once

#include <cstdint>

#include "decoder/tile_kernels.h"

namespace pelcast {

// Bits the compressed stream of a tile of `kind` reads, from its stored bytes
// followed by zeros (kPaddedTileBytes in all): flags, base values, codes and
// residuals.
uint64_t CompressedTileBits(TileKind kind, const uint8_t* padded);

}  // namespace pelcast
