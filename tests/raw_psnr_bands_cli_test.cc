// Commands S and R on frames large enough to be read in several bands, with
// files that end inside a frame's luma, inside its chroma and on a frame
// boundary. The expected line is worked out here frame by frame from whole
// frames: squared error over the region, 1 for no error, the integer quotient
// of w1 * h1 * 65025 by it, 10 log10 of that, averaged.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>

#include "tests/test_support.h"

namespace pelcast::testing {
namespace {

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

TEST(RawPsnrBands, MatchesWholeFrameComparison) {
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
    TempDir dir;
    WriteFile(dir.File("a"), c.a);
    WriteFile(dir.File("b"), c.b);
    std::vector<std::string> args = {"R",
                                     dir.File("a"),
                                     dir.File("b"),
                                     std::to_string(c.first.w),
                                     std::to_string(c.first.h),
                                     std::to_string(c.second.w),
                                     std::to_string(c.second.h)};
    if (c.first.w == c.second.w && c.first.h == c.second.h) {
      args = {"S", dir.File("a"), dir.File("b"), std::to_string(c.first.w),
              std::to_string(c.first.h)};
    }
    EXPECT_EQ(RunTool(args).output, ExpectedLine(c.a, c.b, c.first, c.second)) << c.name;
  }
}

}  // namespace
}  // namespace pelcast::testing
