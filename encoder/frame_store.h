// Helpers the frame encoders share: bounded stores into the compressed
// buffer, the cut from raster tiles to micro-block order, and the slot
// placement of short tiles.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "surface/zpak_context.h"

namespace pelcast {

// Copies `count` bytes to plane + offset, dropping every byte at or past
// `end` (the end of the compressed buffer; null means no limit). The address
// is formed only for bytes that are stored, so an offset far outside the
// buffer never yields a pointer outside it.
inline void StoreBounded(uint8_t* plane, uint64_t offset, const uint8_t* source, uint64_t count,
                         const uint8_t* end) {
  if (plane == nullptr || count == 0) return;
  if (end != nullptr) {
    const uintptr_t start = reinterpret_cast<uintptr_t>(plane);
    const uintptr_t limit = reinterpret_cast<uintptr_t>(end);
    if (start >= limit || offset >= limit - start) return;
    const uint64_t room = limit - start - offset;
    if (count > room) count = room;
  }
  std::memcpy(plane + offset, source, count);
}

// Element k of a tile in micro-block order is the raster element at column
// x, row y with k = 16 (4 (y / 4) (W / 4) + x / 4) + (x & 1) + 2 (y & 1) +
// 4 ((x >> 1) & 1) + 8 ((y >> 1) & 1) for a tile W elements wide.
constexpr uint64_t MicroBlockIndex(uint64_t x, uint64_t y, uint64_t rowElements) {
  constexpr uint64_t kSide = 4;
  constexpr uint64_t kElements = 16;
  const uint64_t inBlock = (x & 1) | (y & 1) << 1 | ((x >> 1) & 1) << 2 | ((y >> 1) & 1) << 3;
  return kElements * ((y / kSide) * (rowElements / kSide) + x / kSide) + inBlock;
}

// Reorders a raster tile of `rows` rows of `rowElements` elements of
// `elementBytes` bytes into micro-block order.
inline void OrderTile(const uint8_t* raster, uint8_t* ordered, uint64_t rowElements, uint64_t rows,
                      uint64_t elementBytes) {
  for (uint64_t y = 0; y < rows; ++y) {
    for (uint64_t x = 0; x < rowElements; ++x) {
      std::memcpy(ordered + MicroBlockIndex(x, y, rowElements) * elementBytes,
                  raster + (y * rowElements + x) * elementBytes, elementBytes);
    }
  }
}

// Metadata byte of a tile stored in `units` 64-byte units.
constexpr uint64_t MetadataForUnits(uint64_t units) {
  constexpr uint64_t kPerUnit = 4;
  constexpr uint64_t kOffset = 15;
  return kPerUnit * units + kOffset;
}

// Bytes copied into the slot for a metadata byte: 16 meta - 240, i.e. 64 per unit.
constexpr uint64_t StoredBytesForMetadata(uint64_t meta) {
  constexpr uint64_t kBytesPerStep = 16;
  constexpr uint64_t kLead = 240;
  return kBytesPerStep * meta - kLead;
}

}  // namespace pelcast
