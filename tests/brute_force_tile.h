// A brute-force search for the shortest stored form of a tile, written from
// the tile format's reading and reconstruction rules alone (it shares no code
// with the encoder): the decoder's gradient prediction with its imaginary
// line of base values, its zig-zag mapping, its escape and above-escape code
// rules and its packing. It tries every flag setting, every base value and
// every code of every group, and for each code every residual value of each
// sample, keeping whatever the decoder would rebuild into the input.
//
// To stay small the search takes the choices that do not interact one at a
// time:
// * Blocks and components are searched separately wherever packing keeps
//   them apart (bytes, the alpha component, and the colour-transformed
//   components, whose values must come out exact, ignoring the freedom the
//   clamps leave at 0 and at the maximum).
// * Within a component the groups are searched in order, each taking its
//   cheapest code, and later groups are predicted from the samples the
//   decoder would actually have rebuilt (which may differ from the input by
//   multiples of 256 where only the low byte is packed). If an earlier
//   group's choice could change a later group's cost, this search and an
//   encoder that assumes otherwise would disagree.
// * RGB565 without the transform couples its components through the packed
//   sum, so there the search runs over whole pixels: a breadth-first search
//   over groups whose state is the reconstruction the later predictions read,
//   with component 2 taken modulo 32 (only that reaches the packed value and
//   every later component-2 residual). Escapes of components 0 and 1 are left
//   out there: the encoder's plans without them must match it, and the
//   plans with them are checked by rgb565_escape_unit_test.cc.
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <limits>
#include <map>
#include <vector>

namespace pelcast::testing::brute {

enum class Plane { kRgba8888, kNv12Luma, kNv12Chroma, kRgb565 };

inline constexpr int64_t kNone = std::numeric_limits<int64_t>::max() / 4;

struct Shape {
  int width, height, elementBytes, components, blocks;
  bool colourFlag, alphaFlag;
};

inline Shape ShapeOf(Plane plane) {
  switch (plane) {
    case Plane::kRgba8888:
      return {16, 4, 4, 4, 1, true, true};
    case Plane::kNv12Luma:
      return {32, 8, 1, 1, 4, false, false};
    case Plane::kNv12Chroma:
      return {16, 8, 2, 2, 2, false, false};
    case Plane::kRgb565:
      return {16, 4, 2, 3, 1, true, false};
  }
  return {};
}

inline int SampleBits(Plane plane, int component) {
  if (plane != Plane::kRgb565) return 8;
  return component == 1 ? 6 : 5;
}

// The decoder's escape code: 7 for 8-bit components, the bit depth for RGB565.
inline int EscapeCode(Plane plane, int component) {
  return plane == Plane::kRgb565 ? SampleBits(plane, component) : 7;
}

// Component c of raster pixel (x, y).
inline int ComponentAt(Plane plane, const std::vector<uint8_t>& raster, int x, int y, int c) {
  const Shape s = ShapeOf(plane);
  const uint8_t* e = &raster[(y * s.width + x) * s.elementBytes];
  if (plane == Plane::kRgb565) {
    const int v = e[0] | e[1] << 8;
    const int shifts[3] = {0, 5, 11};
    const int masks[3] = {31, 63, 31};
    return (v >> shifts[c]) & masks[c];
  }
  return e[c];
}

// Block b's 16 x 4 window of the tile: 2 x 2 blocks for NV12 luma, two
// stacked blocks for NV12 chroma, one block otherwise.
inline void BlockOrigin(Plane plane, int b, int* x, int* y) {
  *x = plane == Plane::kNv12Luma ? 16 * (b % 2) : 0;
  *y = plane == Plane::kNv12Luma ? 4 * (b / 2) : (plane == Plane::kNv12Chroma ? 4 * b : 0);
}

using Samples = std::array<int64_t, 64>;

inline Samples BlockSamples(Plane plane, const std::vector<uint8_t>& raster, int b, int c) {
  int ox = 0;
  int oy = 0;
  BlockOrigin(plane, b, &ox, &oy);
  Samples out{};
  for (int y = 0; y < 4; ++y) {
    for (int x = 0; x < 16; ++x) out[y * 16 + x] = ComponentAt(plane, raster, ox + x, oy + y, c);
  }
  return out;
}

inline int64_t FromZigZag(int64_t r) { return (r % 2 == 0) ? r / 2 : -(r + 1) / 2; }

inline int64_t Mod(int64_t v, int64_t m) { return ((v % m) + m) % m; }

// The decoder's prediction of sample (x, y) from the reconstructed samples
// `v` and the imaginary row above and column left, all equal to `base`.
inline int64_t Predict(const Samples& v, int x, int y, int64_t base) {
  const int64_t a = x > 0 ? v[y * 16 + x - 1] : base;
  const int64_t b = y > 0 ? v[(y - 1) * 16 + x] : base;
  const int64_t c = (x > 0 && y > 0) ? v[(y - 1) * 16 + x - 1] : base;
  return a + b - c;
}

// What a decoded sample must equal: exactly `target`, or `target` modulo
// `modulus` when modulus is non-zero.
struct Match {
  int64_t modulus;
  bool Accepts(int64_t value, int64_t target) const {
    return modulus != 0 ? Mod(value, modulus) == Mod(target, modulus) : value == target;
  }
};

// Cheapest codes and residuals of one component of one block for one base:
// returns the residual and code bits, or kNone.
inline int64_t SearchGroups(const Samples& target, int64_t base, int codedBits, int escape,
                            Match match) {
  Samples recon{};
  int64_t total = 0;
  for (int g = 0; g < 16; ++g) {
    int64_t best = kNone;
    Samples bestRecon = recon;
    for (int code = 0; code < 8; ++code) {
      const int width = code < escape ? code : codedBits;
      const bool raw = code == escape;
      Samples trial = recon;
      bool ok = true;
      for (int i = 0; i < 4 && ok; ++i) {
        const int at = g * 4 + i;
        const int64_t pred = Predict(trial, at % 16, at / 16, base);
        bool found = false;
        for (int64_t r = 0; r < (int64_t{1} << width); ++r) {
          const int64_t value = raw ? r : pred + FromZigZag(r);
          if (!match.Accepts(value, target[at])) continue;
          trial[at] = value;
          found = true;
          break;
        }
        ok = found;
      }
      const int64_t cost = 3 + 4 * width;
      if (ok && cost < best) {
        best = cost;
        bestRecon = trial;
      }
    }
    if (best == kNone) return kNone;
    total += best;
    recon = bestRecon;
  }
  return total;
}

// Shortest coding of one component of one block over every base value:
// base bits plus codes and residuals.
inline int64_t SearchComponent(const Samples& target, int codedBits, int escape, Match match) {
  int64_t best = kNone;
  for (int64_t base = 0; base < (int64_t{1} << codedBits); ++base) {
    best = std::min(best, SearchGroups(target, base, codedBits, escape, match));
  }
  return best == kNone ? kNone : best + codedBits;
}

// Colour transform targets: the samples whose inverse transform gives the
// pixel back without clamping (luma, and the two differences offset by 2^n).
// False when the decoder's inverse would not reproduce the pixel.
inline bool ColourTargets(Samples* c0, Samples* c1, Samples* c2, int n) {
  const int64_t offset = int64_t{1} << n;
  for (int i = 0; i < 64; ++i) {
    const int64_t r = (*c0)[i], g = (*c1)[i], b = (*c2)[i];
    const int64_t co = r - b;
    const int64_t t = b + (co >> 1);
    const int64_t cg = g - t;
    const int64_t s0 = t + (cg >> 1);
    // The decoder's inverse, clamped as it clamps.
    const int64_t tt = s0 - (cg >> 1);
    const int64_t third = std::clamp<int64_t>(tt - (co >> 1), 0, offset - 1);
    const int64_t second = std::clamp<int64_t>(tt + cg, 0, offset - 1);
    const int64_t first = std::clamp<int64_t>(tt - (co >> 1) + co, 0, offset - 1);
    if (first != r || second != g || third != b) return false;
    (*c0)[i] = s0;
    (*c1)[i] = co + offset;
    (*c2)[i] = cg + offset;
  }
  return true;
}

// Shortest stream (in bits) over every flag setting, for the planes whose
// components are independent once the colour flag is fixed. RGB565 is
// searched here with the colour flag set only.
inline int64_t SearchIndependent(Plane plane, const std::vector<uint8_t>& raster,
                                 bool colourOnly) {
  const Shape s = ShapeOf(plane);
  int64_t best = kNone;
  for (int colour = colourOnly ? 1 : 0; colour <= (s.colourFlag ? 1 : 0); ++colour) {
    for (int alpha = 0; alpha <= (s.alphaFlag ? 1 : 0); ++alpha) {
      int64_t bits = (s.colourFlag ? 1 : 0) + (s.alphaFlag ? 1 : 0);
      for (int b = 0; b < s.blocks && bits < kNone; ++b) {
        std::vector<Samples> comps;
        for (int c = 0; c < s.components; ++c) comps.push_back(BlockSamples(plane, raster, b, c));
        const int n = SampleBits(plane, 0);
        if (colour == 1 && !ColourTargets(&comps[0], &comps[1], &comps[2], n)) bits = kNone;
        for (int c = 0; c < s.components && bits < kNone; ++c) {
          const int codedBits = SampleBits(plane, c) + ((colour == 1 && (c == 1 || c == 2)) ? 1 : 0);
          if (alpha == 1 && c == 3) {
            // Constant last component: every sample equals the base; no codes.
            bool any = false;
            for (int v = 0; v < 256 && !any; ++v) {
              any = std::all_of(comps[c].begin(), comps[c].end(), [v](int64_t x) { return x == v; });
            }
            bits = any ? bits + codedBits : kNone;
            continue;
          }
          const bool exact = colour == 1 && c < 3;
          const Match match{exact ? 0 : 256};
          const int64_t part = SearchComponent(comps[c], codedBits, EscapeCode(plane, c), match);
          bits = part == kNone ? kNone : bits + part;
        }
      }
      best = std::min(best, bits);
    }
  }
  return best;
}

// RGB565 without the colour transform, escapes of components 0 and 1 left
// out: a breadth-first search over groups whose state is the reconstruction
// (components 0 and 1 exact, component 2 modulo 32).
inline int64_t SearchRgb565Direct(const std::vector<uint8_t>& raster) {
  struct Recon {
    Samples c[3];
    bool operator<(const Recon& o) const {
      for (int k = 0; k < 3; ++k) {
        if (c[k] != o.c[k]) return c[k] < o.c[k];
      }
      return false;
    }
  };
  Samples x[3];
  for (int c = 0; c < 3; ++c) x[c] = BlockSamples(Plane::kRgb565, raster, 0, c);
  auto packedTarget = [&](int at) { return x[0][at] + 32 * x[1][at] + 2048 * x[2][at]; };
  const int bits[3] = {5, 6, 5};
  const int escape[3] = {5, 6, 5};
  const int64_t moduli[3] = {32, 2048, 65536};  // the packed value modulo 2^(bits so far)
  const int64_t weight[3] = {1, 32, 2048};

  // Partial states keyed by reconstruction, cost kept minimal. One pass per
  // group; within it components 0, 1, 2 are chosen in turn, each for every
  // base value in the first group. Later groups pass base 0: by the
  // prediction rule the imaginary line enters there only as b - c with
  // b = c (first row) or a - c with a = c (first column), so it cancels.
  std::map<Recon, int64_t> states;
  states[Recon{}] = 1 + 5 + 6 + 5;  // colour flag and the three bases
  for (int g = 0; g < 16; ++g) {
    std::map<Recon, int64_t> partial = states;
    for (int comp = 0; comp < 3; ++comp) {
      std::map<Recon, int64_t> next;
      const int64_t baseCount = g == 0 ? (int64_t{1} << bits[comp]) : 1;
      for (const auto& [recon, cost] : partial) {
        for (int64_t base = 0; base < baseCount; ++base) {
          for (int code = 0; code < 8; ++code) {
            if (comp < 2 && code == escape[comp]) continue;  // not covered
            const int width = code < escape[comp] ? code : bits[comp];
            const bool raw = code == escape[comp];
            Recon trial = recon;
            bool ok = true;
            for (int i = 0; i < 4 && ok; ++i) {
              const int at = g * 4 + i;
              const int64_t pred = Predict(trial.c[comp], at % 16, at / 16, base);
              int accepted = 0;
              for (int64_t r = 0; r < (int64_t{1} << width); ++r) {
                const int64_t value = raw ? r : pred + FromZigZag(r);
                int64_t packed = weight[comp] * value;
                for (int k = 0; k < comp; ++k) packed += weight[k] * trial.c[k][at];
                if (Mod(packed - packedTarget(at), moduli[comp]) != 0) continue;
                if (accepted++ == 0) trial.c[comp][at] = comp == 2 ? Mod(value, 32) : value;
              }
              ok = accepted > 0;
            }
            if (!ok) continue;
            const int64_t total = cost + 3 + 4 * width;
            auto it = next.find(trial);
            if (it == next.end() || total < it->second) next[trial] = total;
          }
        }
      }
      partial.swap(next);
    }
    states.swap(partial);
  }
  int64_t best = kNone;
  for (const auto& [recon, cost] : states) best = std::min(best, cost);
  return best;
}

// Shortest stream of the tile in bits under the rules above.
inline int64_t ShortestStreamBits(Plane plane, const std::vector<uint8_t>& raster) {
  if (plane != Plane::kRgb565) return SearchIndependent(plane, raster, false);
  return std::min(SearchIndependent(plane, raster, true), SearchRgb565Direct(raster));
}

}  // namespace pelcast::testing::brute
