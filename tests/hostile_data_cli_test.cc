// Metadata bytes of every value over data planes of random bytes, through
// the decode commands. The tile decoder gives a metadata byte only two
// meanings: "raw" (the unit count equals the raw tile's) and, through the
// frame decoder's half-slot rule, "at most 23"; every other difference
// between values is ignored. So the 256 values fall into a few classes that
// must decode identically, and the raw class to the stored bytes.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <string>
#include <vector>

#include "tests/hostile_cli_support.h"
#include "tests/test_support.h"

namespace pelcast::testing {
namespace {

using namespace hostile;

enum class MetaClass { kRaw, kShortCompressed, kCompressed };

// 256-byte tiles: (meta - 15) >> 2 units, raw at 4 units (31 to 34); tiles
// of at most 23 in slots 1 and 2 of every four start half way into the slot.
MetaClass ClassOfFullTile(int meta) {
  if (meta >= 31 && meta <= 34) return MetaClass::kRaw;
  return meta <= 23 ? MetaClass::kShortCompressed : MetaClass::kCompressed;
}

// RGB565 half tiles: raw at 2 units (23 to 26), and 31 is read as 2 units;
// halves always sit at their fixed place.
MetaClass ClassOfHalfTile(int meta) {
  if ((meta >= 23 && meta <= 26) || meta == 31) return MetaClass::kRaw;
  return MetaClass::kCompressed;
}

struct Format {
  char letter;
  std::string width, height;
  size_t frame;                 // bytes of one ZPAK frame
  std::vector<size_t> metaPlanes;  // [start, end) pairs of the metadata planes
  MetaClass (*classOf)(int);
};

// Decodes one frame per value of `metas` in one run: frame i has every
// metadata byte set to metas[i] and the data planes of `data`. Returns the
// decoded frames.
std::vector<Bytes> DecodeWithMetadata(const Format& f, const std::vector<int>& metas,
                                      const Bytes& data) {
  Bytes file;
  for (int meta : metas) {
    Bytes frame = data;
    for (size_t i = 0; i < f.metaPlanes.size(); i += 2) {
      std::fill(frame.begin() + f.metaPlanes[i], frame.begin() + f.metaPlanes[i + 1], meta);
    }
    file.insert(file.end(), frame.begin(), frame.end());
  }
  TempDir dir;
  WriteFile(dir.File("in"), file);
  const RunResult r =
      RunTool({std::string(1, f.letter), "in", "out", f.width, f.height}, dir.path());
  EXPECT_NE(r.output.find(ReadLines(static_cast<int>(metas.size())) + kDecodeEnd),
            std::string::npos)
      << f.letter;
  const Bytes out = ReadFile(dir.File("out"));
  const size_t frameOut = out.size() / metas.size();
  EXPECT_EQ(frameOut * metas.size(), out.size()) << f.letter;
  std::vector<Bytes> frames;
  for (size_t i = 0; i < metas.size(); ++i) {
    frames.emplace_back(out.begin() + i * frameOut, out.begin() + (i + 1) * frameOut);
  }
  return frames;
}

TEST(HostileData, EveryMetadataValueDecodesAsItsClass) {
  const Format formats[] = {
      {'U', "64", "32", 16384, {0, 4096, 8192, 12288}, ClassOfFullTile},
      {'G', "64", "16", 8192, {0, 4096}, ClassOfFullTile},
      {'B', "64", "16", 8192, {0, 4096}, ClassOfHalfTile},
  };
  std::vector<int> everyValue(256);
  for (int meta = 0; meta < 256; ++meta) everyValue[meta] = meta;
  for (const Format& f : formats) {
    const std::vector<Bytes> decoded =
        DecodeWithMetadata(f, everyValue, RandomBytes(f.frame, f.letter));
    ASSERT_EQ(decoded.size(), everyValue.size());
    std::map<MetaClass, int> firstOfClass;
    for (int meta = 0; meta < 256; ++meta) {
      const auto [it, first] = firstOfClass.emplace(f.classOf(meta), meta);
      EXPECT_EQ(decoded[meta], decoded[it->second]) << f.letter << " metadata " << meta;
    }
    // The classes differ (each frame of the run is decoded afresh).
    std::vector<Bytes> distinct;
    for (const auto& [metaClass, meta] : firstOfClass) {
      if (std::find(distinct.begin(), distinct.end(), decoded[meta]) == distinct.end()) {
        distinct.push_back(decoded[meta]);
      }
    }
    EXPECT_EQ(distinct.size(), f.letter == 'B' ? 2u : 3u) << f.letter;
  }
}

TEST(HostileData, RawTilesAreTheStoredBytesInRasterOrder) {
  // G 64 x 16: 4 x 4 tiles of 16 x 4 pixels, raw tiles in micro-block order.
  const Bytes data = RandomBytes(8192, 99);
  Bytes expected;
  for (uint64_t y = 0; y < 16; ++y) {
    for (uint64_t x = 0; x < 64; ++x) {
      const auto at = data.begin() + 4096 + 256 * SlotOf(y / 4, x / 16, 1) +
                      4 * RawElementIndex(x % 16, y % 4, 16);
      expected.insert(expected.end(), at, at + 4);
    }
  }
  const Format g = {'G', "64", "16", 8192, {0, 4096}, ClassOfFullTile};
  const std::vector<int> raw = {31, 32, 33, 34};
  const std::vector<Bytes> decoded = DecodeWithMetadata(g, raw, data);
  for (size_t i = 0; i < raw.size(); ++i) {
    EXPECT_EQ(decoded[i], expected) << "metadata " << raw[i];
  }
}

}  // namespace
}  // namespace pelcast::testing
