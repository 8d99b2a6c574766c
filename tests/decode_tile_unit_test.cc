// The tile decoder on tiles assembled bit by bit, with every expected pixel
// worked out by hand from the tile format.
#include <gtest/gtest.h>

#include <functional>

#include "decoder/tile_decoder.h"
#include "tests/bit_writer.h"
#include "tests/codec_test_support.h"
#include "tests/test_support.h"

namespace pelcast::testing {
namespace {

struct Plane {
  uint64_t format, index;
  size_t elementBytes, rowElements, rows;
};
constexpr Plane kRgba{0, 0, 4, 16, 4}, kLuma{1, 0, 1, 32, 8}, kChroma{1, 1, 2, 16, 8},
    kRgb565{12, 0, 2, 16, 4};
size_t TileBytes(const Plane& p) { return p.elementBytes * p.rowElements * p.rows; }

// Decodes the staged bytes (zero-padded to 256) and checks that nothing past
// the tile was written.
Bytes Decode(const Plane& p, Bytes staged, uint32_t meta) {
  ContextPtr context = MakeContext(p.format);
  context->planeIndex = p.index;
  staged.resize(256, 0);
  Bytes out(512, 0xEE);
  EXPECT_EQ(DecodeTile(context.get(), staged.data(), meta, out.data()), 1);
  EXPECT_EQ(Bytes(out.begin() + TileBytes(p), out.end()), Bytes(512 - TileBytes(p), 0xEE));
  out.resize(TileBytes(p));
  return out;
}

// The tile whose element (x, y) is pixel(x, y).
Bytes Tile(const Plane& p, const std::function<Bytes(size_t, size_t)>& pixel) {
  Bytes out;
  for (size_t y = 0; y < p.rows; ++y) {
    for (size_t x = 0; x < p.rowElements; ++x) {
      const Bytes value = pixel(x, y);
      out.insert(out.end(), value.begin(), value.end());
    }
  }
  return out;
}

// A raw tile holds 4 x 4 micro-blocks, each in Z order.
Bytes RawTile(const Plane& p, const Bytes& stored) {
  return Tile(p, [&](size_t x, size_t y) {
    const auto at = stored.begin() + RawElementIndex(x, y, p.rowElements) * p.elementBytes;
    return Bytes(at, at + p.elementBytes);
  });
}

Bytes Le16(int64_t value) { return {uint8_t(value), uint8_t(uint64_t(value) >> 8)}; }

void PutAll(BitWriter* w, std::initializer_list<uint64_t> values, uint32_t bits) {
  for (uint64_t v : values) PutBits(w, v, bits);
}

TEST(DecodeTile, MetadataChoosesRawOrCompressedForEveryPlane) {
  // Flat tiles (all codes 0): every sample is its block's base value.
  BitWriter rgba, luma, chroma, rgb565;
  PutBits(&rgba, 0, 2);  // no colour transform, alpha coded
  for (BitWriter* w : {&rgba, &luma, &chroma}) PutAll(w, {0x11, 0x22, 0x33, 0x44}, 8);
  PutBits(&rgb565, 0, 1), PutBits(&rgb565, 17, 5), PutBits(&rgb565, 34, 6), PutBits(&rgb565, 19, 5);
  struct FlatCase {
    Plane plane;
    BitWriter* stream;
    Bytes tile;
  };
  const FlatCase flats[] = {
      {kRgba, &rgba, Tile(kRgba, [](size_t, size_t) { return Bytes{0x11, 0x22, 0x33, 0x44}; })},
      // Luma blocks top-left, top-right, bottom-left, bottom-right.
      {kLuma, &luma, Tile(kLuma, [](size_t x, size_t y) {
         return Bytes{uint8_t(0x11 * (1 + 2 * (y / 4) + x / 16))};
       })},
      // Chroma blocks are stacked, each with a U and a V base.
      {kChroma, &chroma, Tile(kChroma, [](size_t, size_t y) {
         return y < 4 ? Bytes{0x11, 0x22} : Bytes{0x33, 0x44};
       })},
      {kRgb565, &rgb565, Tile(kRgb565, [](size_t, size_t) { return Le16(17 + 32 * 34 + 2048 * 19); })},
  };
  // Raw exactly when the units reach the raw size: 31-34 for 256-byte tiles,
  // 23-26 and the special 31 for RGB565 half tiles.
  struct MetaCase {
    uint32_t meta;
    bool raw256, raw565;
  };
  const MetaCase metas[] = {{0, false, false},  {18, false, false}, {19, false, false},
                            {23, false, true},  {24, false, true},  {26, false, true},
                            {27, false, false}, {31, true, true},   {32, true, false},
                            {34, true, false},  {35, false, false}, {255, false, false}};
  for (const FlatCase& c : flats) {
    PutRepeated(c.stream, 0, 3, c.plane.format == 12 ? 48 : 64);
    const Bytes staged = StagedBytes(*c.stream);
    for (const MetaCase& m : metas) {
      const bool raw = c.plane.format == 12 ? m.raw565 : m.raw256;
      EXPECT_EQ(Decode(c.plane, staged, m.meta), raw ? RawTile(c.plane, staged) : c.tile)
          << "format " << c.plane.format << " plane " << c.plane.index << " meta " << m.meta;
    }
  }
}

TEST(DecodeTile, LumaCodesAndResidualsInterleaveAcrossBlocks) {
  BitWriter w;
  PutAll(&w, {10, 20, 30, 40}, 8);
  PutAll(&w, {0, 3}, 3);  // group 0: block 0 code 0, block 1 code 3
  PutRepeated(&w, 0, 3, 62);
  PutAll(&w, {1, 2, 3, 4}, 3);  // differences -1, 1, -2, 2 from 20; later rows predict the same
  const uint8_t topRight[4] = {19, 20, 18, 20};
  EXPECT_EQ(Decode(kLuma, w.bytes, 19), Tile(kLuma, [&](size_t x, size_t y) {
              if (y < 4 && x >= 16) return Bytes{x < 20 ? topRight[x - 16] : uint8_t(20)};
              return Bytes{uint8_t(y < 4 ? 10 : (x < 16 ? 30 : 40))};
            }));
}

TEST(DecodeTile, EscapeGroupHoldsRawSamplesThatLaterGroupsPredictFrom) {
  BitWriter w;
  PutAll(&w, {100, 110, 120, 130}, 8);  // block 0 U, V; block 1 U, V
  PutRepeated(&w, 0, 3, 4 * 5 + 3);
  PutBits(&w, 7, 3);  // group 5 (row 1, columns 4-7) of block 1's V
  PutRepeated(&w, 0, 3, 4 * 10);
  PutAll(&w, {200, 3, 255, 0}, 8);
  const uint8_t lowerV[8] = {130, 130, 130, 130, 200, 3, 255, 0};
  EXPECT_EQ(Decode(kChroma, w.bytes, 23), Tile(kChroma, [&](size_t x, size_t y) {
              const uint8_t v = y < 4 ? 110 : (y == 4 ? 130 : (x < 8 ? lowerV[x] : 0));
              return Bytes{uint8_t(y < 4 ? 100 : 120), v};
            }));
}

TEST(DecodeTile, CodesAboveEscapeArePredictedAtFullWidthAndPackingCarries) {
  BitWriter w;
  PutBits(&w, 0, 1), PutBits(&w, 10, 5), PutBits(&w, 0, 6), PutBits(&w, 0, 5);
  PutAll(&w, {6, 0, 0, 0, 0, 5, 7, 0, 0}, 3);  // groups 0-2: red 6, blue 5 (escape), red 7
  PutRepeated(&w, 0, 3, 39);
  PutAll(&w, {3, 4, 0, 31}, 5);  // -2, 2, 0, -16
  PutAll(&w, {31, 0, 1, 2}, 5);  // raw
  PutAll(&w, {1, 1, 2, 2}, 5);   // -1, -1, 1, 1
  const int64_t c0[16] = {8, 10, 10, -6, -6, -6, -6, -6, -7, -8, -7, -6, -6, -6, -6, -6};
  const int64_t c2[16] = {0, 0, 0, 0, 31, 0, 1, 2, 2, 2, 2, 2, 2, 2, 2, 2};
  EXPECT_EQ(Decode(kRgb565, w.bytes, 19),
            Tile(kRgb565, [&](size_t x, size_t) { return Le16(c0[x] + 2048 * c2[x]); }));
}

TEST(DecodeTile, InverseColourTransformAndItsClamps) {
  struct ColourCase {
    Plane plane;
    uint64_t s0, s1, s2;  // luma and the two differences offset by 2^N
    int64_t r, g, b;
  };
  const ColourCase cases[] = {
      {kRgba, 100, 256 + 20, 256 - 10, 115, 95, 95},
      {kRgba, 50, 256, 256 - 1, 51, 50, 51},        // arithmetic shift of -1
      {kRgba, 255, 256 + 255, 256, 255, 255, 128},  // 383 clamps to 255
      {kRgba, 0, 1, 256, 0, 0, 128},                // -127 clamps to 0
      {kRgb565, 10, 32 + 6, 32 - 4, 15, 8, 9},
      {kRgb565, 31, 32, 63, 16, 31, 16},  // green 47 clamps to 5 bits
  };
  for (const ColourCase& c : cases) {
    const bool rgba = c.plane.format == 0;
    BitWriter w;
    PutBits(&w, 1, 1);
    if (rgba) PutBits(&w, 0, 1);
    PutBits(&w, c.s0, rgba ? 8 : 5), PutBits(&w, c.s1, rgba ? 9 : 7),
        PutBits(&w, c.s2, rgba ? 9 : 6);
    if (rgba) PutBits(&w, 77, 8);
    PutRepeated(&w, 0, 3, rgba ? 64 : 48);
    const Bytes pixel = rgba ? Bytes{uint8_t(c.r), uint8_t(c.g), uint8_t(c.b), 77}
                             : Le16(c.r + 32 * c.g + 2048 * c.b);
    EXPECT_EQ(Decode(c.plane, w.bytes, 19), Tile(c.plane, [&](size_t, size_t) { return pixel; }))
        << c.s0 << " " << c.s1 << " " << c.s2;
  }
}

TEST(DecodeTile, ConstantAlphaTakesBlockBaseAndReadsNoAlphaCodes) {
  BitWriter w;
  PutAll(&w, {0, 1}, 1);
  PutAll(&w, {50, 60, 70, 200}, 8);
  PutAll(&w, {0, 0, 1}, 3);  // group 0 of components 0-2 only
  PutRepeated(&w, 0, 3, 45);
  PutAll(&w, {1, 0, 0, 0}, 1);
  EXPECT_EQ(Decode(kRgba, w.bytes, 27), Tile(kRgba, [](size_t, size_t) {
              return Bytes{50, 60, 69, 200};
            }));
}

TEST(DecodeTile, BitsPastTheStagedBytesReadAsZero) {
  // Every luma group escaped with raw samples 255: 32 base and 192 code bits,
  // then 2048 sample bits of which the 256 staged bytes hold 1824. Sample k
  // of the stream (group by group, block by block) is whole for k < 228 and
  // zero after. (RGB565 half tiles stage 128 bytes: see the frame tests.)
  BitWriter w;
  PutRepeated(&w, 0, 8, 4);
  PutRepeated(&w, 7, 3, 64);
  PutRepeated(&w, 255, 8, 256);
  EXPECT_EQ(Decode(kLuma, StagedBytes(w), 27), Tile(kLuma, [](size_t x, size_t y) {
              const size_t block = 2 * (y / 4) + x / 16, group = 4 * (y % 4) + x % 16 / 4;
              return Bytes{uint8_t(4 * group + block < 57 ? 255 : 0)};
            }));
}

TEST(DecodeTile, FormatsWithoutLayoutWriteNothing) {
  ContextPtr context = MakeContext(1);
  const Bytes stored(256, 0x5A);
  // {format, planeIndex}: NV12 has planes 0 and 1 only; 2, 4, 7, 10, 11 and
  // codes above 12 have no layout.
  const std::pair<uint64_t, uint64_t> kNoLayout[] = {{1, 2},  {2, 0},  {4, 0}, {7, 0},
                                                     {10, 0}, {11, 0}, {13, 0}};
  for (auto [format, plane] : kNoLayout) {
    context->contextFormat = format, context->planeIndex = plane;
    Bytes out(256, 0xEE);
    EXPECT_EQ(DecodeTile(context.get(), stored.data(), 31, out.data()), -1) << format;
    EXPECT_EQ(out, Bytes(256, 0xEE)) << format;
  }
}

}  // namespace
}  // namespace pelcast::testing
