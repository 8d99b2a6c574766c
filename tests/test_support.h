// Helpers for tests that run the built pelcast binary: a private temporary
// directory, file reads and writes, and a runner that captures standard output.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace pelcast::testing {

using Bytes = std::vector<uint8_t>;

struct RunResult {
  std::string output;  // everything the program wrote to standard output
  int exitStatus;      // -1 when it did not exit normally
};

// Runs pelcast with `args` (not including the program name) in `workDir`.
RunResult RunTool(const std::vector<std::string>& args, const std::string& workDir = ".");

// A fresh directory under the system's temporary directory, removed with its
// contents when the object goes away.
class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;
  const std::string& path() const { return path_; }
  std::string File(const std::string& name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

void WriteFile(const std::string& path, const Bytes& bytes);
Bytes ReadFile(const std::string& path);
bool FileExists(const std::string& path);

// Deterministic pseudo-random bytes.
Bytes RandomBytes(size_t count, uint32_t seed);

// The five-line usage text exactly as the tool prints it.
std::string UsageText();

// Directory of the committed real-content test frames (tests/data).
std::string TestDataDir();

// The committed crops, each as NAME.nv12, NAME.rgba and NAME.rgb565 there
// (tests/data/README.md): photos and screen content, two of odd size.
struct TestFrame {
  const char* name;
  int width, height;
};
inline constexpr TestFrame kTestFrames[] = {
    {"photo-meadow-256x144", 256, 144},  {"photo-mountains-256x144", 256, 144},
    {"photo-mountains-97x61", 97, 61},   {"screen-messages-256x144", 256, 144},
    {"screen-player-256x144", 256, 144}, {"screen-navbar-133x75", 133, 75},
};

// The surface layout, written here from its rules rather than taken from the
// code under test.

// Slot within its macro tile of tile (row % 4, column % 4), indexed 4 row + column.
inline constexpr uint8_t kSlotOrder[16] = {0, 7, 10, 13, 6, 1, 12, 11, 3, 4, 9, 14, 5, 2, 15, 8};

// Slot of tile (row, column) where the bank swizzle does not apply: macro
// tiles of 4 x 4 tiles in raster order, `macroTilesPerRow` to a row.
uint64_t SlotOf(uint64_t row, uint64_t column, uint64_t macroTilesPerRow);

// Metadata byte offset of tile (row, column) in a metadata plane whose
// 16 x 16-byte metadata tiles run `tilesPerRow` to a row, each made of four
// 8 x 8 quarters stored top-left, top-right, bottom-left, bottom-right.
uint64_t MetaOffset(uint64_t row, uint64_t column, uint64_t tilesPerRow);

// Element index of (x, y) within a raw tile `elementsPerRow` wide: 4 x 4
// micro-blocks row by row, Z order inside each.
uint64_t RawElementIndex(uint64_t x, uint64_t y, uint64_t elementsPerRow);

}  // namespace pelcast::testing
