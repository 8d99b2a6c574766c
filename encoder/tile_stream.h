// The tile encoder's core: plans the shortest stream of a tile given as
// component planes and writes it when it is shorter than the raw tile.
#pragma once

#include <cstddef>
#include <cstdint>

#include "encoder/lane_kernels.h"
#include "encoder/tile_shape.h"

namespace pelcast {

// A tile cut into component planes: sample (x, y) of component c at
// plane[c][y * pitch + x]. RGB565 tiles give their 5-, 6- and 5-bit
// components as three byte planes.
struct TileComponents {
  const uint8_t* plane[kMaxComponents];
  size_t pitch;
};

// Plans `tile` for a plane of shape `shape` (which must be supported). When
// the stream rounds to fewer units than the raw tile, writes it to `output`
// (`capacity` bytes; zero up to the end of its last unit) and returns its
// units; otherwise returns 0 and writes nothing, and the caller stores the
// tile raw. *plannedBits receives the stream's length either way.
uint64_t EncodeTileStream(const TileShape& shape, const LaneKernels& kernels,
                          const TileComponents& tile, uint8_t* output, size_t capacity,
                          uint64_t* plannedBits);

// EncodeTileStream without its shortcut for tiles whose lanes are all
// constant: every tile goes through the planner (the tests compare the two).
uint64_t PlanTileStream(const TileShape& shape, const LaneKernels& kernels,
                        const TileComponents& tile, uint8_t* output, size_t capacity,
                        uint64_t* plannedBits);

// Units of a raw tile of the shape.
inline uint64_t RawTileUnits(const TileShape& shape) {
  return (shape.rawTileBytes * kByteBits) >> shape.unitShift;
}

}  // namespace pelcast
