// RGB565 tiles without the colour transform: the search over escaped groups
// of components 0 and 1.
//
// Carries (see lane_math.h). A reconstructed pixel is c0 = X0 + 32 k0,
// c1 = X1 - k0 + 64 k1, c2 = X2 - k1 (mod 32), X the input and k0, k1 the
// carry fields; their imaginary line above and left is 0, so dk = k -
// pred(k) under the gradient predictor. With e_c the input's own gradient
// residuals (base = first sample):
// * component 0 predicted at p: d0 = bal32(e0) and dk0 = (d0 - e0) / 32,
//   both fixed by the input; escaped: c0 = X0, so k0 = 0 and dk0 = -pred(k0);
// * component 1 predicted: d1 = bal64(e1 - dk0), dk1 = (d1 - e1 + dk0) / 64,
//   fixed by dk0 at p alone; escaped: c1 = (X1 - k0) mod 64, which sets k1;
// * component 2: d2 = bal32(e2 - dk1), never escaped (its escape costs what
//   its widest predicted code costs and changes no carry).
// So a group with neither component escaped costs the same whatever happens
// elsewhere (its cost without escapes), and only escaped groups read the
// carries of their neighbours. The bases act on pixel (0, 0) alone: the
// first component's base can start k0 there at -1, 0 or 1, the second's k1
// likewise, at the price of a non-zero first field; the third base always
// gives pixel (0, 0) a zero field.
//
// Why the search is exact. Groups are visited column of groups by column of
// groups, top to bottom inside a column, trying for each every option
// (neither, component 0, component 1 or both escaped, and at group 0 every
// start of the carries). A group's cost and carries follow from its left
// neighbour column and the row above, both already set, so every plan of the
// format is one path. A path is cut only when its exact cost so far plus a
// lower bound of the rest exceeds the budget, or when it reaches the end of
// a column with the same carries on that column's last pixels as an earlier
// path at no greater cost: everything right of the column reads nothing else
// of it, so the earlier path's (failed) continuations were the same.
//
// Why the gates are valid bounds. Every plan spends on each group at least
// the least of its options' bounds, so their sum bounds every plan:
// * neither escaped: the group's cost without escapes (other starts of the
//   carries only add a non-zero first field);
// * component 1 escaped: the fixed component-0 fields, plus 24, plus what
//   component 2 needs at the least over the carries the plan can have;
// * component 0 escaped: 20, plus what components 1 and 2 need at the least
//   over dk0 = -pred(k0). On the group's pixels 1 to 3 the horizontal carry
//   step h = k0[x] - k0[x-1] is 0 (both pixels are raw), so dk0 = -h on the
//   row above, and down a pixel column h grows by the fixed steps of
//   predicted rows and returns to 0 on escaped ones;
// * both: 44, plus component 2 as above.
// The first gates (QuickLaneBound, then LaneBounds) take component 2 as
// free under a raw component 1 and bound how far the steps above can move
// dk0. The last runs ranges of the carries k and of their horizontal steps h
// over every plan through the tile, pixel by pixel, separately for each
// option of the pixel's group (the pixels of a group share its option): a
// raw sample has k0 = 0, a predicted one k0[left] + h0[above] + its fixed
// step; k1 of a raw component-1 sample is -floor((X1 - k0) / 64), and dk1
// of a predicted one never decreases as dk0 grows, so ranges map to ranges.
// Each pixel's least fields follow from the ranges of dk0 and dk1 it allows,
// and a group's least is the larger of its two bounds. The search prunes
// with these.
#include "encoder/rgb565_escapes.h"

#include <algorithm>
#include <bit>
#include <cstring>

namespace pelcast {
namespace {

constexpr uint32_t kPixels = kBlockSamples;
constexpr uint32_t kRows = kBlockHeight;
constexpr uint32_t kGroupColumns = kGroupsPerRow;
constexpr uint32_t kBits[kRgb565Components] = {5, 6, 5};
constexpr uint32_t kEscapeCode[kRgb565Components] = {5, 6, 5};
constexpr uint32_t kEscapedBits[kRgb565EscapedComponents] = {kGroupSize * kBits[0],
                                                             kGroupSize * kBits[1]};
constexpr int32_t kRadix0 = 32;
constexpr int32_t kRadix1 = 64;
constexpr uint32_t kNoPlan = 1u << 20;  // above any budget, safe to add a few of

// What a group does with components 0 and 1: bit c set = component c raw.
constexpr uint32_t kOptions = 4;
constexpr uint32_t kEscape0 = 1;
constexpr uint32_t kEscape1 = 2;
constexpr uint32_t kEscapeBoth = kEscape0 | kEscape1;

// Carries the bases may start at pixel (0, 0), plain start first.
constexpr int32_t kStarts[] = {0, -1, 1};

// floor(value / 2^shift): the shift of a signed value is arithmetic.
int32_t FloorShift(int32_t value, uint32_t shift) { return value >> shift; }

uint32_t GroupBits(uint32_t fieldOr) { return kGroupSize * std::bit_width(fieldOr); }

uint32_t FirstPixel(uint32_t g) {
  return kBlockWidth * (g / kGroupColumns) + kGroupSize * (g % kGroupColumns);
}

// Bits of a group under `option` from the OR of each component's fields.
uint32_t OptionBits(uint32_t option, const uint32_t* fieldOr) {
  return ((option & kEscape0) ? kEscapedBits[0] : GroupBits(fieldOr[0])) +
         ((option & kEscape1) ? kEscapedBits[1] : GroupBits(fieldOr[1])) + GroupBits(fieldOr[2]);
}

// The step dk0 a predicted component-0 sample takes when its gradient
// residual is e0: non-zero exactly when e0 lies outside [-16, 15].
int32_t Step0(int32_t e0) { return (Balanced(e0, kBits[0]) - e0) >> kBits[0]; }  // exact

// A component's samples and gradient residuals, with its first sample as the
// base on the imaginary line (so the first residual is 0).
void ComponentTerms(const uint8_t* plane, size_t pitch, int32_t* x, int32_t* e) {
  constexpr uint32_t kFramed = kBlockWidth + 1;
  int32_t framed[kRows + 1][kFramed];
  const int32_t base = plane[0];
  for (int32_t& above : framed[0]) above = base;
  for (uint32_t y = 0; y < kRows; ++y) {
    framed[y + 1][0] = base;
    for (uint32_t i = 0; i < kBlockWidth; ++i) framed[y + 1][i + 1] = plane[y * pitch + i];
  }
  for (uint32_t y = 0; y < kRows; ++y) {
    for (uint32_t i = 0; i < kBlockWidth; ++i) {
      x[y * kBlockWidth + i] = framed[y + 1][i + 1];
      e[y * kBlockWidth + i] =
          framed[y + 1][i + 1] - framed[y + 1][i] - framed[y][i + 1] + framed[y][i];
    }
  }
}

// The cheapest gate works on a whole pixel row (16 bytes) or on the four
// groups of a row (four 32-bit lanes) at a time, in portable vector types the
// compiler maps onto the processor's vector unit (SSE2, NEON) or plain code.
typedef uint8_t RowBytes __attribute__((vector_size(kBlockWidth)));

// The four groups of a row as 32-bit lanes.
typedef uint32_t RowGroups __attribute__((vector_size(kBlockWidth)));
// 1 where a comparison of two rows held, else 0.
typedef int8_t RowMasks __attribute__((vector_size(kBlockWidth)));
RowBytes Ones(RowMasks held) { return (RowBytes)held & 1; }

RowBytes LoadRow(const uint8_t* bytes) {
  RowBytes row;
  std::memcpy(&row, bytes, sizeof row);
  return row;
}

// The OR of each group's four bytes, in the low byte of its lane.
RowGroups GroupOrs(RowBytes bytes) {
  RowGroups word = (RowGroups)bytes;
  word |= word >> kByteBits;
  word |= word >> (2 * kByteBits);
  return word & 0xff;
}

// Bytewise bit widths of bytes below 64: the count of the powers of two up
// to 32 that each reaches (a comparison that holds gives -1; the bytes are
// compared as signed values, which they fit).
RowBytes BitWidths(RowBytes a) {
  constexpr int kWidest = 6;
  const RowMasks values = (RowMasks)a;
  const RowMasks one = RowMasks{} + 1;
  RowMasks width = {};
  for (int k = 0; k < kWidest; ++k) width += values > ((one << k) - one);
  return (RowBytes)(-width);
}

RowBytes Least(RowBytes a, RowBytes b) { return a < b ? a : b; }

// The sum of the bytes: their pairs as 16-bit halves of two words, then the
// halves summed by one multiplication each (the sum stays below 2^16).
uint32_t SumBytes(RowBytes a) {
  constexpr uint64_t kEvenBytes = 0x00ff00ff00ff00ff;
  constexpr uint64_t kEveryHalf = 0x0001000100010001;
  constexpr uint32_t kTopHalf = 48;
  uint64_t words[2];
  std::memcpy(words, &a, sizeof words);
  uint32_t sum = 0;
  for (uint64_t w : words) {
    const uint64_t pairs = (w & kEvenBytes) + ((w >> kByteBits) & kEvenBytes);
    sum += static_cast<uint32_t>((pairs * kEveryHalf) >> kTopHalf);
  }
  return sum;
}

// Per-row group values (row y's group j in the low byte of lane j of rows[y])
// in group order: group 4y + j in byte 4y + j. The four rows' lanes are
// transposed, then each column's values moved to their byte.
RowBytes GroupOrder(const RowGroups* rows) {
  const RowGroups low01 = __builtin_shufflevector(rows[0], rows[1], 0, 4, 1, 5);
  const RowGroups low23 = __builtin_shufflevector(rows[2], rows[3], 0, 4, 1, 5);
  const RowGroups high01 = __builtin_shufflevector(rows[0], rows[1], 2, 6, 3, 7);
  const RowGroups high23 = __builtin_shufflevector(rows[2], rows[3], 2, 6, 3, 7);
  const RowGroups column0 = __builtin_shufflevector(low01, low23, 0, 1, 4, 5);
  const RowGroups column1 = __builtin_shufflevector(low01, low23, 2, 3, 6, 7);
  const RowGroups column2 = __builtin_shufflevector(high01, high23, 0, 1, 4, 5);
  const RowGroups column3 = __builtin_shufflevector(high01, high23, 2, 3, 6, 7);
  return (RowBytes)(column0 | column1 << kByteBits | column2 << (2 * kByteBits) |
                    column3 << (3 * kByteBits));
}

// The least of the options' bounds per group (group order), from the widths
// of components 1 and 2 with component 0 raw (added) and the lanes' own
// widths.
RowBytes LeastOfOptions(const LaneResidues* d, RowBytes escaped0Widths) {
  const RowBytes w0 = LoadRow(d[0].width);
  const RowBytes all = (w0 + LoadRow(d[1].width) + LoadRow(d[2].width)) << 2;
  const RowBytes escape0 = kEscapedBits[0] + (escaped0Widths << 2);
  const RowBytes escape1 = (w0 << 2) + kEscapedBits[1];
  const RowBytes both = RowBytes{} + (kEscapedBits[0] + kEscapedBits[1]);
  return Least(Least(all, escape0), Least(escape1, both));
}

constexpr uint8_t kAll = 0xff;
constexpr RowBytes kNotFirstOfGroup = {0, kAll, kAll, kAll, 0, kAll, kAll, kAll,
                                       0, kAll, kAll, kAll, 0, kAll, kAll, kAll};

// The cheapest of all: with component 1 raw component 2 counts as free, and
// with component 0 raw only component 2 counts, moved by at most the largest
// drift (3, see LaneBounds) on pixels 1 to 3.
uint32_t QuickLaneBound(const Rgb565Tile& tile) {
  const RowBytes drift = RowBytes{} + 3;
  RowGroups rows[kRows];
  for (uint32_t y = 0; y < kRows; ++y) {
    const RowBytes zig = LoadRow(tile.direct[2].zig + y * kBlockWidth);
    rows[y] = GroupOrs((zig - drift) & (RowBytes)(zig > drift) & kNotFirstOfGroup);
  }
  return SumBytes(LeastOfOptions(tile.direct, BitWidths(GroupOrder(rows))));
}

// The lane gate: per group the least of the bounds the lanes without
// escapes and the component-0 steps give, summed. With component 0 raw,
// pixels 1 to 3 of a group have dk0 = -h, h the sum of the fixed steps of
// some of the rows above in the pixel column, against the pixel's own fixed
// step: dk0 moves by at most twice the count n of non-zero steps on and
// above the pixel (each step is at most 2). That moves d1 by at most 2n
// (cyclically) and, 2n being below 64, dk1 and so d2 by at most 1 (neither
// when n is 0). A zig-zag field of |d| is 2|d| or 2|d| - 1, so fields drop by
// at most 4n + 1 and 3.
RowBytes LaneBounds(const Rgb565Tile& tile) {
  // Component 0 framed by its base (the first sample) on the imaginary line.
  constexpr uint32_t kFramed = kBlockWidth + 1;
  const uint8_t base = tile.planes[0][0];
  uint8_t framed[kRows + 1][kFramed];
  for (uint8_t& above : framed[0]) above = base;
  for (uint32_t y = 0; y < kRows; ++y) {
    framed[y + 1][0] = base;
    std::memcpy(framed[y + 1] + 1, tile.planes[0] + y * tile.pitch, kBlockWidth);
  }
  // A gradient residual e0 of 5-bit samples lies in [-62, 62], so e0 + 64
  // needs no wrap; the step is non-zero unless e0 + 64 lies in [48, 79],
  // i.e. e0 + 144 in [128, 159].
  constexpr uint8_t kBias = 64;
  constexpr uint8_t kNoStepShift = 80;
  constexpr uint8_t kNoStepBits = 0xe0;
  constexpr uint8_t kNoStepValue = 0x80;
  const LaneResidues* d = tile.direct;
  RowBytes count = {};
  RowGroups rows1[kRows];
  RowGroups rows2[kRows];
  for (uint32_t y = 0; y < kRows; ++y) {
    const RowBytes e = LoadRow(framed[y + 1] + 1) + LoadRow(framed[y]) + kBias -
                       LoadRow(framed[y + 1]) - LoadRow(framed[y] + 1);
    count += Ones(((e + kNoStepShift) & kNoStepBits) != kNoStepValue);
    const RowBytes moved = Ones(count != 0);
    const RowBytes drift1 = (count << 2) + moved;   // 4n + 1
    const RowBytes drift2 = moved + moved + moved;  // 3
    const RowBytes zig1 = LoadRow(d[1].zig + y * kBlockWidth);
    const RowBytes zig2 = LoadRow(d[2].zig + y * kBlockWidth);
    rows1[y] = GroupOrs((zig1 - drift1) & (RowBytes)(zig1 > drift1) & kNotFirstOfGroup);
    rows2[y] = GroupOrs((zig2 - drift2) & (RowBytes)(zig2 > drift2) & kNotFirstOfGroup);
  }
  return LeastOfOptions(d, BitWidths(GroupOrder(rows1)) + BitWidths(GroupOrder(rows2)));
}


// What the input fixes, worked out once per tile, and the bounds of every
// group and option for each pair of carries at pixel (0, 0).
struct TileTerms {
  int32_t x[kRgb565Components][kPixels];
  int32_t e[kRgb565Components][kPixels];  // gradient residuals, base = first sample
  int32_t step0[kPixels];                 // dk0 of a predicted component-0 pixel
  uint32_t field0[kPixels];               // its zig-zag field
  const LaneResidues* direct;
  uint32_t bound[kGroupsPerBlock][kOptions];
  uint32_t least[kGroupsPerBlock];  // smallest of a group's bounds
};

// The carry fields of a plan in the making, and the carries its bases start.
// Pixel (x, y) at [y + 1][x + 1]; row 0 and column 0 are the imaginary line,
// 0, so the prediction needs no test at the edges.
constexpr uint32_t kFramedWidth = kBlockWidth + 1;
typedef int32_t CarryField[kRows + 1][kFramedWidth];

struct Carries {
  CarryField k0;
  CarryField k1;
  int32_t start0;
  int32_t start1;
};

int32_t& CarryAt(CarryField& k, uint32_t at) { return k[at / kBlockWidth + 1][at % kBlockWidth + 1]; }

int32_t PredictCarry(const CarryField& k, uint32_t at) {
  const uint32_t y = at / kBlockWidth;
  const uint32_t x = at % kBlockWidth;
  return k[y + 1][x] + k[y][x + 1] - k[y][x];
}

// Offset of `value` from [0, limit): what a base within the range leaves
// of it at pixel (0, 0).
int32_t FirstResidual(int32_t value, int32_t limit) {
  return value - std::clamp(value, 0, limit - 1);
}

// The carry k1 of a raw component-1 sample, from k0: c1 = (X1 - k0) mod 64.
int32_t RawCarry1(int32_t x1, int32_t k0) { return -FloorShift(x1 - k0, kBits[1]); }

// One pixel's fields (and raw samples) under an option.
struct PixelCoding {
  uint32_t field[kRgb565Components];
  int32_t raw[kRgb565EscapedComponents];
};

// Codes pixel `at` under `option`, storing its carries in `k`. False when
// the start carries cannot be reached at pixel (0, 0).
bool CodePixel(const TileTerms& t, uint32_t at, uint32_t option, Carries* k, PixelCoding* out) {
  const int32_t x0 = t.x[0][at];
  const int32_t x1 = t.x[1][at];
  const int32_t pred0 = PredictCarry(k->k0, at);
  const int32_t pred1 = PredictCarry(k->k1, at);
  int32_t dk0 = t.step0[at];
  out->field[0] = t.field0[at];
  out->raw[0] = x0;
  if (option & kEscape0) {
    dk0 = -pred0;
  } else if (at == 0) {
    const int32_t d0 = FirstResidual(x0 + kRadix0 * k->start0, kRadix0);
    if (Balanced(d0, kBits[0]) != d0) return false;
    dk0 = k->start0;
    out->field[0] = ZigZag(d0);
  }
  const int32_t k0 = pred0 + dk0;
  CarryAt(k->k0, at) = k0;
  int32_t dk1 = 0;
  if (option & kEscape1) {
    const int32_t k1 = RawCarry1(x1, k0);
    out->raw[1] = x1 - k0 + kRadix1 * k1;
    dk1 = k1 - pred1;
    out->field[1] = 0;
  } else if (at == 0) {
    const int32_t d1 = FirstResidual(x1 - k0 + kRadix1 * k->start1, kRadix1);
    if (Balanced(d1, kBits[1]) != d1) return false;
    dk1 = k->start1;
    out->field[1] = ZigZag(d1);
  } else {
    const int32_t d1 = Balanced(t.e[1][at] - dk0, kBits[1]);
    dk1 = (d1 - t.e[1][at] + dk0) >> kBits[1];  // exact
    out->field[1] = ZigZag(d1);
  }
  CarryAt(k->k1, at) = pred1 + dk1;
  // The third base gives pixel (0, 0) a zero field whatever its carry.
  out->field[2] = at == 0 ? 0 : ZigZag(Balanced(t.e[2][at] - dk1, kBits[2]));
  return true;
}

// A range of integers, for the carries any plan can put on a pixel.
struct Range {
  int32_t lo;
  int32_t hi;
};

constexpr Range kZero{0, 0};
Range Hull(Range a, Range b) { return Range{std::min(a.lo, b.lo), std::max(a.hi, b.hi)}; }
Range Add(Range a, Range b) { return Range{a.lo + b.lo, a.hi + b.hi}; }
Range Subtract(Range a, Range b) { return Range{a.lo - b.hi, a.hi - b.lo}; }
Range Negate(Range a) { return Range{-a.hi, -a.lo}; }
Range Point(int32_t v) { return Range{v, v}; }

// dk1 of a predicted component-1 sample, from dk0; it never decreases as dk0
// grows, so a range of dk0 maps to the range between its ends' images.
int32_t PredictedStep1(int32_t e1, int32_t dk0) {
  return (Balanced(e1 - dk0, kBits[1]) - e1 + dk0) >> kBits[1];  // exact
}

Range PredictedSteps1(int32_t e1, Range dk0) {
  return Range{PredictedStep1(e1, dk0.lo), PredictedStep1(e1, dk0.hi)};
}

// k1 of raw component-1 samples over a range of k0 (it never decreases).
Range RawCarries1(int32_t x1, Range k0) { return Range{RawCarry1(x1, k0.lo), RawCarry1(x1, k0.hi)}; }

// The smallest zig-zag field of the residuals e - v, v in `range`, taken
// balanced on `bits` bits: 0 when the range reaches a multiple of 2^bits
// from e, else the better end (the field grows away from the multiples).
uint32_t LeastField(int32_t e, Range range, uint32_t bits) {
  const int32_t lo = e - range.hi;
  const int32_t hi = e - range.lo;
  if (FloorShift(hi, bits) != FloorShift(lo - 1, bits)) return 0;
  return std::min(ZigZag(Balanced(lo, bits)), ZigZag(Balanced(hi, bits)));
}

// What any plan can have on a pixel: the carries k and their horizontal steps
// h = k[x] - k[x-1], component 0's for it predicted [0] or raw [1], component
// 1's for each option of the pixel's group; and the least fields the options
// with escapes allow (the others are the fields without escapes).
struct PixelRanges {
  Range k0[2], h0[2];
  Range k1[kOptions], h1[kOptions];
  uint32_t escaped0Field1;
  uint32_t field2[kOptions];  // [0] unused
};

constexpr uint32_t kPredicted = 0;
constexpr uint32_t kRaw = 1;

Range HullOf(const Range* ranges, uint32_t count) {
  Range r = ranges[0];
  for (uint32_t i = 1; i < count; ++i) r = Hull(r, ranges[i]);
  return r;
}

// Pixel (0, 0), over every start of the carries the bases allow. Its fields
// can all be 0 (the plain start) and so count as 0.
void BoundFirstPixel(const TileTerms& t, PixelRanges* out) {
  *out = PixelRanges{};
  bool any[kOptions] = {};
  Carries k{};  // pixel (0, 0) reads only the zero line
  for (uint32_t option = 0; option < kOptions; ++option) {
    for (int32_t start0 : kStarts) {
      for (int32_t start1 : kStarts) {
        if (((option & kEscape0) && start0 != 0) || ((option & kEscape1) && start1 != 0)) continue;
        k.start0 = start0;
        k.start1 = start1;
        PixelCoding p;
        if (!CodePixel(t, 0, option, &k, &p)) continue;
        const uint32_t v = (option & kEscape0) ? kRaw : kPredicted;
        const Range k0 = Point(CarryAt(k.k0, 0));
        const Range k1 = Point(CarryAt(k.k1, 0));
        out->k0[v] = any[option] ? Hull(out->k0[v], k0) : k0;
        out->k1[option] = any[option] ? Hull(out->k1[option], k1) : k1;
        any[option] = true;  // the plain start always codes
      }
    }
  }
  for (uint32_t v = 0; v < 2; ++v) out->h0[v] = out->k0[v];  // left of column 0 is 0
  for (uint32_t o = 0; o < kOptions; ++o) out->h1[o] = out->k1[o];
}

// Pixel `at` (not the first) from the pixels left and above (null at the
// tile's edge). The prediction of a carry is k[left] + h[above]; the left
// pixel of a group's pixels 1 to 3 takes the same option, that of its pixel
// 0 any, as does the pixel above.
void BoundPixel(const TileTerms& t, uint32_t at, const PixelRanges* left, const PixelRanges* above,
                PixelRanges* r) {
  const bool firstOfGroup = (at % kBlockWidth) % kGroupSize == 0;
  const Range up0 = above != nullptr ? HullOf(above->h0, 2) : kZero;
  const Range up1 = above != nullptr ? HullOf(above->h1, kOptions) : kZero;
  Range left0[2] = {kZero, kZero};
  Range left1[kOptions] = {kZero, kZero, kZero, kZero};
  if (left != nullptr && firstOfGroup) {
    left0[kPredicted] = left0[kRaw] = HullOf(left->k0, 2);
    const Range any1 = HullOf(left->k1, kOptions);
    for (Range& l : left1) l = any1;
  } else if (left != nullptr) {
    for (uint32_t v = 0; v < 2; ++v) left0[v] = left->k0[v];
    for (uint32_t o = 0; o < kOptions; ++o) left1[o] = left->k1[o];
  }
  const int32_t x1 = t.x[1][at];
  const int32_t e1 = t.e[1][at];
  const int32_t e2 = t.e[2][at];
  const Range step0 = Point(t.step0[at]);
  // Component 0 predicted, or raw (k0 = 0).
  r->k0[kPredicted] = Add(Add(left0[kPredicted], up0), step0);
  r->h0[kPredicted] = Add(up0, step0);
  const Range rawStep0 = Negate(Add(left0[kRaw], up0));
  r->k0[kRaw] = kZero;
  r->h0[kRaw] = Negate(left0[kRaw]);
  // Component 1 predicted, after component 0 predicted or raw.
  const Range steps1[2] = {Point(PredictedStep1(e1, t.step0[at])), PredictedSteps1(e1, rawStep0)};
  for (uint32_t option : {0u, kEscape0}) {
    const Range dk1 = steps1[option == 0 ? kPredicted : kRaw];
    r->k1[option] = Add(Add(left1[option], up1), dk1);
    r->h1[option] = Add(up1, dk1);
  }
  r->escaped0Field1 = LeastField(e1, rawStep0, kBits[1]);
  r->field2[kEscape0] = LeastField(e2, steps1[kRaw], kBits[2]);
  // Component 1 raw: k1 follows k0 (0 when component 0 is raw too).
  for (uint32_t option : {kEscape1, kEscapeBoth}) {
    const Range k1 = option == kEscape1 ? RawCarries1(x1, r->k0[kPredicted]) : kZero;
    r->k1[option] = k1;
    r->h1[option] = Subtract(k1, left1[option]);
    r->field2[option] = LeastField(e2, Subtract(k1, Add(left1[option], up1)), kBits[2]);
  }
}

// The bounds of group g's options from its pixels' least fields.
void BoundGroup(const TileTerms& t, const PixelRanges* ranges, uint32_t g, uint32_t* bound) {
  uint32_t escaped0Or1 = 0;
  uint32_t field2Or[kOptions] = {};
  for (uint32_t at = FirstPixel(g); at < FirstPixel(g) + kGroupSize; ++at) {
    escaped0Or1 |= ranges[at].escaped0Field1;
    for (uint32_t o = 1; o < kOptions; ++o) field2Or[o] |= ranges[at].field2[o];
  }
  const LaneResidues* d = t.direct;
  const uint32_t width0 = kGroupSize * d[0].width[g];
  bound[0] = width0 + kGroupSize * (d[1].width[g] + d[2].width[g]);
  bound[kEscape0] = kEscapedBits[0] + GroupBits(escaped0Or1) + GroupBits(field2Or[kEscape0]);
  bound[kEscape1] = width0 + kEscapedBits[1] + GroupBits(field2Or[kEscape1]);
  bound[kEscapeBoth] = kEscapedBits[0] + kEscapedBits[1] + GroupBits(field2Or[kEscapeBoth]);
}

// Bounds of every group and option over every plan, row by row; the least of
// each group is also never below its lane bound `lane[g]`. False as soon as
// the rows done and the lane bounds of the rows left exceed `budget`.
bool BoundGroups(TileTerms* t, RowBytes lane, uint32_t budget) {
  PixelRanges ranges[kPixels];
  BoundFirstPixel(*t, &ranges[0]);
  uint32_t laneLeft = SumBytes(lane);
  uint32_t done = 0;
  for (uint32_t y = 0; y < kRows; ++y) {
    for (uint32_t at = std::max(y * kBlockWidth, 1u); at < (y + 1) * kBlockWidth; ++at) {
      const PixelRanges* left = at % kBlockWidth != 0 ? &ranges[at - 1] : nullptr;
      const PixelRanges* above = at >= kBlockWidth ? &ranges[at - kBlockWidth] : nullptr;
      BoundPixel(*t, at, left, above, &ranges[at]);
    }
    for (uint32_t g = y * kGroupColumns; g < (y + 1) * kGroupColumns; ++g) {
      BoundGroup(*t, ranges, g, t->bound[g]);
      const uint32_t least = *std::min_element(t->bound[g], t->bound[g] + kOptions);
      t->least[g] = std::max<uint32_t>(least, lane[g]);
      done += t->least[g];
      laneLeft -= lane[g];
    }
    if (done + laneLeft > budget) return false;
  }
  return true;
}

// The terms of a tile and its bounds, unless they exceed `budget`.
bool MakeTerms(const Rgb565Tile& tile, RowBytes lane, uint32_t budget, TileTerms* t) {
  t->direct = tile.direct;
  for (uint32_t c = 0; c < kRgb565Components; ++c) {
    ComponentTerms(tile.planes[c], tile.pitch, t->x[c], t->e[c]);
  }
  for (uint32_t at = 0; at < kPixels; ++at) {
    t->step0[at] = Step0(t->e[0][at]);
    t->field0[at] = ZigZag(Balanced(t->e[0][at], kBits[0]));
  }
  return BoundGroups(t, lane, budget);
}

uint32_t BoundSum(const TileTerms& t) {
  uint32_t sum = 0;
  for (uint32_t g = 0; g < kGroupsPerBlock; ++g) sum += t.least[g];
  return sum;
}

// Fields of a group as the writer wants them.
struct GroupCoding {
  PixelCoding pixel[kGroupSize];
};

// Bits of group g's fields under `option`, its carries stored in `k`;
// kNoPlan when the start carries are out of reach.
template <bool kRecord>
uint32_t CodeGroup(const TileTerms& t, uint32_t g, uint32_t option, Carries* k,
                   GroupCoding* record) {
  const uint32_t first = FirstPixel(g);
  uint32_t fieldOr[kRgb565Components] = {};
  for (uint32_t i = 0; i < kGroupSize; ++i) {
    PixelCoding p;
    if (!CodePixel(t, first + i, option, k, &p)) return kNoPlan;
    for (uint32_t c = 0; c < kRgb565Components; ++c) fieldOr[c] |= p.field[c];
    if constexpr (kRecord) record->pixel[i] = p;
  }
  return OptionBits(option, fieldOr);
}

// Carries on the last pixel column of a group column, for every row: all
// that the columns to its right read of it.
struct ColumnEdge {
  int32_t k[kRgb565EscapedComponents][kRows];
  bool operator==(const ColumnEdge&) const = default;
};

// Edges already reached at the end of one group column, with the least cost
// so far. When it is full, further edges are simply not remembered.
constexpr uint32_t kEdgesRemembered = 64;
struct EdgeMemo {
  ColumnEdge edge[kEdgesRemembered];
  uint32_t spent[kEdgesRemembered];
  uint32_t count;
};

// False when the edge was reached before at no greater cost.
bool AdmitEdge(EdgeMemo* memo, const ColumnEdge& edge, uint32_t spent) {
  for (uint32_t i = 0; i < memo->count; ++i) {
    if (memo->edge[i] == edge) {
      if (memo->spent[i] <= spent) return false;
      memo->spent[i] = spent;
      return true;
    }
  }
  if (memo->count < kEdgesRemembered) {
    memo->edge[memo->count] = edge;
    memo->spent[memo->count] = spent;
    ++memo->count;
  }
  return true;
}

// Groups in the order the search visits them: column by column.
constexpr uint32_t ColumnOrderGroup(uint32_t position) {
  return (position % kRows) * kGroupColumns + position / kRows;
}

struct Search {
  const TileTerms* terms;
  uint32_t budget;
  uint32_t rest[kGroupsPerBlock + 1];  // bound of the positions from here on
  Carries carries;
  uint32_t option[kGroupsPerBlock];
  EdgeMemo memo[kGroupColumns - 1];
};

ColumnEdge EdgeOf(const Carries& k, uint32_t column) {
  ColumnEdge edge;
  const uint32_t x = kGroupSize * column + kGroupSize - 1;
  for (uint32_t y = 0; y < kRows; ++y) {
    edge.k[0][y] = k.k0[y + 1][x + 1];
    edge.k[1][y] = k.k1[y + 1][x + 1];
  }
  return edge;
}

bool Descend(Search* s, uint32_t position, uint32_t spent);

// Tries `option` at `position` with the carries started as they are set.
bool TryOption(Search* s, uint32_t position, uint32_t option, uint32_t spent) {
  const uint32_t g = ColumnOrderGroup(position);
  const uint32_t bits = CodeGroup<false>(*s->terms, g, option, &s->carries, nullptr);
  if (bits == kNoPlan) return false;
  const uint32_t total = spent + bits;
  if (total + s->rest[position + 1] > s->budget) return false;
  s->option[g] = option;
  const bool columnEnd = position % kRows == kRows - 1;
  const uint32_t column = position / kRows;
  if (columnEnd && column + 1 < kGroupColumns &&
      !AdmitEdge(&s->memo[column], EdgeOf(s->carries, column), total)) {
    return false;
  }
  return Descend(s, position + 1, total);
}

bool Descend(Search* s, uint32_t position, uint32_t spent) {
  if (position == kGroupsPerBlock) return true;
  const uint32_t g = ColumnOrderGroup(position);
  for (uint32_t option = 0; option < kOptions; ++option) {
    if (g != 0) {
      const uint32_t bound = s->terms->bound[g][option];
      if (spent + bound + s->rest[position + 1] > s->budget) continue;
      if (TryOption(s, position, option, spent)) return true;
      continue;
    }
    // Group 0: every start the bases allow (a raw component has none).
    for (int32_t start0 : kStarts) {
      if ((option & kEscape0) && start0 != 0) continue;
      for (int32_t start1 : kStarts) {
        if ((option & kEscape1) && start1 != 0) continue;
        s->carries.start0 = start0;
        s->carries.start1 = start1;
        if (TryOption(s, position, option, spent)) return true;
      }
    }
  }
  return false;
}

// Writes the plan the search settled on: fields, raw samples, widths, bases.
void RecordPlan(const TileTerms& t, Search* s, Rgb565EscapePlan* plan) {
  Carries& k = s->carries;
  plan->escaped[0] = plan->escaped[1] = 0;
  plan->residualBits = 0;
  for (uint32_t position = 0; position < kGroupsPerBlock; ++position) {
    const uint32_t g = ColumnOrderGroup(position);
    const uint32_t option = s->option[g];
    GroupCoding coding;
    plan->residualBits += CodeGroup<true>(t, g, option, &k, &coding);
    const uint32_t first = FirstPixel(g);
    for (uint32_t c = 0; c < kRgb565Components; ++c) {
      const bool raw = c < kRgb565EscapedComponents && (option & (1u << c));
      if (raw) plan->escaped[c] |= 1u << g;
      uint32_t fieldOr = 0;
      for (uint32_t i = 0; i < kGroupSize; ++i) {
        const PixelCoding& p = coding.pixel[i];
        plan->lanes[c].zig[first + i] = static_cast<uint8_t>(p.field[c]);
        if (raw) plan->raw[c][first + i] = static_cast<int16_t>(p.raw[c]);
        fieldOr |= p.field[c];
      }
      plan->lanes[c].width[g] =
          static_cast<uint8_t>(raw ? kEscapeCode[c] : std::bit_width(fieldOr));
    }
  }
  for (uint32_t c = 0; c < kRgb565Components; ++c) {
    uint32_t bits = kGroupsPerBlock * kCodeBits;
    for (uint32_t g = 0; g < kGroupsPerBlock; ++g) {
      bits += kGroupSize * std::min(uint32_t{plan->lanes[c].width[g]}, kBits[c]);
    }
    plan->lanes[c].bits = bits;
  }
  // Bases: what leaves pixel (0, 0) the residuals the carries were planned
  // with (any value for a raw group).
  const int32_t k0 = CarryAt(k.k0, 0);
  const int32_t k1 = CarryAt(k.k1, 0);
  plan->base[0] = static_cast<uint32_t>(std::clamp(t.x[0][0] + kRadix0 * k0, 0, kRadix0 - 1));
  plan->base[1] =
      static_cast<uint32_t>(std::clamp(t.x[1][0] - k0 + kRadix1 * k1, 0, kRadix1 - 1));
  plan->base[2] = static_cast<uint32_t>(t.x[2][0] - k1) & (kRadix0 - 1);
}

void PrepareSearch(const TileTerms& terms, uint32_t budget, Search* s) {
  s->terms = &terms;
  s->budget = budget;
  s->rest[kGroupsPerBlock] = 0;
  for (uint32_t position = kGroupsPerBlock; position-- > 0;) {
    s->rest[position] = s->rest[position + 1] + terms.least[ColumnOrderGroup(position)];
  }
  for (EdgeMemo& m : s->memo) m.count = 0;
  s->carries = Carries{};  // the zero line around the tile
}

}  // namespace

uint32_t Rgb565ResidualBound(const Rgb565Tile& tile) {
  TileTerms terms;
  MakeTerms(tile, LaneBounds(tile), kNoPlan, &terms);
  return BoundSum(terms);
}

bool FindRgb565EscapePlan(const Rgb565Tile& tile, uint32_t budgetBits, Rgb565EscapePlan* plan) {
  // The cheap gates first; QuickLaneBound never exceeds the lane bounds' sum.
  if (QuickLaneBound(tile) > budgetBits) return false;
  const RowBytes lane = LaneBounds(tile);
  if (SumBytes(lane) > budgetBits) return false;
  TileTerms terms;
  if (!MakeTerms(tile, lane, budgetBits, &terms)) return false;
  Search s;
  PrepareSearch(terms, budgetBits, &s);
  if (!Descend(&s, 0, 0)) return false;
  RecordPlan(terms, &s, plan);
  return true;
}

}  // namespace pelcast
