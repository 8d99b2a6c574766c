// The tile bit reader: a stored tile is a bit stream read least-significant
// bit first within each byte, and a field of k bits is assembled with the
// first bit read as its lowest bit.
//
// The reader works on a zero-padded copy of the staged tile bytes and loads
// 64-bit little-endian words from it. A corrupt stream may ask for far more
// bits than were staged; past the staged bytes the reader delivers zeros and
// never touches memory beyond its copy.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace pelcast {

// Bytes staged for every tile (the RGB565 half tile's 128 bytes are followed
// by 128 zero bytes, so the reader treats every plane alike).
inline constexpr size_t kStagedTileBytes = 256;
// Zero bytes after the staged ones, so a word load at any staged byte stays
// inside the copy.
inline constexpr size_t kBitReaderPadding = sizeof(uint64_t);
// Widest field one read may return; wider fields are refused by the tile
// decoder before any bit is read.
inline constexpr uint32_t kMaxFieldBits = 32;

struct TileBitReader {
  uint8_t bytes[kStagedTileBytes + kBitReaderPadding];
  uint64_t position;  // bits consumed so far
};

// Copies the staged bytes and rewinds the reader.
inline void StartTileBitReader(TileBitReader* reader, const uint8_t* staged) {
  std::memcpy(reader->bytes, staged, kStagedTileBytes);
  std::memset(reader->bytes + kStagedTileBytes, 0, kBitReaderPadding);
  reader->position = 0;
}

inline uint64_t LoadLittleEndian64(const uint8_t* bytes) {
  uint64_t value;
  std::memcpy(&value, bytes, sizeof value);
  if constexpr (std::endian::native == std::endian::big) value = __builtin_bswap64(value);
  return value;
}

// Bits a single window holds whatever the bit position within its first byte.
inline constexpr uint32_t kWindowBits = 57;

// The next kWindowBits (and more) bits of the stream, first bit lowest,
// without consuming them. Zero past the staged bytes.
inline uint64_t PeekBits(const TileBitReader& reader) {
  const uint64_t byteIndex = reader.position >> 3;
  if (byteIndex >= kStagedTileBytes) return 0;
  // The padding keeps the 8-byte load inside the copy; it is zero, so bits
  // past the staged bytes read as zero here as well.
  return LoadLittleEndian64(reader.bytes + byteIndex) >> (reader.position & 7);
}

inline void SkipBits(TileBitReader* reader, uint64_t count) { reader->position += count; }

inline uint64_t LowBits(uint64_t value, uint32_t count) {
  return count >= 64 ? value : value & ((uint64_t{1} << count) - 1);
}

// Reads an unsigned field of `count` bits (0 to kMaxFieldBits). A field of 0
// bits is 0 and consumes nothing.
inline uint32_t ReadBits(TileBitReader* reader, uint32_t count) {
  const uint64_t window = PeekBits(*reader);
  SkipBits(reader, count);
  return static_cast<uint32_t>(LowBits(window, count));
}

}  // namespace pelcast
