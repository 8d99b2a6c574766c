// The tile encoder's entry for tiles in micro-block order: cuts the tile into
// component planes and hands it to the core (tile_stream.cc), or stores it
// raw as given.
#include "encoder/tile_encoder.h"

#include <cstring>

#include "encoder/frame_store.h"
#include "encoder/tile_shape.h"
#include "encoder/tile_stream.h"

namespace pelcast {
namespace {

constexpr int64_t kTileStored = 1;

// The plane parameters selected by the context, or null for counts the codec
// does not handle.
const PlaneCodecParams* SelectPlane(const ZpakContext& context) {
  const PlaneCodecParams& p = context.planes[context.planeIndex != 0 ? 1 : 0];
  if (p.componentCount > kMaxComponents || p.blockCount > kMaxBlocks) return nullptr;
  return &p;
}

// Component planes of a tile in micro-block order, `tileWidth` samples to a row.
struct SplitTile {
  alignas(16) uint8_t planes[kMaxComponents][kSlotBytes];
  TileComponents components;
};

void SplitOrderedTile(const TileShape& s, const uint8_t* ordered, SplitTile* split) {
  for (uint32_t y = 0; y < s.tileHeight; ++y) {
    for (uint32_t x = 0; x < s.tileWidth; ++x) {
      const uint8_t* element = ordered + MicroBlockElement(x, y, s.tileWidth) * s.elementBytes;
      const uint32_t at = y * s.tileWidth + x;
      if (s.rgb565) {
        const uint32_t v = element[0] | uint32_t{element[1]} << kByteBits;
        split->planes[0][at] = static_cast<uint8_t>(v & kRgb565Mask5);
        split->planes[1][at] = static_cast<uint8_t>((v >> kRgb565Shift1) & kRgb565Mask6);
        split->planes[2][at] = static_cast<uint8_t>(v >> kRgb565Shift2);
      } else {
        for (uint32_t c = 0; c < s.components; ++c) split->planes[c][at] = element[c];
      }
    }
  }
  for (uint32_t c = 0; c < kMaxComponents; ++c) split->components.plane[c] = split->planes[c];
  split->components.pitch = s.tileWidth;
}

}  // namespace

int64_t EncodeZpakTile(ZpakContext* context, const uint8_t* ordered, uint8_t* output,
                       uint64_t* unitCount) {
  if (context == nullptr || ordered == nullptr || output == nullptr || unitCount == nullptr) {
    return 0;
  }
  const PlaneCodecParams* plane = SelectPlane(*context);
  if (plane == nullptr) return 0;
  TileShape shape;
  MakeTileShape(*plane, &shape);
  std::memset(output, 0, kSlotBytes);
  if (shape.supported) {
    SplitTile split;
    SplitOrderedTile(shape, ordered, &split);
    uint64_t bits = 0;
    const uint64_t units = EncodeTileStream(shape, ActiveLaneKernels(), split.components, output,
                                            kSlotBytes, &bits);
    if (units != 0) {
      *unitCount = units;
      return kTileStored;
    }
  }
  // Raw: the tile as given, already in micro-block order.
  std::memcpy(output, ordered, shape.rawTileBytes);
  *unitCount = RawTileUnits(shape);
  return kTileStored;
}

uint64_t PlannedTileBits(ZpakContext* context, const uint8_t* ordered) {
  if (context == nullptr || ordered == nullptr) return 0;
  const PlaneCodecParams* plane = SelectPlane(*context);
  if (plane == nullptr) return 0;
  TileShape shape;
  MakeTileShape(*plane, &shape);
  if (!shape.supported) return 0;
  SplitTile split;
  SplitOrderedTile(shape, ordered, &split);
  uint8_t output[kSlotBytes];
  uint64_t bits = 0;
  EncodeTileStream(shape, ActiveLaneKernels(), split.components, output, sizeof output, &bits);
  return bits;
}

}  // namespace pelcast
