// What the browser viewer computes about decoded frames: the planes of a
// packed linear frame, the sample values under a pixel, the picture shown
// (RGBA for a canvas), the cost map of how each tile is stored, the
// difference of two frames with the figures of `zpak compare`, and the
// storage figures of a frame as JSON.
//
// The C++ standard library and the public C API only, so the same code runs
// natively (its tests) and as WebAssembly in the page.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "pelcast/pelcast.h"

namespace pelcast::web {

// One plane of a packed linear frame (pelcast_image_init_packed's layout)
// and its tiles. Coordinates are in elements: luma bytes, U,V pairs,
// RGBA8888 pixels or RGB565 pixels.
struct PlaneView {
  uint32_t plane;         // the API's plane number
  const char* name;       // "y", "uv", "rgba", "rgb565"
  size_t offset;          // of the plane in the packed frame
  size_t stride;          // bytes a row
  uint32_t elementBytes;  // bytes of one element
  uint32_t width;         // elements a row
  uint32_t height;        // rows
  uint32_t tileWidth;     // elements a tile covers across
  uint32_t tileHeight;    // rows a tile covers
  uint32_t tileColumns;   // tiles across (the API's grid)
  uint32_t tileRows;
  uint32_t pixelScale;  // picture pixels an element covers across and down
};

// The planes of `format` at width x height; empty for a size the API refuses.
std::vector<PlaneView> PackedPlanes(pelcast_format format, uint32_t width, uint32_t height);

// "nv12", "rgba8888", "rgb565"; "?" otherwise.
const char* FormatName(pelcast_format format);

// The sample values at picture pixel (x, y) of a packed frame, written to
// `out`; returns how many: NV12 3 (Y, U, V), RGBA8888 4 (R, G, B, A),
// RGB565 3 (R, G, B as their 5-, 6- and 5-bit fields). 0 outside the frame.
uint32_t SamplesAt(pelcast_format format, uint32_t width, uint32_t height, const uint8_t* packed,
                   uint32_t x, uint32_t y, uint32_t out[4]);

// Limited-range YCbCr matrices for showing NV12.
enum class YuvMatrix : uint32_t { kBt709 = 0, kBt601 = 1 };

// The packed frame as width x height RGBA pixels for a canvas: NV12 through
// `matrix`; RGB565 with each field widened by repeating its top bits;
// RGBA8888 as it is, or with alpha 255 when `opaque`.
void FrameToRgba(pelcast_format format, uint32_t width, uint32_t height, const uint8_t* packed,
                 YuvMatrix matrix, bool opaque, uint8_t* rgba);

// How a tile is stored, and its colour in the cost map (the inspector's):
// blue 1 unit, green 2, yellow 3, orange 4, red raw, magenta a metadata byte
// that is no unit count; cyan a stream that reads past its units.
enum TileClass : uint8_t {
  kOneUnit,
  kTwoUnits,
  kThreeUnits,
  kFourUnits,
  kRawTile,
  kBadMetadata,
  kOverrun,
};
inline constexpr int kTileClassCount = 7;
struct Rgb {
  uint8_t r, g, b;
};
inline constexpr Rgb kClassColours[kTileClassCount] = {{40, 110, 255}, {0, 200, 90},  {250, 220, 0},
                                                       {255, 130, 0},  {230, 20, 20}, {220, 0, 220},
                                                       {0, 230, 230}};
TileClass ClassOfTile(const pelcast_tile_info& tile);

// The cost map of one plane: `picture` (RGBA, width x height) dimmed to grey
// with each tile tinted by its class; pixels no tile covers are only dimmed.
// `tiles` in raster order of `grid` (whose tiles are in picture pixels).
void DrawCostMap(const uint8_t* picture, uint32_t width, uint32_t height,
                 const pelcast_tile_grid& grid, const pelcast_tile_info* tiles, uint8_t* out);

// The storage figures of every plane of a frame, as JSON:
// [{"plane": "y", "tiles": N, "units": N, "raw_units": N, "ratio": x,
//   "by_units": [n1, n2, n3], "raw": N, "bad_metadata": N, "overrun": N}, ...]
std::string PlaneStatsJson(pelcast_format format, const pelcast_plane_stats* stats,
                           uint32_t planes);

// --- comparing two frames -----------------------------------------------------

// Samples are the 8-bit components: luma bytes; U and V; R, G, B and A;
// RGB565's fields widened to 8 bits.
struct PlaneDifference {
  const char* name = "";
  uint64_t samples = 0;
  uint64_t differingTiles = 0;
  uint64_t differingSamples = 0;
  uint32_t maxAbsDiff = 0;
  double squaredError = 0;
  // Tiles that differ, as row * tileColumns + column, in raster order.
  std::vector<uint32_t> tiles;
  uint32_t tileColumns = 0;
};

// 10 log10(255^2 / mean squared error); infinite when the plane is identical.
double Psnr(const PlaneDifference& plane);

// Compares two packed frames of `format` at width x height, plane by plane.
std::vector<PlaneDifference> CompareFrames(pelcast_format format, uint32_t width, uint32_t height,
                                           const uint8_t* a, const uint8_t* b);

// {"identical": bool, "planes": [{"plane": "y", "differing_tiles": N,
//  "differing_samples": N, "max_abs_diff": N, "psnr": x or null,
//  "tiles": [[column, row], ...] (at most `maxTiles`), "tiles_listed": N}]}.
std::string CompareJson(const std::vector<PlaneDifference>& planes, size_t maxTiles);

// The difference picture: `pictureA` (RGBA of frame a) dimmed to grey, every
// pixel that differs in any plane painted from red (a difference of 1) to
// yellow (64 or more), every tile holding a difference outlined in magenta.
void DrawDifference(pelcast_format format, uint32_t width, uint32_t height, const uint8_t* a,
                    const uint8_t* b, const uint8_t* pictureA, uint8_t* out);

}  // namespace pelcast::web
