// How the tile calls describe a frame: every tile found where the layout's
// rules put it, its metadata byte read there, and planted faults (bytes that
// are no unit count, streams longer than their units, raw tiles) reported on
// exactly the tiles that carry them.
#include <gtest/gtest.h>

#include "tests/api/api_support.h"

namespace pelcast::testing::api {
namespace {

struct Described {
  pelcast_tile_grid grid;
  std::vector<pelcast_tile_info> tiles;
  pelcast_plane_stats stats;
};

Described Describe(pelcast_format format, uint32_t w, uint32_t h, const Bytes& zpak, uint32_t plane) {
  Described d{};
  EXPECT_EQ(pelcast_tile_grid_of(format, w, h, plane, &d.grid), PELCAST_OK);
  d.tiles.resize(size_t{d.grid.columns} * d.grid.rows);
  pelcast_codec* codec = nullptr;
  EXPECT_EQ(pelcast_codec_create(format, w, h, &codec), PELCAST_OK);
  EXPECT_EQ(pelcast_codec_tile_info(codec, zpak.data(), zpak.size(), plane, d.tiles.data(), d.tiles.size()),
            PELCAST_OK);
  EXPECT_EQ(pelcast_codec_plane_stats(codec, zpak.data(), zpak.size(), plane, &d.stats), PELCAST_OK);
  pelcast_codec_destroy(codec);
  return d;
}

TEST(TileInfo, GridsCoverTheImage) {
  struct Row {
    pelcast_format format;
    uint32_t plane;
    uint32_t w, h;
    pelcast_tile_grid grid;
  };
  const Row rows[] = {
      {PELCAST_FORMAT_NV12, PELCAST_PLANE_Y, 1920, 1080, {60, 135, 32, 8, 4}},
      {PELCAST_FORMAT_NV12, PELCAST_PLANE_UV, 1920, 1080, {60, 68, 32, 16, 4}},
      {PELCAST_FORMAT_NV12, PELCAST_PLANE_UV, 33, 9, {2, 1, 32, 16, 4}},
      {PELCAST_FORMAT_RGBA8888, 0, 1920, 1080, {120, 270, 16, 4, 4}},
      {PELCAST_FORMAT_RGB565, 0, 97, 61, {7, 16, 16, 4, 2}},
  };
  for (const Row& r : rows) {
    pelcast_tile_grid grid;
    ASSERT_EQ(pelcast_tile_grid_of(r.format, r.w, r.h, r.plane, &grid), PELCAST_OK);
    EXPECT_EQ(std::make_tuple(grid.columns, grid.rows, grid.tile_width, grid.tile_height, grid.raw_units),
              std::make_tuple(r.grid.columns, r.grid.rows, r.grid.tile_width, r.grid.tile_height,
                              r.grid.raw_units));
  }
  pelcast_tile_grid grid;
  EXPECT_EQ(pelcast_tile_grid_of(PELCAST_FORMAT_RGBA8888, 64, 64, 1, &grid), PELCAST_ERROR_INVALID_ARGUMENT);
}

// Tile (r, c) of a surface too narrow for the bank swizzle: the metadata
// byte in 16 x 16 metadata tiles of four 8 x 8 quarters, the slot in macro
// tiles of 4 x 4 slots, and a tile of at most two units in slots 1 and 2 of
// each group of four in the upper half of its slot.
TEST(TileInfo, TilesLieWhereTheLayoutPutsThem) {
  struct Row {
    pelcast_format format;
    uint32_t plane, w, h;
    uint64_t metaStart, dataStart, metaTilesPerRow, macroTilesPerRow;
  };
  // 64 x 64 RGBA8888: 4096-byte metadata plane, stride 256 bytes.
  // 128 x 64 NV12: Y metadata 4096, Y data 128 x 64, UV metadata 4096.
  const Row rows[] = {
      {PELCAST_FORMAT_RGBA8888, 0, 64, 64, 0, 4096, 4, 1},
      {PELCAST_FORMAT_NV12, PELCAST_PLANE_Y, 128, 64, 0, 4096, 4, 1},
      {PELCAST_FORMAT_NV12, PELCAST_PLANE_UV, 128, 64, 4096 + 8192, 4096 + 8192 + 4096, 4, 1},
  };
  for (const Row& r : rows) {
    const Bytes zpak = Encode(r.format, r.w, r.h, MakeFrame(r.format, r.w, r.h, 2));
    const Described d = Describe(r.format, r.w, r.h, zpak, r.plane);
    for (uint32_t row = 0; row < d.grid.rows; ++row) {
      for (uint32_t col = 0; col < d.grid.columns; ++col) {
        const pelcast_tile_info& t = d.tiles[row * d.grid.columns + col];
        const uint64_t slot = SlotOf(row, col, r.macroTilesPerRow);
        const bool upper = t.metadata <= 23 && (slot % 4 == 1 || slot % 4 == 2);
        EXPECT_EQ(t.metadata_offset, r.metaStart + MetaOffset(row, col, r.metaTilesPerRow));
        EXPECT_EQ(t.data_offset, r.dataStart + 256 * slot + (upper ? 128 : 0));
        EXPECT_EQ(t.metadata, zpak[t.metadata_offset]);
        EXPECT_EQ(t.units, (t.metadata - 15) / 4);
      }
    }
  }
}

TEST(TileInfo, RgbHalfTilesShareASlot) {
  const Bytes zpak = Encode(PELCAST_FORMAT_RGB565, 64, 8, MakeFrame(PELCAST_FORMAT_RGB565, 64, 8, 4));
  const Described d = Describe(PELCAST_FORMAT_RGB565, 64, 8, zpak, 0);
  for (uint32_t c = 0; c + 1 < d.grid.columns; c += 2) {
    EXPECT_EQ(d.tiles[c + 1].data_offset, d.tiles[c].data_offset + 128);
    EXPECT_EQ(d.tiles[c].data_offset % 256, 0u);
    EXPECT_EQ(d.tiles[c + 1].metadata_offset, d.tiles[c].metadata_offset + 1);
  }
}

// A flat luma tile is its four base values and 16 x 4 codes of 0: 224 bits.
TEST(TileInfo, StreamBitsOfAFlatTile) {
  Bytes flat(pelcast_linear_frame_size(PELCAST_FORMAT_NV12, 64, 16), 77);
  const Described d = Describe(PELCAST_FORMAT_NV12, 64, 16, Encode(PELCAST_FORMAT_NV12, 64, 16, flat), 0);
  for (const pelcast_tile_info& t : d.tiles) {
    EXPECT_EQ(t.stream_bits, 224);
    EXPECT_EQ(t.units, 1);
    EXPECT_EQ(t.flags, 0);
  }
}

struct Fault {
  const char* what;
  uint8_t unitsBefore;  // a tile stored in this many units gets the fault
  uint8_t metadata;     // the byte planted
  uint8_t flags;
  uint8_t units;
};

constexpr Fault kFaults[] = {
    {"no unit count", 1, 20, PELCAST_TILE_BAD_METADATA, 0},
    {"byte below any unit count", 2, 3, PELCAST_TILE_BAD_METADATA, 0},
    {"stream longer than its units", 2, 19, PELCAST_TILE_OVERRUN, 1},
    {"a compressed tile marked raw", 2, 31, PELCAST_TILE_RAW, 4},
};

TEST(TileInfo, PlantedFaultsAreReportedOnTheirTilesOnly) {
  const uint32_t w = 256, h = 96;
  const Bytes clean = Encode(PELCAST_FORMAT_NV12, w, h, MakeFrame(PELCAST_FORMAT_NV12, w, h, 7));
  const Described before = Describe(PELCAST_FORMAT_NV12, w, h, clean, PELCAST_PLANE_Y);
  for (const Fault& f : kFaults) {
    SCOPED_TRACE(f.what);
    size_t victim = before.tiles.size();
    for (size_t i = 0; i < before.tiles.size(); ++i) {
      if (before.tiles[i].units == f.unitsBefore && before.tiles[i].flags == 0) victim = i;
    }
    ASSERT_LT(victim, before.tiles.size()) << "no tile of " << int(f.unitsBefore) << " units";
    Bytes faulty = clean;
    faulty[before.tiles[victim].metadata_offset] = f.metadata;
    const Described after = Describe(PELCAST_FORMAT_NV12, w, h, faulty, PELCAST_PLANE_Y);
    for (size_t i = 0; i < after.tiles.size(); ++i) {
      const pelcast_tile_info& t = after.tiles[i];
      if (i != victim) {
        EXPECT_EQ(t.flags, before.tiles[i].flags) << "tile " << i;
        continue;
      }
      EXPECT_EQ(t.flags, f.flags);
      EXPECT_EQ(t.units, f.units);
      EXPECT_EQ(t.metadata, f.metadata);
    }
    const uint64_t flagged = after.stats.bad_metadata_tiles + after.stats.overrun_tiles +
                             after.stats.raw_tiles - before.stats.raw_tiles;
    EXPECT_EQ(flagged, 1u);
  }
}

TEST(TileInfo, StatsAreTheSumOfTheTiles) {
  for (pelcast_format format : kFormats) {
    const uint32_t w = 200, h = 120;
    const Bytes zpak = Encode(format, w, h, MakeFrame(format, w, h, 11));
    for (uint32_t plane = 0; plane < pelcast_plane_count(format); ++plane) {
      const Described d = Describe(format, w, h, zpak, plane);
      pelcast_plane_stats sum{};
      for (const pelcast_tile_info& t : d.tiles) {
        ++sum.tiles;
        sum.units += t.units;
        if (t.flags & PELCAST_TILE_RAW) {
          ++sum.raw_tiles;
        } else {
          ++sum.tiles_by_units[t.units];
        }
      }
      EXPECT_EQ(d.stats.tiles, sum.tiles);
      EXPECT_EQ(d.stats.units, sum.units);
      EXPECT_EQ(d.stats.raw_units, sum.tiles * d.grid.raw_units);
      EXPECT_EQ(d.stats.raw_tiles, sum.raw_tiles);
      for (int u = 1; u < 4; ++u) EXPECT_EQ(d.stats.tiles_by_units[u], sum.tiles_by_units[u]);
      EXPECT_GT(sum.raw_tiles, 0u) << FormatName(format) << ": the noisy quarter is stored raw";
      EXPECT_GT(sum.tiles_by_units[1], 0u) << FormatName(format) << ": flat tiles take one unit";
    }
  }
}

}  // namespace
}  // namespace pelcast::testing::api
