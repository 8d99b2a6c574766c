// The NEON kernel (arm64, where NEON is always present). The layout is the
// AVX2 kernel's: a group index g of a tile holds one 4-sample field set per
// series, series s in 16-bit lanes 4s to 4s + 3; here the sixteen lanes are
// two 128-bit vectors, series 0 and 1, then series 2 and 3. Field sets are
// spread into their lanes with scalar shifts, and each block row is rebuilt
// with the vertical-difference form of the gradient prediction (see
// tile_kernels.h).
#if defined(__aarch64__)

#include <arm_neon.h>

#include <cstring>

#include "decoder/tile_fields.h"
#include "decoder/tile_kernels.h"

namespace pelcast::tile_kernels_detail {
namespace {

constexpr uint32_t kLaneBits = 16;

// Residuals and raw-group masks of every (group, series), four 16-bit lanes
// each, so that a group loads as two vectors.
struct GroupLanes {
  alignas(16) uint64_t residuals[kGroups][kMaxSeries];
  alignas(16) uint64_t raw[kGroups][kMaxSeries];
};

// Four residuals of `width` bits from the front of `window`, one a lane.
inline uint64_t SpreadFields(uint64_t window, uint32_t width) {
  const uint64_t mask = (uint64_t{1} << width) - 1;
  return (window & mask) | ((window >> width) & mask) << kLaneBits |
         ((window >> (2 * width)) & mask) << (2 * kLaneBits) |
         ((window >> (3 * width)) & mask) << (3 * kLaneBits);
}

// Returns the bit position after the last residual.
template <uint32_t S>
uint64_t ReadGroups(const uint8_t* padded, const TileFields& f, GroupLanes* v) {
  uint64_t position = f.residualStart;
  for (uint32_t g = 0; g < kGroups; ++g) {
    for (uint32_t s = 0; s < S; ++s) {
      const uint32_t code = f.codes[g][s];
      const uint32_t width = ResidualWidth(f, s, code);
      v->residuals[g][s] = SpreadFields(PeekStream(padded, position), width);
      v->raw[g][s] = code == f.escape[s] ? ~uint64_t{0} : 0;
      position += kGroupSamples * width;
    }
    for (uint32_t s = S; s < kMaxSeries; ++s) v->residuals[g][s] = v->raw[g][s] = 0;
  }
  return position;
}

inline uint16x8_t LoadLanes(const uint64_t* quarters) {
  return vreinterpretq_u16_u64(vld1q_u64(quarters));
}

// Lane 3 of each series (the last D of a group) in all four of its lanes.
inline uint16x8_t CarryLastLane(uint16x8_t d) {
  static constexpr uint8_t kLast[16] = {6, 7, 6, 7, 6, 7, 6, 7, 14, 15, 14, 15, 14, 15, 14, 15};
  return vreinterpretq_u16_u8(vqtbl1q_u8(vreinterpretq_u8_u16(d), vld1q_u8(kLast)));
}

// One group of two series: D = D(left) + prefix sum of the differences, or
// v - above in a raw group; then s = above + D.
inline void Step(uint16x8_t r, uint16x8_t raw, uint16x8_t* above, uint16x8_t* left) {
  // Zig-zag: r / 2 for even r, -(r + 1) / 2 for odd.
  const int16x8_t odd = vreinterpretq_s16_u16(vandq_u16(r, vdupq_n_u16(1)));
  uint16x8_t d = veorq_u16(vshrq_n_u16(r, 1), vreinterpretq_u16_s16(vnegq_s16(odd)));
  d = vaddq_u16(d, vreinterpretq_u16_u64(vshlq_n_u64(vreinterpretq_u64_u16(d), 16)));
  d = vaddq_u16(d, vreinterpretq_u16_u64(vshlq_n_u64(vreinterpretq_u64_u16(d), 32)));
  const uint16x8_t predicted = vaddq_u16(CarryLastLane(*left), d);
  *left = vbslq_u16(raw, vsubq_u16(r, *above), predicted);
  *above = vaddq_u16(*above, *left);
}

// A block row: low[q] holds series 0 and 1 of group q of the row, high[q]
// series 2 and 3; both enter as the row before (or the base values).
inline void ReconstructRow(const GroupLanes& v, uint32_t y, uint16x8_t low[4], uint16x8_t high[4]) {
  uint16x8_t leftLow = vdupq_n_u16(0);
  uint16x8_t leftHigh = vdupq_n_u16(0);
  for (uint32_t q = 0; q < kGroupsPerRow; ++q) {
    const uint32_t g = kGroupsPerRow * y + q;
    Step(LoadLanes(v.residuals[g]), LoadLanes(v.raw[g]), &low[q], &leftLow);
    Step(LoadLanes(v.residuals[g] + 2), LoadLanes(v.raw[g] + 2), &high[q], &leftHigh);
  }
}

// Low bytes of two series' rows from the four group vectors: the first
// series' 16 samples, then the second's.
struct TwoRows {
  uint8x16_t first, second;
};

inline TwoRows SplitLowBytes(const uint16x8_t s[4]) {
  const uint32x2_t n0 = vreinterpret_u32_u8(vmovn_u16(s[0]));
  const uint32x2_t n1 = vreinterpret_u32_u8(vmovn_u16(s[1]));
  const uint32x2_t n2 = vreinterpret_u32_u8(vmovn_u16(s[2]));
  const uint32x2_t n3 = vreinterpret_u32_u8(vmovn_u16(s[3]));
  return {vreinterpretq_u8_u32(vcombine_u32(vzip1_u32(n0, n1), vzip1_u32(n2, n3))),
          vreinterpretq_u8_u32(vcombine_u32(vzip2_u32(n0, n1), vzip2_u32(n2, n3)))};
}

// Luma: series are blocks top-left, top-right (low) and bottom-left,
// bottom-right (high).
void StoreLumaRow(const uint16x8_t low[4], const uint16x8_t high[4], uint8_t* out, uint64_t pitch,
                  uint32_t y) {
  const TwoRows top = SplitLowBytes(low);
  const TwoRows bottom = SplitLowBytes(high);
  vst1q_u8(out + y * pitch, top.first);
  vst1q_u8(out + y * pitch + kBlockColumns, top.second);
  vst1q_u8(out + (y + kBlockRows) * pitch, bottom.first);
  vst1q_u8(out + (y + kBlockRows) * pitch + kBlockColumns, bottom.second);
}

// Chroma: low holds block 0's U and V, high block 1's; U and V interleave.
void StoreChromaRow(const uint16x8_t low[4], const uint16x8_t high[4], uint8_t* out, uint64_t pitch,
                    uint32_t y) {
  for (uint32_t q = 0; q < kGroupsPerRow; ++q) {
    const uint8x8_t upper = vmovn_u16(low[q]);
    const uint8x8_t lower = vmovn_u16(high[q]);
    vst1_u8(out + y * pitch + 2 * kGroupSamples * q, vzip1_u8(upper, vext_u8(upper, upper, 4)));
    vst1_u8(out + (y + kBlockRows) * pitch + 2 * kGroupSamples * q,
            vzip1_u8(lower, vext_u8(lower, lower, 4)));
  }
}

// One component's 16 samples of a block row as pixels 0-7 and 8-15.
struct ComponentRow {
  uint16x8_t left, right;
};

inline ComponentRow Gather(const uint16x8_t s[4], bool upperHalf) {
  if (upperHalf) {
    return {vcombine_u16(vget_high_u16(s[0]), vget_high_u16(s[1])),
            vcombine_u16(vget_high_u16(s[2]), vget_high_u16(s[3]))};
  }
  return {vcombine_u16(vget_low_u16(s[0]), vget_low_u16(s[1])),
          vcombine_u16(vget_low_u16(s[2]), vget_low_u16(s[3]))};
}

// The inverse colour transform on exact 16-bit samples, clamped to
// 0 .. 2^N - 1; no step leaves the 16-bit range (see tile_kernels.h).
inline void InverseColour(uint16x8_t* c0, uint16x8_t* c1, uint16x8_t* c2, int sampleBits) {
  const int16x8_t offset = vdupq_n_s16(static_cast<int16_t>(1 << sampleBits));
  const int16x8_t maximum = vdupq_n_s16(static_cast<int16_t>((1 << sampleBits) - 1));
  const int16x8_t zero = vdupq_n_s16(0);
  const int16x8_t co = vsubq_s16(vreinterpretq_s16_u16(*c1), offset);
  const int16x8_t cg = vsubq_s16(vreinterpretq_s16_u16(*c2), offset);
  const int16x8_t t = vsubq_s16(vreinterpretq_s16_u16(*c0), vshrq_n_s16(cg, 1));
  const int16x8_t third = vsubq_s16(t, vshrq_n_s16(co, 1));
  const int16x8_t second = vaddq_s16(t, cg);
  const int16x8_t first = vaddq_s16(third, co);
  *c0 = vreinterpretq_u16_s16(vmaxq_s16(vminq_s16(first, maximum), zero));
  *c1 = vreinterpretq_u16_s16(vmaxq_s16(vminq_s16(second, maximum), zero));
  *c2 = vreinterpretq_u16_s16(vmaxq_s16(vminq_s16(third, maximum), zero));
}

inline uint8x16_t LowBytes(const ComponentRow& c) {
  return vcombine_u8(vmovn_u16(c.left), vmovn_u16(c.right));
}

// RGBA8888: low holds R and G, high B and A.
void StoreRgbaRow(const TileFields& f, const uint16x8_t low[4], const uint16x8_t high[4],
                  uint8_t* out, uint64_t pitch, uint32_t y) {
  ComponentRow c[4] = {Gather(low, false), Gather(low, true), Gather(high, false),
                       Gather(high, true)};
  if (f.colourFlag != 0) {
    InverseColour(&c[0].left, &c[1].left, &c[2].left, 8);
    InverseColour(&c[0].right, &c[1].right, &c[2].right, 8);
  }
  uint8x16x4_t pixels;
  pixels.val[0] = LowBytes(c[0]);
  pixels.val[1] = LowBytes(c[1]);
  pixels.val[2] = LowBytes(c[2]);
  pixels.val[3] =
      f.constantFlag != 0 ? vdupq_n_u8(static_cast<uint8_t>(f.base[3])) : LowBytes(c[3]);
  vst4q_u8(out + y * pitch, pixels);
}

// RGB565: low holds components 0 and 1, high component 2.
void StoreRgb565Row(const TileFields& f, const uint16x8_t low[4], const uint16x8_t high[4],
                    uint8_t* out, uint64_t pitch, uint32_t y) {
  ComponentRow c0 = Gather(low, false), c1 = Gather(low, true), c2 = Gather(high, false);
  if (f.colourFlag != 0) {
    InverseColour(&c0.left, &c1.left, &c2.left, 5);
    InverseColour(&c0.right, &c1.right, &c2.right, 5);
  }
  // The 16-bit sum c0 + 32 c1 + 2048 c2, carries and all.
  const uint16x8_t left =
      vaddq_u16(vaddq_u16(c0.left, vshlq_n_u16(c1.left, 5)), vshlq_n_u16(c2.left, 11));
  const uint16x8_t right =
      vaddq_u16(vaddq_u16(c0.right, vshlq_n_u16(c1.right, 5)), vshlq_n_u16(c2.right, 11));
  // Lanes are stored low byte first, as the format's pixels are.
  vst1q_u8(out + y * pitch, vreinterpretq_u8_u16(left));
  vst1q_u8(out + y * pitch + kBlockColumns, vreinterpretq_u8_u16(right));
}

template <TileKind K>
uint32_t DecodeKind(const uint8_t* stream, uint8_t* out, uint64_t pitch) {
  TileFields f;
  ReadTileFields(K, stream, &f);
  if (CodesAllZero(stream, f.residualStart - kGroups * kCodeBits * f.series, f.series)) {
    StoreConstantTile<K>(f, out, pitch);
    return static_cast<uint32_t>(f.residualStart);
  }
  GroupLanes v;
  uint64_t end;
  if (f.series == kMaxSeries) {
    end = ReadGroups<kMaxSeries>(stream, f, &v);
  } else {
    end = ReadGroups<kMaxSeries - 1>(stream, f, &v);
  }
  uint16x8_t low[kGroupsPerRow];
  uint16x8_t high[kGroupsPerRow];
  const uint16x4_t b0 = vdup_n_u16(f.base[0]), b1 = vdup_n_u16(f.base[1]);
  const uint16x4_t b2 = vdup_n_u16(f.base[2]), b3 = vdup_n_u16(f.base[3]);
  for (uint32_t q = 0; q < kGroupsPerRow; ++q) {
    low[q] = vcombine_u16(b0, b1);
    high[q] = vcombine_u16(b2, b3);
  }
  for (uint32_t y = 0; y < kBlockRows; ++y) {
    ReconstructRow(v, y, low, high);
    if constexpr (K == TileKind::kRgba8888) {
      StoreRgbaRow(f, low, high, out, pitch, y);
    } else if constexpr (K == TileKind::kNv12Luma) {
      StoreLumaRow(low, high, out, pitch, y);
    } else if constexpr (K == TileKind::kNv12Chroma) {
      StoreChromaRow(low, high, out, pitch, y);
    } else {
      StoreRgb565Row(f, low, high, out, pitch, y);
    }
  }
  return static_cast<uint32_t>(end);
}

// ---- Raw tiles: micro-block order to raster rows ----
//
// A 4 x 4 micro-block stores its elements as horizontal pairs in the order
// row 0 pair 0, row 1 pair 0, row 0 pair 1, row 1 pair 1, then the same for
// rows 2 and 3; micro-blocks follow each other in raster order.

constexpr uint32_t kMicroBlockRows = 4;

// One-byte elements (luma, 32 x 8): a micro-block is one vector; after the
// table lookup its four rows are 32-bit lanes, and four micro-blocks
// transpose into four 16-byte rows. A band is a row of eight micro-blocks.
void ExpandRawLuma(const uint8_t* stored, uint8_t* out, uint64_t pitch) {
  static constexpr uint8_t kToRows[16] = {0, 1, 4, 5, 2, 3, 6, 7, 8, 9, 12, 13, 10, 11, 14, 15};
  const uint8x16_t toRows = vld1q_u8(kToRows);
  constexpr uint32_t kBands = 2, kBandBytes = 128, kBlockBytes = 16;
  for (uint32_t band = 0; band < kBands; ++band) {
    for (uint32_t half = 0; half < 2; ++half) {  // micro-blocks 0-3, then 4-7
      const uint8_t* in = stored + kBandBytes * band + 4 * kBlockBytes * half;
      uint32x4_t b[4];
      for (uint32_t m = 0; m < 4; ++m) {
        b[m] = vreinterpretq_u32_u8(vqtbl1q_u8(vld1q_u8(in + kBlockBytes * m), toRows));
      }
      const uint64x2_t t0 = vreinterpretq_u64_u32(vzip1q_u32(b[0], b[1]));
      const uint64x2_t t1 = vreinterpretq_u64_u32(vzip2q_u32(b[0], b[1]));
      const uint64x2_t t2 = vreinterpretq_u64_u32(vzip1q_u32(b[2], b[3]));
      const uint64x2_t t3 = vreinterpretq_u64_u32(vzip2q_u32(b[2], b[3]));
      const uint64x2_t rows[4] = {vzip1q_u64(t0, t2), vzip2q_u64(t0, t2), vzip1q_u64(t1, t3),
                                  vzip2q_u64(t1, t3)};
      for (uint32_t y = 0; y < kMicroBlockRows; ++y) {
        vst1q_u8(out + (kMicroBlockRows * band + y) * pitch + 16 * half,
                 vreinterpretq_u8_u64(rows[y]));
      }
    }
  }
}

// Two-byte elements (chroma 16 x 8, RGB565 16 x 4): a micro-block is two
// vectors of 32-bit pairs; unzipping them gives rows 0 | 2 and rows 1 | 3.
// `bands` rows of four micro-blocks.
void ExpandRawPairs(const uint8_t* stored, uint8_t* out, uint64_t pitch, uint32_t bands) {
  constexpr uint32_t kBandBytes = 128, kBlockBytes = 32, kBlockRowBytes = 8;
  for (uint32_t band = 0; band < bands; ++band) {
    uint8_t* row = out + kMicroBlockRows * band * pitch;
    for (uint32_t m = 0; m < 4; ++m) {
      const uint8_t* in = stored + kBandBytes * band + kBlockBytes * m;
      const uint32x4_t a = vreinterpretq_u32_u8(vld1q_u8(in));
      const uint32x4_t b = vreinterpretq_u32_u8(vld1q_u8(in + 16));
      const uint8x16_t even = vreinterpretq_u8_u32(vuzp1q_u32(a, b));  // rows 0 | 2
      const uint8x16_t odd = vreinterpretq_u8_u32(vuzp2q_u32(a, b));   // rows 1 | 3
      uint8_t* at = row + kBlockRowBytes * m;
      vst1_u8(at, vget_low_u8(even));
      vst1_u8(at + pitch, vget_low_u8(odd));
      vst1_u8(at + 2 * pitch, vget_high_u8(even));
      vst1_u8(at + 3 * pitch, vget_high_u8(odd));
    }
  }
}

// Four-byte elements (16 x 4): a micro-block is four vectors of 64-bit
// pairs, rows 0 | 1 of pair 0, of pair 1, then rows 2 | 3 likewise.
void ExpandRawRgba(const uint8_t* stored, uint8_t* out, uint64_t pitch) {
  constexpr uint32_t kBlockBytes = 64, kBlockRowBytes = 16;
  for (uint32_t m = 0; m < 4; ++m) {
    const uint8_t* in = stored + kBlockBytes * m;
    uint64x2_t q[4];
    for (uint32_t i = 0; i < 4; ++i) q[i] = vreinterpretq_u64_u8(vld1q_u8(in + 16 * i));
    const uint64x2_t rows[4] = {vzip1q_u64(q[0], q[1]), vzip2q_u64(q[0], q[1]),
                                vzip1q_u64(q[2], q[3]), vzip2q_u64(q[2], q[3])};
    for (uint32_t y = 0; y < kMicroBlockRows; ++y) {
      vst1q_u8(out + y * pitch + kBlockRowBytes * m, vreinterpretq_u8_u64(rows[y]));
    }
  }
}

}  // namespace

uint32_t DecodeRgba8888Neon(const uint8_t* stream, uint8_t* out, uint64_t pitch) {
  return DecodeKind<TileKind::kRgba8888>(stream, out, pitch);
}

uint32_t DecodeLumaNeon(const uint8_t* stream, uint8_t* out, uint64_t pitch) {
  return DecodeKind<TileKind::kNv12Luma>(stream, out, pitch);
}

uint32_t DecodeChromaNeon(const uint8_t* stream, uint8_t* out, uint64_t pitch) {
  return DecodeKind<TileKind::kNv12Chroma>(stream, out, pitch);
}

uint32_t DecodeRgb565Neon(const uint8_t* stream, uint8_t* out, uint64_t pitch) {
  return DecodeKind<TileKind::kRgb565>(stream, out, pitch);
}

void ExpandRawRgba8888Neon(const uint8_t* stored, uint8_t* out, uint64_t pitch) {
  ExpandRawRgba(stored, out, pitch);
}

void ExpandRawLumaNeon(const uint8_t* stored, uint8_t* out, uint64_t pitch) {
  ExpandRawLuma(stored, out, pitch);
}

void ExpandRawChromaNeon(const uint8_t* stored, uint8_t* out, uint64_t pitch) {
  ExpandRawPairs(stored, out, pitch, 2);
}

void ExpandRawRgb565Neon(const uint8_t* stored, uint8_t* out, uint64_t pitch) {
  ExpandRawPairs(stored, out, pitch, 1);
}

}  // namespace pelcast::tile_kernels_detail

#endif  // __aarch64__
