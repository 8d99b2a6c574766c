// The x86-64 lane routines, written with SSE2 intrinsics. Each mirrors its
// plain twin in lane_kernels.cc step for step, a whole block row at a time.
// The file is compiled twice: as it is (SSE2, which every x86-64 processor
// has) and for processors with AVX2, where the same operations take the
// three-operand encoding and need none of the register copies. The including
// file defines PELCAST_X86_ROUTINE, which every function here carries: empty
// for the SSE2 build, the AVX2 target attribute for the other. All of it has
// internal linkage, so neither build's copy can stand in for the other's.
#pragma once

#include <emmintrin.h>

#include "encoder/lane_kernels.h"
#include "encoder/lane_math.h"

namespace pelcast {
namespace {

constexpr int kFloatMantissaBits = 23;
constexpr int kFloatExponentBias = 127;
constexpr uint32_t kHalfRow = kBlockWidth / 2;  // 16-bit samples per register

// Bit widths of four 32-bit values below 2^16: the exponent of the float
// 2v + 1, which is exact and lies in [2^w, 2^(w+1)) for v of width w.
PELCAST_X86_ROUTINE inline __m128i BitWidths32(__m128i v) {
  const __m128i odd = _mm_add_epi32(_mm_add_epi32(v, v), _mm_set1_epi32(1));
  const __m128i bits = _mm_castps_si128(_mm_cvtepi32_ps(odd));
  return _mm_sub_epi32(_mm_srli_epi32(bits, kFloatMantissaBits),
                       _mm_set1_epi32(kFloatExponentBias));
}

// The OR of each group of four bytes, as four 32-bit values.
PELCAST_X86_ROUTINE inline __m128i GroupOrBytes(__m128i z) {
  __m128i o = _mm_or_si128(z, _mm_srli_epi32(z, 16));
  o = _mm_or_si128(o, _mm_srli_epi32(o, 8));
  return _mm_and_si128(o, _mm_set1_epi32(0xff));
}

// The OR of each group of four 16-bit values in two registers (groups 0, 1
// and 2, 3 of a row), as four 32-bit values.
PELCAST_X86_ROUTINE inline __m128i GroupOrWords(__m128i lo, __m128i hi) {
  lo = _mm_or_si128(lo, _mm_srli_epi64(lo, 32));
  lo = _mm_or_si128(lo, _mm_srli_epi64(lo, 16));
  hi = _mm_or_si128(hi, _mm_srli_epi64(hi, 32));
  hi = _mm_or_si128(hi, _mm_srli_epi64(hi, 16));
  const int kEvenDwords = _MM_SHUFFLE(3, 1, 2, 0);
  const __m128i row =
      _mm_unpacklo_epi64(_mm_shuffle_epi32(lo, kEvenDwords), _mm_shuffle_epi32(hi, kEvenDwords));
  return _mm_and_si128(row, _mm_set1_epi32(0xffff));
}

// Bits of a lane's codes and fields from its 16 group widths: groups
// narrower than the escape take their width, the others the coded width.
PELCAST_X86_ROUTINE inline uint32_t SizeWidths(__m128i width, const LaneSizing& sizing) {
  const __m128i narrow = _mm_cmplt_epi8(width, _mm_set1_epi8(static_cast<char>(sizing.escape)));
  const __m128i fieldBits =
      _mm_or_si128(_mm_and_si128(narrow, width),
                   _mm_andnot_si128(narrow, _mm_set1_epi8(static_cast<char>(sizing.codedBits))));
  const __m128i sums = _mm_sad_epu8(fieldBits, _mm_setzero_si128());
  const uint32_t total =
      static_cast<uint32_t>(_mm_cvtsi128_si32(sums) + _mm_cvtsi128_si32(_mm_srli_si128(sums, 8)));
  return kGroupsPerBlock * kCodeBits + kGroupSize * total;
}

// Every group keeps its width: no width reaches this escape.
constexpr LaneSizing kWidthsOnly = {32, 0};

// Stores the widths of the four rows' groups as 16 bytes in group order, and
// the lane's size.
PELCAST_X86_ROUTINE inline void StoreWidths(const __m128i* rowWidths, const LaneSizing& sizing,
                                            LaneResidues* out) {
  const __m128i top = _mm_packs_epi32(rowWidths[0], rowWidths[1]);
  const __m128i bottom = _mm_packs_epi32(rowWidths[2], rowWidths[3]);
  const __m128i widths = _mm_packus_epi16(top, bottom);
  _mm_store_si128(reinterpret_cast<__m128i*>(out->width), widths);
  out->bits = SizeWidths(widths, sizing);
}

PELCAST_X86_ROUTINE inline __m128i ZigZag8(__m128i d) {
  return _mm_xor_si128(_mm_add_epi8(d, d), _mm_cmpgt_epi8(_mm_setzero_si128(), d));
}

PELCAST_X86_ROUTINE inline __m128i ZigZag16(__m128i d) {
  return _mm_xor_si128(_mm_add_epi16(d, d), _mm_srai_epi16(d, 15));
}

// One row of 16-bit samples in two registers, and the horizontal
// differences of a row: sample minus its left neighbour, `first` left of
// column 0.
struct Row16 {
  __m128i lo, hi;
};

PELCAST_X86_ROUTINE inline Row16 HorizontalDifferences(Row16 s, __m128i first) {
  const __m128i leftLo = _mm_or_si128(_mm_slli_si128(s.lo, 2), first);
  const __m128i leftHi = _mm_or_si128(_mm_slli_si128(s.hi, 2), _mm_srli_si128(s.lo, 14));
  return Row16{_mm_sub_epi16(s.lo, leftLo), _mm_sub_epi16(s.hi, leftHi)};
}

PELCAST_X86_ROUTINE inline Row16 WidenBytes(__m128i bytes) {
  const __m128i zero = _mm_setzero_si128();
  return Row16{_mm_unpacklo_epi8(bytes, zero), _mm_unpackhi_epi8(bytes, zero)};
}

PELCAST_X86_ROUTINE inline __m128i Load(const void* at) {
  return _mm_loadu_si128(static_cast<const __m128i*>(at));
}

PELCAST_X86_ROUTINE void X86ByteLane(const uint8_t* rows, size_t pitch, const LaneSizing& sizing,
                                     LaneResidues* out) {
  const __m128i base = _mm_cvtsi32_si128(rows[0]);
  __m128i above = _mm_setzero_si128();
  __m128i widths[kBlockHeight];
  for (uint32_t y = 0; y < kBlockHeight; ++y) {
    const __m128i s = Load(rows + y * pitch);
    const __m128i h = _mm_sub_epi8(s, _mm_or_si128(_mm_slli_si128(s, 1), base));
    const __m128i z = ZigZag8(_mm_sub_epi8(h, above));
    above = h;
    _mm_store_si128(reinterpret_cast<__m128i*>(out->zig + y * kBlockWidth), z);
    widths[y] = BitWidths32(GroupOrBytes(z));
  }
  StoreWidths(widths, sizing, out);
}

PELCAST_X86_ROUTINE void X86ByteLanePair(const uint8_t* first, const uint8_t* second, size_t pitch,
                                         const LaneSizing& sizing, LaneResidues* firstOut,
                                         LaneResidues* secondOut) {
  X86ByteLane(first, pitch, sizing, firstOut);
  X86ByteLane(second, pitch, sizing, secondOut);
}

// Residual fields of one row of 16-bit residuals: stored saturated to bytes,
// group widths returned.
PELCAST_X86_ROUTINE inline __m128i StoreWordFields(Row16 d, uint8_t* zig) {
  const __m128i lo = ZigZag16(d.lo);
  const __m128i hi = ZigZag16(d.hi);
  _mm_store_si128(reinterpret_cast<__m128i*>(zig), _mm_packus_epi16(lo, hi));
  return BitWidths32(GroupOrWords(lo, hi));
}

PELCAST_X86_ROUTINE void X86ExactLane(const int16_t* samples, const LaneSizing& sizing,
                                      LaneResidues* out) {
  const __m128i base = _mm_cvtsi32_si128(static_cast<uint16_t>(samples[0]));
  Row16 above{_mm_setzero_si128(), _mm_setzero_si128()};
  __m128i widths[kBlockHeight];
  for (uint32_t y = 0; y < kBlockHeight; ++y) {
    const int16_t* row = samples + y * kBlockWidth;
    const Row16 h = HorizontalDifferences(Row16{Load(row), Load(row + kHalfRow)}, base);
    const Row16 d{_mm_sub_epi16(h.lo, above.lo), _mm_sub_epi16(h.hi, above.hi)};
    above = h;
    widths[y] = StoreWordFields(d, out->zig + y * kBlockWidth);
  }
  StoreWidths(widths, sizing, out);
}

// Balanced residue of 16-bit values modulo 2^bits.
PELCAST_X86_ROUTINE inline __m128i Balanced16(__m128i v, int bits) {
  const __m128i half = _mm_set1_epi16(static_cast<int16_t>(1 << (bits - 1)));
  const __m128i mask = _mm_set1_epi16(static_cast<int16_t>((1 << bits) - 1));
  return _mm_sub_epi16(_mm_and_si128(_mm_add_epi16(v, half), mask), half);
}

// The carry chain of lane_math.h's Rgb565DirectFields on eight pixels.
PELCAST_X86_ROUTINE inline void DirectFields(const __m128i* e, __m128i* d) {
  constexpr int kBits0 = 5;
  constexpr int kBits1 = 6;
  constexpr int kBits2 = 5;
  d[0] = Balanced16(e[0], kBits0);
  const __m128i carry0 = _mm_srai_epi16(_mm_sub_epi16(d[0], e[0]), kBits0);
  d[1] = Balanced16(_mm_sub_epi16(e[1], carry0), kBits1);
  const __m128i carry1 = _mm_srai_epi16(_mm_add_epi16(_mm_sub_epi16(d[1], e[1]), carry0), kBits1);
  d[2] = Balanced16(_mm_sub_epi16(e[2], carry1), kBits2);
}

PELCAST_X86_ROUTINE void X86Rgb565Lanes(const uint8_t* const* planes, size_t pitch,
                                        LaneResidues* out) {
  __m128i base[kRgb565Components];
  Row16 above[kRgb565Components];
  for (uint32_t c = 0; c < kRgb565Components; ++c) {
    base[c] = _mm_cvtsi32_si128(planes[c][0]);
    above[c] = Row16{_mm_setzero_si128(), _mm_setzero_si128()};
  }
  __m128i widths[kRgb565Components][kBlockHeight];
  for (uint32_t y = 0; y < kBlockHeight; ++y) {
    __m128i eLo[kRgb565Components];
    __m128i eHi[kRgb565Components];
    for (uint32_t c = 0; c < kRgb565Components; ++c) {
      const Row16 h = HorizontalDifferences(WidenBytes(Load(planes[c] + y * pitch)), base[c]);
      eLo[c] = _mm_sub_epi16(h.lo, above[c].lo);
      eHi[c] = _mm_sub_epi16(h.hi, above[c].hi);
      above[c] = h;
    }
    __m128i dLo[kRgb565Components];
    __m128i dHi[kRgb565Components];
    DirectFields(eLo, dLo);
    DirectFields(eHi, dHi);
    for (uint32_t c = 0; c < kRgb565Components; ++c) {
      widths[c][y] = StoreWordFields(Row16{dLo[c], dHi[c]}, out[c].zig + y * kBlockWidth);
    }
  }
  for (uint32_t c = 0; c < kRgb565Components; ++c) StoreWidths(widths[c], kWidthsOnly, &out[c]);
}

PELCAST_X86_ROUTINE bool X86ColourTransform(const uint8_t* const* planes, size_t pitch, uint32_t n,
                                            ColourSamples* out) {
  const __m128i limit = _mm_set1_epi16(static_cast<int16_t>(1 << n));
  __m128i all = _mm_setzero_si128();
  for (uint32_t y = 0; y < kBlockHeight; ++y) {
    const __m128i b0 = Load(planes[0] + y * pitch);
    const __m128i b1 = Load(planes[1] + y * pitch);
    const __m128i b2 = Load(planes[2] + y * pitch);
    all = _mm_or_si128(all, _mm_or_si128(b0, _mm_or_si128(b1, b2)));
    const Row16 c0 = WidenBytes(b0);
    const Row16 c1 = WidenBytes(b1);
    const Row16 c2 = WidenBytes(b2);
    const __m128i* in[3][2] = {{&c0.lo, &c0.hi}, {&c1.lo, &c1.hi}, {&c2.lo, &c2.hi}};
    for (uint32_t half = 0; half < 2; ++half) {
      const __m128i co = _mm_sub_epi16(*in[0][half], *in[2][half]);
      const __m128i t = _mm_add_epi16(*in[2][half], _mm_srai_epi16(co, 1));
      const __m128i cg = _mm_sub_epi16(*in[1][half], t);
      const uint32_t at = y * kBlockWidth + half * kHalfRow;
      _mm_storeu_si128(reinterpret_cast<__m128i*>(out->c[0] + at),
                       _mm_add_epi16(t, _mm_srai_epi16(cg, 1)));
      _mm_storeu_si128(reinterpret_cast<__m128i*>(out->c[1] + at), _mm_add_epi16(co, limit));
      _mm_storeu_si128(reinterpret_cast<__m128i*>(out->c[2] + at), _mm_add_epi16(cg, limit));
    }
  }
  // Every sample is below 2^n when the OR of all of them is.
  if (n >= kByteBits) return true;
  const __m128i high = _mm_set1_epi8(static_cast<char>(0xff << n));
  const __m128i clear = _mm_cmpeq_epi8(_mm_and_si128(all, high), _mm_setzero_si128());
  return _mm_movemask_epi8(clear) == 0xffff;
}

PELCAST_X86_ROUTINE bool X86ColourLanes(const uint8_t* const* planes, size_t pitch, uint32_t n,
                                        const LaneSizing* sizings, ColourSamples* out,
                                        LaneResidues* lanes) {
  if (!X86ColourTransform(planes, pitch, n, out)) return false;
  for (uint32_t c = 0; c < kRgb565Components; ++c) X86ExactLane(out->c[c], sizings[c], &lanes[c]);
  return true;
}

// 2^v for four 32-bit values v below 31: the float of exponent v.
PELCAST_X86_ROUTINE inline __m128i PowersOfTwo32(__m128i v) {
  const __m128i bits =
      _mm_slli_epi32(_mm_add_epi32(v, _mm_set1_epi32(kFloatExponentBias)), kFloatMantissaBits);
  return _mm_cvttps_epi32(_mm_castsi128_ps(bits));
}

PELCAST_X86_ROUTINE inline __m128i Select(__m128i mask, __m128i ifSet, __m128i ifClear) {
  return _mm_or_si128(_mm_and_si128(mask, ifSet), _mm_andnot_si128(mask, ifClear));
}

// Bytes 4y .. 4y + 3 of `bytes` as four 32-bit values, zero-extended.
PELCAST_X86_ROUTINE inline void WidenQuarters(__m128i bytes, __m128i* out) {
  const __m128i zero = _mm_setzero_si128();
  const __m128i lo = _mm_unpacklo_epi8(bytes, zero);
  const __m128i hi = _mm_unpackhi_epi8(bytes, zero);
  out[0] = _mm_unpacklo_epi16(lo, zero);
  out[1] = _mm_unpackhi_epi16(lo, zero);
  out[2] = _mm_unpacklo_epi16(hi, zero);
  out[3] = _mm_unpackhi_epi16(hi, zero);
}

// The same for a byte mask (0 or 0xff), each byte spread over its 32 bits.
PELCAST_X86_ROUTINE inline void WidenMaskQuarters(__m128i mask, __m128i* out) {
  const __m128i lo = _mm_unpacklo_epi8(mask, mask);
  const __m128i hi = _mm_unpackhi_epi8(mask, mask);
  out[0] = _mm_unpacklo_epi16(lo, lo);
  out[1] = _mm_unpackhi_epi16(lo, lo);
  out[2] = _mm_unpacklo_epi16(hi, hi);
  out[3] = _mm_unpackhi_epi16(hi, hi);
}

// Packs four groups of four byte fields, each group to its width w below
// 16: pairs first (f0 + 2^w f1 in each 16-bit half), then the halves
// (low + 2^(2w) high) with one multiply-add.
PELCAST_X86_ROUTINE inline __m128i PackGroups(__m128i fields, __m128i widths) {
  const __m128i power = PowersOfTwo32(widths);
  const __m128i pairScale = _mm_or_si128(power, _mm_slli_epi32(power, 16));
  const __m128i pairs = _mm_or_si128(_mm_and_si128(fields, _mm_set1_epi16(0xff)),
                                     _mm_mullo_epi16(_mm_srli_epi16(fields, 8), pairScale));
  const __m128i halfScale =
      _mm_or_si128(_mm_set1_epi32(1), _mm_slli_epi32(_mm_mullo_epi16(power, power), 16));
  return _mm_madd_epi16(pairs, halfScale);
}

PELCAST_X86_ROUTINE uint32_t X86PackLane(const LaneResidues& lane, const LaneCoding& coding,
                                         LanePack* out) {
  const __m128i zero = _mm_setzero_si128();
  const __m128i width = _mm_load_si128(reinterpret_cast<const __m128i*>(lane.width));
  const __m128i narrow = _mm_cmplt_epi8(width, _mm_set1_epi8(static_cast<char>(coding.escape)));
  const __m128i fieldBits =
      Select(narrow, width, _mm_set1_epi8(static_cast<char>(coding.codedBits)));
  const uint32_t otherCode = coding.wideCode != 0 ? coding.wideCode : coding.escape;
  _mm_store_si128(reinterpret_cast<__m128i*>(out->code),
                  Select(narrow, width, _mm_set1_epi8(static_cast<char>(otherCode))));
  const __m128i doubled = _mm_add_epi8(fieldBits, fieldBits);
  _mm_store_si128(reinterpret_cast<__m128i*>(out->fieldBits), _mm_add_epi8(doubled, doubled));
  __m128i widths[kBlockHeight];
  __m128i raw[kBlockHeight];
  WidenQuarters(fieldBits, widths);
  const bool rawBytes = coding.wideCode == 0 && coding.rawRows != nullptr;
  const __m128i escaped = coding.wideCode == 0 ? _mm_cmpeq_epi8(narrow, zero) : zero;
  WidenMaskQuarters(escaped, raw);
  for (uint32_t y = 0; y < kBlockHeight; ++y) {
    __m128i packed = PackGroups(Load(lane.zig + y * kBlockWidth), widths[y]);
    const __m128i samples = rawBytes ? Load(coding.rawRows + y * coding.rawPitch) : zero;
    packed = Select(raw[y], samples, packed);
    __m128i* at = reinterpret_cast<__m128i*>(out->fields + y * kGroupsPerRow);
    _mm_store_si128(at, _mm_unpacklo_epi32(packed, zero));
    _mm_store_si128(at + 1, _mm_unpackhi_epi32(packed, zero));
  }
  return static_cast<uint32_t>(_mm_movemask_epi8(escaped));
}

// The codes of lane l, zero past the last lane.
PELCAST_X86_ROUTINE inline __m128i LaneCodes(const LanePack* packs, uint32_t lanes, uint32_t l) {
  return l < lanes ? _mm_load_si128(reinterpret_cast<const __m128i*>(packs[l].code))
                   : _mm_setzero_si128();
}

PELCAST_X86_ROUTINE void X86PackCodes(const LanePack* packs, uint32_t lanes, uint64_t* words) {
  // Each group's four codes as the bytes of a 32-bit value, then packed to
  // 3-bit fields like four 3-bit residuals.
  const __m128i c0 = LaneCodes(packs, lanes, 0);
  const __m128i c1 = LaneCodes(packs, lanes, 1);
  const __m128i c2 = LaneCodes(packs, lanes, 2);
  const __m128i c3 = LaneCodes(packs, lanes, 3);
  const __m128i lo01 = _mm_unpacklo_epi8(c0, c1);
  const __m128i hi01 = _mm_unpackhi_epi8(c0, c1);
  const __m128i lo23 = _mm_unpacklo_epi8(c2, c3);
  const __m128i hi23 = _mm_unpackhi_epi8(c2, c3);
  const __m128i quads[4] = {_mm_unpacklo_epi16(lo01, lo23), _mm_unpackhi_epi16(lo01, lo23),
                            _mm_unpacklo_epi16(hi01, hi23), _mm_unpackhi_epi16(hi01, hi23)};
  const uint32_t groupBits = kCodeBits * lanes;
  const __m128i low32 = _mm_set1_epi64x(0xffffffff);
  const __m128i raise = _mm_cvtsi32_si128(static_cast<int>(32 - groupBits));
  for (uint32_t q = 0; q < 4; ++q) {
    const __m128i groups = PackGroups(quads[q], _mm_set1_epi32(kCodeBits));
    // Two groups to each 64-bit half: the odd one moved down to bit groupBits.
    const __m128i pairs = _mm_or_si128(_mm_and_si128(groups, low32), _mm_srl_epi64(groups, raise));
    alignas(16) uint64_t halves[2];
    _mm_store_si128(reinterpret_cast<__m128i*>(halves), pairs);
    words[q] = halves[0] | halves[1] << (2 * groupBits);
  }
}

PELCAST_X86_ROUTINE void X86SplitQuads(const uint8_t* rows, size_t pitch, uint8_t* planes) {
  constexpr uint32_t kRowBytes = 4 * kBlockWidth;
  for (uint32_t y = 0; y < kBlockHeight; ++y) {
    const uint8_t* row = rows + y * pitch;
    __m128i p[4];
    for (uint32_t i = 0; i < 4; ++i) p[i] = Load(row + i * (kRowBytes / 4));
    // Three rounds of byte interleaving sort the 64 bytes by component:
    // components 0 and 1 of pixels 0-7 in c0, 2 and 3 in c1, pixels 8-15 in
    // c2 and c3.
    const __m128i a0 = _mm_unpacklo_epi8(p[0], p[1]);
    const __m128i a1 = _mm_unpackhi_epi8(p[0], p[1]);
    const __m128i a2 = _mm_unpacklo_epi8(p[2], p[3]);
    const __m128i a3 = _mm_unpackhi_epi8(p[2], p[3]);
    const __m128i b0 = _mm_unpacklo_epi8(a0, a1);
    const __m128i b1 = _mm_unpackhi_epi8(a0, a1);
    const __m128i b2 = _mm_unpacklo_epi8(a2, a3);
    const __m128i b3 = _mm_unpackhi_epi8(a2, a3);
    const __m128i c0 = _mm_unpacklo_epi8(b0, b1);
    const __m128i c1 = _mm_unpackhi_epi8(b0, b1);
    const __m128i c2 = _mm_unpacklo_epi8(b2, b3);
    const __m128i c3 = _mm_unpackhi_epi8(b2, b3);
    uint8_t* at = planes + y * kBlockWidth;
    _mm_store_si128(reinterpret_cast<__m128i*>(at), _mm_unpacklo_epi64(c0, c2));
    _mm_store_si128(reinterpret_cast<__m128i*>(at + kBlockSamples), _mm_unpackhi_epi64(c0, c2));
    _mm_store_si128(reinterpret_cast<__m128i*>(at + 2 * kBlockSamples), _mm_unpacklo_epi64(c1, c3));
    _mm_store_si128(reinterpret_cast<__m128i*>(at + 3 * kBlockSamples), _mm_unpackhi_epi64(c1, c3));
  }
}

PELCAST_X86_ROUTINE void X86SplitRgb565(const uint8_t* rows, size_t pitch, uint8_t* planes) {
  const __m128i mask5 = _mm_set1_epi16(kRgb565Mask5);
  const __m128i mask6 = _mm_set1_epi16(kRgb565Mask6);
  for (uint32_t y = 0; y < kBlockHeight; ++y) {
    const __m128i lo = Load(rows + y * pitch);
    const __m128i hi = Load(rows + y * pitch + 2 * kHalfRow);
    uint8_t* at = planes + y * kBlockWidth;
    _mm_store_si128(reinterpret_cast<__m128i*>(at),
                    _mm_packus_epi16(_mm_and_si128(lo, mask5), _mm_and_si128(hi, mask5)));
    _mm_store_si128(reinterpret_cast<__m128i*>(at + kBlockSamples),
                    _mm_packus_epi16(_mm_and_si128(_mm_srli_epi16(lo, kRgb565Shift1), mask6),
                                     _mm_and_si128(_mm_srli_epi16(hi, kRgb565Shift1), mask6)));
    _mm_store_si128(
        reinterpret_cast<__m128i*>(at + 2 * kBlockSamples),
        _mm_packus_epi16(_mm_srli_epi16(lo, kRgb565Shift2), _mm_srli_epi16(hi, kRgb565Shift2)));
  }
}

constexpr LaneKernels MakeX86LaneKernels(const char* name) {
  return LaneKernels{
      .name = name,
      .byteLane = X86ByteLane,
      .byteLanePair = X86ByteLanePair,
      .exactLane = X86ExactLane,
      .rgb565Lanes = X86Rgb565Lanes,
      .colourTransform = X86ColourTransform,
      .colourLanes = X86ColourLanes,
      .packLane = X86PackLane,
      .packCodes = X86PackCodes,
      .joinGroupFields = PlainJoinGroupFields,
      .splitQuads = X86SplitQuads,
      .splitRgb565 = X86SplitRgb565,
  };
}

}  // namespace
}  // namespace pelcast
