// The RGB565 frame encoder, the mirror of the RGB565 frame decoder: a slot
// holds a tile of 32 x 4 pixels as two independently coded half tiles of
// 16 x 4 pixels, the left half in bytes 0-127 and the right half in bytes
// 128-255, whatever their length (there is no upper-half placement rule).
// Each half has its own metadata byte, in metadata columns 2c and 2c + 1.
#include <cstring>

#include "encoder/frame_encoder.h"
#include "encoder/frame_store.h"
#include "encoder/lane_kernels.h"
#include "encoder/lane_math.h"
#include "encoder/micro_block_order.h"
#include "encoder/tile_encoder.h"
#include "encoder/tile_shape.h"
#include "encoder/tile_stream.h"
#include "surface/surface_grid.h"
#include "surface/tile_format.h"

namespace pelcast {
namespace {

constexpr uint64_t kHalfWidth = 16;  // pixels of a half tile row
constexpr uint64_t kTileHeight = 4;
constexpr uint64_t kPixelBytes = 2;
constexpr uint64_t kHalfRowBytes = kHalfWidth * kPixelBytes;  // 32
constexpr uint64_t kHalfBytes = kHalfRowBytes * kTileHeight;  // 128
constexpr uint64_t kHalvesPerTile = 2;
constexpr uint64_t kTileRowBytes = kHalvesPerTile * kHalfRowBytes;  // 64
// Alternative addressing stores only the 64 bytes the decoder reads back: a
// 16-byte-wide layout of the half tile's first 64 bytes, reordered by 2 x 2
// and 4-byte steps.
constexpr uint64_t kAltBytes = 64;
constexpr uint64_t kAltRowBytes = 16;

TileGridLayout Rgb565Layout(const ZpakConfig& config) {
  return SurfaceGridLayout(PlaneFormat::kRgb565, config.alignedWidth, config.alignedHeight, config);
}

// Cuts half tile h of tile (tr, tc) out of the linear image, row pitch
// 2 x width bytes, taking exactly the bytes the decoder would write back.
void GatherHalf(const ZpakConfig& config, uint64_t tr, uint64_t tc, uint64_t h, uint8_t* out) {
  std::memset(out, 0, kHalfBytes);
  if (config.linearY == nullptr) return;
  const uint64_t pitch = kPixelBytes * config.width;
  const uint64_t x = kTileRowBytes * tc + kHalfRowBytes * h;
  if (x >= pitch) return;
  const uint64_t bytes = pitch - x < kHalfRowBytes ? pitch - x : kHalfRowBytes;
  for (uint64_t k = 0; k < kTileHeight; ++k) {
    const uint64_t y = kTileHeight * tr + k;
    if (y >= config.height) break;
    std::memcpy(out + k * kHalfRowBytes, config.linearY + y * pitch + x, bytes);
  }
}

// The inverse of the decoder's reorder under alternative addressing.
void OrderAltHalf(const uint8_t* raster, uint8_t* stored) {
  for (uint64_t r = 0; r < kAltBytes / kAltRowBytes; ++r) {
    for (uint64_t c = 0; c < kAltRowBytes; ++c) {
      const uint64_t at =
          (c % 2) + 2 * (r % 2) + 4 * ((c / 2) % 2) + 8 * ((r / 2) % 2) + 16 * (c / 4);
      stored[at] = raster[r * kAltRowBytes + c];
    }
  }
}

// Stores a half tile of `units` units from `stored` in its slot half, and its
// metadata byte.
void StoreHalf(const ZpakConfig& config, const TileAddressTables& tables, uint64_t tr, uint64_t tc,
               uint64_t h, uint64_t slotOffset, const uint8_t* stored, uint64_t units) {
  const uint32_t meta = MetadataForUnits(units);
  const uint64_t bytes = StoredBytesForUnits(units);
  StoreBounded(config.yDataPlane, slotOffset, stored, bytes < kHalfBytes ? bytes : kHalfBytes,
               config.compressedEnd);
  const uint8_t metaByte = static_cast<uint8_t>(meta);
  StoreBounded(config.yMetaPlane, TileMetaOffset(tables, tr, kHalvesPerTile * tc + h), &metaByte, 1,
               config.compressedEnd);
}

// The original per-tile sequence, for alternative addressing and for
// parameters the fast path does not match.
void EncodeOrderedHalf(ZpakContext* context, const ZpakConfig& config, uint64_t tr, uint64_t tc,
                       uint64_t h) {
  const TileAddressTables& tables = context->addressTables;
  const uint64_t slotOffset = kSlotBytes * TileSlot(tables, tr, tc) + kHalfBytes * h;
  uint8_t* raster = context->linearTileBuffer;
  uint8_t* ordered = context->orderedTileBuffer;
  GatherHalf(config, tr, tc, h, raster);
  std::memset(ordered, 0, kTileScratchBytes);
  if (config.altAddressing != 0) {
    OrderAltHalf(raster, ordered);
    StoreBounded(config.yDataPlane, slotOffset, ordered, kAltBytes, config.compressedEnd);
    return;
  }
  OrderTile(raster, ordered, kHalfWidth, kTileHeight, kPixelBytes);
  std::memset(raster, 0, kTileScratchBytes);
  context->contextFormat = kContextRgb565;
  context->planeIndex = 0;
  uint64_t units = 0;
  EncodeZpakTile(context, ordered, raster, &units);
  StoreHalf(config, tables, tr, tc, h, slotOffset, raster, units);
}

// Half tile h of tile (tr, tc) straight from the image when it lies wholly
// inside it, through the tile encoder's core.
void EncodeHalf(ZpakContext* context, const ZpakConfig& config, const TileShape& shape, uint64_t tr,
                uint64_t tc, uint64_t h) {
  const LaneKernels& kernels = ActiveLaneKernels();
  const TileAddressTables& tables = context->addressTables;
  const uint64_t slotOffset = kSlotBytes * TileSlot(tables, tr, tc) + kHalfBytes * h;
  const uint64_t pitch = kPixelBytes * config.width;
  const uint64_t x = kTileRowBytes * tc + kHalfRowBytes * h;
  const uint64_t y = kTileHeight * tr;
  alignas(16) uint8_t gathered[kHalfBytes];
  const uint8_t* rows = nullptr;
  uint64_t rowPitch = kHalfRowBytes;
  if (config.linearY != nullptr && x + kHalfRowBytes <= pitch && y + kTileHeight <= config.height) {
    rows = config.linearY + y * pitch + x;
    rowPitch = pitch;
  } else {
    GatherHalf(config, tr, tc, h, gathered);
    rows = gathered;
  }
  alignas(16) uint8_t planes[kRgb565Components][kBlockSamples];
  kernels.splitRgb565(rows, rowPitch, planes[0]);
  const TileComponents components{{planes[0], planes[1], planes[2], nullptr}, kBlockWidth};
  uint8_t* output = context->linearTileBuffer;
  uint64_t bits = 0;
  uint64_t units = EncodeTileStream(shape, kernels, components, output, kTileScratchBytes, &bits);
  if (units == 0) {
    OrderElements(rows, rowPitch, kHalfWidth, kTileHeight, kPixelBytes, output);
    units = RawTileUnits(shape);
  }
  StoreHalf(config, tables, tr, tc, h, slotOffset, output, units);
}

// Tiles ahead of the walk whose bytes are asked for before they are cut.
constexpr uint64_t kPrefetchTiles = 8;

// Asks for what tile (tr, tc), some way ahead of the walk, will read and
// write: its rows, its slot and its two metadata bytes (see the NV12 and
// RGBA8888 walk).
[[gnu::always_inline]] inline void PrefetchTile(const TileRowAddresses& row,
                                                const ZpakConfig& config, uint64_t tr, uint64_t tc,
                                                uint64_t tilesPerRow) {
  if (tc >= tilesPerRow) return;
  PrefetchBounded<true>(config.yDataPlane, kSlotBytes * SlotAt(row, tc), kSlotBytes,
                        config.compressedEnd);
  PrefetchBounded<true>(config.yMetaPlane, MetaOffsetAt(row, kHalvesPerTile * tc), 2,
                        config.compressedEnd);
  const uint64_t pitch = kPixelBytes * config.width;
  const uint64_t x = kTileRowBytes * tc;
  const uint64_t y = kTileHeight * tr;
  if (x + kTileRowBytes > pitch || y + kTileHeight > config.height) return;
  for (uint64_t k = 0; k < kTileHeight; ++k) {
    PrefetchBounded<false>(config.linearY, (y + k) * pitch + x, kTileRowBytes, nullptr);
  }
}

// Whether the context's parameters are the RGB565 ones the fast path cuts
// half tiles for.
bool HalvesMatchShape(const ZpakContext& context, TileShape* shape) {
  MakeTileShape(context.planes[0], shape);
  return shape->supported && shape->rgb565 && shape->tileWidth == kHalfWidth &&
         shape->tileHeight == kTileHeight;
}

}  // namespace

bool PrepareZpakFrameTablesRgb565(ZpakContext* context, const ZpakConfig* config) {
  if (context == nullptr || config == nullptr) return false;
  return PrepareTileAddressTables(&context->addressTables, Rgb565Layout(*config));
}

uint64_t EncodeZpakFrameRgb565(ZpakContext* context, const ZpakConfig* config) {
  return EncodeZpakFrameRgb565Band(context, config, TileRowBand{kWholeFrame, 0, 0});
}

uint64_t EncodeZpakFrameRgb565Band(ZpakContext* context, const ZpakConfig* config,
                                   const TileRowBand& band) {
  if (context == nullptr || config == nullptr || config->bypass != 0) return 0;
  PrepareTileAddressTables(&context->addressTables, Rgb565Layout(*config));
  const uint64_t tileRows = CeilDiv(config->height, kTileHeight);
  const uint64_t tilesPerRow = CeilDiv(config->width, kHalfWidth) / kHalvesPerTile;
  if (tileRows == 0 || tilesPerRow == 0) return 0;
  TileShape shape;
  const bool fast = config->altAddressing == 0 && HalvesMatchShape(*context, &shape);
  if (fast) {
    // As the tile encoder would have left them.
    context->contextFormat = kContextRgb565;
    context->planeIndex = 0;
  }
  const BandRows rows = RowsOfPlane(band, kLumaPlane, tileRows);
  for (uint64_t tr = rows.first; tr < rows.end; ++tr) {
    const TileRowAddresses row = RowAddresses(context->addressTables, tr);
    for (uint64_t tc = 0; tc < tilesPerRow; ++tc) {
      if (fast) PrefetchTile(row, *config, tr, tc + kPrefetchTiles, tilesPerRow);
      for (uint64_t h = 0; h < kHalvesPerTile; ++h) {
        if (fast) {
          EncodeHalf(context, *config, shape, tr, tc, h);
        } else {
          EncodeOrderedHalf(context, *config, tr, tc, h);
        }
      }
    }
  }
  return 0;
}

}  // namespace pelcast
