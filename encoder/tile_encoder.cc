// The tile encoder: one tile in micro-block order to the shortest stored form
// the tile format allows.
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
//   them. Both settings of the flag are planned and the shorter kept. RGB565
//   clamps its 6-bit component to 5 bits, so the transform is only possible
//   when that component stays below 32 over the whole tile.
// * Constant alpha. When the last component is constant its 16 codes and all
//   its residuals disappear while its base stays, so the flag is always used
//   when it can be.
// * RGB565 without the transform: the components carry into each other when
//   packed; see rgb565_direct.cc, which also says where that plan stops short
//   of the format's optimum (escapes that only pay through the carries).
//
// Every plan is sized before anything is written; the stream is written only
// when it is shorter than the raw tile.
#include "encoder/tile_encoder.h"

#include <cstring>

#include "encoder/bit_writer.h"
#include "encoder/tile_plan.h"

namespace pelcast {
namespace {

constexpr uint32_t kByteBits = 8;
constexpr uint64_t kPackingRgb565 = 12;
constexpr uint64_t kPackingTwelveBit = 152;
constexpr uint64_t kAlphaComponent = 3;
constexpr uint32_t kInfeasibleBits = 1u << 30;
constexpr uint64_t kOutputBytes = 256;
constexpr uint64_t kMicroBlockSide = 4;
constexpr uint64_t kMicroBlockElements = 16;
constexpr int64_t kTileStored = 1;

// RGB565 packing: component 0 in bits 0-4, 1 in bits 5-10, 2 in bits 11-15.
constexpr uint32_t kRgb565Shift1 = 5;
constexpr uint32_t kRgb565Shift2 = 11;
constexpr uint32_t kRgb565Mask5 = 0x1f;
constexpr uint32_t kRgb565Mask6 = 0x3f;

enum BlockArrangement : uint64_t {
  kSingleBlock = 0,
  kSideBySide = 1,
  kStacked = 2,
  kTwoPerRow = 3,
  kSideBySideAlt = 4,
  kStackedAlt = 5,
};

bool ComponentShapeSupported(const ComponentCodecParams& c) {
  constexpr uint64_t kMaxCode = (uint64_t{1} << kCodeBits) - 1;
  return c.blockWidth == kBlockWidth && c.blockHeight == kBlockHeight &&
         c.groupsPerBlock == kGroupsPerBlock && c.codeBits == kCodeBits &&
         c.escapeCode <= kMaxCode && c.sampleBits >= 1 && c.sampleBits <= kByteBits;
}

// Whether the block arrangement tiles the plane with 16 x 4 blocks the way
// the decoder assembles them.
bool ArrangementSupported(const PlaneCodecParams& p) {
  const uint64_t blocks = p.blockCount;
  switch (p.blockArrangement) {
    case kSingleBlock:
      return blocks == 1 && p.tileWidth == kBlockWidth && p.tileHeight == kBlockHeight;
    case kSideBySide:
    case kSideBySideAlt:
      return p.tileWidth == kBlockWidth * blocks && p.tileHeight == kBlockHeight;
    case kStacked:
    case kStackedAlt:
      return p.tileWidth == kBlockWidth && p.tileHeight == kBlockHeight * blocks;
    case kTwoPerRow:
      return blocks == 4 && p.tileWidth == 2 * kBlockWidth && p.tileHeight == 2 * kBlockHeight;
    default:
      return false;
  }
}

bool PackingSupported(const PlaneCodecParams& p) {
  const uint64_t elementBytes = uint64_t{1} << p.log2BytesPerPixel;
  if (p.componentOrder != 0 || p.packingCode == kPackingTwelveBit) return false;
  if (p.packingCode == kPackingRgb565) {
    return p.componentCount == 3 && elementBytes == 2 && p.components[0].sampleBits == 5 &&
           p.components[1].sampleBits == 6 && p.components[2].sampleBits == 5;
  }
  for (uint64_t c = 0; c < p.componentCount; ++c) {
    if (p.components[c].sampleBits != kByteBits) return false;
  }
  return elementBytes == p.componentCount && p.tileRowBytes == elementBytes * p.tileWidth;
}

// Planes the encoder can compress; any other plane is stored raw, which the
// decoder always reproduces.
bool PlaneSupported(const PlaneCodecParams& p) {
  if (p.groupSize != kGroupSize || p.predictor != 0 || p.repeatCodes != 0) return false;
  if (p.log2BytesPerPixel > 2 || p.unitShift == 0 || p.unitShift > 16) return false;
  const uint64_t elementBytes = uint64_t{1} << p.log2BytesPerPixel;
  if (p.rawTileBits != kByteBits * elementBytes * p.tileWidth * p.tileHeight) return false;
  if (p.rawTileBits / kByteBits > kOutputBytes) return false;
  for (uint64_t c = 0; c < p.componentCount; ++c) {
    if (!ComponentShapeSupported(p.components[c])) return false;
  }
  return ArrangementSupported(p) && PackingSupported(p);
}

// Block and position within the block of tile sample (x, y).
void PlaceInBlock(const PlaneCodecParams& p, uint64_t x, uint64_t y, uint64_t* block,
                  uint64_t* at) {
  uint64_t b = 0;
  switch (p.blockArrangement) {
    case kSideBySide:
    case kSideBySideAlt:
      b = x / kBlockWidth;
      break;
    case kStacked:
    case kStackedAlt:
      b = y / kBlockHeight;
      break;
    case kTwoPerRow:
      b = 2 * (y / kBlockHeight) + x / kBlockWidth;
      break;
    default:
      break;
  }
  *block = b;
  *at = (y % kBlockHeight) * kBlockWidth + x % kBlockWidth;
}

// Cuts the tile (micro-block order) into component blocks.
void SplitTile(const PlaneCodecParams& p, const uint8_t* ordered, TileSamples* tile) {
  const uint64_t elementBytes = uint64_t{1} << p.log2BytesPerPixel;
  const uint64_t microPerRow = p.tileWidth / kMicroBlockSide;
  const uint64_t elements = p.tileWidth * p.tileHeight;
  for (uint64_t k = 0; k < elements; ++k) {
    const uint64_t micro = k / kMicroBlockElements;
    const uint64_t t = k % kMicroBlockElements;
    const uint64_t x = kMicroBlockSide * (micro % microPerRow) + (t & 1) + ((t >> 2) & 1) * 2;
    const uint64_t y = kMicroBlockSide * (micro / microPerRow) + ((t >> 1) & 1) + ((t >> 3) & 1) * 2;
    uint64_t block = 0;
    uint64_t at = 0;
    PlaceInBlock(p, x, y, &block, &at);
    const uint8_t* element = ordered + k * elementBytes;
    if (p.packingCode == kPackingRgb565) {
      const uint32_t v = element[0] | uint32_t{element[1]} << kByteBits;
      tile->samples[block][0][at] = static_cast<int32_t>(v & kRgb565Mask5);
      tile->samples[block][1][at] = static_cast<int32_t>((v >> kRgb565Shift1) & kRgb565Mask6);
      tile->samples[block][2][at] = static_cast<int32_t>(v >> kRgb565Shift2);
    } else {
      for (uint64_t c = 0; c < p.componentCount; ++c) tile->samples[block][c][at] = element[c];
    }
  }
}

// How a component's samples must come out of the decoder.
struct ComponentRule {
  uint32_t wrapBits;   // non-zero: only the low wrapBits bits of a sample are kept
  uint32_t codedBits;  // width of the base and of escaped samples
  uint32_t escapeCode;
};

// Plans one component of one block: base = first sample, then per group the
// smallest code whose width holds the group's zig-zag residuals, or the escape
// with raw samples. Returns the bits of its codes and fields (not its base).
uint32_t PlanComponent(const int32_t* samples, const ComponentRule& rule, ComponentStream* out) {
  int32_t residual[kBlockSamples];
  const int32_t base = samples[0];
  for (int y = 0; y < kBlockHeight; ++y) {
    for (int x = 0; x < kBlockWidth; ++x) {
      const int at = y * kBlockWidth + x;
      const int32_t r = samples[at] - GradientPrediction(samples, x, y, base);
      residual[at] = rule.wrapBits != 0 ? Balanced(r, rule.wrapBits) : r;
    }
  }
  out->base = static_cast<uint32_t>(base);
  uint32_t bits = 0;
  const uint32_t rawLimit = uint32_t{1} << rule.codedBits;
  for (int g = 0; g < kGroupsPerBlock; ++g) {
    const int first = g * kGroupSize;
    uint32_t widest = 0;
    for (int i = 0; i < kGroupSize; ++i) widest |= ZigZag(residual[first + i]);
    const uint32_t width = BitWidth(widest);
    if (width < rule.escapeCode) {
      out->codes[g] = static_cast<uint8_t>(width);
      for (int i = 0; i < kGroupSize; ++i) out->fields[first + i] = ZigZag(residual[first + i]);
      bits += GroupBits(width);
      continue;
    }
    out->codes[g] = static_cast<uint8_t>(rule.escapeCode);
    for (int i = 0; i < kGroupSize; ++i) {
      const int32_t raw = rule.wrapBits != 0 ? samples[first + i] & ((1 << rule.wrapBits) - 1)
                                             : samples[first + i];
      if (raw < 0 || static_cast<uint32_t>(raw) >= rawLimit) return kInfeasibleBits;
      out->fields[first + i] = static_cast<uint32_t>(raw);
    }
    bits += GroupBits(rule.codedBits);
  }
  return bits;
}

// Forward colour transform of components 0-2 of one block, in place: luma,
// then the first-minus-third and second-minus-average differences offset by
// 2^n. The decoder's inverse reproduces the input exactly when every input
// sample is below 2^n. Returns false when one is not.
bool ForwardColourTransform(int32_t* c0, int32_t* c1, int32_t* c2, uint32_t n) {
  const int32_t limit = int32_t{1} << n;
  for (int i = 0; i < kBlockSamples; ++i) {
    if (c0[i] >= limit || c1[i] >= limit || c2[i] >= limit) return false;
    const int32_t co = c0[i] - c2[i];
    const int32_t t = c2[i] + (co >> 1);
    const int32_t cg = c1[i] - t;
    c0[i] = t + (cg >> 1);
    c1[i] = co + limit;
    c2[i] = cg + limit;
  }
  return true;
}

bool ConstantLastComponent(const PlaneCodecParams& p, const TileSamples& tile) {
  if (p.hasAlphaFlag == 0 || p.componentCount != kMaxComponents) return false;
  const int32_t value = tile.samples[0][kAlphaComponent][0];
  for (uint64_t b = 0; b < p.blockCount; ++b) {
    for (int i = 0; i < kBlockSamples; ++i) {
      if (tile.samples[b][kAlphaComponent][i] != value) return false;
    }
  }
  return true;
}

uint32_t HeaderBits(const PlaneCodecParams& p) {
  return (p.hasColourFlag != 0 ? kHeaderFlagBits : 0) + (p.hasAlphaFlag != 0 ? kHeaderFlagBits : 0);
}

// Plans the tile with the colour flag given; the result's bits are
// kInfeasibleBits or more when that flag cannot reproduce the tile.
uint32_t PlanWithFlag(const PlaneCodecParams& p, const TileSamples& input, bool colour,
                      TilePlan* plan) {
  TileSamples work = input;
  plan->colourFlag = colour ? 1 : 0;
  plan->alphaFlag = ConstantLastComponent(p, input) ? 1 : 0;
  plan->codedComponents = static_cast<uint32_t>(p.componentCount) - plan->alphaFlag;
  for (uint64_t c = 0; c < p.componentCount; ++c) {
    const ComponentCodecParams& cp = p.components[c];
    const bool widened = colour && (c == 1 || c == 2);
    plan->codedBits[c] = static_cast<uint32_t>(cp.sampleBits) + (widened ? 1 : 0);
    plan->escapeCode[c] = static_cast<uint32_t>(cp.escapeCode);
  }
  if (colour) {
    const uint32_t n = static_cast<uint32_t>(p.components[0].sampleBits);
    if (!ForwardColourTransform(work.samples[0][0], work.samples[0][1], work.samples[0][2], n)) {
      return plan->bits = kInfeasibleBits;
    }
  }
  uint32_t bits = HeaderBits(p);
  for (uint64_t b = 0; b < p.blockCount; ++b) {
    for (uint64_t c = 0; c < p.componentCount; ++c) {
      bits += plan->codedBits[c];
      ComponentStream& stream = plan->streams[b][c];
      if (c >= plan->codedComponents) {  // the constant component: its base only
        stream.base = static_cast<uint32_t>(input.samples[0][c][0]);
        continue;
      }
      // Transformed components must come out exact; byte-packed ones only
      // modulo 256.
      const bool exact = colour && c < 3;
      const ComponentRule rule{exact ? 0 : kByteBits, plan->codedBits[c], plan->escapeCode[c]};
      bits += PlanComponent(work.samples[b][c], rule, &stream);
    }
  }
  return plan->bits = bits < kInfeasibleBits ? bits : kInfeasibleBits;
}

// Writes a plan: flags, base values, the codes of group g of every block and
// component, then their fields in the same interleaving.
void WritePlan(const PlaneCodecParams& p, const TilePlan& plan, uint8_t* output) {
  TileBitWriter writer = MakeTileBitWriter(output, kOutputBytes);
  if (p.hasColourFlag != 0) WriteBits(&writer, plan.colourFlag, kHeaderFlagBits);
  if (p.hasAlphaFlag != 0) WriteBits(&writer, plan.alphaFlag, kHeaderFlagBits);
  for (uint64_t b = 0; b < p.blockCount; ++b) {
    for (uint64_t c = 0; c < p.componentCount; ++c) {
      WriteBits(&writer, plan.streams[b][c].base, plan.codedBits[c]);
    }
  }
  for (int g = 0; g < kGroupsPerBlock; ++g) {
    for (uint64_t b = 0; b < p.blockCount; ++b) {
      for (uint32_t c = 0; c < plan.codedComponents; ++c) {
        WriteBits(&writer, plan.streams[b][c].codes[g], kCodeBits);
      }
    }
  }
  for (int g = 0; g < kGroupsPerBlock; ++g) {
    for (uint64_t b = 0; b < p.blockCount; ++b) {
      for (uint32_t c = 0; c < plan.codedComponents; ++c) {
        const ComponentStream& stream = plan.streams[b][c];
        const uint32_t code = stream.codes[g];
        const uint32_t width = code < plan.escapeCode[c] ? code : plan.codedBits[c];
        for (int i = 0; i < kGroupSize; ++i) {
          WriteBits(&writer, stream.fields[g * kGroupSize + i], width);
        }
      }
    }
  }
  FlushBits(&writer);
}

// The shortest plan of the tile.
void PlanTile(const PlaneCodecParams& p, const TileSamples& tile, TilePlan* best,
              TilePlan* scratch) {
  const bool colourPossible = p.hasColourFlag != 0 && p.blockArrangement == kSingleBlock &&
                              p.componentCount >= 3;
  if (p.packingCode == kPackingRgb565) {
    PlanRgb565Direct(tile, best);
  } else {
    PlanWithFlag(p, tile, false, best);
  }
  if (colourPossible && PlanWithFlag(p, tile, true, scratch) < best->bits) *best = *scratch;
}

// The plane parameters selected by the context, or null for counts the
// codec does not handle.
const PlaneCodecParams* SelectPlane(const ZpakContext& context) {
  const PlaneCodecParams& p = context.planes[context.planeIndex != 0 ? 1 : 0];
  if (p.componentCount > kMaxComponents || p.blockCount > kMaxBlocks) return nullptr;
  return &p;
}

// Plans the tile when the plane is one the encoder compresses.
bool PlanOrderedTile(const PlaneCodecParams& p, const uint8_t* ordered, TilePlan* best) {
  if (!PlaneSupported(p) || p.componentCount == 0 || p.blockCount == 0) return false;
  TilePlan scratch;
  TileSamples tile;
  SplitTile(p, ordered, &tile);
  PlanTile(p, tile, best, &scratch);
  return true;
}

}  // namespace

int64_t EncodeZpakTile(ZpakContext* context, const uint8_t* ordered, uint8_t* output,
                       uint64_t* unitCount) {
  if (context == nullptr || ordered == nullptr || output == nullptr || unitCount == nullptr) {
    return 0;
  }
  const PlaneCodecParams* plane = SelectPlane(*context);
  if (plane == nullptr) return 0;
  const PlaneCodecParams& p = *plane;
  std::memset(output, 0, kOutputBytes);
  TilePlan best;
  if (PlanOrderedTile(p, ordered, &best)) {
    // Round up to whole units; keep the stream only when it is shorter than
    // the raw tile (a stream filling the raw size would read back as raw).
    const uint64_t unitBits = uint64_t{1} << p.unitShift;
    const uint64_t units = (best.bits + unitBits - 1) >> p.unitShift;
    if ((units << p.unitShift) < p.rawTileBits) {
      WritePlan(p, best, output);
      *unitCount = units;
      return kTileStored;
    }
  }
  // Raw fallback: the tile as given, already in micro-block order.
  const uint64_t rawBytes = p.rawTileBits / kByteBits;
  std::memcpy(output, ordered, rawBytes < kOutputBytes ? rawBytes : kOutputBytes);
  constexpr uint64_t kWidestShift = 63;
  *unitCount = (rawBytes * kByteBits) >> (p.unitShift < kWidestShift ? p.unitShift : kWidestShift);
  return kTileStored;
}

uint64_t PlannedTileBits(ZpakContext* context, const uint8_t* ordered) {
  if (context == nullptr || ordered == nullptr) return 0;
  const PlaneCodecParams* plane = SelectPlane(*context);
  TilePlan best;
  if (plane == nullptr || !PlanOrderedTile(*plane, ordered, &best)) return 0;
  return best.bits;
}

}  // namespace pelcast
