// What the command-line tests share: the tool's transcripts, built from the
// printed texts, the geometries of the small frames they decode, and a runner
// of table rows.
#pragma once

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "tests/test_support.h"

namespace pelcast::testing::hostile {

// The eight geometry lines of a decode command, values in printed order:
// Y stride and scanlines, UV stride and scanlines, Y and UV metadata stride
// and height, Y metadata and data sizes, UV metadata and data sizes, frame
// size, output buffer size.
using GeometryValues = std::array<uint64_t, 14>;

inline std::string GeometryLines(const GeometryValues& v) {
  auto n = [&v](int i) { return std::to_string(v[i]); };
  return "Y_Stride " + n(0) + ", Y_BufLength " + n(1) + ",\nUV_Stride " + n(2) +
         ", UV_BufLength " + n(3) + ",\nY_Meta_Stride " + n(4) + ", Y_Meta_BufLength " + n(5) +
         ",\nUV_Meta_Stride " + n(6) + ", UV_Meta_BufLength " + n(7) + ",\nY_Meta_Buf_Size " +
         n(8) + ", Y_Data_Buf_Size " + n(9) + "\nUV_Meta_Buf_Size " + n(10) +
         ", UV_Data_Buf_Size " + n(11) + "\nAligned ZPAK Buffer Size " + n(12) +
         "\nOutput YUV Buf Size " + n(13) + "\n";
}

// Printed geometries: NV12 up to 128 x 32, RGBA8888 and RGB565 up to 64 x 16.
inline constexpr GeometryValues kZeroGeometry = {};
inline constexpr GeometryValues kNv12Geometry = {128, 32,   128,  32,   64,   16,    64,
                                                 16,  4096, 4096, 4096, 4096, 16384, 8192};
inline constexpr GeometryValues kRgbaGeometry = {256, 16,   0,    0, 64, 16,   0,
                                                 0,   4096, 4096, 0, 0,  8192, 16384};
inline constexpr GeometryValues kRgb565Geometry = {256, 16,   0,    0, 64, 16,   0,
                                                   0,   4096, 4096, 0, 0,  8192, 4096};

inline std::string Banner(char letter) {
  switch (letter) {
    case 'U':
      return "Converting buffer from ZPAK to NV12\n";
    case 'G':
      return "Converting buffer from ZPAK to RGBA8888\n";
    default:
      return "Converting buffer from ZPAK to RGB565\n";
  }
}

inline std::string DecodeHead(char letter, const GeometryValues& v) {
  return Banner(letter) + GeometryLines(v);
}

inline std::string SizeWarning(uint64_t fileSize, uint64_t frameSize) {
  return "WARN:FileSize is not multiple of calculated ZPAK buffer size.\nWARN:inputFileSize " +
         std::to_string(fileSize) + " ZPAKBufSize " + std::to_string(frameSize) + "\n";
}

inline std::string ReadLines(int frames) {
  std::string text;
  for (int n = 0; n < frames; ++n) text += "Input Frame Read completed=" + std::to_string(n) + "\n";
  return text;
}

inline std::string ConvertedLines(int frames) {
  std::string text;
  for (int n = 0; n < frames; ++n) {
    text += "Input Frame Read completed=" + std::to_string(n) +
            "\nInput Frame CONVERSION completed=" + std::to_string(n) + "\n";
  }
  return text;
}

inline const char kDecodeEnd[] = "End of file Reached\nProcess complete. Exiting..\n";
inline const char kDecodeReadError[] = "Incomplete file read\nProcess complete. Exiting..\n";
inline const char kEncodeEnd[] = "End of file Reached\nProcess complete....Exiting \n";

inline std::string OpenFailed(const std::string& path) {
  return "ERROR: Unable to open File " + path + "\n" + UsageText();
}

inline const char kNegative[] = "ERROR: width and height must not be negative\n";
inline const char kTooLarge[] =
    "ERROR: frame too large: a buffer or byte count would reach 2^31 bytes\n";

// The raw tools' open and allocation failures, spelled as each command spells them.
inline std::string RawFileError(char letter) {
  if (letter == 'P') return "ERROR:Invalid file pointer...Exiting \n";
  return "ERROR: Invalid file pointer...Exiting\n";
}

inline std::string RawBufferError(char letter) {
  if (letter == 'P') return "ERROR:Invalid buffer pointer...Exiting \n";
  if (letter == 'I') return "ERROR: Invalid buffer ptr...Exiting\n";
  return "ERROR: Invalid buffer pointer...Exiting\n";
}

// The average line of S and R for no frames: 0 / 0 as this machine divides
// and prints it at run time.
inline std::string NoFramesLine() {
  volatile double zero = 0.0;
  char line[64];
  std::snprintf(line, sizeof line, "frame = 0 psnr(avg) = %.2f\n", zero / zero);
  return line;
}

// One run of the tool in a fresh directory holding `input` as the file `in`.
struct CliCase {
  std::vector<std::string> args;  // after the program name
  Bytes input;
  std::string transcript;
  Bytes output = {};         // expected contents of `out`
  bool outputExists = true;  // false: the command never creates `out`
};

inline void RunCliCases(const std::vector<CliCase>& cases) {
  for (const CliCase& c : cases) {
    TempDir dir;
    WriteFile(dir.File("in"), c.input);
    const RunResult r = RunTool(c.args, dir.path());
    const std::string label = ::testing::PrintToString(c.args);
    EXPECT_EQ(r.output, c.transcript) << label;
    EXPECT_EQ(r.exitStatus, 0) << label;
    ASSERT_EQ(FileExists(dir.File("out")), c.outputExists) << label;
    if (c.outputExists) {
      EXPECT_EQ(ReadFile(dir.File("out")), c.output) << label;
    }
  }
}

}  // namespace pelcast::testing::hostile
