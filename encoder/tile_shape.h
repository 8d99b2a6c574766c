// How the tiles of one plane are cut into coded blocks and components, and
// what the stream of such a tile spends on its fixed parts. Worked out once
// from the plane's codec parameters, so that the per-tile paths only follow it.
#pragma once

#include <cstdint>

#include "surface/zpak_context.h"

namespace pelcast {

inline constexpr uint32_t kBlockWidth = 16;
inline constexpr uint32_t kBlockHeight = 4;
inline constexpr uint32_t kBlockSamples = kBlockWidth * kBlockHeight;
inline constexpr uint32_t kGroupSize = 4;
inline constexpr uint32_t kGroupsPerRow = kBlockWidth / kGroupSize;
inline constexpr uint32_t kGroupsPerBlock = kBlockSamples / kGroupSize;
inline constexpr uint32_t kCodeBits = 3;
inline constexpr uint32_t kHeaderFlagBits = 1;
inline constexpr uint32_t kByteBits = 8;
inline constexpr uint32_t kAlphaComponent = 3;

// RGB565 packing: component 0 in bits 0-4, 1 in bits 5-10, 2 in bits 11-15.
inline constexpr uint32_t kRgb565Shift1 = 5;
inline constexpr uint32_t kRgb565Shift2 = 11;
inline constexpr uint32_t kRgb565Mask5 = 0x1f;
inline constexpr uint32_t kRgb565Mask6 = 0x3f;

struct TileShape {
  bool supported;       // false: tiles of the plane are only ever stored raw
  bool rgb565;          // 5/6/5 components packed into one 16-bit element
  bool colourPossible;  // the colour transform may be planned
  bool colourFlag;      // the header carries the colour-transform flag
  bool alphaFlag;       // the header carries the constant-last-component flag
  uint32_t headerBits;  // flag bits at the start of the stream
  bool flatLanesCodeZero;  // a width of 0 is below every escape: flat lanes take code 0
  uint32_t components;
  uint32_t blocks;
  uint32_t elementBytes;
  uint32_t tileWidth;   // elements per tile row
  uint32_t tileHeight;
  uint32_t blockX[kMaxBlocks];  // origin of block b in the component planes
  uint32_t blockY[kMaxBlocks];
  uint32_t sampleBits[kMaxComponents];
  uint32_t escape[kMaxComponents];
  uint64_t rawTileBits;
  uint64_t rawTileBytes;  // bytes a raw tile stores, at most kSlotBytes
  uint64_t unitShift;
};

// Fills `shape` for the plane `p`. Planes the encoder cannot compress get
// supported = false; their raw size and unit shift are still filled in.
void MakeTileShape(const PlaneCodecParams& p, TileShape* shape);

}  // namespace pelcast
