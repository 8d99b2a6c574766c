// Per-tile storage cost of a ZPAK frame, read from its metadata planes.
//
// Every tile's metadata byte says how many 64-byte units the tile occupies
// (4n + 15 for n units). The figures are taken over the tiles that cover the
// real image and that the frame decoder walks, reading each metadata byte at
// the offset the decoder reads it from, so a frame that looks cheap here is
// cheap for the decoder too.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "surface/plane_geometry.h"

namespace pelcast::inspect {

// How one tile is stored, as the tile decoder reads its metadata byte.
// kUnits1..kUnits4 are compressed tiles of that many units; kOther is a byte
// that gives no unit count in range (the tile is still decoded as a
// bitstream, but its length is unknown).
enum TileClass : uint8_t { kUnits1, kUnits2, kUnits3, kUnits4, kRaw, kOther };
inline constexpr int kTileClassCount = 6;

// The four metadata values an encoder writes: 1 to 4 units.
inline constexpr uint8_t kMetaForUnits[4] = {19, 23, 27, 31};

enum class InspectFormat { kNv12, kRgba8888, kRgb565 };

PlaneFormat PlaneFormatOf(InspectFormat format);

struct TileKind {
  uint32_t rawUnits;  // units of a raw tile: 4, or 2 for a 128-byte RGB565 half tile
  bool rgb565;        // metadata 31 also means a raw half tile
};

TileClass ClassifyMetadata(uint8_t metadata, TileKind kind);

// Units a tile costs: its unit count, capped at a raw tile; a raw tile or one
// whose metadata gives no count costs a whole raw tile.
uint32_t ChargedUnits(uint8_t metadata, TileKind kind);

// True for the values an encoder writes (19, 23, 27, 31).
bool IsRegularMetadata(uint8_t metadata);

// The counted tiles of one plane and where their metadata bytes lie in the
// frame buffer. Built once per surface; only the bytes change per frame.
struct PlaneTileGrid {
  std::string name;  // "Y", "UV", "RGBA", "RGB565"
  TileKind kind;
  uint32_t columns;    // counted tiles per row
  uint32_t rows;       // counted tile rows
  uint32_t tileWidth;  // image pixels covered by one tile
  uint32_t tileHeight;
  std::vector<uint64_t> metaOffsets;  // frame-buffer offset per tile, raster order
};

// The counted tiles of every plane of one surface.
struct SurfaceTiles {
  InspectFormat format;
  int32_t width;
  int32_t height;
  PlaneGeometry geometry;
  std::vector<PlaneTileGrid> planes;
};

// Builds the tile grids of a surface the decode commands would decode at
// width x height. The dimensions must already have passed DecodeSizeProblem.
SurfaceTiles BuildSurfaceTiles(InspectFormat format, int32_t width, int32_t height);

// Metadata bytes of every counted tile of `plane`, read from a frame buffer of
// `frameBytes` bytes (offsets at or past its end read as 0, as the decoder's
// guarded reads do). `out` is resized once and reused across frames.
void GatherMetadata(const PlaneTileGrid& plane, const uint8_t* frame, uint64_t frameBytes,
                    std::vector<uint8_t>* out);

struct PlaneStats {
  std::string name;
  uint64_t tiles;
  uint64_t unitsUsed;
  uint64_t rawUnits;  // what the same tiles would use stored raw
  std::array<uint64_t, kTileClassCount> tilesByClass;
  uint64_t irregularMetadata;  // bytes other than 19, 23, 27, 31
};

PlaneStats ComputePlaneStats(const PlaneTileGrid& plane, const std::vector<uint8_t>& metadata);

// The sum of several planes' figures, named `name`.
PlaneStats SumPlaneStats(const std::vector<PlaneStats>& planes, const std::string& name);

// unitsUsed / rawUnits, 0 for a plane without tiles.
double BandwidthRatio(const PlaneStats& stats);

}  // namespace pelcast::inspect
