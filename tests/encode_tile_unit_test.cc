// The tile encoder: shortest streams against a brute-force search, the unit
// rounding and raw fallback, the shortcut for tiles of constant lanes
// against the planner, and its early exits.
#include <gtest/gtest.h>

#include <cstring>
#include <iterator>
#include <string>
#include <vector>

#include "decoder/tile_decoder.h"
#include "encoder/lane_kernels.h"
#include "encoder/tile_encoder.h"
#include "encoder/tile_shape.h"
#include "encoder/tile_stream.h"
#include "surface/zpak_context.h"
#include "tests/brute_force_tile.h"
#include "tests/brute_force_tiles.h"
#include "tests/test_support.h"

namespace pelcast::testing {
namespace {

using brute::Plane;

// Tiles searched per plane and pattern; the brute force is slow under the
// sanitizers, so fewer there.
#if defined(__SANITIZE_ADDRESS__)
constexpr uint32_t kSeedsPerPattern = 1;
constexpr size_t kPatternStep = 3;
#else
constexpr uint32_t kSeedsPerPattern = 4;
constexpr size_t kPatternStep = 1;
#endif

TEST(TileEncoder, StreamsAreAsShortAsTheBruteForceFinds) {
  for (const PlaneCase& pc : kPlaneCases) {
    ZpakContext* context = NewContext(pc);
    for (size_t p = 0; p < std::size(kAllPatterns); p += kPatternStep) {
      const Pattern pattern = kAllPatterns[p];
      for (uint32_t seed = 1; seed <= kSeedsPerPattern; ++seed) {
        const std::vector<uint8_t> raster = MakeTile(pc.plane, pattern, seed);
        const std::vector<uint8_t> ordered = ToMicroBlocks(pc.plane, raster);
        const int64_t expectedBits = brute::ShortestStreamBits(pc.plane, raster);
        const uint64_t planned = PlannedTileBits(context, ordered.data());
        EXPECT_EQ(static_cast<int64_t>(planned), expectedBits)
            << pc.name << " pattern " << PatternName(pattern) << " seed " << seed;
        // Units: the stream rounded up to 512-bit units unless that fills the
        // raw tile, in which case the tile is stored raw.
        const uint64_t rawBits = RawTileBytes(pc.plane) * 8;
        const uint64_t units = (expectedBits + 511) / 512;
        const uint64_t expectedUnits = units * 512 < rawBits ? units : rawBits / 512;
        uint8_t output[512];
        uint64_t n = 99;
        EncodeZpakTile(context, ordered.data(), output, &n);
        EXPECT_EQ(n, expectedUnits) << pc.name << " pattern " << PatternName(pattern);
      }
    }
    ReleaseZpakContext(context);
  }
}

// An NV12 luma tile whose residuals under the gradient predictor (base 0)
// are zero except one sample of 100 in each of the first `wideGroups` groups
// (in stream order). A group holding a residual of 100 needs the escape, 32
// bits; the fixed part is 4 bases of 8 bits and 64 codes of 3 bits.
std::vector<uint8_t> LumaTileWithWideGroups(int wideGroups) {
  std::vector<int> residual(256, 0);  // indexed like the raster tile
  for (int k = 0; k < wideGroups; ++k) {
    const int group = k / 4;  // stream order: group g of blocks 0..3
    const int block = k % 4;
    const int x = 16 * (block % 2) + 4 * (group % 4) + 2;
    const int y = 4 * (block / 2) + group / 4;
    residual[y * 32 + x] = 100;
  }
  return IntegrateLumaResiduals(residual);
}

TEST(TileEncoder, UnitRoundingKeepsStreamsShorterThanTheRawTile) {
  struct Case {
    int wideGroups;
    uint64_t bits;   // 224 + 32 per wide group
    uint64_t units;  // 4 means stored raw
  };
  const Case cases[] = {
      {0, 224, 1},   {9, 512, 1},   {10, 544, 2},  {25, 1024, 2},
      {26, 1056, 3}, {41, 1536, 3}, {42, 1568, 4},
  };
  ZpakContext* context = NewContext(kPlaneCases[1]);
  for (const Case& c : cases) {
    const std::vector<uint8_t> raster = LumaTileWithWideGroups(c.wideGroups);
    const std::vector<uint8_t> ordered = ToMicroBlocks(Plane::kNv12Luma, raster);
    EXPECT_EQ(PlannedTileBits(context, ordered.data()), c.bits) << c.wideGroups;
    uint8_t output[512];
    uint64_t n = 0;
    EncodeZpakTile(context, ordered.data(), output, &n);
    EXPECT_EQ(n, c.units) << c.wideGroups;
    if (c.units == 4) {
      EXPECT_EQ(0, std::memcmp(output, ordered.data(), 256)) << "raw tile is the input as given";
    }
  }
  ReleaseZpakContext(context);
}

TEST(TileEncoder, NoiseIsStoredRawInMicroBlockOrder) {
  for (const PlaneCase& pc : kPlaneCases) {
    ZpakContext* context = NewContext(pc);
    const std::vector<uint8_t> raster = MakeTile(pc.plane, Pattern::kNoise, 99);
    const std::vector<uint8_t> ordered = ToMicroBlocks(pc.plane, raster);
    uint8_t output[512];
    std::memset(output, 0xee, sizeof output);
    uint64_t n = 0;
    EncodeZpakTile(context, ordered.data(), output, &n);
    const size_t rawBytes = RawTileBytes(pc.plane);
    EXPECT_EQ(n, rawBytes / 64) << pc.name;
    EXPECT_EQ(0, std::memcmp(output, ordered.data(), rawBytes)) << pc.name;
    ReleaseZpakContext(context);
  }
}

TEST(TileEncoder, EveryStoredTileDecodesToItsInput) {
  for (const PlaneCase& pc : kPlaneCases) {
    ZpakContext* context = NewContext(pc);
    for (Pattern pattern : kAllPatterns) {
      for (uint32_t seed = 1; seed <= 40; ++seed) {
        const std::vector<uint8_t> raster = MakeTile(pc.plane, pattern, seed);
        const std::vector<uint8_t> ordered = ToMicroBlocks(pc.plane, raster);
        uint8_t output[512];
        uint64_t n = 0;
        EncodeZpakTile(context, ordered.data(), output, &n);
        ASSERT_LE(n * 64, RawTileBytes(pc.plane)) << pc.name;
        // Stage the stored units as the frame decoder would: the slot's bytes,
        // zero past what the encoder stored.
        uint8_t stored[256] = {};
        std::memcpy(stored, output, n * 64);
        uint8_t decoded[256] = {};
        context->contextFormat = pc.contextFormat;
        context->planeIndex = pc.planeIndex;
        DecodeTile(context, stored, static_cast<uint32_t>(4 * n + 15), decoded);
        ASSERT_EQ(0, std::memcmp(decoded, raster.data(), raster.size()))
            << pc.name << " pattern " << PatternName(pattern) << " seed " << seed << " units " << n;
      }
    }
    ReleaseZpakContext(context);
  }
}

// Writes fields least-significant bit first, as the tile format reads them.
struct TestBitPacker {
  std::vector<uint8_t> bytes = std::vector<uint8_t>(256, 0);
  size_t bits = 0;
  void Put(uint32_t value, int width) {
    for (int i = 0; i < width; ++i, ++bits) {
      if ((value >> i) & 1) bytes[bits / 8] |= static_cast<uint8_t>(1 << (bits % 8));
    }
  }
};

// RGB565 without the colour transform: escaping a group can pay through the
// carries. Tile: component 0 is 0, 16, 0, 16 ... along every row, component 1
// is 40 (so the transform is impossible), component 2 carries one residual of
// -16 in each of its first 13 groups. Predicted, component 0 needs 5-bit
// fields on the first row and carries into component 1 at every odd pixel
// there, giving it 2-bit fields; escaped, the first row carries nothing. Hand
// counts: fixed 1 + 16 + 48 x 3 = 161 bits; component 0: 4 x 20; component 1:
// 4 x 8 predicted, 0 escaped; component 2: 13 x 20. So 533 bits predicted
// (raw, 2 units) and 501 with the escapes: the encoder must store 1 unit.
TEST(TileEncoder, Rgb565EscapesThatPayThroughCarriesAreFound) {
  int c0[64], c1[64], c2[64];
  int residual2[64] = {};
  for (int g = 0; g < 13; ++g) residual2[4 * g + 1] = -16;
  for (int at = 0; at < 64; ++at) {
    const int x = at % 16;
    const int y = at / 16;
    c0[at] = (x % 2) * 16;
    c1[at] = 40;
    const int64_t a = x > 0 ? c2[at - 1] : 0;
    const int64_t b = y > 0 ? c2[at - 16] : 0;
    const int64_t c = (x > 0 && y > 0) ? c2[at - 17] : 0;
    c2[at] = static_cast<int>(brute::Mod(a + b - c + residual2[at], 32));
  }
  std::vector<uint8_t> raster(128);
  for (int at = 0; at < 64; ++at) {
    const int word = c0[at] | c1[at] << 5 | c2[at] << 11;
    raster[2 * at] = static_cast<uint8_t>(word & 0xff);
    raster[2 * at + 1] = static_cast<uint8_t>(word >> 8);
  }
  ZpakContext* context = NewContext(kPlaneCases[3]);
  const std::vector<uint8_t> ordered = ToMicroBlocks(Plane::kRgb565, raster);
  EXPECT_EQ(brute::ShortestStreamBits(Plane::kRgb565, raster), 533) << "without escapes";
  EXPECT_LE(PlannedTileBits(context, ordered.data()), 512u);
  uint8_t output[512] = {};
  uint64_t n = 0;
  EncodeZpakTile(context, ordered.data(), output, &n);
  ASSERT_EQ(n, 1u);
  uint8_t stored[256] = {};
  std::memcpy(stored, output, 64);
  uint8_t roundTrip[256] = {};
  DecodeTile(context, stored, 19, roundTrip);
  EXPECT_EQ(0, std::memcmp(roundTrip, raster.data(), raster.size()));

  // The shorter stream: first-row groups of component 0 escaped (raw samples,
  // code 5), everything else predicted from bases 0, 40, 0; component 2's
  // 5-bit residuals take code 6 (its code 5 would mean raw samples).
  TestBitPacker w;
  w.Put(0, 1);
  w.Put(0, 5);
  w.Put(40, 6);
  w.Put(0, 5);
  for (int g = 0; g < 16; ++g) {
    w.Put(g < 4 ? 5 : 0, 3);
    w.Put(0, 3);
    w.Put(g < 13 ? 6 : 0, 3);
  }
  for (int g = 0; g < 16; ++g) {
    for (int i = 0; i < 4; ++i) {
      if (g < 4) w.Put(static_cast<uint32_t>(c0[4 * g + i]), 5);
    }
    for (int i = 0; i < 4; ++i) {
      if (g < 13) w.Put(residual2[4 * g + i] == -16 ? 31 : 0, 5);
    }
  }
  EXPECT_EQ(w.bits, 501u);
  uint8_t decoded[256] = {};
  DecodeTile(context, w.bytes.data(), 19, decoded);
  EXPECT_EQ(0, std::memcmp(decoded, raster.data(), raster.size()));
  ReleaseZpakContext(context);
}

// A raster tile cut into the component planes the tile encoder's core takes.
struct ComponentPlanes {
  std::vector<uint8_t> planes[4];
  TileComponents view{};
};

ComponentPlanes SplitRaster(Plane plane, const std::vector<uint8_t>& raster) {
  const brute::Shape s = brute::ShapeOf(plane);
  ComponentPlanes out;
  for (int c = 0; c < 4; ++c) {
    out.planes[c].assign(static_cast<size_t>(s.width * s.height), 0);
    out.view.plane[c] = out.planes[c].data();
  }
  out.view.pitch = static_cast<size_t>(s.width);
  for (int at = 0; at < s.width * s.height; ++at) {
    const uint8_t* e = &raster[static_cast<size_t>(at * s.elementBytes)];
    if (plane == Plane::kRgb565) {
      const int word = e[0] | e[1] << 8;
      out.planes[0][at] = static_cast<uint8_t>(word & 31);
      out.planes[1][at] = static_cast<uint8_t>((word >> 5) & 63);
      out.planes[2][at] = static_cast<uint8_t>(word >> 11);
    } else {
      for (int c = 0; c < s.components; ++c) out.planes[c][at] = e[c];
    }
  }
  return out;
}

// Tiles whose every block holds one value per component (values at the ends
// of the range, random ones, the same in every block or not), and the same
// tiles with one sample changed: the shortcut writes exactly the stream the
// planner writes, and leaves the changed ones to it.
TEST(TileEncoder, ConstantLanesGiveThePlannersStream) {
  Lcg rng{5};
  for (const PlaneCase& pc : kPlaneCases) {
    ZpakContext* context = NewContext(pc);
    TileShape shape;
    MakeTileShape(context->planes[pc.planeIndex], &shape);
    const brute::Shape s = brute::ShapeOf(pc.plane);
    for (int trial = 0; trial < 600; ++trial) {
      int value[4][4];  // [block][component]
      for (auto& block : value) {
        for (int c = 0; c < 4; ++c) {
          const int top = pc.plane == Plane::kRgb565 ? (c == 1 ? 63 : 31) : 255;
          const int pick = static_cast<int>(rng.Next() % 4);
          block[c] = pick == 0 ? 0 : pick == 1 ? top : static_cast<int>(rng.Next()) % (top + 1);
        }
        if (trial % 3 == 0) std::copy_n(value[0], 4, block);  // every block alike
      }
      std::vector<uint8_t> raster(RawTileBytes(pc.plane));
      for (int y = 0; y < s.height; ++y) {
        for (int x = 0; x < s.width; ++x) {
          const int* v = value[s.blocks == 1 ? 0 : s.blocks == 2 ? y / 4 : 2 * (y / 4) + x / 16];
          uint8_t* e = &raster[static_cast<size_t>((y * s.width + x) * s.elementBytes)];
          if (pc.plane == Plane::kRgb565) {
            const int word = v[0] | v[1] << 5 | v[2] << 11;
            e[0] = static_cast<uint8_t>(word & 0xff);
            e[1] = static_cast<uint8_t>(word >> 8);
          } else {
            for (int c = 0; c < s.components; ++c) e[c] = static_cast<uint8_t>(v[c]);
          }
        }
      }
      for (const bool changed : {false, true}) {
        if (changed) raster[rng.Next() % raster.size()] ^= 1;
        const ComponentPlanes split = SplitRaster(pc.plane, raster);
        uint8_t fast[256];
        uint8_t planned[256];
        std::memset(fast, 0xee, sizeof fast);
        std::memset(planned, 0xee, sizeof planned);
        uint64_t fastBits = 0;
        uint64_t plannedBits = 0;
        const LaneKernels& k = ActiveLaneKernels();
        const uint64_t units = EncodeTileStream(shape, k, split.view, fast, 256, &fastBits);
        ASSERT_EQ(units, PlanTileStream(shape, k, split.view, planned, 256, &plannedBits))
            << pc.name << " trial " << trial;
        ASSERT_EQ(fastBits, plannedBits) << pc.name << " trial " << trial;
        ASSERT_EQ(0, std::memcmp(fast, planned, units * 64)) << pc.name << " trial " << trial;
        if (!changed) {
          EXPECT_EQ(units, 1u) << pc.name;
        }
      }
    }
    ReleaseZpakContext(context);
  }
}

TEST(TileEncoder, RefusesBadCountsAndNullPointers) {
  ZpakContext* context = NewContext(kPlaneCases[0]);
  uint8_t tile[256] = {};
  uint8_t output[512];
  struct Case {
    std::string name;
    uint64_t components, blocks;
    bool nullTile, nullOutput, nullCount;
  };
  const Case cases[] = {
      {"five components", 5, 1, false, false, false}, {"five blocks", 4, 5, false, false, false},
      {"null tile", 4, 1, true, false, false},        {"null output", 4, 1, false, true, false},
      {"null count", 4, 1, false, false, true},
  };
  for (const Case& c : cases) {
    context->planes[0].componentCount = c.components;
    context->planes[0].blockCount = c.blocks;
    std::memset(output, 0xee, sizeof output);
    uint64_t n = 77;
    const int64_t status =
        EncodeZpakTile(context, c.nullTile ? nullptr : tile, c.nullOutput ? nullptr : output,
                       c.nullCount ? nullptr : &n);
    EXPECT_EQ(status, 0) << c.name;
    EXPECT_EQ(n, 77u) << c.name;
    EXPECT_EQ(output[0], 0xee) << c.name;
  }
  EXPECT_EQ(EncodeZpakTile(nullptr, tile, output, nullptr), 0);
  ReleaseZpakContext(context);
}

}  // namespace
}  // namespace pelcast::testing
