// The tile encoder's lane routines: the plain ones against residuals, fields
// and widths worked out here from the gradient predictor's definition, on
// made-up blocks and blocks of the committed real-content frames (every
// vector set against the plain one: checkasm_unit_test.cc). Also the bit
// writer at the end of its buffer.
// (The colour transform, RGB565 carries, packing and splits of the active set
// are checked end to end by the tile encoder's round trips.)
#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <string>
#include <vector>

#include "encoder/bit_writer.h"
#include "encoder/lane_kernels.h"
#include "tests/test_support.h"

namespace pelcast::testing {
namespace {

constexpr int kWidth = 16;
constexpr int kRows = 4;
constexpr int kSamples = 64;
constexpr int kGroups = 16;

using Block = std::array<uint8_t, kSamples>;

struct Lcg {
  uint32_t state;
  uint32_t Next() {
    state = state * 1664525u + 1013904223u;
    return state >> 8;
  }
};

// Byte blocks of every kind of content: flat, noise, small noise, wrapping
// ramps, the two extremes side by side, and each group's own amplitude.
std::vector<Block> MadeUpBlocks() {
  std::vector<Block> blocks;
  Lcg rng{7};
  for (int kind = 0; kind < 6; ++kind) {
    for (int n = 0; n < 40; ++n) {
      Block b{};
      for (int i = 0; i < kSamples; ++i) {
        const int x = i % kWidth;
        const int y = i / kWidth;
        const int amplitude = 1 << ((i / 4 + n) % 9);  // 1 .. 256 by group
        switch (kind) {
          case 0: b[i] = static_cast<uint8_t>(n * 37); break;
          case 1: b[i] = static_cast<uint8_t>(rng.Next()); break;
          case 2: b[i] = static_cast<uint8_t>(128 + rng.Next() % 7 - 3); break;
          case 3: b[i] = static_cast<uint8_t>(x * (n + 1) + y * 29 + n); break;
          case 4: b[i] = ((x + y + n) % 2) != 0 ? 255 : 0; break;
          default: b[i] = static_cast<uint8_t>(100 + rng.Next() % amplitude); break;
        }
      }
      blocks.push_back(b);
    }
  }
  return blocks;
}

// 16 x 4 blocks cut from the plane of `rows` rows of `rowBytes` bytes at
// `offset` in `file`, at steps that are no multiple of the tile or pixel
// sizes, so blocks straddle both.
void CutBlocks(const Bytes& file, size_t offset, size_t rowBytes, size_t rows,
               std::vector<Block>* blocks) {
  if (file.size() < offset + rowBytes * rows) {
    ADD_FAILURE() << "test frame of " << file.size() << " bytes is too short";
    return;
  }
  const uint8_t* plane = file.data() + offset;
  for (size_t y = 0; y + kRows <= rows; y += 17) {
    for (size_t x = 0; x + kWidth <= rowBytes; x += 61) {
      Block b{};
      for (int r = 0; r < kRows; ++r) {
        std::memcpy(&b[r * kWidth], &plane[(y + r) * rowBytes + x], kWidth);
      }
      blocks->push_back(b);
    }
  }
}

// Made-up blocks, then blocks of every committed crop: its NV12 luma and
// interleaved chroma planes, its RGBA8888 and its RGB565 rows.
std::vector<Block> AllBlocks() {
  std::vector<Block> blocks = MadeUpBlocks();
  for (const TestFrame& f : kTestFrames) {
    const std::string base = TestDataDir() + "/" + f.name;
    const size_t w = f.width, h = f.height;
    const Bytes nv12 = ReadFile(base + ".nv12");
    CutBlocks(nv12, 0, w, h, &blocks);
    CutBlocks(nv12, w * h, 2 * ((w + 1) / 2), (h + 1) / 2, &blocks);
    CutBlocks(ReadFile(base + ".rgba"), 0, 4 * w, h, &blocks);
    CutBlocks(ReadFile(base + ".rgb565"), 0, 2 * w, h, &blocks);
  }
  return blocks;
}

// Gradient prediction with the imaginary line of base values around the block.
int64_t Predict(const int64_t* s, int x, int y, int64_t base) {
  const int64_t a = x > 0 ? s[y * kWidth + x - 1] : base;
  const int64_t b = y > 0 ? s[(y - 1) * kWidth + x] : base;
  const int64_t c = (x > 0 && y > 0) ? s[(y - 1) * kWidth + x - 1] : base;
  return a + b - c;
}

uint32_t ZigZagOf(int64_t r) { return static_cast<uint32_t>(r >= 0 ? 2 * r : -2 * r - 1); }

uint32_t BitLength(uint32_t v) {
  uint32_t n = 0;
  for (; v != 0; v >>= 1) ++n;
  return n;
}

// What a lane must hold for the exact residuals `r` (zig-zag fields
// saturated at 255 in bytes, widths from the unsaturated ones), and its size:
// a 3-bit code per group, then four fields of the group's width, or of the
// coded width from the escape on.
LaneResidues ExpectedLane(const int64_t* r, const LaneSizing& sizing) {
  LaneResidues lane{};
  lane.bits = 0;
  for (int g = 0; g < kGroups; ++g) {
    uint32_t all = 0;
    for (int i = 4 * g; i < 4 * g + 4; ++i) {
      const uint32_t z = ZigZagOf(r[i]);
      all |= z;
      lane.zig[i] = static_cast<uint8_t>(z < 255 ? z : 255);
    }
    lane.width[g] = static_cast<uint8_t>(BitLength(all));
    lane.bits += 3 + 4 * (lane.width[g] < sizing.escape ? lane.width[g] : sizing.codedBits);
  }
  return lane;
}

void ExpectSameLane(const LaneResidues& a, const LaneResidues& b, const std::string& what) {
  EXPECT_EQ(0, std::memcmp(a.zig, b.zig, sizeof a.zig)) << what;
  EXPECT_EQ(0, std::memcmp(a.width, b.width, sizeof a.width)) << what;
  EXPECT_EQ(a.bits, b.bits) << what;
}

// Sizings of every kind: the byte lanes', the colour lanes', escapes below
// and above the usual ones.
constexpr LaneSizing kSizings[] = {{7, 8}, {7, 9}, {5, 6}, {2, 8}, {8, 5}};

// Residuals modulo 256 as the representatives in [-128, 127].
LaneResidues ExpectedByteLane(const Block& b, const LaneSizing& sizing) {
  int64_t s[kSamples];
  int64_t r[kSamples];
  for (int i = 0; i < kSamples; ++i) s[i] = b[i];
  for (int i = 0; i < kSamples; ++i) {
    const int64_t d = (s[i] - Predict(s, i % kWidth, i / kWidth, s[0])) & 0xff;
    r[i] = d >= 128 ? d - 256 : d;
  }
  return ExpectedLane(r, sizing);
}

LaneResidues ExpectedExactLane(const int16_t* samples, const LaneSizing& sizing) {
  int64_t s[kSamples];
  int64_t r[kSamples];
  for (int i = 0; i < kSamples; ++i) s[i] = samples[i];
  for (int i = 0; i < kSamples; ++i) r[i] = s[i] - Predict(s, i % kWidth, i / kWidth, s[0]);
  return ExpectedLane(r, sizing);
}

// 16-bit samples below 2^bits made from a byte block and a second one.
std::vector<int16_t> WideSamples(const Block& a, const Block& b, int bits) {
  std::vector<int16_t> s(kSamples);
  for (int i = 0; i < kSamples; ++i) s[i] = static_cast<int16_t>((a[i] | b[i] << 8) & ((1 << bits) - 1));
  return s;
}

TEST(EncodeKernels, PlainResiduesFollowTheGradientPredictor) {
  const LaneKernels& plain = PlainLaneKernels();
  const std::vector<Block> blocks = AllBlocks();
  for (size_t n = 0; n < blocks.size(); ++n) {
    const LaneSizing& sizing = kSizings[n % std::size(kSizings)];
    LaneResidues got;
    plain.byteLane(blocks[n].data(), kWidth, sizing, &got);
    ExpectSameLane(got, ExpectedByteLane(blocks[n], sizing), "byte lane, block " + std::to_string(n));
    for (int bits : {6, 9, 10}) {
      const std::vector<int16_t> s = WideSamples(blocks[n], blocks[(n + 1) % blocks.size()], bits);
      plain.exactLane(s.data(), sizing, &got);
      ExpectSameLane(got, ExpectedExactLane(s.data(), sizing),
                     "exact lane, " + std::to_string(bits) + " bits, block " + std::to_string(n));
    }
  }
}

// Fields appended near the end of the buffer: every bit lands where the
// reader takes it, and nothing is written past the capacity.
TEST(EncodeKernels, BitWriterKeepsToItsCapacity) {
  struct Case {
    size_t capacity;
    std::vector<uint32_t> widths;
  };
  const Case cases[] = {{3, {7, 9, 8}}, {8, {56, 8}}, {9, {1, 56, 7, 8}}, {16, {33, 31, 20, 44}}};
  for (const Case& c : cases) {
    uint8_t buffer[64];
    std::memset(buffer, 0xa5, sizeof buffer);
    TileBitWriter writer = MakeTileBitWriter(buffer, c.capacity);
    Lcg rng{static_cast<uint32_t>(c.capacity)};
    std::vector<uint64_t> values;
    for (uint32_t w : c.widths) {
      const uint64_t v = (uint64_t{rng.Next()} << 32 | rng.Next()) & ((uint64_t{1} << w) - 1);
      values.push_back(v);
      WriteBits(&writer, v, w);
    }
    size_t bit = 0;
    for (size_t k = 0; k < values.size(); ++k) {
      uint64_t read = 0;
      for (uint32_t i = 0; i < c.widths[k]; ++i, ++bit) {
        read |= uint64_t{static_cast<uint64_t>(buffer[bit / 8] >> (bit % 8)) & 1} << i;
      }
      EXPECT_EQ(read, values[k]) << "capacity " << c.capacity << " field " << k;
    }
    EXPECT_EQ(WrittenBytes(writer), (bit + 7) / 8);
    for (size_t i = c.capacity; i < sizeof buffer; ++i) {
      ASSERT_EQ(buffer[i], 0xa5) << "capacity " << c.capacity << " byte " << i;
    }
  }
}

}  // namespace
}  // namespace pelcast::testing
