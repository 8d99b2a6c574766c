// compare on committed real-content frames and copies with a few samples
// changed in chosen tiles:
// exactly those tiles differ, with the samples, largest difference and PSNR
// the changes make; the command's exit status, JSON, frame selection,
// difference pictures and comparison with a linear file.
#include "tools/zpak/compare.h"

#include <gtest/gtest.h>

#include <cmath>

#include "tests/zpak/zpak_test_support.h"

namespace pelcast::zpak::testing {
namespace {

using pelcast::testing::FileExists;
using pelcast::testing::TempDir;
using pelcast::testing::WriteFile;

struct Change {
  uint32_t plane, column, row;
  uint32_t x, y;  // element within the tile
  uint32_t byte;  // within the element
  int delta;      // added; 0: flip the lowest bit of RGB565 green
};

struct ChangeCase {
  std::string name;  // a committed frame
  pelcast_format format;
  uint32_t width, height;
  std::vector<Change> changes;
  // Per plane: the differing tiles, samples and largest difference.
  std::vector<std::tuple<std::vector<uint32_t>, uint64_t, uint32_t>> expected;
};

Bytes Changed(const ChangeCase& c, const Bytes& picture) {
  Bytes out = picture;
  for (const Change& k : c.changes) {
    const TileArea a = AreaOfTile(c.format, c.width, c.height, k.plane, k.column, k.row);
    uint8_t& b = out[ElementOffset(a, k.x, k.y) + k.byte];
    b = static_cast<uint8_t>(k.delta != 0 ? b + k.delta : b ^ 0x20);
  }
  return out;
}

const std::vector<ChangeCase> kChangeCases = {
    // NV12 97x61: luma tiles 4 across, chroma tiles 4 across (16 pairs).
    {"photo-mountains-97x61", PELCAST_FORMAT_NV12, 97, 61,
     {{0, 1, 2, 5, 3, 0, 3}, {0, 1, 2, 6, 3, 0, -2}, {0, 3, 5, 0, 0, 0, 9}, {1, 2, 1, 4, 2, 1, 7}},
     {{{2 * 4 + 1, 5 * 4 + 3}, 3, 9}, {{1 * 4 + 2}, 1, 7}}},
    // RGBA8888 97x61: tiles 7 across; an alpha change counts too.
    {"photo-mountains-97x61", PELCAST_FORMAT_RGBA8888, 97, 61,
     {{0, 2, 1, 1, 1, 3, -40}, {0, 0, 0, 0, 0, 0, 1}}, {{{0, 1 * 7 + 2}, 2, 40}}},
    // RGB565 133x75: tiles 9 across; green moves by one of its 64 steps, 4
    // or 5 in 8 bits (its top bits repeat into the low ones).
    {"screen-navbar-133x75", PELCAST_FORMAT_RGB565, 133, 75, {{0, 3, 1, 2, 2, 0, 0}},
     {{{1 * 9 + 3}, 1, 0}}},
};

TEST(Compare, FindsExactlyTheChangedTiles) {
  for (const ChangeCase& c : kChangeCases) {
    const std::string label = FormatName(c.format);
    const Bytes a = CommittedFrames(c.name, c.format);
    const Bytes b = Changed(c, a);
    const FrameDifference same = CompareFrames(c.format, c.width, c.height, a.data(), a.data());
    const FrameDifference d = CompareFrames(c.format, c.width, c.height, a.data(), b.data());
    EXPECT_TRUE(same.Identical()) << label;
    EXPECT_TRUE(std::isinf(same.WorstPsnr())) << label;
    ASSERT_EQ(d.planes.size(), c.expected.size()) << label;
    for (size_t p = 0; p < d.planes.size(); ++p) {
      const auto& [tiles, samples, largest] = c.expected[p];
      EXPECT_EQ(d.planes[p].tiles, tiles) << label << " plane " << p;
      EXPECT_EQ(d.planes[p].differingTiles, tiles.size()) << label << " plane " << p;
      EXPECT_EQ(d.planes[p].differingSamples, samples) << label << " plane " << p;
      if (largest != 0) {
        EXPECT_EQ(d.planes[p].maxAbsDiff, largest) << label << " plane " << p;
      } else {
        EXPECT_GE(d.planes[p].maxAbsDiff, 4u) << label;
        EXPECT_LE(d.planes[p].maxAbsDiff, 5u) << label;
      }
    }
  }
}

TEST(Compare, PsnrFollowsTheSquaredDifferences) {
  // NV12 97x61 luma: 5917 samples, differences 3, 2 and 9; chroma 2 x 49 x 31.
  const ChangeCase& c = kChangeCases[0];
  const Bytes a = CommittedFrames(c.name, c.format);
  const FrameDifference d = CompareFrames(c.format, c.width, c.height, a.data(), Changed(c, a).data());
  const double luma = 10 * std::log10(255.0 * 255.0 * 97 * 61 / (9 + 4 + 81));
  const double chroma = 10 * std::log10(255.0 * 255.0 * 2 * 49 * 31 / 49);
  EXPECT_NEAR(d.planes[0].Psnr(), luma, 1e-9);
  EXPECT_NEAR(d.planes[1].Psnr(), chroma, 1e-9);
  EXPECT_NEAR(d.WorstPsnr(), std::min(luma, chroma), 1e-9);
}

TEST(Compare, CommandExitsByDifferenceAndDrawsTheDifferingFrames) {
  for (const ChangeCase& c : kChangeCases) {
    const std::string label = FormatName(c.format);
    const Bytes pic0 = CommittedFrames(c.name, c.format);
    const Bytes pic1 = pic0;
    const Bytes z0 = EncodeFrame(c.format, c.width, c.height, pic0);
    const Bytes z1 = EncodeFrame(c.format, c.width, c.height, pic1);
    const Bytes z1changed = EncodeFrame(c.format, c.width, c.height, Changed(c, pic1));
    TempDir dir;
    Bytes a = z0, b = z0, linear = pic0;
    a.insert(a.end(), z1.begin(), z1.end());
    b.insert(b.end(), z1changed.begin(), z1changed.end());
    linear.insert(linear.end(), pic1.begin(), pic1.end());
    WriteFile(dir.File("a.zpak"), a);
    WriteFile(dir.File("b.zpak"), b);
    WriteFile(dir.File("one.zpak"), z0);
    WriteFile(dir.File("a.raw"), linear);
    const std::string f = FormatName(c.format), w = std::to_string(c.width),
                      h = std::to_string(c.height);
    struct Run {
      std::vector<std::string> args;
      int status;
      std::string inOutput;
    };
    const Run runs[] = {
        {{"compare", f, "a.zpak", "a.zpak", w, h}, 0, "2 frames compared, 0 differ: identical"},
        {{"compare", f, "a.zpak", "b.zpak", w, h, "--diff", "d"}, 1, "worst frame 1"},
        {{"compare", f, "a.zpak", "b.zpak", w, h, "--frame", "0"}, 0, "1 frame compared"},
        {{"compare", "--json", f, "a.zpak", "b.zpak", w, h},
         1,
         "{\"frame\": 1, \"identical\": false, \"planes\": [{\"plane\": \"" +
             std::string(c.format == PELCAST_FORMAT_NV12 ? "y" : (c.format == PELCAST_FORMAT_RGB565 ? "rgb565" : "rgba")) +
             "\", \"differing_tiles\": " + std::to_string(std::get<0>(c.expected[0]).size())},
        {{"compare", "--linear", f, "a.zpak", "a.raw", w, h}, 0, ": identical"},
        {{"compare", f, "a.zpak", "one.zpak", w, h}, 1, "1 frame(s) have no counterpart"},
        {{"compare", "--json", f, "one.zpak", "one.zpak", w, h}, 0, "\"psnr\": null"},
    };
    for (const Run& r : runs) {
      const ZpakRun run = RunZpak(r.args, {}, dir.path());
      EXPECT_EQ(run.status, r.status) << label << " " << ::testing::PrintToString(r.args) << run.err;
      EXPECT_NE(run.out.find(r.inOutput), std::string::npos) << label << "\n" << run.out;
    }
    EXPECT_FALSE(FileExists(dir.File("d-f0.png"))) << label;
    const PngPicture picture = ReadPngFile(dir.File("d-f1.png"));
    EXPECT_EQ(picture.width, c.width);
    EXPECT_EQ(picture.height, c.height);
  }
}

}  // namespace
}  // namespace pelcast::zpak::testing
