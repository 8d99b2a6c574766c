#include "decoder/tile_decoder.h"

#include <algorithm>
#include <cstring>

#include "decoder/bit_reader.h"
#include "decoder/micro_block.h"
#include "decoder/tile_decoder_steps.h"
#include "surface/tile_format.h"

namespace pelcast {
namespace {

// Block arrangements: where block b lies in the component plane.
constexpr uint64_t kArrangementSingle = 0;
constexpr uint64_t kArrangementSideBySide = 1;
constexpr uint64_t kArrangementStacked = 2;
constexpr uint64_t kArrangementTwoPerRow = 3;
constexpr uint64_t kArrangementSideBySideAlt = 4;
constexpr uint64_t kArrangementStackedAlt = 5;

// Packing codes.
constexpr uint64_t kPackRgb565 = 12;
constexpr uint64_t kPackTwelveBitPair = 152;
constexpr uint64_t kRgb565GreenShift = 5;
constexpr uint64_t kRgb565RedShift = 11;
constexpr uint64_t kTwelveBitPairBytes = 3;
constexpr uint64_t kLowNibble = 0xF;
constexpr uint64_t kNibbleBits = 4;

// Predictors.
constexpr uint64_t kPredictGradient = 0;
constexpr uint64_t kPredictMedian = 1;
constexpr uint64_t kPredictLeft = 2;

constexpr uint64_t kMaxElementLog2 = 3;  // elements of 1, 2, 4 or 8 bytes
constexpr uint64_t kMaxGroupShift = 8;   // groups of up to 256 samples
constexpr uint64_t kBitsPerByte = 8;


// Output layouts of the final reorder, by context format and plane.
struct OutputLayout {
  uint64_t elementBytes;
  uint64_t rowElements;
  uint64_t rows;
};

constexpr OutputLayout kLumaLayout{1, 32, 8};
constexpr OutputLayout kChromaLayout{2, 16, 8};
constexpr OutputLayout kFourByteLayout{4, 16, 4};
constexpr OutputLayout kTwoByteWideLayout{2, 32, 4};
constexpr OutputLayout kRgb565Layout{2, 16, 4};

// Null for a format (or NV12 plane) without an output layout.
const OutputLayout* FindOutputLayout(uint64_t contextFormat, uint64_t planeIndex) {
  switch (contextFormat) {
    case kContextNv12:
      if (planeIndex == 0) return &kLumaLayout;
      if (planeIndex == 1) return &kChromaLayout;
      return nullptr;
    case 0:
    case 5:
    case 6:
    case 8:
    case 9:
      return &kFourByteLayout;
    case 3:
      return &kTwoByteWideLayout;
    case kContextRgb565:
      return &kRgb565Layout;
    default:
      return nullptr;
  }
}

uint64_t PackedPixelBytes(const PlaneCodecParams& plane) {
  if (plane.packingCode == kPackRgb565) return 2;
  if (plane.packingCode == kPackTwelveBitPair) return kTwelveBitPairBytes;
  return plane.componentCount;
}

uint64_t ComponentsPacked(const PlaneCodecParams& plane) {
  if (plane.packingCode == kPackRgb565) return 3;
  if (plane.packingCode == kPackTwelveBitPair) return 2;
  return plane.componentCount;
}

// Blocks of this component tile its plane exactly under the arrangement.
bool BlocksCoverPlane(const PlaneCodecParams& plane, const ComponentCodecParams& c) {
  const uint64_t blocks = plane.blockCount;
  switch (plane.blockArrangement) {
    case kArrangementSingle:
      return c.blockWidth == c.planeWidth && c.blockHeight == c.planeHeight;
    case kArrangementSideBySide:
    case kArrangementSideBySideAlt:
      return blocks * c.blockWidth == c.planeWidth && c.blockHeight == c.planeHeight;
    case kArrangementStacked:
    case kArrangementStackedAlt:
      return c.blockWidth == c.planeWidth && blocks * c.blockHeight == c.planeHeight;
    case kArrangementTwoPerRow:
      return blocks % 2 == 0 && 2 * c.blockWidth == c.planeWidth &&
             (blocks / 2) * c.blockHeight == c.planeHeight;
    default:
      return false;
  }
}

bool ComponentShapeIsSupported(const PlaneCodecParams& plane, const ComponentCodecParams& c) {
  const uint64_t blockSamples = c.blockWidth * c.blockHeight;
  const uint64_t groupSize = plane.groupSize;
  return c.blockWidth <= kMaxBlockSamples && c.blockHeight <= kMaxBlockSamples &&
         blockSamples <= kMaxBlockSamples && c.groupsPerBlock <= kMaxGroups &&
         c.groupsPerBlock * groupSize == blockSamples && c.blockWidth % groupSize == 0 &&
         c.sampleBits <= kMaxSampleBits && c.codeBits <= kMaxCodeBits &&
         c.planeWidth == plane.tileWidth && c.planeHeight == plane.tileHeight &&
         BlocksCoverPlane(plane, c);
}

// Component plane origin of block `block` under the plane's arrangement.
void BlockOrigin(const PlaneCodecParams& plane, const ComponentCodecParams& c, uint64_t block,
                 uint64_t* x, uint64_t* y) {
  *x = 0;
  *y = 0;
  switch (plane.blockArrangement) {
    case kArrangementSideBySide:
    case kArrangementSideBySideAlt:
      *x = c.blockWidth * block;
      break;
    case kArrangementStacked:
    case kArrangementStackedAlt:
      *y = c.blockHeight * block;
      break;
    case kArrangementTwoPerRow:
      *x = c.blockWidth * (block % 2);
      *y = c.blockHeight * (block / 2);
      break;
    default:
      break;
  }
}

// Signed difference of a zig-zag residual: 0, 1, 2, 3, 4 give 0, -1, 1, -2, 2.
inline uint64_t ZigZagDifference(uint32_t residual) {
  return static_cast<uint64_t>(residual >> 1) ^ (0 - static_cast<uint64_t>(residual & 1));
}

// Sample arithmetic wraps like two's complement 64-bit integers; the values
// are read as signed wherever their sign matters.
template <uint64_t kPredictor>
inline uint64_t Predict(uint64_t left, uint64_t above, uint64_t aboveLeft) {
  if constexpr (kPredictor == kPredictLeft) {
    return left;
  } else {
    if constexpr (kPredictor == kPredictMedian) {
      const int64_t a = static_cast<int64_t>(left);
      const int64_t b = static_cast<int64_t>(above);
      const int64_t c = static_cast<int64_t>(aboveLeft);
      if (c >= std::max(a, b)) return static_cast<uint64_t>(std::min(a, b));
      if (c <= std::min(a, b)) return static_cast<uint64_t>(std::max(a, b));
    }
    return left + above - aboveLeft;
  }
}

// Reads the `count` residuals of one group, `width` bits each; a group that
// fits one bit window is read with a single load.
void ReadGroupResiduals(TileBitReader* reader, uint32_t width, uint64_t count, uint32_t* out) {
  if (width == 0) {
    std::fill_n(out, count, 0);
    return;
  }
  if (width * count > kWindowBits) {
    for (uint64_t i = 0; i < count; ++i) out[i] = ReadBits(reader, width);
    return;
  }
  const uint64_t window = PeekBits(*reader);
  SkipBits(reader, width * count);
  for (uint64_t i = 0; i < count; ++i)
    out[i] = static_cast<uint32_t>(LowBits(window >> (i * width), width));
}

int64_t ClampSample(uint64_t value, int64_t maximum) {
  return std::clamp<int64_t>(static_cast<int64_t>(value), 0, maximum);
}

// The reversible transform's inverse: s0 is luma, s1 and s2 the two
// differences stored offset by 2^N. Results are clamped to N bits, the
// 6-bit RGB565 green included.
void InverseColourTransform(uint64_t sampleBits, uint64_t count, ComponentPlanes* planes) {
  const uint64_t offset = uint64_t{1} << sampleBits;
  const int64_t maximum = static_cast<int64_t>(offset) - 1;
  int64_t* s0 = planes->samples[0];
  int64_t* s1 = planes->samples[1];
  int64_t* s2 = planes->samples[2];
  for (uint64_t i = 0; i < count; ++i) {
    const uint64_t co = static_cast<uint64_t>(s1[i]) - offset;
    const uint64_t cg = static_cast<uint64_t>(s2[i]) - offset;
    const uint64_t halfCo = static_cast<uint64_t>(static_cast<int64_t>(co) >> 1);
    const uint64_t halfCg = static_cast<uint64_t>(static_cast<int64_t>(cg) >> 1);
    const uint64_t t = static_cast<uint64_t>(s0[i]) - halfCg;
    const uint64_t third = t - halfCo;
    const uint64_t second = t + cg;
    const uint64_t first = third + co;
    s0[i] = ClampSample(first, maximum);
    s1[i] = ClampSample(second, maximum);
    s2[i] = ClampSample(third, maximum);
  }
}

void CopyRawTile(const PlaneCodecParams& plane, const uint8_t* stored, uint8_t* staging) {
  const uint64_t rawBytes = std::min<uint64_t>(plane.rawTileBits / kBitsPerByte, kSlotBytes);
  std::memcpy(staging, stored, rawBytes);
}

// Stored tile length in bits: units shifted by unitShift, wrapping like a
// signed 64-bit shift.
int64_t TileBitsOf(int64_t units, uint64_t unitShift) {
  constexpr uint64_t kWordBits = 64;
  if (unitShift >= kWordBits) return 0;
  return static_cast<int64_t>(static_cast<uint64_t>(units) << unitShift);
}

// Reads the bit-length codes of group `g` of every block and coded
// component, from one bit window when they fit in it.
void ReadGroupCodes(const PlaneCodecParams& plane, uint64_t g, uint64_t coded,
                    TileBitReader* reader, TileSyntax* syntax) {
  uint64_t total = 0;
  for (uint64_t c = 0; c < coded; ++c) {
    if (g < plane.components[c].groupsPerBlock) total += plane.components[c].codeBits;
  }
  total *= plane.blockCount;
  const bool oneWindow = total <= kWindowBits;
  uint64_t window = oneWindow ? PeekBits(*reader) : 0;
  for (uint64_t b = 0; b < plane.blockCount; ++b) {
    for (uint64_t c = 0; c < coded; ++c) {
      const ComponentCodecParams& component = plane.components[c];
      if (g >= component.groupsPerBlock) continue;
      const auto bits = static_cast<uint32_t>(component.codeBits);
      if (oneWindow) {
        syntax->codes[b][c][g] = static_cast<uint8_t>(LowBits(window, bits));
        window >>= bits;
      } else {
        syntax->codes[b][c][g] = static_cast<uint8_t>(ReadBits(reader, bits));
      }
    }
  }
  if (oneWindow) SkipBits(reader, total);
}

}  // namespace

bool PlaneShapeIsSupported(const PlaneCodecParams& plane) {
  const uint64_t components = plane.componentCount;
  if (components > kMaxComponents || plane.blockCount > kMaxBlocks) return false;
  if (components > 0 && plane.blockCount == 0) return false;
  if (plane.hasAlphaFlag != 0 && components == 0) return false;
  if (plane.groupSize == 0 || plane.groupShift > kMaxGroupShift ||
      plane.groupSize != uint64_t{1} << plane.groupShift) {
    return false;
  }
  for (uint64_t c = 0; c < components; ++c) {
    if (!ComponentShapeIsSupported(plane, plane.components[c])) return false;
  }
  // Packing must write every byte of every row and read only decoded planes.
  if (ComponentsPacked(plane) > components) return false;
  if (plane.tileWidth * PackedPixelBytes(plane) != plane.tileRowBytes) return false;
  if (plane.tileHeight > kSlotBytes || plane.tileRowBytes > kSlotBytes ||
      plane.tileRowBytes * plane.tileHeight > kSlotBytes) {
    return false;
  }
  // Staging cuts the packed tile into whole micro-blocks of whole elements.
  if (plane.log2BytesPerPixel > kMaxElementLog2) return false;
  const uint64_t rowElements = plane.tileRowBytes >> plane.log2BytesPerPixel;
  return rowElements << plane.log2BytesPerPixel == plane.tileRowBytes &&
         rowElements % kMicroBlockSide == 0 && plane.tileHeight % kMicroBlockSide == 0;
}

void ParseTileBitstream(const PlaneCodecParams& plane, TileBitReader* reader, TileSyntax* syntax) {
  syntax->colourFlag = plane.hasColourFlag != 0 ? ReadBits(reader, 1) : 0;
  syntax->constantFlag = plane.hasAlphaFlag != 0 ? ReadBits(reader, 1) : 0;
  const uint64_t components = plane.componentCount;
  const uint64_t blocks = plane.blockCount;
  const uint64_t coded = components - syntax->constantFlag;
  syntax->codedComponents = static_cast<uint32_t>(coded);
  uint64_t groups = 0;
  for (uint64_t c = 0; c < components; ++c) {
    const ComponentCodecParams& component = plane.components[c];
    // The colour transform's two differences carry one more bit.
    const bool difference = syntax->colourFlag != 0 && (c == 1 || c == 2);
    syntax->codedBits[c] = static_cast<uint32_t>(component.sampleBits + (difference ? 1 : 0));
    if (c < coded) groups = std::max(groups, component.groupsPerBlock);
  }

  for (uint64_t b = 0; b < blocks; ++b) {
    for (uint64_t c = 0; c < components; ++c)
      syntax->base[b][c] = ReadBits(reader, syntax->codedBits[c]);
  }

  uint8_t previous[kMaxComponents] = {};
  for (uint64_t g = 0; g < groups; ++g) {
    if (plane.repeatCodes == 0) {
      ReadGroupCodes(plane, g, coded, reader, syntax);
      continue;
    }
    for (uint64_t b = 0; b < blocks; ++b) {
      for (uint64_t c = 0; c < coded; ++c) {
        const ComponentCodecParams& component = plane.components[c];
        if (g >= component.groupsPerBlock) continue;
        // A set bit repeats the component's previous code instead of a new one.
        const uint8_t code =
            ReadBits(reader, 1) != 0
                ? previous[c]
                : static_cast<uint8_t>(ReadBits(reader, static_cast<uint32_t>(component.codeBits)));
        previous[c] = code;
        syntax->codes[b][c][g] = code;
      }
    }
  }

  const uint64_t groupSize = plane.groupSize;
  for (uint64_t g = 0; g < groups; ++g) {
    for (uint64_t b = 0; b < blocks; ++b) {
      for (uint64_t c = 0; c < coded; ++c) {
        const ComponentCodecParams& component = plane.components[c];
        if (g >= component.groupsPerBlock) continue;
        // Codes at or above the escape code carry full-width residuals.
        const uint8_t code = syntax->codes[b][c][g];
        const uint32_t width = code < component.escapeCode ? code : syntax->codedBits[c];
        ReadGroupResiduals(reader, width, groupSize, syntax->residuals[b][c] + g * groupSize);
      }
    }
  }
}

namespace {

template <uint64_t kPredictor>
void ReconstructRows(const PlaneCodecParams& plane, const ComponentCodecParams& component,
                     uint32_t base, const uint8_t* codes, const uint32_t* residuals, int64_t* out,
                     uint64_t pitch) {
  const uint64_t width = component.blockWidth;
  const uint64_t groupSize = plane.groupSize;
  const uint64_t groupsPerRow = width >> plane.groupShift;
  const uint64_t b = base;
  // The row above the first one, and the column left of every row, are an
  // imaginary line of base values.
  int64_t baseRow[kMaxBlockSamples];
  std::fill_n(baseRow, width, static_cast<int64_t>(b));
  for (uint64_t y = 0; y < component.blockHeight; ++y) {
    int64_t* row = out + y * pitch;
    const int64_t* above = y > 0 ? row - pitch : baseRow;
    uint64_t left = b;
    uint64_t aboveLeft = b;
    for (uint64_t group = 0; group < groupsPerRow; ++group) {
      const uint64_t x0 = group * groupSize;
      const uint32_t* groupResiduals = residuals + y * width + x0;
      // Only the escape code itself means raw samples; codes above it are
      // predicted like any other.
      if (codes[y * groupsPerRow + group] == component.escapeCode) {
        for (uint64_t i = 0; i < groupSize; ++i) row[x0 + i] = groupResiduals[i];
        left = groupResiduals[groupSize - 1];
        aboveLeft = static_cast<uint64_t>(above[x0 + groupSize - 1]);
        continue;
      }
      for (uint64_t i = 0; i < groupSize; ++i) {
        const auto up = static_cast<uint64_t>(above[x0 + i]);
        const uint64_t sample =
            Predict<kPredictor>(left, up, aboveLeft) + ZigZagDifference(groupResiduals[i]);
        row[x0 + i] = static_cast<int64_t>(sample);
        left = sample;
        aboveLeft = up;
      }
    }
  }
}

}  // namespace

void ReconstructBlock(const PlaneCodecParams& plane, const ComponentCodecParams& component,
                      uint32_t base, const uint8_t* codes, const uint32_t* residuals, int64_t* out,
                      uint64_t pitch) {
  switch (plane.predictor) {
    case kPredictMedian:
      ReconstructRows<kPredictMedian>(plane, component, base, codes, residuals, out, pitch);
      break;
    case kPredictLeft:
      ReconstructRows<kPredictLeft>(plane, component, base, codes, residuals, out, pitch);
      break;
    default:  // the gradient, also for predictor codes without a meaning of their own
      ReconstructRows<kPredictGradient>(plane, component, base, codes, residuals, out, pitch);
      break;
  }
}

void AssembleBlocks(const PlaneCodecParams& plane, const TileSyntax& syntax,
                    ComponentPlanes* planes) {
  // A single-block plane is block 0; any further blocks have nowhere to go.
  const uint64_t blocks = plane.blockArrangement == kArrangementSingle
                              ? std::min<uint64_t>(plane.blockCount, 1)
                              : plane.blockCount;
  for (uint64_t b = 0; b < blocks; ++b) {
    for (uint64_t c = 0; c < syntax.codedComponents; ++c) {
      const ComponentCodecParams& component = plane.components[c];
      uint64_t x = 0;
      uint64_t y = 0;
      BlockOrigin(plane, component, b, &x, &y);
      int64_t* out = planes->samples[c] + y * component.planeWidth + x;
      ReconstructBlock(plane, component, syntax.base[b][c], syntax.codes[b][c],
                       syntax.residuals[b][c], out, component.planeWidth);
    }
  }
  const uint64_t count = plane.tileWidth * plane.tileHeight;
  if (syntax.constantFlag != 0) {
    const uint64_t last = plane.componentCount - 1;
    std::fill_n(planes->samples[last], count, static_cast<int64_t>(syntax.base[0][last]));
  }
  if (plane.blockArrangement == kArrangementSingle && syntax.colourFlag != 0 &&
      plane.componentCount >= 3) {
    InverseColourTransform(plane.components[0].sampleBits, count, planes);
  }
}

namespace {

// RGB565: the literal sum c0 + 32 c1 + 2048 c2 kept to 16 bits, so a field
// out of range carries into the next one.
void PackRgb565(const PlaneCodecParams& plane, const ComponentPlanes& planes, uint8_t* packed) {
  const bool swapped = plane.componentOrder < 0;
  const int64_t* first = planes.samples[swapped ? 2 : 0];
  const int64_t* middle = planes.samples[1];
  const int64_t* last = planes.samples[swapped ? 0 : 2];
  for (uint64_t y = 0; y < plane.tileHeight; ++y) {
    uint8_t* row = packed + y * plane.tileRowBytes;
    for (uint64_t x = 0; x < plane.tileWidth; ++x) {
      const uint64_t i = y * plane.tileWidth + x;
      const uint64_t value = static_cast<uint64_t>(first[i]) +
                             (static_cast<uint64_t>(middle[i]) << kRgb565GreenShift) +
                             (static_cast<uint64_t>(last[i]) << kRgb565RedShift);
      row[2 * x] = static_cast<uint8_t>(value);
      row[2 * x + 1] = static_cast<uint8_t>(value >> kBitsPerByte);
    }
  }
}

// Two 12-bit components in three bytes: both high bytes, then both low nibbles.
void PackTwelveBitPairs(const PlaneCodecParams& plane, const ComponentPlanes& planes,
                        uint8_t* packed) {
  for (uint64_t y = 0; y < plane.tileHeight; ++y) {
    uint8_t* row = packed + y * plane.tileRowBytes;
    for (uint64_t x = 0; x < plane.tileWidth; ++x) {
      const uint64_t i = y * plane.tileWidth + x;
      const uint64_t c0 = static_cast<uint64_t>(planes.samples[0][i]);
      const uint64_t c1 = static_cast<uint64_t>(planes.samples[1][i]);
      uint8_t* pixel = row + kTwelveBitPairBytes * x;
      pixel[0] = static_cast<uint8_t>(c0 >> kNibbleBits);
      pixel[1] = static_cast<uint8_t>(c1 >> kNibbleBits);
      pixel[2] = static_cast<uint8_t>((c0 & kLowNibble) + ((c1 & kLowNibble) << kNibbleBits));
    }
  }
}

// One byte per component, the low 8 bits of its sample, in component order.
void PackBytes(const PlaneCodecParams& plane, const ComponentPlanes& planes, uint8_t* packed) {
  const uint64_t components = plane.componentCount;
  for (uint64_t c = 0; c < components; ++c) {
    const int64_t* samples = planes.samples[c];
    for (uint64_t y = 0; y < plane.tileHeight; ++y) {
      uint8_t* out = packed + y * plane.tileRowBytes + c;
      const int64_t* in = samples + y * plane.tileWidth;
      for (uint64_t x = 0; x < plane.tileWidth; ++x)
        out[x * components] = static_cast<uint8_t>(in[x]);
    }
  }
}

}  // namespace

void PackSamples(const PlaneCodecParams& plane, const ComponentPlanes& planes, uint8_t* packed) {
  if (plane.packingCode == kPackRgb565) {
    PackRgb565(plane, planes, packed);
  } else if (plane.packingCode == kPackTwelveBitPair) {
    PackTwelveBitPairs(plane, planes, packed);
  } else {
    PackBytes(plane, planes, packed);
  }
}

int64_t DecodeTileCore(ZpakContext* context, const uint8_t* stored, int64_t tileBits,
                       uint8_t* staging) {
  if (context == nullptr || stored == nullptr || staging == nullptr) return 0;
  if (context->planeIndex >= kPlaneSets) return 0;
  const PlaneCodecParams& plane = context->planes[context->planeIndex];
  if (plane.componentCount > kMaxComponents || plane.blockCount > kMaxBlocks) return 0;
  if (static_cast<uint64_t>(tileBits) == plane.rawTileBits) {
    CopyRawTile(plane, stored, staging);
    return 1;
  }
  if (!PlaneShapeIsSupported(plane)) return 0;

  TileBitReader reader;
  StartTileBitReader(&reader, stored);
  TileSyntax syntax;
  ParseTileBitstream(plane, &reader, &syntax);
  ComponentPlanes planes;
  AssembleBlocks(plane, syntax, &planes);
  uint8_t packed[kSlotBytes];
  PackSamples(plane, planes, packed);
  ReorderMicroBlocks(packed, staging, uint64_t{1} << plane.log2BytesPerPixel,
                     plane.tileRowBytes >> plane.log2BytesPerPixel, plane.tileHeight,
                     MicroBlockDirection::kToMicroBlocks);
  return 1;
}

int64_t DecodeTile(ZpakContext* context, const uint8_t* stored, uint32_t metadataByte,
                   uint8_t* output) {
  constexpr int64_t kNoLayout = -1;
  constexpr int64_t kWritten = 1;
  if (context == nullptr || output == nullptr) return kNoLayout;
  const OutputLayout* layout = FindOutputLayout(context->contextFormat, context->planeIndex);
  if (layout == nullptr) return kNoLayout;
  const int64_t units = UnitsOfMetadata(metadataByte, context->contextFormat == kContextRgb565);
  const uint64_t unitShift =
      context->planeIndex < kPlaneSets ? context->planes[context->planeIndex].unitShift : 0;
  DecodeTileCore(context, stored, TileBitsOf(units, unitShift), context->stagedTileBuffer);
  ReorderMicroBlocks(context->stagedTileBuffer, output, layout->elementBytes, layout->rowElements,
                     layout->rows, MicroBlockDirection::kToRaster);
  return kWritten;
}

}  // namespace pelcast
