// RGB565 frames: every 256-byte slot holds a 32 x 4-pixel tile as two
// independently coded halves of 16 x 4 pixels (left half in slot bytes
// 0-127, right half in 128-255), each with its own metadata byte in metadata
// columns 2c and 2c + 1. Halves always sit at their fixed place in the slot.
#include <algorithm>
#include <cstring>

#include "decoder/frame_decoder.h"
#include "decoder/frame_walk.h"
#include "decoder/micro_block.h"
#include "decoder/tile_decoder.h"
#include "decoder/tile_kernels.h"
#include "surface/surface_grid.h"
#include "surface/tile_addressing.h"
#include "surface/tile_format.h"

namespace pelcast {
namespace {

constexpr uint64_t kHalfTileBytes = 128;
constexpr uint64_t kHalvesPerTile = 2;
constexpr uint64_t kHalfTileRowBytes = 32;
constexpr uint64_t kTileRows = 4;
constexpr uint64_t kHalfTilePixels = 16;  // pixels across one half tile
constexpr uint64_t kBytesPerPixel = 2;

// An uncompressed half tile is reordered only as far as its first 64 bytes,
// read as 4 rows of 16 one-byte elements; the rest of the decoded buffer keeps
// the previous tile.
constexpr uint64_t kAltRowElements = 16;

void PrepareTables(ZpakContext* context, const ZpakConfig& config) {
  const TileGridLayout layout =
      SurfaceGridLayout(PlaneFormat::kRgb565, config.alignedWidth, config.alignedHeight, config);
  PrepareTileAddressTables(&context->addressTables, layout);
}

// Fetches and expands half `half` of tile (row, column) into the context's
// decoded tile buffer.
void DecodeHalfTile(ZpakContext* context, const ZpakConfig& config, const PlaneSource& data,
                    const PlaneSource& meta, uint64_t row, uint64_t column, uint64_t half) {
  const TileAddressTables& tables = context->addressTables;
  const uint64_t slot = TileSlot(tables, row, column);
  FetchPlaneBytes(data, slot * kSlotBytes + kHalfTileBytes * half, kHalfTileBytes,
                  context->compressedTileBuffer);
  const uint32_t metadataByte =
      FetchMetadataByte(meta, TileMetaOffset(tables, row, kHalvesPerTile * column + half));
  if (config.altAddressing == 0) {
    context->contextFormat = kContextRgb565;
    context->planeIndex = 0;
    DecodeTile(context, context->compressedTileBuffer, metadataByte, context->decodedTileBuffer);
  } else {
    ReorderMicroBlocks(context->compressedTileBuffer, context->decodedTileBuffer, 1,
                       kAltRowElements, kTileRows, MicroBlockDirection::kToRaster);
  }
}

// The walk's numbers: tile rows and columns, and the linear plane.
struct Rgb565Walk {
  PlaneSource data;
  PlaneSource meta;
  uint64_t tileRows;
  uint64_t tilesPerRow;
  uint64_t pitch;   // bytes per linear row; also the column limit
  uint64_t height;  // rows of the linear plane written
  uint64_t first;   // tile rows decoded: first to end
  uint64_t end;
  uint64_t origin;  // plane row that lands on the output's first row
};

void StoreHalfTile(const uint8_t* decoded, const ZpakConfig& config, const Rgb565Walk& walk,
                   uint64_t tr, uint64_t tc, uint64_t half) {
  const TilePlacement at{kTileRows * tr - walk.origin,
                         kHalvesPerTile * kHalfTileRowBytes * tc + kHalfTileRowBytes * half,
                         kTileRows, kHalfTileRowBytes};
  StoreClippedTile(decoded, at, config.linearY, walk.pitch, walk.height - walk.origin, walk.pitch);
}

void DecodeHalvesExactly(ZpakContext* context, const ZpakConfig& config, const Rgb565Walk& walk) {
  for (uint64_t tr = walk.first; tr < walk.end; ++tr) {
    for (uint64_t tc = 0; tc < walk.tilesPerRow; ++tc) {
      for (uint64_t half = 0; half < kHalvesPerTile; ++half) {
        DecodeHalfTile(context, config, walk.data, walk.meta, tr, tc, half);
        StoreHalfTile(context->decodedTileBuffer, config, walk, tr, tc, half);
      }
    }
  }
}

// Tiles (pairs of halves) a walk asks the cache for ahead of decoding them.
constexpr uint64_t kPrefetchTiles = 8;

// Half tiles inside the plane are expanded in place, the ones the edges cut
// through a tile buffer and the clipped copy. A half tile's 128 stored bytes
// are followed by zeros, as in the general walk's tile buffer.
void DecodeHalvesWithKernel(ZpakContext* context, const ZpakConfig& config, const Rgb565Walk& walk,
                            const TileDecodeKernels& kernels) {
  PaddedTile padded{};
  alignas(32) uint8_t tile[kHalfTileBytes];
  const TileAddressTables& tables = context->addressTables;
  const bool streaming =
      StreamsOutput((walk.end - walk.first) * kTileRows * walk.pitch, config.linearY, walk.pitch);
  for (uint64_t tr = walk.first; tr < walk.end; ++tr) {
    const uint64_t row = kTileRows * tr - walk.origin;
    const bool wholeRows = row + kTileRows <= walk.height - walk.origin;
    const TileRowAddresses addresses = RowAddresses(tables, tr);
    for (uint64_t tc = 0; tc < walk.tilesPerRow; ++tc) {
      PrefetchBytes(walk.data, SlotAt(addresses, tc + kPrefetchTiles) * kSlotBytes, kSlotBytes);
      PrefetchBytes(walk.meta, MetaOffsetAt(addresses, kHalvesPerTile * (tc + kPrefetchTiles)), 2);
      const uint64_t aheadColumn = kHalvesPerTile * kHalfTileRowBytes * (tc + kPrefetchTiles);
      if (!streaming && wholeRows &&
          aheadColumn + kHalvesPerTile * kHalfTileRowBytes <= walk.pitch) {
        PrefetchRows(config.linearY + row * walk.pitch + aheadColumn, walk.pitch, kTileRows,
                     kHalvesPerTile * kHalfTileRowBytes);
      }
      const uint64_t slot = SlotAt(addresses, tc);
      for (uint64_t half = 0; half < kHalvesPerTile; ++half) {
        const TileLocation at{
            slot * kSlotBytes + kHalfTileBytes * half,
            FetchMetadataByte(walk.meta, MetaOffsetAt(addresses, kHalvesPerTile * tc + half))};
        const uint64_t column = kHalvesPerTile * kHalfTileRowBytes * tc + kHalfTileRowBytes * half;
        if (wholeRows && column + kHalfTileRowBytes <= walk.pitch) {
          ExpandStoredTile(kernels, TileKind::kRgb565, at, walk.data, &padded,
                           config.linearY + row * walk.pitch + column, walk.pitch, streaming);
          continue;
        }
        ExpandStoredTile(kernels, TileKind::kRgb565, at, walk.data, &padded, tile,
                         kHalfTileRowBytes);
        StoreHalfTile(tile, config, walk, tr, tc, half);
      }
    }
  }
  if (streaming) kernels.finishStreaming();
  // The context's tile buffers end as the general decoder leaves them.
  if (walk.end == walk.tileRows) {
    DecodeHalfTile(context, config, walk.data, walk.meta, walk.tileRows - 1, walk.tilesPerRow - 1,
                   kHalvesPerTile - 1);
  }
}

uint64_t DecodeRgb565Band(ZpakContext* context, const ZpakConfig* config, const TileRowBand& band,
                          const TileDecodeKernels* kernels, const BandWindow* window) {
  if (context == nullptr || config == nullptr || config->enable == 0) return 0;
  if (config->bypass != 0) return config->stride;
  const uint64_t tileRows = CeilDiv(config->height, kTileRows);
  if (tileRows == 0 || band.plane == kChromaPlane) return config->stride;
  // Whole tiles only: an odd count of 16-pixel columns leaves the last one
  // undecoded.
  const uint64_t tilesPerRow = CeilDiv(config->width, kHalfTilePixels) / kHalvesPerTile;
  PrepareTables(context, *config);

  // Only the first half of the compressed tile buffer is refreshed per half
  // tile; the tile bit reader sees zeros after the half tile's 128 bytes.
  std::memset(context->compressedTileBuffer + kHalfTileBytes, 0, kSlotBytes - kHalfTileBytes);
  const BandRows rows =
      band.plane == kWholeFrame ? BandRows{0, tileRows} : ClampBand(band, tileRows);
  const uint64_t first = rows.first;
  const uint64_t end = rows.end;
  PlaneSource data = MakePlaneSource(config->yDataPlane, config->compressedEnd);
  PlaneSource meta = MakePlaneSource(config->yMetaPlane, config->compressedEnd);
  if (window != nullptr) ApplyWindow(*window, &data, &meta);
  const Rgb565Walk walk{
      data,           meta,  tileRows, tilesPerRow,      kBytesPerPixel * config->width,
      config->height, first, end,      kTileRows * first};
  if (tilesPerRow == 0 || first >= end) return config->stride;
  if (config->altAddressing == 0) {
    // Every half tile is decoded with the same format and plane.
    context->contextFormat = kContextRgb565;
    context->planeIndex = 0;
  }
  TileKind kind;
  if (UsesTileKernel(*context, *config, kernels, &kind) && kind == TileKind::kRgb565) {
    DecodeHalvesWithKernel(context, *config, walk, *kernels);
  } else {
    DecodeHalvesExactly(context, *config, walk);
  }
  return config->stride;
}

}  // namespace

uint64_t DecodeZpakFrameRgb565BandWithKernels(ZpakContext* context, const ZpakConfig* config,
                                              const TileRowBand& band,
                                              const TileDecodeKernels* kernels) {
  return DecodeRgb565Band(context, config, band, kernels, nullptr);
}

bool ZpakRgb565BandWindow(ZpakContext* context, const ZpakConfig& config, const TileRowBand& band,
                          uint64_t metaBytes, BandWindow* window) {
  if (context == nullptr || band.plane != kLumaPlane) return false;
  const uint64_t tileRows = CeilDiv(config.height, kTileRows);
  const uint64_t tilesPerRow = CeilDiv(config.width, kHalfTilePixels) / kHalvesPerTile;
  const auto [first, end] = ClampBand(band, tileRows);
  if (first >= end || tilesPerRow == 0) return false;
  PrepareTables(context, config);
  uint64_t low = UINT64_MAX;
  uint64_t high = 0;
  for (uint64_t tr = first; tr < end; ++tr) {
    const TileRowAddresses row = RowAddresses(context->addressTables, tr);
    for (uint64_t tc = 0; tc < tilesPerRow; ++tc) {
      for (uint64_t half = 0; half < kHalvesPerTile; ++half) {
        if (MetaOffsetAt(row, kHalvesPerTile * tc + half) >= metaBytes) return false;
      }
      const uint64_t slot = SlotAt(row, tc);
      if (slot >= UINT64_MAX / kSlotBytes) return false;
      low = std::min(low, slot * kSlotBytes);
      high = std::max(high, slot * kSlotBytes + kSlotBytes);
    }
  }
  const PlaneSource data = MakePlaneSource(config.yDataPlane, config.compressedEnd);
  window->dataFirst = std::min(low, data.available);
  window->dataEnd = std::min(high, data.available);
  window->metaBytes = metaBytes;
  window->data = nullptr;
  return true;
}

uint64_t DecodeZpakFrameRgb565BandFromWindow(ZpakContext* context, const ZpakConfig* config,
                                             const TileRowBand& band, const BandWindow& window) {
  return DecodeRgb565Band(context, config, band, &ActiveTileDecodeKernels(), &window);
}

uint64_t DecodeZpakFrameRgb565WithKernels(ZpakContext* context, const ZpakConfig* config,
                                          const TileDecodeKernels* kernels) {
  return DecodeZpakFrameRgb565BandWithKernels(context, config, TileRowBand{kWholeFrame, 0, 0},
                                              kernels);
}

uint64_t DecodeZpakFrameRgb565(ZpakContext* context, const ZpakConfig* config) {
  return DecodeZpakFrameRgb565WithKernels(context, config, &ActiveTileDecodeKernels());
}

uint64_t DecodeZpakFrameRgb565Band(ZpakContext* context, const ZpakConfig* config,
                                   const TileRowBand& band) {
  return DecodeZpakFrameRgb565BandWithKernels(context, config, band, &ActiveTileDecodeKernels());
}

uint64_t ZpakRgb565TileRows(const ZpakConfig& config) { return CeilDiv(config.height, kTileRows); }

}  // namespace pelcast
