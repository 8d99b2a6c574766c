// The tile encoder's core: the shortest stream of one tile.
//
// Why the choices below are optimal. A tile's size in units is a monotone
// function of its length in bits, so it suffices to minimise the bits.
//
// * Base values. With the gradient predictor the base only takes part in the
//   prediction of the first sample of its block (the first row is a running
//   sum from the base, the first column is predicted from above, and the base
//   cancels everywhere else). Setting the base to that sample gives it a zero
//   residual, which no other base can beat; the base field has a fixed width.
// * Byte-packed components (RGBA8888 without the colour transform, the alpha
//   component, both NV12 planes). Packing keeps only the low 8 bits of each
//   sample, so a residual matters only modulo 256, and a reconstructed sample
//   that differs from the input by a multiple of 256 changes no later residual
//   modulo 256. Every residual can therefore be taken on its own as the
//   representative in [-128, 127], the one with the smallest zig-zag field,
//   and each group's cheapest code follows: the smallest width 0..6 that holds
//   its four fields, otherwise the escape with four raw 8-bit samples.
// * Colour transform (RGBA8888 components 0-2, RGB565). The inverse transform
//   clamps its results, so apart from the freedom the clamps leave where a
//   component sits at 0 or at its maximum (not used here) the transformed
//   samples must be reproduced exactly; components 1 and 2 are one bit wider.
//   Residuals are then fixed, and each group takes its smallest code, the
//   escape (raw samples, always representable) when no narrower code holds
//   them. Both settings of the flag are planned and the shorter kept (the
//   plain one on a tie). RGB565 clamps its 6-bit component to 5 bits, so the
//   transform is only possible when that component stays below 32 over the
//   whole tile.
// * Constant alpha. When the last component is constant its 16 codes and all
//   its residuals disappear while its base stays, so the flag is always used
//   when it can be.
// * RGB565 without the transform: the components carry into each other when
//   packed; see lane_math.h. Escaping groups of components 0 or 1 can pay
//   through the carries; since a tile's size is only its unit count, such
//   plans are searched (rgb565_escapes.cc) only when the plans without them
//   miss a unit, and then exactly: a plan is kept when one fits the unit.
//
// Every plan is sized from the groups' bit widths alone; only the plan that
// is kept is written, and only when it is shorter than the raw tile. So the
// stream is the shortest one except for RGB565 plans with escapes, which
// are the first found that take the fewest units.
//
// * Constant lanes. When every component of every block is constant, every
//   residual of both plans is 0 and every group's width is 0: the plain plan
//   (the direct one for RGB565) is 2 bits (1) shorter than the transform's,
//   whose two difference components are one bit wider, and it fits one
//   unit, so no escape search follows; the last component takes the
//   constant flag when it is the same in every block. Such a tile's stream
//   is written straight from its first samples, bit for bit the stream the
//   plans above would write.
#include "encoder/tile_stream.h"

#include <algorithm>
#include <bit>
#include <cstring>

#include "encoder/bit_writer.h"
#include "encoder/lane_math.h"
#include "encoder/rgb565_escapes.h"

namespace pelcast {
namespace {

static_assert(std::endian::native == std::endian::little,
              "groups of fields are read from memory as little-endian words");

constexpr uint32_t kColourComponents = 3;
constexpr uint32_t kMaxLanes = kMaxBlocks * kMaxComponents;
constexpr uint32_t kCodeGroupsPerWord = 4;
// RGB565 without the transform: codes 5, 6, 5 would mean raw samples, so
// full-width predicted groups take the codes above them.
constexpr uint32_t kRgb565Escape[kRgb565Components] = {5, 6, 5};
constexpr uint32_t kRgb565WideCode[kRgb565Components] = {6, 7, 6};

// One coded lane as the writer reads it.
struct WriteLane {
  const LaneResidues* residues;
  LaneCoding coding;
  const int16_t* rawSamples;  // exactly reproduced samples, for escaped groups
  uint32_t rawGroups;         // groups escaped whatever their width (bit g)
};

struct StreamPlan {
  uint32_t colourFlag;
  uint32_t alphaFlag;
  uint32_t baseCount;
  uint32_t base[kMaxLanes];
  uint32_t baseBits[kMaxLanes];
  uint32_t laneCount;  // lanes of group g follow block by block, component by component
  WriteLane lanes[kMaxLanes];
  uint64_t bits;
};

struct PlanScratch {
  LaneResidues byteLanes[kMaxBlocks][kMaxComponents];
  LaneResidues exactLanes[kColourComponents];
  ColourSamples colour;
  Rgb565EscapePlan escapes;
};

const uint8_t* BlockRows(const TileShape& s, const TileComponents& t, uint32_t b, uint32_t c) {
  return t.plane[c] + s.blockY[b] * t.pitch + s.blockX[b];
}

// `kWidth` and `kHeight` are the tile's size when known at compile time (0
// otherwise).
template <uint32_t kWidth, uint32_t kHeight>
bool LastComponentConstant(const TileShape& s, const TileComponents& t) {
  if (!s.alphaFlag || s.components != kMaxComponents) return false;
  // Eight samples at a time against the first one repeated.
  constexpr uint64_t kEveryByte = 0x0101010101010101;
  constexpr uint32_t kWordSamples = sizeof(uint64_t);
  const uint32_t width = kWidth != 0 ? kWidth : s.tileWidth;
  const uint32_t height = kHeight != 0 ? kHeight : s.tileHeight;
  const uint8_t* plane = t.plane[kAlphaComponent];
  const uint64_t repeated = plane[0] * kEveryByte;
  uint64_t differing = 0;
  for (uint32_t y = 0; y < height; ++y) {
    for (uint32_t x = 0; x < width; x += kWordSamples) {
      uint64_t word = 0;
      std::memcpy(&word, plane + y * t.pitch + x, sizeof word);
      differing |= word ^ repeated;
    }
  }
  return differing == 0;
}

void AddBase(StreamPlan* plan, uint32_t value, uint32_t bits) {
  plan->base[plan->baseCount] = value;
  plan->baseBits[plan->baseCount] = bits;
  ++plan->baseCount;
}

WriteLane ByteWriteLane(const LaneResidues* residues, const uint8_t* rows, size_t pitch,
                        uint32_t escape, uint32_t codedBits) {
  return WriteLane{residues, LaneCoding{escape, codedBits, 0, rows, pitch}, nullptr, 0};
}

WriteLane ExactWriteLane(const LaneResidues* residues, const int16_t* samples, uint32_t escape,
                         uint32_t codedBits) {
  return WriteLane{residues, LaneCoding{escape, codedBits, 0, nullptr, 0}, samples, 0};
}

// Byte-packed planes: per block and component a lane modulo 256; with the
// colour flag, components 0-2 of the single block exactly instead.
// `kComponents` and `kBlocks` are the shape's counts when they are known at
// compile time (0 otherwise), so that the configured planes' loops unroll.
template <uint32_t kComponents, uint32_t kBlocks>
void PlanBytePlane(const TileShape& s, const LaneKernels& k, const TileComponents& t,
                   PlanScratch* scratch, StreamPlan* plan) {
  const uint32_t components = kComponents != 0 ? kComponents : s.components;
  const uint32_t blocks = kBlocks != 0 ? kBlocks : s.blocks;
  // A single block of four components is one 16 x 4 block.
  constexpr bool kOneBlock = kComponents == kMaxComponents && kBlocks == 1;
  const uint32_t alpha = LastComponentConstant < kOneBlock ? kBlockWidth : 0, kOneBlock
                                                                                  ? kBlockHeight
                                                                              : 0 > (s, t) ? 1
                                                                                           : 0;
  const uint32_t coded = components - alpha;
  uint64_t plainBits = s.headerBits;
  for (uint32_t b = 0; b < blocks; ++b) {
    for (uint32_t c = 0; c < components; ++c) plainBits += s.sampleBits[c];
  }
  // Residues and sizes of every coded lane, two lanes of one sizing to a call.
  const uint8_t* rows[kMaxLanes];
  LaneResidues* lanes[kMaxLanes];
  LaneSizing sizings[kMaxLanes];
  uint32_t count = 0;
  for (uint32_t b = 0; b < blocks; ++b) {
    for (uint32_t c = 0; c < coded; ++c, ++count) {
      rows[count] = BlockRows(s, t, b, c);
      lanes[count] = &scratch->byteLanes[b][c];
      sizings[count] = LaneSizing{s.escape[c], s.sampleBits[c]};
    }
  }
  for (uint32_t i = 0; i < count;) {
    const bool pair = i + 1 < count && sizings[i].escape == sizings[i + 1].escape &&
                      sizings[i].codedBits == sizings[i + 1].codedBits;
    if (pair) {
      k.byteLanePair(rows[i], rows[i + 1], t.pitch, sizings[i], lanes[i], lanes[i + 1]);
      i += 2;
    } else {
      k.byteLane(rows[i], t.pitch, sizings[i], lanes[i]);
      i += 1;
    }
  }
  uint64_t sharedBits = 0;  // lanes both flag settings code the same way
  for (uint32_t b = 0; b < blocks; ++b) {
    for (uint32_t c = 0; c < coded; ++c) {
      const uint32_t bits = scratch->byteLanes[b][c].bits;
      plainBits += bits;
      if (c >= kColourComponents) sharedBits += bits;
    }
  }
  bool colour = false;
  if (s.colourPossible) {
    const LaneSizing colourSizings[kColourComponents] = {{s.escape[0], s.sampleBits[0]},
                                                         {s.escape[1], s.sampleBits[1] + 1},
                                                         {s.escape[2], s.sampleBits[2] + 1}};
    if (k.colourLanes(t.plane, t.pitch, s.sampleBits[0], colourSizings, &scratch->colour,
                      scratch->exactLanes)) {
      uint64_t colourBits = s.headerBits + sharedBits + 2;  // components 1 and 2 are one bit wider
      for (uint32_t c = 0; c < components; ++c) colourBits += s.sampleBits[c];
      for (uint32_t c = 0; c < kColourComponents; ++c) colourBits += scratch->exactLanes[c].bits;
      if (colourBits < plainBits) {
        colour = true;
        plan->bits = colourBits;
      }
    }
  }
  if (!colour) plan->bits = plainBits;
  plan->colourFlag = colour ? 1 : 0;
  plan->alphaFlag = alpha;
  plan->baseCount = 0;
  plan->laneCount = 0;
  for (uint32_t b = 0; b < blocks; ++b) {
    for (uint32_t c = 0; c < components; ++c) {
      const bool exact = colour && c < kColourComponents;
      const uint32_t codedBits = s.sampleBits[c] + (exact && c != 0 ? 1 : 0);
      if (c >= coded) {  // the constant component: block 0's first sample
        AddBase(plan, t.plane[c][0], codedBits);
      } else if (exact) {
        AddBase(plan, static_cast<uint16_t>(scratch->colour.c[c][0]), codedBits);
        plan->lanes[plan->laneCount++] =
            ExactWriteLane(&scratch->exactLanes[c], scratch->colour.c[c], s.escape[c], codedBits);
      } else {
        const uint8_t* rows = BlockRows(s, t, b, c);
        AddBase(plan, rows[0], codedBits);
        plan->lanes[plan->laneCount++] =
            ByteWriteLane(&scratch->byteLanes[b][c], rows, t.pitch, s.escape[c], codedBits);
      }
    }
  }
}

// The configured byte-packed planes with their counts fixed: RGBA8888 (four
// components, one block), NV12 luma (one, four) and chroma (two, two).
void PlanByteTile(const TileShape& s, const LaneKernels& k, const TileComponents& t,
                  PlanScratch* scratch, StreamPlan* plan) {
  constexpr uint32_t kChromaComponents = 2;
  constexpr uint32_t kChromaBlocks = 2;
  if (s.components == kMaxComponents && s.blocks == 1) {
    PlanBytePlane<kMaxComponents, 1>(s, k, t, scratch, plan);
  } else if (s.components == 1 && s.blocks == kMaxBlocks) {
    PlanBytePlane<1, kMaxBlocks>(s, k, t, scratch, plan);
  } else if (s.components == kChromaComponents && s.blocks == kChromaBlocks) {
    PlanBytePlane<kChromaComponents, kChromaBlocks>(s, k, t, scratch, plan);
  } else {
    PlanBytePlane<0, 0>(s, k, t, scratch, plan);
  }
}

// The largest stream that takes fewer units than one of `bits` bits would
// (the raw tile when it would fill it); 0 when nothing is smaller.
uint64_t FewerUnitsLimit(const TileShape& s, uint64_t bits) {
  const uint64_t unitBits = uint64_t{1} << s.unitShift;
  const uint64_t rawUnits = RawTileUnits(s);
  const uint64_t units = std::min((bits + unitBits - 1) >> s.unitShift, rawUnits);
  return units > 1 ? (units - 1) << s.unitShift : 0;
}

// RGB565 plan with escaped groups of components 0 and 1, when one takes fewer
// units than `bits`, the best plan without them.
bool PlanRgb565Escapes(const TileShape& s, const TileComponents& t, const LaneResidues* direct,
                       uint64_t bits, PlanScratch* scratch, StreamPlan* plan) {
  uint64_t fixedBits = s.headerBits + kRgb565Components * kGroupsPerBlock * kCodeBits;
  for (uint32_t c = 0; c < kRgb565Components; ++c) fixedBits += s.sampleBits[c];
  const uint64_t limit = FewerUnitsLimit(s, bits);
  if (limit <= fixedBits) return false;
  const Rgb565Tile tile{t.plane, t.pitch, direct};
  Rgb565EscapePlan& e = scratch->escapes;
  if (!FindRgb565EscapePlan(tile, static_cast<uint32_t>(limit - fixedBits), &e)) {
    return false;
  }
  plan->bits = fixedBits + e.residualBits;
  plan->colourFlag = 0;
  plan->alphaFlag = 0;
  plan->baseCount = 0;
  plan->laneCount = kRgb565Components;
  for (uint32_t c = 0; c < kRgb565Components; ++c) {
    const bool escapable = c < kRgb565EscapedComponents;
    AddBase(plan, e.base[c], s.sampleBits[c]);
    plan->lanes[c] = WriteLane{
        &e.lanes[c], LaneCoding{kRgb565Escape[c], s.sampleBits[c], kRgb565WideCode[c], nullptr, 0},
        escapable ? e.raw[c] : nullptr, escapable ? e.escaped[c] : 0};
  }
  return true;
}

// RGB565: the direct plan, or the colour transform when it is possible and
// shorter, or, when neither fits in fewer units than the raw tile, a plan
// with escapes that does.
void PlanRgb565(const TileShape& s, const LaneKernels& k, const TileComponents& t,
                PlanScratch* scratch, StreamPlan* plan) {
  LaneResidues* direct = scratch->byteLanes[0];
  k.rgb565Lanes(t.plane, t.pitch, direct);
  uint64_t directBits = s.headerBits;
  for (uint32_t c = 0; c < kRgb565Components; ++c) directBits += s.sampleBits[c] + direct[c].bits;
  bool colour = false;
  if (s.colourPossible) {
    const LaneSizing colourSizings[kColourComponents] = {{s.escape[0], s.sampleBits[0]},
                                                         {s.escape[1], s.sampleBits[1] + 1},
                                                         {s.escape[2], s.sampleBits[2] + 1}};
    if (k.colourLanes(t.plane, t.pitch, s.sampleBits[0], colourSizings, &scratch->colour,
                      scratch->exactLanes)) {
      uint64_t colourBits = s.headerBits;
      for (uint32_t c = 0; c < kColourComponents; ++c) {
        colourBits += colourSizings[c].codedBits + scratch->exactLanes[c].bits;
      }
      if (colourBits < directBits) {
        colour = true;
        plan->bits = colourBits;
      }
    }
  }
  if (!colour) plan->bits = directBits;
  if (PlanRgb565Escapes(s, t, direct, plan->bits, scratch, plan)) return;
  plan->colourFlag = colour ? 1 : 0;
  plan->alphaFlag = 0;
  plan->baseCount = 0;
  plan->laneCount = kRgb565Components;
  for (uint32_t c = 0; c < kRgb565Components; ++c) {
    if (colour) {
      const uint32_t codedBits = s.sampleBits[c] + (c == 0 ? 0 : 1);
      AddBase(plan, static_cast<uint16_t>(scratch->colour.c[c][0]), codedBits);
      plan->lanes[c] =
          ExactWriteLane(&scratch->exactLanes[c], scratch->colour.c[c], s.escape[c], codedBits);
    } else {
      AddBase(plan, t.plane[c][0], s.sampleBits[c]);
      plan->lanes[c] = WriteLane{
          &direct[c], LaneCoding{kRgb565Escape[c], s.sampleBits[c], kRgb565WideCode[c], nullptr, 0},
          nullptr, 0};
    }
  }
}

// True when all 16 x 4 samples of a lane equal its first.
bool LaneIsConstant(const uint8_t* rows, size_t pitch) {
  constexpr uint64_t kEveryByte = 0x0101010101010101;
  constexpr size_t kHalfRow = kBlockWidth / 2;
  const uint64_t repeated = rows[0] * kEveryByte;
  // Row by row, so that a lane that is not constant (most are not) is
  // turned away at its first row.
  for (uint32_t y = 0; y < kBlockHeight; ++y) {
    uint64_t left = 0;
    uint64_t right = 0;
    std::memcpy(&left, rows + y * pitch, sizeof left);
    std::memcpy(&right, rows + y * pitch + kHalfRow, sizeof right);
    if (((left ^ repeated) | (right ^ repeated)) != 0) return false;
  }
  return true;
}

// True when every lane of the tile is constant and a width of 0 is below
// every escape (so that constant lanes take code 0).
bool LanesAreConstant(const TileShape& s, const TileComponents& t) {
  if (!s.flatLanesCodeZero) return false;
  for (uint32_t b = 0; b < s.blocks; ++b) {
    const size_t offset = s.blockY[b] * t.pitch + s.blockX[b];
    for (uint32_t c = 0; c < s.components; ++c) {
      if (!LaneIsConstant(t.plane[c] + offset, t.pitch)) return false;
    }
  }
  return true;
}

// The stream of a tile whose lanes are all constant (see the top of the
// file): the flags, each lane's first sample as its base, zero codes.
// Returns its units, or 0 (nothing written) when the raw tile is no longer.
uint64_t WriteConstantStream(const TileShape& s, const TileComponents& t, uint8_t* output,
                             size_t capacity, uint64_t* plannedBits) {
  uint32_t alpha = 0;
  if (s.alphaFlag && s.components == kMaxComponents) {
    alpha = 1;
    for (uint32_t b = 1; b < s.blocks; ++b) {
      if (BlockRows(s, t, b, kAlphaComponent)[0] != t.plane[kAlphaComponent][0]) alpha = 0;
    }
  }
  const uint32_t coded = s.components - alpha;
  uint64_t bits = s.headerBits + uint64_t{s.blocks} * coded * kGroupsPerBlock * kCodeBits;
  for (uint32_t b = 0; b < s.blocks; ++b) {
    for (uint32_t c = 0; c < s.components; ++c) bits += s.sampleBits[c];
  }
  *plannedBits = bits;
  const uint64_t unitBits = uint64_t{1} << s.unitShift;
  const uint64_t units = (bits + unitBits - 1) >> s.unitShift;
  const uint64_t unitBytes = (units << s.unitShift) / kByteBits;
  if ((units << s.unitShift) >= s.rawTileBits || unitBytes > capacity) return 0;
  std::memset(output, 0, unitBytes);
  TileBitWriter writer = MakeTileBitWriter(output, capacity);
  if (s.colourFlag) WriteBits(&writer, 0, kHeaderFlagBits);
  if (s.alphaFlag) WriteBits(&writer, alpha, kHeaderFlagBits);
  for (uint32_t b = 0; b < s.blocks; ++b) {
    for (uint32_t c = 0; c < s.components; ++c) {
      WriteBits(&writer, BlockRows(s, t, b, c)[0], s.sampleBits[c]);
    }
  }
  return units;
}

// Groups escaped by the plan whatever their width: the escape code and room
// for four raw samples.
void ForceEscapes(const WriteLane& lane, LanePack* pack) {
  for (uint32_t escaped = lane.rawGroups; escaped != 0; escaped &= escaped - 1) {
    const uint32_t g = static_cast<uint32_t>(std::countr_zero(escaped));
    pack->code[g] = static_cast<uint8_t>(lane.coding.escape);
    pack->fieldBits[g] = static_cast<uint8_t>(kGroupSize * lane.coding.codedBits);
  }
}

// Escaped groups of exactly reproduced samples: the raw samples, `codedBits`
// bits each.
void PackEscapedSamples(const WriteLane& lane, uint32_t escaped, LanePack* pack) {
  for (; escaped != 0; escaped &= escaped - 1) {
    const uint32_t g = static_cast<uint32_t>(std::countr_zero(escaped));
    uint64_t packed = 0;
    for (uint32_t i = 0; i < kGroupSize; ++i) {
      packed |= uint64_t{static_cast<uint16_t>(lane.rawSamples[kGroupSize * g + i])}
                << (i * lane.coding.codedBits);
    }
    pack->fields[g] = packed;
  }
}

// Appends with or without the bound check of every store.
template <bool kInBounds>
inline void Append(TileBitWriter* writer, uint64_t value, uint32_t count) {
  if constexpr (kInBounds) {
    WriteBitsInBounds(writer, value, count);
  } else {
    WriteBits(writer, value, count);
  }
}

// Flags, base values, the codes of group g of every lane, then their fields
// in the same interleaving. `kLanes` is the lane count when it is known at
// compile time (0 otherwise).
template <bool kInBounds, uint32_t kLanes>
void WriteStream(const TileShape& s, const LaneKernels& k, const StreamPlan& plan,
                 const LanePack* packs, uint8_t* output, size_t capacity) {
  const uint32_t lanes = kLanes != 0 ? kLanes : plan.laneCount;
  TileBitWriter writer = MakeTileBitWriter(output, capacity);
  // Flags and bases, gathered into as few appends as they fit.
  uint64_t word = 0;
  uint32_t used = 0;
  auto gather = [&](uint64_t value, uint32_t bits) {
    if (used + bits > kWidestField) {
      Append<kInBounds>(&writer, word, used);
      word = 0;
      used = 0;
    }
    word |= value << used;
    used += bits;
  };
  if (s.colourFlag) gather(plan.colourFlag, kHeaderFlagBits);
  if (s.alphaFlag) gather(plan.alphaFlag, kHeaderFlagBits);
  for (uint32_t i = 0; i < plan.baseCount; ++i) gather(plan.base[i], plan.baseBits[i]);
  Append<kInBounds>(&writer, word, used);
  const uint32_t groupCodeBits = kCodeBits * lanes;
  if (kLanes != 0) {
    // Three or four lanes: the codes of four groups at a time.
    uint64_t words[kGroupsPerBlock / kCodeGroupsPerWord];
    k.packCodes(packs, kLanes, words);
    for (uint64_t codes : words)
      Append<kInBounds>(&writer, codes, kCodeGroupsPerWord * groupCodeBits);
  } else {
    // The codes of as many whole groups as fit one field at a time.
    word = 0;
    used = 0;
    for (uint32_t g = 0; g < kGroupsPerBlock; ++g) {
      if (used + groupCodeBits > kWidestField) {
        Append<kInBounds>(&writer, word, used);
        word = 0;
        used = 0;
      }
      for (uint32_t l = 0; l < lanes; ++l, used += kCodeBits) {
        word |= uint64_t{packs[l].code[g]} << used;
      }
    }
    Append<kInBounds>(&writer, word, used);
  }
  // Fields: all lanes of a group in one append when they fit one, else two
  // lanes to an append whenever both fit.
  alignas(32) uint64_t joined[kGroupsPerBlock];
  alignas(16) uint8_t joinedBits[kGroupsPerBlock];
  if constexpr (kLanes != 0) k.joinGroupFields(packs, kLanes, joined, joinedBits);
  for (uint32_t g = 0; g < kGroupsPerBlock; ++g) {
    if (kLanes != 0 && joinedBits[g] <= kWidestField) {
      Append<kInBounds>(&writer, joined[g], joinedBits[g]);
      continue;
    }
    uint32_t l = 0;
    for (; l + 1 < lanes; l += 2) {
      const uint32_t firstBits = packs[l].fieldBits[g];
      const uint32_t bothBits = firstBits + packs[l + 1].fieldBits[g];
      if (bothBits <= kWidestField) {
        Append<kInBounds>(&writer, packs[l].fields[g] | packs[l + 1].fields[g] << firstBits,
                          bothBits);
      } else {
        Append<kInBounds>(&writer, packs[l].fields[g], firstBits);
        Append<kInBounds>(&writer, packs[l + 1].fields[g], packs[l + 1].fieldBits[g]);
      }
    }
    if (l < lanes) Append<kInBounds>(&writer, packs[l].fields[g], packs[l].fieldBits[g]);
  }
}

void WritePlan(const TileShape& s, const LaneKernels& k, const StreamPlan& plan, uint8_t* output,
               size_t capacity) {
  LanePack packs[kMaxLanes];
  for (uint32_t l = 0; l < plan.laneCount; ++l) {
    const WriteLane& lane = plan.lanes[l];
    const uint32_t escaped = k.packLane(*lane.residues, lane.coding, &packs[l]);
    if (lane.rawGroups != 0) ForceEscapes(lane, &packs[l]);
    if (lane.rawSamples != nullptr) PackEscapedSamples(lane, escaped | lane.rawGroups, &packs[l]);
  }
  // Every store lands at or before the last byte of the stream.
  if (plan.bits / kByteBits + sizeof(uint64_t) > capacity) {
    WriteStream<false, 0>(s, k, plan, packs, output, capacity);
  } else if (plan.laneCount == kMaxComponents) {  // NV12 planes, RGBA8888
    WriteStream<true, kMaxComponents>(s, k, plan, packs, output, capacity);
  } else if (plan.laneCount == kColourComponents) {  // RGB565, RGBA8888 with constant alpha
    WriteStream<true, kColourComponents>(s, k, plan, packs, output, capacity);
  } else {
    WriteStream<true, 0>(s, k, plan, packs, output, capacity);
  }
}

}  // namespace

uint64_t EncodeTileStream(const TileShape& shape, const LaneKernels& kernels,
                          const TileComponents& tile, uint8_t* output, size_t capacity,
                          uint64_t* plannedBits) {
  if (LanesAreConstant(shape, tile)) {
    return WriteConstantStream(shape, tile, output, capacity, plannedBits);
  }
  return PlanTileStream(shape, kernels, tile, output, capacity, plannedBits);
}

uint64_t PlanTileStream(const TileShape& shape, const LaneKernels& kernels,
                        const TileComponents& tile, uint8_t* output, size_t capacity,
                        uint64_t* plannedBits) {
  PlanScratch scratch;
  StreamPlan plan;
  if (shape.rgb565) {
    PlanRgb565(shape, kernels, tile, &scratch, &plan);
  } else {
    PlanByteTile(shape, kernels, tile, &scratch, &plan);
  }
  *plannedBits = plan.bits;
  // Round up to whole units; keep the stream only when it is shorter than
  // the raw tile (a stream filling the raw size would read back as raw).
  const uint64_t unitBits = uint64_t{1} << shape.unitShift;
  const uint64_t units = (plan.bits + unitBits - 1) >> shape.unitShift;
  const uint64_t unitBytes = (units << shape.unitShift) / kByteBits;
  if ((units << shape.unitShift) >= shape.rawTileBits || unitBytes > capacity) return 0;
  // The stream's stores rewrite every byte from the first up to its end, so
  // only the rest of its last unit needs clearing first: one fixed-size
  // store run for the configured 64-byte units.
  constexpr uint64_t kUnitBytes = 64;
  const uint64_t lastUnitBytes = unitBits / kByteBits;
  if (lastUnitBytes == kUnitBytes) {
    std::memset(output + unitBytes - kUnitBytes, 0, kUnitBytes);
  } else {
    std::memset(output + unitBytes - lastUnitBytes, 0, lastUnitBytes);
  }
  WritePlan(shape, kernels, plan, output, capacity);
  return units;
}

}  // namespace pelcast
