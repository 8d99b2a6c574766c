// The tile bit writer: the mirror of the tile bit reader. Bits go into each
// byte least-significant first, and a field of k bits is written lowest bit
// first, so the reader assembles it with the first bit read as its lowest.
//
// Fields are gathered in a 64-bit word. After every field the word is stored
// whole at the next unfinished byte and the finished bytes are dropped from
// it, so fewer than 8 bits stay pending and a field may be up to 56 bits
// wide. The store also writes zeros past the pending bits, which later
// stores overwrite; what is left behind the stream is zero. Near the end of
// the buffer the store is cut to the bytes that fit, so nothing is written
// past the capacity.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace pelcast {

inline constexpr uint32_t kWidestField = 56;

struct TileBitWriter {
  uint8_t* bytes;       // destination
  size_t capacity;      // bytes available at `bytes`
  size_t bytePosition;  // first byte not yet finished
  uint64_t pending;     // bits of the unfinished byte, lowest first
  uint32_t pendingBits; // fewer than 8
};

inline TileBitWriter MakeTileBitWriter(uint8_t* bytes, size_t capacity) {
  return TileBitWriter{bytes, capacity, 0, 0, 0};
}

// Stores the pending word at the current byte, bounded by the capacity.
inline void StorePending(TileBitWriter* writer) {
  constexpr size_t kWordBytes = sizeof(uint64_t);
  if (writer->bytePosition + kWordBytes <= writer->capacity) {
    std::memcpy(writer->bytes + writer->bytePosition, &writer->pending, kWordBytes);
    return;
  }
  uint64_t word = writer->pending;
  for (size_t at = writer->bytePosition; at < writer->capacity; ++at, word >>= 8) {
    writer->bytes[at] = static_cast<uint8_t>(word);
  }
}

// Appends `count` bits of `value` (count at most kWidestField; bits of
// `value` above them must be zero).
inline void WriteBits(TileBitWriter* writer, uint64_t value, uint32_t count) {
  constexpr uint32_t kByteShift = 3;
  constexpr uint32_t kPartialByte = 7;
  writer->pending |= value << writer->pendingBits;
  const uint32_t bits = writer->pendingBits + count;
  StorePending(writer);
  const uint32_t finished = bits >> kByteShift;
  writer->bytePosition += finished;
  // At most 7 + 56 bits are pending here, so the shift stays below 64.
  writer->pending >>= finished << kByteShift;
  writer->pendingBits = bits & kPartialByte;
}

// WriteBits for a writer whose buffer is known to hold the whole stream and
// one more word past its last finished byte, so the store needs no bound.
inline void WriteBitsInBounds(TileBitWriter* writer, uint64_t value, uint32_t count) {
  constexpr uint32_t kByteShift = 3;
  constexpr uint32_t kPartialByte = 7;
  writer->pending |= value << writer->pendingBits;
  const uint32_t bits = writer->pendingBits + count;
  std::memcpy(writer->bytes + writer->bytePosition, &writer->pending, sizeof writer->pending);
  writer->bytePosition += bits >> kByteShift;
  writer->pending >>= bits & ~kPartialByte;
  writer->pendingBits = bits & kPartialByte;
}

// Bytes that hold stream bits. Every field's store already wrote the
// unfinished byte, so there is nothing to flush.
inline size_t WrittenBytes(const TileBitWriter& writer) {
  return writer.bytePosition + (writer.pendingBits != 0 ? 1 : 0);
}

}  // namespace pelcast
