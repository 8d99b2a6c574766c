// The figures of the inspector against hand-made frames whose metadata bytes,
// and so whose unit counts, are known.
#include "tools/inspect/tile_stats.h"

#include <gtest/gtest.h>

#include <map>
#include <tuple>

#include "tests/inspect/inspect_test_support.h"
#include "tools/inspect/stats_report.h"

namespace pelcast::inspect::testing {
namespace {

// How the tile decoder reads each metadata value: n = (meta - 15) >> 2 units,
// raw when n is the raw size (4 units, or 2 for a 128-byte RGB565 half tile,
// where 31 also means raw). Units are what a reader has to fetch: a value
// without a count in range costs a whole raw tile.
struct MetaReading {
  uint8_t meta;
  TileClass fullClass;
  uint32_t fullUnits;
  TileClass halfClass;
  uint32_t halfUnits;
  bool regular;
};

const MetaReading kReadings[] = {
    {19, kUnits1, 1, kUnits1, 1, true}, {23, kUnits2, 2, kRaw, 2, true},
    {27, kUnits3, 3, kUnits3, 2, true}, {31, kRaw, 4, kRaw, 2, true},
    {0, kOther, 4, kOther, 2, false},   {14, kOther, 4, kOther, 2, false},
    {18, kOther, 4, kOther, 2, false},  {21, kUnits1, 1, kUnits1, 1, false},
    {26, kUnits2, 2, kRaw, 2, false},   {34, kRaw, 4, kUnits4, 2, false},
    {35, kOther, 4, kOther, 2, false},  {200, kOther, 4, kOther, 2, false},
    {238, kOther, 4, kOther, 2, false},
};

const TileKind kFullTile{4, false};
const TileKind kHalfTile{2, true};

TEST(TileStats, MetadataReadingTable) {
  for (const MetaReading& r : kReadings) {
    EXPECT_EQ(ClassifyMetadata(r.meta, kFullTile), r.fullClass) << int{r.meta};
    EXPECT_EQ(ChargedUnits(r.meta, kFullTile), r.fullUnits) << int{r.meta};
    EXPECT_EQ(ClassifyMetadata(r.meta, kHalfTile), r.halfClass) << int{r.meta};
    EXPECT_EQ(ChargedUnits(r.meta, kHalfTile), r.halfUnits) << int{r.meta};
    EXPECT_EQ(IsRegularMetadata(r.meta), r.regular) << int{r.meta};
  }
}

// One plane of a hand-laid surface: where its metadata plane starts, how
// many metadata tiles a row holds and which tiles are over the image.
struct PlaneLayout {
  uint64_t metaStart, metaTilesPerRow;
  uint32_t columns, rows;
};

struct SurfaceCase {
  const char* label;
  InspectFormat format;
  int32_t width, height;
  uint64_t frameBytes;
  std::vector<PlaneLayout> planes;
};

// Frame sizes and plane starts worked out from the surface rules by hand.
const SurfaceCase kSurfaces[] = {
    // Y: 2 x 2 tiles of 32 x 8; UV: 2 x 1; four 4096-byte planes.
    {"nv12 64x16", InspectFormat::kNv12, 64, 16, 16384, {{0, 4, 2, 2}, {8192, 4, 2, 1}}},
    // Stride 640, 320 + 160 scanlines, both metadata planes 4096 bytes; the
    // metadata tiles hold 16 x 16 tiles, so rows 16-37 use the second row of them.
    {"nv12 600x300", InspectFormat::kNv12, 600, 300, 315392,
     {{0, 4, 19, 38}, {4096 + 204800, 4, 19, 19}}},
    // 20 x 10 tiles of 16 x 4: columns 16-19 use the second metadata tile.
    {"rgba8888 320x40", InspectFormat::kRgba8888, 320, 40, 65536, {{0, 4, 20, 10}}},
    // Three 16-pixel half tiles, the third being the left half of slot 1.
    {"rgb565 48x4", InspectFormat::kRgb565, 48, 4, 8192, {{0, 4, 3, 1}}},
    // The stride of 4 x (129 / 2) bytes holds 128 pixels: the ninth column
    // of half tiles is never decoded and so not counted.
    {"rgb565 129x8", InspectFormat::kRgb565, 129, 8, 8192, {{0, 4, 8, 2}}},
    // Stride 1280 (640 pixels, 40 half tiles), 38 half tiles over the image.
    {"rgb565 600x20", InspectFormat::kRgb565, 600, 20, 45056, {{0, 4, 38, 5}}},
};

const uint8_t kPattern[] = {19, 23, 27, 31, 0, 21, 200, 34, 19, 19, 23};

uint8_t PatternAt(uint32_t row, uint32_t column, size_t plane) {
  return kPattern[(row * 5 + column * 3 + plane) % std::size(kPattern)];
}

const MetaReading& ReadingOf(uint8_t meta) {
  for (const MetaReading& r : kReadings) {
    if (r.meta == meta) return r;
  }
  throw std::logic_error("value missing from kReadings");
}

// A frame whose every byte is 238 (no unit count) except the metadata bytes
// of the counted tiles, which follow kPattern.
Bytes MakeFrame(const SurfaceCase& s) {
  constexpr uint8_t kPoison = 238;
  Bytes frame(s.frameBytes, kPoison);
  for (size_t p = 0; p < s.planes.size(); ++p) {
    const PlaneLayout& l = s.planes[p];
    for (uint32_t r = 0; r < l.rows; ++r) {
      for (uint32_t c = 0; c < l.columns; ++c) {
        frame.at(l.metaStart + MetaOffset(r, c, l.metaTilesPerRow)) = PatternAt(r, c, p);
      }
    }
  }
  return frame;
}

PlaneStats ExpectedStats(const SurfaceCase& s, size_t plane) {
  const PlaneLayout& l = s.planes[plane];
  const bool half = s.format == InspectFormat::kRgb565;
  PlaneStats e{"", uint64_t{l.columns} * l.rows, 0, 0, {}, 0};
  e.rawUnits = e.tiles * (half ? 2 : 4);
  for (uint32_t r = 0; r < l.rows; ++r) {
    for (uint32_t c = 0; c < l.columns; ++c) {
      const MetaReading& reading = ReadingOf(PatternAt(r, c, plane));
      ++e.tilesByClass[half ? reading.halfClass : reading.fullClass];
      e.unitsUsed += half ? reading.halfUnits : reading.fullUnits;
      e.irregularMetadata += reading.regular ? 0 : 1;
    }
  }
  return e;
}

TEST(TileStats, HandMadeFramesGiveKnownCounts) {
  for (const SurfaceCase& s : kSurfaces) {
    SCOPED_TRACE(s.label);
    const SurfaceTiles tiles = BuildSurfaceTiles(s.format, s.width, s.height);
    ASSERT_EQ(tiles.geometry.frameSize, s.frameBytes);
    ASSERT_EQ(tiles.planes.size(), s.planes.size());
    const Bytes frame = MakeFrame(s);
    for (size_t p = 0; p < s.planes.size(); ++p) {
      EXPECT_EQ(tiles.planes[p].columns, s.planes[p].columns);
      EXPECT_EQ(tiles.planes[p].rows, s.planes[p].rows);
      std::vector<uint8_t> metadata;
      GatherMetadata(tiles.planes[p], frame.data(), frame.size(), &metadata);
      const PlaneStats got = ComputePlaneStats(tiles.planes[p], metadata);
      const PlaneStats want = ExpectedStats(s, p);
      EXPECT_EQ((std::tuple{got.tiles, got.unitsUsed, got.rawUnits, got.irregularMetadata}),
                (std::tuple{want.tiles, want.unitsUsed, want.rawUnits, want.irregularMetadata}));
      EXPECT_EQ(got.tilesByClass, want.tilesByClass);
    }
  }
}

TEST(TileStats, TableColumnsLineUp) {
  const PlaneStats y{"Y", 1, 1, 4, {1, 0, 0, 0, 0, 0}, 0};
  const PlaneStats uv{"UV", 123456789, 987654321, 493827156, {1, 2, 3, 4, 5, 6}, 1234567};
  // Every line after the title is as long as the header, and each figure
  // ends where its column label ends.
  const std::string table = FormatFrameTable(MakeFrameReport(0, {y, uv}));
  std::vector<std::string> lines;
  for (size_t start = 1, end; (end = table.find('\n', start)) != std::string::npos;
       start = end + 1) {
    lines.push_back(table.substr(start, end - start));
  }
  ASSERT_EQ(lines.size(), 5u);  // title, header, Y, UV and their total
  EXPECT_EQ(lines[0], "frame 0");
  for (size_t i = 2; i < lines.size(); ++i) EXPECT_EQ(lines[i].size(), lines[1].size()) << lines[i];
  EXPECT_EQ(lines[2].substr(lines[1].find("ratio"), 5), "0.250");
  EXPECT_EQ(lines[3].substr(lines[1].find("ratio"), 5), "2.000");
  EXPECT_EQ(lines[2].substr(lines[1].find(" 1 ") - 4, 6), "100.0%");
}

}  // namespace
}  // namespace pelcast::inspect::testing
