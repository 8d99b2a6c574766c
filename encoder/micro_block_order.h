// Raster tiles to micro-block order, the order raw tiles are stored in.
//
// A micro-block is 4 x 4 elements; its 16 elements follow 0, 1, 4, 5, 2, 3,
// 6, 7, 8, 9, 12, 13, 10, 11, 14, 15, which is pairs of horizontally adjacent
// elements: the left pair of rows 0 and 1, their right pair, then the same
// for rows 2 and 3. So a tile is reordered with whole pair moves.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "surface/micro_block.h"

namespace pelcast {

// The raster tile `raster` (`rows` rows `pitch` bytes apart, `rowElements`
// elements of `elementBytes` bytes each; multiples of 4 rows and elements) in
// micro-block order at `ordered`.
template <uint32_t kElementBytes>
inline void OrderElementsOf(const uint8_t* raster, size_t pitch, uint32_t rowElements,
                            uint32_t rows, uint8_t* ordered) {
  constexpr size_t pairBytes = 2 * size_t{kElementBytes};
  constexpr uint32_t elementBytes = kElementBytes;
  for (uint32_t y = 0; y < rows; y += kMicroBlockSide) {
    for (uint32_t x = 0; x < rowElements; x += kMicroBlockSide) {
      const uint8_t* top = raster + y * pitch + x * elementBytes;
      for (uint32_t band = 0; band < 2; ++band) {  // rows 0-1, then rows 2-3
        const uint8_t* first = top + 2 * band * pitch;
        for (uint32_t half = 0; half < 2; ++half) {  // left pair, then right pair
          const size_t column = half * pairBytes;
          std::memcpy(ordered, first + column, pairBytes);
          std::memcpy(ordered + pairBytes, first + pitch + column, pairBytes);
          ordered += 2 * pairBytes;
        }
      }
    }
  }
}

inline void OrderElements(const uint8_t* raster, size_t pitch, uint32_t rowElements,
                          uint32_t rows, uint32_t elementBytes, uint8_t* ordered) {
  switch (elementBytes) {
    case 1:
      OrderElementsOf<1>(raster, pitch, rowElements, rows, ordered);
      return;
    case 2:
      OrderElementsOf<2>(raster, pitch, rowElements, rows, ordered);
      return;
    default:
      OrderElementsOf<4>(raster, pitch, rowElements, rows, ordered);
      return;
  }
}

// The same for 2-byte elements whose first and second bytes come from two
// byte planes of the same geometry (NV12 chroma: U then V).
inline void OrderPlanePairs(const uint8_t* first, const uint8_t* second, size_t pitch,
                            uint32_t rowElements, uint32_t rows, uint8_t* ordered) {
  for (uint32_t y = 0; y < rows; y += kMicroBlockSide) {
    for (uint32_t x = 0; x < rowElements; x += kMicroBlockSide) {
      for (uint32_t t = 0; t < kMicroBlockElements; ++t) {
        const uint32_t dx = kMicroBlockOrder[t] % kMicroBlockSide;
        const uint32_t dy = kMicroBlockOrder[t] / kMicroBlockSide;
        const size_t at = (y + dy) * pitch + x + dx;
        *ordered++ = first[at];
        *ordered++ = second[at];
      }
    }
  }
}

}  // namespace pelcast
