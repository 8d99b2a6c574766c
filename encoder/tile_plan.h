// What the tile encoder decides before it writes anything: the header flags,
// and per block and component the base value, each group's bit-length code
// and the field written for every sample. Planning works on the tile cut into
// component blocks of 16 x 4 samples in raster order, the shape every
// configured plane codes.
#pragma once

#include <bit>
#include <cstdint>

#include "surface/zpak_context.h"

namespace pelcast {

inline constexpr int kBlockWidth = 16;
inline constexpr int kBlockHeight = 4;
inline constexpr int kBlockSamples = kBlockWidth * kBlockHeight;
inline constexpr int kGroupSize = 4;
inline constexpr int kGroupsPerRow = kBlockWidth / kGroupSize;
inline constexpr int kGroupsPerBlock = kBlockSamples / kGroupSize;
inline constexpr uint32_t kCodeBits = 3;
inline constexpr uint32_t kHeaderFlagBits = 1;

// The tile's samples: block b of component c, raster order within the block.
struct TileSamples {
  int32_t samples[kMaxBlocks][kMaxComponents][kBlockSamples];
};

// One component of one block as it will be written.
struct ComponentStream {
  uint32_t base;
  uint8_t codes[kGroupsPerBlock];
  uint32_t fields[kBlockSamples];  // zig-zag residual, or the raw sample under an escape
};

struct TilePlan {
  uint32_t colourFlag;
  uint32_t alphaFlag;
  uint32_t codedComponents;  // components that carry codes and residuals
  uint32_t codedBits[kMaxComponents];
  uint32_t escapeCode[kMaxComponents];
  ComponentStream streams[kMaxBlocks][kMaxComponents];
  uint32_t bits;  // length of the whole stream
};

// Signed residual to the unsigned field the decoder maps back:
// 0, -1, 1, -2, 2 ... become 0, 1, 2, 3, 4 ...
constexpr uint32_t ZigZag(int32_t value) {
  return value >= 0 ? 2 * static_cast<uint32_t>(value) : 2 * static_cast<uint32_t>(-(value + 1)) + 1;
}

// Bits needed to hold `value` (0 for 0).
constexpr uint32_t BitWidth(uint32_t value) { return static_cast<uint32_t>(std::bit_width(value)); }

// The representative of `value` modulo 2^bits in [-2^(bits-1), 2^(bits-1)).
constexpr int32_t Balanced(int32_t value, uint32_t bits) {
  const int32_t half = int32_t{1} << (bits - 1);
  const uint32_t mask = (uint32_t{1} << bits) - 1;
  return static_cast<int32_t>((static_cast<uint32_t>(value) + static_cast<uint32_t>(half)) & mask) -
         half;
}

// Gradient prediction of sample (x, y) of a block from already known samples
// `v` (raster order), with the imaginary line above and to the left all equal
// to `base`: the base itself at the origin, the left sample on the first row,
// the sample above in the first column, and left + above - above-left elsewhere.
inline int32_t GradientPrediction(const int32_t* v, int x, int y, int32_t base) {
  if (y == 0) return x == 0 ? base : v[x - 1];
  const int at = y * kBlockWidth + x;
  if (x == 0) return v[at - kBlockWidth];
  return v[at - 1] + v[at - kBlockWidth] - v[at - kBlockWidth - 1];
}

// Bits of one group: its code and four fields of `width` bits.
constexpr uint32_t GroupBits(uint32_t width) { return kCodeBits + kGroupSize * width; }

// RGB565 without the colour transform, where the packed components carry into
// each other (see rgb565_direct.cc). Fills `plan`; returns its length in bits.
uint32_t PlanRgb565Direct(const TileSamples& tile, TilePlan* plan);

}  // namespace pelcast
