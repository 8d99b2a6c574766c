// Every routine of every kernel set this processor runs against its plain
// twin: the tile decoder's kernels, the encoder's lane routines and the raw
// tools' row kernels, on random and extreme inputs, at lengths around the
// vector widths, from misaligned addresses and into outputs wrapped in guard
// bytes. Any difference in a result, an output byte or a guard byte fails.
// Also the dispatch itself: the feature mask and the tables each set gets.
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "common/cpu.h"
#include "decoder/tile_kernels.h"
#include "encoder/lane_kernels.h"
#include "rawtools/raw_kernels.h"
#include "tests/test_support.h"

namespace pelcast::testing {
namespace {

constexpr uint8_t kGuard = 0xA5;
constexpr size_t kGuardBytes = 64;

// Every runnable set but the plain one, whose routines are the twins.
std::vector<KernelSet> VectorSets() {
  std::vector<KernelSet> sets = RunnableKernelSets();
  sets.erase(sets.begin());
  return sets;
}

// A value between guard bytes, every byte (padding included) set to kGuard
// first, so two runs compare byte for byte and stray stores show.
template <typename T>
struct Guarded {
  uint8_t before[kGuardBytes];
  T value;
  uint8_t after[kGuardBytes];
  Guarded() { std::memset(static_cast<void*>(this), kGuard, sizeof *this); }
  bool operator==(const Guarded& other) const {
    return std::memcmp(static_cast<const void*>(this), &other, sizeof *this) == 0;
  }
  bool GuardsIntact() const {
    for (size_t i = 0; i < kGuardBytes; ++i) {
      if (before[i] != kGuard || after[i] != kGuard) return false;
    }
    return true;
  }
};

// Bytes of every kind of content: random, flat, small noise, wrapping ramps,
// 0 and 255 alternating, all 255, and a different amplitude per 4 bytes.
Bytes Content(size_t count, int kind, std::mt19937* rng) {
  Bytes b(count);
  const uint32_t seed = (*rng)();
  for (size_t i = 0; i < count; ++i) {
    const auto r = static_cast<uint8_t>((*rng)());
    switch (kind % 7) {
      case 0:
        b[i] = r;
        break;
      case 1:
        b[i] = static_cast<uint8_t>(seed);
        break;
      case 2:
        b[i] = static_cast<uint8_t>(128 + r % 7 - 3);
        break;
      case 3:
        b[i] = static_cast<uint8_t>(i * (seed % 9 + 1) + seed);
        break;
      case 4:
        b[i] = (i + seed) % 2 != 0 ? 255 : 0;
        break;
      case 5:
        b[i] = 255;
        break;
      default:
        b[i] = static_cast<uint8_t>(100 + r % (1u << ((i / 4 + seed) % 9)));
        break;
    }
  }
  return b;
}

constexpr int kContentKinds = 7;
constexpr int kTrials = 300;

// ---- Dispatch ----

TEST(Dispatch, MasksAreReadAsHexadecimalOrDecimal) {
  struct Case {
    const char* text;
    bool valid;
    uint32_t mask;
  };
  const Case cases[] = {{"0", true, 0},       {"24", true, 24},          {"0x1", true, 1},
                        {"0X1f", true, 0x1f}, {"0xffffffff", true, ~0u}, {"", false, 0},
                        {"0x", false, 0},     {"1f", false, 0},          {"-1", false, 0},
                        {" 3", false, 0},     {"0x100000000", false, 0}, {"4294967296", false, 0}};
  for (const Case& c : cases) {
    uint32_t mask = 12345;
    EXPECT_EQ(ParseCpuMask(c.text, &mask), c.valid) << c.text;
    EXPECT_EQ(mask, c.valid ? c.mask : 12345u) << c.text;
  }
}

TEST(Dispatch, TheEnvironmentMaskOnlyRemovesFeatures) {
  struct Case {
    uint32_t probed;
    const char* text;
    uint32_t features;
  };
  const Case cases[] = {{0x1f, nullptr, 0x1f}, {0x1f, "0", 0},       {0x1f, "0x9", 0x9},
                        {0x1f, "0x100", 0},    {0x01, "0xff", 0x01}, {0x1f, "lots", 0x1f},
                        {0x1f, "", 0x1f},      {0x100, "256", 0x100}};
  for (const Case& c : cases) {
    EXPECT_EQ(MaskedFeatures(c.probed, c.text), c.features) << (c.text ? c.text : "unset");
  }
}

TEST(Dispatch, SetsClimbAndEveryModuleFollowsThem) {
  const auto sets = KernelSets();
  ASSERT_FALSE(sets.empty());
  EXPECT_STREQ(sets[0].name, "plain");
  EXPECT_EQ(sets[0].features, 0u);
  for (size_t i = 1; i < sets.size(); ++i) {
    EXPECT_EQ(sets[i].features & sets[i - 1].features, sets[i - 1].features) << sets[i].name;
  }
  EXPECT_EQ(CpuFeatures() & ~ProbeCpuFeatures(), 0u) << "the mask only removes features";
  EXPECT_STREQ(TileDecodeKernelsFor(0).name, "plain");
  EXPECT_STREQ(LaneKernelsFor(0).name, "plain");
  EXPECT_STREQ(RowKernelsFor(0).name, "plain");
  for (const KernelSet& set : KernelSets()) {
    // A module's table for a set is that set's or a narrower one's.
    bool found = false;
    for (const KernelSet& narrower : KernelSets()) {
      if (std::string(LaneKernelsFor(set.features).name) == narrower.name) found = true;
      if (&narrower == &set) break;
    }
    EXPECT_TRUE(found) << set.name;
  }
  EXPECT_EQ(&ActiveTileDecodeKernels(), &TileDecodeKernelsFor(CpuFeatures()));
  EXPECT_EQ(&ActiveLaneKernels(), &LaneKernelsFor(CpuFeatures()));
  EXPECT_EQ(&ActiveRowKernels(), &RowKernelsFor(CpuFeatures()));
}

// ---- Tile decoder ----

// Streams of every shape: random bytes (any code, streams longer than a
// tile), zero codes after two bytes of header (a constant tile of every
// kind), sparse codes, all ones (the widest codes and largest residuals),
// and repeated code patterns over random residuals.
Bytes DecodeInput(int trial, std::mt19937* rng) {
  Bytes s = Content(kPaddedTileBytes, 0, rng);
  constexpr size_t kCodeBytes = 30;  // the codes of every kind lie in bytes 0-29
  switch (trial % 6) {
    case 1:
      std::fill_n(&s[2], kCodeBytes, 0);
      break;
    case 2:
      for (size_t i = 2; i < kCodeBytes; ++i) s[i] = (*rng)() % 4 == 0 ? s[i] : 0;
      break;
    case 3:
      std::fill(s.begin(), s.end(), 0xFF);
      break;
    case 4: {
      const uint8_t pattern[] = {0x92, 0x24, 0x49};  // the 3-bit code 2 repeated
      for (size_t i = 2; i < kCodeBytes; ++i) s[i] = pattern[i % 3];
      break;
    }
    case 5:
      std::fill(s.begin() + kCodeBytes, s.end(), 0);
      break;
    default:
      break;
  }
  return s;
}

struct TileCanvas {
  Bytes bytes;
  uint8_t* out;
};

// A canvas of guard bytes with room for the tile at `pitch`.
TileCanvas MakeCanvas(TileKind kind, uint64_t pitch) {
  TileCanvas c{Bytes(2 * kGuardBytes + pitch * TileRows(kind), kGuard), nullptr};
  c.out = c.bytes.data() + kGuardBytes;
  return c;
}

// True when nothing but the tile's rows changed on the canvas.
bool OnlyTileWritten(const TileCanvas& c, TileKind kind, uint64_t pitch) {
  Bytes rest = c.bytes;
  for (uint64_t y = 0; y < TileRows(kind); ++y) {
    std::fill_n(&rest[kGuardBytes + y * pitch], TileRowBytes(kind), kGuard);
  }
  return rest == Bytes(rest.size(), kGuard);
}

TEST(Checkasm, TileDecodeRoutines) {
  const TileDecodeKernels& plain = TileDecodeKernelsFor(0);
  std::mt19937 rng(31);
  for (const KernelSet& set : VectorSets()) {
    const TileDecodeKernels& k = TileDecodeKernelsFor(set.features);
    for (size_t kind = 0; kind < kTileKindCount; ++kind) {
      const auto tileKind = static_cast<TileKind>(kind);
      const uint64_t rowBytes = TileRowBytes(tileKind);
      for (const uint64_t pitch : {rowBytes, rowBytes + 7, 2 * rowBytes + 32}) {
        for (int trial = 0; trial < kTrials; ++trial) {
          SCOPED_TRACE(std::string(set.name) + " kind " + std::to_string(kind) + " pitch " +
                       std::to_string(pitch) + " trial " + std::to_string(trial));
          // Exactly the bytes a kernel may read, so a sanitizer sees any
          // read past them.
          const Bytes stream = DecodeInput(trial, &rng);
          if (k.decode[kind] != plain.decode[kind]) {
            TileCanvas want = MakeCanvas(tileKind, pitch);
            TileCanvas got = MakeCanvas(tileKind, pitch);
            const uint32_t wantBits = plain.decode[kind](stream.data(), want.out, pitch);
            const uint32_t gotBits = k.decode[kind](stream.data(), got.out, pitch);
            ASSERT_EQ(gotBits, wantBits);
            ASSERT_EQ(got.bytes, want.bytes);
            ASSERT_TRUE(OnlyTileWritten(got, tileKind, pitch));
          }
          // The streamed routines take 16-byte aligned rows (the canvas's
          // are where the pitch is a multiple of 16).
          const bool aligned = pitch % 16 == 0;
          if (aligned && k.decodeStreamed[kind] != plain.decode[kind]) {
            TileCanvas want = MakeCanvas(tileKind, pitch);
            TileCanvas got = MakeCanvas(tileKind, pitch);
            const uint32_t wantBits = plain.decode[kind](stream.data(), want.out, pitch);
            const uint32_t gotBits = k.decodeStreamed[kind](stream.data(), got.out, pitch);
            k.finishStreaming();
            ASSERT_EQ(gotBits, wantBits) << "streamed";
            ASSERT_EQ(got.bytes, want.bytes) << "streamed";
          }
          const Bytes stored(stream.begin(), stream.begin() + StagedTileBytes(tileKind));
          if (k.expandRaw[kind] != plain.expandRaw[kind]) {
            TileCanvas want = MakeCanvas(tileKind, pitch);
            TileCanvas got = MakeCanvas(tileKind, pitch);
            plain.expandRaw[kind](stored.data(), want.out, pitch);
            k.expandRaw[kind](stored.data(), got.out, pitch);
            ASSERT_EQ(got.bytes, want.bytes);
            ASSERT_TRUE(OnlyTileWritten(got, tileKind, pitch));
          }
          if (aligned && k.expandRawStreamed[kind] != plain.expandRaw[kind]) {
            TileCanvas want = MakeCanvas(tileKind, pitch);
            TileCanvas got = MakeCanvas(tileKind, pitch);
            plain.expandRaw[kind](stored.data(), want.out, pitch);
            k.expandRawStreamed[kind](stored.data(), got.out, pitch);
            k.finishStreaming();
            ASSERT_EQ(got.bytes, want.bytes) << "streamed";
          }
        }
      }
    }
  }
}

// ---- Encoder lane routines ----

constexpr uint32_t kBlockBytes = 64;
constexpr uint32_t kRowSamples = 16;

// Sizings of every kind: the byte lanes', the colour lanes', escapes below
// and above the usual ones.
constexpr LaneSizing kSizings[] = {{7, 8}, {7, 9}, {5, 6}, {2, 8}, {8, 5}, {6, 7}};

// A 16 x 4 block of bytes `pitch` apart at a misaligned address in a buffer
// of its own.
struct Block {
  Bytes buffer;
  const uint8_t* rows;
  size_t pitch;
};

Block MakeBlock(int kind, size_t pitch, size_t offset, uint8_t mask, std::mt19937* rng) {
  Block b{Content(offset + 3 * pitch + kRowSamples, kind, rng), nullptr, pitch};
  for (uint8_t& v : b.buffer) v &= mask;
  b.rows = b.buffer.data() + offset;
  return b;
}

// 16-bit samples below 2^bits, as the colour transform leaves them.
std::vector<int16_t> WideSamples(int kind, int bits, std::mt19937* rng) {
  const Bytes low = Content(kBlockBytes, kind, rng);
  const Bytes high = Content(kBlockBytes, kind + 1, rng);
  std::vector<int16_t> s(kBlockBytes);
  for (uint32_t i = 0; i < kBlockBytes; ++i) {
    s[i] = static_cast<int16_t>((low[i] | high[i] << 8) & ((1 << bits) - 1));
  }
  return s;
}

struct LaneCase {
  int content;
  size_t pitch;
  size_t offset;
  const LaneSizing* sizing;
};

LaneCase MakeLaneCase(int trial) {
  constexpr size_t kPitches[] = {16, 29, 64};
  return LaneCase{trial % kContentKinds, kPitches[trial % 3], static_cast<size_t>(trial % 4),
                  &kSizings[trial % std::size(kSizings)]};
}

void CheckByteLanes(const LaneKernels& plain, const LaneKernels& k, int trial, std::mt19937* rng) {
  const LaneCase c = MakeLaneCase(trial);
  const Block first = MakeBlock(c.content, c.pitch, c.offset, 0xFF, rng);
  const Block second = MakeBlock(c.content + 1, c.pitch, c.offset, 0xFF, rng);
  if (k.byteLane != plain.byteLane) {
    Guarded<LaneResidues> want, got;
    plain.byteLane(first.rows, c.pitch, *c.sizing, &want.value);
    k.byteLane(first.rows, c.pitch, *c.sizing, &got.value);
    EXPECT_TRUE(got == want && got.GuardsIntact()) << "byteLane";
  }
  if (k.byteLanePair != plain.byteLanePair) {
    // The pair's rows share one pitch: the second block follows the first.
    Guarded<LaneResidues> want[2], got[2];
    plain.byteLanePair(first.rows, second.rows, c.pitch, *c.sizing, &want[0].value, &want[1].value);
    k.byteLanePair(first.rows, second.rows, c.pitch, *c.sizing, &got[0].value, &got[1].value);
    for (int i = 0; i < 2; ++i) {
      EXPECT_TRUE(got[i] == want[i] && got[i].GuardsIntact()) << "byteLanePair " << i;
    }
  }
  if (k.exactLane != plain.exactLane) {
    for (int bits : {6, 9, 10}) {
      const std::vector<int16_t> samples = WideSamples(c.content, bits, rng);
      Guarded<LaneResidues> want, got;
      plain.exactLane(samples.data(), *c.sizing, &want.value);
      k.exactLane(samples.data(), *c.sizing, &got.value);
      EXPECT_TRUE(got == want && got.GuardsIntact()) << "exactLane " << bits;
    }
  }
}

void CheckColourAndRgb565(const LaneKernels& plain, const LaneKernels& k, int trial,
                          std::mt19937* rng) {
  const LaneCase c = MakeLaneCase(trial);
  // Components within 5/6/5 bits, and full bytes (which the 5-bit transform
  // must turn away).
  constexpr uint8_t kMasks[3] = {0x1F, 0x3F, 0x1F};
  Block low[3], full[3];
  for (int i = 0; i < 3; ++i) {
    low[i] = MakeBlock(c.content + i, c.pitch, c.offset, kMasks[i], rng);
    full[i] = MakeBlock(c.content + i, c.pitch, c.offset, 0xFF, rng);
  }
  const uint8_t* const lowRows[3] = {low[0].rows, low[1].rows, low[2].rows};
  const uint8_t* const fullRows[3] = {full[0].rows, full[1].rows, full[2].rows};
  if (k.rgb565Lanes != plain.rgb565Lanes) {
    Guarded<LaneResidues[3]> want, got;
    plain.rgb565Lanes(lowRows, c.pitch, want.value);
    k.rgb565Lanes(lowRows, c.pitch, got.value);
    EXPECT_TRUE(got == want && got.GuardsIntact()) << "rgb565Lanes";
  }
  const LaneSizing sizings[3] = {kSizings[0], kSizings[1], kSizings[trial % 3 + 2]};
  for (const uint32_t n : {8u, 5u}) {
    for (const uint8_t* const* rows : {lowRows, fullRows}) {
      if (k.colourTransform != plain.colourTransform) {
        Guarded<ColourSamples> want, got;
        const bool fits = plain.colourTransform(rows, c.pitch, n, &want.value);
        ASSERT_EQ(k.colourTransform(rows, c.pitch, n, &got.value), fits) << "colourTransform";
        EXPECT_TRUE(got.GuardsIntact()) << "colourTransform";
        if (fits) {
          EXPECT_TRUE(got == want) << "colourTransform " << n;
        }
      }
      if (k.colourLanes != plain.colourLanes) {
        Guarded<ColourSamples> want, got;
        Guarded<LaneResidues[3]> wantLanes, gotLanes;
        const bool fits =
            plain.colourLanes(rows, c.pitch, n, sizings, &want.value, wantLanes.value);
        ASSERT_EQ(k.colourLanes(rows, c.pitch, n, sizings, &got.value, gotLanes.value), fits)
            << "colourLanes";
        EXPECT_TRUE(got.GuardsIntact() && gotLanes.GuardsIntact()) << "colourLanes";
        if (fits) {
          EXPECT_TRUE(got == want && gotLanes == wantLanes) << "colourLanes " << n;
        }
      }
    }
  }
}

// Lanes as planning leaves them, each with a coding the encoder gives such a
// lane: byte lanes with raw byte samples and with a low escape, an exact
// lane of 9-bit samples (escaped groups are the writer's), and an RGB565
// direct lane, whose fields always fit its depth, with full-width codes.
struct PackCase {
  LaneResidues lane;
  LaneCoding coding;
};

void CheckPacking(const LaneKernels& plain, const LaneKernels& k, int trial, std::mt19937* rng) {
  const LaneCase c = MakeLaneCase(trial);
  const Block bytes = MakeBlock(c.content, c.pitch, c.offset, 0xFF, rng);
  const Block other = MakeBlock(c.content + 1, c.pitch, c.offset, 0xFF, rng);
  Block rgb565[3];
  constexpr uint8_t kMasks[3] = {0x1F, 0x3F, 0x1F};
  for (int i = 0; i < 3; ++i)
    rgb565[i] = MakeBlock(c.content + i, c.pitch, c.offset, kMasks[i], rng);
  const uint8_t* const rgb565Rows[3] = {rgb565[0].rows, rgb565[1].rows, rgb565[2].rows};
  PackCase cases[4];
  plain.byteLane(bytes.rows, c.pitch, *c.sizing, &cases[0].lane);
  cases[0].coding = {7, 8, 0, bytes.rows, c.pitch};
  plain.byteLane(other.rows, c.pitch, *c.sizing, &cases[1].lane);
  cases[1].coding = {2, 8, 0, other.rows, c.pitch};
  plain.exactLane(WideSamples(c.content, 9, rng).data(), kSizings[1], &cases[2].lane);
  cases[2].coding = {7, 9, 0, nullptr, 0};
  LaneResidues direct[3];
  plain.rgb565Lanes(rgb565Rows, c.pitch, direct);
  const uint32_t component = static_cast<uint32_t>(trial) % 3;
  constexpr uint32_t kDepths[3] = {5, 6, 5};
  cases[3].lane = direct[component];
  cases[3].coding = {kDepths[component], kDepths[component], kDepths[component] + 1, nullptr, 0};
  LanePack packs[4];
  for (uint32_t l = 0; l < 4; ++l) {
    const PackCase& p = cases[(static_cast<uint32_t>(trial) + l) % 4];
    Guarded<LanePack> want, got;
    const uint32_t escaped = plain.packLane(p.lane, p.coding, &want.value);
    packs[l] = want.value;
    if (k.packLane == plain.packLane) continue;
    EXPECT_EQ(k.packLane(p.lane, p.coding, &got.value), escaped) << "packLane " << l;
    EXPECT_TRUE(got == want && got.GuardsIntact()) << "packLane " << l;
  }
  for (const uint32_t count : {3u, 4u}) {
    if (k.packCodes != plain.packCodes) {
      Guarded<uint64_t[4]> want, got;
      plain.packCodes(packs, count, want.value);
      k.packCodes(packs, count, got.value);
      EXPECT_TRUE(got == want && got.GuardsIntact()) << "packCodes " << count;
    }
    if (k.joinGroupFields != plain.joinGroupFields) {
      Guarded<uint64_t[16]> want, got;
      Guarded<uint8_t[16]> wantBits, gotBits;
      plain.joinGroupFields(packs, count, want.value, wantBits.value);
      k.joinGroupFields(packs, count, got.value, gotBits.value);
      EXPECT_TRUE(got == want && gotBits == wantBits && got.GuardsIntact() &&
                  gotBits.GuardsIntact())
          << "joinGroupFields " << count;
    }
  }
}

void CheckSplits(const LaneKernels& plain, const LaneKernels& k, int trial, std::mt19937* rng) {
  const LaneCase c = MakeLaneCase(trial);
  // Rows of 16 pixels of four or two bytes.
  const size_t pitch = 4 * kRowSamples + c.pitch;
  Bytes buffer = Content(c.offset + 3 * pitch + 4 * kRowSamples, c.content, rng);
  const uint8_t* rows = buffer.data() + c.offset;
  if (k.splitQuads != plain.splitQuads) {
    Guarded<uint8_t[4 * kBlockBytes]> want, got;
    plain.splitQuads(rows, pitch, want.value);
    k.splitQuads(rows, pitch, got.value);
    EXPECT_TRUE(got == want && got.GuardsIntact()) << "splitQuads";
  }
  if (k.splitRgb565 != plain.splitRgb565) {
    Guarded<uint8_t[3 * kBlockBytes]> want, got;
    plain.splitRgb565(rows, pitch, want.value);
    k.splitRgb565(rows, pitch, got.value);
    EXPECT_TRUE(got == want && got.GuardsIntact()) << "splitRgb565";
  }
}

TEST(Checkasm, EncoderLaneRoutines) {
  const LaneKernels& plain = LaneKernelsFor(0);
  std::mt19937 rng(47);
  for (const KernelSet& set : VectorSets()) {
    const LaneKernels& k = LaneKernelsFor(set.features);
    for (int trial = 0; trial < kTrials; ++trial) {
      SCOPED_TRACE(std::string(set.name) + " trial " + std::to_string(trial));
      CheckByteLanes(plain, k, trial, &rng);
      CheckColourAndRgb565(plain, k, trial, &rng);
      CheckPacking(plain, k, trial, &rng);
      CheckSplits(plain, k, trial, &rng);
      if (::testing::Test::HasFailure()) return;
    }
  }
}

// ---- Raw tools' row kernels ----

// Around 16-, 32- and 64-byte vectors and their tails, and the 65536-term
// chunks of the squared sums.
constexpr size_t kLengths[] = {0,  1,  7,  15, 16,  17,   31,    32,    33,   63,
                               64, 65, 95, 97, 127, 1000, 65535, 65536, 65537};

TEST(Checkasm, RawRowRoutines) {
  const RowKernelSet& plain = RowKernelsFor(0);
  std::mt19937 rng(53);
  for (const KernelSet& set : VectorSets()) {
    const RowKernelSet& k = RowKernelsFor(set.features);
    for (const size_t count : kLengths) {
      for (const size_t offset : {0, 1, 3}) {
        for (const int content : {0, 4, 5}) {
          SCOPED_TRACE(std::string(set.name) + " count " + std::to_string(count) + " offset " +
                       std::to_string(offset) + " content " + std::to_string(content));
          // Exactly the bytes each routine may read.
          const Bytes a = Content(count + offset, content, &rng);
          const Bytes b = Content(count + offset, content + 1, &rng);
          if (k.interleaveChroma != plain.interleaveChroma) {
            Bytes want(2 * count + 2 * kGuardBytes, kGuard);
            Bytes got = want;
            plain.interleaveChroma(a.data() + offset, b.data() + offset, &want[kGuardBytes], count);
            k.interleaveChroma(a.data() + offset, b.data() + offset, &got[kGuardBytes], count);
            ASSERT_EQ(got, want) << "interleaveChroma";
          }
          if (k.sumSquaredDifference != plain.sumSquaredDifference) {
            ASSERT_EQ(k.sumSquaredDifference(a.data() + offset, b.data() + offset, count),
                      plain.sumSquaredDifference(a.data() + offset, b.data() + offset, count));
          }
          if (k.sumSquares != plain.sumSquares) {
            ASSERT_EQ(k.sumSquares(a.data() + offset, count),
                      plain.sumSquares(a.data() + offset, count));
          }
        }
      }
    }
  }
}

}  // namespace
}  // namespace pelcast::testing
