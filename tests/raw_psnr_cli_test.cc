// Commands S and R: the average luma PSNR line, against hand-worked values
// and a per-pixel restatement of the measure.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>

#include "tests/test_support.h"

namespace pelcast::testing {
namespace {

std::string ResultLine(int frames, double average) {
  char line[96];
  std::snprintf(line, sizeof line, "frame = %d psnr(avg) = %.2f\n", frames, average);
  return line;
}

// The line for no frames: 0 / 0 as this machine divides it at run time.
std::string NoFramesLine() {
  volatile double zero = 0.0;
  return ResultLine(0, zero / zero);
}

// Frame k of `a` (w1 x h1 frames) against frame k of `b` (w2 x h2 frames):
// the luma of `a` against the top-left of `b`, bytes past a frame read as 0;
// each frame scores 10 log10 of the integer quotient peak / error.
std::string Measure(const Bytes& a, const Bytes& b, int w1, int h1, int w2, int h2) {
  const size_t f1 = size_t(w1) * h1 * 3 / 2, f2 = size_t(w2) * h2 * 3 / 2;
  int frames = 0;
  double sum = 0;
  for (size_t k = 0; (k + 1) * f1 <= a.size() && (k + 1) * f2 <= b.size(); ++k, ++frames) {
    int64_t error = 0;
    for (int r = 0; r < h1; ++r) {
      for (int c = 0; c < w1; ++c) {
        const size_t ia = size_t(r) * w1 + c, ib = size_t(r) * w2 + c;
        const int va = ia < f1 ? a[k * f1 + ia] : 0;
        const int vb = ib < f2 ? b[k * f2 + ib] : 0;
        error += (va - vb) * (va - vb);
      }
    }
    const int64_t quotient = int64_t{w1} * h1 * 255 * 255 / std::max<int64_t>(error, 1);
    sum += 10 * std::log10(static_cast<double>(quotient));
  }
  return frames == 0 ? NoFramesLine() : ResultLine(frames, sum / frames);
}

struct PsnrCase {
  std::string name;
  std::vector<std::string> args;  // command letter and numbers; paths are added
  Bytes first;
  Bytes second;
  std::string expected;
};

void RunPsnrCases(const std::vector<PsnrCase>& cases) {
  for (const PsnrCase& c : cases) {
    TempDir dir;
    WriteFile(dir.File("a"), c.first);
    WriteFile(dir.File("b"), c.second);
    std::vector<std::string> args = {c.args[0], dir.File("a"), dir.File("b")};
    args.insert(args.end(), c.args.begin() + 1, c.args.end());
    const RunResult r = RunTool(args);
    EXPECT_EQ(r.output, c.expected) << c.name;
    EXPECT_EQ(r.exitStatus, 0);
  }
}

Bytes WithChanges(Bytes bytes, const std::vector<std::pair<size_t, uint8_t>>& changes) {
  for (const auto& [index, value] : changes) bytes[index] = value;
  return bytes;
}

TEST(RawPsnr, HandWorkedValues) {
  const Bytes frame16 = RandomBytes(384, 1);
  const Bytes zeros2x2(6, 0);
  RunPsnrCases({
      // Error 0 counts as 1: 10 log10(16 * 16 * 65025) = 72.21.
      {"identical 16x16", {"S", "16", "16"}, frame16, frame16, "frame = 1 psnr(avg) = 72.21\n"},
      // One luma byte off by 1: 10 log10(4 * 65025 / 1) = 54.15.
      {"one step in 2x2", {"S", "2", "2"}, zeros2x2, WithChanges(zeros2x2, {{3, 1}}),
       "frame = 1 psnr(avg) = 54.15\n"},
      // Error 10 * 10 = 100: quotient 260100 / 100 = 2601, 34.15 dB.
      {"one step of 10 in 2x2", {"S", "2", "2"}, zeros2x2, WithChanges(zeros2x2, {{0, 10}}),
       "frame = 1 psnr(avg) = 34.15\n"},
      // Three bytes off by 255: 260100 / 195075 truncates to 1, so 0.00 dB
      // (not the 1.25 dB of the exact ratio).
      {"truncated quotient", {"S", "2", "2"}, zeros2x2,
       WithChanges(zeros2x2, {{0, 255}, {1, 255}, {2, 255}}), "frame = 1 psnr(avg) = 0.00\n"},
      // Chroma bytes (4 and 5 of a 2x2 frame) are not compared.
      {"chroma differences ignored", {"S", "2", "2"}, zeros2x2, WithChanges(zeros2x2, {{4, 200}, {5, 9}}),
       "frame = 1 psnr(avg) = 54.15\n"},
  });
}

TEST(RawPsnr, SequencesAgainstRestatedMeasure) {
  const Bytes a = RandomBytes(3 * 96, 2), b = RandomBytes(3 * 96, 3);
  const Bytes big1 = RandomBytes(2 * 115200, 4), big2 = RandomBytes(2 * 115200, 5);
  const Bytes near = WithChanges(big1, {{7, 0}, {70000, 255}, {115200 + 9, 1}});
  const Bytes small = RandomBytes(2 * 24, 6), large = RandomBytes(2 * 54, 7);
  RunPsnrCases({
      {"three different frames", {"S", "8", "8"}, a, b, Measure(a, b, 8, 8, 8, 8)},
      {"frames past 65536 pixels", {"S", "320", "240"}, big1, big2, Measure(big1, big2, 320, 240, 320, 240)},
      {"nearly equal large frames", {"S", "320", "240"}, big1, near, Measure(big1, near, 320, 240, 320, 240)},
      {"odd size", {"S", "5", "3"}, a, b, Measure(a, b, 5, 3, 5, 3)},
      {"second file shorter", {"S", "8", "8"}, a, Bytes(b.begin(), b.begin() + 2 * 96 + 50),
       Measure(a, Bytes(b.begin(), b.begin() + 2 * 96), 8, 8, 8, 8)},
      {"first file shorter", {"S", "8", "8"}, Bytes(a.begin(), a.begin() + 96), b,
       Measure(Bytes(a.begin(), a.begin() + 96), b, 8, 8, 8, 8)},
      {"region of larger frames", {"R", "4", "4", "6", "6"}, small, large, Measure(small, large, 4, 4, 6, 6)},
      {"region larger than the second frame reads zeros", {"R", "6", "6", "4", "4"}, large, small,
       Measure(large, small, 6, 6, 4, 4)},
      {"R with equal sizes is S", {"R", "8", "8", "8", "8"}, a, b, Measure(a, b, 8, 8, 8, 8)},
  });
}

TEST(RawPsnr, NoFramesAndFailures) {
  const Bytes frame = RandomBytes(96, 8);
  RunPsnrCases({
      {"empty first file", {"S", "8", "8"}, {}, frame, NoFramesLine()},
      {"empty second file", {"R", "8", "8", "8", "8"}, frame, {}, NoFramesLine()},
      {"zero size frames", {"S", "0", "8"}, frame, frame, NoFramesLine()},
      {"negative frame size", {"S", "-2", "2"}, frame, frame, "ERROR: Invalid buffer pointer...Exiting\n"},
      {"negative second size", {"R", "2", "2", "2", "-2"}, frame, frame,
       "ERROR: Invalid buffer pointer...Exiting\n"},
  });
  TempDir dir;
  WriteFile(dir.File("a"), frame);
  for (const auto& paths : {std::pair{dir.File("a"), dir.File("none")}, std::pair{dir.File("none"), dir.File("a")}}) {
    EXPECT_EQ(RunTool({"S", paths.first, paths.second, "8", "8"}).output,
              "ERROR: Invalid file pointer...Exiting\n");
  }
}

}  // namespace
}  // namespace pelcast::testing
