// Pictures of frames: decoded linear frames as RGB(A) rasters, rasters back
// to linear frames, downscaling, and the cost map of how each tile is stored.
#pragma once

#include <cstdint>
#include <vector>

#include "pelcast/pelcast.h"
#include "tools/zpak/image_files.h"

namespace pelcast::zpak {

struct Rgb {
  uint8_t r, g, b;
};

// Paints a rectangle of an RGB or RGBA raster (alpha untouched), clipped.
void FillRect(Raster* raster, uint32_t x, uint32_t y, uint32_t width, uint32_t height, Rgb colour);

// Limited-range YCbCr matrices for NV12.
enum class YuvMatrix { kBt601, kBt709 };

// A packed linear frame (pelcast_image_init_packed's layout) as a raster:
// NV12 through `matrix` as RGB, RGBA8888 as RGBA with its alpha, RGB565 as
// RGB with each field widened by repeating its top bits.
void RasterOfFrame(pelcast_format format, uint32_t width, uint32_t height, const uint8_t* packed,
                   YuvMatrix matrix, Raster* out);

// A raster as a packed RGBA8888 or RGB565 frame of its size (RGB565 keeps
// the top bits of each sample, which undoes RasterOfFrame exactly). False
// for NV12, which no PNG holds.
bool FrameOfRaster(pelcast_format format, const Raster& raster, uint8_t* packed);

// Averages `factor` x `factor` blocks (partial blocks at the edges average
// what they hold). A factor of 1 copies.
void ShrinkRaster(const Raster& in, uint32_t factor, Raster* out);

// How a tile is stored, for the cost map.
enum TileClass : uint8_t { kOneUnit, kTwoUnits, kThreeUnits, kRawTile, kBadMetadata, kOverrun };
inline constexpr int kTileClassCount = 6;
TileClass ClassOfTile(const pelcast_tile_info& tile);

// The cost map of one plane: `picture` dimmed to grey with every tile over
// it tinted by its class (grid in image pixels, tiles in raster order).
void DrawCostMap(const Raster& picture, const pelcast_tile_grid& grid,
                 const std::vector<pelcast_tile_info>& tiles, Raster* out);

// Adds the legend strip of the classes below an RGB `raster`, widening it
// with black when it is narrower than the legend.
void AppendLegend(Raster* raster);

}  // namespace pelcast::zpak
