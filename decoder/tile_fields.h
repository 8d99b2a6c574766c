// The fixed parts of a compressed tile of a configured plane, read by both
// specialised kernels: flags, base values and the bit-length codes. A tile is
// taken as up to four "series" of 16 x 4 samples, one per coded (block,
// component) pair in stream order: RGBA8888 and RGB565 components 0-3 or
// 0-2, luma blocks 0-3, chroma block 0 U and V then block 1 U and V. For
// every group index the stream holds the codes, and later the residuals, of
// the series in this order, so series s of group g is one 4-sample field set.
#pragma once

#include <bit>
#include <cstdint>
#include <cstring>

#include "decoder/tile_kernels.h"

namespace pelcast::tile_kernels_detail {

inline constexpr uint32_t kMaxSeries = 4;
inline constexpr uint32_t kGroups = 16;         // groups of one 16 x 4 block
inline constexpr uint32_t kGroupSamples = 4;
inline constexpr uint32_t kGroupsPerRow = 4;
inline constexpr uint32_t kBlockRows = 4;
inline constexpr uint32_t kBlockColumns = 16;
inline constexpr uint32_t kCodeBits = 3;
inline constexpr uint32_t kCodeMask = 7;

// What a kind's stream looks like.
struct KindShape {
  uint32_t series;         // coded series without the constant-alpha flag
  uint32_t bases;          // base values in the stream
  bool colourFlag;         // header carries the colour-transform flag
  bool alphaFlag;          // header carries the constant-last-component flag
  uint8_t sampleBits[kMaxSeries];
  uint8_t escape[kMaxSeries];
  bool difference[kMaxSeries];  // one bit wider under the colour transform
};

inline constexpr KindShape kShapes[] = {
    // RGBA8888: components R, G, B, A of one block.
    {4, 4, true, true, {8, 8, 8, 8}, {7, 7, 7, 7}, {false, true, true, false}},
    // NV12 luma: four blocks of one component.
    {4, 4, false, false, {8, 8, 8, 8}, {7, 7, 7, 7}, {}},
    // NV12 chroma: two blocks of U and V.
    {4, 4, false, false, {8, 8, 8, 8}, {7, 7, 7, 7}, {}},
    // RGB565: three components of one block; the escape code is the depth.
    {3, 3, true, false, {5, 6, 5, 0}, {5, 6, 5, 0}, {false, true, true, false}},
};

inline const KindShape& ShapeOf(TileKind kind) { return kShapes[static_cast<int>(kind)]; }

inline uint64_t LoadStreamWord(const uint8_t* bytes) {
  uint64_t value;
  std::memcpy(&value, bytes, sizeof value);
  if constexpr (std::endian::native == std::endian::big) value = __builtin_bswap64(value);
  return value;
}

// The stream's bits from `position` on, first bit lowest (at least 57 bits).
inline uint64_t PeekStream(const uint8_t* padded, uint64_t position) {
  return LoadStreamWord(padded + (position >> 3)) >> (position & 7);
}

inline uint32_t TakeField(const uint8_t* padded, uint64_t* position, uint32_t bits) {
  const uint64_t window = PeekStream(padded, *position);
  *position += bits;
  return static_cast<uint32_t>(window & ((uint64_t{1} << bits) - 1));
}

struct TileFields {
  uint32_t colourFlag;
  uint32_t constantFlag;
  uint32_t series;  // coded series of this tile
  uint32_t codedBits[kMaxSeries];
  uint32_t escape[kMaxSeries];
  uint16_t base[kMaxSeries];  // RGBA8888: base[3] is alpha, coded or not
  uint8_t codes[kGroups][kMaxSeries];
  uint64_t residualStart;  // bit position of the first residual
};

// Residual width of a code: the code itself below the escape code, the full
// coded depth at or above it.
inline uint32_t ResidualWidth(const TileFields& f, uint32_t s, uint32_t code) {
  return code < f.escape[s] ? code : f.codedBits[s];
}

inline void ReadTileFields(TileKind kind, const uint8_t* padded, TileFields* f) {
  const KindShape& shape = ShapeOf(kind);
  uint64_t position = 0;
  f->colourFlag = shape.colourFlag ? TakeField(padded, &position, 1) : 0;
  f->constantFlag = shape.alphaFlag ? TakeField(padded, &position, 1) : 0;
  f->series = shape.series - f->constantFlag;
  for (uint32_t s = 0; s < kMaxSeries; ++s) {
    const bool wider = f->colourFlag != 0 && shape.difference[s];
    f->codedBits[s] = shape.sampleBits[s] + (wider ? 1 : 0);
    f->escape[s] = shape.escape[s];
    f->base[s] = 0;
  }
  for (uint32_t s = 0; s < shape.bases; ++s)
    f->base[s] = static_cast<uint16_t>(TakeField(padded, &position, f->codedBits[s]));
  const uint32_t groupCodeBits = kCodeBits * f->series;
  for (uint32_t g = 0; g < kGroups; ++g) {
    uint64_t window = PeekStream(padded, position);
    position += groupCodeBits;
    for (uint32_t s = 0; s < kMaxSeries; ++s) {
      f->codes[g][s] = s < f->series ? static_cast<uint8_t>(window & kCodeMask) : 0;
      window >>= kCodeBits;
    }
  }
  f->residualStart = position;
}

}  // namespace pelcast::tile_kernels_detail
