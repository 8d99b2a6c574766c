// Tile and metadata addressing, and the frame decoders' walks, clipping and
// edge rules, on frames assembled in the test.
#include <gtest/gtest.h>

#include "surface/tile_addressing.h"
#include "tests/bit_writer.h"
#include "tests/codec_test_support.h"
#include "tests/test_support.h"

namespace pelcast::testing {
namespace {

// Slots as the surface format states them for bank bit 15: macro tiles in
// raster order; swizzled, bit 1 of the macro tile flips with y bit 3 ^ x bit
// 5 (RGBA8888 only) when 16 rows of the plane (bandBytes) are a multiple of
// 16384, bit 2 with y bit 4 (NV12: 5) at 32768 and bit 3 with y bit 5 (NV12:
// 6) at 65536; x, y is the tile's origin.
uint64_t ExpectedSlot(bool nv12, uint64_t r, uint64_t c, uint64_t m, bool swizzle) {
  const uint64_t x = nv12 ? 32 * c : 16 * c, y = nv12 ? 8 * r : 4 * r;
  const uint64_t band = (nv12 ? 2048 : 4096) * m;
  uint64_t flip = 0;
  if (swizzle && !nv12 && band % 16384 == 0) flip ^= (((y >> 3) ^ (x >> 5)) & 1) << 1;
  if (swizzle && band % 32768 == 0) flip ^= ((y >> (nv12 ? 5 : 4)) & 1) << 2;
  if (swizzle && band % 65536 == 0) flip ^= ((y >> (nv12 ? 6 : 5)) & 1) << 3;
  return SlotOf(r, c, m) ^ (flip << 4);
}

TEST(TileAddressing, MetaByteOffsetFollowsTheQuarterLayout) {
  for (uint64_t tilesPerRow : {4, 8}) {
    for (uint64_t r = 0; r < 40; ++r) {
      for (uint64_t c = 0; c < 16 * tilesPerRow; ++c) {
        ASSERT_EQ(MetaByteOffset(r, c, tilesPerRow), MetaOffset(r, c, tilesPerRow))
            << r << "," << c;
      }
    }
  }
}

TEST(TileAddressing, SlotTablesMatchTheStatedRules) {
  // {surfaceFormat, macro tiles per row, swizzleEnable}
  const uint64_t cases[][3] = {{3, 2, 1}, {3, 4, 1},  {3, 8, 1},  {3, 16, 1}, {3, 16, 0},
                               {1, 8, 1}, {1, 16, 1}, {1, 32, 1}, {1, 32, 0}};
  for (const auto& [format, m, swizzle] : cases) {
    const bool nv12 = format == 1;
    TileAddressTables tables{};
    ASSERT_TRUE(PrepareTileAddressTables(
        &tables, MakeTileGridLayout(SlotRule::kSwizzled, m * (nv12 ? 128 : 64), nv12 ? 256 : 128,
                                    nv12 ? 128 : 64, nv12 ? 32 : 16, nv12 ? 32 : 16, nv12 ? 8 : 4,
                                    nv12 ? 512 : 256, nv12 ? 128 : 64, swizzle, format, 0, 15)));
    for (uint64_t r = 0; r < 32; ++r) {
      for (uint64_t c = 0; c < 4 * m; ++c) {
        ASSERT_EQ(TileSlot(tables, r, c), ExpectedSlot(nv12, r, c, m, swizzle))
            << "format " << format << " M " << m << " tile " << r << "," << c;
      }
    }
    ReleaseTileAddressTables(&tables);
  }
}

TEST(TileAddressing, Rgb565SlotRules) {
  // {M, swizzleEnable, row, column, slot}. Swizzled: bit 2 of the macro tile
  // flips with (r / 4) bit 0 when 4096 M is a multiple of 32768, bit 3 with
  // (r / 8) bit 0 at 65536. Unswizzled: i = c % 8 + 4 (r % 4) gives
  // kSlotOrder[i] + 32 ((r / 4) M + c / 8), and 0 past i = 15.
  const uint64_t cases[][5] = {{8, 1, 4, 0, 16 * 12},  {8, 1, 8, 5, 16 * 17 + 7},
                               {16, 1, 8, 0, 16 * 40}, {16, 1, 12, 2, 16 * 60 + 10},
                               {4, 1, 4, 0, 16 * 4},   {2, 0, 5, 6, 9 + 32 * 2},
                               {4, 0, 0, 9, 7 + 32},   {2, 0, 3, 4, 0}};
  for (const auto& [m, swizzle, r, c, slot] : cases) {
    TileAddressTables tables{};
    ASSERT_TRUE(PrepareTileAddressTables(
        &tables, MakeTileGridLayout(SlotRule::kRgb565Banked, 128 * m, 256, 128, 16, 32, 4, 256, 64,
                                    swizzle, 12, 0, 15)));
    EXPECT_EQ(TileSlot(tables, r, c), slot) << m << " " << r << "," << c;
    ReleaseTileAddressTables(&tables);
  }
}

TEST(TileAddressing, BorrowedTablesReadTheOwnersAndNeverFreeThem) {
  // Two RGBA8888 layouts of different sizes. A borrower reads the owner's
  // slots; preparing it for the owner's layout keeps the borrowed storage,
  // for another layout gives it storage of its own (the owner's stays
  // intact); releasing a borrower frees nothing of the owner's (the
  // sanitizers would see a double free).
  auto layout = [](uint64_t m) {
    return MakeTileGridLayout(SlotRule::kSwizzled, m * 64, 128, 64, 16, 16, 4, 256, 64, 1, 3, 0, 15);
  };
  TileAddressTables owner{};
  ASSERT_TRUE(PrepareTileAddressTables(&owner, layout(8)));
  const std::vector<uint64_t> slots(owner.slots, owner.slots + 32 * 32);
  struct Case {
    uint64_t preparedFor;  // 0: not prepared again
    bool shares;
  };
  for (const Case& c : {Case{0, true}, Case{8, true}, Case{4, false}}) {
    TileAddressTables borrower{};
    ASSERT_TRUE(PrepareTileAddressTables(&borrower, layout(2)));  // storage of its own, released
    BorrowTileAddressTables(&borrower, owner);
    if (c.preparedFor != 0) {
      ASSERT_TRUE(PrepareTileAddressTables(&borrower, layout(c.preparedFor)));
    }
    EXPECT_EQ(borrower.slots == owner.slots, c.shares) << c.preparedFor;
    const uint64_t m = c.preparedFor != 0 ? c.preparedFor : 8;
    for (uint64_t r = 0; r < 32; ++r) {
      for (uint64_t col = 0; col < 4 * m; ++col) {
        ASSERT_EQ(TileSlot(borrower, r, col), ExpectedSlot(false, r, col, m, 1)) << r << "," << col;
      }
    }
    ReleaseTileAddressTables(&borrower);
    EXPECT_TRUE(std::equal(slots.begin(), slots.end(), owner.slots)) << c.preparedFor;
  }
  ReleaseTileAddressTables(&owner);
}

// One RGBA8888 macro tile, 64 x 16: metadata, then data 4096 bytes on.
ZpakConfig MacroTile(Bytes* frame, Bytes* out) {
  return PlaneConfig(3, frame->data(), frame->data() + 4096, frame->data() + frame->size(),
                     out->data(), 64, 16, 64, 16, 256);
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
  // 16 tile rows of raw tiles; tile (r, c) holds bytes c + 1 (RGBA8888: the
  // first byte of each pixel, r + 1 the second; NV12: rows 0-3, r + 1 in
  // rows 4-7, chroma XOR 0x55). One band of metadata tiles.
  const uint64_t cases[][3] = {{0, 1, 1},  {0, 4, 1},  {0, 8, 1},  {0, 16, 1},
                               {0, 16, 0}, {1, 16, 1}, {1, 32, 1}, {1, 32, 0}};
  for (const auto& [nv12, m, swizzle] : cases) {
    const uint64_t width = (nv12 ? 128 : 64) * m, rows = nv12 ? 128 : 64;
    const uint64_t t = ((width + (nv12 ? 511 : 255)) / (nv12 ? 512 : 256) + 3) / 4 * 4;
    const size_t metaBytes = 256 * t, dataBytes = 16384 * m;
    Bytes frame(2 * (metaBytes + dataBytes));
    uint8_t* uvMeta = frame.data() + metaBytes + dataBytes;
    for (uint64_t r = 0; r < 16; ++r) {
      for (uint64_t c = 0; c < 4 * m; ++c) {
        const uint8_t lo = uint8_t(c + 1), hi = uint8_t(r + 1);
        const size_t slot = metaBytes + 256 * ExpectedSlot(nv12, r, c, m, swizzle);
        frame[MetaOffset(r, c, t)] = 31;
        for (size_t e = 0; !nv12 && e < 64; ++e) Put(&frame, slot + 4 * e, {lo, hi, 0xA5, 0x5A});
        if (!nv12) continue;
        std::fill_n(&frame[slot], 128, lo), std::fill_n(&frame[slot + 128], 128, hi);
        if (r >= 8) continue;  // chroma has half the tile rows
        uvMeta[MetaOffset(r, c, t)] = 31;
        std::fill_n(uvMeta + slot, 128, lo ^ 0x55),
            std::fill_n(uvMeta + slot + 128, 128, hi ^ 0x55);
      }
    }
    Bytes out(2 * width * rows * (nv12 ? 1 : 4));
    ZpakConfig config = PlaneConfig(nv12 ? 1 : 3, frame.data(), frame.data() + metaBytes,
                                    frame.data() + frame.size(), out.data(), width, rows, width,
                                    rows, width * (nv12 ? 1 : 4));
    config.swizzleEnable = swizzle, config.uvMetaPlane = uvMeta;
    config.uvDataOffset = dataBytes + metaBytes;
    DecodeZpakFrame(MakeContext(nv12).get(), &config);
    for (uint64_t y = 0; y < rows; ++y) {
      for (uint64_t x = 0; x < width; ++x) {
        const uint8_t lo = uint8_t(x / (nv12 ? 32 : 16) + 1), hi = uint8_t(y / (nv12 ? 8 : 4) + 1);
        if (!nv12) {
          ASSERT_EQ(Pixel(out, x, y, 4 * width), (Bytes{lo, hi, 0xA5, 0x5A}))
              << m << " " << x << "," << y;
          continue;
        }
        ASSERT_EQ(out[y * width + x], y % 8 < 4 ? lo : hi) << m << " luma " << x << "," << y;
        if (y < rows / 2) {
          ASSERT_EQ(out[width * rows + y * width + x], (y % 8 < 4 ? lo : hi) ^ 0x55)
              << m << " chroma " << x << "," << y;
        }
      }
    }
  }
}

TEST(DecodeFrame, HalfSlotRuleAlternativeAddressingAndEndOfBuffer) {
  // One macro tile (64 x 16): tile (r, c) in slot kSlotOrder[4r + c]. A short
  // tile (metadata <= 23) in a slot s with s % 4 in {1, 2} starts at byte 128
  // of the slot, in addressing mode 1 only.
  const uint64_t cases[][5] = {// {row, column, metadata, addressingMode, upper}
                               {1, 1, 23, 1, 1}, {1, 1, 24, 1, 0}, {1, 1, 19, 1, 1},
                               {1, 1, 0, 1, 1},  {3, 1, 23, 1, 1}, {0, 0, 23, 1, 0},
                               {0, 1, 23, 1, 0}, {1, 2, 23, 1, 0}, {1, 1, 23, 0, 0}};
  for (const auto& [r, c, meta, mode, upper] : cases) {
    Bytes frame(8192), out(4096);
    frame[MetaOffset(r, c, 4)] = uint8_t(meta);
    Put(&frame, 4096 + 256 * SlotOf(r, c, 1), FlatRgba({1, 2, 3, 4}));
    Put(&frame, 4096 + 256 * SlotOf(r, c, 1) + 128, FlatRgba({5, 6, 7, 8}));
    ZpakConfig config = MacroTile(&frame, &out);
    config.addressingMode = mode;
    DecodeZpakFrame(MakeContext(0).get(), &config);
    EXPECT_EQ(Pixel(out, 16 * c + 5, 4 * r + 2, 256),
              upper ? Bytes({5, 6, 7, 8}) : Bytes({1, 2, 3, 4}))
        << r << "," << c << " meta " << meta;
  }
  // Alternative addressing: tile (1, 1) stored uncompressed in micro-block
  // order from the start of slot 1 (whose metadata 0 is not even read).
  Bytes frame(8192), out(4096);
  for (size_t e = 0; e < 64; ++e) Put(&frame, 4096 + 256 + 4 * e, Bytes(4, e < 32 ? 1 : 2));
  ZpakConfig config = MacroTile(&frame, &out);
  config.altAddressing = 1;
  DecodeZpakFrame(MakeContext(0).get(), &config);
  for (size_t x = 0; x < 16; ++x)
    EXPECT_EQ(Pixel(out, 16 + x, 5, 256), Bytes(4, x < 8 ? 1 : 2)) << x;
  // The same tile's upper half cut two bytes in by the end of the frame:
  // flags 0 and base 0xFF, then six bits of base 1; the rest reads as zero.
  std::fill(frame.begin() + 4096 + 256, frame.end(), 0xFF);
  frame[MetaOffset(1, 1, 4)] = 23, frame[4096 + 256 + 128] = 0xFC;
  config = MacroTile(&frame, &out);
  config.compressedEnd = frame.data() + 4096 + 256 + 130;
  DecodeZpakFrame(MakeContext(0).get(), &config);
  EXPECT_EQ(Pixel(out, 16, 4, 256), Bytes({255, 63, 0, 0}));
  // Metadata past the end reads as 0, so tile (1, 0) in slot 6 starts at
  // byte 128 of its slot.
  Bytes tail(8192);
  Put(&tail, 256 * 6, FlatRgba({1, 1, 1, 1}));
  Put(&tail, 256 * 6 + 128, FlatRgba({9, 9, 9, 9}));
  std::fill_n(&tail[8192 - 4], 4, 255);
  config = PlaneConfig(3, &tail[8192 - 4], tail.data(), tail.data() + 8192, out.data(), 64, 16, 64,
                       16, 256);
  DecodeZpakFrame(MakeContext(0).get(), &config);
  EXPECT_EQ(Pixel(out, 0, 4, 256), Bytes({9, 9, 9, 9}));
}

TEST(DecodeFrame, Rgb565HalvesAndWholeTileColumns) {
  // Tile (0, 0): a raw left half (metadata 31, pixels 0x1234) and a right
  // half whose all-escape stream of zeros runs past its 128 bytes, where it
  // must meet zeros, not what the upper half of the tile buffer held.
  BitWriter right;
  PutBits(&right, 0, 17);
  for (int g = 0; g < 16; ++g) PutBits(&right, 5, 3), PutBits(&right, 6, 3), PutBits(&right, 5, 3);
  Bytes frame(8192);
  frame[0] = 31, frame[1] = 19;  // metadata columns 0 and 1
  for (size_t p = 0; p < 64; ++p) Put(&frame, 4096 + 2 * p, {0x34, 0x12});
  Put(&frame, 4096 + 128, right.bytes);
  // {width, decoded bytes of each row}: ceil(width / 16) / 2 whole tiles.
  for (const auto& [width, decoded] : {std::pair<size_t, size_t>{16, 0}, {48, 64}, {64, 128}}) {
    Bytes out(2 * width * 4, 0xEE);
    ZpakConfig config =
        PlaneConfig(12, frame.data(), frame.data() + 4096, frame.data() + frame.size(), out.data(),
                    128, 16, width, 4, 256);
    ContextPtr context = MakeContext(12);
    std::fill_n(context->compressedTileBuffer, 256, 0xFF);
    EXPECT_EQ(DecodeZpakFrameRgb565(context.get(), &config), 256u);
    for (size_t i = 0; i < out.size(); ++i) {
      const size_t x = i % (2 * width);
      ASSERT_EQ(out[i], x >= decoded ? 0xEE : (x >= 32 ? 0 : (x % 2 ? 0x12 : 0x34)))
          << width << " " << i;
    }
  }
}

TEST(DecodeFrame, EarlyReturnsWriteNothing) {
  // {surfaceFormat, enable, bypass, height, RGB565 decoder, result}
  const uint64_t cases[][6] = {
      {3, 0, 0, 16, 0, 0},  {3, 1, 1, 16, 0, 256}, {12, 1, 0, 16, 0, 256}, {3, 1, 0, 0, 0, 256},
      {1, 1, 0, 0, 0, 256}, {12, 0, 0, 16, 1, 0},  {12, 1, 1, 16, 1, 256}, {12, 1, 0, 0, 1, 256}};
  Bytes frame(8192, 31);
  for (const auto& [format, enable, bypass, height, rgb565, result] : cases) {
    Bytes out(4096, 0xEE);
    ZpakConfig config = MacroTile(&frame, &out);
    config.surfaceFormat = format, config.height = height;
    config.enable = enable, config.bypass = bypass;
    ContextPtr context = MakeContext(0);
    EXPECT_EQ((rgb565 ? DecodeZpakFrameRgb565 : DecodeZpakFrame)(context.get(), &config), result);
    EXPECT_EQ(out, Bytes(4096, 0xEE)) << format << " " << enable << " " << bypass;
  }
}

}  // namespace
}  // namespace pelcast::testing
