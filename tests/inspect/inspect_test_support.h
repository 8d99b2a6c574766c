// Helpers of the inspector tests: running the built binary, reading PNGs
// back, and laying out hand-made ZPAK frames with the surface rules worked
// out here rather than taken from the code under test.
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

// Metadata byte offset of tile (row, column) in a metadata plane whose
// 16 x 16-byte metadata tiles run `tilesPerRow` to a row, each made of four
// 8 x 8 quarters stored top-left, top-right, bottom-left, bottom-right.
uint64_t MetaOffset(uint64_t row, uint64_t column, uint64_t tilesPerRow);

// Slot of tile (row, column) for surfaces narrow enough that the bank
// swizzle never applies: macro tiles of 4 x 4 slots in their fixed order.
uint64_t SlotOf(uint64_t row, uint64_t column, uint64_t macroTilesPerRow);

// Element index of (x, y) within a raw tile `elementsPerRow` wide: 4 x 4
// micro-blocks row by row, Z order inside each.
uint64_t RawElementIndex(uint32_t x, uint32_t y, uint32_t elementsPerRow);

}  // namespace pelcast::inspect::testing
