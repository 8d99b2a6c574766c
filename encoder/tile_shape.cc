// The planes the tile encoder compresses: groups of four samples, the
// gradient predictor, 16 x 4 blocks laid out the way the decoder assembles
// them, and either byte-packed components or RGB565 packing. Anything else is
// stored raw, which the decoder always reproduces.
#include "encoder/tile_shape.h"

namespace pelcast {
namespace {

constexpr uint64_t kPackingRgb565 = 12;
constexpr uint64_t kPackingTwelveBit = 152;
constexpr uint64_t kWidestShift = 63;
constexpr uint64_t kLargestUnitShift = 16;
constexpr uint64_t kLargestElementLog2 = 2;
constexpr uint32_t kColourComponents = 3;

enum BlockArrangement : uint64_t {
  kSingleBlock = 0,
  kSideBySide = 1,
  kStacked = 2,
  kTwoPerRow = 3,
  kSideBySideAlt = 4,
  kStackedAlt = 5,
};

bool ComponentShapeSupported(const ComponentCodecParams& c) {
  constexpr uint64_t kMaxCode = (uint64_t{1} << kCodeBits) - 1;
  return c.blockWidth == kBlockWidth && c.blockHeight == kBlockHeight &&
         c.groupsPerBlock == kGroupsPerBlock && c.codeBits == kCodeBits &&
         c.escapeCode <= kMaxCode && c.sampleBits >= 1 && c.sampleBits <= kByteBits;
}

// Places the blocks the way the decoder assembles them; false for layouts
// that do not tile the plane with 16 x 4 blocks.
bool PlaceBlocks(const PlaneCodecParams& p, TileShape* s) {
  const uint64_t blocks = p.blockCount;
  for (uint32_t b = 0; b < kMaxBlocks; ++b) s->blockX[b] = s->blockY[b] = 0;
  switch (p.blockArrangement) {
    case kSingleBlock:
      return blocks == 1 && p.tileWidth == kBlockWidth && p.tileHeight == kBlockHeight;
    case kSideBySide:
    case kSideBySideAlt:
      for (uint32_t b = 0; b < blocks; ++b) s->blockX[b] = kBlockWidth * b;
      return p.tileWidth == kBlockWidth * blocks && p.tileHeight == kBlockHeight;
    case kStacked:
    case kStackedAlt:
      for (uint32_t b = 0; b < blocks; ++b) s->blockY[b] = kBlockHeight * b;
      return p.tileWidth == kBlockWidth && p.tileHeight == kBlockHeight * blocks;
    case kTwoPerRow:
      for (uint32_t b = 0; b < blocks; ++b) {
        s->blockX[b] = kBlockWidth * (b % 2);
        s->blockY[b] = kBlockHeight * (b / 2);
      }
      return blocks == kMaxBlocks && p.tileWidth == 2 * kBlockWidth &&
             p.tileHeight == 2 * kBlockHeight;
    default:
      return false;
  }
}

bool PackingSupported(const PlaneCodecParams& p) {
  const uint64_t elementBytes = uint64_t{1} << p.log2BytesPerPixel;
  if (p.componentOrder != 0 || p.packingCode == kPackingTwelveBit) return false;
  if (p.packingCode == kPackingRgb565) {
    return p.componentCount == kColourComponents && elementBytes == 2 &&
           p.components[0].sampleBits == 5 && p.components[1].sampleBits == 6 &&
           p.components[2].sampleBits == 5;
  }
  for (uint64_t c = 0; c < p.componentCount; ++c) {
    if (p.components[c].sampleBits != kByteBits) return false;
  }
  return elementBytes == p.componentCount && p.tileRowBytes == elementBytes * p.tileWidth;
}

bool PlaneSupported(const PlaneCodecParams& p, TileShape* s) {
  if (p.componentCount == 0 || p.componentCount > kMaxComponents) return false;
  if (p.blockCount == 0 || p.blockCount > kMaxBlocks) return false;
  if (p.groupSize != kGroupSize || p.predictor != 0 || p.repeatCodes != 0) return false;
  if (p.log2BytesPerPixel > kLargestElementLog2 || p.unitShift == 0 ||
      p.unitShift > kLargestUnitShift) {
    return false;
  }
  const uint64_t elementBytes = uint64_t{1} << p.log2BytesPerPixel;
  if (p.rawTileBits != kByteBits * elementBytes * p.tileWidth * p.tileHeight) return false;
  if (p.rawTileBits / kByteBits > kSlotBytes) return false;
  for (uint64_t c = 0; c < p.componentCount; ++c) {
    if (!ComponentShapeSupported(p.components[c])) return false;
  }
  return PlaceBlocks(p, s) && PackingSupported(p);
}

}  // namespace

void MakeTileShape(const PlaneCodecParams& p, TileShape* s) {
  *s = TileShape{};
  const uint64_t rawBytes = p.rawTileBits / kByteBits;
  s->rawTileBits = p.rawTileBits;
  s->rawTileBytes = rawBytes < kSlotBytes ? rawBytes : kSlotBytes;
  s->unitShift = p.unitShift < kWidestShift ? p.unitShift : kWidestShift;
  s->supported = PlaneSupported(p, s);
  if (!s->supported) return;
  s->rgb565 = p.packingCode == kPackingRgb565;
  s->components = static_cast<uint32_t>(p.componentCount);
  s->blocks = static_cast<uint32_t>(p.blockCount);
  s->elementBytes = static_cast<uint32_t>(uint64_t{1} << p.log2BytesPerPixel);
  s->tileWidth = static_cast<uint32_t>(p.tileWidth);
  s->tileHeight = static_cast<uint32_t>(p.tileHeight);
  s->colourPossible = p.hasColourFlag != 0 && p.blockArrangement == kSingleBlock &&
                      p.componentCount >= kColourComponents;
  s->colourFlag = p.hasColourFlag != 0;
  s->alphaFlag = p.hasAlphaFlag != 0;
  s->headerBits = (s->colourFlag ? kHeaderFlagBits : 0) + (s->alphaFlag ? kHeaderFlagBits : 0);
  s->flatLanesCodeZero = true;
  for (uint32_t c = 0; c < s->components; ++c) {
    s->sampleBits[c] = static_cast<uint32_t>(p.components[c].sampleBits);
    s->escape[c] = static_cast<uint32_t>(p.components[c].escapeCode);
    if (s->escape[c] == 0) s->flatLanesCodeZero = false;
  }
}

}  // namespace pelcast
