// The browser viewer's own frame code (web/viewer_core), natively: samples
// under a pixel, rasters for the canvas, and the storage and compare figures
// as the page reads them.
#include "web/viewer_core.h"

#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "tests/test_support.h"
#include "tools/zpak/formats.h"
#include "tools/zpak/pictures.h"

namespace pelcast::web {
namespace {

using Bytes = std::vector<uint8_t>;

// A packed frame whose bytes all differ from their neighbours.
Bytes Ramp(pelcast_format format, uint32_t width, uint32_t height) {
  Bytes bytes(pelcast_linear_frame_size(format, width, height));
  for (size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<uint8_t>(i * 7 + (i >> 8));
  return bytes;
}

struct SamplesCase {
  pelcast_format format;
  uint32_t width, height, x, y;
  std::vector<size_t> offsets;  // the bytes the samples are
};

const SamplesCase kSamplesCases[] = {
    {PELCAST_FORMAT_NV12, 6, 4, 0, 0, {0, 24, 25}},
    {PELCAST_FORMAT_NV12, 6, 4, 5, 3, {23, 24 + 6 + 4, 24 + 6 + 5}},
    // Odd width: chroma rows are 6 bytes (3 pairs) for 5 luma samples.
    {PELCAST_FORMAT_NV12, 5, 3, 4, 2, {14, 15 + 6 + 4, 15 + 6 + 5}},
    {PELCAST_FORMAT_RGBA8888, 3, 2, 2, 1, {20, 21, 22, 23}},
    {PELCAST_FORMAT_RGBA8888, 3, 2, 0, 1, {12, 13, 14, 15}},
};

TEST(ViewerSamples, AreTheBytesOfThePixel) {
  for (const SamplesCase& c : kSamplesCases) {
    SCOPED_TRACE(std::string(zpak::FormatName(c.format)) + " at " + std::to_string(c.x) + "," +
                 std::to_string(c.y));
    const Bytes frame = Ramp(c.format, c.width, c.height);
    uint32_t out[4] = {};
    ASSERT_EQ(SamplesAt(c.format, c.width, c.height, frame.data(), c.x, c.y, out),
              c.offsets.size());
    for (size_t i = 0; i < c.offsets.size(); ++i) EXPECT_EQ(out[i], frame[c.offsets[i]]);
    EXPECT_EQ(SamplesAt(c.format, c.width, c.height, frame.data(), c.width, 0, out), 0u);
    EXPECT_EQ(SamplesAt(c.format, c.width, c.height, frame.data(), 0, c.height, out), 0u);
  }
  uint32_t out[4] = {};
  const Bytes frame(16);
  EXPECT_EQ(SamplesAt(static_cast<pelcast_format>(9), 2, 2, frame.data(), 0, 0, out), 0u);
}

TEST(ViewerSamples, Rgb565GivesItsFields) {
  // R 0b10110, G 0b011001, B 0b00111, little-endian, as the second pixel.
  const uint16_t word = 0b10110'011001'00111;
  const Bytes frame = {0xFF, 0xFF, static_cast<uint8_t>(word & 0xFF),
                       static_cast<uint8_t>(word >> 8)};
  uint32_t out[4] = {};
  ASSERT_EQ(SamplesAt(PELCAST_FORMAT_RGB565, 2, 1, frame.data(), 1, 0, out), 3u);
  EXPECT_EQ(out[0], 0b10110u);
  EXPECT_EQ(out[1], 0b011001u);
  EXPECT_EQ(out[2], 0b00111u);
  ASSERT_EQ(SamplesAt(PELCAST_FORMAT_RGB565, 2, 1, frame.data(), 0, 0, out), 3u);
  EXPECT_EQ(out[0], 31u);
  EXPECT_EQ(out[1], 63u);
  EXPECT_EQ(out[2], 31u);
}

TEST(ViewerCanvas, RgbGetsAlphaAndRgbaKeepsItUnlessOpaque) {
  const struct {
    uint32_t channels;
    Bytes samples;
    bool opaque;
    Bytes rgba;
  } cases[] = {
      {3, {1, 2, 3, 4, 5, 6}, false, {1, 2, 3, 255, 4, 5, 6, 255}},
      {3, {1, 2, 3, 4, 5, 6}, true, {1, 2, 3, 255, 4, 5, 6, 255}},
      {4, {1, 2, 3, 0, 4, 5, 6, 128}, false, {1, 2, 3, 0, 4, 5, 6, 128}},
      {4, {1, 2, 3, 0, 4, 5, 6, 128}, true, {1, 2, 3, 255, 4, 5, 6, 255}},
  };
  for (const auto& c : cases) {
    zpak::Raster raster;
    zpak::ResizeRaster(&raster, 2, 1, c.channels);
    raster.samples = c.samples;
    Bytes out(8, 9);
    RasterToRgba(raster, c.opaque, out.data());
    EXPECT_EQ(out, c.rgba) << c.channels << " channels, opaque " << c.opaque;
  }
}

// The committed RGBA8888 crops keep their alpha on the way to the canvas, and
// NV12 and RGB565 pictures are opaque.
TEST(ViewerCanvas, CommittedFramesThroughZpakPictures) {
  const std::string dir = testing::TestDataDir() + "/";
  const struct {
    const char* file;
    pelcast_format format;
  } cases[] = {{"screen-player-256x144.rgba", PELCAST_FORMAT_RGBA8888},
               {"screen-player-256x144.nv12", PELCAST_FORMAT_NV12},
               {"screen-player-256x144.rgb565", PELCAST_FORMAT_RGB565}};
  for (const auto& c : cases) {
    const Bytes frame = testing::ReadFile(dir + c.file);
    zpak::Raster raster;
    zpak::RasterOfFrame(c.format, 256, 144, frame.data(), zpak::YuvMatrix::kBt709, &raster);
    Bytes rgba(256 * 144 * 4);
    RasterToRgba(raster, false, rgba.data());
    size_t transparent = 0;
    for (size_t i = 0; i < 256 * 144; ++i) {
      const uint8_t wanted = c.format == PELCAST_FORMAT_RGBA8888 ? frame[i * 4 + 3] : 255;
      ASSERT_EQ(rgba[i * 4 + 3], wanted) << c.file << " pixel " << i;
      transparent += rgba[i * 4 + 3] == 0;
    }
    // The player crop's video cut-out is 17% of its pixels.
    EXPECT_EQ(transparent > 256 * 144 / 10, c.format == PELCAST_FORMAT_RGBA8888) << c.file;
  }
}

TEST(ViewerStats, JsonOfEveryPlane) {
  pelcast_plane_stats stats[2] = {};
  stats[0] = {4, 10, 16, {0, 1, 1, 1}, 1, 0, 0};
  stats[1] = {2, 8, 8, {0, 0, 0, 0}, 1, 1, 2};
  EXPECT_EQ(PlaneStatsJson(PELCAST_FORMAT_NV12, stats, 2),
            "[{\"plane\": \"y\", \"tiles\": 4, \"units\": 10, \"raw_units\": 16, \"ratio\": "
            "0.6250, \"by_units\": [1, 1, 1], \"raw\": 1, \"bad_metadata\": 0, \"overrun\": 0}, "
            "{\"plane\": \"uv\", \"tiles\": 2, \"units\": 8, \"raw_units\": 8, \"ratio\": "
            "1.0000, \"by_units\": [0, 0, 0], \"raw\": 1, \"bad_metadata\": 1, \"overrun\": 2}]");
  EXPECT_EQ(PlaneStatsJson(PELCAST_FORMAT_RGB565, stats, 1).substr(0, 20),
            "[{\"plane\": \"rgb565\",");
  EXPECT_EQ(PlaneStatsJson(PELCAST_FORMAT_RGBA8888, stats, 0), "[]");
}

// Changes of a mid-grey NV12 64 x 32 frame: Y tiles are 32 x 8 (2 x 4 of
// them), UV tiles 16 pairs x 8 rows (2 x 2).
struct CompareCase {
  const char* label;
  std::vector<std::pair<size_t, int>> changes;  // offset, delta
  std::string json;
};

const CompareCase kCompareCases[] = {
    {"identical",
     {},
     "{\"identical\": true, \"planes\": [{\"plane\": \"y\", \"differing_tiles\": 0, "
     "\"differing_samples\": 0, \"max_abs_diff\": 0, \"psnr\": null, \"tiles_listed\": 0, "
     "\"tiles\": []}, {\"plane\": \"uv\", \"differing_tiles\": 0, \"differing_samples\": 0, "
     "\"max_abs_diff\": 0, \"psnr\": null, \"tiles_listed\": 0, \"tiles\": []}]}"},
    // Y (1, 1) and (0, 3) in raster order, and V in the last chroma tile.
    // Y: 2 samples differ, squared error 16 + 1 over 2048 samples; UV: 90^2 over
    // 1024 (32 pairs x 16 rows x 2).
    {"two luma tiles and a chroma tile",
     {{64 * 31 + 2, 4}, {64 * 9 + 40, -1}, {64 * 32 + 64 * 15 + 63, -90}},
     "{\"identical\": false, \"planes\": [{\"plane\": \"y\", \"differing_tiles\": 2, "
     "\"differing_samples\": 2, \"max_abs_diff\": 4, \"psnr\": 68.94, \"tiles_listed\": 2, "
     "\"tiles\": [[1, 1], [0, 3]]}, {\"plane\": \"uv\", \"differing_tiles\": 1, "
     "\"differing_samples\": 1, \"max_abs_diff\": 90, \"psnr\": 39.15, \"tiles_listed\": 1, "
     "\"tiles\": [[1, 1]]}]}"},
};

TEST(ViewerCompare, JsonOfZpakCompareFigures) {
  for (const CompareCase& c : kCompareCases) {
    SCOPED_TRACE(c.label);
    const Bytes a(pelcast_linear_frame_size(PELCAST_FORMAT_NV12, 64, 32), 100);
    Bytes b = a;
    for (const auto& [offset, delta] : c.changes)
      b[offset] = static_cast<uint8_t>(b[offset] + delta);
    const zpak::FrameDifference difference =
        zpak::CompareFrames(PELCAST_FORMAT_NV12, 64, 32, a.data(), b.data());
    EXPECT_EQ(CompareJson(difference, 8), c.json);
  }
}

TEST(ViewerCompare, JsonListsAtMostTheTilesAsked) {
  const Bytes a = Ramp(PELCAST_FORMAT_RGBA8888, 64, 16);
  Bytes b = a;
  for (size_t i = 0; i < b.size(); i += 4 * 16) b[i] ^= 1;  // the first pixel of every tile row
  const zpak::FrameDifference difference =
      zpak::CompareFrames(PELCAST_FORMAT_RGBA8888, 64, 16, a.data(), b.data());
  const std::string json = CompareJson(difference, 3);
  EXPECT_NE(json.find("\"differing_tiles\": 16,"), std::string::npos) << json;
  EXPECT_NE(json.find("\"tiles_listed\": 3, \"tiles\": [[0, 0], [1, 0], [2, 0]]}"),
            std::string::npos)
      << json;
}

// The committed frames through the library: SamplesAt reads the decoded frame
// where the linear file holds the pixel, and zpak's compare finds the round
// trip identical.
TEST(ViewerFrames, CommittedFramesRoundTrip) {
  const struct {
    const char* ext;
    pelcast_format format;
  } formats[] = {{".nv12", PELCAST_FORMAT_NV12},
                 {".rgba", PELCAST_FORMAT_RGBA8888},
                 {".rgb565", PELCAST_FORMAT_RGB565}};
  for (const testing::TestFrame& f : testing::kTestFrames) {
    for (const auto& [ext, format] : formats) {
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
      EXPECT_TRUE(zpak::CompareFrames(format, w, h, linear.data(), back.data()).Identical());
      for (const auto& [x, y] : {std::pair{0u, 0u}, {w - 1, h - 1}, {w / 2, h / 3}}) {
        uint32_t mine[4], theirs[4];
        const uint32_t count = SamplesAt(format, w, h, back.data(), x, y, mine);
        ASSERT_EQ(SamplesAt(format, w, h, linear.data(), x, y, theirs), count);
        EXPECT_TRUE(std::equal(mine, mine + count, theirs)) << x << "," << y;
      }
    }
  }
}

}  // namespace
}  // namespace pelcast::web
