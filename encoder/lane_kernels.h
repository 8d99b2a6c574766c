// The per-sample work of the tile encoder, as routines over whole 16 x 4
// blocks: residuals under the gradient predictor, their zig-zag fields and
// each group's bit width, the colour transform and the split of packed pixels
// into component planes. Every routine has a plain version; vector versions
// produce exactly the same bytes and are chosen at run time where the
// processor has them.
//
// Residuals. With the imaginary line of base values above and to the left of
// a block, and the base equal to the block's first sample, the gradient
// residual is the two-dimensional difference
//   d[y][x] = s[y][x] - s[y][x-1] - s[y-1][x] + s[y-1][x-1],
// reading s[-1][x] = s[y][-1] = base. So each row's horizontal differences
// (first sample minus the base) minus those of the row above (zero for the
// first row) give the residuals a whole row at a time.
#pragma once

#include <cstddef>
#include <cstdint>

#include "encoder/tile_shape.h"

namespace pelcast {

// How a lane's groups are sized: groups narrower than `escape` take their
// width, the others `codedBits` (escaped raw samples, or full-width fields).
struct LaneSizing {
  uint32_t escape;
  uint32_t codedBits;
};

// One coded lane (a component of a block) after planning.
struct LaneResidues {
  // Zig-zag residual of every sample in raster order, saturated at 255 (only
  // groups narrower than the escape, whose fields are below 128, are ever
  // written from here).
  alignas(16) uint8_t zig[kBlockSamples];
  // Bit width of the OR of each group's zig-zag residuals, unsaturated.
  alignas(16) uint8_t width[kGroupsPerBlock];
  // Bits of the lane's codes and fields under the sizing it was planned for.
  uint32_t bits;
};

// Samples of the three colour-transformed components of one block, raster
// order: luma, then the two differences offset by 2^n.
struct ColourSamples {
  alignas(16) int16_t c[3][kBlockSamples];
};

// What the writer appends for one lane: per group its code, the bits of its
// four fields, and the fields packed lowest first. Escaped groups of exactly
// reproduced samples (raw samples that may be wider than a byte, not held
// in the lane) are left for the writer to pack.
struct LanePack {
  alignas(16) uint8_t code[kGroupsPerBlock];
  alignas(16) uint8_t fieldBits[kGroupsPerBlock];  // four times the field width
  alignas(16) uint64_t fields[kGroupsPerBlock];
};

// How a lane is written: groups narrower than `escape` take their width;
// the others take `wideCode` when it is non-zero (still predicted, fields of
// `codedBits` bits), else the escape with raw samples of `codedBits` bits,
// read from `rawRows` (byte samples, `rawPitch` apart) when it is non-null.
struct LaneCoding {
  uint32_t escape;
  uint32_t codedBits;
  uint32_t wideCode;
  const uint8_t* rawRows;
  size_t rawPitch;
};

struct LaneKernels {
  const char* name;
  // A byte-packed component, 16 x 4 samples at `rows` (`pitch` bytes apart):
  // residuals modulo 256, taken as the representative in [-128, 127].
  void (*byteLane)(const uint8_t* rows, size_t pitch, const LaneSizing& sizing,
                   LaneResidues* out);
  // The same for two lanes of the same sizing at once.
  void (*byteLanePair)(const uint8_t* first, const uint8_t* second, size_t pitch,
                       const LaneSizing& sizing, LaneResidues* firstOut, LaneResidues* secondOut);
  // A component reproduced exactly: 64 samples in raster order.
  void (*exactLane)(const int16_t* samples, const LaneSizing& sizing, LaneResidues* out);
  // RGB565 without the colour transform (see lane_math.h): the three
  // lanes of the 5-, 6- and 5-bit component planes at `planes[c]`, `pitch`
  // bytes to a row; every group keeps its width.
  void (*rgb565Lanes)(const uint8_t* const* planes, size_t pitch, LaneResidues* out);
  // Forward colour transform of three component planes of n-bit samples;
  // false when a sample is 2^n or more (the decoder could not rebuild it).
  bool (*colourTransform)(const uint8_t* const* planes, size_t pitch, uint32_t n,
                          ColourSamples* out);
  // The colour transform and the exact lanes of its three components, sized
  // by `sizings[c]`.
  bool (*colourLanes)(const uint8_t* const* planes, size_t pitch, uint32_t n,
                      const LaneSizing* sizings, ColourSamples* out, LaneResidues* lanes);
  // Codes and packed fields of a lane. Returns the escaped groups, bit g
  // for group g.
  uint32_t (*packLane)(const LaneResidues& lane, const LaneCoding& coding, LanePack* out);
  // The codes of three or four lanes (`lanes`) in stream order: word q holds
  // groups 4q to 4q + 3, each group's codes lane by lane, 3 x lanes bits a
  // group.
  void (*packCodes)(const LanePack* packs, uint32_t lanes, uint64_t* words);
  // For three or four lanes: each group's fields of all lanes joined, lane
  // by lane, in joined[g], and their total bits in bits[g] (joined[g] is
  // only meaningful when that total is at most 64).
  void (*joinGroupFields)(const LanePack* packs, uint32_t lanes, uint64_t* joined, uint8_t* bits);
  // Splits 16 x 4 four-byte pixels (`pitch` bytes to a row) into four 64-byte
  // component planes.
  void (*splitQuads)(const uint8_t* rows, size_t pitch, uint8_t* planes);
  // Splits 16 x 4 RGB565 pixels into three 64-byte planes of 5, 6, 5 bits.
  void (*splitRgb565)(const uint8_t* rows, size_t pitch, uint8_t* planes);
};

// The plain routines, always available.
const LaneKernels& PlainLaneKernels();

// The plain joining of group fields, which the SSE2 set shares (it has no
// per-lane 64-bit shifts).
void PlainJoinGroupFields(const LanePack* packs, uint32_t lanes, uint64_t* joined, uint8_t* bits);

// The routines of the widest set that `features` (common/cpu.h) runs.
const LaneKernels& LaneKernelsFor(uint32_t features);

// What the encoder uses: the table of CpuFeatures(), chosen once.
const LaneKernels& ActiveLaneKernels();

}  // namespace pelcast
