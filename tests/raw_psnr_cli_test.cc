// Commands S and R: the average luma PSNR line on hand-worked frames, and on
// frames large enough to be read in several bands, with files that end inside
// a frame's luma, inside its chroma and on a frame boundary. A frame scores
// 10 log10(w * h * 65025 / error) with an integer quotient and an error of 0
// counted as 1; 2 x 2 frames have peak term 260100.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>

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

// Runs `args` (the letter, then the numbers) on files holding `a` and `b`.
std::string RunPsnr(const std::vector<std::string>& args, const Bytes& a, const Bytes& b) {
  TempDir dir;
  WriteFile(dir.File("a"), a);
  WriteFile(dir.File("b"), b);
  std::vector<std::string> full = {args[0], dir.File("a"), dir.File("b")};
  full.insert(full.end(), args.begin() + 1, args.end());
  const RunResult r = RunTool(full);
  EXPECT_EQ(r.exitStatus, 0);
  return r.output;
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
      // (2^31 - 1)^2 x 3 / 2 wraps to 1 in 32 bits: eight 1-byte frames, all
      // equal; P = (2^31 - 1)^2 x 255^2 wraps in 64 bits to 4611406738179030529.
      {"sizes of 2^31 - 1", {"R", "2147483647", "2147483647", "2147483647", "2147483647"},
       Bytes(8, 7), Bytes(8, 7), "frame = 8 psnr(avg) = 186.64\n"},
      {"empty first file", {"S", "2", "2"}, {}, zeros2x2, NoFramesLine()},
      {"empty second file", {"R", "2", "2", "2", "2"}, zeros2x2, {}, NoFramesLine()},
      {"zero size frames", {"S", "0", "8"}, zeros2x2, zeros2x2, NoFramesLine()},
      {"negative frame size", {"S", "-2", "2"}, zeros2x2, zeros2x2, bufferError},
      {"negative second size", {"R", "2", "2", "2", "-2"}, zeros2x2, zeros2x2, bufferError},
  };
  for (const PsnrCase& c : cases) {
    EXPECT_EQ(RunPsnr(c.args, c.first, c.second), c.expected) << c.name;
  }
}

struct Size {
  int64_t w, h;
  int64_t Frame() const { return w * h * 3 / 2; }
};

std::string ExpectedLine(const Bytes& a, const Bytes& b, Size first, Size second) {
  int count = 0;
  double sum = 0;
  for (int64_t k = 0; (k + 1) * first.Frame() <= static_cast<int64_t>(a.size()) &&
                      (k + 1) * second.Frame() <= static_cast<int64_t>(b.size());
       ++k) {
    int64_t error = 0;
    for (int64_t r = 0; r < first.h; ++r) {
      for (int64_t c = 0; c < first.w; ++c) {
        const int64_t d = int64_t{a[k * first.Frame() + r * first.w + c]} -
                          int64_t{b[k * second.Frame() + r * second.w + c]};
        error += d * d;
      }
    }
    const int64_t quotient = first.w * first.h * 65025 / (error == 0 ? 1 : error);
    sum += 10 * std::log10(static_cast<double>(quotient));
    ++count;
  }
  // Divided at run time, so that no frames print as the machine's 0 / 0.
  volatile double dividend = sum;
  volatile double divisor = count;
  char line[64];
  std::snprintf(line, sizeof line, "frame = %d psnr(avg) = %.2f\n", count, dividend / divisor);
  return line;
}

// `base` with every byte moved by a small seeded amount (errors vary by frame).
Bytes Nudged(const Bytes& base, uint32_t seed) {
  const Bytes noise = RandomBytes(base.size(), seed);
  Bytes out = base;
  for (size_t i = 0; i < out.size(); ++i) out[i] = static_cast<uint8_t>(out[i] + noise[i] % 5);
  return out;
}

// `frames` random frames of `second`'s size whose top-left region holds the
// luma of `a`'s frames (of `first`'s size), each byte moved a little, so that
// a frame compared at the wrong offset gives a very different error.
Bytes Embedding(const Bytes& a, Size first, Size second, int64_t frames, uint32_t seed) {
  Bytes b = RandomBytes(static_cast<size_t>(frames * second.Frame()), seed);
  const Bytes noise = RandomBytes(b.size(), seed + 1);
  for (int64_t k = 0; k < frames; ++k) {
    for (int64_t r = 0; r < first.h; ++r) {
      for (int64_t c = 0; c < first.w; ++c) {
        const int64_t at = k * second.Frame() + r * second.w + c;
        b[at] = static_cast<uint8_t>(a[k * first.Frame() + r * first.w + c] + noise[at] % 5);
      }
    }
  }
  return b;
}

Bytes Cut(Bytes bytes, size_t length) {
  bytes.resize(length);
  return bytes;
}

struct BandCase {
  std::string name;
  Size first, second;
  Bytes a, b;
};

// The expected line worked out here frame by frame from whole frames:
// squared error over the region, 1 for no error, the integer quotient of
// w1 * h1 * 65025 by it, 10 log10 of that, averaged.
TEST(RawPsnr, BandsMatchTheWholeFrameComparison) {
  // 200 x 500 frames: two bands of luma rows and two pieces of chroma each.
  const Size big{200, 500};
  const int64_t f = big.Frame();
  const Bytes three = RandomBytes(static_cast<size_t>(3 * f), 5);
  const Bytes nudged = Nudged(three, 6);
  const Size region{120, 300};
  // A second frame wider than a band: one row per band.
  const Size narrow{8, 4}, wide{70000, 4};
  const Bytes small = RandomBytes(static_cast<size_t>(3 * region.Frame()), 7);
  const Bytes tiny = RandomBytes(static_cast<size_t>(2 * narrow.Frame()), 8);
  const std::vector<BandCase> cases = {
      {"S, three whole frames", big, big, three, nudged},
      {"S, second file ends inside the third luma", big, big, three,
       Cut(nudged, static_cast<size_t>(2 * f + 50000))},
      {"S, second file ends inside the second chroma", big, big, three,
       Cut(nudged, static_cast<size_t>(f + 120000))},
      {"S, first file ends on a frame boundary", big, big, Cut(three, static_cast<size_t>(2 * f)),
       nudged},
      {"S, first file ends inside the first chroma", big, big,
       Cut(three, static_cast<size_t>(f - 1)), nudged},
      // Errors past 2^32 per frame: every luma byte differs by 255.
      {"S, largest errors", big, big, Bytes(static_cast<size_t>(2 * f), 0),
       Bytes(static_cast<size_t>(2 * f), 255)},
      {"R, region of larger frames", region, big, small, Embedding(small, region, big, 3, 10)},
      {"R, second frame wider than a band", narrow, wide, tiny,
       Embedding(tiny, narrow, wide, 2, 12)},
  };
  for (const BandCase& c : cases) {
    const auto n = [](int64_t v) { return std::to_string(v); };
    const bool same = c.first.w == c.second.w && c.first.h == c.second.h;
    const std::vector<std::string> args =
        same ? std::vector<std::string>{"S", n(c.first.w), n(c.first.h)}
             : std::vector<std::string>{"R", n(c.first.w), n(c.first.h), n(c.second.w),
                                        n(c.second.h)};
    EXPECT_EQ(RunPsnr(args, c.a, c.b), ExpectedLine(c.a, c.b, c.first, c.second)) << c.name;
  }
}

}  // namespace
}  // namespace pelcast::testing
