// Helpers the frame encoders share: bounded stores into the compressed
// buffer and the cut from raster tiles to micro-block order.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "surface/micro_block.h"
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

// Asks for `count` bytes at plane + offset to be brought into the cache
// (for writing when kForWriting), as far as they lie before `end`. Inlined
// always: a call of a function that only prefetches counts as free of
// effects and would be dropped.
template <bool kForWriting>
[[gnu::always_inline]] inline void PrefetchBounded(const uint8_t* plane, uint64_t offset,
                                                   uint64_t count, const uint8_t* end) {
  constexpr uint64_t kLineBytes = 64;
  if (plane == nullptr) return;
  if (end != nullptr) {
    const uintptr_t start = reinterpret_cast<uintptr_t>(plane);
    const uintptr_t limit = reinterpret_cast<uintptr_t>(end);
    if (start >= limit || offset >= limit - start || count > limit - start - offset) return;
  }
  for (uint64_t at = 0; at < count; at += kLineBytes) {
    __builtin_prefetch(plane + offset + at, kForWriting ? 1 : 0);
  }
}

// Reorders a raster tile of `rows` rows of `rowElements` elements of
// `elementBytes` bytes into micro-block order.
inline void OrderTile(const uint8_t* raster, uint8_t* ordered, uint64_t rowElements, uint64_t rows,
                      uint64_t elementBytes) {
  for (uint64_t y = 0; y < rows; ++y) {
    for (uint64_t x = 0; x < rowElements; ++x) {
      std::memcpy(ordered + MicroBlockElement(x, y, rowElements) * elementBytes,
                  raster + (y * rowElements + x) * elementBytes, elementBytes);
    }
  }
}

}  // namespace pelcast
