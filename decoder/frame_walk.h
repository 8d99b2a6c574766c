// What the frame decoders share: bounded access to the planes of the
// compressed frame buffer, tile fetches that read zeros past its end, and the
// clipped copy of decoded tile rows into the linear image.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <limits>

#include "decoder/frame_decoder.h"
#include "decoder/tile_kernels.h"
#include "surface/tile_addressing.h"
#include "surface/tile_format.h"
#include "surface/zpak_context.h"

namespace pelcast {

// A plane of the compressed frame: how many bytes from its first one lie
// inside the frame buffer, and where its bytes are. A command that loads the
// frame piece by piece holds only the plane's bytes [origin, origin +
// loaded), at `base`; a whole frame has them all (origin 0, loaded =
// available). Fetches read zero at and past the end of the frame, and
// outside the loaded bytes, which a piece-by-piece load never lets a tile
// ask for.
struct PlaneSource {
  const uint8_t* base;
  uint64_t available;
  uint64_t origin;
  uint64_t loaded;
};

inline constexpr PlaneSource kEmptyPlane{nullptr, 0, 0, 0};

// `plane` bounded by the descriptor's compressedEnd; without an end the
// caller vouches for every byte the tiles address.
inline PlaneSource MakePlaneSource(const uint8_t* plane, const uint8_t* end) {
  if (plane == nullptr) return kEmptyPlane;
  constexpr uint64_t kUnbounded = std::numeric_limits<uint64_t>::max();
  if (end == nullptr) return PlaneSource{plane, kUnbounded, 0, kUnbounded};
  const auto first = reinterpret_cast<uintptr_t>(plane);
  const auto last = reinterpret_cast<uintptr_t>(end);
  const uint64_t available = first < last ? last - first : 0;
  return PlaneSource{plane, available, 0, available};
}

// The plane that starts `offset` bytes into the whole-frame `source` (empty
// when that lies past the end).
inline PlaneSource OffsetPlaneSource(const PlaneSource& source, uint64_t offset) {
  if (offset >= source.available || offset >= source.loaded || source.origin != 0) {
    return kEmptyPlane;
  }
  return PlaneSource{source.base + offset, source.available - offset, 0,
                     source.loaded - offset};
}

// Bytes from `offset` on that can be copied from `source`: inside the frame
// and loaded, at most `count`. `*from` gets their address.
inline uint64_t BytesAt(const PlaneSource& source, uint64_t offset, uint64_t count,
                        const uint8_t** from) {
  if (offset >= source.available || offset < source.origin) return 0;
  const uint64_t at = offset - source.origin;
  if (at >= source.loaded) return 0;
  *from = source.base + at;
  return std::min(count, std::min(source.available - offset, source.loaded - at));
}

// Copies `count` bytes from `offset` into `destination`; bytes at and past
// the end of the frame buffer read as zero.
inline void FetchPlaneBytes(const PlaneSource& source, uint64_t offset, uint64_t count,
                            uint8_t* destination) {
  const uint8_t* from = nullptr;
  const uint64_t inside = BytesAt(source, offset, count, &from);
  if (inside != 0) std::memcpy(destination, from, inside);
  if (inside < count) std::memset(destination + inside, 0, count - inside);
}

// One metadata byte; 0 past the end of the frame buffer.
inline uint32_t FetchMetadataByte(const PlaneSource& source, uint64_t offset) {
  const uint8_t* from = nullptr;
  return BytesAt(source, offset, 1, &from) != 0 ? *from : 0;
}

// A plane source as a band window holds it: the window's bytes of the
// plane, and the first `metaBytes` of its metadata plane.
inline void ApplyWindow(const BandWindow& window, PlaneSource* data, PlaneSource* meta) {
  *data = PlaneSource{window.data, data->available, window.dataFirst,
                      window.dataEnd - window.dataFirst};
  meta->loaded = std::min(meta->loaded, window.metaBytes);
}

// Copies the rows of a decoded tile into a linear plane, clipped to
// `rowLimit` rows and `columnLimit` bytes of the plane. The tile's top-left
// byte goes to column `column`, row `row` of the plane.
struct TilePlacement {
  uint64_t row;
  uint64_t column;
  uint64_t tileRows;
  uint64_t tileRowBytes;
};

inline void StoreClippedTile(const uint8_t* tile, const TilePlacement& at, uint8_t* plane,
                             uint64_t pitch, uint64_t rowLimit, uint64_t columnLimit) {
  if (at.column >= columnLimit || at.row >= rowLimit) return;
  const uint64_t bytes = std::min(at.tileRowBytes, columnLimit - at.column);
  const uint64_t rows = std::min(at.tileRows, rowLimit - at.row);
  for (uint64_t k = 0; k < rows; ++k) {
    std::memcpy(plane + (at.row + k) * pitch + at.column, tile + k * at.tileRowBytes, bytes);
  }
}

// A tile's stored bytes and the zeros after them that the tile kernels read
// past a short stream. Only the stored part is rewritten per tile.
struct PaddedTile {
  alignas(64) uint8_t bytes[kPaddedTileBytes];
};

// Copies `kCount` bytes from `offset` into `destination`: one fixed-size copy
// when they all lie inside the frame buffer, zeros past its end otherwise.
template <uint64_t kCount>
inline void FetchStoredBytes(const PlaneSource& source, uint64_t offset, uint8_t* destination) {
  const uint8_t* from = nullptr;
  if (BytesAt(source, offset, kCount, &from) == kCount) {
    std::memcpy(destination, from, kCount);
  } else {
    FetchPlaneBytes(source, offset, kCount, destination);
  }
}

// The addresses of one tile row, looked up once for the row. Lookups of its
// tiles give exactly what TileSlot and TileMetaOffset give: a metadata
// offset is a row part plus a column part (MetaByteOffset(row, 0, T) +
// MetaByteOffset(0, column, T)), and both are 0 outside the tables.
struct TileRowAddresses {
  const uint64_t* slots;  // the row of the slot table; null outside it
  uint64_t slotColumns;   // 0 outside the slot table
  uint64_t metaRowBase;
  uint64_t metaColumns;   // 0 outside the metadata table
};

inline TileRowAddresses RowAddresses(const TileAddressTables& tables, uint64_t row) {
  TileRowAddresses a{nullptr, 0, 0, 0};
  if (!tables.valid) return a;
  if (row < tables.layout.tileRows) {
    a.slots = tables.slots + row * tables.slotColumns;
    a.slotColumns = tables.slotColumns;
  }
  if (row < tables.layout.metaRows) {
    a.metaRowBase = MetaByteOffset(row, 0, tables.layout.metaTilesPerRow);
    a.metaColumns = tables.metaColumns;
  }
  return a;
}

inline uint64_t SlotAt(const TileRowAddresses& a, uint64_t column) {
  return column < a.slotColumns ? a.slots[column] : 0;
}

inline uint64_t MetaOffsetAt(const TileRowAddresses& a, uint64_t column) {
  return column < a.metaColumns ? a.metaRowBase + MetaByteOffset(0, column, 0) : 0;
}

// Copies the 256 bytes of a tile of the row that the tile decoder is given,
// honouring the half-slot rule, and returns the tile's metadata byte.
inline uint32_t FetchTile(const TileRowAddresses& row, const ZpakConfig& config,
                          const PlaneSource& data, const PlaneSource& meta, uint64_t column,
                          uint8_t* stored) {
  const uint64_t slot = SlotAt(row, column);
  const uint32_t metadataByte = FetchMetadataByte(meta, MetaOffsetAt(row, column));
  FetchStoredBytes<kSlotBytes>(data, TileByteOffset(slot, metadataByte, config), stored);
  return metadataByte;
}

// True when the frame's tiles of the context's current plane go through a
// specialised kernel: a configured plane, tiles that are decoded (not taken
// as uncompressed by the alternative addressing) and a kernel that is not the
// general decoder.
inline bool UsesTileKernel(const ZpakContext& context, const ZpakConfig& config,
                           TileKernel kernel, TileKind* kind) {
  return kernel != TileKernel::kExact && config.altAddressing == 0 &&
         FindTileKind(context, kind);
}

// Expands one fetched tile (raw or compressed, as its metadata byte says)
// into raster rows `pitch` bytes apart.
inline void ExpandTile(TileKernel kernel, TileKind kind, uint32_t metadataByte,
                       const uint8_t* padded, uint8_t* out, uint64_t pitch) {
  if (IsRawTile(kind, metadataByte)) {
    ExpandRawTile(kind, padded, out, pitch);
  } else {
    DecodeCompressedTile(kernel, kind, padded, out, pitch);
  }
}

}  // namespace pelcast
