// Whole tiles moved between raster order and micro-block order (the order
// itself is in surface/micro_block.h).
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "surface/micro_block.h"

namespace pelcast {

// Direction of a reorder between a raster tile and micro-block order.
enum class MicroBlockDirection { kToRaster, kToMicroBlocks };

namespace micro_block_detail {

// Horizontally adjacent elements 2p and 2p + 1 of a row stay adjacent in
// micro-block order (x bit 0 is the lowest bit of the Z order), so the
// reorder moves pairs of elements.
template <size_t kElementBytes>
void Reorder(const uint8_t* source, uint8_t* destination, uint64_t rowElements, uint64_t rows,
             MicroBlockDirection direction) {
  constexpr size_t kPairBytes = 2 * kElementBytes;
  const uint64_t pairs = rowElements / 2;
  for (uint64_t y = 0; y < rows; ++y) {
    const uint64_t rowStart = MicroBlockElement(0, y, rowElements);
    for (uint64_t p = 0; p < pairs; ++p) {
      // Pair p starts at column 2p: micro-block p / 2, x bit 1 = p bit 0.
      const uint64_t element = rowStart + kMicroBlockElements * (p >> 1) + ((p & 1) << 2);
      const uint64_t raster = (y * rowElements + 2 * p) * kElementBytes;
      const uint64_t ordered = element * kElementBytes;
      if (direction == MicroBlockDirection::kToRaster) {
        std::memcpy(destination + raster, source + ordered, kPairBytes);
      } else {
        std::memcpy(destination + ordered, source + raster, kPairBytes);
      }
    }
  }
}

}  // namespace micro_block_detail

// Moves a tile of `rows` x `rowElements` elements of `elementBytes` bytes
// between raster order and micro-block order. `rows` and `rowElements` are
// multiples of 4; source and destination do not overlap.
inline void ReorderMicroBlocks(const uint8_t* source, uint8_t* destination, uint64_t elementBytes,
                               uint64_t rowElements, uint64_t rows, MicroBlockDirection direction) {
  using micro_block_detail::Reorder;
  switch (elementBytes) {
    case 1:
      Reorder<1>(source, destination, rowElements, rows, direction);
      break;
    case 2:
      Reorder<2>(source, destination, rowElements, rows, direction);
      break;
    case 4:
      Reorder<4>(source, destination, rowElements, rows, direction);
      break;
    case 8:
      Reorder<8>(source, destination, rowElements, rows, direction);
      break;
    default:
      break;  // no plane has other element sizes; the tile decoder refuses them
  }
}

}  // namespace pelcast
