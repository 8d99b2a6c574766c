// info: the figures of hand-made frames (unit counts, raw tiles, bad
// metadata charged as raw), frame selection, torn files, standard input,
// and the pictures: the decoded frame with its alpha, colours through the
// YCbCr matrices, and the cost map's tints.
#include <gtest/gtest.h>

#include <cmath>

#include "tests/zpak/zpak_test_support.h"
#include "tools/zpak/pictures.h"

namespace pelcast::zpak::testing {
namespace {

using pelcast::testing::MetaOffset;
using pelcast::testing::ReadFile;
using pelcast::testing::TempDir;
using pelcast::testing::WriteFile;

// NV12 64 x 16: Y metadata, Y data, UV metadata, UV data, 4096 bytes each;
// 2 x 2 luma tiles and 2 x 1 chroma tiles, data all zero.
constexpr uint64_t kNv12Frame = 16384;
constexpr uint64_t kNv12UvMeta = 8192;

Bytes Nv12MetaFrame(uint8_t yMeta, uint8_t uvMeta) {
  Bytes frame(kNv12Frame, 0);
  for (uint32_t r = 0; r < 2; ++r)
    for (uint32_t c = 0; c < 2; ++c) frame[MetaOffset(r, c, 4)] = yMeta;
  for (uint32_t c = 0; c < 2; ++c) frame[kNv12UvMeta + MetaOffset(0, c, 4)] = uvMeta;
  return frame;
}

void ExpectInOrder(const std::string& text, const std::vector<std::string>& pieces) {
  size_t at = 0;
  for (const std::string& piece : pieces) {
    const size_t found = text.find(piece, at);
    ASSERT_NE(found, std::string::npos) << piece << "\n" << text;
    at = found;
  }
}

TEST(Info, FiguresOfEveryFrame) {
  TempDir dir;
  Bytes file = Nv12MetaFrame(19, 31);
  for (const Bytes& more : {Nv12MetaFrame(27, 23), Nv12MetaFrame(42, 19)}) {
    file.insert(file.end(), more.begin(), more.end());
  }
  file.insert(file.end(), 5, 0);  // a torn last frame
  WriteFile(dir.File("in.zpak"), file);
  const ZpakRun json = RunZpak({"info", "--json", "nv12", "in.zpak", "64", "16"}, {}, dir.path());
  EXPECT_EQ(json.status, 0);
  // Frame 0: four 1-unit luma tiles, two raw chroma tiles; frame 1: 3 and 2
  // units; frame 2: bad metadata charged as raw.
  ExpectInOrder(json.out, {
      R"({"frame": 0, "planes": [)",
      R"({"plane": "y", "tiles": 4, "units": 4, "raw_units": 16, "ratio": 0.250000, )"
      R"("tiles_by_units": {"1": 4, "2": 0, "3": 0, "raw": 0, "bad_metadata": 0}, )",
      R"({"plane": "uv", "tiles": 2, "units": 8, "raw_units": 8, "ratio": 1.000000, )"
      R"("tiles_by_units": {"1": 0, "2": 0, "3": 0, "raw": 2, "bad_metadata": 0})",
      R"({"plane": "all", "tiles": 6, "units": 12, "raw_units": 24, "ratio": 0.500000)",
      R"({"frame": 1, "planes": [)",
      R"({"plane": "y", "tiles": 4, "units": 12)",
      R"({"plane": "uv", "tiles": 2, "units": 4, "raw_units": 8, "ratio": 0.500000)",
      R"({"frame": 2, "planes": [)",
      R"({"plane": "y", "tiles": 4, "units": 16, "raw_units": 16, "ratio": 1.000000, )"
      R"("tiles_by_units": {"1": 0, "2": 0, "3": 0, "raw": 0, "bad_metadata": 4})",
  });
  EXPECT_NE(json.err.find("last 5 bytes"), std::string::npos) << json.err;

  const ZpakRun one = RunZpak({"info", "-q", "--frame", "1", "nv12", "in.zpak", "64", "16"}, {},
                              dir.path());
  EXPECT_EQ(one.status, 0);
  EXPECT_EQ(one.err, "");
  EXPECT_EQ(one.out.find("frame 0"), std::string::npos);
  ExpectInOrder(one.out, {"nv12 64x16: frames of 16384 bytes", "\nframe 1\n", "\ny ", "\nuv ",
                          "\nall "});
  // Standard input, a pipe: the same figures.
  const ZpakRun piped = RunZpak({"info", "--json", "nv12", "-", "64", "16"}, file);
  EXPECT_EQ(piped.out, json.out);
  EXPECT_EQ(piped.err, json.err);
}

// Limited-range YCbCr to RGB in floating point, rounded and clamped.
std::array<int, 3> ReferenceRgb(int y, int u, int v, double kr, double kb) {
  const double kg = 1 - kr - kb;
  const double l = (y - 16) * 255.0 / 219, cb = (u - 128) * 255.0 / 224, cr = (v - 128) * 255.0 / 224;
  const double rgb[3] = {l + 2 * (1 - kr) * cr, l - 2 * kb * (1 - kb) / kg * cb - 2 * kr * (1 - kr) / kg * cr,
                         l + 2 * (1 - kb) * cb};
  std::array<int, 3> out{};
  for (int c = 0; c < 3; ++c) out[c] = std::clamp(static_cast<int>(std::lround(rgb[c])), 0, 255);
  return out;
}

TEST(Info, Nv12PicturesFollowTheMatrix) {
  const std::tuple<YuvMatrix, double, double> matrices[] = {{YuvMatrix::kBt601, 0.299, 0.114},
                                                            {YuvMatrix::kBt709, 0.2126, 0.0722}};
  const int levels[] = {0, 16, 63, 102, 128, 181, 235, 240, 255};
  Raster out;
  for (const auto& [matrix, kr, kb] : matrices) {
    for (int y : levels) {
      for (int u : levels) {
        for (int v : levels) {
          const uint8_t frame[] = {uint8_t(y), uint8_t(u), uint8_t(v)};  // 1 x 1
          RasterOfFrame(PELCAST_FORMAT_NV12, 1, 1, frame, matrix, &out);
          const auto want = ReferenceRgb(y, u, v, kr, kb);
          for (int c = 0; c < 3; ++c) EXPECT_NEAR(out.samples[c], want[c], 1) << y << " " << u << " " << v;
        }
      }
    }
  }
}

TEST(Info, PicturesOfTheFramesAndTheirCosts) {
  struct Case {
    pelcast_format format;
    uint32_t width, height;
    uint32_t channels;
    std::vector<std::string> maps;
  };
  const Case cases[] = {{PELCAST_FORMAT_RGBA8888, 133, 75, 4, {"heat"}},
                        {PELCAST_FORMAT_RGB565, 133, 75, 3, {"heat"}},
                        {PELCAST_FORMAT_NV12, 133, 75, 3, {"heat-y", "heat-uv"}}};
  for (const Case& c : cases) {
    SCOPED_TRACE(FormatName(c.format));
    TempDir dir;
    const Bytes picture = CommittedFrames("screen-navbar-133x75", c.format);
    WriteFile(dir.File("in.zpak"), EncodeFrame(c.format, c.width, c.height, picture));
    const ZpakRun run = RunZpak({"info", FormatName(c.format), "in.zpak", std::to_string(c.width),
                                 std::to_string(c.height), "p"}, {}, dir.path());
    ASSERT_EQ(run.status, 0) << run.err;
    const PngPicture decoded = ReadPngFile(dir.File("p-f0-decoded.png"));
    EXPECT_EQ(decoded.channels, c.channels);
    if (c.format == PELCAST_FORMAT_RGBA8888) {
      EXPECT_EQ(decoded.samples, picture);  // alpha too
    }
    for (const std::string& map : c.maps) {
      const PngPicture heat = ReadPngFile(dir.File("p-f0-" + map + ".png"));
      EXPECT_GT(heat.height, c.height);  // the picture and the legend strip
      EXPECT_NE(run.err.find("wrote p-f0-" + map + ".png"), std::string::npos);
    }
  }
}

TEST(Info, CostMapTintsEveryTileByHowItIsStored) {
  // Luma tiles: 1 unit (blue), bad metadata (magenta); chroma tiles raw (red).
  TempDir dir;
  Bytes frame = Nv12MetaFrame(19, 31);
  frame[MetaOffset(0, 1, 4)] = 42;
  WriteFile(dir.File("in.zpak"), frame);
  ASSERT_EQ(RunZpak({"info", "nv12", "in.zpak", "64", "16", "p"}, {}, dir.path()).status, 0);
  const PngPicture y = ReadPngFile(dir.File("p-f0-heat-y.png"));
  const PngPicture uv = ReadPngFile(dir.File("p-f0-heat-uv.png"));
  auto at = [](const PngPicture& p, uint32_t x, uint32_t yy) { return p.samples.data() + 3 * (yy * p.width + x); };
  const uint8_t* blue = at(y, 5, 5);
  const uint8_t* magenta = at(y, 40, 5);
  const uint8_t* red = at(uv, 5, 5);
  EXPECT_TRUE(blue[2] > blue[0] && blue[2] > blue[1]);
  EXPECT_TRUE(magenta[0] > magenta[1] && magenta[2] > magenta[1]);
  EXPECT_TRUE(red[0] > red[1] && red[0] > red[2]);
}

TEST(Info, CommandLineErrors) {
  TempDir dir;
  WriteFile(dir.File("two.zpak"), Bytes(2 * kNv12Frame, 19));
  WriteFile(dir.File("short.zpak"), Bytes(kNv12Frame - 1, 19));
  WriteFile(dir.File("x-f0-decoded.png"), Nv12MetaFrame(19, 19));
  struct Case {
    std::vector<std::string> args;
    std::string message;
  };
  const Case cases[] = {
      {{"info"}, "missing"},
      {{"info", "nv12", "two.zpak", "64"}, "missing"},
      {{"info", "nv12", "two.zpak", "64", "16", "p", "extra"}, "too many operands"},
      {{"info", "nv21", "two.zpak", "64", "16"}, "unknown format 'nv21'"},
      {{"info", "nv12", "two.zpak", "0", "16"}, "WIDTH and HEIGHT must be whole numbers"},
      {{"info", "nv12", "two.zpak", "-64", "16"}, "WIDTH and HEIGHT must be whole numbers"},
      {{"info", "nv12", "two.zpak", "64", "99999999999"}, "WIDTH and HEIGHT"},
      {{"info", "rgba8888", "two.zpak", "40000", "40000"}, "2 GiB"},
      {{"info", "nv12", "two.zpak", "64", "16", ""}, "PREFIX must not be empty"},
      {{"info", "--bogus", "nv12", "two.zpak", "64", "16"}, "unknown option '--bogus'"},
      {{"info", "--shrink", "0", "nv12", "two.zpak", "64", "16"}, "--shrink takes"},
      {{"info", "--matrix=bt2020", "nv12", "two.zpak", "64", "16"}, "--matrix takes"},
      {{"info", "nv12", "two.zpak", "64", "16", "--frame"}, "--frame needs a value"},
      {{"info", "--frame", "2", "nv12", "two.zpak", "64", "16"}, "frame 2 is past the end"},
      {{"info", "nv12", "missing.zpak", "64", "16"}, "No such file"},
      {{"info", "nv12", ".", "64", "16"}, "is a directory"},
      {{"info", "nv12", "short.zpak", "64", "16"}, "less than one nv12 frame of 16384"},
      {{"info", "nv12", "x-f0-decoded.png", "64", "16", "x"}, "it is the input"},
  };
  for (const Case& c : cases) {
    const ZpakRun run = RunZpak(c.args, {}, dir.path());
    EXPECT_EQ(run.status, 2) << ::testing::PrintToString(c.args);
    EXPECT_NE(run.err.find(c.message), std::string::npos) << ::testing::PrintToString(c.args) << run.err;
  }
  EXPECT_EQ(ReadFile(dir.File("x-f0-decoded.png")), Nv12MetaFrame(19, 19));
}

}  // namespace
}  // namespace pelcast::zpak::testing
