// Tile and metadata addressing, and the frame decoders' walks, clipping and
// edge rules, on frames assembled in the test.
#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "decoder/frame_decoder.h"
#include "surface/tile_addressing.h"
#include "surface/zpak_context.h"
#include "tests/bit_writer.h"

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

const uint64_t kOrder[16] = {0, 7, 10, 13, 6, 1, 12, 11, 3, 4, 9, 14, 5, 2, 15, 8};

// Slots as the surface format states them for bank bit 15: macro tiles in
// raster order, 16 slots each in kOrder, then (swizzled) bit 1 of the macro
// tile flipped by y bit 3 ^ x bit 5 (RGBA8888 only, when 16 x the stride is
// a multiple of 16384), bit 2 by y bit 4 (NV12: 5) at 32768 and bit 3 by
// y bit 5 (NV12: 6) at 65536. x and y are the tile's pixel (NV12: byte) origin.
uint64_t ExpectedSlot(bool nv12, uint64_t r, uint64_t c, uint64_t m, bool swizzle) {
  uint64_t macro = (r / 4) * m + c / 4;
  const uint64_t x = nv12 ? 32 * c : 16 * c, y = nv12 ? 8 * r : 4 * r;
  const uint64_t band = (nv12 ? 2048 : 4096) * m;
  if (swizzle && !nv12 && band % 16384 == 0) macro ^= (((y >> 3) ^ (x >> 5)) & 1) << 1;
  if (swizzle && band % 32768 == 0) macro ^= ((y >> (nv12 ? 5 : 4)) & 1) << 2;
  if (swizzle && band % 65536 == 0) macro ^= ((y >> (nv12 ? 6 : 5)) & 1) << 3;
  return 16 * macro + kOrder[4 * (r % 4) + c % 4];
}

// Metadata tiles of 16 x 16 bytes in four 8 x 8 quarters.
uint64_t ExpectedMeta(uint64_t r, uint64_t c, uint64_t t) {
  const uint64_t v = r % 16, u = c % 16;
  return 256 * ((r / 16) * t + c / 16) + (v < 8 ? 8 * v : 128 + 8 * (v - 8)) +
         (u < 8 ? u : 64 + (u - 8));
}

TEST(TileAddressing, MetaByteOffsetWorkedValues) {
  struct MetaCase {
    uint64_t row, column, tilesPerRow, offset;
  };
  const MetaCase cases[] = {{0, 0, 4, 0},     {0, 7, 4, 7},      {0, 8, 4, 64},
                            {7, 0, 4, 56},    {8, 0, 4, 128},    {9, 9, 4, 201},
                            {15, 15, 4, 255}, {0, 16, 4, 256},   {16, 0, 4, 1024},
                            {17, 33, 4, 1545}, {16, 0, 8, 2048}};
  for (const MetaCase& c : cases) {
    EXPECT_EQ(MetaByteOffset(c.row, c.column, c.tilesPerRow), c.offset) << c.row << "," << c.column;
  }
}

TEST(TileAddressing, SlotTablesMatchTheStatedRules) {
  struct SlotCase {
    uint64_t surfaceFormat, macroTilesPerRow, swizzle;
  };
  const SlotCase cases[] = {{3, 1, 1},  {3, 2, 1},  {3, 4, 1},  {3, 8, 1},  {3, 16, 1},
                            {3, 16, 0}, {1, 8, 1},  {1, 16, 1}, {1, 32, 1}, {1, 32, 0}};
  for (const SlotCase& c : cases) {
    const bool nv12 = c.surfaceFormat == 1;
    const uint64_t macroWidth = nv12 ? 128 : 64, macroHeight = nv12 ? 32 : 16;
    TileAddressTables tables{};
    ASSERT_TRUE(PrepareTileAddressTables(
        &tables, MakeTileGridLayout(SlotRule::kSwizzled, c.macroTilesPerRow * macroWidth,
                                    8 * macroHeight, macroWidth, macroHeight, nv12 ? 32 : 16,
                                    nv12 ? 8 : 4, nv12 ? 512 : 256, nv12 ? 128 : 64, c.swizzle,
                                    c.surfaceFormat, 0, 15)));
    for (uint64_t r = 0; r < 32; ++r) {
      for (uint64_t col = 0; col < 4 * c.macroTilesPerRow; ++col) {
        ASSERT_EQ(TileSlot(tables, r, col), ExpectedSlot(nv12, r, col, c.macroTilesPerRow, c.swizzle))
            << "format " << c.surfaceFormat << " M " << c.macroTilesPerRow << " tile " << r << "," << col;
      }
    }
    EXPECT_EQ(TileSlot(tables, 32, 0), 0u);  // outside the table
    ReleaseTileAddressTables(&tables);
  }
}

TEST(TileAddressing, Rgb565SlotRules) {
  struct Rgb565Case {
    uint64_t macroTilesPerRow, swizzle, row, column, slot;
  };
  const Rgb565Case cases[] = {
      {8, 1, 4, 0, 16 * (8 ^ 4) + 0},         // M 8: bit 2 flips on odd macro rows
      {8, 1, 8, 5, 16 * 17 + 7},              // even macro row: unchanged
      {16, 1, 4, 0, 16 * (16 ^ 4) + 0},       // M 16: bit 2 on odd rows ...
      {16, 1, 8, 0, 16 * (32 ^ 8) + 0},       // ... bit 3 on rows 2-3 of every 4
      {16, 1, 12, 2, 16 * (48 ^ 12) + 10},
      {4, 1, 4, 0, 16 * 4 + 0},               // M 4: no flips
      // Unswizzled: i = c % 8 + 4 (r % 4); kOrder[i] + 32 ((r / 4) M + c / 8), 0 past 15.
      {2, 0, 5, 6, 9 + 32 * 2},
      {4, 0, 0, 9, 7 + 32 * 1},
      {2, 0, 3, 4, 0},
  };
  for (const Rgb565Case& c : cases) {
    TileAddressTables tables{};
    ASSERT_TRUE(PrepareTileAddressTables(
        &tables, MakeTileGridLayout(SlotRule::kRgb565Banked, 128 * c.macroTilesPerRow, 256, 128,
                                    16, 32, 4, 256, 64, c.swizzle, 12, 0, 15)));
    EXPECT_EQ(TileSlot(tables, c.row, c.column), c.slot) << c.macroTilesPerRow << " " << c.row;
    ReleaseTileAddressTables(&tables);
  }
}

ZpakConfig Config(uint64_t format, uint8_t* meta, uint8_t* data, uint8_t* end, uint8_t* out,
                  uint64_t alignedWidth, uint64_t alignedHeight, uint64_t width, uint64_t height,
                  uint64_t stride) {
  ZpakConfig c{};
  c.yMetaPlane = meta, c.yDataPlane = data, c.compressedEnd = end, c.linearY = out;
  c.alignedWidth = alignedWidth, c.alignedHeight = alignedHeight, c.width = width, c.height = height;
  c.stride = stride, c.surfaceFormat = format;
  c.addressingMode = 1, c.swizzleEnable = 1, c.bankBit = 15, c.enable = 1;
  return c;
}

// A compressed RGBA8888 tile whose every pixel is `pixel` (all codes 0).
Bytes FlatRgba(const Bytes& pixel) {
  BitWriter w;
  PutBits(&w, 0, 2);
  for (uint8_t base : pixel) PutBits(&w, base, 8);
  PutRepeated(&w, 0, 3, 64);
  return w.bytes;
}

void Put(Bytes* buffer, size_t at, const Bytes& bytes) {
  std::copy(bytes.begin(), bytes.end(), buffer->begin() + at);
}

Bytes Pixel(const Bytes& out, size_t x, size_t y, size_t pitch) {
  return Bytes(out.begin() + y * pitch + 4 * x, out.begin() + y * pitch + 4 * x + 4);
}

TEST(DecodeFrame, RawTilesLandWhereTheAddressingPutsThem) {
  struct Case {
    bool nv12;
    uint64_t macroTilesPerRow, swizzle;
  };
  const Case cases[] = {{false, 1, 1}, {false, 4, 1}, {false, 8, 1}, {false, 16, 1},
                        {false, 16, 0}, {true, 16, 1}, {true, 32, 1}, {true, 32, 0}};
  for (const Case& c : cases) {
    // 16 tile rows, 4 macro-tile rows, one band of metadata tiles.
    const uint64_t m = c.macroTilesPerRow, width = (c.nv12 ? 128 : 64) * m, rows = c.nv12 ? 128 : 64;
    const uint64_t metaWidth = c.nv12 ? 512 : 256;
    const uint64_t t = ((width + metaWidth - 1) / metaWidth + 3) / 4 * 4;
    const size_t metaBytes = 256 * t, dataBytes = 16384 * m;
    Bytes frame(2 * (metaBytes + dataBytes));
    uint8_t* yData = frame.data() + metaBytes;
    uint8_t* uvMeta = yData + dataBytes;
    for (uint64_t r = 0; r < 16; ++r) {
      for (uint64_t col = 0; col < 4 * m; ++col) {
        const uint8_t lo = uint8_t(col + 1), hi = uint8_t(r + 1);
        const size_t slot = 256 * ExpectedSlot(c.nv12, r, col, m, c.swizzle);
        frame[ExpectedMeta(r, col, t)] = 31;
        if (!c.nv12) {
          for (size_t e = 0; e < 64; ++e) Put(&frame, metaBytes + slot + 4 * e, {lo, hi, 0xA5, 0x5A});
          continue;
        }
        // Raw NV12 tiles: bytes 0-127 are rows 0-3, bytes 128-255 rows 4-7.
        std::fill_n(yData + slot, 128, lo), std::fill_n(yData + slot + 128, 128, hi);
        if (r >= 8) continue;
        uvMeta[ExpectedMeta(r, col, t)] = 31;
        std::fill_n(uvMeta + metaBytes + slot, 128, lo ^ 0x55);
        std::fill_n(uvMeta + metaBytes + slot + 128, 128, hi ^ 0x55);
      }
    }
    Bytes out(2 * width * rows * (c.nv12 ? 1 : 4));
    ZpakConfig config = Config(c.nv12 ? 1 : 3, frame.data(), yData, frame.data() + frame.size(),
                               out.data(), width, rows, width, rows, width * (c.nv12 ? 1 : 4));
    config.swizzleEnable = c.swizzle;
    config.uvMetaPlane = uvMeta;
    config.uvDataOffset = dataBytes + metaBytes;
    ContextPtr context = MakeContext(c.nv12 ? 1 : 0);
    DecodeZpakFrame(context.get(), &config);
    for (uint64_t y = 0; y < rows; ++y) {
      for (uint64_t x = 0; x < width; ++x) {
        const uint8_t lo = uint8_t(x / (c.nv12 ? 32 : 16) + 1), hi = uint8_t(y / (c.nv12 ? 8 : 4) + 1);
        if (!c.nv12) {
          ASSERT_EQ(Pixel(out, x, y, 4 * width), (Bytes{lo, hi, 0xA5, 0x5A})) << m << " " << x << "," << y;
          continue;
        }
        ASSERT_EQ(out[y * width + x], y % 8 < 4 ? lo : hi) << m << " luma " << x << "," << y;
        if (y >= rows / 2) continue;
        ASSERT_EQ(out[width * rows + y * width + x], (y % 8 < 4 ? lo : hi) ^ 0x55) << m << " chroma " << x << "," << y;
      }
    }
  }
}

TEST(DecodeFrame, ShortTilesInSlotsOneAndTwoStartHalfwayThroughTheSlot) {
  // One macro tile: tile (r, c) is in slot kOrder[4r + c].
  struct HalfCase {
    uint64_t row, column;
    uint32_t meta;
    uint64_t addressingMode;
    bool upper;
  };
  const HalfCase cases[] = {{1, 1, 23, 1, true},  {1, 1, 24, 1, false}, {1, 1, 19, 1, true},
                            {1, 1, 0, 1, true},   {3, 1, 23, 1, true},  {0, 0, 23, 1, false},
                            {0, 1, 23, 1, false}, {1, 2, 23, 1, false}, {1, 1, 23, 0, false}};
  for (const HalfCase& c : cases) {
    Bytes frame(8192);
    const size_t slot = 4096 + 256 * kOrder[4 * c.row + c.column];
    frame[ExpectedMeta(c.row, c.column, 4)] = uint8_t(c.meta);
    Put(&frame, slot, FlatRgba({1, 2, 3, 4}));
    Put(&frame, slot + 128, FlatRgba({5, 6, 7, 8}));
    Bytes out(256 * 16);
    ZpakConfig config = Config(3, frame.data(), frame.data() + 4096, frame.data() + frame.size(),
                               out.data(), 64, 16, 64, 16, 256);
    config.addressingMode = c.addressingMode;
    DecodeZpakFrame(MakeContext(0).get(), &config);
    EXPECT_EQ(Pixel(out, 16 * c.column + 5, 4 * c.row + 2, 256),
              c.upper ? Bytes({5, 6, 7, 8}) : Bytes({1, 2, 3, 4}))
        << c.row << "," << c.column << " meta " << c.meta;
  }
}

TEST(DecodeFrame, UncompressedTilesAreReorderedFromTheSlotStart) {
  Bytes frame(8192);
  for (size_t e = 0; e < 64; ++e) Put(&frame, 4096 + 256 + 4 * e, Bytes(4, e < 32 ? 1 : 2));
  Bytes out(256 * 16);
  ZpakConfig config = Config(3, frame.data(), frame.data() + 4096, frame.data() + frame.size(),
                             out.data(), 64, 16, 64, 16, 256);
  config.altAddressing = 1;  // tile (1, 1) in slot 1, metadata 0: no half-slot offset
  DecodeZpakFrame(MakeContext(0).get(), &config);
  for (size_t x = 0; x < 16; ++x) EXPECT_EQ(Pixel(out, 16 + x, 5, 256), Bytes(4, x < 8 ? 1 : 2)) << x;
}

TEST(DecodeFrame, BytesPastTheFrameBufferReadAsZero) {
  // Data plane first, metadata plane last, so both can run into the end.
  Bytes frame(8192, 0xFF);
  std::fill_n(frame.begin(), 4096, 0);
  std::fill_n(frame.begin() + 4096, 16, 0);
  frame[4096 + 9] = 23;  // tile (1, 1) in slot 1: its upper half
  frame[4096 + 8] = 31;  // tile (1, 0), past the end below: must read as 0
  frame[256 + 128] = 0xFC;  // flags 0, base 0 = 0xFF ... cut after two bytes
  std::fill_n(frame.begin() + 256 + 129, 127, 0xFF);
  Put(&frame, 256 * 6 + 128, FlatRgba({9, 9, 9, 9}));  // slot 6: metadata 0 reads the upper half
  Bytes out(256 * 16);
  ZpakConfig config = Config(3, frame.data() + 4096, frame.data(), frame.data() + 4096 + 8,
                             out.data(), 64, 16, 64, 16, 256);
  config.compressedEnd = frame.data() + 256 + 130;
  DecodeZpakFrame(MakeContext(0).get(), &config);
  EXPECT_EQ(Pixel(out, 16, 4, 256), Bytes({255, 63, 0, 0}));
  config.compressedEnd = frame.data() + 4096 + 8;
  DecodeZpakFrame(MakeContext(0).get(), &config);
  EXPECT_EQ(Pixel(out, 0, 4, 256), Bytes({9, 9, 9, 9}));
}

TEST(DecodeFrame, Nv12EdgesAreClipped) {
  // 33 x 9: 2 x 2 luma tiles into 33 x 9 bytes; chroma from 2 x 1 tiles at
  // byte 297, pitch 34, 5 rows. Every tile raw and uniform (luma 0x10 + slot,
  // chroma 0x80 + slot).
  Bytes frame(4 * 4096);
  std::fill_n(frame.begin(), 4096, 31);
  std::fill_n(frame.begin() + 8192, 4096, 31);
  for (uint64_t s = 0; s < 16; ++s) {
    std::fill_n(frame.begin() + 4096 + 256 * s, 256, 0x10 + s);
    std::fill_n(frame.begin() + 12288 + 256 * s, 256, 0x80 + s);
  }
  Bytes out(1024, 0xEE);
  ZpakConfig config = Config(1, frame.data(), frame.data() + 4096, frame.data() + frame.size(),
                             out.data(), 128, 32, 33, 9, 128);
  config.uvMetaPlane = frame.data() + 8192;
  config.uvDataOffset = 8192;
  ContextPtr context = MakeContext(1);
  EXPECT_EQ(DecodeZpakFrame(context.get(), &config), 128u);
  for (size_t i = 0; i < 33 * 9; ++i) {
    EXPECT_EQ(out[i], 0x10 + kOrder[4 * (i / 33 / 8) + i % 33 / 32]) << "luma " << i;
  }
  for (size_t i = 0; i < 34 * 5; ++i) EXPECT_EQ(out[297 + i], 0x80 + kOrder[i % 34 / 32]) << i;
  for (size_t i = 297 + 34 * 5; i < out.size(); ++i) EXPECT_EQ(out[i], 0xEE) << i;
  EXPECT_EQ(context->contextFormat, 1u);
  EXPECT_EQ(context->planeIndex, 1u);
}

TEST(DecodeFrame, Rgb565HalvesAndWholeTileColumns) {
  // Slot 0 holds tile (0, 0): a raw left half (metadata 31, pixels 0x1234)
  // and a right half whose all-escape stream runs past its 128 bytes, where
  // it must meet zeros (not what the buffer's upper half held before).
  BitWriter right;
  PutBits(&right, 0, 17);
  for (int g = 0; g < 16; ++g) PutBits(&right, 5, 3), PutBits(&right, 6, 3), PutBits(&right, 5, 3);
  Bytes frame(8192);
  frame[0] = 31, frame[1] = 19;  // metadata columns 0 and 1 of tile row 0
  for (size_t p = 0; p < 64; ++p) Put(&frame, 4096 + 2 * p, {0x34, 0x12});
  Put(&frame, 4096 + 128, right.bytes);
  struct WidthCase {
    uint64_t width;
    size_t decodedBytes;  // of each 2 x width-byte row
  };
  for (const WidthCase& c : {WidthCase{16, 0}, WidthCase{48, 64}, WidthCase{64, 128}}) {
    Bytes out(2 * c.width * 4, 0xEE);
    ZpakConfig config = Config(12, frame.data(), frame.data() + 4096, frame.data() + frame.size(),
                               out.data(), 128, 16, c.width, 4, 256);
    ContextPtr context = MakeContext(12);
    std::fill_n(context->compressedTileBuffer, 256, 0xFF);
    EXPECT_EQ(DecodeZpakFrameRgb565(context.get(), &config), 256u);
    for (size_t y = 0; y < 4; ++y) {
      for (size_t x = 0; x < 2 * c.width; ++x) {
        const uint8_t expected = x >= c.decodedBytes ? 0xEE : (x >= 32 ? 0 : (x % 2 ? 0x12 : 0x34));
        ASSERT_EQ(out[y * 2 * c.width + x], expected) << "width " << c.width << " " << x << "," << y;
      }
    }
  }
}

TEST(DecodeFrame, EarlyReturnsWriteNothing) {
  struct ReturnCase {
    uint64_t surfaceFormat, enable, bypass, height;
    bool rgb565;
    uint64_t result;
  };
  const ReturnCase cases[] = {{3, 0, 0, 16, false, 0},   {3, 1, 1, 16, false, 256},
                              {12, 1, 0, 16, false, 256}, {3, 1, 0, 0, false, 256},
                              {1, 1, 0, 0, false, 256},  {12, 0, 0, 16, true, 0},
                              {12, 1, 1, 16, true, 256}, {12, 1, 0, 0, true, 256}};
  Bytes frame(8192, 31);
  for (const ReturnCase& c : cases) {
    Bytes out(4096, 0xEE);
    ZpakConfig config = Config(c.surfaceFormat, frame.data(), frame.data() + 4096,
                               frame.data() + frame.size(), out.data(), 64, 16, 64, c.height, 256);
    config.enable = c.enable, config.bypass = c.bypass;
    ContextPtr context = MakeContext(0);
    EXPECT_EQ(c.rgb565 ? DecodeZpakFrameRgb565(context.get(), &config)
                       : DecodeZpakFrame(context.get(), &config),
              c.result);
    EXPECT_EQ(out, Bytes(4096, 0xEE)) << c.surfaceFormat << " " << c.enable << " " << c.bypass;
  }
}

}  // namespace
}  // namespace pelcast::testing
