// The frame encoders: tiles land where the frame decoders look for them
// (round trips of whole frames of many sizes and of the committed real-content
// frames, through every tile kernel), the half-slot placement, the
// uncompressed addressing mode, the gather of edge tiles, and stored bytes
// equal to tiles encoded alone.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "encoder/tile_encoder.h"
#include "tests/bit_writer.h"
#include "tests/brute_force_tiles.h"
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

// Encodes like command N (linear planes Y, U, V in the aligned layout), then
// decodes like command U; returns Y then interleaved UV as U writes them.
Bytes RoundTripNv12(const Bytes& y, const Bytes& u, const Bytes& v, int w, int h) {
  const auto e = ComputeEncodeGeometryT<uint32_t>(true, w, h);
  Bytes staging(e.stagingSize, 0);
  const size_t cs = e.linearStride / 2, chs = e.linearScanlines / 2, cw = (w + 1) / 2;
  for (int r = 0; r < h; ++r) std::memcpy(&staging[r * e.linearStride], &y[r * w], w);
  for (size_t r = 0; r < size_t(h + 1) / 2; ++r) {
    for (size_t c = 0; c < cw; ++c) {
      staging[e.yDataSize + r * cs + c] = u[r * cw + c];
      staging[e.yDataSize + cs * chs + r * cs + c] = v[r * cw + c];
    }
  }
  const PlaneGeometry g = ComputePlaneGeometry(PlaneFormat::kNv12, w, h);
  Bytes compressed(std::max<size_t>(e.bufferSize, g.frameSize), 0);
  const ZpakConfig ec = EncodeConfig(e, true, compressed.data(), staging.data());
  EncodeZpakFrame(MakeContext(kContextNv12).get(), &ec);
  Bytes out(g.outputSize, 0);
  const ZpakConfig dc = FrameConfig(PlaneFormat::kNv12, g, w, h, compressed.data(), out.data());
  RunDecoder(MakeContext(kContextNv12).get(), dc);
  out.resize(size_t(w) * h + 2 * cw * ((h + 1) / 2));
  return out;
}

TEST(FrameEncoder, Nv12FramesRoundTrip) {
  // The encoder walks the aligned frame (width = stride, height = scanlines)
  // and builds its tables from them; the decoder reads the real size from
  // tables of the aligned size. Sizes cover partial tiles, odd sizes, several
  // macro-tile and metadata-tile columns, and widths whose bands take the
  // bank swizzle, and a luma plane large enough for the decoder to stream
  // its rows past the cache. (Heights of 64k + 1 lose their last chroma rows
  // on purpose: the encode layout gives the chroma plane (h >> 1) rows.)
  const int sizes[][2] = {{32, 8}, {33, 9},   {40, 10},   {130, 70},  {258, 34},   {640, 64},
                          {1, 2},  {17, 200}, {1024, 40}, {2048, 72}, {4096, 3072}};
  for (const auto& [w, h] : sizes) {
    // Chroma of odd sizes: U writes (w + 1) / 2 pairs per row and the encoder
    // takes w_aligned / 2, so every real pair is stored.
    const size_t chroma = static_cast<size_t>((w + 1) / 2) * ((h + 1) / 2);
    const Bytes y = MakeImage(static_cast<size_t>(w) * h, w + h);
    const Bytes u = MakeImage(chroma, w);
    const Bytes v = MakeImage(chroma, h);
    Bytes expected = y;
    for (size_t i = 0; i < chroma; ++i) expected.push_back(u[i]), expected.push_back(v[i]);
    EXPECT_EQ(RoundTripNv12(y, u, v, w, h), expected) << w << " x " << h;
  }
}

TEST(FrameEncoder, RgbaAndRgb565FramesRoundTripThroughEveryKernel) {
  // The frames are taken as the decode commands lay them out: rows at the
  // data plane's stride, every stored column decoded (for RGB565 the stride's
  // pixels are whole 32-pixel tiles; a narrower decode width drops columns).
  // Bands of 4096 and more bytes per row exercise the swizzle. (RGB565
  // without the swizzle uses a slot rule under which tiles share slots, so it
  // cannot round-trip.) Made-up content, among it frames large enough for the
  // decoders to stream their rows past the cache, then every committed crop.
  struct Case {
    int w, h;
    bool rgb565;
    uint64_t swizzle;
    const char* file;  // made-up content when null
  };
  std::vector<Case> cases = {
      {64, 16, false, 1, nullptr},     {64, 4, false, 0, nullptr},    {256, 72, false, 1, nullptr},
      {1024, 40, false, 1, nullptr},   {2048, 80, false, 1, nullptr}, {128, 16, true, 1, nullptr},
      {256, 36, true, 1, nullptr},     {2048, 72, true, 1, nullptr},  {4096, 40, true, 1, nullptr},
      {2048, 1600, false, 1, nullptr}, {4096, 1600, true, 1, nullptr}};
  for (const TestFrame& f : kTestFrames) {
    for (bool rgb565 : {false, true}) cases.push_back({f.width, f.height, rgb565, 1, f.name});
  }
  for (const Case& c : cases) {
    const PlaneFormat format = c.rgb565 ? PlaneFormat::kRgb565 : PlaneFormat::kRgba8888;
    const size_t rowBytes = size_t(c.w) * (c.rgb565 ? 2 : 4);
    const Bytes image =
        c.file != nullptr
            ? ReadFile(TestDataDir() + "/" + c.file + (c.rgb565 ? ".rgb565" : ".rgba"))
            : MakeImage(rowBytes * c.h, c.w + c.h);
    ASSERT_EQ(image.size(), rowBytes * c.h) << (c.file ? c.file : "made-up");
    const PlaneGeometry g = ComputePlaneGeometry(format, c.w, c.h);
    Bytes compressed(g.frameSize, 0);
    Bytes linear(g.outputSize, 0);
    for (int r = 0; r < c.h; ++r) {
      std::memcpy(&linear[r * g.yStride], &image[r * rowBytes], rowBytes);
    }
    ZpakConfig config = FrameConfig(format, g, c.w, c.h, compressed.data(), linear.data());
    config.swizzleEnable = c.swizzle;
    RunEncoder(MakeContext(ContextFormatOf(format)).get(), config);
    for (const TileDecodeKernels* kernel : AllTileKernels()) {
      Bytes out(g.outputSize, 0);
      config.linearY = out.data();
      RunDecoder(MakeContext(ContextFormatOf(format)).get(), config, kernel);
      EXPECT_EQ(out, linear) << c.w << " x " << c.h << (c.rgb565 ? " RGB565 " : " RGBA8888 ")
                             << (c.file ? c.file : "") << " kernel " << KernelName(kernel);
    }
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
    for (size_t p = 0; p < 64 * 16; ++p) {
      const uint8_t first = static_cast<uint8_t>(16 * (p / 64 / 4) + p % 64 / 16);
      std::copy_n(Bytes{first, 2, 3, 255}.begin(), 4, &linear[4 * p]);
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

TEST(FrameEncoder, ShortTilesInTheMiddleSlotsOfFourStartHalfway) {
  for (uint64_t mode : {0, 1, 2}) {
    FlatFrame f(mode, 0);
    EncodeZpakFrame(MakeContext(kContextRgba8888).get(), &f.config);
    for (int r = 0; r < 4; ++r) {
      for (int c = 0; c < 4; ++c) {
        BitWriter stream;  // the flat tile's fields, packed by hand
        PutBits(&stream, 0, 1), PutBits(&stream, 1, 1), PutBits(&stream, 16 * r + c, 8);
        for (uint64_t base : {2, 3, 255}) PutBits(&stream, base, 8);
        const int slot = kSlotOrder[4 * r + c];
        const bool upper = mode == 1 && (slot % 4 == 1 || slot % 4 == 2);
        const size_t at = 4096 + 256 * slot + (upper ? 128 : 0);
        EXPECT_EQ(Bytes(f.compressed.begin() + at, f.compressed.begin() + at + 64),
                  StagedBytes(stream, 64))
            << "mode " << mode << " tile " << r << "," << c;
        EXPECT_EQ(f.compressed[8 * r + c], 19) << "metadata of tile " << r << "," << c;
      }
    }
  }
}

TEST(FrameEncoder, StoredTilesEqualTilesEncodedAloneIntoClearedBuffers) {
  // Tiles of every length one after another: whatever the frame encoder's
  // reused tile buffer held from an earlier, longer tile must not reach the
  // stored units of a later one.
  FlatFrame f(0, 0);
  // Noise of a different amplitude in every tile (a 0- to 6-bit random part
  // over a ramp) gives streams of one, two and three units and raw tiles.
  const Bytes noise = RandomBytes(f.linear.size(), 5);
  for (size_t i = 0; i < f.linear.size(); ++i) {
    const size_t pixel = i / 4, tile = 4 * (pixel / 64 / 4) + pixel % 64 / 16;
    const int bits = static_cast<int>((tile * 3) % 7);
    f.linear[i] = static_cast<uint8_t>(pixel + (noise[i] & ((1 << bits) - 1)));
  }
  EncodeZpakFrame(MakeContext(kContextRgba8888).get(), &f.config);
  ContextPtr alone = MakeContext(kContextRgba8888);
  bool seen[5] = {};
  for (int r = 0; r < 4; ++r) {
    for (int c = 0; c < 4; ++c) {
      std::vector<uint8_t> raster;
      for (int y = 0; y < 4; ++y) {
        const auto row = f.linear.begin() + ((4 * r + y) * 64 + 16 * c) * 4;
        raster.insert(raster.end(), row, row + 64);
      }
      const std::vector<uint8_t> ordered = ToMicroBlocks(brute::Plane::kRgba8888, raster);
      uint8_t out[512];
      uint64_t units = 0;
      EncodeZpakTile(alone.get(), ordered.data(), out, &units);
      seen[units] = true;
      const size_t at = 4096 + 256 * kSlotOrder[4 * r + c];
      EXPECT_EQ(f.compressed[8 * r + c], 4 * units + 15) << "tile " << r << "," << c;
      EXPECT_EQ(Bytes(f.compressed.begin() + at, f.compressed.begin() + at + 64 * units),
                Bytes(out, out + 64 * units))
          << "tile " << r << "," << c;
    }
  }
  EXPECT_TRUE(seen[1] && seen[2] && seen[3] && seen[4]);
}

TEST(FrameEncoder, AlternativeAddressingStoresReorderedTilesWithoutMetadata) {
  FlatFrame f(1, 1);
  for (size_t i = 0; i < f.linear.size(); ++i) f.linear[i] = static_cast<uint8_t>(i * 7 + i / 5);
  EncodeZpakFrame(MakeContext(kContextRgba8888).get(), &f.config);
  for (uint64_t y = 0; y < 16; ++y) {
    for (uint64_t x = 0; x < 64; ++x) {
      const size_t at =
          4096 + 256 * SlotOf(y / 4, x / 16, 1) + 4 * RawElementIndex(x % 16, y % 4, 16);
      ASSERT_EQ(0, std::memcmp(&f.compressed[at], &f.linear[(y * 64 + x) * 4], 4)) << x << "," << y;
    }
  }
  EXPECT_EQ(Bytes(f.compressed.begin(), f.compressed.begin() + 4096), Bytes(4096, 0));
}

TEST(FrameEncoder, FormatsAndBypassThatEncodeNothing) {
  struct Case {
    uint64_t surfaceFormat, bypass;
    bool writes;
  };
  const Case cases[] = {{kSurfaceRgba8888, 1, false},
                        {kSurfaceRgb565, 0, false},
                        {7, 0, false},
                        {kSurfaceRgba8888, 0, true}};
  for (const Case& c : cases) {
    FlatFrame f(1, 0);
    f.config.surfaceFormat = c.surfaceFormat;
    f.config.bypass = c.bypass;
    EXPECT_EQ(EncodeZpakFrame(MakeContext(kContextRgba8888).get(), &f.config), 0u);
    const bool any =
        std::any_of(f.compressed.begin(), f.compressed.end(), [](uint8_t b) { return b != 0; });
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
  for (int i = 0; i < 100; ++i)
    u[i] = static_cast<uint8_t>(i), v[i] = static_cast<uint8_t>(200 - i);
  GatherLinearTile(nullptr, u.data(), v.data(), 1, 0, tile, 40, 10, kSurfaceNv12, 1);
  for (int k = 0; k < 8; ++k) {
    for (int j = 0; j < 16; ++j) {
      const bool inside = k < 5 && j < 4;
      EXPECT_EQ(tile[32 * k + 2 * j], inside ? u[k * 20 + 16 + j] : 0);
      EXPECT_EQ(tile[32 * k + 2 * j + 1], inside ? v[k * 20 + 16 + j] : 0);
    }
  }
}

}  // namespace
}  // namespace pelcast::testing
