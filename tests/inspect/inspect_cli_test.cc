// pelcast-inspect as a program: command-line errors, figures of multi-frame
// files, and the decoded pictures of hand-made frames of raw tiles.
#include <gtest/gtest.h>

#include <array>
#include <functional>

#include "tests/inspect/inspect_test_support.h"

namespace pelcast::inspect::testing {
namespace {

using pelcast::testing::ReadFile;
using pelcast::testing::TempDir;
using pelcast::testing::WriteFile;

// NV12 64 x 16: Y metadata, Y data, UV metadata, UV data, 4096 bytes each.
constexpr uint64_t kNv12Frame = 16384;
constexpr uint64_t kNv12UvMeta = 8192;

Bytes Nv12MetaFrame(uint8_t yMeta, uint8_t uvMeta) {
  Bytes frame(kNv12Frame, 0);
  for (uint32_t r = 0; r < 2; ++r) {
    for (uint32_t c = 0; c < 2; ++c) frame[MetaOffset(r, c, 4)] = yMeta;
  }
  for (uint32_t c = 0; c < 2; ++c) frame[kNv12UvMeta + MetaOffset(0, c, 4)] = uvMeta;
  return frame;
}

struct ErrorCase {
  std::vector<std::string> args;
  int status;
  std::string message;
};

TEST(InspectCli, CommandLineErrors) {
  TempDir dir;
  const std::string twoFrames = dir.File("two.zpak");
  WriteFile(twoFrames, Bytes(2 * kNv12Frame, 19));
  const std::string shortFile = dir.File("short.zpak");
  WriteFile(shortFile, Bytes(kNv12Frame - 1, 19));
  const std::string& f = twoFrames;
  const std::vector<ErrorCase> cases = {
      {{}, 2, "missing arguments"},
      {{"nv12", f, "64"}, 2, "missing arguments"},
      {{"nv12", f, "64", "16", "p", "extra"}, 2, "too many arguments"},
      {{"nv21", f, "64", "16"}, 2, "unknown format 'nv21'"},
      {{"nv12", f, "0", "16"}, 2, "WIDTH must be a whole number from 1"},
      {{"nv12", f, "-64", "16"}, 2, "WIDTH must be a whole number from 1"},
      {{"nv12", f, "64", "16x"}, 2, "HEIGHT must be a whole number"},
      {{"nv12", f, "64", "99999999999"}, 2, "HEIGHT must be a whole number"},
      {{"rgba8888", f, "40000", "40000"}, 2, "too large"},
      {{"nv12", f, "64", "16", ""}, 2, "OUTPUT_PREFIX must not be empty"},
      {{"--bogus", "nv12", f, "64", "16"}, 2, "unknown option '--bogus'"},
      {{"--shrink", "0", "nv12", f, "64", "16"}, 2, "--shrink takes"},
      {{"--matrix=bt2020", "nv12", f, "64", "16"}, 2, "--matrix takes bt601 or bt709"},
      {{"nv12", f, "64", "16", "--frame"}, 2, "--frame needs a value"},
      {{"--frame", "2", "nv12", f, "64", "16"}, 2, "past the last frame (1)"},
      {{"nv12", dir.File("missing"), "64", "16"}, 1, "No such file"},
      {{"nv12", dir.path(), "64", "16"}, 1, "not a regular file"},
      {{"nv12", shortFile, "64", "16"}, 1, "16383 bytes, less than one nv12 frame of 16384"},
  };
  for (const ErrorCase& c : cases) {
    const ToolRun run = RunInspector(c.args);
    const std::string label = ::testing::PrintToString(c.args);
    EXPECT_EQ(run.status, c.status) << label;
    EXPECT_NE(run.err.find(c.message), std::string::npos) << label << "\n" << run.err;
    EXPECT_EQ(run.out, "") << label;
  }
}

TEST(InspectCli, HelpGoesToStandardOutput) {
  const ToolRun run = RunInspector({"nv12", "-h", "-1"});
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.out.rfind("Usage: pelcast-inspect", 0), 0u);
  EXPECT_EQ(run.err, "");
}

TEST(InspectCli, FiguresOfEveryFrameWithProgressAndWarning) {
  TempDir dir;
  Bytes file = Nv12MetaFrame(19, 31);
  const Bytes second = Nv12MetaFrame(27, 23);
  file.insert(file.end(), second.begin(), second.end());
  file.insert(file.end(), 5, 0);  // a torn last frame
  const std::string path = dir.File("in.zpak");
  WriteFile(path, file);

  const ToolRun json = RunInspector({"--json", "nv12", path, "64", "16"});
  EXPECT_EQ(json.status, 0);
  // Frame 0: four 1-unit luma tiles, two raw chroma tiles; frame 1: 3 and 2 units.
  const char* expected[] = {
      R"({"frame": 0, "planes": [)",
      R"({"plane": "Y", "tiles": 4, "units": 4, "rawUnits": 16, "ratio": 0.250000, )"
      R"("tilesByUnits": {"1": 4, "2": 0, "3": 0, "4": 0, "raw": 0, "other": 0}, )"
      R"("irregularMetadata": 0})",
      R"({"plane": "UV", "tiles": 2, "units": 8, "rawUnits": 8, "ratio": 1.000000, )"
      R"("tilesByUnits": {"1": 0, "2": 0, "3": 0, "4": 0, "raw": 2, "other": 0})",
      R"({"plane": "all", "tiles": 6, "units": 12, "rawUnits": 24, "ratio": 0.500000)",
      R"({"frame": 1, "planes": [)",
      R"({"plane": "Y", "tiles": 4, "units": 12)",
      R"({"plane": "UV", "tiles": 2, "units": 4, "rawUnits": 8, "ratio": 0.500000)",
  };
  size_t at = 0;
  for (const char* piece : expected) {
    const size_t found = json.out.find(piece, at);
    ASSERT_NE(found, std::string::npos) << piece << "\n" << json.out;
    at = found;
  }
  for (const char* note : {"last 5 bytes", "frame 1 of 2", "frame 2 of 2"}) {
    EXPECT_NE(json.err.find(note), std::string::npos) << note;
  }

  const ToolRun one = RunInspector({"-q", "--frame", "1", "nv12", path, "64", "16"});
  EXPECT_EQ(one.status, 0);
  EXPECT_EQ(one.err, "");
  EXPECT_EQ(one.out.find("frame 0"), std::string::npos);
  EXPECT_NE(one.out.find("\nframe 1\n"), std::string::npos);
  EXPECT_NE(one.out.find("nv12 64x16: 2 frames of 16384 bytes"), std::string::npos);
}

// A pixel as the test means it, and how to store it in a raw tile.
using PixelFn = std::function<std::array<uint8_t, 4>(uint32_t x, uint32_t y)>;

// Stores every element of a raw tile at its micro-block position.
void StoreRawTile(Bytes* frame, uint64_t at, uint32_t elementsPerRow, uint32_t rows,
                  uint32_t bytesPerElement, uint32_t x0, uint32_t y0, const PixelFn& element) {
  for (uint32_t y = 0; y < rows; ++y) {
    for (uint32_t x = 0; x < elementsPerRow; ++x) {
      const auto bytes = element(x0 + x, y0 + y);
      const uint64_t dst = at + RawElementIndex(x, y, elementsPerRow) * bytesPerElement;
      std::copy_n(bytes.begin(), bytesPerElement, frame->begin() + static_cast<ptrdiff_t>(dst));
    }
  }
}

uint8_t Expand5(uint32_t v) { return static_cast<uint8_t>(v << 3 | v >> 2); }
uint8_t Expand6(uint32_t v) { return static_cast<uint8_t>(v << 2 | v >> 4); }

struct PictureCase {
  std::string format;
  uint32_t width, height;
  Bytes frame;
  std::function<std::array<int, 3>(uint32_t x, uint32_t y)> expected;
  int tolerance;
  std::vector<std::string> heatNames;
};

// RGBA8888 48 x 8: a 64-pixel-wide plane of one macro tile per row of 4 x 4
// tiles, data after a 4096-byte metadata plane; every tile raw (31).
PictureCase RgbaCase() {
  const auto colour = [](uint32_t x, uint32_t y) {
    return std::array<uint8_t, 4>{uint8_t(x * 5), uint8_t(y * 30), uint8_t(x * y),
                                  uint8_t(255 - x)};
  };
  Bytes frame(8192, 0);
  for (uint32_t r = 0; r < 2; ++r) {
    for (uint32_t c = 0; c < 3; ++c) {
      frame[MetaOffset(r, c, 4)] = 31;
      StoreRawTile(&frame, 4096 + 256 * SlotOf(r, c, 1), 16, 4, 4, 16 * c, 4 * r, colour);
    }
  }
  const auto rgb = [colour](uint32_t x, uint32_t y) {
    const auto p = colour(x, y);
    return std::array<int, 3>{p[0], p[1], p[2]};
  };
  return {"rgba8888", 48, 8, frame, rgb, 0, {"heat"}};
}

// RGB565 48 x 4: two raw half tiles (23) per slot; half column k is slot
// k / 2, bytes 128 (k % 2) onward. The tile holds red in its low five bits,
// which the decode command moves to the top of the word it writes.
PictureCase Rgb565Case() {
  const auto fields = [](uint32_t x, uint32_t y) {
    return std::array<uint32_t, 3>{x % 32, (x + 7 * y) % 64, (31 - x / 2) % 32};
  };
  const auto stored = [fields](uint32_t x, uint32_t y) {
    const auto f = fields(x, y);
    const uint32_t word = f[0] | f[1] << 5 | f[2] << 11;
    return std::array<uint8_t, 4>{uint8_t(word), uint8_t(word >> 8), 0, 0};
  };
  Bytes frame(8192, 0);
  for (uint32_t half = 0; half < 3; ++half) {
    frame[MetaOffset(0, half, 4)] = 23;
    StoreRawTile(&frame, 4096 + 256 * SlotOf(0, half / 2, 1) + 128 * (half % 2), 16, 4, 2,
                 16 * half, 0, stored);
  }
  const auto rgb = [fields](uint32_t x, uint32_t y) {
    const auto f = fields(x, y);
    return std::array<int, 3>{Expand5(f[0]), Expand6(f[1]), Expand5(f[2])};
  };
  return {"rgb565", 48, 4, frame, rgb, 0, {"heat"}};
}

// NV12 64 x 16, raw tiles (31): 2 x 2 luma tiles of 32 x 8 bytes and 2 x 1
// chroma tiles of 16 U,V pairs x 8 rows; the chroma data plane follows the
// luma data and the chroma metadata.
PictureCase Nv12Case() {
  const auto luma = [](uint32_t x, uint32_t y) {
    return std::array<uint8_t, 4>{uint8_t(16 + 3 * x + 2 * y), 0, 0, 0};
  };
  const auto chroma = [](uint32_t pair, uint32_t row) {
    return std::array<uint8_t, 4>{uint8_t(60 + 4 * pair), uint8_t(200 - 9 * row), 0, 0};
  };
  Bytes frame = Nv12MetaFrame(31, 31);
  for (uint32_t r = 0; r < 2; ++r) {
    for (uint32_t c = 0; c < 2; ++c) {
      StoreRawTile(&frame, 4096 + 256 * SlotOf(r, c, 1), 32, 8, 1, 32 * c, 8 * r, luma);
    }
  }
  for (uint32_t c = 0; c < 2; ++c) {
    StoreRawTile(&frame, 12288 + 256 * SlotOf(0, c, 1), 16, 8, 2, 16 * c, 0, chroma);
  }
  const auto rgb = [luma, chroma](uint32_t x, uint32_t y) {
    const auto uv = chroma(x / 2, y / 2);
    return ReferenceRgb(luma(x, y)[0], uv[0], uv[1], kBt709Weights);
  };
  return {"nv12", 64, 16, frame, rgb, 1, {"heat-y", "heat-uv"}};
}

TEST(InspectCli, DecodedPicturesOfRawTiles) {
  for (const PictureCase& c : {RgbaCase(), Rgb565Case(), Nv12Case()}) {
    SCOPED_TRACE(c.format);
    TempDir dir;
    const std::string input = dir.File("frame.zpak");
    WriteFile(input, c.frame);
    const ToolRun run = RunInspector({c.format, input, std::to_string(c.width),
                                      std::to_string(c.height), dir.File("out")});
    ASSERT_EQ(run.status, 0) << run.err;
    const Picture decoded = ReadPng(dir.File("out-f0-decoded.png"));
    ASSERT_EQ(decoded.width, c.width);
    ASSERT_EQ(decoded.height, c.height);
    int mismatches = 0;
    for (uint32_t y = 0; y < c.height; ++y) {
      for (uint32_t x = 0; x < c.width; ++x) {
        const auto want = c.expected(x, y);
        for (int k = 0; k < 3; ++k)
          mismatches += std::abs(decoded.At(x, y)[k] - want[k]) > c.tolerance;
      }
    }
    EXPECT_EQ(mismatches, 0);
    for (const std::string& name : c.heatNames) {
      const Picture heat = ReadPng(dir.File("out-f0-" + name + ".png"));
      EXPECT_GT(heat.height, c.height) << name;  // the picture and the legend strip
    }
    // Every tile is raw: the figures say so.
    EXPECT_NE(run.out.find("100.0%    0.0%         0\n"), std::string::npos) << run.out;
  }
}

TEST(InspectCli, PicturesNeverOverwriteTheInput) {
  TempDir dir;
  const std::string input = dir.File("x-f0-decoded.png");
  const Bytes frame = Nv12MetaFrame(19, 19);
  WriteFile(input, frame);
  const ToolRun run = RunInspector({"nv12", input, "64", "16", dir.File("x")});
  EXPECT_EQ(run.status, 1);
  EXPECT_NE(run.err.find("cannot open"), std::string::npos) << run.err;
  EXPECT_EQ(ReadFile(input), frame);
}

}  // namespace
}  // namespace pelcast::inspect::testing
