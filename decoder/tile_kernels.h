// Specialised tile decoding for the four planes the tool configures (RGBA8888,
// NV12 luma, NV12 chroma, RGB565 half tiles). The general tile decoder works
// from any parameter set through 64-bit component planes, a packed tile, the
// micro-block staging and the final reorder; for the configured planes the
// same output comes straight from the stream into the caller's raster, rows
// `pitch` bytes apart.
//
// Why the shortcut gives the same bytes:
// * Staging then final reorder. For every configured plane the staging cut
//   (element 2^log2BytesPerPixel bytes, tileRowBytes / element to a row,
//   tileHeight rows) and the final reorder of the plane's (contextFormat,
//   planeIndex) use the same element size, row length and row count: RGBA8888
//   4 / 16 / 4, luma 1 / 32 / 8, chroma 2 / 16 / 8, RGB565 2 / 16 / 4. The
//   final reorder is then the inverse permutation of the staging cut, so a
//   compressed tile leaves the decoder exactly as packed, in raster order. A
//   raw tile is the one micro-block-to-raster permutation of its stored bytes.
// * 16-bit samples. The general decoder keeps samples as unbounded signed
//   integers; here they live in 16-bit lanes that wrap. Packing keeps the low
//   8 bits of a byte-packed sample and the low 16 bits of the RGB565 sum
//   c0 + 32 c1 + 2048 c2; prediction (a + b - c plus a difference), raw
//   samples and that sum are additions and subtractions, and reduction modulo
//   2^16 commutes with them, so wrapped lanes pack to the same bytes.
// * Exact values for the colour transform. Its clamps need the true samples.
//   Write the gradient prediction as s[y][x] = s[y-1][x] + D[y][x] with
//   D[y][x] = D[y][x-1] + d (D = 0 left of column 0); a raw group sets
//   s = v, i.e. D = v - s[y-1][x]. With raw values 0 <= v <= V, differences
//   |d| <= E, base values <= V and R_y the largest |s| in row y:
//     R_0 <= V + 16 E,   R_y <= V + 2 R_{y-1} + 16 E,
//   so over the four rows of a block R_3 <= 15 V + 240 E. RGBA8888: luma
//   (V = 255, E = 32: residuals of at most 6 bits) 11505, the 9-bit
//   differences (V = 511) 15345. RGB565: red (V = 31, E = 16) 4305, green
//   (V = 127, E = 64: 7-bit residuals under code 7) 17265, blue (V = 63,
//   E = 32) 8625. All fit 16-bit lanes, and so does every step of the
//   transform: with Co = s1 - 2^N and Cg = s2 - 2^N, t = s0 - (Cg >> 1),
//   third = t - (Co >> 1), second = t + Cg = s0 + ceil(Cg / 2) and first =
//   third + Co = t + ceil(Co / 2) stay within 27107 in magnitude (RGB565:
//   17283), so the clamps see exact values.
// * Reads. A kernel reads at most kPaddedTileBytes from the stream's start
//   and reports how many bits the stream takes. When the stored bytes are
//   followed by zeros up to kPaddedTileBytes, more than any stream of these
//   planes can ask for, a read past the staged bytes meets zeros as in the
//   general reader, without a test. A stream that ends within the staged
//   bytes reads nothing past them, so it can be decoded where it lies in the
//   frame buffer, whatever follows it there; a longer one (only a corrupt
//   stream is) is decoded again from a zero-padded copy.
// * Constant tiles. A tile whose bit-length codes are all 0 carries no
//   residuals: with the gradient predictor every sample of a series is its
//   base value, so the tile is its base values broadcast (through the
//   colour transform and packing). Every kernel takes this path first.
#pragma once

#include <cstddef>
#include <cstdint>

#include "surface/tile_format.h"
#include "surface/zpak_context.h"

namespace pelcast {

enum class TileKind : uint8_t { kRgba8888, kNv12Luma, kNv12Chroma, kRgb565 };
inline constexpr size_t kTileKindCount = 4;

// Finds the kind of the plane the context's contextFormat and planeIndex
// select, when that plane's parameters are exactly those configuration gives
// one of the four configured planes and its output layout is that plane's.
// Any other setting has no kind and goes through the general decoder.
bool FindTileKind(const ZpakContext& context, TileKind* kind);

// Bytes a kernel may read from a stream's start. The longest stream of these
// planes (RGBA8888, every group raw at 8 + 9 + 9 + 8 bits) is 2404 bits; a
// 64-bit load at its last field ends below 320 bytes.
inline constexpr size_t kPaddedTileBytes = 320;
inline constexpr size_t kStoredTileBytes = 256;
inline constexpr size_t kLongestStreamBits = 2404;
static_assert((kLongestStreamBits / 8) + sizeof(uint64_t) <= kPaddedTileBytes);

// Bytes of one decoded tile row and rows of a tile.
uint64_t TileRowBytes(TileKind kind);
uint64_t TileRows(TileKind kind);

// Bytes the frame decoders stage for a tile of the kind: the slot's 256, or
// the 128 of an RGB565 half tile.
uint64_t StagedTileBytes(TileKind kind);

// True when the metadata byte marks a raw tile for this kind.
inline bool IsRawTile(TileKind kind, uint32_t metadataByte) {
  return IsRawMetadata(metadataByte, kind == TileKind::kRgb565);
}

// Decodes a compressed tile of one kind from `stream` into raster rows
// `pitch` bytes apart and returns the bits the stream takes, from its first
// flag to its last residual. Reads at most kPaddedTileBytes from `stream`.
using DecodeTileRoutine = uint32_t (*)(const uint8_t* stream, uint8_t* out, uint64_t pitch);

// Writes a raw tile's stored bytes (micro-block order) as raster rows.
using ExpandRawRoutine = void (*)(const uint8_t* stored, uint8_t* out, uint64_t pitch);

// Makes streamed rows visible, in order, before anything stored later:
// called once a walk that streamed is done.
using FinishStreamingRoutine = void (*)();

// The tile decoder's routines for one kernel set, indexed by TileKind. The
// streamed ones write the same bytes with stores that do not first read the
// lines they fill, where the processor has them: for outputs far larger than
// the cache, whose lines would otherwise be read from memory only to be
// overwritten. They take rows and `pitch` 16-byte aligned.
struct TileDecodeKernels {
  const char* name;
  DecodeTileRoutine decode[kTileKindCount];
  ExpandRawRoutine expandRaw[kTileKindCount];
  DecodeTileRoutine decodeStreamed[kTileKindCount];
  ExpandRawRoutine expandRawStreamed[kTileKindCount];
  FinishStreamingRoutine finishStreaming;
};

// A frame walk streams its rows when it writes at least this many output
// bytes, far more than the cache holds, to rows 16-byte aligned.
inline constexpr uint64_t kStreamedOutputBytes = uint64_t{12} << 20;

// The routines of the widest set that `features` (common/cpu.h) runs.
const TileDecodeKernels& TileDecodeKernelsFor(uint32_t features);

// What the frame decoders use: the table of CpuFeatures(), chosen once.
const TileDecodeKernels& ActiveTileDecodeKernels();

namespace tile_kernels_detail {
uint32_t DecodeRgba8888Avx2(const uint8_t* stream, uint8_t* out, uint64_t pitch);
uint32_t DecodeLumaAvx2(const uint8_t* stream, uint8_t* out, uint64_t pitch);
uint32_t DecodeChromaAvx2(const uint8_t* stream, uint8_t* out, uint64_t pitch);
uint32_t DecodeRgb565Avx2(const uint8_t* stream, uint8_t* out, uint64_t pitch);
void ExpandRawRgba8888Avx2(const uint8_t* stored, uint8_t* out, uint64_t pitch);
void ExpandRawLumaAvx2(const uint8_t* stored, uint8_t* out, uint64_t pitch);
void ExpandRawChromaAvx2(const uint8_t* stored, uint8_t* out, uint64_t pitch);
void ExpandRawRgb565Avx2(const uint8_t* stored, uint8_t* out, uint64_t pitch);
uint32_t DecodeRgba8888StreamedAvx2(const uint8_t* stream, uint8_t* out, uint64_t pitch);
uint32_t DecodeLumaStreamedAvx2(const uint8_t* stream, uint8_t* out, uint64_t pitch);
uint32_t DecodeChromaStreamedAvx2(const uint8_t* stream, uint8_t* out, uint64_t pitch);
uint32_t DecodeRgb565StreamedAvx2(const uint8_t* stream, uint8_t* out, uint64_t pitch);
void ExpandRawRgba8888StreamedAvx2(const uint8_t* stored, uint8_t* out, uint64_t pitch);
void ExpandRawLumaStreamedAvx2(const uint8_t* stored, uint8_t* out, uint64_t pitch);
void ExpandRawChromaStreamedAvx2(const uint8_t* stored, uint8_t* out, uint64_t pitch);
void ExpandRawRgb565StreamedAvx2(const uint8_t* stored, uint8_t* out, uint64_t pitch);
uint32_t DecodeRgba8888Neon(const uint8_t* stream, uint8_t* out, uint64_t pitch);
uint32_t DecodeLumaNeon(const uint8_t* stream, uint8_t* out, uint64_t pitch);
uint32_t DecodeChromaNeon(const uint8_t* stream, uint8_t* out, uint64_t pitch);
uint32_t DecodeRgb565Neon(const uint8_t* stream, uint8_t* out, uint64_t pitch);
void ExpandRawRgba8888Neon(const uint8_t* stored, uint8_t* out, uint64_t pitch);
void ExpandRawLumaNeon(const uint8_t* stored, uint8_t* out, uint64_t pitch);
void ExpandRawChromaNeon(const uint8_t* stored, uint8_t* out, uint64_t pitch);
void ExpandRawRgb565Neon(const uint8_t* stored, uint8_t* out, uint64_t pitch);
}  // namespace tile_kernels_detail

}  // namespace pelcast
