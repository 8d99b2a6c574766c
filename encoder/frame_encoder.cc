// The frame encoder for NV12 and RGBA8888: cuts the linear frame into tiles,
// compresses each and stores it in its slot with its metadata byte, at the
// places the frame decoder reads them from.
#include "encoder/frame_encoder.h"

#include <cstring>

#include "encoder/frame_store.h"
#include "encoder/lane_kernels.h"
#include "encoder/micro_block_order.h"
#include "encoder/tile_encoder.h"
#include "encoder/tile_shape.h"
#include "encoder/tile_stream.h"
#include "surface/surface_grid.h"
#include "surface/tile_format.h"

namespace pelcast {
namespace {

// NV12 luma tile: 32 x 8 bytes; chroma tile: 16 x 8 U,V pairs; RGBA8888
// tile: 16 x 4 pixels. Each is 256 bytes.
constexpr uint64_t kLumaTileWidth = 32;
constexpr uint64_t kNv12TileHeight = 8;
constexpr uint64_t kChromaTileWidth = 16;
constexpr uint64_t kRgbaTileWidth = 16;
constexpr uint64_t kRgbaTileHeight = 4;
constexpr uint64_t kRgbaPixelBytes = 4;
constexpr uint64_t kChromaPairBytes = 2;
constexpr uint64_t kNv12RowBytes = 32;   // destination row pitch of gathered NV12 tiles
constexpr uint64_t kRgbaRowBytes = 64;   // and of RGBA8888 tiles
constexpr uint64_t kWideTileWidth = 32;  // the 2-byte-pixel gather case
constexpr uint64_t kWidePixelBytes = 2;
constexpr uint64_t kSurfaceWide = 2;

uint64_t Min(uint64_t a, uint64_t b) { return a < b ? a : b; }

// One plane's walk: where its tiles go and how they are cut.
struct PlaneWalk {
  uint8_t* dataPlane;
  uint8_t* metaPlane;
  uint64_t tilesPerRow;
  uint64_t tileRows;
  uint64_t planeIndex;     // parameter set and gather case
  uint64_t contextFormat;  // as the tile codecs see it
  uint64_t rowElements;    // elements per tile row
  uint64_t elementBytes;
  uint64_t rows;           // tile rows
  const uint8_t* source;   // luma or RGBA image
  const uint8_t* uSource;  // chroma planes
  const uint8_t* vSource;
};

// Copies `rows` rows of `rowBytes` bytes from a source with pitch `pitch`
// starting at (x bytes, y rows) into destination rows `destPitch` apart.
void CopyRows(const uint8_t* source, uint64_t pitch, uint64_t x, uint64_t y, uint64_t rowBytes,
              uint64_t rows, uint8_t* destination, uint64_t destPitch) {
  if (source == nullptr) return;
  for (uint64_t k = 0; k < rows; ++k) {
    std::memcpy(destination + k * destPitch, source + (y + k) * pitch + x, rowBytes);
  }
}

// Rows and elements of a tile at (x, y) that lie inside an image of the given
// size.
uint64_t InsideCount(uint64_t origin, uint64_t tileSpan, uint64_t imageSpan) {
  return origin < imageSpan ? Min(tileSpan, imageSpan - origin) : 0;
}

// Stores a tile of `units` units from `stored` in its slot, and its metadata
// byte.
void StoreTile(const ZpakConfig& config, const PlaneWalk& walk, uint64_t slot, uint64_t metaOffset,
               const uint8_t* stored, uint64_t units) {
  const uint32_t meta = MetadataForUnits(units);
  StoreBounded(walk.dataPlane, TileByteOffset(slot, meta, config), stored,
               Min(StoredBytesForUnits(units), kSlotBytes), config.compressedEnd);
  const uint8_t metaByte = static_cast<uint8_t>(meta);
  StoreBounded(walk.metaPlane, metaOffset, &metaByte, 1, config.compressedEnd);
}

// The tile as the original per-tile sequence handles it: gathered, put in
// micro-block order and given to the tile encoder. Used for planes whose
// parameters the fast path below does not match.
void EncodeOrderedTileAt(ZpakContext* context, const ZpakConfig& config, const PlaneWalk& walk,
                         uint64_t tr, uint64_t tc) {
  const TileAddressTables& tables = context->addressTables;
  const uint64_t slot = TileSlot(tables, tr, tc);
  uint8_t* linear = context->linearTileBuffer;
  uint8_t* ordered = context->orderedTileBuffer;
  std::memset(linear, 0, kTileScratchBytes);
  GatherLinearTile(walk.source, walk.uSource, walk.vSource, tc, tr, linear, config.width,
                   config.height, config.surfaceFormat, walk.planeIndex);
  std::memset(ordered, 0, kTileScratchBytes);
  OrderTile(linear, ordered, walk.rowElements, walk.rows, walk.elementBytes);
  if (config.altAddressing != 0) {
    StoreBounded(walk.dataPlane, kSlotBytes * slot, ordered, kSlotBytes, config.compressedEnd);
    return;
  }
  std::memset(linear, 0, kTileScratchBytes);
  context->contextFormat = walk.contextFormat;
  context->planeIndex = walk.planeIndex;
  uint64_t units = 0;
  EncodeZpakTile(context, ordered, linear, &units);
  StoreTile(config, walk, slot, TileMetaOffset(tables, tr, tc), linear, units);
}

// A tile cut out of the linear image: its component planes, and for the raw
// form its rows of whole elements (luma and RGBA8888; chroma interleaves its
// two planes).
struct CutTile {
  alignas(16) uint8_t gathered[kSlotBytes];  // tiles that leave the image, zero-padded
  alignas(16) uint8_t chromaV[kSlotBytes];
  alignas(16) uint8_t planes[kMaxComponents][kBlockSamples];
  TileComponents components;
  const uint8_t* rows;
  size_t rowPitch;
};

// Rows of a tile of `tileWidth` x `tileHeight` elements at element (x, y) of
// a plane `pitch` bytes to a row: in place when the tile lies wholly inside
// the image, else gathered (zero where it leaves the image).
void CutLumaOrRgba(const ZpakConfig& config, const PlaneWalk& walk, uint64_t tr, uint64_t tc,
                   CutTile* cut) {
  const uint64_t tileWidth = walk.rowElements;
  const uint64_t x = tileWidth * tc;
  const uint64_t y = walk.rows * tr;
  const uint64_t pitch = walk.elementBytes * config.width;
  if (walk.source != nullptr && x + tileWidth <= config.width && y + walk.rows <= config.height) {
    cut->rows = walk.source + y * pitch + walk.elementBytes * x;
    cut->rowPitch = pitch;
  } else {
    GatherLinearTile(walk.source, nullptr, nullptr, tc, tr, cut->gathered, config.width,
                     config.height, config.surfaceFormat, walk.planeIndex);
    cut->rows = cut->gathered;
    cut->rowPitch = walk.elementBytes * tileWidth;
  }
}

void CutChroma(const ZpakConfig& config, const PlaneWalk& walk, uint64_t tr, uint64_t tc,
               CutTile* cut) {
  const uint64_t chromaWidth = config.width / 2;
  const uint64_t x = kChromaTileWidth * tc;
  const uint64_t y = kNv12TileHeight * tr;
  TileComponents& comps = cut->components;
  if (walk.uSource != nullptr && walk.vSource != nullptr && x + kChromaTileWidth <= chromaWidth &&
      y + kNv12TileHeight <= config.height / 2) {
    comps.plane[0] = walk.uSource + y * chromaWidth + x;
    comps.plane[1] = walk.vSource + y * chromaWidth + x;
    comps.pitch = chromaWidth;
    return;
  }
  std::memset(cut->gathered, 0, kSlotBytes);
  std::memset(cut->chromaV, 0, kSlotBytes);
  if (walk.uSource != nullptr && walk.vSource != nullptr) {
    const uint64_t pairs = InsideCount(x, kChromaTileWidth, chromaWidth);
    const uint64_t rows = InsideCount(y, kNv12TileHeight, config.height / 2);
    CopyRows(walk.uSource, chromaWidth, x, y, pairs, rows, cut->gathered, kChromaTileWidth);
    CopyRows(walk.vSource, chromaWidth, x, y, pairs, rows, cut->chromaV, kChromaTileWidth);
  }
  comps.plane[0] = cut->gathered;
  comps.plane[1] = cut->chromaV;
  comps.pitch = kChromaTileWidth;
}

void CutTileAt(const LaneKernels& kernels, const ZpakConfig& config, const PlaneWalk& walk,
               uint64_t tr, uint64_t tc, CutTile* cut) {
  if (walk.planeIndex == 1) {
    CutChroma(config, walk, tr, tc, cut);
    return;
  }
  CutLumaOrRgba(config, walk, tr, tc, cut);
  TileComponents& comps = cut->components;
  if (walk.elementBytes == 1) {
    comps.plane[0] = cut->rows;
    comps.pitch = cut->rowPitch;
    return;
  }
  kernels.splitQuads(cut->rows, cut->rowPitch, cut->planes[0]);
  for (uint32_t c = 0; c < kMaxComponents; ++c) comps.plane[c] = cut->planes[c];
  comps.pitch = kBlockWidth;
}

// The tile in micro-block order, as a raw tile stores it.
void OrderCutTile(const PlaneWalk& walk, const CutTile& cut, uint8_t* ordered) {
  const uint32_t width = static_cast<uint32_t>(walk.rowElements);
  const uint32_t rows = static_cast<uint32_t>(walk.rows);
  if (walk.planeIndex == 1) {
    OrderPlanePairs(cut.components.plane[0], cut.components.plane[1], cut.components.pitch, width,
                    rows, ordered);
  } else {
    OrderElements(cut.rows, cut.rowPitch, width, rows, static_cast<uint32_t>(walk.elementBytes),
                  ordered);
  }
}

void EncodeTileAt(ZpakContext* context, const ZpakConfig& config, const PlaneWalk& walk,
                  const TileShape& shape, uint64_t tr, uint64_t tc) {
  const LaneKernels& kernels = ActiveLaneKernels();
  const TileAddressTables& tables = context->addressTables;
  const uint64_t slot = TileSlot(tables, tr, tc);
  CutTile cut;
  CutTileAt(kernels, config, walk, tr, tc, &cut);
  uint8_t* output = context->linearTileBuffer;
  if (config.altAddressing != 0) {
    OrderCutTile(walk, cut, output);
    StoreBounded(walk.dataPlane, kSlotBytes * slot, output, kSlotBytes, config.compressedEnd);
    return;
  }
  uint64_t bits = 0;
  uint64_t units =
      EncodeTileStream(shape, kernels, cut.components, output, kTileScratchBytes, &bits);
  if (units == 0) {
    OrderCutTile(walk, cut, output);
    units = RawTileUnits(shape);
  }
  StoreTile(config, walk, slot, TileMetaOffset(tables, tr, tc), output, units);
}

// Tiles ahead of the walk whose bytes are asked for before they are cut.
constexpr uint64_t kPrefetchTiles = 8;

// Asks for what the tile at (tr, tc) will read and write, for a tile some
// way ahead of the walk: its rows in the linear image, its slot and its
// metadata byte. A frame larger than the cache otherwise waits on every
// tile's rows and on every slot and metadata line it writes, which the
// processor's own prefetchers, following rows rather than slots, do not
// foresee. Inlined always, as a function of prefetches alone would be
// dropped.
[[gnu::always_inline]] inline void PrefetchTile(const TileRowAddresses& row,
                                                const ZpakConfig& config, const PlaneWalk& walk,
                                                uint64_t tr, uint64_t tc) {
  if (tc >= walk.tilesPerRow) return;
  PrefetchBounded<true>(walk.dataPlane, kSlotBytes * SlotAt(row, tc), kSlotBytes,
                        config.compressedEnd);
  PrefetchBounded<true>(walk.metaPlane, MetaOffsetAt(row, tc), 1, config.compressedEnd);
  // Rows are asked for a cache line at a time: only by the tile whose row
  // starts a line.
  constexpr uint64_t kLineBytes = 64;
  const uint64_t y = walk.rows * tr;
  if (walk.planeIndex == 1) {
    const uint64_t chromaWidth = config.width / 2;
    const uint64_t x = kChromaTileWidth * tc;
    if (x % kLineBytes != 0) return;
    if (x + kChromaTileWidth > chromaWidth || y + walk.rows > config.height / 2) return;
    for (uint64_t k = 0; k < walk.rows; ++k) {
      const uint64_t at = (y + k) * chromaWidth + x;
      PrefetchBounded<false>(walk.uSource, at, kChromaTileWidth, nullptr);
      PrefetchBounded<false>(walk.vSource, at, kChromaTileWidth, nullptr);
    }
    return;
  }
  const uint64_t x = walk.rowElements * tc;
  if ((walk.elementBytes * x) % kLineBytes != 0) return;
  if (x + walk.rowElements > config.width || y + walk.rows > config.height) return;
  const uint64_t pitch = walk.elementBytes * config.width;
  for (uint64_t k = 0; k < walk.rows; ++k) {
    PrefetchBounded<false>(walk.source, (y + k) * pitch + walk.elementBytes * x,
                           walk.elementBytes * walk.rowElements, nullptr);
  }
}

// Whether the plane's parameters are the ones the walk cuts its tiles for, so
// that tiles can go to the tile encoder's core without the micro-block
// round trip.
bool WalkMatchesShape(const ZpakContext& context, const PlaneWalk& walk, TileShape* shape) {
  const PlaneCodecParams& p = context.planes[walk.planeIndex != 0 ? 1 : 0];
  MakeTileShape(p, shape);
  const uint64_t components = walk.planeIndex == 1 ? 2 : walk.elementBytes;
  return shape->supported && !shape->rgb565 && shape->tileWidth == walk.rowElements &&
         shape->tileHeight == walk.rows && shape->elementBytes == walk.elementBytes &&
         shape->components == components;
}

// Encodes tile rows [rows.first, rows.end) of the plane.
void WalkPlane(ZpakContext* context, const ZpakConfig& config, const PlaneWalk& walk,
               BandRows rows) {
  rows.end = Min(rows.end, walk.tileRows);
  if (rows.first >= rows.end || walk.tilesPerRow == 0) return;
  TileShape shape;
  if (!WalkMatchesShape(*context, walk, &shape)) {
    for (uint64_t tr = rows.first; tr < rows.end; ++tr) {
      for (uint64_t tc = 0; tc < walk.tilesPerRow; ++tc) {
        EncodeOrderedTileAt(context, config, walk, tr, tc);
      }
    }
    return;
  }
  if (config.altAddressing == 0) {
    // As the tile encoder would have left them after the plane's tiles.
    context->contextFormat = walk.contextFormat;
    context->planeIndex = walk.planeIndex;
  }
  for (uint64_t tr = rows.first; tr < rows.end; ++tr) {
    const TileRowAddresses row = RowAddresses(context->addressTables, tr);
    for (uint64_t tc = 0; tc < walk.tilesPerRow; ++tc) {
      PrefetchTile(row, config, walk, tr, tc + kPrefetchTiles);
      EncodeTileAt(context, config, walk, shape, tr, tc);
    }
  }
}

TileGridLayout Nv12Layout(const ZpakConfig& config) {
  // Built from width and height, not the aligned fields.
  return SurfaceGridLayout(PlaneFormat::kNv12, config.width, config.height, config);
}

TileGridLayout RgbaLayout(const ZpakConfig& config) {
  return SurfaceGridLayout(PlaneFormat::kRgba8888, config.alignedWidth, config.alignedHeight,
                           config);
}

void EncodeNv12(ZpakContext* context, const ZpakConfig& config, const TileRowBand& band) {
  PrepareTileAddressTables(&context->addressTables, Nv12Layout(config));
  const uint64_t tilesPerRow = CeilDiv(config.width, kLumaTileWidth);
  const uint64_t lumaRows = CeilDiv(config.height, kNv12TileHeight);
  if (lumaRows == 0) return;
  const PlaneWalk luma{config.yDataPlane,
                       config.yMetaPlane,
                       tilesPerRow,
                       lumaRows,
                       0,
                       kContextNv12,
                       kLumaTileWidth,
                       1,
                       kNv12TileHeight,
                       config.linearY,
                       nullptr,
                       nullptr};
  WalkPlane(context, config, luma, RowsOfPlane(band, kLumaPlane, luma.tileRows));
  // The V plane follows the U plane at (width x height) / 4, as the command lays them out.
  const uint8_t* vPlane =
      config.linearUv != nullptr ? config.linearUv + (config.width * config.height) / 4 : nullptr;
  const PlaneWalk chroma{config.uvDataPlane,
                         config.uvMetaPlane,
                         tilesPerRow,
                         (lumaRows + 1) / 2,
                         1,
                         kContextNv12,
                         kChromaTileWidth,
                         kChromaPairBytes,
                         kNv12TileHeight,
                         nullptr,
                         config.linearUv,
                         vPlane};
  WalkPlane(context, config, chroma, RowsOfPlane(band, kChromaPlane, chroma.tileRows));
}

void EncodeRgba(ZpakContext* context, const ZpakConfig& config, const TileRowBand& band) {
  PrepareTileAddressTables(&context->addressTables, RgbaLayout(config));
  const PlaneWalk plane{config.yDataPlane,
                        config.yMetaPlane,
                        CeilDiv(config.width, kRgbaTileWidth),
                        CeilDiv(config.height, kRgbaTileHeight),
                        0,
                        kContextRgba8888,
                        kRgbaTileWidth,
                        kRgbaPixelBytes,
                        kRgbaTileHeight,
                        config.linearY,
                        nullptr,
                        nullptr};
  WalkPlane(context, config, plane, RowsOfPlane(band, kLumaPlane, plane.tileRows));
}

void GatherChroma(const uint8_t* uSource, const uint8_t* vSource, uint64_t tc, uint64_t tr,
                  uint8_t* destination, uint64_t width, uint64_t height) {
  if (uSource == nullptr || vSource == nullptr) return;
  const uint64_t chromaWidth = width / 2;
  const uint64_t x = kChromaTileWidth * tc;
  const uint64_t y = kNv12TileHeight * tr;
  const uint64_t pairs = InsideCount(x, kChromaTileWidth, chromaWidth);
  const uint64_t rows = InsideCount(y, kNv12TileHeight, height / 2);
  for (uint64_t k = 0; k < rows; ++k) {
    const uint8_t* u = uSource + (y + k) * chromaWidth + x;
    const uint8_t* v = vSource + (y + k) * chromaWidth + x;
    uint8_t* out = destination + k * kNv12RowBytes;
    for (uint64_t j = 0; j < pairs; ++j) {
      out[kChromaPairBytes * j] = u[j];
      out[kChromaPairBytes * j + 1] = v[j];
    }
  }
}

}  // namespace

bool PrepareZpakFrameTables(ZpakContext* context, const ZpakConfig* config) {
  if (context == nullptr || config == nullptr) return false;
  if (config->surfaceFormat == kSurfaceNv12) {
    return PrepareTileAddressTables(&context->addressTables, Nv12Layout(*config));
  }
  if (config->surfaceFormat == kSurfaceRgba8888) {
    return PrepareTileAddressTables(&context->addressTables, RgbaLayout(*config));
  }
  return true;
}

uint64_t EncodeZpakFrame(ZpakContext* context, const ZpakConfig* config) {
  return EncodeZpakFrameBand(context, config, TileRowBand{kWholeFrame, 0, 0});
}

uint64_t EncodeZpakFrameBand(ZpakContext* context, const ZpakConfig* config,
                             const TileRowBand& band) {
  if (context == nullptr || config == nullptr) return 0;
  if (config->surfaceFormat == kSurfaceNv12) EncodeNv12(context, *config, band);
  if (config->bypass != 0 || config->surfaceFormat != kSurfaceRgba8888) return 0;
  EncodeRgba(context, *config, band);
  return 0;
}

void GatherLinearTile(const uint8_t* source, const uint8_t* uSource, const uint8_t* vSource,
                      uint64_t tileColumn, uint64_t tileRow, uint8_t* destination, uint64_t width,
                      uint64_t height, uint64_t surfaceFormat, uint64_t planeIndex) {
  if (destination == nullptr) return;
  std::memset(destination, 0, kSlotBytes);
  if (surfaceFormat == kSurfaceNv12 && planeIndex == 1) {
    GatherChroma(uSource, vSource, tileColumn, tileRow, destination, width, height);
    return;
  }
  uint64_t tileWidth = 0;
  uint64_t tileHeight = 0;
  uint64_t pixelBytes = 0;
  uint64_t destPitch = kRgbaRowBytes;
  if (surfaceFormat == kSurfaceNv12 && planeIndex == 0) {
    tileWidth = kLumaTileWidth;
    tileHeight = kNv12TileHeight;
    pixelBytes = 1;
    destPitch = kNv12RowBytes;
  } else if (surfaceFormat == kSurfaceRgba8888) {
    tileWidth = kRgbaTileWidth;
    tileHeight = kRgbaTileHeight;
    pixelBytes = kRgbaPixelBytes;
  } else if (surfaceFormat == kSurfaceWide) {
    tileWidth = kWideTileWidth;
    tileHeight = kRgbaTileHeight;
    pixelBytes = kWidePixelBytes;
  } else {
    return;
  }
  const uint64_t x = tileWidth * tileColumn;
  const uint64_t y = tileHeight * tileRow;
  const uint64_t columns = InsideCount(x, tileWidth, width);
  const uint64_t rows = InsideCount(y, tileHeight, height);
  if (columns == 0) return;
  CopyRows(source, pixelBytes * width, pixelBytes * x, y, pixelBytes * columns, rows, destination,
           destPitch);
}

}  // namespace pelcast
