// Test-side assembly of stored tiles: fields are appended least-significant
// bit first, the first field starting at bit 0 of byte 0, exactly as the tile
// format lays them out.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace pelcast::testing {

struct BitWriter {
  std::vector<uint8_t> bytes;
  uint64_t bitCount = 0;
};

inline void PutBits(BitWriter* writer, uint64_t value, uint32_t count) {
  for (uint32_t i = 0; i < count; ++i, ++writer->bitCount) {
    if (writer->bitCount % 8 == 0) writer->bytes.push_back(0);
    if ((value >> i) & 1)
      writer->bytes.back() |= static_cast<uint8_t>(1u << (writer->bitCount % 8));
  }
}

// Appends `count` fields of `bits` bits, all holding `value`.
inline void PutRepeated(BitWriter* writer, uint64_t value, uint32_t bits, size_t count) {
  for (size_t i = 0; i < count; ++i) PutBits(writer, value, bits);
}

// The stream cut or zero-padded to exactly `size` bytes, as a frame decoder
// stages it.
inline std::vector<uint8_t> StagedBytes(const BitWriter& writer, size_t size = 256) {
  std::vector<uint8_t> staged(writer.bytes);
  staged.resize(size, 0);
  return staged;
}

}  // namespace pelcast::testing
