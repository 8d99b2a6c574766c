// RGB565 tiles without the colour transform: groups of components 0 and 1
// stored raw. The encoder's unit counts against a reference search written
// from the decoder's rules on reconstructed samples, round trips of every
// stored tile, and the search's lower bound against the shortest plans.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "decoder/tile_decoder.h"
#include "encoder/lane_kernels.h"
#include "encoder/rgb565_escapes.h"
#include "encoder/tile_encoder.h"
#include "tests/brute_force_tile.h"
#include "tests/brute_force_tiles.h"

namespace pelcast::testing {
namespace {

using brute::Plane;

constexpr int kFlagBits = 1;
constexpr int kBaseBits = 5 + 6 + 5;
constexpr int kCodeBits = 16 * 3 * 3;
constexpr int kFixedBits = kFlagBits + kBaseBits + kCodeBits;  // 161
constexpr int kUnitBits = 512;
constexpr int kNoPlan = 1 << 20;

// Input components of a raster tile, pixel i = 16 y + x.
struct Components {
  int c[3][64];
};

Components Split(const std::vector<uint8_t>& raster) {
  Components x{};
  for (int i = 0; i < 64; ++i) {
    const int word = raster[2 * i] | raster[2 * i + 1] << 8;
    x.c[0][i] = word & 31;
    x.c[1][i] = (word >> 5) & 63;
    x.c[2][i] = word >> 11;
  }
  return x;
}

std::vector<uint8_t> Pack(const Components& x) {
  std::vector<uint8_t> raster(128);
  for (int i = 0; i < 64; ++i) {
    const int word = x.c[0][i] | x.c[1][i] << 5 | x.c[2][i] << 11;
    raster[2 * i] = static_cast<uint8_t>(word & 0xff);
    raster[2 * i + 1] = static_cast<uint8_t>(word >> 8);
  }
  return raster;
}

int64_t Balance(int64_t v, int64_t m) {
  const int64_t r = brute::Mod(v, m);
  return r >= m / 2 ? r - m : r;
}

int64_t Zig(int64_t d) { return d >= 0 ? 2 * d : -2 * d - 1; }

int GroupFieldBits(int64_t largestField) {
  return 4 * static_cast<int>(std::bit_width(static_cast<uint64_t>(largestField)));
}

// Reference search. The decoder rebuilds each component by the gradient
// prediction (the imaginary line of base values matters for pixel (0, 0)
// only) plus the residual, or takes a raw sample, and packs c0 + 32 c1 +
// 2048 c2 to 16 bits. So, component by component, a predicted sample must
// take the one residual in its field's range that makes the packed pixel
// match modulo 32, 2048 and 65536, and a raw sample the one value in its
// range that does. Groups are taken in stream order with their four options
// (component 0 raw or not, component 1 raw or not; component 2 is never
// raw, which costs what its widest field costs); at group 0 every base of
// components 0 and 1 is tried, and the third base gives pixel (0, 0) a zero
// residual (any residue is reachable). States are the reconstructions of
// the row above and the row so far, the third component modulo 32 (only
// that reaches the packed pixel), kept at their least cost.
class ReferenceSearch {
 public:
  // `plainBases`: only the bases equal to the first samples.
  explicit ReferenceSearch(const Components& x, bool plainBases = false)
      : x_(x), plainBases_(plainBases) {}

  // Fewest field bits of any plan when they fit in `budget`, else kNoPlan.
  int ShortestFields(int budget) {
    ComputeGroupsWithoutEscapes();
    std::map<State, int> states;
    states[State{}] = 0;
    for (int g = 0; g < 16; ++g) {
      std::map<State, int> next;
      for (const auto& [state, cost] : states) Extend(g, state, cost, budget, &next);
      states.swap(next);
    }
    int best = kNoPlan;
    for (const auto& entry : states) best = std::min(best, entry.second);
    return best;
  }

  int mismatches = 0;  // groups without escapes whose cost depended on the path

 private:
  struct State {
    std::array<int64_t, 96> rows{};  // row above, then this row: c0, c1, c2 per pixel
    bool operator<(const State& o) const { return rows < o.rows; }
  };

  int64_t& At(State& s, int row, int x, int c) const { return s.rows[row * 48 + x * 3 + c]; }
  int64_t Get(const State& s, int row, int x, int c) const { return s.rows[row * 48 + x * 3 + c]; }

  // Codes group g of `s` (row 1 is the group's row) under `option` with the
  // given bases; returns its field bits.
  int CodeGroup(int g, int option, int b0, int b1, State* s) const {
    const int y = g / 4;
    int64_t largest[3] = {};
    for (int x = 4 * (g % 4); x < 4 * (g % 4) + 4; ++x) {
      const int i = 16 * y + x;
      const int64_t packed = x_.c[0][i] + 32 * x_.c[1][i] + 2048 * x_.c[2][i];
      int64_t value[3];
      for (int c = 0; c < 3; ++c) {
        int64_t pred = 0;
        if (x == 0 && y == 0) {
          pred = c == 0 ? b0 : c == 1 ? b1 : 0;
        } else if (x == 0) {
          pred = Get(*s, 0, x, c);  // above + B - B
        } else if (y == 0) {
          pred = Get(*s, 1, x - 1, c);  // left + B - B
        } else {
          pred = Get(*s, 1, x - 1, c) + Get(*s, 0, x, c) - Get(*s, 0, x - 1, c);
        }
        const int64_t weightSoFar = c == 0 ? 0 : c == 1 ? value[0] : value[0] + 32 * value[1];
        const int64_t scale = c == 0 ? 1 : c == 1 ? 32 : 2048;
        const int64_t modulus = c == 1 ? 64 : 32;
        const int64_t target = brute::Mod((packed - weightSoFar) / scale, modulus);
        const bool raw = c < 2 && (option >> c & 1);
        if (raw) {
          value[c] = target;
        } else if (c == 2 && x == 0 && y == 0) {
          value[c] = target;  // the third base is chosen so
        } else {
          const int64_t d = Balance(target - pred, modulus);
          value[c] = pred + d;
          largest[c] = std::max(largest[c], Zig(d));
        }
      }
      value[2] = brute::Mod(value[2], 32);
      for (int c = 0; c < 3; ++c) At(*s, 1, x, c) = value[c];
    }
    return ((option & 1) ? 20 : GroupFieldBits(largest[0])) +
           ((option & 2) ? 24 : GroupFieldBits(largest[1])) + GroupFieldBits(largest[2]);
  }

  void Extend(int g, const State& from, int cost, int budget, std::map<State, int>* next) {
    State start = from;
    if (g % 4 == 0 && g > 0) {  // a new row: this row becomes the row above
      for (int k = 0; k < 48; ++k) {
        start.rows[k] = start.rows[48 + k];
        start.rows[48 + k] = 0;
      }
    }
    for (int option = 0; option < 4; ++option) {
      const int bases0 = g == 0 && !(option & 1) ? 32 : 1;
      const int bases1 = g == 0 && !(option & 2) ? 64 : 1;
      for (int b0 = 0; b0 < bases0; ++b0) {
        if (plainBases_ && bases0 > 1 && b0 != x_.c[0][0]) continue;
        for (int b1 = 0; b1 < bases1; ++b1) {
          if (plainBases_ && bases1 > 1 && b1 != x_.c[1][0]) continue;
          State s = start;
          const int bits = CodeGroup(g, option, b0, b1, &s);
          if (option == 0 && g > 0 && bits != withoutEscapes_[g]) ++mismatches;
          const int total = cost + bits;
          if (total + rest_[g + 1] > budget) continue;
          auto it = next->find(s);
          if (it == next->end() || total < it->second) (*next)[s] = total;
        }
      }
    }
  }

  // Costs of the groups without escapes along the plain plan (bases = first
  // samples), and from them the least any plan spends on groups g onward:
  // a group without escapes costs that much (the reference checks it on every
  // path), and an escape alone costs 20 or more. Group 0 counts as 0.
  void ComputeGroupsWithoutEscapes() {
    State s;
    for (int g = 0; g < 16; ++g) {
      if (g % 4 == 0 && g > 0) {
        for (int k = 0; k < 48; ++k) {
          s.rows[k] = s.rows[48 + k];
          s.rows[48 + k] = 0;
        }
      }
      withoutEscapes_[g] = CodeGroup(g, 0, x_.c[0][0], x_.c[1][0], &s);
    }
    rest_[16] = 0;
    for (int g = 15; g >= 0; --g) rest_[g] = rest_[g + 1] + (g == 0 ? 0 : std::min(withoutEscapes_[g], 20));
  }

  Components x_;
  bool plainBases_;
  int withoutEscapes_[16] = {};
  int rest_[17] = {};
};

// Tiles of the kinds where escapes can pay, and where they cannot.
enum class Kind {
  kCarryRows,     // component 0 at 0 / 16 in alternation on some groups, the rest flat
  kCarryColumns,  // component 0 steps of 16 or more down some columns
  kNearEnds,      // every component at or next to 0 or its maximum
  kNoise,         // every sample random
  kSparseSteps,   // a flat tile with a few large steps in every component
};

const char* KindName(Kind k) {
  const char* names[] = {"carry rows", "carry columns", "near ends", "noise", "sparse steps"};
  return names[static_cast<int>(k)];
}

// Integrates residuals of component 2 (modulo 32) from `spikes` of -16 in
// that many groups, the way the hand-built tiles do, so that the tile's
// stream lands near the unit boundary.
void SpikeThirdComponent(int spikes, std::mt19937* rng, Components* x) {
  int residual[64] = {};
  std::vector<int> groups(16);
  for (int g = 0; g < 16; ++g) groups[g] = g;
  std::shuffle(groups.begin(), groups.end(), *rng);
  for (int k = 0; k < spikes; ++k) residual[4 * groups[k] + 1 + static_cast<int>((*rng)() % 3)] = -16;
  for (int i = 0; i < 64; ++i) {
    const int xx = i % 16;
    const int y = i / 16;
    const int a = xx > 0 ? x->c[2][i - 1] : 0;
    const int b = y > 0 ? x->c[2][i - 16] : 0;
    const int c = (xx > 0 && y > 0) ? x->c[2][i - 17] : 0;
    x->c[2][i] = static_cast<int>(brute::Mod(a + b - c + residual[i], 32));
  }
}

std::vector<uint8_t> MakeKindTile(Kind kind, uint32_t seed) {
  std::mt19937 rng(seed * 7919u + static_cast<uint32_t>(kind));
  auto below = [&](int n) { return static_cast<int>(rng() % static_cast<uint32_t>(n)); };
  Components x{};
  const int level1 = 32 + below(32);  // keeps the colour transform out
  for (int i = 0; i < 64; ++i) x.c[1][i] = level1;
  switch (kind) {
    case Kind::kCarryRows: {
      // Component 0 alternates 0, 16 from group column j on, from row r
      // down. Predicted, each alternating group of row r costs 20 bits in
      // component 0 and 8 in component 1 (a carry at every other pixel);
      // raw, 20 and 0; the rows below repeat it at no cost. Each spike costs
      // 20. Counts around 20 (a + s) <= 351 < 28 a + 20 s.
      const int j = below(4);
      const int r = below(4);
      const int alternating = 4 - j;
      for (int y = r; y < 4; ++y) {
        for (int i = 4 * j; i < 16; ++i) x.c[0][16 * y + i] = (i % 2) * 16;
      }
      const int spikes = std::clamp((351 - 24 * alternating) / 20 + below(3) - 1, 0, 16);
      SpikeThirdComponent(spikes, &rng, &x);
      break;
    }
    case Kind::kCarryColumns: {
      for (int col = 0; col < 16; ++col) {
        if (below(3) != 0) continue;
        const int from = below(4);
        const int step = 16 + below(16);
        for (int y = from; y < 4; ++y) x.c[0][16 * y + col] = step;
      }
      const int edge1 = below(2) == 0 ? 63 : level1;  // 63: raw samples carry again
      for (int i = 0; i < 64; ++i) x.c[1][i] = edge1;
      SpikeThirdComponent(6 + below(9), &rng, &x);
      break;
    }
    case Kind::kNearEnds:
      for (int i = 0; i < 64; ++i) {
        for (int c = 0; c < 3; ++c) {
          const int max = c == 1 ? 63 : 31;
          x.c[c][i] = below(2) == 0 ? below(2) : max - below(2);
        }
      }
      break;
    case Kind::kNoise:
      for (int i = 0; i < 64; ++i) {
        x.c[0][i] = below(32);
        x.c[1][i] = below(64);
        x.c[2][i] = below(32);
      }
      break;
    case Kind::kSparseSteps:
      for (int c = 0; c < 3; ++c) {
        const int max = c == 1 ? 63 : 31;
        const int level = below(max + 1);
        for (int i = 0; i < 64; ++i) x.c[c][i] = level;
        for (int k = 0; k < 3; ++k) {
          const int at = below(64);
          for (int i = at; i < 64; i += 16) x.c[c][i] = (level + 10 + below(max - 20)) % (max + 1);
        }
      }
      break;
  }
  return Pack(x);
}

// The shortest colour-transform stream, when the transform can rebuild the
// tile (its second component below 32 everywhere).
int ColourBits(const std::vector<uint8_t>& raster) {
  const Components x = Split(raster);
  for (int v : x.c[1]) {
    if (v >= 32) return kNoPlan;
  }
  const int64_t bits = brute::SearchIndependent(Plane::kRgb565, raster, true);
  return bits >= kNoPlan ? kNoPlan : static_cast<int>(bits);
}

// Tiles per kind; the reference is slow under the sanitizers, so fewer there.
// The bound test searches past the unit, which costs more.
#if defined(__SANITIZE_ADDRESS__)
constexpr uint32_t kSeeds = 6;
constexpr uint32_t kBoundSeeds = 3;
#else
constexpr uint32_t kSeeds = 40;
constexpr uint32_t kBoundSeeds = 24;
#endif

TEST(Rgb565Escapes, UnitsMatchTheReferenceAndTilesDecodeExactly) {
  const Kind kinds[] = {Kind::kCarryRows, Kind::kCarryColumns, Kind::kNearEnds, Kind::kNoise,
                        Kind::kSparseSteps};
  ZpakContext* context = NewContext(kPlaneCases[3]);
  int fitsOnlyWithEscapes = 0;
  for (Kind kind : kinds) {
    for (uint32_t seed = 1; seed <= kSeeds; ++seed) {
      const std::vector<uint8_t> raster = MakeKindTile(kind, seed);
      const std::string name = std::string(KindName(kind)) + " seed " + std::to_string(seed);
      ReferenceSearch reference(Split(raster));
      const int fields = reference.ShortestFields(kUnitBits - kFixedBits);
      EXPECT_EQ(reference.mismatches, 0) << name;
      const int direct = fields == kNoPlan ? kNoPlan : kFixedBits + fields;
      const int shortest = std::min(direct, ColourBits(raster));
      const int64_t withoutEscapes = brute::SearchRgb565Direct(raster);
      if (shortest <= kUnitBits && withoutEscapes > kUnitBits && ColourBits(raster) > kUnitBits) {
        ++fitsOnlyWithEscapes;
      }
      const std::vector<uint8_t> ordered = ToMicroBlocks(Plane::kRgb565, raster);
      uint8_t output[256] = {};
      uint64_t units = 0;
      EncodeZpakTile(context, ordered.data(), output, &units);
      ASSERT_EQ(units, shortest <= kUnitBits ? 1u : 2u) << name;
      uint8_t stored[256] = {};
      std::memcpy(stored, output, units * 64);
      uint8_t decoded[128] = {};
      DecodeTile(context, stored, static_cast<uint32_t>(4 * units + 15), decoded);
      ASSERT_EQ(0, std::memcmp(decoded, raster.data(), raster.size())) << name;
    }
  }
  // The families must reach the case the search is for.
  EXPECT_GT(fitsOnlyWithEscapes, 0);
  ReleaseZpakContext(context);
}

// A tile that fits only when a base starts the carries away from 0 at pixel
// (0, 0). Component 0 steps from 0 to 30 after the first column, a carry of
// -1 that every predicted pixel right of it inherits; the third group of the
// first row alternates 30, 14 (a carry at every other pixel, which makes
// escaping it pay). Component 1 is flat at 43; component 2 has spikes of -16
// in groups 0 to 11 and a residual of 2 in group 12.
std::vector<uint8_t> StartCarryTile() {
  Components x{};
  int residual[64] = {};
  for (int g = 0; g < 12; ++g) residual[4 * g + 1] = -16;
  residual[50] = 2;
  for (int i = 0; i < 64; ++i) {
    const int col = i % 16;
    const int y = i / 16;
    x.c[0][i] = col == 0 ? 0 : (y == 0 && (col == 9 || col == 11)) ? 14 : 30;
    x.c[1][i] = 43;
    const int a = col > 0 ? x.c[2][i - 1] : 0;
    const int b = y > 0 ? x.c[2][i - 16] : 0;
    const int c = (col > 0 && y > 0) ? x.c[2][i - 17] : 0;
    x.c[2][i] = static_cast<int>(brute::Mod(a + b - c + residual[i], 32));
  }
  return Pack(x);
}

TEST(Rgb565Escapes, StartingTheCarriesAtTheFirstPixelCanBeWhatFits) {
  const std::vector<uint8_t> raster = StartCarryTile();
  ReferenceSearch any(Split(raster));
  ReferenceSearch plain(Split(raster), true);
  EXPECT_LE(kFixedBits + any.ShortestFields(kUnitBits - kFixedBits), kUnitBits);
  EXPECT_EQ(plain.ShortestFields(kUnitBits - kFixedBits), kNoPlan);
  ZpakContext* context = NewContext(kPlaneCases[3]);
  const std::vector<uint8_t> ordered = ToMicroBlocks(Plane::kRgb565, raster);
  uint8_t output[256] = {};
  uint64_t units = 0;
  EncodeZpakTile(context, ordered.data(), output, &units);
  ASSERT_EQ(units, 1u);
  uint8_t stored[256] = {};
  std::memcpy(stored, output, 64);
  uint8_t decoded[128] = {};
  DecodeTile(context, stored, 19, decoded);
  EXPECT_EQ(0, std::memcmp(decoded, raster.data(), raster.size()));
  ReleaseZpakContext(context);
}

TEST(Rgb565Escapes, BoundNeverExceedsTheShortestPlan) {
  const Kind kinds[] = {Kind::kCarryRows, Kind::kCarryColumns, Kind::kSparseSteps};
  int compared = 0;
  for (Kind kind : kinds) {
    for (uint32_t seed = 1; seed <= kBoundSeeds; ++seed) {
      const std::vector<uint8_t> raster = MakeKindTile(kind, seed);
      const Components x = Split(raster);
      ReferenceSearch reference(x);
      // A budget a little above the unit, so that tiles the gates must turn
      // away count too.
      const int fields = reference.ShortestFields(kUnitBits + 32 - kFixedBits);
      if (fields == kNoPlan) continue;
      uint8_t planes[3][64];
      for (int c = 0; c < 3; ++c) {
        for (int i = 0; i < 64; ++i) planes[c][i] = static_cast<uint8_t>(x.c[c][i]);
      }
      const uint8_t* planePointers[3] = {planes[0], planes[1], planes[2]};
      LaneResidues direct[3];
      PlainLaneKernels().rgb565Lanes(planePointers, 16, direct);
      const Rgb565Tile tile{planePointers, 16, direct};
      EXPECT_LE(Rgb565ResidualBound(tile), static_cast<uint32_t>(fields))
          << KindName(kind) << " seed " << seed;
      ++compared;
    }
  }
  EXPECT_GT(compared, 0);
}

}  // namespace
}  // namespace pelcast::testing
