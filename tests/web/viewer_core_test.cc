// The browser viewer's frame code (web/viewer_core), natively: planes of
// packed frames, samples under a pixel, pictures, the cost map, the compare
// figures and their JSON.
#include "web/viewer_core.h"

#include <gtest/gtest.h>

#include <cmath>
#include <numeric>
#include <string>
#include <vector>

#include "tests/test_support.h"

namespace pelcast::web {
namespace {

using Bytes = std::vector<uint8_t>;

struct PlanesCase {
  pelcast_format format;
  uint32_t width, height;
  std::vector<std::string> names;
  std::vector<uint32_t> elementWidths, elementHeights, tileWidths, tileHeights;
};

const PlanesCase kPlanesCases[] = {
    {PELCAST_FORMAT_NV12, 256, 144, {"y", "uv"}, {256, 128}, {144, 72}, {32, 16}, {8, 8}},
    {PELCAST_FORMAT_NV12, 97, 61, {"y", "uv"}, {97, 49}, {61, 31}, {32, 16}, {8, 8}},
    {PELCAST_FORMAT_RGBA8888, 133, 75, {"rgba"}, {133}, {75}, {16}, {4}},
    {PELCAST_FORMAT_RGB565, 256, 144, {"rgb565"}, {256}, {144}, {16}, {4}},
};

TEST(ViewerPlanes, CoverThePackedFrameWithTheApisTiles) {
  for (const PlanesCase& c : kPlanesCases) {
    SCOPED_TRACE(std::string(FormatName(c.format)) + " " + std::to_string(c.width) + "x" +
                 std::to_string(c.height));
    const std::vector<PlaneView> planes = PackedPlanes(c.format, c.width, c.height);
    ASSERT_EQ(planes.size(), c.names.size());
    size_t end = 0;
    for (size_t i = 0; i < planes.size(); ++i) {
      const PlaneView& v = planes[i];
      EXPECT_EQ(v.name, c.names[i]);
      EXPECT_EQ(v.offset, end);
      EXPECT_EQ(v.width, c.elementWidths[i]);
      EXPECT_EQ(v.height, c.elementHeights[i]);
      EXPECT_EQ(v.tileWidth, c.tileWidths[i]);
      EXPECT_EQ(v.tileHeight, c.tileHeights[i]);
      // The API's grid covers the plane's elements and no more.
      EXPECT_GE(v.tileColumns * v.tileWidth, v.width);
      EXPECT_LT((v.tileColumns - 1) * v.tileWidth, v.width);
      EXPECT_GE(v.tileRows * v.tileHeight, v.height);
      end = v.offset + v.stride * v.height;
    }
    EXPECT_EQ(end, pelcast_linear_frame_size(c.format, c.width, c.height));
  }
  EXPECT_TRUE(PackedPlanes(PELCAST_FORMAT_NV12, 0, 16).empty());
  EXPECT_TRUE(PackedPlanes(static_cast<pelcast_format>(9), 16, 16).empty());
}

// A packed frame whose every byte is its offset's low bits.
Bytes Ramp(pelcast_format format, uint32_t width, uint32_t height) {
  Bytes bytes(pelcast_linear_frame_size(format, width, height));
  for (size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<uint8_t>(i * 7 + (i >> 8));
  return bytes;
}

struct SamplesCase {
  pelcast_format format;
  uint32_t width, height, x, y;
  std::vector<size_t> offsets;  // bytes the samples are, or for RGB565 the word
};

const SamplesCase kSamplesCases[] = {
    {PELCAST_FORMAT_NV12, 6, 4, 0, 0, {0, 24, 25}},
    {PELCAST_FORMAT_NV12, 6, 4, 5, 3, {23, 24 + 6 + 4, 24 + 6 + 5}},
    // Odd width: chroma rows are 6 bytes (3 pairs) for 5 luma samples.
    {PELCAST_FORMAT_NV12, 5, 3, 4, 2, {14, 15 + 6 + 4, 15 + 6 + 5}},
    {PELCAST_FORMAT_RGBA8888, 3, 2, 2, 1, {20, 21, 22, 23}},
};

TEST(ViewerSamples, AreTheBytesOfThePixel) {
  for (const SamplesCase& c : kSamplesCases) {
    SCOPED_TRACE(std::string(FormatName(c.format)) + " at " + std::to_string(c.x) + "," +
                 std::to_string(c.y));
    const Bytes frame = Ramp(c.format, c.width, c.height);
    uint32_t out[4] = {};
    ASSERT_EQ(SamplesAt(c.format, c.width, c.height, frame.data(), c.x, c.y, out),
              c.offsets.size());
    for (size_t i = 0; i < c.offsets.size(); ++i) EXPECT_EQ(out[i], frame[c.offsets[i]]);
    EXPECT_EQ(SamplesAt(c.format, c.width, c.height, frame.data(), c.width, 0, out), 0u);
    EXPECT_EQ(SamplesAt(c.format, c.width, c.height, frame.data(), 0, c.height, out), 0u);
  }
}

TEST(ViewerSamples, Rgb565GivesItsFields) {
  // R 0b10110, G 0b011001, B 0b00111, little-endian.
  const uint16_t word = 0b10110'011001'00111;
  const Bytes frame = {0, 0, static_cast<uint8_t>(word & 0xFF), static_cast<uint8_t>(word >> 8)};
  uint32_t out[4] = {};
  ASSERT_EQ(SamplesAt(PELCAST_FORMAT_RGB565, 2, 1, frame.data(), 1, 0, out), 3u);
  EXPECT_EQ(out[0], 0b10110u);
  EXPECT_EQ(out[1], 0b011001u);
  EXPECT_EQ(out[2], 0b00111u);
}

struct YuvCase {
  uint8_t y, u, v;
  YuvMatrix matrix;
  uint8_t r, g, b;
};

// Limited range: black at 16, white at 235, and the primaries' YCbCr in
// each matrix (rounded), which come back within one level.
const YuvCase kYuvCases[] = {
    {16, 128, 128, YuvMatrix::kBt709, 0, 0, 0},
    {235, 128, 128, YuvMatrix::kBt709, 255, 255, 255},
    {126, 128, 128, YuvMatrix::kBt709, 128, 128, 128},
    {63, 102, 240, YuvMatrix::kBt709, 255, 0, 0},
    {173, 42, 26, YuvMatrix::kBt709, 0, 255, 0},
    {32, 240, 118, YuvMatrix::kBt709, 0, 0, 255},
    {81, 90, 240, YuvMatrix::kBt601, 255, 0, 0},
    {145, 54, 34, YuvMatrix::kBt601, 0, 255, 0},
    {41, 240, 110, YuvMatrix::kBt601, 0, 0, 255},
    // Below black and above white clamp.
    {0, 128, 128, YuvMatrix::kBt709, 0, 0, 0},
    {255, 128, 128, YuvMatrix::kBt601, 255, 255, 255},
};

TEST(ViewerPicture, Nv12ThroughTheMatrix) {
  for (const YuvCase& c : kYuvCases) {
    SCOPED_TRACE(std::to_string(c.y) + "," + std::to_string(c.u) + "," + std::to_string(c.v));
    // 2 x 2 pixels share the one chroma pair.
    const Bytes frame = {c.y, c.y, c.y, c.y, c.u, c.v};
    Bytes rgba(16, 1);
    FrameToRgba(PELCAST_FORMAT_NV12, 2, 2, frame.data(), c.matrix, false, rgba.data());
    for (int p = 0; p < 4; ++p) {
      EXPECT_NEAR(rgba[p * 4 + 0], c.r, 1);
      EXPECT_NEAR(rgba[p * 4 + 1], c.g, 1);
      EXPECT_NEAR(rgba[p * 4 + 2], c.b, 1);
      EXPECT_EQ(rgba[p * 4 + 3], 255);
    }
  }
}

TEST(ViewerPicture, Rgb565WidenedAndRgbaWithOrWithoutAlpha) {
  const Bytes rgb565 = {0xFF, 0xFF, 0x00, 0x00, 0x1F, 0x00, 0x20, 0x84};
  Bytes rgba(16);
  FrameToRgba(PELCAST_FORMAT_RGB565, 4, 1, rgb565.data(), YuvMatrix::kBt709, false, rgba.data());
  // white, black, blue 31 -> 255, and 0x8420: R 16 -> 132, G 33 -> 134, B 0.
  EXPECT_EQ(rgba, (Bytes{255, 255, 255, 255, 0, 0, 0, 255, 0, 0, 255, 255, 132, 134, 0, 255}));

  const Bytes straight = {10, 20, 30, 0, 40, 50, 60, 128};
  Bytes out(8);
  FrameToRgba(PELCAST_FORMAT_RGBA8888, 2, 1, straight.data(), YuvMatrix::kBt709, false, out.data());
  EXPECT_EQ(out, straight);
  FrameToRgba(PELCAST_FORMAT_RGBA8888, 2, 1, straight.data(), YuvMatrix::kBt709, true, out.data());
  EXPECT_EQ(out, (Bytes{10, 20, 30, 255, 40, 50, 60, 255}));
}

pelcast_tile_info Tile(uint8_t units, uint8_t flags) {
  pelcast_tile_info t{};
  t.units = units;
  t.flags = flags;
  return t;
}

TEST(ViewerCostMap, ClassesOfTiles) {
  const struct {
    pelcast_tile_info tile;
    TileClass cls;
  } cases[] = {
      {Tile(1, 0), kOneUnit},
      {Tile(2, 0), kTwoUnits},
      {Tile(3, 0), kThreeUnits},
      {Tile(4, 0), kFourUnits},
      {Tile(4, PELCAST_TILE_RAW), kRawTile},
      {Tile(2, PELCAST_TILE_RAW), kRawTile},  // RGB565's raw half tile
      {Tile(0, PELCAST_TILE_BAD_METADATA), kBadMetadata},
      {Tile(2, PELCAST_TILE_OVERRUN), kOverrun},
  };
  for (const auto& c : cases) EXPECT_EQ(ClassOfTile(c.tile), c.cls) << int(c.tile.units);
}

TEST(ViewerCostMap, TintsEachTileOverDimmedGrey) {
  // Two 2 x 1 tiles side by side and a column no tile covers.
  const pelcast_tile_grid grid = {2, 1, 2, 1, 4};
  const pelcast_tile_info tiles[] = {Tile(1, 0), Tile(4, PELCAST_TILE_RAW)};
  const Bytes white(5 * 4, 255);
  Bytes out(5 * 4);
  DrawCostMap(white.data(), 5, 1, grid, tiles, out.data());
  // Grey 255 dimmed to 127, mixed half and half with the tint, rounded.
  auto mixed = [](uint8_t tint) { return static_cast<uint8_t>((127 * 4 + tint * 4 + 4) / 8); };
  const Rgb blue = kClassColours[kOneUnit], red = kClassColours[kRawTile];
  EXPECT_EQ(out, (Bytes{mixed(blue.r), mixed(blue.g), mixed(blue.b), 255,          mixed(blue.r),
                        mixed(blue.g), mixed(blue.b), 255,           mixed(red.r), mixed(red.g),
                        mixed(red.b),  255,           mixed(red.r),  mixed(red.g), mixed(red.b),
                        255,           127,           127,           127,          255}));
}

TEST(ViewerStats, JsonOfEveryPlane) {
  pelcast_plane_stats stats[2] = {};
  stats[0] = {4, 10, 16, {0, 1, 1, 1}, 1, 0, 0};
  stats[1] = {2, 8, 8, {0, 0, 0, 0}, 1, 1, 2};
  EXPECT_EQ(
      PlaneStatsJson(PELCAST_FORMAT_NV12, stats, 2),
      "[{\"plane\": \"y\", \"tiles\": 4, \"units\": 10, \"raw_units\": 16, \"ratio\": 0.6250, "
      "\"by_units\": [1, 1, 1], \"raw\": 1, \"bad_metadata\": 0, \"overrun\": 0}, "
      "{\"plane\": \"uv\", \"tiles\": 2, \"units\": 8, \"raw_units\": 8, \"ratio\": 1.0000, "
      "\"by_units\": [0, 0, 0], \"raw\": 1, \"bad_metadata\": 1, \"overrun\": 2}]");
  EXPECT_EQ(PlaneStatsJson(PELCAST_FORMAT_RGB565, stats, 1).substr(0, 23),
            "[{\"plane\": \"rgb565\", \"t");
}

// --- compare -------------------------------------------------------------------

struct Change {
  size_t offset;
  int delta;
};

struct CompareCase {
  const char* label;
  pelcast_format format;
  uint32_t width, height;
  std::vector<Change> changes;
  // Per plane: differing tiles (as row * columns + column), samples, largest
  // difference, squared error.
  std::vector<std::vector<uint32_t>> tiles;
  std::vector<uint64_t> samples;
  std::vector<uint32_t> maxDiff;
  std::vector<double> squaredError;
};

// NV12 64 x 32: Y tiles 32 x 8 (2 x 4), UV tiles 16 pairs x 8 rows (2 x 2).
// RGBA8888 32 x 8: tiles 16 x 4 (2 x 2). RGB565 32 x 8: half tiles 16 x 4.
const CompareCase kCompareCases[] = {
    {"identical", PELCAST_FORMAT_NV12, 64, 32, {}, {{}, {}}, {0, 0}, {0, 0}, {0, 0}},
    {"luma in two tiles",
     PELCAST_FORMAT_NV12,
     64,
     32,
     {{0, 5}, {1, -3}, {64 * 9 + 40, 1}},
     {{0, 3}, {}},
     {3, 0},
     {5, 0},
     {35, 0}},
    {"one V in the last chroma tile",
     PELCAST_FORMAT_NV12,
     64,
     32,
     {{64 * 32 + 64 * 15 + 63, -90}},
     {{}, {3}},
     {0, 1},
     {0, 90},
     {0, 8100}},
    {"alpha and red of one pixel",
     PELCAST_FORMAT_RGBA8888,
     32,
     8,
     {{(5 * 32 + 20) * 4, 2}, {(5 * 32 + 20) * 4 + 3, -7}},
     {{3}},
     {2},
     {7},
     {53}},
    // Green's low bit of one RGB565 pixel: 6-bit 1 step is 4 levels at 8 bits
    // (widening repeats the top bits: 0 -> 0, 1 -> 4).
    {"rgb565 green one step",
     PELCAST_FORMAT_RGB565,
     32,
     8,
     {{2 * 16, 0x20}},
     {{1}},
     {1},
     {4},
     {16}},
};

TEST(ViewerCompare, FiguresPerPlane) {
  for (const CompareCase& c : kCompareCases) {
    SCOPED_TRACE(c.label);
    // Mid-grey samples (RGB565: zero words), changed by the deltas.
    const Bytes a(pelcast_linear_frame_size(c.format, c.width, c.height),
                  c.format == PELCAST_FORMAT_RGB565 ? 0 : 100);
    Bytes b = a;
    for (const Change& change : c.changes) {
      b[change.offset] = static_cast<uint8_t>(b[change.offset] + change.delta);
    }
    const std::vector<PlaneDifference> planes =
        CompareFrames(c.format, c.width, c.height, a.data(), b.data());
    ASSERT_EQ(planes.size(), c.tiles.size());
    for (size_t p = 0; p < planes.size(); ++p) {
      EXPECT_EQ(planes[p].tiles, c.tiles[p]) << "plane " << p;
      EXPECT_EQ(planes[p].differingTiles, c.tiles[p].size());
      EXPECT_EQ(planes[p].differingSamples, c.samples[p]);
      EXPECT_EQ(planes[p].maxAbsDiff, c.maxDiff[p]);
      EXPECT_DOUBLE_EQ(planes[p].squaredError, c.squaredError[p]);
      if (c.squaredError[p] == 0) {
        EXPECT_TRUE(std::isinf(Psnr(planes[p])));
      } else {
        EXPECT_DOUBLE_EQ(Psnr(planes[p]),
                         10 * std::log10(255.0 * 255.0 * planes[p].samples / c.squaredError[p]));
      }
    }
  }
}

TEST(ViewerCompare, SamplesCountEveryComponent) {
  const struct {
    pelcast_format format;
    std::vector<uint64_t> samples;
  } cases[] = {{PELCAST_FORMAT_NV12, {97 * 61, 49 * 31 * 2}},
               {PELCAST_FORMAT_RGBA8888, {97 * 61 * 4}},
               {PELCAST_FORMAT_RGB565, {97 * 61 * 3}}};
  for (const auto& c : cases) {
    const Bytes frame = Ramp(c.format, 97, 61);
    std::vector<uint64_t> samples;
    for (const PlaneDifference& p : CompareFrames(c.format, 97, 61, frame.data(), frame.data())) {
      samples.push_back(p.samples);
    }
    EXPECT_EQ(samples, c.samples) << FormatName(c.format);
  }
}

TEST(ViewerCompare, JsonListsTilesAsColumnAndRow) {
  const Bytes a = Ramp(PELCAST_FORMAT_NV12, 64, 32);
  Bytes b = a;
  b[64 * 9 + 40] ^= 1;  // Y tile (1, 1)
  b[64 * 31 + 2] ^= 4;  // Y tile (0, 3)
  const std::vector<PlaneDifference> planes =
      CompareFrames(PELCAST_FORMAT_NV12, 64, 32, a.data(), b.data());
  const std::string json = CompareJson(planes, 8);
  EXPECT_NE(
      json.find("{\"identical\": false, \"planes\": [{\"plane\": \"y\", \"differing_tiles\": 2, "
                "\"differing_samples\": 2, \"max_abs_diff\": 4, \"psnr\": "),
      std::string::npos)
      << json;
  EXPECT_NE(json.find("\"tiles_listed\": 2, \"tiles\": [[1, 1], [0, 3]]}"), std::string::npos)
      << json;
  EXPECT_NE(json.find("{\"plane\": \"uv\", \"differing_tiles\": 0, \"differing_samples\": 0, "
                      "\"max_abs_diff\": 0, \"psnr\": null, \"tiles_listed\": 0, \"tiles\": []}"),
            std::string::npos)
      << json;
  EXPECT_NE(CompareJson(planes, 1).find("\"tiles_listed\": 1, \"tiles\": [[1, 1]]}"),
            std::string::npos);
  EXPECT_EQ(CompareJson(CompareFrames(PELCAST_FORMAT_NV12, 64, 32, a.data(), a.data()), 8)
                .rfind("{\"identical\": true", 0),
            0u);
}

TEST(ViewerCompare, DifferencePictureMarksPixelsAndTiles) {
  // RGBA8888 32 x 8: pixel (20, 5) differs by 1 in red, (3, 1) by 100 in blue.
  const Bytes a = Ramp(PELCAST_FORMAT_RGBA8888, 32, 8);
  Bytes b = a;
  b[(5 * 32 + 20) * 4] ^= 1;
  b[(1 * 32 + 3) * 4 + 2] = static_cast<uint8_t>(b[(1 * 32 + 3) * 4 + 2] + 100);
  const Bytes picture(32 * 8 * 4, 200);
  Bytes out(picture.size());
  DrawDifference(PELCAST_FORMAT_RGBA8888, 32, 8, a.data(), b.data(), picture.data(), out.data());
  auto at = [&](uint32_t x, uint32_t y) {
    const uint8_t* p = &out[(y * 32 + x) * 4];
    return Bytes(p, p + 4);
  };
  EXPECT_EQ(at(20, 5), (Bytes{255, 3, 0, 255}));      // 1 level: red
  EXPECT_EQ(at(3, 1), (Bytes{255, 255, 0, 255}));     // 64 or more: yellow
  EXPECT_EQ(at(16, 4), (Bytes{230, 0, 230, 255}));    // corner of tile (1, 1): outline
  EXPECT_EQ(at(0, 0), (Bytes{230, 0, 230, 255}));     // corner of tile (0, 0)
  EXPECT_EQ(at(8, 6), (Bytes{100, 100, 100, 255}));   // tile (0, 1) has no difference: grey
  EXPECT_EQ(at(24, 2), (Bytes{100, 100, 100, 255}));  // inside tile (1, 0), no difference
}

// The committed frames through the library: SamplesAt reads the decoded frame
// at the bytes pelcast_linear_frame_size lays out, and a frame compared with
// itself after a round trip is identical.
TEST(ViewerFrames, CommittedFramesRoundTrip) {
  for (const testing::TestFrame& f : testing::kTestFrames) {
    for (const char* ext : {".nv12", ".rgba", ".rgb565"}) {
      const pelcast_format format = std::string(ext) == ".nv12"   ? PELCAST_FORMAT_NV12
                                    : std::string(ext) == ".rgba" ? PELCAST_FORMAT_RGBA8888
                                                                  : PELCAST_FORMAT_RGB565;
      SCOPED_TRACE(std::string(f.name) + ext);
      const Bytes linear = testing::ReadFile(testing::TestDataDir() + "/" + f.name + ext);
      const auto w = static_cast<uint32_t>(f.width), h = static_cast<uint32_t>(f.height);
      ASSERT_EQ(linear.size(), pelcast_linear_frame_size(format, w, h));
      Bytes zpak(pelcast_zpak_frame_size(format, w, h)), back(linear.size());
      ASSERT_EQ(pelcast_encode_frame(format, w, h, linear.data(), linear.size(), zpak.data(),
                                     zpak.size()),
                PELCAST_OK);
      ASSERT_EQ(
          pelcast_decode_frame(format, w, h, zpak.data(), zpak.size(), back.data(), back.size()),
          PELCAST_OK);
      const std::vector<PlaneDifference> planes =
          CompareFrames(format, w, h, linear.data(), back.data());
      for (const PlaneDifference& p : planes) EXPECT_EQ(p.differingSamples, 0u) << p.name;
      uint32_t mine[4], theirs[4];
      const uint32_t count = SamplesAt(format, w, h, back.data(), w - 1, h - 1, mine);
      ASSERT_EQ(SamplesAt(format, w, h, linear.data(), w - 1, h - 1, theirs), count);
      EXPECT_TRUE(std::equal(mine, mine + count, theirs));
    }
  }
}

}  // namespace
}  // namespace pelcast::web
