// Helpers of the inspector tests: running the built binary, reading PNGs
// back, and the reference colour conversion.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "tests/test_support.h"

namespace pelcast::inspect::testing {

using pelcast::testing::Bytes;

struct ToolRun {
  std::string out;
  std::string err;
  int status;  // -1 when the program did not exit normally
};

// Runs pelcast-inspect with `args` (after the program name).
ToolRun RunInspector(const std::vector<std::string>& args);

struct Picture {
  uint32_t width = 0;
  uint32_t height = 0;
  std::vector<uint8_t> rgb;  // 3 bytes a pixel
  const uint8_t* At(uint32_t x, uint32_t y) const {
    return rgb.data() + 3 * (size_t{y} * width + x);
  }
};

// Reads an 8-bit PNG as RGB with libpng; fails the test when it cannot.
Picture ReadPng(const std::string& path);

// Luma weights of red and blue of a YCbCr matrix.
struct LumaWeights {
  double red, blue;
};
inline constexpr LumaWeights kBt601Weights{0.299, 0.114};
inline constexpr LumaWeights kBt709Weights{0.2126, 0.0722};

// Limited-range YCbCr to RGB in floating point, rounded and clamped.
std::array<int, 3> ReferenceRgb(int y, int u, int v, LumaWeights weights);

// The surface layout helpers shared by every test.
using pelcast::testing::MetaOffset;
using pelcast::testing::RawElementIndex;
using pelcast::testing::SlotOf;

}  // namespace pelcast::inspect::testing
