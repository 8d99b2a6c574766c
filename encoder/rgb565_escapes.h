// RGB565 tiles without the colour transform: plans that escape groups of
// components 0 and 1 (raw samples), for tiles whose best plan without such
// escapes misses a unit boundary. See rgb565_escapes.cc for why the search
// is exact and why its gates are valid bounds.
#pragma once

#include <cstddef>
#include <cstdint>

#include "encoder/lane_kernels.h"
#include "encoder/lane_math.h"
#include "encoder/tile_shape.h"

namespace pelcast {

// Components whose groups may be escaped: 0 and 1 (component 2 carries into
// nothing, so its escape never beats its widest predicted code).
inline constexpr uint32_t kRgb565EscapedComponents = 2;

// A plan with escapes, ready for the stream writer.
struct Rgb565EscapePlan {
  uint32_t escaped[kRgb565EscapedComponents];  // bit g: group g of component c is raw
  uint32_t base[kRgb565Components];
  // Fields of the predicted groups; the width of an escaped group is its
  // component's escape code.
  LaneResidues lanes[kRgb565Components];
  // Raw samples of the escaped groups (meaningful there only).
  alignas(16) int16_t raw[kRgb565EscapedComponents][kBlockSamples];
  uint32_t residualBits;  // fields only, without flags, bases and codes
};

// The 5-, 6- and 5-bit component planes of one 16 x 4 tile, `pitch` bytes to
// a row, and their lanes without escapes as rgb565Lanes gives them.
struct Rgb565Tile {
  const uint8_t* const* planes;
  size_t pitch;
  const LaneResidues* direct;
};

// The smallest the fields of any plan can be, escapes included (a lower
// bound, not always reached).
uint32_t Rgb565ResidualBound(const Rgb565Tile& tile);

// Looks for a plan whose fields take at most `budgetBits`. Returns false when
// none exists (exactly: no plan of any escape set and any base values fits);
// otherwise fills `plan` with one that fits. The search runs only when
// Rgb565ResidualBound(tile) is within the budget.
bool FindRgb565EscapePlan(const Rgb565Tile& tile, uint32_t budgetBits, Rgb565EscapePlan* plan);

}  // namespace pelcast
