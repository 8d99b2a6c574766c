// The cost map: each tile tinted by how it is stored, over a dimmed copy of
// the frame, with a legend strip underneath.
#pragma once

#include <cstdint>
#include <vector>

#include "tools/inspect/rgb_image.h"
#include "tools/inspect/tile_stats.h"

namespace pelcast::inspect {

// Tint of each TileClass: cool for cheap tiles, hot for expensive ones,
// magenta for metadata that gives no unit count.
inline constexpr Rgb kClassColours[kTileClassCount] = {
    {40, 110, 255}, {0, 200, 90}, {250, 220, 0}, {255, 130, 0}, {230, 20, 20}, {220, 0, 220}};

// Legend label of each TileClass.
inline constexpr const char* kClassLabels[kTileClassCount] = {"1", "2", "3", "4", "raw", "?"};

// The frame's grey level is scaled by kDimNumerator / kDimDenominator, then
// each tile's tint is mixed in with weight kTintWeight / kMixDenominator.
inline constexpr uint32_t kDimNumerator = 1;
inline constexpr uint32_t kDimDenominator = 2;
inline constexpr uint32_t kTintWeight = 4;
inline constexpr uint32_t kMixDenominator = 8;

// Tints every counted tile of `grid` (its metadata bytes in raster order)
// over a dimmed grey copy of `frame`; pixels no counted tile covers are only
// dimmed grey. `out` gets the frame's size.
void DrawHeatmap(const RgbImage& frame, const PlaneTileGrid& grid,
                 const std::vector<uint8_t>& metadata, RgbImage* out);

// Adds the legend strip below `image`: one swatch and label per tile class,
// widening the picture with black when it is narrower than the legend.
void AppendLegend(RgbImage* image);

// Draws `text` in the built-in 5 x 7 font with its top-left corner at (x, y),
// each font pixel `scale` x `scale` pixels; clipped to the image. Characters
// the font lacks advance without drawing.
void DrawText(RgbImage* image, uint32_t x, uint32_t y, const char* text, uint32_t scale,
              Rgb colour);

// Width in pixels of `text` drawn at `scale`.
uint32_t TextWidth(const char* text, uint32_t scale);

}  // namespace pelcast::inspect
