// The fixed parts of a compressed tile of a configured plane, read by both
// specialised kernels: flags, base values and the bit-length codes. A tile is
// taken as up to four "series" of 16 x 4 samples, one per coded (block,
// component) pair in stream order: RGBA8888 and RGB565 components 0-3 or
// 0-2, luma blocks 0-3, chroma block 0 U and V then block 1 U and V. For
// every group index the stream holds the codes, and later the residuals, of
// the series in this order, so series s of group g is one 4-sample field set.
#pragma once

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstring>

#include "decoder/tile_kernels.h"

namespace pelcast::tile_kernels_detail {

inline constexpr uint32_t kMaxSeries = 4;
inline constexpr uint32_t kGroups = 16;  // groups of one 16 x 4 block
inline constexpr uint32_t kGroupSamples = 4;
inline constexpr uint32_t kGroupsPerRow = 4;
inline constexpr uint32_t kBlockRows = 4;
inline constexpr uint32_t kBlockColumns = 16;
inline constexpr uint32_t kCodeBits = 3;
inline constexpr uint32_t kCodeMask = 7;

// What a kind's stream looks like.
struct KindShape {
  uint32_t series;  // coded series without the constant-alpha flag
  uint32_t bases;   // base values in the stream
  bool colourFlag;  // header carries the colour-transform flag
  bool alphaFlag;   // header carries the constant-last-component flag
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

// ---- Constant tiles ----

// True when every bit-length code of a tile of `series` coded series is 0
// (kGroups x kCodeBits bits per series, from bit `codes` on).
inline bool CodesAllZero(const uint8_t* stream, uint64_t codes, uint32_t series) {
  constexpr uint32_t kChunk = 56;  // bits one peek surely holds
  uint32_t remaining = kGroups * kCodeBits * series;
  uint64_t any = 0;
  for (; remaining > kChunk; remaining -= kChunk, codes += kChunk) {
    any |= PeekStream(stream, codes) & ((uint64_t{1} << kChunk) - 1);
  }
  any |= PeekStream(stream, codes) & ((uint64_t{1} << remaining) - 1);
  return any == 0;
}

// Bits of a stream whose codes are all 0: it ends after the codes.
inline uint32_t ConstantStreamBits(uint64_t codes, uint32_t series) {
  return static_cast<uint32_t>(codes + kGroups * kCodeBits * series);
}

// The inverse colour transform on exact samples, clamped to N bits.
struct Rgb {
  int32_t first, second, third;
};

inline Rgb InverseColour(int32_t s0, int32_t s1, int32_t s2, int32_t sampleBits) {
  const int32_t offset = 1 << sampleBits;
  const int32_t maximum = offset - 1;
  const int32_t co = s1 - offset;
  const int32_t cg = s2 - offset;
  const int32_t t = s0 - (cg >> 1);
  const int32_t third = t - (co >> 1);
  const int32_t second = t + cg;
  const int32_t first = third + co;
  return {std::clamp(first, 0, maximum), std::clamp(second, 0, maximum),
          std::clamp(third, 0, maximum)};
}

inline constexpr int32_t kRgbaSampleBits = 8;
inline constexpr int32_t kRgb565SampleBits = 5;
inline constexpr uint32_t kGreenShift = 5;
inline constexpr uint32_t kRedShift = 11;

constexpr uint64_t kEveryByte = 0x0101010101010101ull;
constexpr uint64_t kEveryWord = 0x0001000100010001ull;
constexpr uint64_t kEveryDword = 0x0000000100000001ull;

// The rows of a tile whose codes are all 0, where every sample of a series
// is its base value: bytes 0-15 of a row repeat the 8 bytes `left`, bytes
// 16-31 the 8 bytes `right` (and an RGBA8888 row's bytes 32-63 repeat its
// bytes 0-31); rows 0-3 take the `top` pair, rows 4-7 (NV12) the `bottom`.
struct ConstantRows {
  uint64_t topLeft, topRight, bottomLeft, bottomRight;
};

// The base values of the three colour components, the colour transform
// undone where the tile uses it.
inline Rgb BaseColour(const TileFields& f, int32_t sampleBits) {
  if (f.colourFlag == 0) return {f.base[0], f.base[1], f.base[2]};
  return InverseColour(f.base[0], f.base[1], f.base[2], sampleBits);
}

template <TileKind K>
inline ConstantRows ConstantRowsOf(const TileFields& f) {
  if constexpr (K == TileKind::kRgba8888) {
    const Rgb c = BaseColour(f, kRgbaSampleBits);
    const uint32_t first = static_cast<uint32_t>(c.first), second = static_cast<uint32_t>(c.second),
                   third = static_cast<uint32_t>(c.third);
    const uint64_t pixel = (first & 0xFF) | (second & 0xFF) << 8 | (third & 0xFF) << 16 |
                           uint32_t{f.base[3] & 0xFFu} << 24;
    return {pixel * kEveryDword, pixel * kEveryDword, 0, 0};
  } else if constexpr (K == TileKind::kNv12Luma) {
    // Blocks top-left, top-right, bottom-left, bottom-right.
    return {(f.base[0] & 0xFFu) * kEveryByte, (f.base[1] & 0xFFu) * kEveryByte,
            (f.base[2] & 0xFFu) * kEveryByte, (f.base[3] & 0xFFu) * kEveryByte};
  } else if constexpr (K == TileKind::kNv12Chroma) {
    // Block 0's U and V above block 1's.
    const uint64_t top = ((f.base[0] & 0xFFu) | (f.base[1] & 0xFFu) << 8) * kEveryWord;
    const uint64_t bottom = ((f.base[2] & 0xFFu) | (f.base[3] & 0xFFu) << 8) * kEveryWord;
    return {top, top, bottom, bottom};
  } else {
    const Rgb c = BaseColour(f, kRgb565SampleBits);
    const uint32_t c0 = static_cast<uint32_t>(c.first), c1 = static_cast<uint32_t>(c.second),
                   c2 = static_cast<uint32_t>(c.third);
    const uint64_t pixel = ((c0 + (c1 << kGreenShift) + (c2 << kRedShift)) & 0xFFFFu) * kEveryWord;
    return {pixel, pixel, 0, 0};
  }
}

// Rows a tile of the kind has, and bytes in one.
template <TileKind K>
inline constexpr uint32_t kTileRowsOf =
    K == TileKind::kNv12Luma || K == TileKind::kNv12Chroma ? 2 * kBlockRows : kBlockRows;
template <TileKind K>
inline constexpr uint32_t kRowBytesOf =
    K == TileKind::kRgba8888 ? 4 * kBlockColumns : 2 * kBlockColumns;

// The plain store of a constant tile, 8 bytes at a time.
template <TileKind K>
inline void StoreConstantTile(const TileFields& f, uint8_t* out, uint64_t pitch) {
  const ConstantRows c = ConstantRowsOf<K>(f);
  for (uint32_t y = 0; y < kTileRowsOf<K>; ++y) {
    const uint64_t left = y < kBlockRows ? c.topLeft : c.bottomLeft;
    const uint64_t right = y < kBlockRows ? c.topRight : c.bottomRight;
    for (uint32_t x = 0; x < kRowBytesOf<K>; x += sizeof(uint64_t)) {
      const uint64_t pattern = (x / 16) % 2 == 0 ? left : right;
      std::memcpy(out + y * pitch + x, &pattern, sizeof pattern);
    }
  }
}

}  // namespace pelcast::tile_kernels_detail
