// The kernel tables, the plane match, raw tiles and the portable kernel.
#include "decoder/tile_kernels.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "common/cpu.h"

#if defined(__x86_64__)
#include <emmintrin.h>
#endif
#include "decoder/micro_block.h"
#include "decoder/tile_fields.h"

namespace pelcast {

using namespace tile_kernels_detail;

namespace {

struct KindLayout {
  uint64_t elementBytes;
  uint64_t rowElements;
  uint64_t rows;
};

constexpr KindLayout kLayouts[] = {{4, 16, 4}, {1, 32, 8}, {2, 16, 8}, {2, 16, 4}};

const KindLayout& LayoutOf(TileKind kind) { return kLayouts[static_cast<int>(kind)]; }

// The parameter sets configuration gives the four planes.
struct ConfiguredPlanes {
  std::array<PlaneCodecParams, 4> planes;
};

ConfiguredPlanes MakeConfiguredPlanes() {
  ConfiguredPlanes configured{};
  ZpakContext* context = AllocateZpakContext();
  if (context == nullptr) return configured;  // nothing matches a zeroed set with a kind
  ConfigureZpakContext(context, kContextRgba8888);
  configured.planes[static_cast<int>(TileKind::kRgba8888)] = context->planes[0];
  ConfigureZpakContext(context, kContextNv12);
  configured.planes[static_cast<int>(TileKind::kNv12Luma)] = context->planes[0];
  configured.planes[static_cast<int>(TileKind::kNv12Chroma)] = context->planes[1];
  ConfigureZpakContext(context, kContextRgb565);
  configured.planes[static_cast<int>(TileKind::kRgb565)] = context->planes[0];
  ReleaseZpakContext(context);
  return configured;
}

const PlaneCodecParams& ConfiguredPlane(TileKind kind) {
  static const ConfiguredPlanes configured = MakeConfiguredPlanes();
  return configured.planes[static_cast<int>(kind)];
}

// The kind whose output layout (contextFormat, planeIndex) selects, if any.
bool KindOfLayout(uint64_t contextFormat, uint64_t planeIndex, TileKind* kind) {
  switch (contextFormat) {
    case kContextNv12:
      if (planeIndex > 1) return false;
      *kind = planeIndex == 0 ? TileKind::kNv12Luma : TileKind::kNv12Chroma;
      return true;
    case kContextRgba8888:
    case 5:
    case 6:
    case 8:
    case 9:
      *kind = TileKind::kRgba8888;  // the four-byte layout
      return true;
    case kContextRgb565:
      *kind = TileKind::kRgb565;
      return true;
    default:
      return false;
  }
}

// Micro-block order to raster rows; horizontally adjacent element pairs stay
// adjacent in micro-block order, so pairs move whole.
template <size_t kElementBytes, size_t kRowElements, size_t kRows>
void ExpandRaw(const uint8_t* stored, uint8_t* out, uint64_t pitch) {
  constexpr size_t kPairBytes = 2 * kElementBytes;
  for (size_t y = 0; y < kRows; ++y) {
    const size_t rowStart = MicroBlockElement(0, y, kRowElements);
    uint8_t* row = out + y * pitch;
    for (size_t p = 0; p < kRowElements / 2; ++p) {
      const size_t element = rowStart + kMicroBlockElements * (p >> 1) + ((p & 1) << 2);
      std::memcpy(row + 2 * p * kElementBytes, stored + element * kElementBytes, kPairBytes);
    }
  }
}

// ---- The portable kernel ----

// Signed difference of a zig-zag residual, in 16-bit wrap arithmetic.
inline uint16_t ZigZag(uint32_t residual) {
  return static_cast<uint16_t>((residual >> 1) ^ (0u - (residual & 1)));
}

// Samples of every series in raster order of the 16 x 4 block, wrapped to
// 16 bits (exact where the colour transform needs it, see the header).
struct SeriesSamples {
  uint16_t s[kMaxSeries][kBlockRows * kBlockColumns];
};

// Returns the bit position after the last residual.
uint64_t ReconstructPlain(const uint8_t* padded, const TileFields& f, SeriesSamples* out) {
  uint16_t above[kMaxSeries][kBlockColumns];
  for (uint32_t s = 0; s < kMaxSeries; ++s) std::fill_n(above[s], kBlockColumns, f.base[s]);
  uint64_t position = f.residualStart;
  for (uint32_t y = 0; y < kBlockRows; ++y) {
    uint16_t vertical[kMaxSeries] = {};  // D of the sample to the left
    for (uint32_t q = 0; q < kGroupsPerRow; ++q) {
      const uint32_t g = kGroupsPerRow * y + q;
      for (uint32_t s = 0; s < f.series; ++s) {
        const uint32_t code = f.codes[g][s];
        const uint32_t width = ResidualWidth(f, s, code);
        const uint64_t window = PeekStream(padded, position);
        position += kGroupSamples * width;
        const uint64_t mask = (uint64_t{1} << width) - 1;
        for (uint32_t i = 0; i < kGroupSamples; ++i) {
          const auto r = static_cast<uint32_t>((window >> (i * width)) & mask);
          const uint32_t x = kGroupSamples * q + i;
          if (code == f.escape[s]) {
            vertical[s] = static_cast<uint16_t>(r - above[s][x]);
            above[s][x] = static_cast<uint16_t>(r);
          } else {
            vertical[s] = static_cast<uint16_t>(vertical[s] + ZigZag(r));
            above[s][x] = static_cast<uint16_t>(above[s][x] + vertical[s]);
          }
          out->s[s][kBlockColumns * y + x] = above[s][x];
        }
      }
    }
  }
  return position;
}

// A wrapped 16-bit sample as the exact value it stands for (see the header).
inline int32_t Signed(uint16_t sample) { return static_cast<int16_t>(sample); }

void StoreRgbaPlain(const TileFields& f, const SeriesSamples& v, uint8_t* out, uint64_t pitch) {
  for (uint32_t y = 0; y < kBlockRows; ++y) {
    uint8_t* row = out + y * pitch;
    for (uint32_t x = 0; x < kBlockColumns; ++x) {
      const uint32_t i = kBlockColumns * y + x;
      uint8_t* pixel = row + 4 * x;
      if (f.colourFlag != 0) {
        const Rgb c =
            InverseColour(Signed(v.s[0][i]), Signed(v.s[1][i]), Signed(v.s[2][i]), kRgbaSampleBits);
        pixel[0] = static_cast<uint8_t>(c.first);
        pixel[1] = static_cast<uint8_t>(c.second);
        pixel[2] = static_cast<uint8_t>(c.third);
      } else {
        for (uint32_t c = 0; c < 3; ++c) pixel[c] = static_cast<uint8_t>(v.s[c][i]);
      }
      pixel[3] = static_cast<uint8_t>(f.constantFlag != 0 ? f.base[3] : v.s[3][i]);
    }
  }
}

// Luma series are blocks top-left, top-right, bottom-left, bottom-right.
void StoreLumaPlain(const SeriesSamples& v, uint8_t* out, uint64_t pitch) {
  for (uint32_t b = 0; b < kMaxSeries; ++b) {
    for (uint32_t y = 0; y < kBlockRows; ++y) {
      uint8_t* row = out + (kBlockRows * (b >> 1) + y) * pitch + kBlockColumns * (b & 1);
      for (uint32_t x = 0; x < kBlockColumns; ++x)
        row[x] = static_cast<uint8_t>(v.s[b][kBlockColumns * y + x]);
    }
  }
}

// Chroma series are block 0 U, V and block 1 U, V; blocks are stacked.
void StoreChromaPlain(const SeriesSamples& v, uint8_t* out, uint64_t pitch) {
  for (uint32_t s = 0; s < kMaxSeries; ++s) {
    for (uint32_t y = 0; y < kBlockRows; ++y) {
      uint8_t* row = out + (kBlockRows * (s >> 1) + y) * pitch + (s & 1);
      for (uint32_t x = 0; x < kBlockColumns; ++x)
        row[2 * x] = static_cast<uint8_t>(v.s[s][kBlockColumns * y + x]);
    }
  }
}

void StoreRgb565Plain(const TileFields& f, const SeriesSamples& v, uint8_t* out, uint64_t pitch) {
  for (uint32_t y = 0; y < kBlockRows; ++y) {
    uint8_t* row = out + y * pitch;
    for (uint32_t x = 0; x < kBlockColumns; ++x) {
      const uint32_t i = kBlockColumns * y + x;
      uint32_t c0 = v.s[0][i], c1 = v.s[1][i], c2 = v.s[2][i];
      if (f.colourFlag != 0) {
        const Rgb c = InverseColour(Signed(v.s[0][i]), Signed(v.s[1][i]), Signed(v.s[2][i]),
                                    kRgb565SampleBits);
        c0 = static_cast<uint32_t>(c.first);
        c1 = static_cast<uint32_t>(c.second);
        c2 = static_cast<uint32_t>(c.third);
      }
      const uint32_t packed = c0 + (c1 << kGreenShift) + (c2 << kRedShift);
      row[2 * x] = static_cast<uint8_t>(packed);
      row[2 * x + 1] = static_cast<uint8_t>(packed >> 8);
    }
  }
}

template <TileKind K>
uint32_t DecodePlain(const uint8_t* stream, uint8_t* out, uint64_t pitch) {
  TileFields f;
  ReadTileFields(K, stream, &f);
  if (CodesAllZero(stream, f.residualStart - kGroups * kCodeBits * f.series, f.series)) {
    StoreConstantTile<K>(f, out, pitch);
    return static_cast<uint32_t>(f.residualStart);
  }
  SeriesSamples samples;
  const uint64_t end = ReconstructPlain(stream, f, &samples);
  if constexpr (K == TileKind::kRgba8888) {
    StoreRgbaPlain(f, samples, out, pitch);
  } else if constexpr (K == TileKind::kNv12Luma) {
    StoreLumaPlain(samples, out, pitch);
  } else if constexpr (K == TileKind::kNv12Chroma) {
    StoreChromaPlain(samples, out, pitch);
  } else {
    StoreRgb565Plain(f, samples, out, pitch);
  }
  return static_cast<uint32_t>(end);
}

void FinishStreamingPlain() {}

#if defined(__x86_64__)
// Orders the streamed stores before every later store, so that whoever is
// told the output is ready sees it.
void FinishStreamingSse2() { _mm_sfence(); }
#endif

#define PELCAST_PLAIN_DECODE                                               \
  {                                                                        \
    DecodePlain<TileKind::kRgba8888>, DecodePlain<TileKind::kNv12Luma>,    \
        DecodePlain<TileKind::kNv12Chroma>, DecodePlain<TileKind::kRgb565> \
  }
#define PELCAST_PLAIN_EXPAND \
  { ExpandRaw<4, 16, 4>, ExpandRaw<1, 32, 8>, ExpandRaw<2, 16, 8>, ExpandRaw<2, 16, 4> }

constexpr TileDecodeKernels kPlainKernels = {
    "plain",
    PELCAST_PLAIN_DECODE,
    PELCAST_PLAIN_EXPAND,
    PELCAST_PLAIN_DECODE,
    PELCAST_PLAIN_EXPAND,
    FinishStreamingPlain,
};

#if defined(__x86_64__)
constexpr TileDecodeKernels kAvx2Kernels = {
    "avx2",
    {DecodeRgba8888Avx2, DecodeLumaAvx2, DecodeChromaAvx2, DecodeRgb565Avx2},
    {ExpandRawRgba8888Avx2, ExpandRawLumaAvx2, ExpandRawChromaAvx2, ExpandRawRgb565Avx2},
    {DecodeRgba8888StreamedAvx2, DecodeLumaStreamedAvx2, DecodeChromaStreamedAvx2,
     DecodeRgb565StreamedAvx2},
    {ExpandRawRgba8888StreamedAvx2, ExpandRawLumaStreamedAvx2, ExpandRawChromaStreamedAvx2,
     ExpandRawRgb565StreamedAvx2},
    FinishStreamingSse2,
};
#endif
#if defined(__aarch64__)
// No streaming stores here: the streamed routines are the ordinary ones.
constexpr TileDecodeKernels kNeonKernels = {
    "neon",
    {DecodeRgba8888Neon, DecodeLumaNeon, DecodeChromaNeon, DecodeRgb565Neon},
    {ExpandRawRgba8888Neon, ExpandRawLumaNeon, ExpandRawChromaNeon, ExpandRawRgb565Neon},
    {DecodeRgba8888Neon, DecodeLumaNeon, DecodeChromaNeon, DecodeRgb565Neon},
    {ExpandRawRgba8888Neon, ExpandRawLumaNeon, ExpandRawChromaNeon, ExpandRawRgb565Neon},
    FinishStreamingPlain,
};
#endif

#undef PELCAST_PLAIN_DECODE
#undef PELCAST_PLAIN_EXPAND

// Widest first, with the features each needs.
struct KernelChoice {
  uint32_t features;
  const TileDecodeKernels* kernels;
};

constexpr KernelChoice kChoices[] = {
#if defined(__x86_64__)
    {kSetAvx2, &kAvx2Kernels},
#endif
#if defined(__aarch64__)
    {kSetNeon, &kNeonKernels},
#endif
    {0, &kPlainKernels},
};

}  // namespace

const TileDecodeKernels& TileDecodeKernelsFor(uint32_t features) {
  for (const KernelChoice& choice : kChoices) {
    if ((choice.features & ~features) == 0) return *choice.kernels;
  }
  return kPlainKernels;
}

const TileDecodeKernels& ActiveTileDecodeKernels() {
  static const TileDecodeKernels& active = TileDecodeKernelsFor(CpuFeatures());
  return active;
}

bool FindTileKind(const ZpakContext& context, TileKind* kind) {
  if (context.planeIndex >= kPlaneSets) return false;
  TileKind found;
  if (!KindOfLayout(context.contextFormat, context.planeIndex, &found)) return false;
  const PlaneCodecParams& plane = context.planes[context.planeIndex];
  if (std::memcmp(&plane, &ConfiguredPlane(found), sizeof plane) != 0) return false;
  *kind = found;
  return true;
}

uint64_t TileRowBytes(TileKind kind) {
  const KindLayout& layout = LayoutOf(kind);
  return layout.elementBytes * layout.rowElements;
}

uint64_t TileRows(TileKind kind) { return LayoutOf(kind).rows; }

uint64_t StagedTileBytes(TileKind kind) {
  return kind == TileKind::kRgb565 ? kStoredTileBytes / 2 : kStoredTileBytes;
}

}  // namespace pelcast
