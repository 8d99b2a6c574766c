#include "decoder/frame_decoder.h"

#include <algorithm>

#include "decoder/frame_walk.h"
#include "decoder/micro_block.h"
#include "decoder/tile_decoder.h"
#include "decoder/tile_kernels.h"
#include "surface/surface_grid.h"
#include "surface/tile_addressing.h"
#include "surface/tile_format.h"

namespace pelcast {
namespace {

// Geometry of one plane walk: the tile in the data plane and in the tile
// decoder's output, in the units of the plane width (pixels for RGBA8888,
// bytes for NV12).
struct PlaneWalk {
  uint64_t tileWidth;     // pixels or bytes a tile spans across the plane
  uint64_t tileHeight;    // rows
  uint64_t tileRowBytes;  // bytes of one decoded tile row
  uint64_t elementBytes;  // element size of an uncompressed tile
};

constexpr PlaneWalk kRgbaWalk{16, 4, 64, 4};
constexpr PlaneWalk kLumaWalk{32, 8, 32, 1};
constexpr PlaneWalk kChromaWalk{32, 8, 32, 2};

// Tiles (macro tiles of a walk by macro tiles) a walk asks the cache for
// ahead of decoding them.
constexpr uint64_t kPrefetchTiles = 8;
constexpr uint64_t kPrefetchMacroTiles = 2;

// Builds (or reuses) the slot and metadata tables of the surface.
void PrepareTables(ZpakContext* context, const ZpakConfig& config, PlaneFormat format) {
  const TileGridLayout layout =
      SurfaceGridLayout(format, config.alignedWidth, config.alignedHeight, config);
  // Tables that cannot be built read as all zeros, like an unwritten table.
  PrepareTileAddressTables(&context->addressTables, layout);
}

// Copies tile (row, column)'s stored bytes into the context's compressed tile
// buffer and expands them into its decoded tile buffer.
void FetchAndExpandTile(ZpakContext* context, const ZpakConfig& config, const PlaneSource& data,
                        const PlaneSource& meta, const PlaneWalk& walk, uint64_t row,
                        uint64_t column) {
  const TileAddressTables& tables = context->addressTables;
  const uint64_t slot = TileSlot(tables, row, column);
  const uint32_t metadataByte = FetchMetadataByte(meta, TileMetaOffset(tables, row, column));
  FetchPlaneBytes(data, TileByteOffset(slot, metadataByte, config), kSlotBytes,
                  context->compressedTileBuffer);
  if (config.altAddressing == 0) {
    DecodeTile(context, context->compressedTileBuffer, metadataByte, context->decodedTileBuffer);
  } else {
    // Stored uncompressed, already in micro-block order.
    ReorderMicroBlocks(context->compressedTileBuffer, context->decodedTileBuffer, walk.elementBytes,
                       walk.tileRowBytes / walk.elementBytes, walk.tileHeight,
                       MicroBlockDirection::kToRaster);
  }
}

// RGBA8888: whole tiles, never clipped, at the larger of the stride and four
// times the tile count (the stride in every real surface). Only the tile rows
// of `band` are decoded; the output holds just their rows.
uint64_t DecodeRgba8888Frame(ZpakContext* context, const ZpakConfig& config,
                             const TileDecodeKernels* kernels, const TileRowBand& band,
                             const BandWindow* window) {
  const uint64_t tilesPerRow = CeilDiv(config.width, kRgbaWalk.tileWidth);
  const uint64_t tileRows = CeilDiv(config.height, kRgbaWalk.tileHeight);
  const uint64_t pitch = std::max<uint64_t>(config.stride, 4 * tilesPerRow);
  const BandRows rows = ClampBand(band, tileRows);
  if (rows.first >= rows.end) return pitch;
  PrepareTables(context, config, PlaneFormat::kRgba8888);
  PlaneSource data = MakePlaneSource(config.yDataPlane, config.compressedEnd);
  PlaneSource meta = MakePlaneSource(config.yMetaPlane, config.compressedEnd);
  if (window != nullptr) ApplyWindow(*window, &data, &meta);
  const uint64_t origin = kRgbaWalk.tileHeight * rows.first;  // first linear row of the output
  TileKind kind;
  if (UsesTileKernel(*context, config, kernels, &kind) && kind == TileKind::kRgba8888) {
    PaddedTile padded{};
    const bool streaming = StreamsOutput((rows.end - rows.first) * kRgbaWalk.tileHeight * pitch,
                                         config.linearY, pitch);
    // Macro tile by macro tile: the 16 tiles of a macro tile fill 4 KB of
    // consecutive slots, which are then fetched together instead of a
    // quarter at a time on four passes over the macro row.
    for (uint64_t macroRow = rows.first; macroRow < rows.end; macroRow += kTilesPerMacroSide) {
      const uint64_t rowEnd = std::min(macroRow + kTilesPerMacroSide, rows.end);
      TileRowAddresses addresses[kTilesPerMacroSide];
      for (uint64_t tr = macroRow; tr < rowEnd; ++tr) {
        addresses[tr - macroRow] = RowAddresses(context->addressTables, tr);
      }
      for (uint64_t macroColumn = 0; macroColumn < tilesPerRow; macroColumn += kTilesPerMacroSide) {
        const uint64_t columnEnd = std::min(macroColumn + kTilesPerMacroSide, tilesPerRow);
        for (uint64_t tr = macroRow; tr < rowEnd; ++tr) {
          uint8_t* outRow = config.linearY + (kRgbaWalk.tileHeight * tr - origin) * pitch;
          for (uint64_t tc = macroColumn; tc < columnEnd; ++tc) {
            // The same tile of a macro tile ahead.
            PrefetchAhead(addresses[tr - macroRow], config, data, meta,
                          tc + kPrefetchMacroTiles * kTilesPerMacroSide,
                          tc + 2 * kPrefetchMacroTiles * kTilesPerMacroSide);
            if (!streaming && tc + kPrefetchMacroTiles * kTilesPerMacroSide < tilesPerRow) {
              PrefetchRows(
                  outRow + kRgbaWalk.tileRowBytes * (tc + kPrefetchMacroTiles * kTilesPerMacroSide),
                  pitch, kRgbaWalk.tileHeight, kRgbaWalk.tileRowBytes);
            }
            const TileLocation at = LocateTile(addresses[tr - macroRow], config, meta, tc);
            ExpandStoredTile(*kernels, kind, at, data, &padded,
                             outRow + kRgbaWalk.tileRowBytes * tc, pitch, streaming);
          }
        }
      }
    }
    if (streaming) kernels->finishStreaming();
    if (tilesPerRow != 0 && rows.end == tileRows) {
      FetchAndExpandTile(context, config, data, meta, kRgbaWalk, tileRows - 1, tilesPerRow - 1);
    }
    return pitch;
  }
  for (uint64_t tr = rows.first; tr < rows.end; ++tr) {
    for (uint64_t tc = 0; tc < tilesPerRow; ++tc) {
      FetchAndExpandTile(context, config, data, meta, kRgbaWalk, tr, tc);
      const TilePlacement at{kRgbaWalk.tileHeight * tr - origin, kRgbaWalk.tileRowBytes * tc,
                             kRgbaWalk.tileHeight, kRgbaWalk.tileRowBytes};
      StoreClippedTile(context->decodedTileBuffer, at, config.linearY, pitch, UINT64_MAX,
                       UINT64_MAX);
    }
  }
  return pitch;
}

// One NV12 plane: tiles clipped byte by byte to `columnLimit` bytes and
// `rowLimit` rows of a plane of `pitch` bytes per row.
struct Nv12PlaneWalk {
  PlaneSource data;
  PlaneSource meta;
  uint64_t planeIndex;
  const PlaneWalk* walk;
  uint64_t tileRows;
  uint64_t tilesPerRow;
  uint8_t* output;
  uint64_t pitch;
  uint64_t rowLimit;
  uint64_t columnLimit;
  BandRows band;    // tile rows decoded
  uint64_t origin;  // plane row that lands on the output's first row
};

// Tiles inside the plane are expanded in place; the ones the right or
// bottom edge cuts go through a tile buffer and the clipped copy.
void DecodeNv12PlaneWithKernel(ZpakContext* context, const ZpakConfig& config,
                               const Nv12PlaneWalk& plane, const TileDecodeKernels& kernels,
                               TileKind kind) {
  const PlaneWalk& walk = *plane.walk;
  PaddedTile padded{};
  alignas(32) uint8_t tile[kSlotBytes];
  const uint64_t rowLimit = plane.rowLimit - plane.origin;  // in output rows
  const bool streaming =
      StreamsOutput((plane.band.end - plane.band.first) * walk.tileHeight * plane.pitch,
                    plane.output, plane.pitch);
  for (uint64_t tr = plane.band.first; tr < plane.band.end; ++tr) {
    const uint64_t row = walk.tileHeight * tr - plane.origin;
    const bool wholeRows = row + walk.tileHeight <= rowLimit;
    const TileRowAddresses addresses = RowAddresses(context->addressTables, tr);
    for (uint64_t tc = 0; tc < plane.tilesPerRow; ++tc) {
      PrefetchAhead(addresses, config, plane.data, plane.meta, tc + kPrefetchTiles,
                    tc + 2 * kPrefetchTiles);
      if (!streaming && wholeRows &&
          walk.tileRowBytes * (tc + kPrefetchTiles + 1) <= plane.columnLimit) {
        PrefetchRows(plane.output + row * plane.pitch + walk.tileRowBytes * (tc + kPrefetchTiles),
                     plane.pitch, walk.tileHeight, walk.tileRowBytes);
      }
      const TileLocation at = LocateTile(addresses, config, plane.meta, tc);
      const uint64_t column = walk.tileRowBytes * tc;
      if (wholeRows && column + walk.tileRowBytes <= plane.columnLimit) {
        ExpandStoredTile(kernels, kind, at, plane.data, &padded,
                         plane.output + row * plane.pitch + column, plane.pitch, streaming);
        continue;
      }
      ExpandStoredTile(kernels, kind, at, plane.data, &padded, tile, walk.tileRowBytes);
      const TilePlacement place{row, column, walk.tileHeight, walk.tileRowBytes};
      StoreClippedTile(tile, place, plane.output, plane.pitch, rowLimit, plane.columnLimit);
    }
  }
  if (streaming) kernels.finishStreaming();
  // The context's tile buffers end as the general decoder leaves them.
  if (plane.band.end == plane.tileRows) {
    FetchAndExpandTile(context, config, plane.data, plane.meta, walk, plane.tileRows - 1,
                       plane.tilesPerRow - 1);
  }
}

void DecodeNv12Plane(ZpakContext* context, const ZpakConfig& config, const Nv12PlaneWalk& plane,
                     const TileDecodeKernels* kernels) {
  if (plane.band.first >= plane.band.end || plane.tilesPerRow == 0) return;
  // Tiles of a band that starts past the plane's last row store nothing.
  if (plane.origin >= plane.rowLimit) return;
  const PlaneWalk& walk = *plane.walk;
  // Every tile of the plane is decoded with the same format and plane.
  context->contextFormat = kContextNv12;
  context->planeIndex = plane.planeIndex;
  TileKind kind;
  if (UsesTileKernel(*context, config, kernels, &kind)) {
    DecodeNv12PlaneWithKernel(context, config, plane, *kernels, kind);
    return;
  }
  for (uint64_t tr = plane.band.first; tr < plane.band.end; ++tr) {
    for (uint64_t tc = 0; tc < plane.tilesPerRow; ++tc) {
      FetchAndExpandTile(context, config, plane.data, plane.meta, walk, tr, tc);
      const TilePlacement at{walk.tileHeight * tr - plane.origin, walk.tileRowBytes * tc,
                             walk.tileHeight, walk.tileRowBytes};
      StoreClippedTile(context->decodedTileBuffer, at, plane.output, plane.pitch,
                       plane.rowLimit - plane.origin, plane.columnLimit);
    }
  }
}

// NV12: luma rows packed at `width` bytes; the interleaved chroma follows
// right after width x height luma bytes, at the width rounded up to even.
// Only the band's plane and tile rows are decoded; a band of the chroma
// plane writes its rows from the output's start.
uint64_t DecodeNv12Frame(ZpakContext* context, const ZpakConfig& config,
                         const TileDecodeKernels* kernels, const TileRowBand& band,
                         const BandWindow* window) {
  const uint64_t width = config.width;
  const uint64_t height = config.height;
  const uint64_t tilesPerRow = CeilDiv(width, kLumaWalk.tileWidth);
  const uint64_t tileRows = CeilDiv(height, kLumaWalk.tileHeight);
  if (tileRows == 0) return config.stride;
  PrepareTables(context, config, PlaneFormat::kNv12);

  const PlaneSource yData = MakePlaneSource(config.yDataPlane, config.compressedEnd);
  if (band.plane == kWholeFrame || band.plane == kLumaPlane) {
    const BandRows rows =
        band.plane == kWholeFrame ? BandRows{0, tileRows} : ClampBand(band, tileRows);
    PlaneSource data = yData;
    PlaneSource meta = MakePlaneSource(config.yMetaPlane, config.compressedEnd);
    if (window != nullptr) ApplyWindow(*window, &data, &meta);
    const Nv12PlaneWalk luma{.data = data,
                             .meta = meta,
                             .planeIndex = 0,
                             .walk = &kLumaWalk,
                             .tileRows = tileRows,
                             .tilesPerRow = tilesPerRow,
                             .output = config.linearY,
                             .pitch = width,
                             .rowLimit = height,
                             .columnLimit = width,
                             .band = rows,
                             .origin = kLumaWalk.tileHeight * rows.first};
    DecodeNv12Plane(context, config, luma, kernels);
  }
  if (band.plane == kWholeFrame || band.plane == kChromaPlane) {
    // The chroma tiles reuse the luma tables: chroma tile row r is table row r.
    const uint64_t chromaPitch = 2 * ((width + 1) / 2);
    const uint64_t chromaTileRows = (tileRows + 1) / 2;
    const BandRows rows =
        band.plane == kWholeFrame ? BandRows{0, chromaTileRows} : ClampBand(band, chromaTileRows);
    uint8_t* output = band.plane == kWholeFrame ? config.linearY + width * height : config.linearY;
    PlaneSource data = OffsetPlaneSource(yData, config.uvDataOffset);
    PlaneSource meta = MakePlaneSource(config.uvMetaPlane, config.compressedEnd);
    if (window != nullptr) ApplyWindow(*window, &data, &meta);
    const Nv12PlaneWalk chroma{.data = data,
                               .meta = meta,
                               .planeIndex = 1,
                               .walk = &kChromaWalk,
                               .tileRows = chromaTileRows,
                               .tilesPerRow = tilesPerRow,
                               .output = output,
                               .pitch = chromaPitch,
                               .rowLimit = (height + 1) / 2,
                               .columnLimit = chromaPitch,
                               .band = rows,
                               .origin = kChromaWalk.tileHeight * rows.first};
    DecodeNv12Plane(context, config, chroma, kernels);
  }
  return config.stride;
}

}  // namespace

uint64_t DecodeZpakFrameBandWithKernels(ZpakContext* context, const ZpakConfig* config,
                                        const TileRowBand& band, const TileDecodeKernels* kernels) {
  if (context == nullptr || config == nullptr || config->enable == 0) return 0;
  if (config->bypass != 0) return config->stride;
  if (config->surfaceFormat == kSurfaceRgba8888) {
    if (band.plane == kChromaPlane) return config->stride;  // no such plane
    const TileRowBand whole{kLumaPlane, 0, UINT64_MAX};
    return DecodeRgba8888Frame(context, *config, kernels, band.plane == kWholeFrame ? whole : band,
                               nullptr);
  }
  if (config->surfaceFormat == kSurfaceNv12) {
    return DecodeNv12Frame(context, *config, kernels, band, nullptr);
  }
  return config->stride;
}

uint64_t DecodeZpakFrameWithKernels(ZpakContext* context, const ZpakConfig* config,
                                    const TileDecodeKernels* kernels) {
  return DecodeZpakFrameBandWithKernels(context, config, TileRowBand{kWholeFrame, 0, 0}, kernels);
}

uint64_t DecodeZpakFrame(ZpakContext* context, const ZpakConfig* config) {
  return DecodeZpakFrameWithKernels(context, config, &ActiveTileDecodeKernels());
}

uint64_t DecodeZpakFrameBand(ZpakContext* context, const ZpakConfig* config,
                             const TileRowBand& band) {
  return DecodeZpakFrameBandWithKernels(context, config, band, &ActiveTileDecodeKernels());
}

bool ZpakBandWindow(ZpakContext* context, const ZpakConfig& config, const TileRowBand& band,
                    uint64_t metaBytes, BandWindow* window) {
  const bool rgba = config.surfaceFormat == kSurfaceRgba8888;
  if (context == nullptr || (!rgba && config.surfaceFormat != kSurfaceNv12)) return false;
  if (band.plane != kLumaPlane && (rgba || band.plane != kChromaPlane)) return false;
  const PlaneWalk& walk = rgba ? kRgbaWalk : kLumaWalk;
  const uint64_t tilesPerRow = CeilDiv(config.width, walk.tileWidth);
  const uint64_t lumaRows = CeilDiv(config.height, walk.tileHeight);
  const BandRows rows = ClampBand(band, band.plane == kChromaPlane ? (lumaRows + 1) / 2 : lumaRows);
  if (rows.first >= rows.end || tilesPerRow == 0) return false;
  PrepareTables(context, config, rgba ? PlaneFormat::kRgba8888 : PlaneFormat::kNv12);
  // A short tile may sit in the upper half of its slot.
  const uint64_t reach = kSlotBytes + (config.addressingMode == 1 ? kHalfSlotBytes : 0);
  uint64_t first = UINT64_MAX;
  uint64_t end = 0;
  for (uint64_t tr = rows.first; tr < rows.end; ++tr) {
    const TileRowAddresses row = RowAddresses(context->addressTables, tr);
    for (uint64_t tc = 0; tc < tilesPerRow; ++tc) {
      if (MetaOffsetAt(row, tc) >= metaBytes) return false;
      const uint64_t slot = SlotAt(row, tc);
      if (slot > (UINT64_MAX - reach) / kSlotBytes) return false;
      first = std::min(first, slot * kSlotBytes);
      end = std::max(end, slot * kSlotBytes + reach);
    }
  }
  PlaneSource data = MakePlaneSource(config.yDataPlane, config.compressedEnd);
  if (band.plane == kChromaPlane) data = OffsetPlaneSource(data, config.uvDataOffset);
  window->dataFirst = std::min(first, data.available);
  window->dataEnd = std::min(end, data.available);
  window->metaBytes = metaBytes;
  window->data = nullptr;
  return true;
}

uint64_t DecodeZpakFrameBandFromWindow(ZpakContext* context, const ZpakConfig* config,
                                       const TileRowBand& band, const BandWindow& window) {
  if (context == nullptr || config == nullptr || config->enable == 0) return 0;
  if (config->bypass != 0) return config->stride;
  if (config->surfaceFormat == kSurfaceNv12 && band.plane != kWholeFrame) {
    return DecodeNv12Frame(context, *config, &ActiveTileDecodeKernels(), band, &window);
  }
  if (config->surfaceFormat != kSurfaceRgba8888 || band.plane != kLumaPlane) return config->stride;
  return DecodeRgba8888Frame(context, *config, &ActiveTileDecodeKernels(), band, &window);
}

uint64_t ZpakPlaneTileRows(const ZpakConfig& config, uint64_t plane) {
  switch (config.surfaceFormat) {
    case kSurfaceRgba8888:
      return plane == kLumaPlane ? CeilDiv(config.height, kRgbaWalk.tileHeight) : 0;
    case kSurfaceNv12: {
      const uint64_t luma = CeilDiv(config.height, kLumaWalk.tileHeight);
      return plane == kLumaPlane ? luma : plane == kChromaPlane ? (luma + 1) / 2 : 0;
    }
    default:
      return 0;
  }
}

}  // namespace pelcast
