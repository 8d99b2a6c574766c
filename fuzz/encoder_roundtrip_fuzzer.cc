// The encoder as a property: whatever it is given, what it stores decodes
// back to exactly the input, and never takes more 64-byte units than the
// raw tile.
//
// Input: byte 0 picks the mode.
// * Tile modes (RGBA8888, NV12 luma, NV12 chroma, RGB565 half tile): a tile
//   in micro-block order goes through EncodeZpakTile; its stored units are
//   staged with arbitrary bytes after them (the decoder must ignore them)
//   and decoded with DecodeTile under the metadata byte 4n + 15.
// * Frame modes (RGBA8888, NV12, RGB565): a small frame laid out as the
//   encode commands lay out their staging buffer goes through the frame
//   encoder with fuzzed addressing settings, and the frame decoder with the
//   same settings and the decode commands' geometry must give it back. Every
//   metadata byte is 0 (no tile there) or one of 19, 23, 27, 31.
// Image content comes from FillImage: raw bytes or smooth images that
// compress, so both the raw fallback and every stream length are reached.
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <vector>

#include "decoder/frame_decoder.h"
#include "decoder/tile_decoder.h"
#include "encoder/frame_encoder.h"
#include "encoder/tile_encoder.h"
#include "fuzz/fuzz_support.h"
#include "surface/frame_config.h"
#include "surface/plane_geometry.h"
#include "surface/zpak_context.h"

namespace pelcast::fuzz {
namespace {

constexpr size_t kSlotSize = 256;
constexpr uint32_t kUnitBytes = 64;
constexpr uint32_t kMetadataBias = 15;
constexpr uint32_t kMetadataPerUnit = 4;

// ---------------------------------------------------------------- tiles --

struct TileKind {
  uint64_t contextFormat;
  uint64_t planeIndex;
  size_t elementBytes;
  size_t rowElements;
  size_t rows;
  uint32_t rawUnits;  // units of the raw tile: the most a tile may take
};

constexpr TileKind kTileKinds[] = {
    {kContextRgba8888, 0, 4, 16, 4, 4},
    {kContextNv12, 0, 1, 32, 8, 4},
    {kContextNv12, 1, 2, 16, 8, 4},
    {kContextRgb565, 0, 2, 16, 4, 2},
};
constexpr size_t kTileKindCount = sizeof kTileKinds / sizeof kTileKinds[0];

ZpakContext* NewContext(uint64_t contextFormat) {
  ZpakContext* context = AllocateZpakContext();
  if (context == nullptr) Fail("context allocation");
  ConfigureZpakContext(context, contextFormat);
  return context;
}

ZpakContext* ContextFor(uint64_t contextFormat) {
  static ZpakContext* rgba = NewContext(kContextRgba8888);
  static ZpakContext* nv12 = NewContext(kContextNv12);
  static ZpakContext* rgb565 = NewContext(kContextRgb565);
  if (contextFormat == kContextNv12) return nv12;
  return contextFormat == kContextRgb565 ? rgb565 : rgba;
}

void RoundTripTile(const TileKind& kind, InputReader* in) {
  const size_t tileBytes = kind.elementBytes * kind.rowElements * kind.rows;
  std::vector<uint8_t> raster(tileBytes);
  FillImage(in, raster.data(), tileBytes, kind.elementBytes);
  const std::vector<uint8_t> ordered =
      RasterToMicroBlocks(raster.data(), kind.elementBytes, kind.rowElements, kind.rows);

  ZpakContext* context = ContextFor(kind.contextFormat);
  context->contextFormat = kind.contextFormat;
  context->planeIndex = kind.planeIndex;
  ExactBuffer input(tileBytes);
  std::memcpy(input.data(), ordered.data(), tileBytes);
  ExactBuffer encoded(kSlotSize);
  uint64_t units = 0;
  Check(EncodeZpakTile(context, input.data(), encoded.data(), &units) == 1, "tile stored");
  Check(units >= 1 && units <= kind.rawUnits, "a tile takes 1 unit up to the raw tile's");

  // The slot as the frame decoder stages it: the stored units, then bytes
  // the decoder must not depend on (an RGB565 half tile is followed by zeros).
  ExactBuffer staged(kSlotSize);
  const size_t storedBytes = units * kUnitBytes;
  std::memcpy(staged.data(), encoded.data(), storedBytes);
  const size_t slotBytes = kind.contextFormat == kContextRgb565 ? kSlotSize / 2 : kSlotSize;
  for (size_t i = storedBytes; i < slotBytes; ++i) staged.data()[i] = in->Byte();

  ExactBuffer decoded(tileBytes);
  const auto meta = static_cast<uint32_t>(kMetadataPerUnit * units + kMetadataBias);
  DecodeTile(context, staged.data(), meta, decoded.data());
  Check(std::memcmp(decoded.data(), raster.data(), tileBytes) == 0, "a stored tile decodes to its input");
}

// --------------------------------------------------------------- frames --

enum class FrameFormat { kRgba8888, kNv12, kRgb565 };

constexpr uint32_t kMaxFrameWidth = 272;
constexpr uint32_t kMaxFrameHeight = 72;
constexpr uint32_t kFirstBankBit = 14;
constexpr uint32_t kLastBankBit = 30;
constexpr uint32_t kRgbaPixelBytes = 4;
constexpr uint32_t kRgb565PixelBytes = 2;

struct Addressing {
  uint64_t swizzleEnable;
  uint64_t addressingMode;
  uint64_t altAddressing;
  uint64_t bankBit;
};

Addressing ReadAddressing(InputReader* in, FrameFormat format) {
  Addressing a{};
  a.swizzleEnable = in->Byte() % 2;
  a.addressingMode = in->Byte() % 3;
  a.altAddressing = in->Byte() % 2;
  a.bankBit = in->InRange(kFirstBankBit, kLastBankBit);
  if (format == FrameFormat::kRgb565) {
    // Without the swizzle the RGB565 slot rule sends several tiles to slot
    // 0, and uncompressed RGB565 halves keep only 64 of their 128 bytes:
    // neither is meant to round-trip.
    a.swizzleEnable = 1;
    a.altAddressing = 0;
  }
  return a;
}

void Apply(const Addressing& a, ZpakConfig* c) {
  c->swizzleEnable = a.swizzleEnable;
  c->addressingMode = a.addressingMode;
  c->altAddressing = a.altAddressing;
  c->bankBit = a.bankBit;
}

void CheckMetadata(const uint8_t* plane, size_t size) {
  for (size_t i = 0; i < size; ++i) {
    const uint8_t m = plane[i];
    Check(m == 0 || m == 19 || m == 23 || m == 27 || m == 31,
          "metadata bytes say 1 to 4 units (or no tile)");
  }
}

// H then G: rows of 4w bytes at the stride in the staging buffer.
void RoundTripRgba(InputReader* in, int32_t w, int32_t h, const Addressing& a) {
  const auto e = ComputeEncodeGeometryT<uint32_t>(false, w, h);
  ExactBuffer staging(e.epbSize);
  const size_t rowBytes = size_t{kRgbaPixelBytes} * w;
  std::vector<uint8_t> image(rowBytes * h);
  FillImage(in, image.data(), image.size(), kRgbaPixelBytes);
  for (int32_t i = 0; i < h; ++i) {
    std::memcpy(staging.data() + size_t{e.yStride} * i, &image[rowBytes * i], rowBytes);
  }
  ExactBuffer encoded(e.bufferSize);
  ZpakConfig ec{};
  ec.yMetaPlane = ec.uvMetaPlane = encoded.data();
  ec.yDataPlane = ec.uvDataPlane = encoded.data() + e.yDataOffset;
  ec.linearY = ec.linearUv = staging.data();
  ec.surfaceFormat = kSurfaceRgba8888;
  ec.width = ec.alignedWidth = e.yStride / kRgbaPixelBytes;
  ec.height = ec.alignedHeight = e.yScanlines;
  ec.compressedEnd = encoded.end();
  Apply(a, &ec);
  EncodeZpakFrame(ContextFor(kContextRgba8888), &ec);
  CheckMetadata(encoded.data(), e.yMetaSize);

  const PlaneGeometry g = ComputePlaneGeometry(PlaneFormat::kRgba8888, w, h);
  ExactBuffer frame(g.frameSize);
  std::memcpy(frame.data(), encoded.data(), std::min<size_t>(g.frameSize, encoded.size()));
  ExactBuffer output(g.outputSize);
  ZpakConfig dc{};
  FillDecodeConfig(&dc, PlaneFormat::kRgba8888, g, w, h, frame.data(), output.data());
  Apply(a, &dc);
  DecodeZpakFrame(ContextFor(kContextRgba8888), &dc);
  for (int32_t i = 0; i < h; ++i) {
    Check(std::memcmp(output.data() + size_t{g.yStride} * i, &image[rowBytes * i], rowBytes) == 0,
          "RGBA8888 frame round trip");
  }
}

// The encode side counts h >> 1 chroma scanlines, the decode side
// (h + 1) >> 1: where their alignments differ the two frame layouts differ.
bool Nv12LayoutsAgree(int32_t h) {
  return AlignUp(static_cast<uint32_t>(h >> 1), 32) == AlignUp(static_cast<uint32_t>((h + 1) >> 1), 32);
}

// N then U: the staging buffer holds Y at the aligned stride, then separate
// U and V planes of half that stride; the decoded NV12 is packed.
void RoundTripNv12(InputReader* in, int32_t w, int32_t h, const Addressing& a) {
  if (!Nv12LayoutsAgree(h)) ++h;
  const auto e = ComputeEncodeGeometryT<uint32_t>(true, w, h);
  const size_t pairs = (static_cast<size_t>(w) + 1) / 2;
  const size_t chromaRows = (static_cast<size_t>(h) + 1) / 2;
  const size_t lumaBytes = size_t{static_cast<uint32_t>(w)} * h;
  std::vector<uint8_t> image(lumaBytes + 2 * pairs * chromaRows);
  FillImage(in, image.data(), lumaBytes, 1);
  FillImage(in, image.data() + lumaBytes, image.size() - lumaBytes, 2);

  ExactBuffer staging(e.stagingSize);
  for (int32_t i = 0; i < h; ++i) {
    std::memcpy(staging.data() + size_t{e.linearStride} * i, &image[size_t{static_cast<uint32_t>(w)} * i],
                static_cast<size_t>(w));
  }
  uint8_t* uPlane = staging.data() + size_t{e.linearScanlines} * e.linearStride;
  const size_t cs = (size_t{e.linearStride} + 1) / 2;
  const size_t chs = (size_t{e.linearScanlines} + 1) / 2;
  for (size_t r = 0; r < chromaRows; ++r) {
    for (size_t c = 0; c < pairs; ++c) {
      uPlane[r * cs + c] = image[lumaBytes + r * 2 * pairs + 2 * c];
      uPlane[cs * chs + r * cs + c] = image[lumaBytes + r * 2 * pairs + 2 * c + 1];
    }
  }
  ExactBuffer encoded(e.bufferSize);
  ZpakConfig ec{};
  ec.yMetaPlane = encoded.data();
  ec.yDataPlane = encoded.data() + e.yDataOffset;
  ec.uvMetaPlane = encoded.data() + e.yDataOffset + e.yDataSize;
  ec.uvDataPlane = ec.uvMetaPlane + e.uvMetaOffset;
  ec.linearY = staging.data();
  ec.linearUv = staging.data() + e.yDataSize;
  ec.surfaceFormat = kSurfaceNv12;
  ec.width = ec.alignedWidth = e.linearStride;
  ec.height = ec.alignedHeight = e.linearScanlines;
  ec.compressedEnd = encoded.end();
  Apply(a, &ec);
  EncodeZpakFrame(ContextFor(kContextNv12), &ec);
  CheckMetadata(encoded.data(), e.yMetaSize);
  CheckMetadata(encoded.data() + e.yDataOffset + e.yDataSize, e.uvMetaSize);

  const PlaneGeometry g = ComputePlaneGeometry(PlaneFormat::kNv12, w, h);
  ExactBuffer frame(g.frameSize);
  std::memcpy(frame.data(), encoded.data(), std::min<size_t>(g.frameSize, encoded.size()));
  ExactBuffer output(g.outputSize);
  ZpakConfig dc{};
  FillDecodeConfig(&dc, PlaneFormat::kNv12, g, w, h, frame.data(), output.data());
  Apply(a, &dc);
  DecodeZpakFrame(ContextFor(kContextNv12), &dc);
  Check(image.size() <= output.size(), "NV12 output buffer holds the packed frame");
  Check(std::memcmp(output.data(), image.data(), image.size()) == 0, "NV12 frame round trip");
}

// The RGB565 frame encoder then decoder, over the plane at its stride (in
// pixels, the width both are given).
void RoundTripRgb565(InputReader* in, int32_t w, int32_t h, const Addressing& a) {
  const PlaneGeometry g = ComputePlaneGeometry(PlaneFormat::kRgb565, w, h);
  ExactBuffer staging(g.yDataBufSize);
  const size_t imageBytes = size_t{g.yStride} * static_cast<uint32_t>(h);
  FillImage(in, staging.data(), imageBytes, kRgb565PixelBytes);
  const std::vector<uint8_t> image(staging.data(), staging.data() + g.yDataBufSize);

  ExactBuffer encoded(g.frameSize);
  // The RGB565 encoder mirrors the decoder, so one descriptor serves both.
  ZpakConfig c{};
  FillDecodeConfig(&c, PlaneFormat::kRgb565, g, w, h, encoded.data(), staging.data());
  Apply(a, &c);
  EncodeZpakFrameRgb565(ContextFor(kContextRgb565), &c);
  CheckMetadata(encoded.data(), g.yMetaBufSize);

  ExactBuffer output(g.outputSize);
  c.linearY = output.data();
  DecodeZpakFrameRgb565(ContextFor(kContextRgb565), &c);
  Check(image.empty() || std::memcmp(output.data(), image.data(), image.size()) == 0,
        "RGB565 frame round trip");
}

void RoundTripFrame(FrameFormat format, InputReader* in) {
  const auto w = static_cast<int32_t>(in->InRange(1, kMaxFrameWidth));
  const auto h = static_cast<int32_t>(in->InRange(1, kMaxFrameHeight));
  const Addressing a = ReadAddressing(in, format);
  switch (format) {
    case FrameFormat::kRgba8888:
      RoundTripRgba(in, w, h, a);
      break;
    case FrameFormat::kNv12:
      RoundTripNv12(in, w, h, a);
      break;
    case FrameFormat::kRgb565:
      RoundTripRgb565(in, w, h, a);
      break;
  }
}

}  // namespace
}  // namespace pelcast::fuzz

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace pelcast::fuzz;
  InputReader in(data, size);
  constexpr size_t kFrameModes = 3;
  const size_t mode = in.Byte() % (kTileKindCount + kFrameModes);
  if (mode < kTileKindCount) {
    RoundTripTile(kTileKinds[mode], &in);
  } else {
    RoundTripFrame(static_cast<FrameFormat>(mode - kTileKindCount), &in);
  }
  return 0;
}
