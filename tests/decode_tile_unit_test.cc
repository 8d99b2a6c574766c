// The tile decoder on tiles assembled bit by bit, with every expected pixel
// worked out by hand from the tile format.
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <vector>

#include "decoder/tile_decoder.h"
#include "surface/zpak_context.h"
#include "tests/bit_writer.h"
#include "tests/test_support.h"

namespace pelcast::testing {
namespace {

using Bytes = std::vector<uint8_t>;
struct ContextDeleter {
  void operator()(ZpakContext* c) const { ReleaseZpakContext(c); }
};
using ContextPtr = std::unique_ptr<ZpakContext, ContextDeleter>;

ContextPtr MakeContext(uint64_t format) {
  ContextPtr context(AllocateZpakContext());
  ConfigureZpakContext(context.get(), format);
  return context;
}

struct Plane {
  uint64_t format, index;
  size_t elementBytes, rowElements, rows;
  size_t bytes() const { return elementBytes * rowElements * rows; }
};
constexpr Plane kRgba{0, 0, 4, 16, 4}, kLuma{1, 0, 1, 32, 8}, kChroma{1, 1, 2, 16, 8},
    kRgb565{12, 0, 2, 16, 4};

// Decodes and checks that nothing past the tile was written.
Bytes Decode(ZpakContext* context, const Plane& plane, const Bytes& staged, uint32_t meta) {
  context->contextFormat = plane.format;
  context->planeIndex = plane.index;
  Bytes out(512, 0xEE);
  EXPECT_EQ(DecodeTile(context, staged.data(), meta, out.data()), 1);
  for (size_t i = plane.bytes(); i < out.size(); ++i) EXPECT_EQ(out[i], 0xEE) << "byte " << i;
  out.resize(plane.bytes());
  return out;
}

// A raw tile is in 4 x 4 micro-blocks, each in Z order.
Bytes RawTile(const Plane& p, const Bytes& stored) {
  static const size_t kZ[16] = {0, 1, 4, 5, 2, 3, 6, 7, 8, 9, 12, 13, 10, 11, 14, 15};
  Bytes out(p.bytes());
  for (size_t y = 0; y < p.rows; ++y) {
    for (size_t x = 0; x < p.rowElements; ++x) {
      const size_t k = ((y / 4) * (p.rowElements / 4) + x / 4) * 16 + kZ[4 * (y % 4) + x % 4];
      for (size_t e = 0; e < p.elementBytes; ++e) {
        out[(y * p.rowElements + x) * p.elementBytes + e] = stored[k * p.elementBytes + e];
      }
    }
  }
  return out;
}

// Fills a tile whose element (x, y) is pixel(x, y).
template <typename PixelFn>
Bytes Tile(const Plane& p, PixelFn pixel) {
  Bytes out;
  for (size_t y = 0; y < p.rows; ++y) {
    for (size_t x = 0; x < p.rowElements; ++x) {
      const Bytes value = pixel(x, y);
      out.insert(out.end(), value.begin(), value.end());
    }
  }
  return out;
}

Bytes Le16(int64_t value) { return {uint8_t(value), uint8_t(uint64_t(value) >> 8)}; }

// Flat tiles (all codes 0): every sample is its block's base value.
struct FlatCase {
  Plane plane;
  Bytes staged;
  Bytes expected;
};

std::vector<FlatCase> FlatCases() {
  BitWriter rgba, luma, chroma, rgb565;
  PutBits(&rgba, 0, 2);  // no colour transform, alpha coded
  for (BitWriter* w : {&rgba, &luma, &chroma}) {
    for (uint64_t base : {0x11, 0x22, 0x33, 0x44}) PutBits(w, base, 8);
    PutRepeated(w, 0, 3, 64);
  }
  PutBits(&rgb565, 0, 1);
  PutBits(&rgb565, 17, 5), PutBits(&rgb565, 34, 6), PutBits(&rgb565, 19, 5);
  PutRepeated(&rgb565, 0, 3, 48);
  return {
      {kRgba, StagedBytes(rgba), Tile(kRgba, [](size_t, size_t) { return Bytes{0x11, 0x22, 0x33, 0x44}; })},
      // Luma blocks: top-left, top-right, bottom-left, bottom-right.
      {kLuma, StagedBytes(luma),
       Tile(kLuma, [](size_t x, size_t y) { return Bytes{uint8_t(0x11 * (1 + 2 * (y / 4) + x / 16))}; })},
      // Chroma blocks are stacked; each holds a U and a V base.
      {kChroma, StagedBytes(chroma),
       Tile(kChroma, [](size_t, size_t y) { return y < 4 ? Bytes{0x11, 0x22} : Bytes{0x33, 0x44}; })},
      // 17 + 32 * 34 + 2048 * 19.
      {kRgb565, StagedBytes(rgb565), Tile(kRgb565, [](size_t, size_t) { return Le16(0x9C51); })},
  };
}

TEST(DecodeTile, MetadataChoosesRawOrCompressedForEveryPlane) {
  // Raw exactly when the unit count reaches the raw tile size: 31-34 for
  // 256-byte tiles; 23-26 and the special 31 for RGB565 half tiles.
  struct MetaCase {
    uint32_t meta;
    bool raw256, raw565;
  };
  const MetaCase metas[] = {{0, false, false},  {18, false, false}, {19, false, false},
                            {23, false, true},  {24, false, true},  {26, false, true},
                            {27, false, false}, {31, true, true},   {32, true, false},
                            {34, true, false},  {35, false, false}, {255, false, false}};
  for (const FlatCase& c : FlatCases()) {
    ContextPtr context = MakeContext(c.plane.format);
    for (const MetaCase& m : metas) {
      const bool raw = c.plane.format == 12 ? m.raw565 : m.raw256;
      EXPECT_EQ(Decode(context.get(), c.plane, c.staged, m.meta),
                raw ? RawTile(c.plane, c.staged) : c.expected)
          << "format " << c.plane.format << " plane " << c.plane.index << " meta " << m.meta;
    }
  }
}

TEST(DecodeTile, LumaCodesAndResidualsInterleaveAcrossBlocks) {
  BitWriter w;
  for (uint64_t base : {10, 20, 30, 40}) PutBits(&w, base, 8);
  PutBits(&w, 0, 3), PutBits(&w, 3, 3);  // group 0: block 0 code 0, block 1 code 3
  PutRepeated(&w, 0, 3, 62);
  for (uint64_t r : {1, 2, 3, 4}) PutBits(&w, r, 3);  // differences -1, 1, -2, 2
  // Block 1's first row is a running sum from 20; later rows predict the same.
  const uint8_t topRight[16] = {19, 20, 18, 20, 20, 20, 20, 20, 20, 20, 20, 20, 20, 20, 20, 20};
  const Bytes expected = Tile(kLuma, [&](size_t x, size_t y) {
    if (y < 4 && x >= 16) return Bytes{topRight[x - 16]};
    return Bytes{uint8_t(y < 4 ? 10 : (x < 16 ? 30 : 40))};
  });
  EXPECT_EQ(Decode(MakeContext(1).get(), kLuma, StagedBytes(w), 19), expected);
}

TEST(DecodeTile, EscapeGroupHoldsRawSamplesThatLaterGroupsPredictFrom) {
  BitWriter w;
  for (uint64_t base : {100, 110, 120, 130}) PutBits(&w, base, 8);
  PutRepeated(&w, 0, 3, 4 * 5 + 3);
  PutBits(&w, 7, 3);  // group 5 (row 1, columns 4-7) of block 1's V
  PutRepeated(&w, 0, 3, 4 * 10);
  for (uint64_t r : {200, 3, 255, 0}) PutBits(&w, r, 8);
  const uint8_t lowerV[16] = {130, 130, 130, 130, 200, 3, 255, 0, 0, 0, 0, 0, 0, 0, 0, 0};
  const Bytes expected = Tile(kChroma, [&](size_t x, size_t y) {
    const uint8_t v = y < 4 ? 110 : (y == 4 ? 130 : lowerV[x]);
    return Bytes{uint8_t(y < 4 ? 100 : 120), v};
  });
  EXPECT_EQ(Decode(MakeContext(1).get(), kChroma, StagedBytes(w), 23), expected);
}

TEST(DecodeTile, CodesAboveEscapeArePredictedAtFullWidthAndPackingCarries) {
  BitWriter w;
  PutBits(&w, 0, 1);
  PutBits(&w, 10, 5), PutBits(&w, 0, 6), PutBits(&w, 0, 5);
  PutBits(&w, 6, 3), PutBits(&w, 0, 3), PutBits(&w, 0, 3);  // group 0: red above escape
  PutBits(&w, 0, 3), PutBits(&w, 0, 3), PutBits(&w, 5, 3);  // group 1: blue escaped
  PutBits(&w, 7, 3), PutBits(&w, 0, 3), PutBits(&w, 0, 3);  // group 2: red above escape
  PutRepeated(&w, 0, 3, 39);
  for (uint64_t r : {3, 4, 0, 31}) PutBits(&w, r, 5);  // -2, 2, 0, -16
  for (uint64_t r : {31, 0, 1, 2}) PutBits(&w, r, 5);  // raw
  for (uint64_t r : {1, 1, 2, 2}) PutBits(&w, r, 5);   // -1, -1, 1, 1
  const int64_t c0[16] = {8, 10, 10, -6, -6, -6, -6, -6, -7, -8, -7, -6, -6, -6, -6, -6};
  const int64_t c2[16] = {0, 0, 0, 0, 31, 0, 1, 2, 2, 2, 2, 2, 2, 2, 2, 2};
  const Bytes expected =
      Tile(kRgb565, [&](size_t x, size_t) { return Le16(c0[x] + 2048 * c2[x]); });
  EXPECT_EQ(Decode(MakeContext(12).get(), kRgb565, StagedBytes(w), 19), expected);
}

TEST(DecodeTile, InverseColourTransformAndItsClamps) {
  struct ColourCase {
    Plane plane;
    uint64_t s0, s1, s2;  // luma and the two differences offset by 2^N
    int64_t r, g, b;
  };
  const ColourCase cases[] = {
      {kRgba, 100, 256 + 20, 256 - 10, 115, 95, 95},
      {kRgba, 50, 256, 256 - 1, 51, 50, 51},       // arithmetic shift of -1
      {kRgba, 255, 256 + 255, 256, 255, 255, 128},  // 383 clamps to 255
      {kRgba, 0, 1, 256, 0, 0, 128},               // -127 clamps to 0
      {kRgb565, 10, 32 + 6, 32 - 4, 15, 8, 9},
      {kRgb565, 31, 32, 63, 16, 31, 16},  // green 47 clamps to 5 bits
  };
  for (const ColourCase& c : cases) {
    const bool rgba = c.plane.format == 0;
    const uint32_t n = rgba ? 8 : 5;
    BitWriter w;
    PutBits(&w, 1, 1);
    if (rgba) PutBits(&w, 0, 1);
    PutBits(&w, c.s0, n), PutBits(&w, c.s1, rgba ? 9 : 7), PutBits(&w, c.s2, rgba ? 9 : 6);
    if (rgba) PutBits(&w, 77, 8);
    PutRepeated(&w, 0, 3, rgba ? 64 : 48);
    const Bytes pixel = rgba ? Bytes{uint8_t(c.r), uint8_t(c.g), uint8_t(c.b), 77}
                             : Le16(c.r + 32 * c.g + 2048 * c.b);
    EXPECT_EQ(Decode(MakeContext(c.plane.format).get(), c.plane, StagedBytes(w), 19),
              Tile(c.plane, [&](size_t, size_t) { return pixel; }))
        << c.s0 << " " << c.s1 << " " << c.s2;
  }
}

TEST(DecodeTile, ConstantAlphaTakesBlockBaseAndReadsNoAlphaCodes) {
  BitWriter w;
  PutBits(&w, 0, 1), PutBits(&w, 1, 1);
  for (uint64_t base : {50, 60, 70, 200}) PutBits(&w, base, 8);
  PutBits(&w, 0, 3), PutBits(&w, 0, 3), PutBits(&w, 1, 3);  // group 0 of components 0-2
  PutRepeated(&w, 0, 3, 45);
  for (uint64_t r : {1, 0, 0, 0}) PutBits(&w, r, 1);
  EXPECT_EQ(Decode(MakeContext(0).get(), kRgba, StagedBytes(w), 27),
            Tile(kRgba, [](size_t, size_t) { return Bytes{50, 60, 69, 200}; }));
}

TEST(DecodeTile, Predictors) {
  // Block 0 of a luma tile: row 0 gets differences 0, 10; row 1 gets 4.
  BitWriter w;
  PutRepeated(&w, 0, 8, 4);
  PutBits(&w, 5, 3), PutRepeated(&w, 0, 3, 15);
  PutBits(&w, 5, 3), PutRepeated(&w, 0, 3, 47);
  for (uint64_t r : {0, 20, 0, 0, 8, 0, 0, 0}) PutBits(&w, r, 5);
  struct PredictorCase {
    uint64_t predictor;
    uint8_t rows[4][2];  // columns 0 and 1; columns 2-15 repeat column 1
  };
  const PredictorCase cases[] = {{0, {{0, 10}, {4, 14}, {4, 14}, {4, 14}}},
                                 {1, {{0, 10}, {4, 10}, {4, 10}, {4, 10}}},
                                 {2, {{0, 10}, {4, 4}, {0, 0}, {0, 0}}}};
  for (const PredictorCase& c : cases) {
    ContextPtr context = MakeContext(1);
    context->planes[0].predictor = c.predictor;
    const Bytes expected = Tile(kLuma, [&](size_t x, size_t y) {
      return Bytes{uint8_t(y < 4 && x < 16 ? c.rows[y][x == 0 ? 0 : 1] : 0)};
    });
    EXPECT_EQ(Decode(context.get(), kLuma, StagedBytes(w), 19), expected) << c.predictor;
  }
}

TEST(DecodeTile, BitsPastTheStagedBytesReadAsZero) {
  // Every group escaped with all-ones samples: the stream is longer than the
  // staged bytes, and each sample keeps only its bits that were staged.
  struct OverrunCase {
    Plane plane;
    uint32_t flagBits, blocks;
    std::vector<uint32_t> widths;  // sample bits (= escape code) per component
    size_t stagedBytes;
  };
  const OverrunCase cases[] = {{kLuma, 0, 4, {8}, 256},
                               {kRgba, 2, 1, {8, 8, 8, 8}, 256},
                               {kRgb565, 1, 1, {5, 6, 5}, 128}};
  for (const OverrunCase& c : cases) {
    const size_t comps = c.widths.size();
    BitWriter w;
    PutBits(&w, 0, c.flagBits);
    for (uint32_t b = 0; b < c.blocks; ++b) {
      for (uint32_t width : c.widths) PutBits(&w, 0, width);
    }
    for (int g = 0; g < 16; ++g) {
      for (uint32_t b = 0; b < c.blocks; ++b) {
        for (uint32_t width : c.widths) PutBits(&w, width == 8 ? 7 : width, 3);
      }
    }
    std::vector<int64_t> sample(4 * 4 * 64);  // [block][component][raster index]
    for (int g = 0; g < 16; ++g) {
      for (uint32_t b = 0; b < c.blocks; ++b) {
        for (size_t k = 0; k < comps; ++k) {
          for (int i = 0; i < 4; ++i) {
            const int64_t inside = int64_t(c.stagedBytes * 8) - int64_t(w.bitCount);
            const int64_t kept = std::clamp<int64_t>(inside, 0, c.widths[k]);
            sample[(b * 4 + k) * 64 + g * 4 + i] = (int64_t{1} << kept) - 1;
            PutBits(&w, (1u << c.widths[k]) - 1, c.widths[k]);
          }
        }
      }
    }
    const Bytes expected = Tile(c.plane, [&](size_t x, size_t y) {
      const size_t block = c.blocks == 4 ? 2 * (y / 4) + x / 16 : 0;
      const size_t at = (y % 4) * 16 + x % 16;
      auto s = [&](size_t k) { return sample[(block * 4 + k) * 64 + at]; };
      if (c.plane.format == 12) return Le16(s(0) + 32 * s(1) + 2048 * s(2));
      Bytes pixel;
      for (size_t k = 0; k < comps; ++k) pixel.push_back(uint8_t(s(k)));
      return pixel;
    });
    Bytes staged = StagedBytes(w, c.stagedBytes);
    staged.resize(256, 0);  // an RGB565 half tile is followed by zeros
    EXPECT_EQ(Decode(MakeContext(c.plane.format).get(), c.plane, staged, 27), expected)
        << "format " << c.plane.format;
  }
}

TEST(DecodeTile, FormatsWithoutLayoutWriteNothing) {
  struct ResultCase {
    uint64_t format, planeIndex;
    int64_t result;
  };
  const ResultCase cases[] = {{0, 0, 1},   {0, 1, 1},   {1, 0, 1},   {1, 1, 1},  {1, 2, -1},
                              {2, 0, -1},  {3, 0, 1},   {4, 0, -1},  {5, 0, 1},  {6, 0, 1},
                              {7, 0, -1},  {8, 0, 1},   {9, 0, 1},   {10, 0, -1}, {11, 0, -1},
                              {12, 0, 1},  {13, 0, -1}, {255, 0, -1}};
  ContextPtr context = MakeContext(1);
  const Bytes stored(256, 0x5A);
  for (const ResultCase& c : cases) {
    context->contextFormat = c.format;
    context->planeIndex = c.planeIndex;
    Bytes out(256, 0xEE);
    EXPECT_EQ(DecodeTile(context.get(), stored.data(), 31, out.data()), c.result) << c.format;
    if (c.result < 0) {
      EXPECT_EQ(out, Bytes(256, 0xEE)) << c.format;
    }
  }
}

TEST(DecodeTile, UnusableParametersLeaveThePreviousTile) {
  ContextPtr context = MakeContext(0);
  const Bytes first = RandomBytes(256, 7);
  const Bytes expected = Decode(context.get(), kRgba, first, 31);
  context->planes[0].componentCount = 5;
  EXPECT_EQ(Decode(context.get(), kRgba, Bytes(256, 0), 31), expected);
}

}  // namespace
}  // namespace pelcast::testing
