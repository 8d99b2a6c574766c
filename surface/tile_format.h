// How a stored tile is sized and placed: the metadata byte that gives a
// tile's length in 64-byte units, the raw tile that a length of a whole tile
// stands for, and the upper-half placement of short tiles in their slots.
// The decoders, the encoders and the tools all take these facts from here.
#pragma once

#include <cstdint>

#include "surface/zpak_context.h"

namespace pelcast {

constexpr uint64_t CeilDiv(uint64_t value, uint64_t divisor) {
  return value / divisor + (value % divisor != 0 ? 1 : 0);
}

// A tile is stored in whole units of 64 bytes (512 bits).
inline constexpr uint64_t kUnitBytes = 64;
inline constexpr uint64_t kUnitShift = 9;  // log2 of the bits in a unit

// A tile stored in n units has the metadata byte 4n + 15 (19, 23, 27, 31).
inline constexpr uint32_t kMetadataBias = 15;
inline constexpr uint32_t kMetadataUnitShift = 2;

// Units of a raw tile: a whole 256-byte slot, or the 128 bytes of an RGB565
// half tile. RGB565 also reads the metadata byte of four units as raw.
inline constexpr uint32_t kRawTileUnits = 4;
inline constexpr uint32_t kRgb565RawUnits = 2;
inline constexpr uint32_t kRgb565FullTileMetadata = 31;

constexpr uint32_t MetadataForUnits(uint64_t units) {
  return static_cast<uint32_t>((units << kMetadataUnitShift) + kMetadataBias);
}

constexpr uint64_t StoredBytesForUnits(uint64_t units) { return units * kUnitBytes; }

// The unit count a metadata byte stands for, as the tile decoder reads it:
// 4n + 15 to 4n + 18 give n; bytes below 15 give negative counts, which are
// never a raw size.
constexpr int64_t UnitsOfMetadata(uint32_t metadata, bool rgb565) {
  if (rgb565 && metadata == kRgb565FullTileMetadata) return kRgb565RawUnits;
  return (static_cast<int64_t>(metadata) - kMetadataBias) >> kMetadataUnitShift;
}

constexpr uint32_t RawUnitsOf(bool rgb565) { return rgb565 ? kRgb565RawUnits : kRawTileUnits; }

// True when the metadata byte marks the tile as stored raw.
constexpr bool IsRawMetadata(uint32_t metadata, bool rgb565) {
  return UnitsOfMetadata(metadata, rgb565) == RawUnitsOf(rgb565);
}

// True for the bytes an encoder writes: 4n + 15 for 1 to the raw unit count
// (and, for RGB565, the four-unit byte read as raw).
constexpr bool IsRegularMetadata(uint32_t metadata, bool rgb565) {
  if (rgb565 && metadata == kRgb565FullTileMetadata) return true;
  const int64_t units = UnitsOfMetadata(metadata, rgb565);
  return units >= 1 && units <= RawUnitsOf(rgb565) && metadata == MetadataForUnits(units);
}

// Short tiles (at most two units) in slots 1 and 2 of every group of four
// start in the upper half of their slot, under the addressing of every real
// surface (addressingMode 1, no alternative addressing). RGB565 half tiles
// always lie at their fixed place and never move.
inline constexpr uint32_t kHalfSlotMaxMetadata = 23;
inline constexpr uint64_t kHalfSlotBytes = kSlotBytes / 2;

constexpr bool StartsInUpperHalf(uint64_t slot, uint32_t metadata, const ZpakConfig& config) {
  return config.addressingMode == 1 && config.altAddressing == 0 &&
         metadata <= kHalfSlotMaxMetadata && ((slot ^ (slot >> 1)) & 1) != 0;
}

// Where a tile's stored bytes start in its data plane.
constexpr uint64_t TileByteOffset(uint64_t slot, uint32_t metadata, const ZpakConfig& config) {
  return slot * kSlotBytes + (StartsInUpperHalf(slot, metadata, config) ? kHalfSlotBytes : 0);
}

static_assert(MetadataForUnits(1) == 19 && MetadataForUnits(kRawTileUnits) == 31);
static_assert(MetadataForUnits(2) == kHalfSlotMaxMetadata, "a half slot holds two units");
static_assert(StoredBytesForUnits(2) == kHalfSlotBytes);
static_assert(StoredBytesForUnits(kRawTileUnits) == kSlotBytes);
static_assert(UnitsOfMetadata(MetadataForUnits(3) + 3, false) == 3);
static_assert(UnitsOfMetadata(14, false) < 0 && !IsRawMetadata(0, false));
static_assert(IsRawMetadata(31, true) && IsRawMetadata(23, true) && !IsRawMetadata(23, false));
static_assert(IsRegularMetadata(27, false) && !IsRegularMetadata(27, true) &&
              !IsRegularMetadata(20, false));

}  // namespace pelcast
