// Micro-block order: raw tiles, the tile decoder's staging and uncompressed
// (alternative-addressing) slots hold a tile cut into 4 x 4 micro-blocks,
// band of four rows by band, micro-blocks left to right, and inside a
// micro-block the 16 elements in Z order (x bit 0, y bit 0, x bit 1, y bit 1,
// least significant first).
#pragma once

#include <cstdint>

namespace pelcast {

inline constexpr uint64_t kMicroBlockSide = 4;
inline constexpr uint64_t kMicroBlockElements = kMicroBlockSide * kMicroBlockSide;

// Entry k names the element (column v % 4, row v / 4 of the micro-block)
// stored k-th.
inline constexpr uint8_t kMicroBlockOrder[kMicroBlockElements] = {0, 1, 4,  5,  2,  3,  6,  7,
                                                                  8, 9, 12, 13, 10, 11, 14, 15};

// Position in micro-block order of the element at column x, row y of a tile
// with `rowElements` elements to a row.
constexpr uint64_t MicroBlockElement(uint64_t x, uint64_t y, uint64_t rowElements) {
  const uint64_t inBlock = (x & 1) | (y & 1) << 1 | (x & 2) << 1 | (y & 2) << 2;
  const uint64_t block =
      (y / kMicroBlockSide) * (rowElements / kMicroBlockSide) + x / kMicroBlockSide;
  return block * kMicroBlockElements + inBlock;
}

namespace micro_block_detail {
constexpr bool OrderMatchesZ() {
  for (uint64_t k = 0; k < kMicroBlockElements; ++k) {
    const uint64_t v = kMicroBlockOrder[k];
    if (MicroBlockElement(v % kMicroBlockSide, v / kMicroBlockSide, kMicroBlockSide) != k) {
      return false;
    }
  }
  return true;
}
}  // namespace micro_block_detail

static_assert(micro_block_detail::OrderMatchesZ(), "the table and the Z order agree");
static_assert(MicroBlockElement(4, 0, 16) == 16 && MicroBlockElement(0, 4, 32) == 128);

}  // namespace pelcast
