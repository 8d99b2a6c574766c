// The start-code stream trimmer, called directly: output bytes and the unit
// count line for hand-made streams.
#include <gtest/gtest.h>

#include "rawtools/raw_commands.h"
#include "tests/test_support.h"

namespace pelcast::testing {
namespace {

struct TrimCase {
  std::string name;
  Bytes input;
  Bytes output;
  int printedCount;  // units cut at start codes, plus one
};

TEST(StartCodeTrim, HandMadeStreams) {
  // A unit of more than 1 MiB keeps only what its 1 MiB buffer holds: the
  // scan for the last non-zero byte starts inside the buffer and the start
  // code, lying past it, comes out as zeros. The tail 77 00 00 00 keeps 77.
  const size_t mebibyte = size_t{1} << 20;
  Bytes longUnit(mebibyte + 10, 0x55);
  longUnit.insert(longUnit.end(), {0, 0, 0, 1, 0x77, 0, 0, 0});
  Bytes longOut(mebibyte, 0x55);
  longOut.insert(longOut.end(), {0, 0, 0, 0, 0x77});

  const std::vector<TrimCase> cases = {
      // Zero padding before a start code is dropped; zeros inside a unit stay.
      // 00 00 01 right after a start code completes another one (written as
      // a full four-byte code). The last unit runs one byte past the end of
      // the file, so its last three bytes fall in the skipped positions.
      {"units, padding and a three-byte code",
       {0xAA, 0, 0, 0, 0, 1, 0xBB, 0,    0xCC, 0,    0,   0,
        0,    0, 1, 0, 0, 1, 0xDD, 0xEE, 0xFF, 0x11, 0x22},
       {0xAA, 0, 0, 0, 1, 0xBB, 0, 0xCC, 0, 0, 0, 1, 0, 0, 0, 1, 0xDD, 0xEE},
       4},
      {"leading start code", {0, 0, 0, 1, 0xAB, 0, 0}, {0, 0, 0, 1}, 2},
      {"tail longer than the skipped bytes",
       {0, 0, 0, 1, 1, 2, 3, 4, 5, 6},
       {0, 0, 0, 1, 1, 2, 3},
       2},
      {"stream ending at a start code", {9, 0, 0, 0, 1}, {9, 0, 0, 0, 1}, 2},
      {"no start code", {1, 2, 3, 4, 5, 6, 7}, {1, 2, 3, 4}, 1},
      {"three-byte code needs a preceding start code",
       {7, 0, 0, 1, 8, 9, 10, 11},
       {7, 0, 0, 1, 8},
       1},
      {"empty stream", {}, {}, 1},
      {"unit longer than its buffer", longUnit, longOut, 2},
  };
  for (const TrimCase& c : cases) {
    TempDir dir;
    WriteFile(dir.File("in"), c.input);
    ::testing::internal::CaptureStdout();
    TrimStartCodeStream(dir.File("in").c_str(), dir.File("out").c_str());
    const std::string printed = ::testing::internal::GetCapturedStdout();
    EXPECT_EQ(printed, "frame = " + std::to_string(c.printedCount) + " \n") << c.name;
    EXPECT_EQ(ReadFile(dir.File("out")), c.output) << c.name;
  }
}

TEST(StartCodeTrim, RefusesToWriteOverItsInput) {
  TempDir dir;
  const Bytes input = {1, 0, 0, 0, 1, 2, 3, 4, 5};
  WriteFile(dir.File("in"), input);
  ::testing::internal::CaptureStdout();
  TrimStartCodeStream(dir.File("in").c_str(), (dir.path() + "/./in").c_str());
  EXPECT_EQ(::testing::internal::GetCapturedStdout(), "ERROR: Invalid file pointer...Exiting\n");
  EXPECT_EQ(ReadFile(dir.File("in")), input);
}

}  // namespace
}  // namespace pelcast::testing
