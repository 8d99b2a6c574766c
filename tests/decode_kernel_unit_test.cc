// The specialised tile kernels against the general tile decoder, bit for bit:
// random streams (any code, raw and above-escape groups, colour and alpha
// flags, streams longer than the staged bytes), streams built to reach the
// largest sample values the format allows, constant tiles (every code 0) and
// sparse ones, each also read with other bytes than zeros after the staged
// ones, as a stream decoded where it lies in the frame sees them; the length
// each kernel reports against one counted here; and whole frames (raw and
// constant tiles among them) with clipped edges, short buffers and every
// addressing rule, compared byte for byte and in the context state they
// leave behind. (Real content through every kernel: the frame encoder's
// round trips of the test frames.)
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <vector>

#include "decoder/tile_decoder.h"
#include "tests/bit_writer.h"
#include "tests/codec_test_support.h"
#include "tests/test_support.h"

namespace pelcast::testing {
namespace {

struct KindCase {
  const char* name;
  TileKind kind;
  uint64_t contextFormat, planeIndex;
  size_t rowBytes, rows, storedBytes;
  uint32_t compressedMeta[5];
};

const KindCase kKinds[] = {
    {"RGBA8888", TileKind::kRgba8888, 0, 0, 64, 4, 256, {19, 23, 27, 0, 255}},
    {"luma", TileKind::kNv12Luma, 1, 0, 32, 8, 256, {19, 23, 27, 14, 35}},
    {"chroma", TileKind::kNv12Chroma, 1, 1, 32, 8, 256, {19, 23, 30, 1, 200}},
    {"RGB565", TileKind::kRgb565, 12, 0, 32, 4, 128, {19, 22, 27, 30, 32}},
};

// The kernel tables: all but the general decoder.
std::vector<const TileDecodeKernels*> FastKernels() {
  const std::vector<const TileDecodeKernels*> all = AllTileKernels();
  return std::vector<const TileDecodeKernels*>(all.begin() + 1, all.end());
}

// The general decoder's raster tile for the stored bytes (cut to the kind's
// staged length, then zeros, as the frame decoders stage them).
Bytes ExactTile(const KindCase& k, const Bytes& stored, uint32_t meta) {
  ContextPtr context = MakeContext(k.contextFormat);
  context->planeIndex = k.planeIndex;
  Bytes staged(stored.begin(), stored.begin() + k.storedBytes);
  staged.resize(256, 0);
  Bytes out(256, 0);
  DecodeTile(context.get(), staged.data(), meta, out.data());
  out.resize(k.rowBytes * k.rows);
  return out;
}

struct KernelRun {
  Bytes tile;
  uint32_t bits;
};

// The kernel's tile written at pitch rowBytes + 7 into a buffer of guard
// bytes, from the staged bytes followed by `after` (zeros as the frame
// decoders' copies have, or whatever follows in the frame); checks that no
// guard byte changed.
KernelRun KernelTile(const KindCase& k, const TileDecodeKernels& kernels, const Bytes& stored,
                     const Bytes& after) {
  Bytes padded = after;
  std::copy_n(stored.begin(), k.storedBytes, padded.begin());
  const size_t pitch = k.rowBytes + 7;
  Bytes canvas(pitch * k.rows + 64, 0xA5);
  uint8_t* out = canvas.data() + 32;
  KernelRun run{};
  run.bits = kernels.decode[static_cast<size_t>(k.kind)](padded.data(), out, pitch);
  for (size_t y = 0; y < k.rows; ++y) {
    run.tile.insert(run.tile.end(), out + y * pitch, out + y * pitch + k.rowBytes);
    std::fill_n(out + y * pitch, k.rowBytes, 0xA5);
  }
  EXPECT_EQ(canvas, Bytes(canvas.size(), 0xA5)) << k.name << ": bytes outside the tile written";
  return run;
}

// Component layout of each kind's stream, for building streams by hand.
struct StreamShape {
  bool colourFlag, alphaFlag;
  int bases;
  int sampleBits[4];
  int escape[4];
};

StreamShape ShapeFor(TileKind kind) {
  switch (kind) {
    case TileKind::kRgba8888:
      return {true, true, 4, {8, 8, 8, 8}, {7, 7, 7, 7}};
    case TileKind::kRgb565:
      return {true, false, 3, {5, 6, 5, 0}, {5, 6, 5, 0}};
    default:
      return {false, false, 4, {8, 8, 8, 8}, {7, 7, 7, 7}};
  }
}

// The bits a stream takes, counted field by field from its flags and codes.
uint32_t CountStreamBits(TileKind kind, const Bytes& stored) {
  const StreamShape shape = ShapeFor(kind);
  size_t at = 0;
  auto take = [&](int count) {
    uint32_t value = 0;
    for (int i = 0; i < count; ++i, ++at) value |= uint32_t((stored[at / 8] >> (at % 8)) & 1) << i;
    return value;
  };
  const uint32_t colour = shape.colourFlag ? take(1) : 0;
  const uint32_t constant = shape.alphaFlag ? take(1) : 0;
  int coded[4];
  for (int s = 0; s < 4; ++s) coded[s] = shape.sampleBits[s] + (colour && (s == 1 || s == 2));
  for (int s = 0; s < shape.bases; ++s) at += coded[s];
  const int series = shape.bases - static_cast<int>(constant);
  uint32_t residualBits = 0;
  for (int g = 0; g < 16; ++g) {
    for (int s = 0; s < series; ++s) {
      const int code = static_cast<int>(take(3));
      residualBits += 4 * (code < shape.escape[s] ? code : coded[s]);
    }
  }
  return static_cast<uint32_t>(at) + residualBits;
}

// How a built stream picks each group's code and residuals: any code, the
// extremes below, every code 0 (a constant tile), mostly 0, or any code but
// in block rows that are all 0 (rows that repeat the row above).
enum class Picks { kAnyCode, kExtremes, kFlat, kSparse, kFlatRows };

// A stream of the kind with random flags and bases; codes and residuals as
// `picks` says. kExtremes uses only raw groups of the largest or smallest
// value and groups of the widest predicted residual, all-negative or
// all-positive, which drives the samples towards their largest magnitudes.
Bytes BuildStream(TileKind kind, Picks picks, std::mt19937* rng) {
  const StreamShape shape = ShapeFor(kind);
  BitWriter w;
  const int colour = shape.colourFlag ? int((*rng)() & 1) : 0;
  const int constant = shape.alphaFlag ? int((*rng)() & 1) : 0;
  if (shape.colourFlag) PutBits(&w, colour, 1);
  if (shape.alphaFlag) PutBits(&w, constant, 1);
  int coded[4];
  for (int s = 0; s < 4; ++s) coded[s] = shape.sampleBits[s] + (colour && (s == 1 || s == 2));
  for (int s = 0; s < shape.bases; ++s) PutBits(&w, (*rng)() & ((1u << coded[s]) - 1), coded[s]);
  const int series = shape.bases - constant;
  int codes[16][4];
  const uint32_t flatRows = (*rng)() % 16;  // bit y: block row y has codes 0
  for (int g = 0; g < 16; ++g) {
    for (int s = 0; s < series; ++s) {
      int code = int((*rng)() % 8);
      if (picks == Picks::kFlat || (picks == Picks::kSparse && (*rng)() % 4 != 0)) code = 0;
      if (picks == Picks::kFlatRows && ((flatRows >> (g / 4)) & 1) != 0) code = 0;
      if (picks == Picks::kExtremes) {
        const int widest = std::min(shape.escape[s] - 1, 6);
        code = (*rng)() % 3 == 0 ? shape.escape[s] : ((*rng)() % 4 == 0 ? 7 : widest);
      }
      codes[g][s] = code;
      PutBits(&w, code, 3);
    }
  }
  const bool highRaw = (*rng)() & 1;
  for (int g = 0; g < 16; ++g) {
    for (int s = 0; s < series; ++s) {
      const int code = codes[g][s];
      const int width = code < shape.escape[s] ? code : coded[s];
      const bool raw = code == shape.escape[s];
      const bool negative = (*rng)() % 4 != 0;
      for (int i = 0; i < 4; ++i) {
        uint64_t r = (*rng)() & ((1u << width) - 1);
        if (picks == Picks::kExtremes) {
          const uint64_t all = (1u << width) - 1;
          r = raw ? (highRaw ? all : 0) : (negative ? all : (all & ~uint64_t{1}));
        }
        PutBits(&w, r, width);
      }
    }
  }
  Bytes stream = w.bytes;
  stream.resize(256, 0);
  return stream;
}

TEST(DecodeKernels, RandomAndBuiltTilesMatchTheGeneralDecoder) {
  constexpr Picks kPicks[] = {Picks::kAnyCode, Picks::kExtremes, Picks::kFlat, Picks::kSparse,
                              Picks::kFlatRows};
  std::mt19937 rng(20240611);
  for (const KindCase& k : kKinds) {
    for (const TileDecodeKernels* kernels : FastKernels()) {
      for (int trial = 0; trial < 2000; ++trial) {
        Bytes stored;
        if (trial % 6 == 0) {
          stored = RandomBytes(256, rng());
        } else {
          stored = BuildStream(k.kind, kPicks[trial % 6 - 1], &rng);
        }
        const uint32_t meta = k.compressedMeta[trial % 5];
        ASSERT_FALSE(IsRawTile(k.kind, meta));
        const std::string what =
            std::string(k.name) + " kernel " + kernels->name + " trial " + std::to_string(trial);
        const Bytes exact = ExactTile(k, stored, meta);
        const KernelRun zeros = KernelTile(k, *kernels, stored, Bytes(kPaddedTileBytes, 0));
        ASSERT_EQ(zeros.tile, exact) << what;
        ASSERT_EQ(zeros.bits, CountStreamBits(k.kind, stored)) << what;
        // A stream that ends within the staged bytes does not look past them.
        const KernelRun other =
            KernelTile(k, *kernels, stored, RandomBytes(kPaddedTileBytes, rng()));
        ASSERT_EQ(other.bits, zeros.bits) << what;
        if (zeros.bits <= 8 * k.storedBytes) {
          ASSERT_EQ(other.tile, exact) << what;
        }
      }
    }
  }
}

TEST(DecodeKernels, OnlyTheConfiguredPlanesHaveAKind) {
  struct MatchCase {
    uint64_t configured, contextFormat, planeIndex;
    bool matches;
    TileKind kind;
  };
  const MatchCase cases[] = {
      {0, 0, 0, true, TileKind::kRgba8888},
      {0, 5, 0, true, TileKind::kRgba8888},
      {1, 1, 0, true, TileKind::kNv12Luma},
      {1, 1, 1, true, TileKind::kNv12Chroma},
      {12, 12, 0, true, TileKind::kRgb565},
      {0, 3, 0, false, {}},  // two-byte layout
      {0, 1, 0, false, {}},
      {1, 0, 0, false, {}},  // luma set, RGBA layout
      {1, 1, 2, false, {}},
      {12, 0, 0, false, {}},
      {5, 5, 0, false, {}},
      {0, 0, 1, false, {}},  // set 1 unconfigured
  };
  for (const MatchCase& c : cases) {
    ContextPtr context = MakeContext(c.configured);
    context->contextFormat = c.contextFormat, context->planeIndex = c.planeIndex;
    TileKind kind{};
    ASSERT_EQ(FindTileKind(*context, &kind), c.matches)
        << c.configured << " " << c.contextFormat << " " << c.planeIndex;
    if (c.matches) {
      EXPECT_EQ(kind, c.kind);
    }
  }
  // A parameter changed after configuration sends the plane to the general
  // decoder.
  ContextPtr changed = MakeContext(1);
  changed->planes[0].components[0].escapeCode = 6;
  TileKind kind{};
  EXPECT_FALSE(FindTileKind(*changed, &kind));
}

// ---- Whole frames ----

struct FrameCase {
  const char* name;
  uint64_t contextFormat, surfaceFormat;
  uint64_t alignedWidth, alignedHeight, width, height, stride;
};

// Metadata bytes a random frame draws from: compressed tiles of every unit
// count, raw tiles, short tiles for the half-slot rule, and outliers.
const uint8_t kFrameMeta[] = {19, 23, 27, 31, 0, 22, 24, 34, 255, 19, 23, 27};

struct FrameRun {
  Bytes output;
  Bytes tileBuffers;  // the context's compressed, decoded and staged tile buffers
  uint64_t contextFormat, planeIndex, result;
};

FrameRun RunFrame(const FrameCase& f, Bytes* frame, size_t metaBytes, size_t end, uint64_t alt,
                  const TileDecodeKernels* kernel) {
  ContextPtr context = MakeContext(f.contextFormat);
  FrameRun run{};
  run.output.assign(4 * f.alignedWidth * f.alignedHeight + 4096, 0xEE);
  ZpakConfig c =
      PlaneConfig(f.surfaceFormat, frame->data(), frame->data() + metaBytes, frame->data() + end,
                  run.output.data(), f.alignedWidth, f.alignedHeight, f.width, f.height, f.stride);
  c.uvMetaPlane = frame->data() + frame->size() / 2;
  c.uvDataOffset = frame->size() / 2;
  c.altAddressing = alt;
  run.result = RunDecoder(context.get(), c, kernel);
  for (const uint8_t* b :
       {context->compressedTileBuffer, context->decodedTileBuffer, context->stagedTileBuffer}) {
    run.tileBuffers.insert(run.tileBuffers.end(), b, b + 256);
  }
  run.contextFormat = context->contextFormat, run.planeIndex = context->planeIndex;
  return run;
}

TEST(DecodeKernels, RandomFramesMatchTheGeneralDecoder) {
  const FrameCase cases[] = {
      {"RGBA8888", 0, 3, 128, 32, 128, 32, 512},
      {"RGBA8888 narrow", 0, 3, 64, 16, 48, 13, 256},
      {"NV12", 1, 1, 256, 64, 256, 64, 256},
      {"NV12 odd", 1, 1, 128, 64, 97, 43, 128},
      {"NV12 tiny", 1, 1, 128, 32, 33, 9, 128},
      {"RGB565", 12, 12, 256, 32, 256, 32, 512},
      {"RGB565 odd columns", 12, 12, 128, 16, 80, 15, 256},
  };
  std::mt19937 rng(99);
  for (const FrameCase& f : cases) {
    for (int trial = 0; trial < 6; ++trial) {
      // One metadata plane of 4096 bytes, then the data plane; the chroma
      // planes start half way.
      const size_t metaBytes = 4096;
      Bytes frame = RandomBytes(2 * (metaBytes + 65536), rng());
      for (size_t i = 0; i < metaBytes; ++i) {
        frame[i] = kFrameMeta[rng() % sizeof kFrameMeta];
        frame[frame.size() / 2 + i] = kFrameMeta[rng() % sizeof kFrameMeta];
      }
      // Every third half slot starts a constant tile of any kind: two bytes
      // of flags and base values, then 30 zero bytes where the codes lie.
      for (size_t at = metaBytes; at + 32 <= frame.size(); at += 3 * 128) {
        if (at >= frame.size() / 2 && at < frame.size() / 2 + metaBytes) continue;
        std::fill_n(&frame[at + 2], 30, 0);
      }
      // Odd trials end the buffer inside the first data plane's tiles (the
      // rest reads as zeros); trial 5 takes every tile as stored uncompressed.
      const size_t end = trial % 2 == 1 ? metaBytes + 3000 * trial + 37 : frame.size();
      const uint64_t alt = trial == 5 ? 1 : 0;
      const FrameRun exact = RunFrame(f, &frame, metaBytes, end, alt, nullptr);
      for (const TileDecodeKernels* kernel : FastKernels()) {
        const FrameRun fast = RunFrame(f, &frame, metaBytes, end, alt, kernel);
        const std::string what =
            std::string(f.name) + " kernel " + kernel->name + " trial " + std::to_string(trial);
        ASSERT_EQ(fast.output, exact.output) << what;
        EXPECT_EQ(fast.tileBuffers, exact.tileBuffers) << what;
        EXPECT_EQ(fast.contextFormat, exact.contextFormat) << what;
        EXPECT_EQ(fast.planeIndex, exact.planeIndex) << what;
        EXPECT_EQ(fast.result, exact.result) << what;
      }
    }
  }
}

}  // namespace
}  // namespace pelcast::testing
