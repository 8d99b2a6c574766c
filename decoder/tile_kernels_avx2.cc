// The AVX2 kernel. A group index g of a tile holds one 4-sample field set per
// series; here those become one 256-bit vector of sixteen 16-bit lanes,
// series s in lanes 4s to 4s + 3. BMI2's bit deposit spreads a field set's
// four residuals into its four lanes, and each block row is rebuilt as four
// such vectors with the vertical-difference form of the gradient prediction
// (see tile_kernels.h): D = D(left) + prefix sum of the group's differences,
// or v - above in a raw group, then s = above + D. The codes are read first
// (a constant tile stops there); the bit position of every field set then
// follows by one prefix sum, so the residual reads do not wait on each other,
// and each group's vector is assembled in registers and used at once.
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

constexpr uint64_t kLaneMasks[] = {LaneMask(0), LaneMask(1), LaneMask(2), LaneMask(3), LaneMask(4),
                                   LaneMask(5), LaneMask(6), LaneMask(7), LaneMask(8), LaneMask(9)};

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
#define PELCAST_KIND_TABLES(kind)                                      \
  {                                                                    \
    {MakeKindTables(kind, 3, false), MakeKindTables(kind, 3, true)}, { \
      MakeKindTables(kind, 4, false), MakeKindTables(kind, 4, true)    \
    }                                                                  \
  }
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
  const __m256i last =
      _mm256_setr_epi8(14, 15, 14, 15, 14, 15, 14, 15, 14, 15, 14, 15, 14, 15, 14, 15, 14, 15, 14,
                       15, 14, 15, 14, 15, 14, 15, 14, 15, 14, 15, 14, 15);
  return _mm256_shuffle_epi8(v, last);
}

// Lane 3 of every series (the last D of a group) in all four of its lanes.
PELCAST_AVX2 inline __m256i CarryLastLane(__m256i d) {
  const __m256i last = _mm256_setr_epi8(6, 7, 6, 7, 6, 7, 6, 7, 14, 15, 14, 15, 14, 15, 14, 15, 6,
                                        7, 6, 7, 6, 7, 6, 7, 14, 15, 14, 15, 14, 15, 14, 15);
  return _mm256_shuffle_epi8(d, last);
}

// kStream: stores that do not read the line they fill (the row is 16-byte
// aligned), for outputs far larger than the cache.
template <bool kStream>
PELCAST_AVX2 inline void StoreRow(uint8_t* row, __m256i value) {
  if constexpr (kStream) {
    _mm_stream_si128(reinterpret_cast<__m128i*>(row), _mm256_castsi256_si128(value));
    _mm_stream_si128(reinterpret_cast<__m128i*>(row) + 1, _mm256_extracti128_si256(value, 1));
  } else {
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(row), value);
  }
}

// Low bytes of a and b, per 128-bit half: a's eight, then b's eight.
PELCAST_AVX2 inline __m256i PackLowBytes(__m256i a, __m256i b) {
  const __m256i low = _mm256_set1_epi16(0x00FF);
  return _mm256_packus_epi16(_mm256_and_si256(a, low), _mm256_and_si256(b, low));
}

// Luma: halves hold blocks 0, 1 (top) and 2, 3 (bottom); row y of the top
// blocks and row y + 4 of the bottom ones come from one block row.
template <bool kStream>
PELCAST_AVX2 inline void StoreLumaRow(const __m256i s[4], uint8_t* out, uint64_t pitch,
                                      uint32_t y) {
  // Per half: dwords block-even q0, block-odd q0, block-even q1, block-odd q1.
  constexpr int kEvenOdd = _MM_SHUFFLE(3, 1, 2, 0);
  const __m256i p01 = _mm256_shuffle_epi32(PackLowBytes(s[0], s[1]), kEvenOdd);
  const __m256i p23 = _mm256_shuffle_epi32(PackLowBytes(s[2], s[3]), kEvenOdd);
  const __m256i even = _mm256_unpacklo_epi64(p01, p23);  // blocks 0 | 2
  const __m256i odd = _mm256_unpackhi_epi64(p01, p23);   // blocks 1 | 3
  StoreRow<kStream>(out + y * pitch, _mm256_permute2x128_si256(even, odd, 0x20));
  StoreRow<kStream>(out + (y + kBlockRows) * pitch, _mm256_permute2x128_si256(even, odd, 0x31));
}

// Chroma: halves hold block 0's U, V and block 1's; U and V interleave.
template <bool kStream>
PELCAST_AVX2 inline void StoreChromaRow(const __m256i s[4], uint8_t* out, uint64_t pitch,
                                        uint32_t y) {
  const __m256i interleave = _mm256_setr_epi8(0, 4, 1, 5, 2, 6, 3, 7, 8, 12, 9, 13, 10, 14, 11, 15,
                                              0, 4, 1, 5, 2, 6, 3, 7, 8, 12, 9, 13, 10, 14, 11, 15);
  const __m256i p01 = _mm256_shuffle_epi8(PackLowBytes(s[0], s[1]), interleave);
  const __m256i p23 = _mm256_shuffle_epi8(PackLowBytes(s[2], s[3]), interleave);
  StoreRow<kStream>(out + y * pitch, _mm256_permute2x128_si256(p01, p23, 0x20));
  StoreRow<kStream>(out + (y + kBlockRows) * pitch, _mm256_permute2x128_si256(p01, p23, 0x31));
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

template <bool kStream>
PELCAST_AVX2 inline void StoreRgbaRow(const TileFields& f, const __m256i s[4], uint8_t* out,
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
  StoreRow<kStream>(row, _mm256_permute2x128_si256(first, second, 0x20));
  StoreRow<kStream>(row + 32, _mm256_permute2x128_si256(first, second, 0x31));
}

template <bool kStream>
PELCAST_AVX2 inline void StoreRgb565Row(const TileFields& f, const __m256i s[4], uint8_t* out,
                                        uint64_t pitch, uint32_t y) {
  RowComponents rc = SplitComponents(s);
  if (f.colourFlag != 0) InverseColour(&rc, 5);
  // The 16-bit sum c0 + 32 c1 + 2048 c2, carries and all.
  const __m256i packed = _mm256_add_epi16(_mm256_add_epi16(rc.c[0], _mm256_slli_epi16(rc.c[1], 5)),
                                          _mm256_slli_epi16(rc.c[2], 11));
  StoreRow<kStream>(out + y * pitch, packed);
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

// Where the field sets of a tile lie: field set j (group j / S, series
// j % S) starts at bit bitAt[j] of byte byteAt[j] and holds four residuals
// of width[j] bits; raw[j] is -1 for a raw group. Entries past the tile's
// field sets are zero.
struct FieldLayout {
  alignas(32) uint8_t width[kFieldSlots];
  alignas(32) int8_t raw[kFieldSlots + sizeof(uint32_t)];
  alignas(32) uint16_t byteAt[kFieldSlots];
  alignas(32) uint16_t bitAt[kFieldSlots];
};

// Lays out the field sets after the codes (S series of kCodeBits each, from
// bit `codes` on): all codes spread into bytes by deposits, widths and raw
// flags by vector compares, positions by a prefix sum of the widths. Returns
// the bit position after the last residual; *anyRaw tells whether a group is
// raw.
template <uint32_t S>
PELCAST_AVX2 inline uint64_t LayFields(const uint8_t* stream, uint64_t codes,
                                       const PositionTable& table, FieldLayout* layout,
                                       bool* anyRaw) {
  constexpr uint32_t kFields = kGroups * S;
  constexpr uint32_t kBytesPerVector = sizeof(__m256i);
  constexpr uint32_t kDepositsPerVector = kBytesPerVector / kCodesPerDeposit;
  uint32_t rawBits = 0;
  for (uint32_t h = 0; h < kFieldSlots; h += kBytesPerVector) {
    uint64_t deposits[kDepositsPerVector];
    for (uint32_t k = 0; k < kDepositsPerVector; ++k) {
      const uint32_t first = h + kCodesPerDeposit * k;  // first code of the deposit
      deposits[k] = first < kFields
                        ? _pdep_u64(PeekStream(stream, codes + kCodeBits * first), kCodeBytes)
                        : 0;
    }
    // Past the tile's field sets the codes are 0: width 0, never raw.
    const __m256i c =
        _mm256_setr_epi64x(static_cast<int64_t>(deposits[0]), static_cast<int64_t>(deposits[1]),
                           static_cast<int64_t>(deposits[2]), static_cast<int64_t>(deposits[3]));
    const __m256i escape = _mm256_load_si256(reinterpret_cast<const __m256i*>(table.escape + h));
    const __m256i atOrAbove = _mm256_cmpgt_epi8(
        c, _mm256_load_si256(reinterpret_cast<const __m256i*>(table.belowEscape + h)));
    const __m256i coded = _mm256_load_si256(reinterpret_cast<const __m256i*>(table.coded + h));
    const __m256i width = _mm256_blendv_epi8(c, coded, atOrAbove);
    const __m256i raw = _mm256_cmpeq_epi8(c, escape);
    _mm256_store_si256(reinterpret_cast<__m256i*>(layout->width + h), width);
    _mm256_store_si256(reinterpret_cast<__m256i*>(layout->raw + h), raw);
    rawBits |= static_cast<uint32_t>(_mm256_movemask_epi8(raw));
  }
  std::memset(layout->raw + kFieldSlots, 0, sizeof(uint32_t));
  *anyRaw = rawBits != 0;

  // Each field set starts where the ones before it end: the inclusive sum of
  // the widths less its own, stored at its own (aligned) index.
  const auto first = static_cast<uint16_t>(codes + kCodeBits * kFields);
  const __m256i seven = _mm256_set1_epi16(7);
  __m256i carry = _mm256_set1_epi16(static_cast<int16_t>(first));
  for (uint32_t q = 0; q < kFields; q += kBlockColumns) {
    const __m256i own = _mm256_slli_epi16(
        _mm256_cvtepu8_epi16(_mm_load_si128(reinterpret_cast<const __m128i*>(layout->width + q))),
        2);
    __m256i w = _mm256_add_epi16(own, _mm256_bslli_epi128(own, 2));
    w = _mm256_add_epi16(w, _mm256_bslli_epi128(w, 4));
    w = _mm256_add_epi16(w, _mm256_bslli_epi128(w, 8));
    w = _mm256_add_epi16(w, BroadcastLastWord(_mm256_permute2x128_si256(w, w, 0x08)));
    w = _mm256_add_epi16(w, carry);
    const __m256i start = _mm256_sub_epi16(w, own);
    _mm256_store_si256(reinterpret_cast<__m256i*>(layout->byteAt + q), _mm256_srli_epi16(start, 3));
    _mm256_store_si256(reinterpret_cast<__m256i*>(layout->bitAt + q),
                       _mm256_and_si256(start, seven));
    carry = BroadcastLastWord(_mm256_permute4x64_epi64(w, 0xFF));
  }
  return static_cast<uint16_t>(_mm256_extract_epi16(carry, 0));
}

// The residuals of group g, series s in lanes 4s to 4s + 3 (zero past S).
template <uint32_t S>
PELCAST_AVX2 inline __m256i GroupResiduals(const uint8_t* stream, const FieldLayout& layout,
                                           uint32_t g) {
  uint64_t r[kMaxSeries] = {0, 0, 0, 0};
  for (uint32_t s = 0; s < S; ++s) {
    const uint32_t j = S * g + s;
    const uint64_t window = LoadStreamWord(stream + layout.byteAt[j]) >> layout.bitAt[j];
    r[s] = _pdep_u64(window, kLaneMasks[layout.width[j]]);
  }
  return _mm256_setr_epi64x(static_cast<int64_t>(r[0]), static_cast<int64_t>(r[1]),
                            static_cast<int64_t>(r[2]), static_cast<int64_t>(r[3]));
}

// The raw flags of group g, each over its series' four lanes.
template <uint32_t S>
PELCAST_AVX2 inline __m256i GroupRawMask(const FieldLayout& layout, uint32_t g) {
  int32_t flags;
  std::memcpy(&flags, layout.raw + S * g, sizeof flags);
  const __m256i keep = _mm256_setr_epi64x(-1, -1, -1, S == kMaxSeries ? -1 : 0);
  return _mm256_and_si256(_mm256_cvtepi8_epi64(_mm_cvtsi32_si128(flags)), keep);
}

// One block row: the four groups of row y, from `above` (the row before, or
// the base values) into `above` (this row). kRaw: some group of the tile is
// raw.
template <uint32_t S, bool kRaw>
PELCAST_AVX2 inline void ReconstructRow(const uint8_t* stream, const FieldLayout& layout,
                                        uint32_t y, __m256i above[4]) {
  const __m256i one = _mm256_set1_epi16(1);
  __m256i left = _mm256_setzero_si256();  // D left of column 0
  for (uint32_t q = 0; q < kGroupsPerRow; ++q) {
    const uint32_t g = kGroupsPerRow * y + q;
    const __m256i r = GroupResiduals<S>(stream, layout, g);
    // Zig-zag: r / 2 for even r, -(r + 1) / 2 for odd.
    const __m256i sign = _mm256_sub_epi16(_mm256_setzero_si256(), _mm256_and_si256(r, one));
    __m256i d = _mm256_xor_si256(_mm256_srli_epi16(r, 1), sign);
    // Prefix sum over the four lanes of each series.
    d = _mm256_add_epi16(d, _mm256_slli_epi64(d, 16));
    d = _mm256_add_epi16(d, _mm256_slli_epi64(d, 32));
    left = _mm256_add_epi16(CarryLastLane(left), d);
    if constexpr (kRaw) {
      const __m256i direct = _mm256_sub_epi16(r, above[q]);
      left = _mm256_blendv_epi8(left, direct, GroupRawMask<S>(layout, g));
    }
    above[q] = _mm256_add_epi16(above[q], left);
  }
}

// True when every group of block row y has width 0 (so no residual and no
// raw group).
template <uint32_t S>
PELCAST_AVX2 inline bool RowIsFlat(const FieldLayout& layout, uint32_t y) {
  constexpr uint32_t kRowFields = kGroupsPerRow * S;
  const __m128i widths =
      _mm_loadu_si128(reinterpret_cast<const __m128i*>(layout.width + kRowFields * y));
  const __m128i mask =
      S == kMaxSeries ? _mm_set1_epi8(-1) : _mm_setr_epi32(-1, -1, -1, 0);  // the row's 12 fields
  return _mm_testz_si128(widths, mask) != 0;
}

template <TileKind K, uint32_t S, bool kRaw, bool kStream>
PELCAST_AVX2 inline void Reconstruct(const uint8_t* stream, const TileFields& f,
                                     const FieldLayout& layout, uint8_t* out, uint64_t pitch) {
  __m256i above[kGroupsPerRow];
  const __m256i base = _mm256_setr_epi64x(
      static_cast<int64_t>(kEveryWord * f.base[0]), static_cast<int64_t>(kEveryWord * f.base[1]),
      static_cast<int64_t>(kEveryWord * f.base[2]), static_cast<int64_t>(kEveryWord * f.base[3]));
  for (auto& a : above) a = base;
  for (uint32_t y = 0; y < kBlockRows; ++y) {
    // A block row whose groups all have code 0 repeats the row above.
    if (!RowIsFlat<S>(layout, y)) ReconstructRow<S, kRaw>(stream, layout, y, above);
    if constexpr (K == TileKind::kRgba8888) {
      StoreRgbaRow<kStream>(f, above, out, pitch, y);
    } else if constexpr (K == TileKind::kNv12Luma) {
      StoreLumaRow<kStream>(above, out, pitch, y);
    } else if constexpr (K == TileKind::kNv12Chroma) {
      StoreChromaRow<kStream>(above, out, pitch, y);
    } else {
      StoreRgb565Row<kStream>(f, above, out, pitch, y);
    }
  }
}

// A tile with codes: returns the bits of its stream.
template <TileKind K, uint32_t S, bool kStream>
__attribute__((noinline)) PELCAST_AVX2 uint32_t DecodeCoded(const uint8_t* stream, uint64_t codes,
                                                            const TileFields& f, uint8_t* out,
                                                            uint64_t pitch) {
  const PositionTable& table =
      kPositionTables[static_cast<int>(K)][S == kMaxSeries ? 1 : 0][f.colourFlag];
  FieldLayout layout;
  bool anyRaw = false;
  const uint64_t end = LayFields<S>(stream, codes, table, &layout, &anyRaw);
  if (anyRaw) {
    Reconstruct<K, S, true, kStream>(stream, f, layout, out, pitch);
  } else {
    Reconstruct<K, S, false, kStream>(stream, f, layout, out, pitch);
  }
  return static_cast<uint32_t>(end);
}

// A constant tile, two 32-byte stores to a row (four for RGBA8888).
template <TileKind K, bool kStream>
PELCAST_AVX2 inline void StoreConstantRows(const TileFields& f, uint8_t* out, uint64_t pitch) {
  const ConstantRows c = ConstantRowsOf<K>(f);
  const __m256i top =
      _mm256_setr_epi64x(static_cast<int64_t>(c.topLeft), static_cast<int64_t>(c.topLeft),
                         static_cast<int64_t>(c.topRight), static_cast<int64_t>(c.topRight));
  for (uint32_t y = 0; y < kBlockRows; ++y) {
    StoreRow<kStream>(out + y * pitch, top);
    if constexpr (K == TileKind::kRgba8888)
      StoreRow<kStream>(out + y * pitch + sizeof(__m256i), top);
  }
  if constexpr (kTileRowsOf < K >> kBlockRows) {
    const __m256i bottom = _mm256_setr_epi64x(
        static_cast<int64_t>(c.bottomLeft), static_cast<int64_t>(c.bottomLeft),
        static_cast<int64_t>(c.bottomRight), static_cast<int64_t>(c.bottomRight));
    for (uint32_t y = kBlockRows; y < kTileRowsOf<K>; ++y)
      StoreRow<kStream>(out + y * pitch, bottom);
  }
}

template <TileKind K, bool kStream>
PELCAST_AVX2 uint32_t DecodeKind(const uint8_t* stream, uint8_t* out, uint64_t pitch) {
  TileFields f;
  const uint64_t codes = ReadHeader<K>(stream, &f);
  if (CodesAllZero(stream, codes, f.series)) {
    StoreConstantRows<K, kStream>(f, out, pitch);
    return ConstantStreamBits(codes, f.series);
  }
  if (f.series == kMaxSeries)
    return DecodeCoded<K, kMaxSeries, kStream>(stream, codes, f, out, pitch);
  return DecodeCoded<K, kMaxSeries - 1, kStream>(stream, codes, f, out, pitch);
}

// ---- Raw tiles: micro-block order to raster rows ----
//
// A 4 x 4 micro-block holds its elements in Z order; a byte shuffle brings
// them to raster order inside each 128-bit half, and unpacks and permutes
// then gather the rows of the micro-blocks side by side.

PELCAST_AVX2 inline __m256i LoadBytes(const uint8_t* at) {
  return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(at));
}

// One-byte elements: each half is a micro-block, after the shuffle its four
// rows as 32-bit words.
template <bool kStream>
PELCAST_AVX2 inline void ExpandRawLuma(const uint8_t* stored, uint8_t* out, uint64_t pitch) {
  const __m256i toRaster = _mm256_setr_epi8(0, 1, 4, 5, 2, 3, 6, 7, 8, 9, 12, 13, 10, 11, 14, 15, 0,
                                            1, 4, 5, 2, 3, 6, 7, 8, 9, 12, 13, 10, 11, 14, 15);
  // Words of micro-blocks 0, 2, 4, 6 | 1, 3, 5, 7 to 0, 1, ..., 7.
  const __m256i interleave = _mm256_setr_epi32(0, 4, 1, 5, 2, 6, 3, 7);
  constexpr uint32_t kBandBytes = 128;  // one row of eight micro-blocks
  for (uint32_t band = 0; band < 2; ++band) {
    const uint8_t* in = stored + kBandBytes * band;
    __m256i x[4];  // micro-blocks 2i | 2i + 1
    for (uint32_t i = 0; i < 4; ++i) x[i] = _mm256_shuffle_epi8(LoadBytes(in + 32 * i), toRaster);
    const __m256i rows01a = _mm256_unpacklo_epi32(x[0], x[1]);
    const __m256i rows23a = _mm256_unpackhi_epi32(x[0], x[1]);
    const __m256i rows01b = _mm256_unpacklo_epi32(x[2], x[3]);
    const __m256i rows23b = _mm256_unpackhi_epi32(x[2], x[3]);
    const __m256i rows[4] = {
        _mm256_unpacklo_epi64(rows01a, rows01b), _mm256_unpackhi_epi64(rows01a, rows01b),
        _mm256_unpacklo_epi64(rows23a, rows23b), _mm256_unpackhi_epi64(rows23a, rows23b)};
    for (uint32_t y = 0; y < kBlockRows; ++y) {
      StoreRow<kStream>(out + (kBlockRows * band + y) * pitch,
                        _mm256_permutevar8x32_epi32(rows[y], interleave));
    }
  }
}

// Two-byte elements: a micro-block fills a vector, rows 0 and 1 in its low
// half and rows 2 and 3 in its high half after the shuffle, 8 bytes each.
// `bands` rows of four micro-blocks (chroma 2, RGB565 1).
template <bool kStream>
PELCAST_AVX2 inline void ExpandRawPairs(const uint8_t* stored, uint8_t* out, uint64_t pitch,
                                        uint32_t bands) {
  const __m256i toRaster = _mm256_setr_epi8(0, 1, 2, 3, 8, 9, 10, 11, 4, 5, 6, 7, 12, 13, 14, 15, 0,
                                            1, 2, 3, 8, 9, 10, 11, 4, 5, 6, 7, 12, 13, 14, 15);
  constexpr uint32_t kBandBytes = 128;
  for (uint32_t band = 0; band < bands; ++band) {
    const uint8_t* in = stored + kBandBytes * band;
    __m256i x[4];
    for (uint32_t i = 0; i < 4; ++i) x[i] = _mm256_shuffle_epi8(LoadBytes(in + 32 * i), toRaster);
    const __m256i even01 = _mm256_unpacklo_epi64(x[0], x[1]);  // rows 0 | 2 of blocks 0, 1
    const __m256i odd01 = _mm256_unpackhi_epi64(x[0], x[1]);   // rows 1 | 3
    const __m256i even23 = _mm256_unpacklo_epi64(x[2], x[3]);
    const __m256i odd23 = _mm256_unpackhi_epi64(x[2], x[3]);
    uint8_t* row = out + kBlockRows * band * pitch;
    StoreRow<kStream>(row, _mm256_permute2x128_si256(even01, even23, 0x20));
    StoreRow<kStream>(row + pitch, _mm256_permute2x128_si256(odd01, odd23, 0x20));
    StoreRow<kStream>(row + 2 * pitch, _mm256_permute2x128_si256(even01, even23, 0x31));
    StoreRow<kStream>(row + 3 * pitch, _mm256_permute2x128_si256(odd01, odd23, 0x31));
  }
}

// Four-byte elements: a micro-block is two vectors, pixel pairs of rows 0,
// 1 (then 2, 3), which a permute sorts into row 0 | row 1 (row 2 | row 3).
template <bool kStream>
PELCAST_AVX2 inline void ExpandRawRgba(const uint8_t* stored, uint8_t* out, uint64_t pitch) {
  constexpr int kRowsApart = _MM_SHUFFLE(3, 1, 2, 0);
  constexpr uint32_t kBlockBytes = 64;
  __m256i rows[4][2];  // micro-block m: rows 0 | 1, rows 2 | 3
  for (uint32_t m = 0; m < 4; ++m) {
    rows[m][0] = _mm256_permute4x64_epi64(LoadBytes(stored + kBlockBytes * m), kRowsApart);
    rows[m][1] = _mm256_permute4x64_epi64(LoadBytes(stored + kBlockBytes * m + 32), kRowsApart);
  }
  for (uint32_t y = 0; y < kBlockRows; ++y) {
    const uint32_t half = y / 2;
    uint8_t* row = out + y * pitch;
    if (y % 2 == 0) {
      StoreRow<kStream>(row, _mm256_permute2x128_si256(rows[0][half], rows[1][half], 0x20));
      StoreRow<kStream>(row + 32, _mm256_permute2x128_si256(rows[2][half], rows[3][half], 0x20));
    } else {
      StoreRow<kStream>(row, _mm256_permute2x128_si256(rows[0][half], rows[1][half], 0x31));
      StoreRow<kStream>(row + 32, _mm256_permute2x128_si256(rows[2][half], rows[3][half], 0x31));
    }
  }
}

}  // namespace

PELCAST_AVX2 uint32_t DecodeRgba8888Avx2(const uint8_t* stream, uint8_t* out, uint64_t pitch) {
  return DecodeKind<TileKind::kRgba8888, false>(stream, out, pitch);
}

PELCAST_AVX2 uint32_t DecodeLumaAvx2(const uint8_t* stream, uint8_t* out, uint64_t pitch) {
  return DecodeKind<TileKind::kNv12Luma, false>(stream, out, pitch);
}

PELCAST_AVX2 uint32_t DecodeChromaAvx2(const uint8_t* stream, uint8_t* out, uint64_t pitch) {
  return DecodeKind<TileKind::kNv12Chroma, false>(stream, out, pitch);
}

PELCAST_AVX2 uint32_t DecodeRgb565Avx2(const uint8_t* stream, uint8_t* out, uint64_t pitch) {
  return DecodeKind<TileKind::kRgb565, false>(stream, out, pitch);
}

PELCAST_AVX2 void ExpandRawRgba8888Avx2(const uint8_t* stored, uint8_t* out, uint64_t pitch) {
  ExpandRawRgba<false>(stored, out, pitch);
}

PELCAST_AVX2 void ExpandRawLumaAvx2(const uint8_t* stored, uint8_t* out, uint64_t pitch) {
  ExpandRawLuma<false>(stored, out, pitch);
}

PELCAST_AVX2 void ExpandRawChromaAvx2(const uint8_t* stored, uint8_t* out, uint64_t pitch) {
  ExpandRawPairs<false>(stored, out, pitch, 2);
}

PELCAST_AVX2 void ExpandRawRgb565Avx2(const uint8_t* stored, uint8_t* out, uint64_t pitch) {
  ExpandRawPairs<false>(stored, out, pitch, 1);
}

PELCAST_AVX2 uint32_t DecodeRgba8888StreamedAvx2(const uint8_t* stream, uint8_t* out,
                                                 uint64_t pitch) {
  return DecodeKind<TileKind::kRgba8888, true>(stream, out, pitch);
}

PELCAST_AVX2 uint32_t DecodeLumaStreamedAvx2(const uint8_t* stream, uint8_t* out, uint64_t pitch) {
  return DecodeKind<TileKind::kNv12Luma, true>(stream, out, pitch);
}

PELCAST_AVX2 uint32_t DecodeChromaStreamedAvx2(const uint8_t* stream, uint8_t* out,
                                               uint64_t pitch) {
  return DecodeKind<TileKind::kNv12Chroma, true>(stream, out, pitch);
}

PELCAST_AVX2 uint32_t DecodeRgb565StreamedAvx2(const uint8_t* stream, uint8_t* out,
                                               uint64_t pitch) {
  return DecodeKind<TileKind::kRgb565, true>(stream, out, pitch);
}

PELCAST_AVX2 void ExpandRawRgba8888StreamedAvx2(const uint8_t* stored, uint8_t* out,
                                                uint64_t pitch) {
  ExpandRawRgba<true>(stored, out, pitch);
}

PELCAST_AVX2 void ExpandRawLumaStreamedAvx2(const uint8_t* stored, uint8_t* out, uint64_t pitch) {
  ExpandRawLuma<true>(stored, out, pitch);
}

PELCAST_AVX2 void ExpandRawChromaStreamedAvx2(const uint8_t* stored, uint8_t* out, uint64_t pitch) {
  ExpandRawPairs<true>(stored, out, pitch, 2);
}

PELCAST_AVX2 void ExpandRawRgb565StreamedAvx2(const uint8_t* stored, uint8_t* out, uint64_t pitch) {
  ExpandRawPairs<true>(stored, out, pitch, 1);
}

}  // namespace pelcast::tile_kernels_detail

#endif  // __x86_64__
