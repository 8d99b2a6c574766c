// Commands S and R: the average luma PSNR line on hand-worked frames. A
// frame scores 10 log10(w * h * 65025 / error) with an integer quotient and
// an error of 0 counted as 1; 2 x 2 frames have peak term 260100.
#include <gtest/gtest.h>

#include "tests/hostile_cli_support.h"
#include "tests/test_support.h"

namespace pelcast::testing {
namespace {

using hostile::NoFramesLine;

// `frames` copies of `frame` with the given bytes of each copy changed.
using Changes = std::vector<std::vector<std::pair<size_t, uint8_t>>>;  // per frame

Bytes Frames(int frames, const Bytes& frame, const Changes& changes = {}) {
  Bytes all;
  for (int k = 0; k < frames; ++k) {
    Bytes copy = frame;
    if (k < static_cast<int>(changes.size())) {
      for (const auto& [index, value] : changes[k]) copy[index] = value;
    }
    all.insert(all.end(), copy.begin(), copy.end());
  }
  return all;
}

struct PsnrCase {
  std::string name;
  std::vector<std::string> args;  // command letter and numbers; paths are added
  Bytes first;
  Bytes second;
  std::string expected;
};

TEST(RawPsnr, HandWorkedComparisons) {
  const Bytes zeros2x2(6, 0), zeros4x4(24, 0);
  const Bytes frame16 = RandomBytes(384, 1);
  const std::string bufferError = "ERROR: Invalid buffer pointer...Exiting\n";
  const std::vector<PsnrCase> cases = {
      {"identical 16x16: 10 log10(16646400)", {"S", "16", "16"}, frame16, frame16,
       "frame = 1 psnr(avg) = 72.21\n"},
      {"one luma step: 10 log10(260100)", {"S", "2", "2"}, zeros2x2,
       Frames(1, zeros2x2, {{{3, 1}}}), "frame = 1 psnr(avg) = 54.15\n"},
      // 260100 / 195075 truncates to 1: 0.00 dB, not the exact ratio's 1.25.
      {"truncated quotient", {"S", "2", "2"}, zeros2x2,
       Frames(1, zeros2x2, {{{0, 255}, {1, 255}, {2, 255}}}), "frame = 1 psnr(avg) = 0.00\n"},
      {"chroma differences ignored", {"S", "2", "2"}, zeros2x2,
       Frames(1, zeros2x2, {{{4, 200}, {5, 9}}}), "frame = 1 psnr(avg) = 54.15\n"},
      // Errors 1 and 100: (54.1514 + 34.1514) / 2. The second file's third
      // frame has no partner.
      {"two frames averaged, lengths differ", {"S", "2", "2"}, Frames(2, zeros2x2),
       Frames(3, zeros2x2, {{{0, 1}}, {{1, 10}}}), "frame = 2 psnr(avg) = 44.15\n"},
      {"short last frame ends the comparison", {"S", "2", "2"}, Frames(2, zeros2x2, {{{0, 1}}}),
       Bytes(11, 0), "frame = 1 psnr(avg) = 54.15\n"},
      {"R with equal sizes is S", {"R", "2", "2", "2", "2"}, Frames(2, zeros2x2),
       Frames(3, zeros2x2, {{{0, 1}}, {{1, 10}}}), "frame = 2 psnr(avg) = 44.15\n"},
      // 2 x 2 against the top-left of 4 x 4: bytes 0 and 4 (row 1) count,
      // byte 2 lies outside the region. Error 2: 10 log10(130050).
      {"region of larger frames", {"R", "2", "2", "4", "4"}, zeros2x2,
       Frames(1, zeros4x4, {{{0, 1}, {4, 1}, {2, 200}}}), "frame = 1 psnr(avg) = 51.14\n"},
      // 4 x 4 against 2 x 2 frames of six bytes 1: second-frame positions
      // r * 2 + c are 1 below 6 and read 0 past the frame; ten of them are
      // below 6, so error 10 and 10 log10(1040400 / 10).
      {"region larger than the second frame", {"R", "4", "4", "2", "2"}, zeros4x4, Bytes(6, 1),
       "frame = 1 psnr(avg) = 50.17\n"},
      {"empty first file", {"S", "2", "2"}, {}, zeros2x2, NoFramesLine()},
      {"empty second file", {"R", "2", "2", "2", "2"}, zeros2x2, {}, NoFramesLine()},
      {"zero size frames", {"S", "0", "8"}, zeros2x2, zeros2x2, NoFramesLine()},
      {"negative frame size", {"S", "-2", "2"}, zeros2x2, zeros2x2, bufferError},
      {"negative second size", {"R", "2", "2", "2", "-2"}, zeros2x2, zeros2x2, bufferError},
  };
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

}  // namespace
}  // namespace pelcast::testing
