// The lane routines in NEON, which every 64-bit Arm processor has. Each
// mirrors its plain twin in lane_kernels.cc a whole block row at a time; the
// routines with little per-sample work (code and field joining) stay plain.
#include "encoder/lane_kernels.h"

#if defined(__aarch64__)
#include <arm_neon.h>

#include "encoder/lane_math.h"

namespace pelcast {
namespace {

constexpr uint32_t kWordBits = 32;
constexpr uint32_t kHalfRow = kBlockWidth / 2;  // 16-bit samples per register

// Bit widths of four 32-bit values.
inline uint32x4_t BitWidths(uint32x4_t v) { return vsubq_u32(vdupq_n_u32(kWordBits), vclzq_u32(v)); }

// Bits of a lane's codes and fields from its 16 group widths.
inline uint32_t SizeWidths(uint8x16_t width, const LaneSizing& sizing) {
  const uint8x16_t narrow = vcltq_u8(width, vdupq_n_u8(static_cast<uint8_t>(sizing.escape)));
  const uint8x16_t fieldBits =
      vbslq_u8(narrow, width, vdupq_n_u8(static_cast<uint8_t>(sizing.codedBits)));
  return kGroupsPerBlock * kCodeBits + kGroupSize * vaddlvq_u8(fieldBits);
}

// Every group keeps its width: no width reaches this escape.
constexpr LaneSizing kWidthsOnly = {kWordBits, 0};

// The four rows' group widths as 16 bytes in group order, and the lane's size.
inline void StoreWidths(const uint32x4_t* rowWidths, const LaneSizing& sizing, LaneResidues* out) {
  const uint16x8_t top = vcombine_u16(vmovn_u32(rowWidths[0]), vmovn_u32(rowWidths[1]));
  const uint16x8_t bottom = vcombine_u16(vmovn_u32(rowWidths[2]), vmovn_u32(rowWidths[3]));
  const uint8x16_t widths = vcombine_u8(vmovn_u16(top), vmovn_u16(bottom));
  vst1q_u8(out->width, widths);
  out->bits = SizeWidths(widths, sizing);
}

// The OR of each group of four bytes, as four 32-bit values.
inline uint32x4_t GroupOrBytes(uint8x16_t z) {
  const uint32x4_t words = vreinterpretq_u32_u8(z);
  uint32x4_t o = vorrq_u32(words, vshrq_n_u32(words, 16));
  o = vorrq_u32(o, vshrq_n_u32(o, 8));
  return vandq_u32(o, vdupq_n_u32(0xff));
}

// The OR of each group of four 16-bit values in two registers (groups 0, 1
// and 2, 3 of a row), as four 32-bit values.
inline uint32x4_t GroupOrWords(uint16x8_t lo, uint16x8_t hi) {
  uint64x2_t a = vreinterpretq_u64_u16(lo);
  uint64x2_t b = vreinterpretq_u64_u16(hi);
  a = vorrq_u64(a, vshrq_n_u64(a, 32));
  a = vorrq_u64(a, vshrq_n_u64(a, 16));
  b = vorrq_u64(b, vshrq_n_u64(b, 32));
  b = vorrq_u64(b, vshrq_n_u64(b, 16));
  const uint32x4_t row = vcombine_u32(vmovn_u64(a), vmovn_u64(b));
  return vandq_u32(row, vdupq_n_u32(0xffff));
}

inline uint8x16_t ZigZag8(uint8x16_t d) {
  const uint8x16_t sign = vreinterpretq_u8_s8(vshrq_n_s8(vreinterpretq_s8_u8(d), 7));
  return veorq_u8(vshlq_n_u8(d, 1), sign);
}

inline int16x8_t ZigZag16(int16x8_t d) { return veorq_s16(vshlq_n_s16(d, 1), vshrq_n_s16(d, 15)); }

// Fields of a row of 16-bit residuals, stored saturated to bytes; returns
// the row's group widths.
inline uint32x4_t StoreWordFields(int16x8_t dLo, int16x8_t dHi, uint8_t* zig) {
  const int16x8_t lo = ZigZag16(dLo);
  const int16x8_t hi = ZigZag16(dHi);
  vst1q_u8(zig, vcombine_u8(vqmovun_s16(lo), vqmovun_s16(hi)));
  return BitWidths(GroupOrWords(vreinterpretq_u16_s16(lo), vreinterpretq_u16_s16(hi)));
}

// Horizontal differences of a row of 16-bit samples, `base` left of column 0.
struct Row16 {
  int16x8_t lo, hi;
};

inline Row16 HorizontalDifferences(Row16 s, int16x8_t base) {
  return Row16{vsubq_s16(s.lo, vextq_s16(base, s.lo, 7)), vsubq_s16(s.hi, vextq_s16(s.lo, s.hi, 7))};
}

inline Row16 WidenBytes(uint8x16_t b) {
  return Row16{vreinterpretq_s16_u16(vmovl_u8(vget_low_u8(b))),
               vreinterpretq_s16_u16(vmovl_u8(vget_high_u8(b)))};
}

void NeonByteLane(const uint8_t* rows, size_t pitch, const LaneSizing& sizing, LaneResidues* out) {
  const uint8x16_t base = vdupq_n_u8(rows[0]);
  uint8x16_t above = vdupq_n_u8(0);
  uint32x4_t widths[kBlockHeight];
  for (uint32_t y = 0; y < kBlockHeight; ++y) {
    const uint8x16_t s = vld1q_u8(rows + y * pitch);
    const uint8x16_t h = vsubq_u8(s, vextq_u8(base, s, 15));
    const uint8x16_t z = ZigZag8(vsubq_u8(h, above));
    above = h;
    vst1q_u8(out->zig + y * kBlockWidth, z);
    widths[y] = BitWidths(GroupOrBytes(z));
  }
  StoreWidths(widths, sizing, out);
}

void NeonByteLanePair(const uint8_t* first, const uint8_t* second, size_t pitch,
                      const LaneSizing& sizing, LaneResidues* firstOut, LaneResidues* secondOut) {
  NeonByteLane(first, pitch, sizing, firstOut);
  NeonByteLane(second, pitch, sizing, secondOut);
}

void NeonExactLane(const int16_t* samples, const LaneSizing& sizing, LaneResidues* out) {
  const int16x8_t base = vdupq_n_s16(samples[0]);
  Row16 above{vdupq_n_s16(0), vdupq_n_s16(0)};
  uint32x4_t widths[kBlockHeight];
  for (uint32_t y = 0; y < kBlockHeight; ++y) {
    const int16_t* row = samples + y * kBlockWidth;
    const Row16 h = HorizontalDifferences(Row16{vld1q_s16(row), vld1q_s16(row + kHalfRow)}, base);
    widths[y] = StoreWordFields(vsubq_s16(h.lo, above.lo), vsubq_s16(h.hi, above.hi),
                                out->zig + y * kBlockWidth);
    above = h;
  }
  StoreWidths(widths, sizing, out);
}

inline int16x8_t Balanced16(int16x8_t v, int bits) {
  const int16x8_t half = vdupq_n_s16(static_cast<int16_t>(1 << (bits - 1)));
  const int16x8_t mask = vdupq_n_s16(static_cast<int16_t>((1 << bits) - 1));
  return vsubq_s16(vandq_s16(vaddq_s16(v, half), mask), half);
}

// The carry chain of lane_math.h's Rgb565DirectFields on eight pixels.
inline void DirectFields(const int16x8_t* e, int16x8_t* d) {
  constexpr int kBits0 = 5;
  constexpr int kBits1 = 6;
  constexpr int kBits2 = 5;
  d[0] = Balanced16(e[0], kBits0);
  const int16x8_t carry0 = vshrq_n_s16(vsubq_s16(d[0], e[0]), kBits0);
  d[1] = Balanced16(vsubq_s16(e[1], carry0), kBits1);
  const int16x8_t carry1 = vshrq_n_s16(vaddq_s16(vsubq_s16(d[1], e[1]), carry0), kBits1);
  d[2] = Balanced16(vsubq_s16(e[2], carry1), kBits2);
}

void NeonRgb565Lanes(const uint8_t* const* planes, size_t pitch, LaneResidues* out) {
  int16x8_t base[kRgb565Components];
  Row16 above[kRgb565Components];
  for (uint32_t c = 0; c < kRgb565Components; ++c) {
    base[c] = vdupq_n_s16(planes[c][0]);
    above[c] = Row16{vdupq_n_s16(0), vdupq_n_s16(0)};
  }
  uint32x4_t widths[kRgb565Components][kBlockHeight];
  for (uint32_t y = 0; y < kBlockHeight; ++y) {
    int16x8_t eLo[kRgb565Components];
    int16x8_t eHi[kRgb565Components];
    for (uint32_t c = 0; c < kRgb565Components; ++c) {
      const Row16 h = HorizontalDifferences(WidenBytes(vld1q_u8(planes[c] + y * pitch)), base[c]);
      eLo[c] = vsubq_s16(h.lo, above[c].lo);
      eHi[c] = vsubq_s16(h.hi, above[c].hi);
      above[c] = h;
    }
    int16x8_t dLo[kRgb565Components];
    int16x8_t dHi[kRgb565Components];
    DirectFields(eLo, dLo);
    DirectFields(eHi, dHi);
    for (uint32_t c = 0; c < kRgb565Components; ++c) {
      widths[c][y] = StoreWordFields(dLo[c], dHi[c], out[c].zig + y * kBlockWidth);
    }
  }
  for (uint32_t c = 0; c < kRgb565Components; ++c) StoreWidths(widths[c], kWidthsOnly, &out[c]);
}

bool NeonColourTransform(const uint8_t* const* planes, size_t pitch, uint32_t n,
                         ColourSamples* out) {
  const int16x8_t limit = vdupq_n_s16(static_cast<int16_t>(1 << n));
  uint8x16_t all = vdupq_n_u8(0);
  for (uint32_t y = 0; y < kBlockHeight; ++y) {
    const uint8x16_t b0 = vld1q_u8(planes[0] + y * pitch);
    const uint8x16_t b1 = vld1q_u8(planes[1] + y * pitch);
    const uint8x16_t b2 = vld1q_u8(planes[2] + y * pitch);
    all = vorrq_u8(all, vorrq_u8(b0, vorrq_u8(b1, b2)));
    const Row16 c0 = WidenBytes(b0);
    const Row16 c1 = WidenBytes(b1);
    const Row16 c2 = WidenBytes(b2);
    const int16x8_t in[3][2] = {{c0.lo, c0.hi}, {c1.lo, c1.hi}, {c2.lo, c2.hi}};
    for (uint32_t half = 0; half < 2; ++half) {
      const int16x8_t co = vsubq_s16(in[0][half], in[2][half]);
      const int16x8_t t = vaddq_s16(in[2][half], vshrq_n_s16(co, 1));
      const int16x8_t cg = vsubq_s16(in[1][half], t);
      const uint32_t at = y * kBlockWidth + half * kHalfRow;
      vst1q_s16(out->c[0] + at, vaddq_s16(t, vshrq_n_s16(cg, 1)));
      vst1q_s16(out->c[1] + at, vaddq_s16(co, limit));
      vst1q_s16(out->c[2] + at, vaddq_s16(cg, limit));
    }
  }
  // Every sample is below 2^n when the OR of all of them is.
  return n >= kByteBits || (vmaxvq_u8(all) >> n) == 0;
}

bool NeonColourLanes(const uint8_t* const* planes, size_t pitch, uint32_t n,
                     const LaneSizing* sizings, ColourSamples* out, LaneResidues* lanes) {
  if (!NeonColourTransform(planes, pitch, n, out)) return false;
  for (uint32_t c = 0; c < kRgb565Components; ++c) NeonExactLane(out->c[c], sizings[c], &lanes[c]);
  return true;
}

// Bit g of the result for byte g of a mask (0 or 0xff).
inline uint32_t MaskBits(uint8x16_t mask) {
  const uint8x16_t weights = {1, 2, 4, 8, 16, 32, 64, 128, 1, 2, 4, 8, 16, 32, 64, 128};
  const uint8x16_t bits = vandq_u8(mask, weights);
  return vaddv_u8(vget_low_u8(bits)) | static_cast<uint32_t>(vaddv_u8(vget_high_u8(bits))) << 8;
}

uint32_t NeonPackLane(const LaneResidues& lane, const LaneCoding& coding, LanePack* out) {
  const uint8x16_t width = vld1q_u8(lane.width);
  const uint8x16_t narrow = vcltq_u8(width, vdupq_n_u8(static_cast<uint8_t>(coding.escape)));
  const uint8x16_t fieldBits =
      vbslq_u8(narrow, width, vdupq_n_u8(static_cast<uint8_t>(coding.codedBits)));
  const uint32_t otherCode = coding.wideCode != 0 ? coding.wideCode : coding.escape;
  vst1q_u8(out->code, vbslq_u8(narrow, width, vdupq_n_u8(static_cast<uint8_t>(otherCode))));
  vst1q_u8(out->fieldBits, vshlq_n_u8(fieldBits, 2));
  const bool rawBytes = coding.wideCode == 0 && coding.rawRows != nullptr;
  const uint8x16_t escaped = coding.wideCode == 0 ? vmvnq_u8(narrow) : vdupq_n_u8(0);
  const uint16x8_t widthsLow = vmovl_u8(vget_low_u8(fieldBits));
  const uint16x8_t widthsHigh = vmovl_u8(vget_high_u8(fieldBits));
  const uint32x4_t rowWidths[kBlockHeight] = {
      vmovl_u16(vget_low_u16(widthsLow)), vmovl_u16(vget_high_u16(widthsLow)),
      vmovl_u16(vget_low_u16(widthsHigh)), vmovl_u16(vget_high_u16(widthsHigh))};
  const uint16x8_t escapedLow = vmovl_u8(vget_low_u8(escaped));
  const uint16x8_t escapedHigh = vmovl_u8(vget_high_u8(escaped));
  const uint32x4_t rowEscapes[kBlockHeight] = {
      vmovl_u16(vget_low_u16(escapedLow)), vmovl_u16(vget_high_u16(escapedLow)),
      vmovl_u16(vget_low_u16(escapedHigh)), vmovl_u16(vget_high_u16(escapedHigh))};
  for (uint32_t y = 0; y < kBlockHeight; ++y) {
    // Pairs (f0 + 2^w f1 in each 16-bit half), then halves (low + 2^(2w) high).
    const uint32x4_t w = rowWidths[y];
    const int16x8_t pairShift = vreinterpretq_s16_u32(vorrq_u32(w, vshlq_n_u32(w, 16)));
    const uint16x8_t fields = vreinterpretq_u16_u8(vld1q_u8(lane.zig + y * kBlockWidth));
    const uint16x8_t pairs =
        vorrq_u16(vandq_u16(fields, vdupq_n_u16(0xff)), vshlq_u16(vshrq_n_u16(fields, 8), pairShift));
    const uint32x4_t quads = vreinterpretq_u32_u16(pairs);
    uint32x4_t packed = vorrq_u32(vandq_u32(quads, vdupq_n_u32(0xffff)),
                                  vshlq_u32(vshrq_n_u32(quads, 16), vreinterpretq_s32_u32(vaddq_u32(w, w))));
    // Escaped groups: their raw samples, or zero.
    const uint32x4_t raw = rawBytes ? vreinterpretq_u32_u8(vld1q_u8(coding.rawRows + y * coding.rawPitch))
                                    : vdupq_n_u32(0);
    packed = vbslq_u32(vcgtq_u32(rowEscapes[y], vdupq_n_u32(0)), raw, packed);
    vst1q_u64(out->fields + y * kGroupsPerRow, vmovl_u32(vget_low_u32(packed)));
    vst1q_u64(out->fields + y * kGroupsPerRow + 2, vmovl_u32(vget_high_u32(packed)));
  }
  return MaskBits(escaped);
}

void NeonSplitQuads(const uint8_t* rows, size_t pitch, uint8_t* planes) {
  for (uint32_t y = 0; y < kBlockHeight; ++y) {
    const uint8x16x4_t pixels = vld4q_u8(rows + y * pitch);
    for (uint32_t c = 0; c < 4; ++c) vst1q_u8(planes + c * kBlockSamples + y * kBlockWidth, pixels.val[c]);
  }
}

void NeonSplitRgb565(const uint8_t* rows, size_t pitch, uint8_t* planes) {
  for (uint32_t y = 0; y < kBlockHeight; ++y) {
    const uint8_t* row = rows + y * pitch;
    const uint16x8_t lo = vreinterpretq_u16_u8(vld1q_u8(row));
    const uint16x8_t hi = vreinterpretq_u16_u8(vld1q_u8(row + 2 * kHalfRow));
    uint8_t* at = planes + y * kBlockWidth;
    const uint16x8_t mask5 = vdupq_n_u16(kRgb565Mask5);
    const uint16x8_t mask6 = vdupq_n_u16(kRgb565Mask6);
    vst1q_u8(at, vcombine_u8(vmovn_u16(vandq_u16(lo, mask5)), vmovn_u16(vandq_u16(hi, mask5))));
    vst1q_u8(at + kBlockSamples,
             vcombine_u8(vmovn_u16(vandq_u16(vshrq_n_u16(lo, kRgb565Shift1), mask6)),
                         vmovn_u16(vandq_u16(vshrq_n_u16(hi, kRgb565Shift1), mask6))));
    vst1q_u8(at + 2 * kBlockSamples, vcombine_u8(vmovn_u16(vshrq_n_u16(lo, kRgb565Shift2)),
                                                 vmovn_u16(vshrq_n_u16(hi, kRgb565Shift2))));
  }
}

LaneKernels MakeNeonLaneKernels() {
  LaneKernels k = PlainLaneKernels();
  k.name = "neon";
  k.byteLane = NeonByteLane;
  k.byteLanePair = NeonByteLanePair;
  k.exactLane = NeonExactLane;
  k.rgb565Lanes = NeonRgb565Lanes;
  k.colourTransform = NeonColourTransform;
  k.colourLanes = NeonColourLanes;
  k.packLane = NeonPackLane;
  k.splitQuads = NeonSplitQuads;
  k.splitRgb565 = NeonSplitRgb565;
  return k;
}

}  // namespace

const LaneKernels& NeonLaneKernels() {
  static const LaneKernels kNeon = MakeNeonLaneKernels();
  return kNeon;
}

}  // namespace pelcast

#endif
