// What the hostile-input tests share: the tool's transcripts, built from the
// printed texts, for the geometries the tests use.
#pragma once

#include <array>
#include <cstdint>
#include <string>

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

}  // namespace pelcast::testing::hostile
