// The x86-64 lane routines compiled for AVX2 (see lane_kernels_x86.h), and
// the ones that use AVX2's wider registers. Every function here carries the
// AVX2 target attribute and has internal linkage, so the rest of the program
// stays baseline whatever the compiler; the routines run only from the table
// of the avx2 kernel set (common/cpu.h).
#include "encoder/lane_kernels.h"
#include "encoder/lane_math.h"

#if defined(__x86_64__)
#include <immintrin.h>

#define PELCAST_X86_ROUTINE __attribute__((target("avx2,bmi,bmi2")))
#include "encoder/lane_kernels_x86.h"
#endif

namespace pelcast {

#if defined(__x86_64__)

namespace {

// Two blocks side by side in one register: each 128-bit half is one lane of
// the SSE2 routine, and the byte shifts of AVX2 stay within their half.
PELCAST_X86_ROUTINE void Avx2ByteLanePair(const uint8_t* first, const uint8_t* second, size_t pitch,
                                          const LaneSizing& sizing, LaneResidues* firstOut,
                                          LaneResidues* secondOut) {
  const __m256i base = _mm256_set_m128i(_mm_cvtsi32_si128(second[0]), _mm_cvtsi32_si128(first[0]));
  const __m256i zero = _mm256_setzero_si256();
  const __m256i lowByte = _mm256_set1_epi32(0xff);
  const __m256i one = _mm256_set1_epi32(1);
  const __m256i bias = _mm256_set1_epi32(kFloatExponentBias);
  __m256i above = zero;
  __m256i widths[kBlockHeight];
  for (uint32_t y = 0; y < kBlockHeight; ++y) {
    const __m256i s = _mm256_loadu2_m128i(reinterpret_cast<const __m128i*>(second + y * pitch),
                                          reinterpret_cast<const __m128i*>(first + y * pitch));
    const __m256i h = _mm256_sub_epi8(s, _mm256_or_si256(_mm256_slli_si256(s, 1), base));
    const __m256i d = _mm256_sub_epi8(h, above);
    above = h;
    const __m256i z = _mm256_xor_si256(_mm256_add_epi8(d, d), _mm256_cmpgt_epi8(zero, d));
    _mm256_storeu2_m128i(reinterpret_cast<__m128i*>(secondOut->zig + y * kBlockWidth),
                         reinterpret_cast<__m128i*>(firstOut->zig + y * kBlockWidth), z);
    __m256i o = _mm256_or_si256(z, _mm256_srli_epi32(z, 16));
    o = _mm256_and_si256(_mm256_or_si256(o, _mm256_srli_epi32(o, 8)), lowByte);
    const __m256i odd = _mm256_add_epi32(_mm256_add_epi32(o, o), one);
    const __m256i bits = _mm256_castps_si256(_mm256_cvtepi32_ps(odd));
    widths[y] = _mm256_sub_epi32(_mm256_srli_epi32(bits, kFloatMantissaBits), bias);
  }
  const __m256i packed = _mm256_packus_epi16(_mm256_packs_epi32(widths[0], widths[1]),
                                             _mm256_packs_epi32(widths[2], widths[3]));
  _mm256_storeu2_m128i(reinterpret_cast<__m128i*>(secondOut->width),
                       reinterpret_cast<__m128i*>(firstOut->width), packed);
  // Both lanes' sizes: the field widths summed per half.
  const __m256i narrow =
      _mm256_cmpgt_epi8(_mm256_set1_epi8(static_cast<char>(sizing.escape)), packed);
  const __m256i fieldBits =
      _mm256_blendv_epi8(_mm256_set1_epi8(static_cast<char>(sizing.codedBits)), packed, narrow);
  const __m256i sums = _mm256_sad_epu8(fieldBits, zero);
  const __m128i low = _mm256_castsi256_si128(sums);
  const __m128i high = _mm256_extracti128_si256(sums, 1);
  constexpr uint32_t kCodeTotal = kGroupsPerBlock * kCodeBits;
  firstOut->bits = kCodeTotal + kGroupSize * static_cast<uint32_t>(_mm_cvtsi128_si32(low) +
                                                                   _mm_extract_epi16(low, 4));
  secondOut->bits = kCodeTotal + kGroupSize * static_cast<uint32_t>(_mm_cvtsi128_si32(high) +
                                                                    _mm_extract_epi16(high, 4));
}

// An exactly reproduced lane, a whole row of 16-bit samples in one register.
struct ExactRows {
  __m256i base;   // the lane's first sample, in element 0
  __m256i above;  // horizontal differences of the row above
  __m128i widths[kBlockHeight];
};

constexpr int kLowQuadwords = 0x08;  // quadwords 0 and 2: the first of each half

// Horizontal differences of a row of 16-bit samples: each minus its left
// neighbour, the row moved up one sample across the two halves, `base` (in
// element 0) left of column 0.
PELCAST_X86_ROUTINE inline __m256i RowDifferences(__m256i s, __m256i base) {
  const __m256i lowIntoHigh = _mm256_permute2x128_si256(s, s, kLowQuadwords);
  return _mm256_sub_epi16(s, _mm256_or_si256(_mm256_alignr_epi8(s, lowIntoHigh, 14), base));
}

// Zig-zag fields of a row of 16-bit residuals, stored saturated to bytes;
// returns the row's four group widths.
PELCAST_X86_ROUTINE inline __m128i StoreRowFields(__m256i d, uint8_t* zig) {
  const __m256i z = _mm256_xor_si256(_mm256_add_epi16(d, d), _mm256_srai_epi16(d, 15));
  const __m256i bytes = _mm256_permute4x64_epi64(_mm256_packus_epi16(z, z), kLowQuadwords);
  _mm_store_si128(reinterpret_cast<__m128i*>(zig), _mm256_castsi256_si128(bytes));
  __m256i o = _mm256_or_si256(z, _mm256_srli_epi64(z, 32));
  o = _mm256_or_si256(o, _mm256_srli_epi64(o, 16));
  const __m256i firsts =
      _mm256_permute4x64_epi64(_mm256_shuffle_epi32(o, _MM_SHUFFLE(3, 1, 2, 0)), kLowQuadwords);
  return BitWidths32(_mm_and_si128(_mm256_castsi256_si128(firsts), _mm_set1_epi32(0xffff)));
}

PELCAST_X86_ROUTINE inline void ExactRow(__m256i s, uint32_t y, ExactRows* lane, uint8_t* zig) {
  const __m256i h = RowDifferences(s, lane->base);
  const __m256i d = _mm256_sub_epi16(h, lane->above);
  lane->above = h;
  lane->widths[y] = StoreRowFields(d, zig);
}

// Balanced residue of 16-bit values modulo 2^bits.
PELCAST_X86_ROUTINE inline __m256i Balanced256(__m256i v, int bits) {
  const __m256i half = _mm256_set1_epi16(static_cast<int16_t>(1 << (bits - 1)));
  const __m256i mask = _mm256_set1_epi16(static_cast<int16_t>((1 << bits) - 1));
  return _mm256_sub_epi16(_mm256_and_si256(_mm256_add_epi16(v, half), mask), half);
}

// RGB565 direct lanes, a whole row of each component at a time, with the
// carry chain of lane_math.h's Rgb565DirectFields.
PELCAST_X86_ROUTINE void Avx2Rgb565Lanes(const uint8_t* const* planes, size_t pitch,
                                         LaneResidues* out) {
  constexpr int kBits0 = 5;
  constexpr int kBits1 = 6;
  constexpr int kBits2 = 5;
  __m256i base[kRgb565Components];
  __m256i above[kRgb565Components];
  for (uint32_t c = 0; c < kRgb565Components; ++c) {
    base[c] = _mm256_set_m128i(_mm_setzero_si128(), _mm_cvtsi32_si128(planes[c][0]));
    above[c] = _mm256_setzero_si256();
  }
  __m128i widths[kRgb565Components][kBlockHeight];
  for (uint32_t y = 0; y < kBlockHeight; ++y) {
    __m256i e[kRgb565Components];
    for (uint32_t c = 0; c < kRgb565Components; ++c) {
      const __m256i h = RowDifferences(_mm256_cvtepu8_epi16(Load(planes[c] + y * pitch)), base[c]);
      e[c] = _mm256_sub_epi16(h, above[c]);
      above[c] = h;
    }
    const __m256i d0 = Balanced256(e[0], kBits0);
    const __m256i carry0 = _mm256_srai_epi16(_mm256_sub_epi16(d0, e[0]), kBits0);
    const __m256i d1 = Balanced256(_mm256_sub_epi16(e[1], carry0), kBits1);
    const __m256i carry1 =
        _mm256_srai_epi16(_mm256_add_epi16(_mm256_sub_epi16(d1, e[1]), carry0), kBits1);
    const __m256i d2 = Balanced256(_mm256_sub_epi16(e[2], carry1), kBits2);
    widths[0][y] = StoreRowFields(d0, out[0].zig + y * kBlockWidth);
    widths[1][y] = StoreRowFields(d1, out[1].zig + y * kBlockWidth);
    widths[2][y] = StoreRowFields(d2, out[2].zig + y * kBlockWidth);
  }
  for (uint32_t c = 0; c < kRgb565Components; ++c) StoreWidths(widths[c], kWidthsOnly, &out[c]);
}

PELCAST_X86_ROUTINE void Avx2ExactLane(const int16_t* samples, const LaneSizing& sizing,
                                       LaneResidues* out) {
  ExactRows lane;
  lane.base =
      _mm256_set_m128i(_mm_setzero_si128(), _mm_cvtsi32_si128(static_cast<uint16_t>(samples[0])));
  lane.above = _mm256_setzero_si256();
  for (uint32_t y = 0; y < kBlockHeight; ++y) {
    const __m256i s =
        _mm256_loadu_si256(reinterpret_cast<const __m256i*>(samples + y * kBlockWidth));
    ExactRow(s, y, &lane, out->zig + y * kBlockWidth);
  }
  StoreWidths(lane.widths, sizing, out);
}

// The transform a whole row at a time.
PELCAST_X86_ROUTINE bool Avx2ColourTransform(const uint8_t* const* planes, size_t pitch, uint32_t n,
                                             ColourSamples* out) {
  const __m256i limit = _mm256_set1_epi16(static_cast<int16_t>(1 << n));
  __m128i all = _mm_setzero_si128();
  for (uint32_t y = 0; y < kBlockHeight; ++y) {
    const __m128i b0 = Load(planes[0] + y * pitch);
    const __m128i b1 = Load(planes[1] + y * pitch);
    const __m128i b2 = Load(planes[2] + y * pitch);
    all = _mm_or_si128(all, _mm_or_si128(b0, _mm_or_si128(b1, b2)));
    const __m256i c0 = _mm256_cvtepu8_epi16(b0);
    const __m256i c1 = _mm256_cvtepu8_epi16(b1);
    const __m256i c2 = _mm256_cvtepu8_epi16(b2);
    const __m256i co = _mm256_sub_epi16(c0, c2);
    const __m256i t = _mm256_add_epi16(c2, _mm256_srai_epi16(co, 1));
    const __m256i cg = _mm256_sub_epi16(c1, t);
    const uint32_t at = y * kBlockWidth;
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(out->c[0] + at),
                        _mm256_add_epi16(t, _mm256_srai_epi16(cg, 1)));
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(out->c[1] + at), _mm256_add_epi16(co, limit));
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(out->c[2] + at), _mm256_add_epi16(cg, limit));
  }
  // Every sample is below 2^n when the OR of all of them is.
  if (n >= kByteBits) return true;
  const __m128i high = _mm_set1_epi8(static_cast<char>(0xff << n));
  const __m128i clear = _mm_cmpeq_epi8(_mm_and_si128(all, high), _mm_setzero_si128());
  return _mm_movemask_epi8(clear) == 0xffff;
}

// The transform, then the wide exact lanes.
PELCAST_X86_ROUTINE bool Avx2ColourLanes(const uint8_t* const* planes, size_t pitch, uint32_t n,
                                         const LaneSizing* sizings, ColourSamples* out,
                                         LaneResidues* lanes) {
  if (!Avx2ColourTransform(planes, pitch, n, out)) return false;
  for (uint32_t c = 0; c < kRgb565Components; ++c) Avx2ExactLane(out->c[c], sizings[c], &lanes[c]);
  return true;
}

// Two block rows (eight groups) at a time.
PELCAST_X86_ROUTINE uint32_t Avx2PackLane(const LaneResidues& lane, const LaneCoding& coding,
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
  const bool rawBytes = coding.wideCode == 0 && coding.rawRows != nullptr;
  const __m128i escaped = coding.wideCode == 0 ? _mm_cmpeq_epi8(narrow, zero) : zero;
  const __m256i bias = _mm256_set1_epi32(kFloatExponentBias);
  // Field widths and escape masks of rows 0-1, then of rows 2-3.
  const __m128i rowWidths[2] = {fieldBits, _mm_srli_si128(fieldBits, 8)};
  const __m128i rowEscapes[2] = {escaped, _mm_srli_si128(escaped, 8)};
  for (uint32_t y = 0; y < kBlockHeight; y += 2) {
    const uint32_t first = y * kGroupsPerRow;  // first group of the two rows
    const __m256i widths = _mm256_cvtepu8_epi32(rowWidths[y / 2]);
    const __m256i raw = _mm256_cvtepi8_epi32(rowEscapes[y / 2]);
    // The same two-step packing as PackGroups, on eight groups.
    const __m256i power = _mm256_cvttps_epi32(
        _mm256_castsi256_ps(_mm256_slli_epi32(_mm256_add_epi32(widths, bias), kFloatMantissaBits)));
    const __m256i pairScale = _mm256_or_si256(power, _mm256_slli_epi32(power, 16));
    const __m256i fields =
        _mm256_loadu_si256(reinterpret_cast<const __m256i*>(lane.zig + y * kBlockWidth));
    const __m256i pairs =
        _mm256_or_si256(_mm256_and_si256(fields, _mm256_set1_epi16(0xff)),
                        _mm256_mullo_epi16(_mm256_srli_epi16(fields, 8), pairScale));
    const __m256i halfScale = _mm256_or_si256(
        _mm256_set1_epi32(1), _mm256_slli_epi32(_mm256_mullo_epi16(power, power), 16));
    __m256i packed = _mm256_madd_epi16(pairs, halfScale);
    if (rawBytes) {
      const __m256i samples = _mm256_loadu2_m128i(
          reinterpret_cast<const __m128i*>(coding.rawRows + (y + 1) * coding.rawPitch),
          reinterpret_cast<const __m128i*>(coding.rawRows + y * coding.rawPitch));
      packed = _mm256_blendv_epi8(packed, samples, raw);
    } else {
      packed = _mm256_andnot_si256(raw, packed);
    }
    __m256i* at = reinterpret_cast<__m256i*>(out->fields + first);
    _mm256_storeu_si256(at, _mm256_cvtepu32_epi64(_mm256_castsi256_si128(packed)));
    _mm256_storeu_si256(at + 1, _mm256_cvtepu32_epi64(_mm256_extracti128_si256(packed, 1)));
  }
  return static_cast<uint32_t>(_mm_movemask_epi8(escaped));
}

// Each lane's fields shifted by the bits of the lanes before it, four groups
// at a time (AVX2 shifts give 0 for counts of 64 and more). The offsets stay
// bytes (totals are below 256) until they are widened for the shifts.
PELCAST_X86_ROUTINE void Avx2JoinGroupFields(const LanePack* packs, uint32_t lanes,
                                             uint64_t* joined, uint8_t* bits) {
  constexpr uint32_t kSteps = kGroupsPerBlock / 4;
  __m256i word[kSteps];
  for (uint32_t q = 0; q < kSteps; ++q) word[q] = _mm256_setzero_si256();
  __m128i offset = _mm_setzero_si128();
  for (uint32_t l = 0; l < lanes; ++l) {
    // Groups 4q to 4q + 3 of the offsets in the low four bytes.
    const __m128i groups[kSteps] = {offset, _mm_srli_si128(offset, 4), _mm_srli_si128(offset, 8),
                                    _mm_srli_si128(offset, 12)};
    for (uint32_t q = 0; q < kSteps; ++q) {
      const __m256i fields =
          _mm256_loadu_si256(reinterpret_cast<const __m256i*>(packs[l].fields + 4 * q));
      word[q] =
          _mm256_or_si256(word[q], _mm256_sllv_epi64(fields, _mm256_cvtepu8_epi64(groups[q])));
    }
    offset =
        _mm_add_epi8(offset, _mm_load_si128(reinterpret_cast<const __m128i*>(packs[l].fieldBits)));
  }
  for (uint32_t q = 0; q < kSteps; ++q) {
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(joined + 4 * q), word[q]);
  }
  _mm_storeu_si128(reinterpret_cast<__m128i*>(bits), offset);
}

constexpr LaneKernels WithWideRoutines(LaneKernels k) {
  k.byteLanePair = Avx2ByteLanePair;
  k.exactLane = Avx2ExactLane;
  k.rgb565Lanes = Avx2Rgb565Lanes;
  k.colourTransform = Avx2ColourTransform;
  k.colourLanes = Avx2ColourLanes;
  k.packLane = Avx2PackLane;
  k.joinGroupFields = Avx2JoinGroupFields;
  return k;
}

constexpr LaneKernels kAvx2 = WithWideRoutines(MakeX86LaneKernels("avx2"));

}  // namespace

const LaneKernels& Avx2LaneKernels() { return kAvx2; }

#endif

}  // namespace pelcast
