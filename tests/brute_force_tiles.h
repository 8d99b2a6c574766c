// Test tiles for the encoder tests: the plane kinds, raster tiles of
// recognisable kinds (flat, noisy, gradients, alpha cases, values at the ends
// of the range), and the cut into micro-block order, written from the layout
// rules.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "surface/zpak_context.h"
#include "tests/brute_force_tile.h"

namespace pelcast::testing {

struct PlaneCase {
  const char* name;
  brute::Plane plane;
  uint64_t contextFormat;
  uint64_t planeIndex;
};

inline constexpr PlaneCase kPlaneCases[] = {
    {"RGBA8888", brute::Plane::kRgba8888, 0, 0},
    {"NV12 luma", brute::Plane::kNv12Luma, 1, 0},
    {"NV12 chroma", brute::Plane::kNv12Chroma, 1, 1},
    {"RGB565", brute::Plane::kRgb565, 12, 0},
};

inline ZpakContext* NewContext(const PlaneCase& pc) {
  ZpakContext* context = AllocateZpakContext();
  ConfigureZpakContext(context, pc.contextFormat);
  context->contextFormat = pc.contextFormat;
  context->planeIndex = pc.planeIndex;
  return context;
}

inline size_t RawTileBytes(brute::Plane plane) { return plane == brute::Plane::kRgb565 ? 128 : 256; }

enum class Pattern {
  kUniform,       // one value per component
  kNoise,         // every sample random
  kGradient,      // ramps in x and y, wrapping at the top of the range
  kSmallNoise,    // a mid value with a little noise
  kNearExtremes,  // values at or next to 0 and the maximum, wrapping neighbours
  kEdge,          // two flat halves with a hard vertical edge
  kVaryingAlpha,  // smooth colour, noisy last component
  kLowGreen,      // every component in the lower half (RGB565 colour transform possible)
  kLargeSteps,    // steps of a quarter to a half of the range
};

inline constexpr Pattern kAllPatterns[] = {
    Pattern::kUniform,      Pattern::kNoise, Pattern::kGradient,     Pattern::kSmallNoise,
    Pattern::kNearExtremes, Pattern::kEdge,  Pattern::kVaryingAlpha, Pattern::kLowGreen,
    Pattern::kLargeSteps,
};

inline std::string PatternName(Pattern p) {
  const char* names[] = {"uniform", "noise", "gradient", "small noise", "near extremes",
                         "edge",    "varying alpha", "low green", "large steps"};
  return names[static_cast<int>(p)];
}

// A small deterministic generator.
struct Lcg {
  uint32_t state;
  uint32_t Next() {
    state = state * 1664525u + 1013904223u;
    return state >> 8;
  }
};

inline int ComponentMax(brute::Plane plane, int c) { return (1 << brute::SampleBits(plane, c)) - 1; }

inline int PatternValue(Pattern p, brute::Plane plane, int x, int y, int c, Lcg* rng,
                        const int* level) {
  const int max = ComponentMax(plane, c);
  const int span = max + 1;
  const bool last = c == brute::ShapeOf(plane).components - 1 && plane == brute::Plane::kRgba8888;
  switch (p) {
    case Pattern::kUniform:
      return level[c] % span;
    case Pattern::kNoise:
      return static_cast<int>(rng->Next() % span);
    case Pattern::kGradient:
      return (level[c] + (c + 1) * x + (3 - c) * y) % span;
    case Pattern::kSmallNoise:
      return (span / 2 + static_cast<int>(rng->Next() % 5) - 2) % span;
    case Pattern::kNearExtremes: {
      const int pick = static_cast<int>(rng->Next() % 4);
      return pick == 0 ? 0 : pick == 1 ? 1 : pick == 2 ? max - 1 : max;
    }
    case Pattern::kEdge:
      return x < 7 ? level[c] % span : (level[c] * 7 + 90) % span;
    case Pattern::kVaryingAlpha:
      if (last) return static_cast<int>(rng->Next() % 40);
      return (level[c] + 2 * x + y) % span;
    case Pattern::kLowGreen:
      return (level[c] % (span / 2) + x / 2 + (static_cast<int>(rng->Next() % 3))) % (span / 2);
    case Pattern::kLargeSteps:
      return (level[c] + (span / 4 + static_cast<int>(rng->Next() % (span / 4))) * ((x + y) % 3)) % span;
  }
  return 0;
}

// A raster tile of the plane: rows of elements, components packed as the
// plane packs them (bytes, or RGB565's 16-bit little-endian word).
inline std::vector<uint8_t> MakeTile(brute::Plane plane, Pattern pattern, uint32_t seed) {
  const brute::Shape s = brute::ShapeOf(plane);
  Lcg rng{seed * 2654435761u + static_cast<uint32_t>(pattern)};
  int level[4];
  for (int& l : level) l = static_cast<int>(rng.Next() % 256);
  std::vector<uint8_t> raster(static_cast<size_t>(s.width * s.height * s.elementBytes));
  for (int y = 0; y < s.height; ++y) {
    for (int x = 0; x < s.width; ++x) {
      uint8_t* e = &raster[static_cast<size_t>((y * s.width + x) * s.elementBytes)];
      int v[4] = {};
      for (int c = 0; c < s.components; ++c) v[c] = PatternValue(pattern, plane, x, y, c, &rng, level);
      if (plane == brute::Plane::kRgb565) {
        const int word = v[0] | v[1] << 5 | v[2] << 11;
        e[0] = static_cast<uint8_t>(word & 0xff);
        e[1] = static_cast<uint8_t>(word >> 8);
      } else {
        for (int c = 0; c < s.components; ++c) e[c] = static_cast<uint8_t>(v[c]);
      }
    }
  }
  return raster;
}

// Raster tile to micro-block order: 4 x 4 blocks of elements, band by band,
// left to right, and inside a block the element at column c, row r at
// position (c & 1) + 2 (r & 1) + 4 (c >> 1) + 8 (r >> 1).
inline std::vector<uint8_t> ToMicroBlocks(brute::Plane plane, const std::vector<uint8_t>& raster) {
  const brute::Shape s = brute::ShapeOf(plane);
  std::vector<uint8_t> ordered(raster.size());
  for (int y = 0; y < s.height; ++y) {
    for (int x = 0; x < s.width; ++x) {
      const int inBlock = (x & 1) + 2 * (y & 1) + 4 * ((x >> 1) & 1) + 8 * ((y >> 1) & 1);
      const int k = 16 * ((y / 4) * (s.width / 4) + x / 4) + inBlock;
      for (int b = 0; b < s.elementBytes; ++b) {
        ordered[static_cast<size_t>(k * s.elementBytes + b)] =
            raster[static_cast<size_t>((y * s.width + x) * s.elementBytes + b)];
      }
    }
  }
  return ordered;
}

// An NV12 luma raster tile whose gradient-predictor residuals (base 0 in
// every block) are `residual` (raster-indexed, 32 x 8), wrapped to bytes.
inline std::vector<uint8_t> IntegrateLumaResiduals(const std::vector<int>& residual) {
  std::vector<uint8_t> raster(256);
  for (int b = 0; b < 4; ++b) {
    const int ox = 16 * (b % 2);
    const int oy = 4 * (b / 2);
    brute::Samples v{};
    for (int y = 0; y < 4; ++y) {
      for (int x = 0; x < 16; ++x) {
        const int64_t pred = brute::Predict(v, x, y, 0);
        v[y * 16 + x] = brute::Mod(pred + residual[(oy + y) * 32 + ox + x], 256);
        raster[(oy + y) * 32 + ox + x] = static_cast<uint8_t>(v[y * 16 + x]);
      }
    }
  }
  return raster;
}

}  // namespace pelcast::testing
