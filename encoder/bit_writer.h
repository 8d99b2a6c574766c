// The tile bit writer: the mirror of the tile bit reader. Bits go into each
// byte least-significant first, and a field of k bits is written lowest bit
// first, so the reader assembles it with the first bit read as its lowest.
#pragma once

#include <cstddef>
#include <cstdint>

namespace pelcast {

struct TileBitWriter {
  uint8_t* bytes;       // destination, zero-filled by the caller
  size_t capacity;      // bytes available at `bytes`
  size_t bytePosition;  // next whole byte to flush into
  uint64_t pending;     // bits not yet flushed, lowest first
  uint32_t pendingBits;
};

inline TileBitWriter MakeTileBitWriter(uint8_t* bytes, size_t capacity) {
  return TileBitWriter{bytes, capacity, 0, 0, 0};
}

// Appends the low `count` bits of `value` (count at most 32). Bytes that would
// land past the capacity are dropped; callers size streams before writing, so
// this never happens for a stream they decided to keep.
inline void WriteBits(TileBitWriter* writer, uint32_t value, uint32_t count) {
  constexpr uint32_t kByteBits = 8;
  if (count == 0) return;
  const uint64_t mask = (uint64_t{1} << count) - 1;
  writer->pending |= (value & mask) << writer->pendingBits;
  writer->pendingBits += count;
  while (writer->pendingBits >= kByteBits) {
    if (writer->bytePosition < writer->capacity) {
      writer->bytes[writer->bytePosition] = static_cast<uint8_t>(writer->pending);
    }
    ++writer->bytePosition;
    writer->pending >>= kByteBits;
    writer->pendingBits -= kByteBits;
  }
}

// Writes out a last partial byte; its unused high bits stay zero.
inline void FlushBits(TileBitWriter* writer) {
  if (writer->pendingBits == 0) return;
  if (writer->bytePosition < writer->capacity) {
    writer->bytes[writer->bytePosition] = static_cast<uint8_t>(writer->pending);
  }
  ++writer->bytePosition;
  writer->pending = 0;
  writer->pendingBits = 0;
}

}  // namespace pelcast
