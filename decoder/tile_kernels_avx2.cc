// The AVX2 kernel. A group index g of a tile holds one 4-sample field set per
// series; here those become one 256-bit vector of sixteen 16-bit lanes,
// series s in lanes 4s to 4s + 3. BMI2's bit deposit spreads a field set's
// four residuals into its four lanes, and each block row is rebuilt as four
// such vectors with the vertical-difference form of the gradient prediction
// (see tile_kernels.h): D = D(left) + prefix sum of the group's differences,
// or v - above in a raw group, then s = above + D.
//
// Compiled for every x86-64 build; the functions carry their own target so
// the rest of the program stays baseline, and they run only from the table
// of the avx2 kernel set (common/cpu.h).
#if defined(__x86_64__)

#include <immintrin.h>

#include <cstring>

#include "decoder/tile_fields.h"
#include "decoder/tile_kernels.h"

#define PELCAST_AVX2 __attribute__((target("avx2,bmi,bmi2")))

namespace pelcast::tile_kernels_detail {
namespace {

// Four lanes of `width` low bits, 16 bits apart: the deposit mask of a field
// set of residuals `width` bits wide.
constexpr uint64_t LaneMask(uint32_t width) {
  const uint64_t lane = (uint64_t{1} << width) - 1;
  return lane | lane << 16 | lane << 32 | lane << 48;
}

constexpr uint64_t kLaneMasks[] = {LaneMask(0), LaneMask(1), LaneMask(2), LaneMask(3),
                                   LaneMask(4), LaneMask(5), LaneMask(6), LaneMask(7),
                                   LaneMask(8), LaneMask(9)};

// Residuals and raw-group masks of every (group, series), one 64-bit lane
// quarter each, so a group loads as one vector.
struct GroupVectors {
  alignas(32) uint64_t residuals[kGroups][kMaxSeries];
  alignas(32) uint64_t raw[kGroups][kMaxSeries];
};

// Field sets of a tile in stream order (group by group, series by series),
// rounded up to whole vectors.
constexpr uint32_t kFieldSlots = kGroups * kMaxSeries;
// A code no 3-bit field holds: the escape code of a position past the fields.
constexpr int8_t kNoEscape = kCodeMask + 1;

// Per stream position j (series j % S): the escape code less one, the escape
// code, and the coded depth that codes at or above the escape code read.
struct PositionTable {
  alignas(32) int8_t belowEscape[kFieldSlots];
  alignas(32) int8_t escape[kFieldSlots];
  alignas(32) int8_t coded[kFieldSlots];
};

constexpr PositionTable MakePositionTable(TileKind kind, uint32_t series, bool colour) {
  const KindShape& shape = kShapes[static_cast<int>(kind)];
  PositionTable t{};
  for (uint32_t j = 0; j < kFieldSlots; ++j) {
    const uint32_t s = j % series;
    const bool inside = j < kGroups * series;
    const int escape = inside ? shape.escape[s] : kNoEscape;
    t.belowEscape[j] = static_cast<int8_t>(escape - 1);
    t.escape[j] = static_cast<int8_t>(escape);
    t.coded[j] = static_cast<int8_t>(
        inside ? shape.sampleBits[s] + (colour && shape.difference[s] ? 1 : 0) : 0);
  }
  return t;
}

// [kind][series count 3 or 4][colour flag]
constexpr PositionTable MakeKindTables(TileKind kind, uint32_t series, bool colour) {
  return MakePositionTable(kind, series, colour);
}
constexpr PositionTable kPositionTables[4][2][2] = {
#define PELCAST_KIND_TABLES(kind)                                                    \
  {{MakeKindTables(kind, 3, false), MakeKindTables(kind, 3, true)},                  \
   {MakeKindTables(kind, 4, false), MakeKindTables(kind, 4, true)}}
    PELCAST_KIND_TABLES(TileKind::kRgba8888),
    PELCAST_KIND_TABLES(TileKind::kNv12Luma),
    PELCAST_KIND_TABLES(TileKind::kNv12Chroma),
    PELCAST_KIND_TABLES(TileKind::kRgb565),
#undef PELCAST_KIND_TABLES
};

// Eight 3-bit codes spread into eight bytes by one deposit.
constexpr uint64_t kCodeBytes = 0x0707070707070707ull;
constexpr uint32_t kCodesPerDeposit = 8;

// Word 7 of each 128-bit half in all eight words of that half.
PELCAST_AVX2 inline __m256i BroadcastLastWord(__m256i v) {
  const __m256i last = _mm256_setr_epi8(14, 15, 14, 15, 14, 15, 14, 15, 14, 15, 14, 15, 14, 15,
                                        14, 15, 14, 15, 14, 15, 14, 15, 14, 15, 14, 15, 14, 15,
                                        14, 15, 14, 15);
  return _mm256_shuffle_epi8(v, last);
}

// The codes of every group (S series of kCodeBits each, from `codes` on) and
// the residuals after them. All codes are spread into bytes first; widths
// and raw flags follow by vector compares, and the bit position of every
// field set by one prefix sum, so the residual reads do not wait on each
// other.
// Returns the bit position after the last residual.
template <uint32_t S>
PELCAST_AVX2 inline uint64_t ReadGroups(const uint8_t* padded, uint64_t codes,
                                    const PositionTable& table, GroupVectors* v) {
  constexpr uint32_t kFields = kGroups * S;
  alignas(32) uint8_t code[kFieldSlots];
  for (uint32_t k = 0; k < kFields / kCodesPerDeposit; ++k) {
    const uint64_t bytes =
        _pdep_u64(PeekStream(padded, codes + kCodeBits * kCodesPerDeposit * k), kCodeBytes);
    std::memcpy(code + kCodesPerDeposit * k, &bytes, sizeof bytes);
  }
  std::memset(code + kFields, 0, kFieldSlots - kFields);

  alignas(32) uint8_t width[kFieldSlots];
  alignas(32) int8_t raw[kFieldSlots + sizeof(uint32_t)];
  for (uint32_t h = 0; h < kFieldSlots; h += sizeof(__m256i)) {
    const __m256i c = _mm256_load_si256(reinterpret_cast<const __m256i*>(code + h));
    const __m256i escape = _mm256_load_si256(reinterpret_cast<const __m256i*>(table.escape + h));
    const __m256i atOrAbove = _mm256_cmpgt_epi8(
        c, _mm256_load_si256(reinterpret_cast<const __m256i*>(table.belowEscape + h)));
    const __m256i coded = _mm256_load_si256(reinterpret_cast<const __m256i*>(table.coded + h));
    _mm256_store_si256(reinterpret_cast<__m256i*>(width + h),
                       _mm256_blendv_epi8(c, coded, atOrAbove));
    _mm256_store_si256(reinterpret_cast<__m256i*>(raw + h), _mm256_cmpeq_epi8(c, escape));
  }
  std::memset(raw + kFieldSlots, 0, sizeof(uint32_t));

  // Field set j starts at bit bitAt[j] of byte byteAt[j]: a prefix sum of
  // the widths from the first residual on.
  alignas(32) uint16_t byteAt[kFieldSlots + kBlockColumns];
  alignas(32) uint16_t bitAt[kFieldSlots + kBlockColumns];
  const auto first = static_cast<uint16_t>(codes + kCodeBits * kFields);
  byteAt[0] = first >> 3;
  bitAt[0] = first & 7;
  const __m256i seven = _mm256_set1_epi16(7);
  __m256i carry = _mm256_set1_epi16(static_cast<int16_t>(first));
  for (uint32_t q = 0; q < kFields; q += kBlockColumns) {
    __m256i w = _mm256_slli_epi16(
        _mm256_cvtepu8_epi16(_mm_load_si128(reinterpret_cast<const __m128i*>(width + q))), 2);
    w = _mm256_add_epi16(w, _mm256_bslli_epi128(w, 2));
    w = _mm256_add_epi16(w, _mm256_bslli_epi128(w, 4));
    w = _mm256_add_epi16(w, _mm256_bslli_epi128(w, 8));
    w = _mm256_add_epi16(w, BroadcastLastWord(_mm256_permute2x128_si256(w, w, 0x08)));
    w = _mm256_add_epi16(w, carry);
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(byteAt + 1 + q), _mm256_srli_epi16(w, 3));
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(bitAt + 1 + q), _mm256_and_si256(w, seven));
    carry = BroadcastLastWord(_mm256_permute4x64_epi64(w, 0xFF));
  }

  const __m256i keep = _mm256_setr_epi64x(-1, -1, -1, S == kMaxSeries ? -1 : 0);
  for (uint32_t g = 0; g < kGroups; ++g) {
#pragma GCC unroll 4
    for (uint32_t s = 0; s < S; ++s) {
      const uint32_t j = S * g + s;
      const uint64_t window = LoadStreamWord(padded + byteAt[j]) >> bitAt[j];
      v->residuals[g][s] = _pdep_u64(window, kLaneMasks[width[j]]);
    }
    for (uint32_t s = S; s < kMaxSeries; ++s) v->residuals[g][s] = 0;
    int32_t flags;
    std::memcpy(&flags, raw + S * g, sizeof flags);
    _mm256_store_si256(reinterpret_cast<__m256i*>(v->raw[g]),
                       _mm256_and_si256(_mm256_cvtepi8_epi64(_mm_cvtsi32_si128(flags)), keep));
  }
  return uint64_t{byteAt[kFields]} * 8 + bitAt[kFields];
}

// Lane 3 of every series (the last D of a group) in all four of its lanes.
PELCAST_AVX2 inline __m256i CarryLastLane(__m256i d) {
  const __m256i last = _mm256_setr_epi8(6, 7, 6, 7, 6, 7, 6, 7, 14, 15, 14, 15, 14, 15, 14, 15, 6,
                                        7, 6, 7, 6, 7, 6, 7, 14, 15, 14, 15, 14, 15, 14, 15);
  return _mm256_shuffle_epi8(d, last);
}

// One block row: the four group vectors of row y, from `above` (the row
// before, or the base values) into `above` (this row).
PELCAST_AVX2 inline void ReconstructRow(const GroupVectors& v, uint32_t y, __m256i above[4]) {
  const __m256i one = _mm256_set1_epi16(1);
  __m256i left = _mm256_setzero_si256();  // D left of column 0
  for (uint32_t q = 0; q < kGroupsPerRow; ++q) {
    const uint32_t g = kGroupsPerRow * y + q;
    const __m256i r = _mm256_load_si256(reinterpret_cast<const __m256i*>(v.residuals[g]));
    const __m256i raw = _mm256_load_si256(reinterpret_cast<const __m256i*>(v.raw[g]));
    // Zig-zag: r / 2 for even r, -(r + 1) / 2 for odd.
    const __m256i sign = _mm256_sub_epi16(_mm256_setzero_si256(), _mm256_and_si256(r, one));
    __m256i d = _mm256_xor_si256(_mm256_srli_epi16(r, 1), sign);
    // Prefix sum over the four lanes of each series.
    d = _mm256_add_epi16(d, _mm256_slli_epi64(d, 16));
    d = _mm256_add_epi16(d, _mm256_slli_epi64(d, 32));
    const __m256i predicted = _mm256_add_epi16(CarryLastLane(left), d);
    const __m256i direct = _mm256_sub_epi16(r, above[q]);
    left = _mm256_blendv_epi8(predicted, direct, raw);
    above[q] = _mm256_add_epi16(above[q], left);
  }
}

PELCAST_AVX2 inline void StoreRow(uint8_t* row, __m256i value) {
  _mm256_storeu_si256(reinterpret_cast<__m256i*>(row), value);
}

// Low bytes of a and b, per 128-bit half: a's eight, then b's eight.
PELCAST_AVX2 inline __m256i PackLowBytes(__m256i a, __m256i b) {
  const __m256i low = _mm256_set1_epi16(0x00FF);
  return _mm256_packus_epi16(_mm256_and_si256(a, low), _mm256_and_si256(b, low));
}

// Luma: halves hold blocks 0, 1 (top) and 2, 3 (bottom); row y of the top
// blocks and row y + 4 of the bottom ones come from one block row.
PELCAST_AVX2 void StoreLumaRow(const __m256i s[4], uint8_t* out, uint64_t pitch, uint32_t y) {
  // Per half: dwords block-even q0, block-odd q0, block-even q1, block-odd q1.
  constexpr int kEvenOdd = _MM_SHUFFLE(3, 1, 2, 0);
  const __m256i p01 = _mm256_shuffle_epi32(PackLowBytes(s[0], s[1]), kEvenOdd);
  const __m256i p23 = _mm256_shuffle_epi32(PackLowBytes(s[2], s[3]), kEvenOdd);
  const __m256i even = _mm256_unpacklo_epi64(p01, p23);  // blocks 0 | 2
  const __m256i odd = _mm256_unpackhi_epi64(p01, p23);   // blocks 1 | 3
  StoreRow(out + y * pitch, _mm256_permute2x128_si256(even, odd, 0x20));
  StoreRow(out + (y + kBlockRows) * pitch, _mm256_permute2x128_si256(even, odd, 0x31));
}

// Chroma: halves hold block 0's U, V and block 1's; U and V interleave.
PELCAST_AVX2 void StoreChromaRow(const __m256i s[4], uint8_t* out, uint64_t pitch, uint32_t y) {
  const __m256i interleave = _mm256_setr_epi8(0, 4, 1, 5, 2, 6, 3, 7, 8, 12, 9, 13, 10, 14, 11, 15,
                                              0, 4, 1, 5, 2, 6, 3, 7, 8, 12, 9, 13, 10, 14, 11, 15);
  const __m256i p01 = _mm256_shuffle_epi8(PackLowBytes(s[0], s[1]), interleave);
  const __m256i p23 = _mm256_shuffle_epi8(PackLowBytes(s[2], s[3]), interleave);
  StoreRow(out + y * pitch, _mm256_permute2x128_si256(p01, p23, 0x20));
  StoreRow(out + (y + kBlockRows) * pitch, _mm256_permute2x128_si256(p01, p23, 0x31));
}

// Components of one block row: from four group vectors (halves c0, c1 | c2,
// c3) to four vectors of 16 samples each in pixel order.
struct RowComponents {
  __m256i c[4];
};

PELCAST_AVX2 inline RowComponents SplitComponents(const __m256i s[4]) {
  const __m256i lo01 = _mm256_unpacklo_epi64(s[0], s[1]);  // c0 q0 q1 | c2 q0 q1
  const __m256i hi01 = _mm256_unpackhi_epi64(s[0], s[1]);  // c1 q0 q1 | c3 q0 q1
  const __m256i lo23 = _mm256_unpacklo_epi64(s[2], s[3]);
  const __m256i hi23 = _mm256_unpackhi_epi64(s[2], s[3]);
  return {{_mm256_permute2x128_si256(lo01, lo23, 0x20), _mm256_permute2x128_si256(hi01, hi23, 0x20),
           _mm256_permute2x128_si256(lo01, lo23, 0x31),
           _mm256_permute2x128_si256(hi01, hi23, 0x31)}};
}

// The inverse colour transform on exact 16-bit samples, clamped to
// 0 .. 2^N - 1; no step leaves the 16-bit range (see tile_kernels.h).
PELCAST_AVX2 inline void InverseColour(RowComponents* rc, int sampleBits) {
  const __m256i offset = _mm256_set1_epi16(static_cast<int16_t>(1 << sampleBits));
  const __m256i maximum = _mm256_set1_epi16(static_cast<int16_t>((1 << sampleBits) - 1));
  const __m256i zero = _mm256_setzero_si256();
  const __m256i co = _mm256_sub_epi16(rc->c[1], offset);
  const __m256i cg = _mm256_sub_epi16(rc->c[2], offset);
  const __m256i t = _mm256_sub_epi16(rc->c[0], _mm256_srai_epi16(cg, 1));
  const __m256i third = _mm256_sub_epi16(t, _mm256_srai_epi16(co, 1));
  const __m256i second = _mm256_add_epi16(t, cg);
  const __m256i first = _mm256_add_epi16(third, co);
  rc->c[0] = _mm256_max_epi16(_mm256_min_epi16(first, maximum), zero);
  rc->c[1] = _mm256_max_epi16(_mm256_min_epi16(second, maximum), zero);
  rc->c[2] = _mm256_max_epi16(_mm256_min_epi16(third, maximum), zero);
}

PELCAST_AVX2 void StoreRgbaRow(const TileFields& f, const __m256i s[4], uint8_t* out,
                               uint64_t pitch, uint32_t y) {
  RowComponents rc = SplitComponents(s);
  if (f.colourFlag != 0) InverseColour(&rc, 8);
  if (f.constantFlag != 0) rc.c[3] = _mm256_set1_epi16(static_cast<int16_t>(f.base[3]));
  const __m256i low = _mm256_set1_epi16(0x00FF);
  // Byte pairs R G and B A of every pixel, then pixels of four bytes.
  const __m256i rg = _mm256_or_si256(_mm256_and_si256(rc.c[0], low), _mm256_slli_epi16(rc.c[1], 8));
  const __m256i ba = _mm256_or_si256(_mm256_and_si256(rc.c[2], low), _mm256_slli_epi16(rc.c[3], 8));
  const __m256i first = _mm256_unpacklo_epi16(rg, ba);   // pixels 0-3 | 8-11
  const __m256i second = _mm256_unpackhi_epi16(rg, ba);  // pixels 4-7 | 12-15
  uint8_t* row = out + y * pitch;
  StoreRow(row, _mm256_permute2x128_si256(first, second, 0x20));
  StoreRow(row + 32, _mm256_permute2x128_si256(first, second, 0x31));
}

PELCAST_AVX2 void StoreRgb565Row(const TileFields& f, const __m256i s[4], uint8_t* out,
                                 uint64_t pitch, uint32_t y) {
  RowComponents rc = SplitComponents(s);
  if (f.colourFlag != 0) InverseColour(&rc, 5);
  // The 16-bit sum c0 + 32 c1 + 2048 c2, carries and all.
  const __m256i packed = _mm256_add_epi16(
      _mm256_add_epi16(rc.c[0], _mm256_slli_epi16(rc.c[1], 5)), _mm256_slli_epi16(rc.c[2], 11));
  StoreRow(out + y * pitch, packed);
}

// Flags and base values; returns the bit position of the first code.
template <TileKind K>
PELCAST_AVX2 inline uint64_t ReadHeader(const uint8_t* padded, TileFields* f) {
  constexpr KindShape shape = kShapes[static_cast<int>(K)];
  uint64_t position = 0;
  f->colourFlag = shape.colourFlag ? TakeField(padded, &position, 1) : 0;
  f->constantFlag = shape.alphaFlag ? TakeField(padded, &position, 1) : 0;
  f->series = shape.series - f->constantFlag;
  f->base[kMaxSeries - 1] = 0;
  for (uint32_t s = 0; s < shape.bases; ++s) {
    const bool wider = f->colourFlag != 0 && shape.difference[s];
    f->base[s] = static_cast<uint16_t>(TakeField(padded, &position, shape.sampleBits[s] + wider));
  }
  return position;
}

template <TileKind K>
PELCAST_AVX2 uint32_t DecodeKind(const uint8_t* stream, uint8_t* out, uint64_t pitch) {
  TileFields f;
  const uint64_t codes = ReadHeader<K>(stream, &f);
  if (CodesAllZero(stream, codes, f.series)) {
    StoreConstantTile<K>(f, out, pitch);
    return ConstantStreamBits(codes, f.series);
  }
  const auto& tables = kPositionTables[static_cast<int>(K)];
  GroupVectors v;
  uint64_t end;
  if (f.series == kMaxSeries) {
    end = ReadGroups<kMaxSeries>(stream, codes, tables[1][f.colourFlag], &v);
  } else {
    end = ReadGroups<kMaxSeries - 1>(stream, codes, tables[0][f.colourFlag], &v);
  }
  __m256i above[kGroupsPerRow];
  const __m256i base = _mm256_setr_epi64x(
      static_cast<int64_t>(kEveryWord * f.base[0]), static_cast<int64_t>(kEveryWord * f.base[1]),
      static_cast<int64_t>(kEveryWord * f.base[2]), static_cast<int64_t>(kEveryWord * f.base[3]));
  for (auto& a : above) a = base;
  for (uint32_t y = 0; y < kBlockRows; ++y) {
    ReconstructRow(v, y, above);
    if constexpr (K == TileKind::kRgba8888) {
      StoreRgbaRow(f, above, out, pitch, y);
    } else if constexpr (K == TileKind::kNv12Luma) {
      StoreLumaRow(above, out, pitch, y);
    } else if constexpr (K == TileKind::kNv12Chroma) {
      StoreChromaRow(above, out, pitch, y);
    } else {
      StoreRgb565Row(f, above, out, pitch, y);
    }
  }
  return static_cast<uint32_t>(end);
}

}  // namespace

PELCAST_AVX2 uint32_t DecodeRgba8888Avx2(const uint8_t* stream, uint8_t* out, uint64_t pitch) {
  return DecodeKind<TileKind::kRgba8888>(stream, out, pitch);
}

PELCAST_AVX2 uint32_t DecodeLumaAvx2(const uint8_t* stream, uint8_t* out, uint64_t pitch) {
  return DecodeKind<TileKind::kNv12Luma>(stream, out, pitch);
}

PELCAST_AVX2 uint32_t DecodeChromaAvx2(const uint8_t* stream, uint8_t* out, uint64_t pitch) {
  return DecodeKind<TileKind::kNv12Chroma>(stream, out, pitch);
}

PELCAST_AVX2 uint32_t DecodeRgb565Avx2(const uint8_t* stream, uint8_t* out, uint64_t pitch) {
  return DecodeKind<TileKind::kRgb565>(stream, out, pitch);
}

}  // namespace pelcast::tile_kernels_detail

#endif  // __x86_64__
