// Commands U, G and B end to end: exact standard output and exact output
// bytes, on ZPAK files made of raw tiles whose content is known.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "tests/test_support.h"

namespace pelcast::testing {
namespace {

const uint8_t kOrder[16] = {0, 7, 10, 13, 6, 1, 12, 11, 3, 4, 9, 14, 5, 2, 15, 8};
const char kEnd[] = "End of file Reached\nProcess complete. Exiting..\n";

// The eight geometry lines for the values in printed order.
std::string Geometry(std::initializer_list<unsigned> v) {
  const char* format =
      "Y_Stride %u, Y_BufLength %u,\nUV_Stride %u, UV_BufLength %u,\n"
      "Y_Meta_Stride %u, Y_Meta_BufLength %u,\nUV_Meta_Stride %u, UV_Meta_BufLength %u,\n"
      "Y_Meta_Buf_Size %u, Y_Data_Buf_Size %u\nUV_Meta_Buf_Size %u, UV_Data_Buf_Size %u\n"
      "Aligned ZPAK Buffer Size %u\nOutput YUV Buf Size %u\n";
  const unsigned* a = v.begin();
  char text[512];
  std::snprintf(text, sizeof text, format, a[0], a[1], a[2], a[3], a[4], a[5], a[6], a[7], a[8],
                a[9], a[10], a[11], a[12], a[13]);
  return text;
}

std::string Frames(int count) {
  std::string text;
  for (int i = 0; i < count; ++i) text += "Input Frame Read completed=" + std::to_string(i) + "\n";
  return text;
}

// NV12 64 x 32: every tile raw (metadata 31), luma bytes `y`, chroma `uv`.
Bytes Nv12Frame(uint8_t y, uint8_t uv) {
  Bytes frame(16384, 31);
  std::fill_n(frame.begin() + 4096, 4096, y);
  std::fill_n(frame.begin() + 12288, 4096, uv);
  return frame;
}

TEST(DecodeCommands, Nv12Transcripts) {
  const std::string head =
      "Converting buffer from ZPAK to NV12\n" +
      Geometry({128, 32, 128, 32, 64, 16, 64, 16, 4096, 4096, 4096, 4096, 16384, 8192});
  Bytes twoFrames = Nv12Frame(0x40, 0x80);
  const Bytes second = Nv12Frame(0x41, 0x81);
  twoFrames.insert(twoFrames.end(), second.begin(), second.end());
  Bytes decoded;
  for (uint8_t v : {0x40, 0x41}) {
    decoded.insert(decoded.end(), 2048, v);
    decoded.insert(decoded.end(), 1024, v + 0x40);
  }
  Bytes oneByteMore = twoFrames;
  oneByteMore.push_back(7);
  struct Case {
    Bytes input;
    std::string stdoutText;
    Bytes output;
  };
  const Case cases[] = {
      {twoFrames, head + Frames(2) + kEnd, decoded},
      {oneByteMore,
       head +
           "WARN:FileSize is not multiple of calculated ZPAK buffer size.\n"
           "WARN:inputFileSize 32769 ZPAKBufSize 16384\n" +
           Frames(2) + kEnd,
       decoded},
      {{}, head + kEnd, {}},
  };
  for (const Case& c : cases) {
    TempDir dir;
    WriteFile(dir.File("in"), c.input);
    const RunResult r = RunTool({"U", dir.File("in"), dir.File("out"), "64", "32"});
    EXPECT_EQ(r.output, c.stdoutText);
    EXPECT_EQ(ReadFile(dir.File("out")), c.output) << c.input.size();
  }
}

TEST(DecodeCommands, Rgba8888WritesPackedRowsOfTheClippedImage) {
  // 20 x 5: one macro tile of 16 slots, slot s filled with byte s.
  Bytes frame(8192, 31);
  for (int s = 0; s < 16; ++s) std::fill_n(frame.begin() + 4096 + 256 * s, 256, s);
  Bytes expected;
  for (int y = 0; y < 5; ++y) {
    for (int x = 0; x < 20; ++x) expected.insert(expected.end(), 4, kOrder[4 * (y / 4) + x / 16]);
  }
  TempDir dir;
  WriteFile(dir.File("in"), frame);
  const RunResult r = RunTool({"G", dir.File("in"), dir.File("out"), "20", "5"});
  EXPECT_EQ(r.output, "Converting buffer from ZPAK to RGBA8888\n" +
                          Geometry({256, 16, 0, 0, 64, 16, 0, 0, 4096, 4096, 0, 0, 8192, 16384}) +
                          Frames(1) + kEnd);
  EXPECT_EQ(ReadFile(dir.File("out")), expected);
}

TEST(DecodeCommands, Rgb565SwapsRedAndBlue) {
  // Raw half tiles (metadata 31) of one pixel value. Width 129 has a
  // 256-byte stride but 258-byte rows: each row runs into the next, and the
  // last one past the buffer, which reads as zeros.
  struct Case {
    int width, height;
    uint8_t low, high;  // stored pixel, little-endian
    std::string geometry;
    Bytes row;
  };
  const Case cases[] = {
      {40,
       4,
       0x00,
       0xF8,
       Geometry({256, 16, 0, 0, 64, 16, 0, 0, 4096, 4096, 0, 0, 8192, 4096}),
       {0x1F, 0x00}},
      {129,
       16,
       0x01,
       0x00,
       Geometry({256, 16, 0, 0, 64, 16, 0, 0, 4096, 4096, 0, 0, 8192, 4096}),
       {0x00, 0x08}},
  };
  for (const Case& c : cases) {
    Bytes frame(8192, 31);
    for (size_t i = 4096; i < frame.size(); i += 2) frame[i] = c.low, frame[i + 1] = c.high;
    Bytes expected;
    for (int p = 0; p < c.width * c.height; ++p)
      expected.insert(expected.end(), c.row.begin(), c.row.end());
    if (c.width % 2 != 0) expected[expected.size() - 2] = expected[expected.size() - 1] = 0;
    TempDir dir;
    WriteFile(dir.File("in"), frame);
    const RunResult r = RunTool(
        {"B", dir.File("in"), dir.File("out"), std::to_string(c.width), std::to_string(c.height)});
    EXPECT_EQ(r.output, "Converting buffer from ZPAK to RGB565\n" + c.geometry + Frames(1) + kEnd);
    EXPECT_EQ(ReadFile(dir.File("out")), expected) << c.width;
  }
}

TEST(DecodeCommands, OpenFailures) {
  // U and G create no output when the input is missing; B opens its output
  // first. An output naming the input is refused like an unopenable one.
  struct Case {
    std::string letter;
    bool inputExists, sameFile, outputCreated;
  };
  const Case cases[] = {{"U", false, false, false}, {"G", false, false, false},
                        {"B", false, false, true},  {"U", true, true, false},
                        {"G", true, true, false},   {"B", true, true, false}};
  for (const Case& c : cases) {
    TempDir dir;
    const Bytes input = Nv12Frame(1, 2);
    if (c.inputExists) WriteFile(dir.File("in"), input);
    const std::string out = c.sameFile ? dir.path() + "/./in" : dir.File("out");
    const RunResult r = RunTool({c.letter, dir.File("in"), out, "64", "32"});
    const std::string failed = c.inputExists ? out : dir.File("in");
    EXPECT_EQ(r.output, "ERROR: Unable to open File " + failed + "\n" + UsageText()) << c.letter;
    if (c.inputExists) {
      EXPECT_EQ(ReadFile(dir.File("in")), input) << c.letter;
    } else {
      EXPECT_EQ(FileExists(out), c.outputCreated) << c.letter;
    }
  }
}

TEST(DecodeCommands, RefusalsAndWriteFailures) {
  TempDir dir;
  WriteFile(dir.File("in"), Bytes(5, 0));
  // A negative width: geometry, the size warning, the refusal, the usage text.
  RunResult r = RunTool({"G", dir.File("in"), dir.File("out"), "-1", "1"});
  EXPECT_EQ(r.output, "Converting buffer from ZPAK to RGBA8888\n" +
                          Geometry({0, 16, 0, 0, 0, 16, 0, 0, 0, 0, 0, 0, 0, 0}) +
                          "WARN:FileSize is not multiple of calculated ZPAK buffer size.\n"
                          "WARN:inputFileSize 5 ZPAKBufSize 0\n"
                          "ERROR: width and height must not be negative\n" +
                          UsageText());
  EXPECT_EQ(ReadFile(dir.File("out")), Bytes());
  // Buffers that fit, but the written frame's w x h x 3 reaches 2^31.
  r = RunTool({"U", dir.File("in"), dir.File("out"), "32768", "21846"});
  const std::string tooLarge =
      "ERROR: frame too large: a buffer or byte count would reach 2^31 bytes\n" + UsageText();
  ASSERT_GE(r.output.size(), tooLarge.size());
  EXPECT_EQ(r.output.substr(r.output.size() - tooLarge.size()), tooLarge);
  EXPECT_EQ(r.output.find("Input Frame"), std::string::npos);
  // A frame write that falls short names the output, without the end messages.
  Bytes frame(106496, 31);  // NV12 256 x 256
  WriteFile(dir.File("in"), frame);
  r = RunTool({"U", dir.File("in"), "/dev/full", "256", "256"});
  const std::string tail =
      "Input Frame Read completed=0\nERROR: Failed to write to file /dev/full" + UsageText();
  ASSERT_GE(r.output.size(), tail.size());
  EXPECT_EQ(r.output.substr(r.output.size() - tail.size()), tail);
}

}  // namespace
}  // namespace pelcast::testing
