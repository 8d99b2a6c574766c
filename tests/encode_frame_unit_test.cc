// The frame encoders: tiles land where the frame decoders look for them
// (round trips of whole frames of many sizes), the half-slot placement, the
// uncompressed addressing mode, the gather of edge tiles, and stores that
// would fall past the compressed buffer.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <vector>

#include "decoder/frame_decoder.h"
#include "encoder/frame_encoder.h"
#include "surface/plane_geometry.h"
#include "surface/zpak_context.h"
#include "tests/codec_test_support.h"
#include "tests/test_support.h"

namespace pelcast::testing {
namespace {

// Smooth content with some noise, so tiles take every stored length.
Bytes MakeImage(size_t bytes, uint32_t seed) {
  Bytes image = RandomBytes(bytes, seed);
  for (size_t i = 0; i < bytes; ++i) {
    if ((i / 64 + seed) % 3 != 0) image[i] = static_cast<uint8_t>((i / 7 + seed * 13) & 0xff);
  }
  return image;
}

struct Frame {
  Bytes compressed;
  ZpakConfig config;
};

// The descriptor of command N for the encode geometry `g`: the planes in
// `compressed` (g.bufferSize bytes), the aligned linear Y, U, V in `staging`.
ZpakConfig Nv12EncodeConfig(const EncodeGeometryT<uint32_t>& g, uint8_t* compressed,
                            uint8_t* staging) {
  ZpakConfig c{};
  c.yMetaPlane = compressed;
  c.yDataPlane = compressed + g.yMetaSize;
  c.uvMetaPlane = c.yDataPlane + g.yDataSize;
  c.uvDataPlane = c.uvMetaPlane + g.uvMetaSize;
  c.linearY = staging;
  c.linearUv = staging + g.yDataSize;
  c.width = c.alignedWidth = g.linearStride;
  c.height = c.alignedHeight = g.linearScanlines;
  c.surfaceFormat = kSurfaceNv12;
  c.addressingMode = 1;
  c.swizzleEnable = 1;
  c.bankBit = 15;
  c.compressedEnd = compressed + g.bufferSize;
  return c;
}

// Encodes like command N: planes laid out by the encode geometry, linear
// planes Y, U, V in the aligned layout; returns the frame buffer.
Bytes EncodeNv12(ZpakContext* context, const Bytes& y, const Bytes& u, const Bytes& v, int w, int h) {
  const auto g = ComputeEncodeGeometryT<uint32_t>(true, w, h);
  Bytes staging(AlignUp((g.yDataSize * 3) >> 1, 4096), 0);
  const size_t cs = g.linearStride / 2;
  const size_t chs = g.linearScanlines / 2;
  for (int r = 0; r < h; ++r) std::memcpy(&staging[r * g.linearStride], &y[r * w], w);
  for (int r = 0; r < (h + 1) / 2; ++r) {
    for (int c = 0; c < (w + 1) / 2; ++c) {
      staging[g.yDataSize + r * cs + c] = u[r * ((w + 1) / 2) + c];
      staging[g.yDataSize + cs * chs + r * cs + c] = v[r * ((w + 1) / 2) + c];
    }
  }
  Bytes compressed(g.bufferSize, 0);
  const ZpakConfig c = Nv12EncodeConfig(g, compressed.data(), staging.data());
  EncodeZpakFrame(context, &c);
  return compressed;
}

// Decodes like command U; returns Y then interleaved UV as U writes them.
Bytes DecodeNv12(ZpakContext* context, Bytes compressed, int w, int h) {
  const PlaneGeometry g = ComputePlaneGeometry(PlaneFormat::kNv12, w, h);
  compressed.resize(std::max<size_t>(compressed.size(), g.frameSize) + 256, 0);
  Bytes out(g.outputSize + 4096, 0);
  ZpakConfig c{};
  c.yMetaPlane = compressed.data();
  c.yDataPlane = compressed.data() + g.yMetaBufSize;
  c.uvMetaPlane = c.yDataPlane + g.yDataBufSize;
  c.uvDataOffset = g.yDataBufSize + g.uvMetaBufSize;
  c.linearY = out.data();
  c.width = w;
  c.height = h;
  c.alignedWidth = g.yStride;
  c.alignedHeight = g.yBufLength;
  c.stride = g.yStride;
  c.surfaceFormat = kSurfaceNv12;
  c.addressingMode = 1;
  c.swizzleEnable = 1;
  c.bankBit = 15;
  c.enable = 1;
  c.compressedEnd = compressed.data() + compressed.size();
  DecodeZpakFrame(context, &c);
  const size_t chromaBytes = static_cast<size_t>(2 * ((w + 1) / 2)) * ((h + 1) / 2);
  out.resize(static_cast<size_t>(w) * h + chromaBytes);
  return out;
}

TEST(FrameEncoder, Nv12FramesRoundTrip) {
  // The encoder walks the aligned frame (width = stride, height = scanlines)
  // and builds its tables from them; the decoder reads the real size from
  // tables of the aligned size. Sizes cover partial tiles, odd sizes, several
  // macro-tile and metadata-tile columns, and widths whose bands take the
  // bank swizzle. (Heights of 64k + 1 lose their last chroma rows on purpose:
  // the encode layout gives the chroma plane (h >> 1) rows.)
  const int sizes[][2] = {{32, 8},  {33, 9},   {40, 10},  {130, 70}, {258, 34},
                          {640, 64}, {1, 2},   {17, 200}, {1024, 40}, {2048, 72}};
  const ContextPtr encoder = MakeContext(kContextNv12);
  const ContextPtr decoder = MakeContext(kContextNv12);
  for (const auto& size : sizes) {
    const int w = size[0];
    const int h = size[1];
    // Chroma of odd sizes: U writes (w + 1) / 2 pairs per row and the encoder
    // takes w_aligned / 2, so every real pair is stored.
    const size_t chroma = static_cast<size_t>((w + 1) / 2) * ((h + 1) / 2);
    const Bytes y = MakeImage(static_cast<size_t>(w) * h, w + h);
    const Bytes u = MakeImage(chroma, w);
    const Bytes v = MakeImage(chroma, h);
    const Bytes decoded =
        DecodeNv12(decoder.get(), EncodeNv12(encoder.get(), y, u, v, w, h), w, h);
    Bytes expected = y;
    for (size_t i = 0; i < chroma; ++i) {
      expected.push_back(u[i]);
      expected.push_back(v[i]);
    }
    EXPECT_EQ(decoded, expected) << w << " x " << h;
  }
}

// RGBA8888 or RGB565 frame of w x h pixels (aligned sizes) through the
// encoder and the matching decoder.
Bytes RoundTripRgb(ZpakContext* encoder, ZpakContext* decoder, const Bytes& image, int w, int h,
                   bool rgb565, uint64_t swizzle) {
  const size_t pixelBytes = rgb565 ? 2 : 4;
  const PlaneGeometry g =
      ComputePlaneGeometry(rgb565 ? PlaneFormat::kRgb565 : PlaneFormat::kRgba8888, w, h);
  Bytes compressed(g.frameSize + 256, 0);
  Bytes linear(g.outputSize, 0);
  for (int r = 0; r < h; ++r) {
    std::memcpy(&linear[r * g.yStride], &image[r * w * pixelBytes], w * pixelBytes);
  }
  ZpakConfig c = RgbFrameConfig(g, rgb565, compressed.data(), linear.data(), swizzle);
  if (rgb565) {
    EncodeZpakFrameRgb565(encoder, &c);
  } else {
    EncodeZpakFrame(encoder, &c);
  }
  Bytes out(g.outputSize, 0);
  c.linearY = out.data();
  if (rgb565) {
    DecodeZpakFrameRgb565(decoder, &c);
  } else {
    DecodeZpakFrame(decoder, &c);
  }
  Bytes result;
  for (int r = 0; r < h; ++r) {
    result.insert(result.end(), out.begin() + r * g.yStride,
                  out.begin() + r * g.yStride + w * pixelBytes);
  }
  return result;
}

TEST(FrameEncoder, RgbaAndRgb565FramesRoundTrip) {
  // Widths are whole multiples of 32 pixels for RGB565 (the only columns its
  // frame layout stores) and of 64 for RGBA8888's stride; bands of 4096 and
  // more bytes per row exercise the swizzle. (RGB565 without the swizzle uses
  // a slot rule under which tiles share slots, so it cannot round-trip.)
  struct Case {
    int w, h;
    bool rgb565;
    uint64_t swizzle;
  };
  const Case cases[] = {{64, 16, false, 1},   {64, 4, false, 0},   {256, 72, false, 1},
                        {1024, 40, false, 1}, {2048, 80, false, 1}, {128, 16, true, 1},
                        {256, 36, true, 1},   {2048, 72, true, 1},  {4096, 40, true, 1}};
  for (const Case& c : cases) {
    const uint64_t format = c.rgb565 ? kContextRgb565 : kContextRgba8888;
    const ContextPtr encoder = MakeContext(format);
    const ContextPtr decoder = MakeContext(format);
    const Bytes image = MakeImage(static_cast<size_t>(c.w) * c.h * (c.rgb565 ? 2 : 4), c.w + c.h);
    EXPECT_EQ(RoundTripRgb(encoder.get(), decoder.get(), image, c.w, c.h, c.rgb565, c.swizzle), image)
        << c.w << " x " << c.h << (c.rgb565 ? " RGB565" : " RGBA8888") << " swizzle " << c.swizzle;
  }
}

// One 64 x 16 RGBA8888 frame (one macro tile, swizzle off) of flat tiles:
// tile (r, c) is the colour (16 r + c, 2, 3, 255), which compresses to
// flags 0 (no transform) and 1 (constant alpha), four 8-bit bases and 48
// zero codes: 178 bits, one unit, metadata 19.
struct FlatFrame {
  Bytes linear = Bytes(64 * 4 * 16, 0);
  Bytes compressed = Bytes(4096 + 4096, 0);
  ZpakConfig config{};
  FlatFrame(uint64_t addressingMode, uint64_t alt) {
    for (int y = 0; y < 16; ++y) {
      for (int x = 0; x < 64; ++x) {
        uint8_t* p = &linear[(y * 64 + x) * 4];
        p[0] = static_cast<uint8_t>(16 * (y / 4) + x / 16);
        p[1] = 2;
        p[2] = 3;
        p[3] = 255;
      }
    }
    config.yMetaPlane = compressed.data();
    config.yDataPlane = compressed.data() + 4096;
    config.linearY = linear.data();
    config.width = config.alignedWidth = 64;
    config.height = config.alignedHeight = 16;
    config.surfaceFormat = kSurfaceRgba8888;
    config.addressingMode = addressingMode;
    config.altAddressing = alt;
    config.bankBit = 15;
  }
};

// The expected stored bytes of flat tile colour v, packed by hand.
Bytes FlatTileStream(uint8_t v) {
  Bytes bytes(64, 0);
  const uint32_t fields[] = {0, 1, v, 2, 3, 255};
  const int widths[] = {1, 1, 8, 8, 8, 8};
  size_t bit = 0;
  for (int f = 0; f < 6; ++f) {
    for (int i = 0; i < widths[f]; ++i, ++bit) {
      if ((fields[f] >> i) & 1) bytes[bit / 8] |= static_cast<uint8_t>(1 << (bit % 8));
    }
  }
  return bytes;
}

TEST(FrameEncoder, ShortTilesInTheMiddleSlotsOfFourStartHalfway) {
  const uint8_t kSlotOrder[16] = {0, 7, 10, 13, 6, 1, 12, 11, 3, 4, 9, 14, 5, 2, 15, 8};
  for (uint64_t mode : {0, 1, 2}) {
    FlatFrame f(mode, 0);
    const ContextPtr context = MakeContext(kContextRgba8888);
    EncodeZpakFrame(context.get(), &f.config);
    for (int r = 0; r < 4; ++r) {
      for (int c = 0; c < 4; ++c) {
        const int slot = kSlotOrder[4 * r + c];
        const bool upper = mode == 1 && (slot % 4 == 1 || slot % 4 == 2);
        const size_t at = 4096 + 256 * slot + (upper ? 128 : 0);
        const Bytes stored(f.compressed.begin() + at, f.compressed.begin() + at + 64);
        EXPECT_EQ(stored, FlatTileStream(static_cast<uint8_t>(16 * r + c)))
            << "mode " << mode << " tile " << r << "," << c;
        EXPECT_EQ(f.compressed[8 * r + c], 19) << "metadata of tile " << r << "," << c;
      }
    }
  }
}

TEST(FrameEncoder, AlternativeAddressingStoresReorderedTilesWithoutMetadata) {
  FlatFrame f(1, 1);
  for (size_t i = 0; i < f.linear.size(); ++i) f.linear[i] = static_cast<uint8_t>(i * 7 + i / 5);
  const ContextPtr context = MakeContext(kContextRgba8888);
  EncodeZpakFrame(context.get(), &f.config);
  const uint8_t kSlotOrder[16] = {0, 7, 10, 13, 6, 1, 12, 11, 3, 4, 9, 14, 5, 2, 15, 8};
  for (int r = 0; r < 4; ++r) {
    for (int c = 0; c < 4; ++c) {
      const size_t slot = 4096 + 256 * kSlotOrder[4 * r + c];
      for (int y = 0; y < 4; ++y) {
        for (int x = 0; x < 16; ++x) {
          const int k = 16 * (x / 4) + (x & 1) + 2 * (y & 1) + 4 * ((x >> 1) & 1) + 8 * ((y >> 1) & 1);
          const uint8_t* pixel = &f.linear[((4 * r + y) * 64 + 16 * c + x) * 4];
          ASSERT_EQ(0, std::memcmp(&f.compressed[slot + 4 * k], pixel, 4)) << r << c << y << x;
        }
      }
    }
  }
  for (size_t i = 0; i < 4096; ++i) ASSERT_EQ(f.compressed[i], 0) << "metadata byte " << i;
}

TEST(FrameEncoder, FormatsAndBypassThatEncodeNothing) {
  struct Case {
    uint64_t surfaceFormat, bypass;
    bool writes;
  };
  const Case cases[] = {{kSurfaceRgba8888, 1, false}, {kSurfaceRgb565, 0, false}, {7, 0, false},
                        {kSurfaceRgba8888, 0, true}};
  for (const Case& c : cases) {
    FlatFrame f(1, 0);
    f.config.surfaceFormat = c.surfaceFormat;
    f.config.bypass = c.bypass;
    const ContextPtr context = MakeContext(kContextRgba8888);
    EXPECT_EQ(EncodeZpakFrame(context.get(), &f.config), 0u);
    const bool any = std::any_of(f.compressed.begin(), f.compressed.end(), [](uint8_t b) { return b != 0; });
    EXPECT_EQ(any, c.writes) << "format " << c.surfaceFormat << " bypass " << c.bypass;
  }
}

TEST(FrameEncoder, GatherCopiesOnlyWhatLiesInsideTheImage) {
  // Luma 40 x 10: the right tiles hold 8 bytes a row, the bottom ones 2 rows.
  Bytes luma(400);
  for (size_t i = 0; i < luma.size(); ++i) luma[i] = static_cast<uint8_t>(i + 1);
  uint8_t tile[256];
  GatherLinearTile(luma.data(), nullptr, nullptr, 1, 1, tile, 40, 10, kSurfaceNv12, 0);
  for (int k = 0; k < 8; ++k) {
    for (int j = 0; j < 32; ++j) {
      const bool inside = k < 2 && j < 8;
      EXPECT_EQ(tile[32 * k + j], inside ? luma[(8 + k) * 40 + 32 + j] : 0) << k << "," << j;
    }
  }
  // Chroma of width 40, height 10: U and V planes of 20 x 5, interleaved.
  Bytes u(100), v(100);
  for (int i = 0; i < 100; ++i) {
    u[i] = static_cast<uint8_t>(i);
    v[i] = static_cast<uint8_t>(200 - i);
  }
  GatherLinearTile(nullptr, u.data(), v.data(), 1, 0, tile, 40, 10, kSurfaceNv12, 1);
  for (int k = 0; k < 8; ++k) {
    for (int j = 0; j < 16; ++j) {
      const bool inside = k < 5 && j < 4;
      EXPECT_EQ(tile[32 * k + 2 * j], inside ? u[k * 20 + 16 + j] : 0);
      EXPECT_EQ(tile[32 * k + 2 * j + 1], inside ? v[k * 20 + 16 + j] : 0);
    }
  }
}

TEST(FrameEncoder, StoresPastTheCompressedBufferAreDropped) {
  // As command N lays out height 65: the chroma walk covers 48 rows while the
  // chroma plane holds 32. The buffer is exactly the frame, so the sanitizer
  // build catches any store past it; everything inside is still encoded.
  const int w = 128;
  const int h = 65;
  const auto g = ComputeEncodeGeometryT<uint32_t>(true, w, h);
  ASSERT_EQ(g.uvScanlines, 32u);
  std::vector<uint8_t> compressed(g.bufferSize, 0);
  Bytes staging(AlignUp((g.yDataSize * 3) >> 1, 4096), 0x80);
  const ZpakConfig c = Nv12EncodeConfig(g, compressed.data(), staging.data());
  EncodeZpakFrame(MakeContext(kContextNv12).get(), &c);
  // Flat planes: every stored tile is one unit, metadata 19.
  EXPECT_EQ(compressed[0], 19);
  EXPECT_EQ(compressed[g.yMetaSize + g.yDataSize], 19);
}

}  // namespace
}  // namespace pelcast::testing
