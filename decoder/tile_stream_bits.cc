#include "decoder/tile_stream_bits.h"

#include "decoder/tile_fields.h"

namespace pelcast {

uint64_t CompressedTileBits(TileKind kind, const uint8_t* padded) {
  using namespace tile_kernels_detail;
  TileFields fields;
  ReadTileFields(kind, padded, &fields);
  uint64_t bits = fields.residualStart;
  for (uint32_t g = 0; g < kGroups; ++g) {
    for (uint32_t s = 0; s < fields.series; ++s) {
      bits += kGroupSamples * ResidualWidth(fields, s, fields.codes[g][s]);
    }
  }
  return bits;
}

}  // namespace pelcast
