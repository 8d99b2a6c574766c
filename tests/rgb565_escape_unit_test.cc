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

constexpr int kFixedBits = 1 + (5 + 6 + 5) + 16 * 3 * 3;  // flag, bases, codes
constexpr int kUnitBits = 512;
constexpr int kNoPlan = 1 << 20;

// Components of a raster tile, pixel i = 16 y + x.
using Components = std::array<std::array<int, 64>, 3>;

Components Split(const std::vector<uint8_t>& raster) {
  Components x{};
  for (int i = 0; i < 64; ++i) {
    const int word = raster[2 * i] | raster[2 * i + 1] << 8;
    x[0][i] = word & 31;
    x[1][i] = (word >> 5) & 63;
    x[2][i] = word >> 11;
  }
  return x;
}

std::vector<uint8_t> Pack(const Components& x) {
  std::vector<uint8_t> raster(128);
  for (int i = 0; i < 64; ++i) {
    const int word = x[0][i] | x[1][i] << 5 | x[2][i] << 11;
    raster[2 * i] = static_cast<uint8_t>(word & 0xff);
    raster[2 * i + 1] = static_cast<uint8_t>(word >> 8);
  }
  return raster;
}

// Component 2 integrated from `residual` under the gradient predictor, base 0.
void IntegrateThird(const int* residual, Components* x) {
  for (int i = 0; i < 64; ++i) {
    const int col = i % 16;
    const int y = i / 16;
    const int a = col > 0 ? (*x)[2][i - 1] : 0;
    const int b = y > 0 ? (*x)[2][i - 16] : 0;
    const int c = (col > 0 && y > 0) ? (*x)[2][i - 17] : 0;
    (*x)[2][i] = static_cast<int>(brute::Mod(a + b - c + residual[i], 32));
  }
}

int FieldBits(int64_t d) {  // four zig-zag fields as wide as that of d
  const uint64_t zig = d >= 0 ? 2 * d : -2 * d - 1;
  return 4 * static_cast<int>(std::bit_width(zig));
}

// Reference search. The decoder rebuilds each component by the gradient
// prediction (the imaginary line of base values matters at pixel (0, 0)
// only) plus the residual, or takes a raw sample, and packs c0 + 32 c1 +
// 2048 c2 to 16 bits. So, component by component, a predicted sample takes
// the one residual in its field's range that makes the packed pixel match
// modulo 32, 2048 and 65536, and a raw sample the one value that does.
// Groups go in stream order with their four options (component 2 is never
// raw: that costs what its widest field costs); at group 0 every base of
// components 0 and 1 is tried, and the third base gives pixel (0, 0) a zero
// residual. States are the reconstructions of the row above and the row so
// far (component 2 modulo 32, all that reaches the packed pixel), kept at
// their least cost; a path is dropped once even 20 bits (the cheapest
// escape) or the cost without escapes, whichever is less, for each group
// left would pass the budget.
class ReferenceSearch {
 public:
  ReferenceSearch(const Components& x, bool plainBasesOnly) : x_(x), plain_(plainBasesOnly) {
    Rows s{};
    for (int g = 0; g < 16; ++g) withoutEscapes_[g] = CodeGroup(g, 0, x[0][0], x[1][0], NewRow(g, &s));
    for (int g = 15; g >= 0; --g) rest_[g] = rest_[g + 1] + (g > 0 ? std::min(withoutEscapes_[g], 20) : 0);
  }

  // Fewest field bits of any plan when they fit in `budget`, else kNoPlan.
  int ShortestFields(int budget) {
    std::map<Rows, int> states{{Rows{}, 0}};
    for (int g = 0; g < 16; ++g) {
      std::map<Rows, int> next;
      for (const auto& [from, cost] : states) {
        for (int option = 0; option < 4; ++option) {
          const bool free0 = g == 0 && !(option & 1) && !plain_;
          const bool free1 = g == 0 && !(option & 2) && !plain_;
          for (int b0 = free0 ? 0 : x_[0][0]; b0 <= (free0 ? 31 : x_[0][0]); ++b0) {
            for (int b1 = free1 ? 0 : x_[1][0]; b1 <= (free1 ? 63 : x_[1][0]); ++b1) {
              Rows s = from;
              const int total = cost + CodeGroup(g, option, b0, b1, NewRow(g, &s));
              // A group without escapes must cost the same on every path.
              if (option == 0 && g > 0 && total - cost != withoutEscapes_[g]) ++mismatches;
              if (total + rest_[g + 1] > budget) continue;
              auto [it, added] = next.emplace(s, total);
              if (!added) it->second = std::min(it->second, total);
            }
          }
        }
      }
      states.swap(next);
    }
    int best = kNoPlan;
    for (const auto& entry : states) best = std::min(best, entry.second);
    return best;
  }

  int mismatches = 0;

 private:
  using Rows = std::array<int64_t, 2 * 16 * 3>;  // row above, this row: c0, c1, c2 per pixel

  static Rows* NewRow(int g, Rows* s) {
    if (g % 4 == 0 && g > 0) {
      std::copy(s->begin() + 48, s->end(), s->begin());
      std::fill(s->begin() + 48, s->end(), 0);
    }
    return s;
  }

  int CodeGroup(int g, int option, int b0, int b1, Rows* s) const {
    auto at = [&](int row, int x, int c) -> int64_t& { return (*s)[row * 48 + x * 3 + c]; };
    const int y = g / 4;
    int bits[3] = {(option & 1) ? 20 : 0, (option & 2) ? 24 : 0, 0};
    for (int x = 4 * (g % 4); x < 4 * (g % 4) + 4; ++x) {
      const int i = 16 * y + x;
      const int64_t packed = x_[0][i] + 32 * x_[1][i] + 2048 * x_[2][i];
      int64_t v[3];
      for (int c = 0; c < 3; ++c) {
        const int64_t modulus = c == 1 ? 64 : 32;
        const int64_t below = c == 0 ? 0 : c == 1 ? v[0] : v[0] + 32 * v[1];
        const int64_t target = brute::Mod((packed - below) / (c == 0 ? 1 : c == 1 ? 32 : 2048), modulus);
        int64_t pred = x == 0 && y == 0 ? (c == 0 ? b0 : c == 1 ? b1 : target)
                       : x == 0         ? at(0, x, c)  // above + B - B
                       : y == 0         ? at(1, x - 1, c)
                                        : at(1, x - 1, c) + at(0, x, c) - at(0, x - 1, c);
        if (c < 2 && (option >> c & 1)) {
          v[c] = target;
        } else {
          const int64_t d = brute::Mod(target - pred + modulus / 2, modulus) - modulus / 2;
          v[c] = pred + d;
          bits[c] = std::max(bits[c], FieldBits(d));
        }
      }
      v[2] = brute::Mod(v[2], 32);
      for (int c = 0; c < 3; ++c) at(1, x, c) = v[c];
    }
    return bits[0] + bits[1] + bits[2];
  }

  Components x_;
  bool plain_;
  int withoutEscapes_[16] = {};
  int rest_[17] = {};
};

enum class Kind { kCarryRows, kCarryColumns, kSecondCarryRows };

// Tiles near the unit boundary with carries in component 0 or 1. The second
// component stays at 32 or more somewhere, which keeps the colour transform
// out.
std::vector<uint8_t> MakeKindTile(Kind kind, uint32_t seed) {
  std::mt19937 rng(seed * 7919u + static_cast<uint32_t>(kind));
  auto below = [&](int n) { return static_cast<int>(rng() % static_cast<uint32_t>(n)); };
  Components x{};
  const int level1 = 32 + below(32);
  int spikes = 0;
  for (int i = 0; i < 64; ++i) x[1][i] = level1;
  if (kind == Kind::kCarryRows) {
    // Component 0 alternates 0, 16 from group column j on, from row r down.
    // Each alternating group of row r costs 20 + 8 bits predicted (a carry at
    // every other pixel) and 20 raw; each spike of -16 in component 2, 20.
    const int j = below(4);
    const int r = below(4);
    for (int i = 16 * r + 4 * j; i < 64; ++i) x[0][i] = i % 16 >= 4 * j ? (i % 2) * 16 : 0;
    spikes = std::clamp((351 - 24 * (4 - j)) / 20 + below(3) - 1, 0, 16);
  } else if (kind == Kind::kSecondCarryRows) {
    // The same with component 1 alternating by 32 (a carry into component 2
    // at every other pixel: 24 + 8 bits predicted, 24 raw), after a step of
    // component 0 from 0 to 30 past column 0 in half the tiles, which leaves
    // k0 = -1 under the raw samples (16 more bits in group 0).
    const int j = below(4);
    const int r = below(4);
    const bool step = below(2) == 0;
    for (int i = 0; i < 64; ++i) x[0][i] = step && i % 16 > 0 ? 30 : 0;
    for (int i = 16 * r + 4 * j; i < 64; ++i) {
      if (i % 16 >= 4 * j) x[1][i] = level1 ^ ((i % 2) * 32);
    }
    spikes = std::clamp((351 - (step ? 16 : 0) - 28 * (4 - j)) / 20 + below(3) - 1, 0, 16);
  } else {
    for (int col = 0; col < 16; ++col) {
      if (below(3) != 0) continue;
      const int step = 16 + below(16);
      for (int i = 16 * below(4) + col; i < 64; i += 16) x[0][i] = step;
    }
    if (below(2) == 0) x[1].fill(63);  // raw samples carry again
    spikes = 6 + below(9);
  }
  int residual[64] = {};
  for (int g = 0; g < spikes; ++g) residual[4 * g + 1 + below(3)] = -16;
  IntegrateThird(residual, &x);
  return Pack(x);
}

// Encodes `raster`, checks the stored tile decodes to it, returns its units.
uint64_t EncodeAndCheck(ZpakContext* context, const std::vector<uint8_t>& raster,
                        const std::string& name) {
  const std::vector<uint8_t> ordered = ToMicroBlocks(Plane::kRgb565, raster);
  uint8_t output[256] = {};
  uint64_t units = 0;
  EncodeZpakTile(context, ordered.data(), output, &units);
  uint8_t stored[256] = {};
  std::memcpy(stored, output, std::min<uint64_t>(units, 2) * 64);
  uint8_t decoded[128] = {};
  DecodeTile(context, stored, static_cast<uint32_t>(4 * units + 15), decoded);
  EXPECT_EQ(0, std::memcmp(decoded, raster.data(), raster.size())) << name;
  return units;
}

#if defined(__SANITIZE_ADDRESS__)  // the reference is slow under the sanitizers
constexpr uint32_t kSeeds = 6;
#else
constexpr uint32_t kSeeds = 40;
#endif

// Units, round trips, and the bound: the reference looks a little past the
// unit, so that tiles the gates must turn away check the bound too.
TEST(Rgb565Escapes, UnitsMatchTheReferenceAndTheBoundNeverExceedsIt) {
  ZpakContext* context = NewContext(kPlaneCases[3]);
  int fitsOnlyWithEscapes = 0;
  for (Kind kind : {Kind::kCarryRows, Kind::kCarryColumns, Kind::kSecondCarryRows}) {
    for (uint32_t seed = 1; seed <= kSeeds; ++seed) {
      const std::vector<uint8_t> raster = MakeKindTile(kind, seed);
      const std::string name = "kind " + std::to_string(static_cast<int>(kind)) + " seed " +
                               std::to_string(seed);
      const Components x = Split(raster);
      ReferenceSearch reference(x, false);
      const int fields = reference.ShortestFields(kUnitBits + 32 - kFixedBits);
      EXPECT_EQ(reference.mismatches, 0) << name;
      const bool fits = kFixedBits + fields <= kUnitBits;
      if (fits && brute::SearchRgb565Direct(raster) > kUnitBits) ++fitsOnlyWithEscapes;
      EXPECT_EQ(EncodeAndCheck(context, raster, name), fits ? 1u : 2u) << name;
      if (fields == kNoPlan) continue;
      uint8_t planes[3][64];
      for (int c = 0; c < 3; ++c) {
        for (int i = 0; i < 64; ++i) planes[c][i] = static_cast<uint8_t>(x[c][i]);
      }
      const uint8_t* planePointers[3] = {planes[0], planes[1], planes[2]};
      LaneResidues direct[3];
      PlainLaneKernels().rgb565Lanes(planePointers, 16, direct);
      EXPECT_LE(Rgb565ResidualBound(Rgb565Tile{planePointers, 16, direct}),
                static_cast<uint32_t>(fields))
          << name;
    }
  }
  EXPECT_GT(fitsOnlyWithEscapes, 0) << "the tiles must reach the case the search is for";
  ReleaseZpakContext(context);
}

// Component 0 steps from 0 to 30 after the first column, a carry of -1 that
// every predicted pixel right of it inherits; the third group of the first
// row alternates 30, 14 (a carry at every other pixel, which makes escaping
// it pay). Component 1 is flat at 43; component 2 has spikes of -16 in
// groups 0 to 11 and a residual of 2 in group 12. It fits one unit only
// when a base starts the carries away from 0 at pixel (0, 0).
TEST(Rgb565Escapes, StartingTheCarriesAtTheFirstPixelCanBeWhatFits) {
  Components x{};
  int residual[64] = {};
  for (int g = 0; g < 12; ++g) residual[4 * g + 1] = -16;
  residual[50] = 2;
  for (int i = 0; i < 64; ++i) {
    const int col = i % 16;
    x[0][i] = col == 0 ? 0 : (i == 9 || i == 11) ? 14 : 30;
    x[1][i] = 43;
  }
  IntegrateThird(residual, &x);
  EXPECT_NE(ReferenceSearch(x, false).ShortestFields(kUnitBits - kFixedBits), kNoPlan);
  EXPECT_EQ(ReferenceSearch(x, true).ShortestFields(kUnitBits - kFixedBits), kNoPlan);
  ZpakContext* context = NewContext(kPlaneCases[3]);
  EXPECT_EQ(EncodeAndCheck(context, Pack(x), "start tile"), 1u);
  ReleaseZpakContext(context);
}

}  // namespace
}  // namespace pelcast::testing
