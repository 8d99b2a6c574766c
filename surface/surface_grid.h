// The address grid of each surface layout, as the frame codecs build it from
// their descriptor. Decoder and encoder of a layout take the grid from here,
// so they place and find every tile and metadata byte at the same address.
#pragma once

#include <cstdint>

#include "surface/plane_geometry.h"
#include "surface/tile_addressing.h"
#include "surface/zpak_context.h"

namespace pelcast {

// The grid of a `format` surface over planeWidth x planeHeight, in the units
// the frame codecs walk (pixels for RGBA8888 and RGB565, bytes for NV12, whose
// luma and chroma share one grid), with the descriptor's addressing settings.
TileGridLayout SurfaceGridLayout(PlaneFormat format, uint64_t planeWidth, uint64_t planeHeight,
                                 const ZpakConfig& config);

}  // namespace pelcast
