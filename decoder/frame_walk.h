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
  return PlaneSource{source.base + offset, source.available - offset, 0, source.loaded - offset};
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

// A tile's staged bytes and the zeros after them that the tile kernels read
// past a short stream. Only the staged part is rewritten per tile.
struct PaddedTile {
  alignas(64) uint8_t bytes[kPaddedTileBytes];
};

inline constexpr uint64_t kBitsPerByte = 8;

// Asks for `count` bytes from `offset` of a plane to be brought into the
// cache, when they are loaded. Inlined always: a call of a function that
// only prefetches counts as free of effects and would be dropped.
[[gnu::always_inline]] inline void PrefetchBytes(const PlaneSource& source, uint64_t offset,
                                                 uint64_t count) {
  constexpr uint64_t kLineBytes = 64;
  if (offset < source.origin || offset - source.origin >= source.loaded ||
      source.loaded - (offset - source.origin) < count) {
    return;
  }
  const uint8_t* at = source.base + (offset - source.origin);
  for (uint64_t line = 0; line < count; line += kLineBytes) __builtin_prefetch(at + line);
}

// Asks for the rows a tile ahead will be written to, for writing: a frame
// larger than the cache is otherwise read row line by row line as the tiles
// store to it.
[[gnu::always_inline]] inline void PrefetchRows(uint8_t* first, uint64_t pitch, uint64_t rows,
                                                uint64_t rowBytes) {
  constexpr uint64_t kLineBytes = 64;
  constexpr int kForWriting = 1;
  for (uint64_t y = 0; y < rows; ++y) {
    for (uint64_t x = 0; x < rowBytes; x += kLineBytes) {
      __builtin_prefetch(first + y * pitch + x, kForWriting);
    }
  }
}

// Where a tile of the row starts in its data plane, honouring the half-slot
// rule, and its metadata byte.
struct TileLocation {
  uint64_t offset;
  uint32_t metadataByte;
};

inline TileLocation LocateTile(const TileRowAddresses& row, const ZpakConfig& config,
                               const PlaneSource& meta, uint64_t column) {
  const uint64_t slot = SlotAt(row, column);
  const uint32_t metadataByte = FetchMetadataByte(meta, MetaOffsetAt(row, column));
  return TileLocation{TileByteOffset(slot, metadataByte, config), metadataByte};
}

// Asks for what tiles ahead of the walk will read, so that their loads do
// not wait: the stored bytes of the tile at `column`, as far as its metadata
// byte says they reach, and the metadata byte of the tile at `metaColumn`,
// further ahead, which the stored bytes cannot even be addressed without. The
// walk jumps within and between macro tiles and metadata tiles in ways the
// processor's own prefetchers do not follow.
[[gnu::always_inline]] inline void PrefetchAhead(const TileRowAddresses& row,
                                                 const ZpakConfig& config, const PlaneSource& data,
                                                 const PlaneSource& meta, uint64_t column,
                                                 uint64_t metaColumn) {
  PrefetchBytes(meta, MetaOffsetAt(row, metaColumn), 1);
  const TileLocation at = LocateTile(row, config, meta, column);
  const int64_t units = UnitsOfMetadata(at.metadataByte, false);
  const uint64_t reach =
      units >= 1 && units <= kRawTileUnits ? StoredBytesForUnits(units) : kSlotBytes;
  PrefetchBytes(data, at.offset, reach);
}

// True when the frame's tiles of the context's current plane go through the
// kernel table: a configured plane, tiles that are decoded (not taken as
// uncompressed by the alternative addressing) and a table rather than the
// general decoder (null).
inline bool UsesTileKernel(const ZpakContext& context, const ZpakConfig& config,
                           const TileDecodeKernels* kernels, TileKind* kind) {
  return kernels != nullptr && config.altAddressing == 0 && FindTileKind(context, kind);
}

// Expands the tile whose stored bytes start `at.offset` bytes into `data`
// (raw or compressed, as its metadata byte says) into raster rows `pitch`
// bytes apart. The bytes are read where they lie when every byte a kernel
// may read is inside the loaded frame; otherwise, and for a stream that runs
// past the staged bytes (a corrupt one), from `padded`, a copy of the staged
// bytes followed by zeros as the general decoder sees them. Only the staged
// part of `padded` is ever written.
inline void ExpandStoredTile(const TileDecodeKernels& kernels, TileKind kind,
                             const TileLocation& at, const PlaneSource& data, PaddedTile* padded,
                             uint8_t* out, uint64_t pitch, bool streaming = false) {
  const uint64_t staged = StagedTileBytes(kind);
  const auto k = static_cast<size_t>(kind);
  const ExpandRawRoutine expandRaw =
      streaming ? kernels.expandRawStreamed[k] : kernels.expandRaw[k];
  const DecodeTileRoutine decode = streaming ? kernels.decodeStreamed[k] : kernels.decode[k];
  const uint8_t* from = nullptr;
  const uint64_t inside = BytesAt(data, at.offset, kPaddedTileBytes, &from);
  if (IsRawTile(kind, at.metadataByte)) {
    if (inside >= staged) {
      expandRaw(from, out, pitch);
      return;
    }
    FetchPlaneBytes(data, at.offset, staged, padded->bytes);
    expandRaw(padded->bytes, out, pitch);
    return;
  }
  if (inside == kPaddedTileBytes && decode(from, out, pitch) <= staged * kBitsPerByte) return;
  FetchPlaneBytes(data, at.offset, staged, padded->bytes);
  decode(padded->bytes, out, pitch);
}

// True when a walk writing `bytes` output bytes to rows starting at `out`,
// `pitch` apart, streams them (see TileDecodeKernels): far more than the
// cache holds, and aligned.
inline bool StreamsOutput(uint64_t bytes, const uint8_t* out, uint64_t pitch) {
  constexpr uint64_t kAlignment = 16;
  return bytes >= kStreamedOutputBytes &&
         ((reinterpret_cast<uintptr_t>(out) | pitch) & (kAlignment - 1)) == 0;
}

}  // namespace pelcast
