#include "tools/inspect/tile_stats.h"

#include <algorithm>

#include "surface/frame_config.h"
#include "surface/surface_grid.h"
#include "surface/tile_addressing.h"
#include "surface/zpak_context.h"

namespace pelcast::inspect {
namespace {

constexpr uint32_t kFullTileUnits = 4;  // 256-byte tiles
constexpr uint32_t kHalfTileUnits = 2;  // 128-byte RGB565 half tiles
constexpr int kMetaBias = 15;           // metadata = 4n + 15 for n units
constexpr int kMetaUnitShift = 2;
constexpr uint8_t kRgb565AltRawMeta = 31;

uint64_t CeilDiv(uint64_t value, uint64_t divisor) { return (value + divisor - 1) / divisor; }

// The grid the frame decoder builds for the descriptor of the decode command,
// whose aligned plane is alignedWidth x alignedHeight (pixels, or bytes for
// NV12).
TileGridLayout LayoutOf(PlaneFormat format, uint64_t alignedWidth, uint64_t alignedHeight) {
  return SurfaceGridLayout(format, alignedWidth, alignedHeight, DecodeAddressing(format));
}

// Offset of the metadata byte of tile (row, column) within its metadata
// plane, 0 outside the metadata table's extent as for an entry the decoder's
// table build never wrote.
uint64_t MetaOffsetIn(const TileGridLayout& layout, uint64_t row, uint64_t column) {
  if (row >= layout.metaRows || column >= kMetaTileSide * layout.metaTilesPerRow) return 0;
  return MetaByteOffset(row, column, layout.metaTilesPerRow);
}

PlaneTileGrid MakeGrid(const char* name, TileKind kind, uint32_t columns, uint32_t rows,
                       uint32_t tileWidth, uint32_t tileHeight, const TileGridLayout& layout,
                       uint64_t metaPlaneStart) {
  PlaneTileGrid grid{name, kind, columns, rows, tileWidth, tileHeight, {}};
  grid.metaOffsets.resize(uint64_t{columns} * rows);
  for (uint32_t r = 0; r < rows; ++r) {
    for (uint32_t c = 0; c < columns; ++c) {
      grid.metaOffsets[uint64_t{r} * columns + c] = metaPlaneStart + MetaOffsetIn(layout, r, c);
    }
  }
  return grid;
}

uint32_t Narrow(uint64_t value) { return static_cast<uint32_t>(value); }

// Command U: luma tiles of 32 x 8 bytes over the real image, chroma tiles of
// 16 pairs x 8 rows (32 x 16 image pixels), both through the luma tables.
void BuildNv12(SurfaceTiles* s) {
  const PlaneGeometry& g = s->geometry;
  const TileGridLayout layout = LayoutOf(PlaneFormat::kNv12, g.yStride, g.yBufLength);
  const uint64_t columns = CeilDiv(s->width, 32);
  const uint64_t rows = CeilDiv(s->height, 8);
  const TileKind kind{kFullTileUnits, false};
  s->planes.push_back(MakeGrid("Y", kind, Narrow(columns), Narrow(rows), 32, 8, layout, 0));
  const uint64_t uvMetaStart = uint64_t{g.yMetaBufSize} + g.yDataBufSize;
  s->planes.push_back(
      MakeGrid("UV", kind, Narrow(columns), Narrow((rows + 1) / 2), 32, 16, layout, uvMetaStart));
}

// Command G: the decoder walks the aligned plane (stride / 4 pixels by the
// scanline count); only the 16 x 4 tiles over the real image are counted.
void BuildRgba8888(SurfaceTiles* s) {
  const PlaneGeometry& g = s->geometry;
  const uint64_t alignedWidth = g.yStride / 4;
  const uint64_t columns = std::min(CeilDiv(alignedWidth, 16), CeilDiv(s->width, 16));
  const uint64_t rows = std::min(CeilDiv(g.yBufLength, 4), CeilDiv(s->height, 4));
  s->planes.push_back(MakeGrid("RGBA", TileKind{kFullTileUnits, false}, Narrow(columns),
                               Narrow(rows), 16, 4,
                               LayoutOf(PlaneFormat::kRgba8888, alignedWidth, g.yBufLength), 0));
}

// Command B: two 16 x 4 half tiles per slot, each with its own metadata
// column (2c and 2c + 1). The decoder walks whole slots, half the 16-pixel
// column count rounded down, of a plane stride / 2 pixels wide, so an odd
// width can leave real columns undecoded; those are not counted.
void BuildRgb565(SurfaceTiles* s) {
  const PlaneGeometry& g = s->geometry;
  const uint64_t alignedWidth = g.yStride / 2;
  const uint64_t walkedHalves = 2 * (CeilDiv(alignedWidth, 16) / 2);
  const uint64_t columns = std::min(walkedHalves, CeilDiv(s->width, 16));
  const uint64_t rows = std::min(CeilDiv(g.yBufLength, 4), CeilDiv(s->height, 4));
  s->planes.push_back(MakeGrid("RGB565", TileKind{kHalfTileUnits, true}, Narrow(columns),
                               Narrow(rows), 16, 4,
                               LayoutOf(PlaneFormat::kRgb565, alignedWidth, g.yBufLength), 0));
}

}  // namespace

PlaneFormat PlaneFormatOf(InspectFormat format) {
  switch (format) {
    case InspectFormat::kNv12:
      return PlaneFormat::kNv12;
    case InspectFormat::kRgba8888:
      return PlaneFormat::kRgba8888;
    case InspectFormat::kRgb565:
      break;
  }
  return PlaneFormat::kRgb565;
}

TileClass ClassifyMetadata(uint8_t metadata, TileKind kind) {
  // The tile decoder's reading: an arithmetic shift of the signed difference.
  int units = (static_cast<int>(metadata) - kMetaBias) >> kMetaUnitShift;
  if (kind.rgb565 && metadata == kRgb565AltRawMeta) units = static_cast<int>(kind.rawUnits);
  if (units == static_cast<int>(kind.rawUnits)) return kRaw;
  if (units >= 1 && units <= static_cast<int>(kFullTileUnits)) {
    return static_cast<TileClass>(kUnits1 + units - 1);
  }
  return kOther;
}

uint32_t ChargedUnits(uint8_t metadata, TileKind kind) {
  const TileClass cls = ClassifyMetadata(metadata, kind);
  if (cls == kRaw || cls == kOther) return kind.rawUnits;
  return std::min<uint32_t>(cls - kUnits1 + 1, kind.rawUnits);
}

bool IsRegularMetadata(uint8_t metadata) {
  return std::find(std::begin(kMetaForUnits), std::end(kMetaForUnits), metadata) !=
         std::end(kMetaForUnits);
}

SurfaceTiles BuildSurfaceTiles(InspectFormat format, int32_t width, int32_t height) {
  SurfaceTiles s{
      format, width, height, ComputePlaneGeometry(PlaneFormatOf(format), width, height), {}};
  switch (format) {
    case InspectFormat::kNv12:
      BuildNv12(&s);
      break;
    case InspectFormat::kRgba8888:
      BuildRgba8888(&s);
      break;
    case InspectFormat::kRgb565:
      BuildRgb565(&s);
      break;
  }
  return s;
}

void GatherMetadata(const PlaneTileGrid& plane, const uint8_t* frame, uint64_t frameBytes,
                    std::vector<uint8_t>* out) {
  out->resize(plane.metaOffsets.size());
  uint8_t* dst = out->data();
  for (uint64_t offset : plane.metaOffsets) *dst++ = offset < frameBytes ? frame[offset] : 0;
}

PlaneStats ComputePlaneStats(const PlaneTileGrid& plane, const std::vector<uint8_t>& metadata) {
  PlaneStats stats{plane.name, metadata.size(), 0, 0, {}, 0};
  // Classify each distinct byte once; a frame has far more tiles than values.
  std::array<uint64_t, 256> histogram{};
  for (uint8_t byte : metadata) ++histogram[byte];
  for (int value = 0; value < 256; ++value) {
    const uint64_t count = histogram[value];
    if (count == 0) continue;
    const auto byte = static_cast<uint8_t>(value);
    stats.tilesByClass[ClassifyMetadata(byte, plane.kind)] += count;
    stats.unitsUsed += count * ChargedUnits(byte, plane.kind);
    if (!IsRegularMetadata(byte)) stats.irregularMetadata += count;
  }
  stats.rawUnits = stats.tiles * plane.kind.rawUnits;
  return stats;
}

PlaneStats SumPlaneStats(const std::vector<PlaneStats>& planes, const std::string& name) {
  PlaneStats sum{name, 0, 0, 0, {}, 0};
  for (const PlaneStats& p : planes) {
    sum.tiles += p.tiles;
    sum.unitsUsed += p.unitsUsed;
    sum.rawUnits += p.rawUnits;
    for (int c = 0; c < kTileClassCount; ++c) sum.tilesByClass[c] += p.tilesByClass[c];
    sum.irregularMetadata += p.irregularMetadata;
  }
  return sum;
}

double BandwidthRatio(const PlaneStats& stats) {
  return stats.rawUnits == 0
             ? 0.0
             : static_cast<double>(stats.unitsUsed) / static_cast<double>(stats.rawUnits);
}

}  // namespace pelcast::inspect
