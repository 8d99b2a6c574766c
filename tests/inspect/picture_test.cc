// Pictures: colour conversion of decoded frames, the cost map, its legend
// and PNG output read back with libpng.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "tests/inspect/inspect_test_support.h"
#include "tools/inspect/heatmap.h"
#include "tools/inspect/rgb_image.h"

namespace pelcast::inspect::testing {
namespace {

using pelcast::testing::TempDir;

TEST(Pictures, Nv12ColoursFollowTheMatrix) {
  const std::pair<YuvMatrix, LumaWeights> matrices[] = {{YuvMatrix::kBt601, kBt601Weights},
                                                        {YuvMatrix::kBt709, kBt709Weights}};
  const int levels[] = {0, 16, 63, 102, 128, 181, 235, 240, 255};
  RgbImage out;
  for (const auto& [matrix, weights] : matrices) {
    for (int y : levels) {
      for (int u : levels) {
        for (int v : levels) {
          // A 1 x 1 frame: one luma byte, then one U,V pair.
          const uint8_t bytes[] = {uint8_t(y), uint8_t(u), uint8_t(v)};
          Nv12ToRgb(LinearFrame{bytes, sizeof bytes, 1, 1, 1}, matrix, &out);
          const auto want = ReferenceRgb(y, u, v, weights);
          for (int c = 0; c < 3; ++c) {
            EXPECT_NEAR(out.pixels[c], want[c], 1) << "Y " << y << " U " << u << " V " << v;
          }
        }
      }
    }
  }
}

TEST(Pictures, Nv12ChromaPairsCoverTwoByTwoPixels) {
  // 3 x 3: two chroma rows of 4 bytes (the width rounded up to even) after
  // the 9 luma bytes; each pair has its own U.
  const Bytes frame = {128, 128, 128, 128, 128, 128, 128, 128, 128,
                       30,  128, 90,  128, 160, 128, 220, 128};
  RgbImage out;
  Nv12ToRgb(LinearFrame{frame.data(), frame.size(), 3, 3, 3}, YuvMatrix::kBt709, &out);
  for (uint32_t y = 0; y < 3; ++y) {
    for (uint32_t x = 0; x < 3; ++x) {
      const int u = frame[9 + 4 * (y / 2) + 2 * (x / 2)];
      EXPECT_NEAR(PixelAt(out, x, y)[2], ReferenceRgb(128, u, 128, kBt709Weights)[2], 1);
    }
  }
}

TEST(Pictures, PackedRgbRowsHonourTheStride) {
  // RGB565: red in bits 15-11, green 10-5, blue 4-0, each widened by
  // repeating its top bits; two pixels a row in rows of 6 bytes.
  const Bytes rgb565 = {0x00, 0xF8, 0xE0, 0x07, 0xAB, 0xAB, 0x1F, 0x00, 0x10, 0x84};
  RgbImage out;
  Rgb565ToRgb(LinearFrame{rgb565.data(), rgb565.size(), 2, 2, 6}, &out);
  EXPECT_EQ(out.pixels, (std::vector<uint8_t>{255, 0, 0, 0, 255, 0, 0, 0, 255, 132, 130, 132}));

  // RGBA: alpha is dropped, row padding is skipped, and a row running past
  // the end of the buffer reads zeros.
  const Bytes rgba = {1, 2, 3, 4, 5, 6, 7, 8, 0xEE, 0xEE, 9, 10, 11, 12, 13};
  Rgba8888ToRgb(LinearFrame{rgba.data(), rgba.size(), 2, 2, 10}, &out);
  EXPECT_EQ(out.pixels, (std::vector<uint8_t>{1, 2, 3, 5, 6, 7, 9, 10, 11, 13, 0, 0}));
}

TEST(Pictures, PngRoundTrips) {
  TempDir dir;
  for (const auto& [w, h] : {std::pair{7u, 5u}, std::pair{1u, 1u}, std::pair{300u, 2u}}) {
    RgbImage image;
    ResizeImage(&image, w, h);
    image.pixels = pelcast::testing::RandomBytes(image.pixels.size(), w * 31 + h);
    std::string error;
    ASSERT_TRUE(WritePng(dir.File("p.png"), image, nullptr, &error)) << error;
    const Picture back = ReadPng(dir.File("p.png"));
    EXPECT_EQ(back.width, w);
    EXPECT_EQ(back.height, h);
    EXPECT_EQ(back.rgb, image.pixels);
  }
}

// The tile class whose tint, scaled as over a black frame, is nearest.
int NearestClass(const uint8_t* p) {
  int best = -1;
  double bestDistance = 1e9;
  for (int k = 0; k < kTileClassCount; ++k) {
    const Rgb t = kClassColours[k];
    const double scale = double(kTintWeight) / kMixDenominator;
    const double d = std::hypot(p[0] - t.r * scale, p[1] - t.g * scale, p[2] - t.b * scale);
    if (d < bestDistance) {
      bestDistance = d;
      best = k;
    }
  }
  return best;
}

TEST(Pictures, HeatmapTintsEachCountedTileByItsClass) {
  // 4 x 3 tiles of 16 x 4 over a black 70 x 14 frame: the last 6 columns and
  // 2 rows are outside every counted tile.
  PlaneTileGrid grid{"RGBA", TileKind{4, false}, 4, 3, 16, 4, {}};
  const uint8_t values[] = {19, 23, 27, 31, 0, 200};
  const TileClass classes[] = {kUnits1, kUnits2, kUnits3, kRaw, kOther, kOther};
  std::vector<uint8_t> metadata(12);
  for (size_t i = 0; i < metadata.size(); ++i) metadata[i] = values[(i * 5) % 6];
  RgbImage frame;
  ResizeImage(&frame, 70, 14);
  RgbImage heat;
  DrawHeatmap(frame, grid, metadata, &heat);
  ASSERT_EQ(heat.width, 70u);
  ASSERT_EQ(heat.height, 14u);
  for (uint32_t y = 0; y < 14; ++y) {
    for (uint32_t x = 0; x < 70; ++x) {
      const uint8_t* p = PixelAt(heat, x, y);
      if (x >= 64 || y >= 12) {
        EXPECT_EQ(p[0] + p[1] + p[2], 0) << x << "," << y;
        continue;
      }
      const size_t tile = (y / 4) * 4 + x / 16;
      EXPECT_EQ(NearestClass(p), classes[(tile * 5) % 6]) << x << "," << y;
      EXPECT_TRUE(std::equal(p, p + 3, PixelAt(heat, x / 16 * 16, y / 4 * 4))) << x << "," << y;
    }
  }
}

TEST(Pictures, LegendShowsEveryClassUnderTheImage) {
  for (const uint32_t width : {20u, 1000u}) {
    RgbImage image;
    ResizeImage(&image, width, 10);
    image.pixels = pelcast::testing::RandomBytes(image.pixels.size(), width);
    const std::vector<uint8_t> before = image.pixels;
    AppendLegend(&image);
    ASSERT_GT(image.height, 10u);
    // A narrow picture is widened to hold the legend; a wide one keeps its width.
    EXPECT_EQ(image.width > width, width == 20);
    for (uint32_t y = 0; y < 10; ++y) {
      EXPECT_TRUE(std::equal(before.begin() + 3 * y * width, before.begin() + 3 * (y + 1) * width,
                             PixelAt(image, 0, y)));
    }
    // Below the picture: a swatch in each class colour, and white labels.
    std::vector<int> found(kTileClassCount + 1);
    for (size_t i = 3 * size_t{image.width} * 10; i < image.pixels.size(); i += 3) {
      const Rgb p{image.pixels[i], image.pixels[i + 1], image.pixels[i + 2]};
      for (int k = 0; k < kTileClassCount; ++k) {
        const Rgb c = kClassColours[k];
        found[k] += p.r == c.r && p.g == c.g && p.b == c.b;
      }
      found[kTileClassCount] += p.r == 255 && p.g == 255 && p.b == 255;
    }
    for (int k = 0; k <= kTileClassCount; ++k) EXPECT_GE(found[k], 25) << k;
  }
}

}  // namespace
}  // namespace pelcast::inspect::testing
