// What the browser viewer computes about decoded frames beyond what zpak's
// modules give (its pictures, cost maps and compare, tools/zpak/pictures.h
// and compare.h): the sample values under a pixel, rasters as RGBA for a
// canvas, and the storage and compare figures as JSON for the page.
//
// The C++ standard library and the public C API only, so the same code runs
// natively (its tests) and as WebAssembly in the page.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "pelcast/pelcast.h"
#include "tools/zpak/compare.h"
#include "tools/zpak/image_files.h"

namespace pelcast::web {

// The sample values at picture pixel (x, y) of a packed linear frame
// (pelcast_image_init_packed's layout), written to `out`; returns how many:
// NV12 3 (Y, U, V), RGBA8888 4 (R, G, B, A), RGB565 3 (R, G, B as their 5-,
// 6- and 5-bit fields). 0 outside the frame or for an unknown format.
uint32_t SamplesAt(pelcast_format format, uint32_t width, uint32_t height, const uint8_t* packed,
                   uint32_t x, uint32_t y, uint32_t out[4]);

// An RGB or RGBA raster as RGBA pixels for a canvas (`out` holds width x
// height x 4 bytes): RGB gets alpha 255, and so does RGBA when `opaque`.
void RasterToRgba(const zpak::Raster& raster, bool opaque, uint8_t* out);

// The storage figures of every plane of a frame, as JSON:
// [{"plane": "y", "tiles": N, "units": N, "raw_units": N, "ratio": x,
//   "by_units": [n1, n2, n3], "raw": N, "bad_metadata": N, "overrun": N}, ...]
std::string PlaneStatsJson(pelcast_format format, const pelcast_plane_stats* stats,
                           uint32_t planes);

// The figures of zpak compare as JSON: {"identical": bool, "planes":
// [{"plane": "y", "differing_tiles": N, "differing_samples": N,
// "max_abs_diff": N, "psnr": x or null, "tiles_listed": N, "tiles": [[column,
// row], ...]}]}, listing at most `maxTiles` tiles a plane.
std::string CompareJson(const zpak::FrameDifference& difference, size_t maxTiles);

}  // namespace pelcast::web
