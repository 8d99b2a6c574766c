// Every command against hostile arguments: counts 1 to 10, unknown letters,
// widths and heights of 0, 1, odd, negative and huge, and numbers that are
// not plain numbers. Each case states the exact transcript and output; every
// command must end, however its loops are sized.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/hostile_cli_support.h"
#include "tests/test_support.h"

namespace pelcast::testing {
namespace {

using namespace hostile;

const char kCountRefused[] = "Too many/ too few arguments\n";

TEST(HostileArguments, CountsOneToTenAndUnknownLetters) {
  // Counts include the program name: 4, 6, 7 and 8 run the command. With
  // no numbers at all the codec commands print the usage text and run with
  // width and height 0; arguments past those a command reads are ignored.
  // Letters are case-sensitive.
  const Bytes some = RandomBytes(100, 1);
  const std::string u64x32 = DecodeHead('U', kNv12Geometry) + kDecodeEnd;
  const std::string refused = kCountRefused + UsageText();
  std::vector<CliCase> cases = {
      {{}, {}, refused, {}, false},
      {{"U"}, {}, refused, {}, false},
      {{"U", "in"}, {}, refused, {}, false},
      {{"U", "in", "out"}, {}, UsageText() + DecodeHead('U', kZeroGeometry) + kDecodeReadError},
      {{"U", "in", "out", "64"}, {}, refused, {}, false},
      {{"U", "in", "out", "64", "32"}, {}, u64x32},
      {{"U", "in", "out", "64", "32", "9"}, {}, u64x32},
      {{"U", "in", "out", "64", "32", "9", "9"}, {}, u64x32},
      {{"U", "in", "out", "64", "32", "9", "9", "9"}, {}, refused, {}, false},
      {{"U", "in", "out", "64", "32", "9", "9", "9", "9"}, {}, refused, {}, false},
      {{"X", "in", "out", "1"}, {}, refused, {}, false},
      {{"H", "in", "out"}, some, UsageText() + ConvertedLines(1) + "ERROR: Failed to write to file in"},
      {{"N", "in", "out"},
       some,
       UsageText() + "epbBuffSize - 0 databufsize - 0 YUVBufSize - 0\n" + ReadLines(1) +
           "ERROR: Failed to write to file in"},
      {{"B", "in", "out"},
       some,
       UsageText() + DecodeHead('B', kZeroGeometry) + SizeWarning(100, 0) + kDecodeReadError},
      {{"P", "in", "out"}, some, ""},
      {{"T", "in", "out", "4", "4"}, some, ""},
      {{"C", "in", "out", "4", "4"}, RandomBytes(48, 2), "frame = 0 \nframe = 1 \n"},
      {{"S", "in", "in"}, some, NoFramesLine(), {}, false},
      {{"R", "in", "in", "4", "4"}, some, NoFramesLine(), {}, false},
  };
  for (const char* letter : {"X", "u", "g", "1", "", "Z", "h"}) {
    cases.push_back({{letter, "in", "out"}, {}, "Unknown selection\n" + UsageText(), {}, false});
  }
  RunCliCases(cases);
}

// A ZPAK frame of `frameBytes` whose every metadata byte is 31 (raw) and whose
// slot s, from `dataStart` on, holds `value(s)` throughout.
Bytes RawSlotFrame(size_t frameBytes, size_t dataStart, int (*value)(int)) {
  Bytes frame(frameBytes, 31);
  for (int s = 0; s < 16; ++s) std::fill_n(frame.begin() + dataStart + 256 * s, 256, value(s));
  return frame;
}

Bytes Repeat(const Bytes& unit, size_t count) {
  Bytes out;
  for (size_t i = 0; i < count; ++i) out.insert(out.end(), unit.begin(), unit.end());
  return out;
}

TEST(HostileArguments, WidthsAndHeightsOfZeroAndOne) {
  // Size 0: every alignment of 0 is 0, so the frame is 0 bytes; a read of 0
  // bytes returns nothing and does not reach the end of the file, so the
  // loop ends at once with "Incomplete file read". Size 1: one pixel, taken
  // from element 0 of the first raw tile (slot 0); B's 1-pixel width has a
  // 0-byte stride, so its one row lies past the empty buffer and reads as 0.
  const Bytes some = RandomBytes(100, 3);
  const GeometryValues rgb565One = {0, 16, 0, 0, 64, 16, 0, 0, 4096, 0, 0, 0, 4096, 0};
  Bytes nv12Frame(16384, 31);
  nv12Frame[4096] = 0xAB;  // luma slot 0, element 0
  Bytes rgbaFrame(8192, 31);
  for (int i = 0; i < 4; ++i) rgbaFrame[4096 + i] = static_cast<uint8_t>(0x10 + i);
  const std::string ended = kDecodeReadError;
  const std::string nvSizes = "epbBuffSize - 0 databufsize - 0 YUVBufSize - 0\n";
  RunCliCases({
      {{"U", "in", "out", "0", "0"}, some,
       DecodeHead('U', kZeroGeometry) + SizeWarning(100, 0) + ended},
      {{"G", "in", "out", "0", "0"}, {}, DecodeHead('G', kZeroGeometry) + ended},
      {{"B", "in", "out", "0", "0"}, some,
       DecodeHead('B', kZeroGeometry) + SizeWarning(100, 0) + ended},
      {{"U", "in", "out", "1", "1"}, nv12Frame,
       DecodeHead('U', kNv12Geometry) + ReadLines(1) + kDecodeEnd, {0xAB}},
      {{"G", "in", "out", "1", "1"}, rgbaFrame,
       DecodeHead('G', kRgbaGeometry) + ReadLines(1) + kDecodeEnd, {0x10, 0x11, 0x12, 0x13}},
      {{"B", "in", "out", "1", "1"}, Bytes(4096, 31),
       DecodeHead('B', rgb565One) + ReadLines(1) + kDecodeEnd, {0, 0}},
      // The encoders: no row to read (width 0) ends the input at once; no row
      // at all (height 0) makes a 0-byte frame whose write fails.
      {{"H", "in", "out", "0", "4"}, some, "Incomplete file read\nProcess complete....Exiting \n"},
      {{"H", "in", "out", "16", "0"}, some, ConvertedLines(1) + "ERROR: Failed to write to file in"},
      {{"N", "in", "out", "0", "8"}, some,
       nvSizes + ReadLines(1) + "ERROR: Failed to write to file in"},
      {{"N", "in", "out", "16", "0"}, some,
       nvSizes + ReadLines(1) + "ERROR: Failed to write to file in"},
      // The raw tools process no frame when the part that decides the loop
      // has 0 bytes, however long the input.
      {{"P", "in", "out", "0", "4"}, some, ""},
      {{"I", "in", "out", "4", "0"}, some, ""},
      {{"C", "in", "out", "0", "4", "2", "2"}, some, ""},
      {{"E", "in", "out", "0", "0"}, some, ""},
      {{"T", "in", "out", "0", "4", "1000000"}, some, ""},
      {{"T", "in", "out", "4", "4", "0"}, some, ""},
      {{"T", "in", "out", "2", "2", "1000000"}, RandomBytes(13, 4), "frame = 0 \nframe = 1 \n",
       RandomBytes(12, 4)},
      {{"S", "in", "in", "0", "4"}, some, NoFramesLine(), {}, false},
  });
}

TEST(HostileArguments, OddSizesClipEveryTile) {
  // U 33 x 9: 2 x 2 luma tiles in slots 0, 7 / 6, 1 and 2 x 1 chroma tiles
  // in slots 0, 7 of the chroma plane (filled with 100 + slot); 297 luma
  // bytes, then chroma rows of 34 bytes, cut off where w x h x 3 / 2 = 445
  // bytes end. G 17 x 5: tiles of 16 x 4 pixels in slots 0, 7 / 6, 1.
  Bytes nv12 = RawSlotFrame(16384, 4096, [](int s) { return s; });
  std::fill_n(nv12.begin() + 12288, 4096, 0);
  for (int s = 0; s < 16; ++s) std::fill_n(nv12.begin() + 12288 + 256 * s, 256, 100 + s);
  Bytes nv12Out;
  for (int y = 0; y < 9; ++y) {
    for (int x = 0; x < 33; ++x) nv12Out.push_back(kSlotOrder[4 * (y / 8) + x / 32]);
  }
  for (int y = 0; y < 5; ++y) {
    for (int x = 0; x < 34; ++x) nv12Out.push_back(100 + kSlotOrder[x / 32]);
  }
  nv12Out.resize(33 * 9 * 3 / 2);
  Bytes rgbaOut;
  for (int y = 0; y < 5; ++y) {
    for (int x = 0; x < 17; ++x) rgbaOut.insert(rgbaOut.end(), 4, kSlotOrder[4 * (y / 4) + x / 16]);
  }
  // B: raw half tiles of one stored pixel, written with its first and third
  // fields swapped. Width 129 has a 256-byte stride but 258-byte rows: each
  // row runs into the next, and the last one past the buffer, reading zeros.
  Bytes red(8192, 31), low(8192, 31);
  for (size_t i = 4096; i < red.size(); i += 2) {
    red[i] = 0, red[i + 1] = 0xF8, low[i] = 1, low[i + 1] = 0;
  }
  Bytes lowOut = Repeat({0x00, 0x08}, 129 * 16);
  lowOut.end()[-2] = lowOut.end()[-1] = 0;
  const std::string oneFrame = ReadLines(1) + kDecodeEnd;
  RunCliCases({
      {{"U", "in", "out", "33", "9"}, nv12, DecodeHead('U', kNv12Geometry) + oneFrame, nv12Out},
      {{"G", "in", "out", "17", "5"}, RawSlotFrame(8192, 4096, [](int s) { return s; }),
       DecodeHead('G', kRgbaGeometry) + oneFrame, rgbaOut},
      {{"B", "in", "out", "40", "4"}, red, DecodeHead('B', kRgb565Geometry) + oneFrame,
       Repeat({0x1F, 0x00}, 40 * 4)},
      {{"B", "in", "out", "129", "16"}, low, DecodeHead('B', kRgb565Geometry) + oneFrame, lowOut},
  });
}

TEST(HostileArguments, NegativeAndHugeSizesAreRefused) {
  // The decode commands print the geometry as the 32-bit arithmetic gives
  // it, then refuse; the encode commands refuse before anything else; the
  // raw tools fail like an exhausted allocation, before opening any file.
  const Bytes some = RandomBytes(100, 5);
  const GeometryValues rgbaNegativeHeight = {256, 0, 0, 0, 64, 0, 0, 0, 0, 0, 0, 0, 0, 0};
  const GeometryValues nv12Huge = {65536,    65536, 65536,   32768,       2048,        8192, 2048,
                                   4096,     16777216, 0,    8388608, 2147483648u, 2172649472u, 0};
  const GeometryValues rgbaHuge = {131072, 16384, 0, 0, 2048,        4096,        0,
                                   0,      8388608, 2147483648u, 0, 0, 2155872256u, 0};
  // Every buffer fits, but U's written frame of w x h x 3 / 2 bytes is formed
  // as w x h x 3 in signed 32-bit arithmetic, which reaches 2^31.
  const GeometryValues nv12Product = {32768,   21856,     32768,   10944,     1024,
                                      2736,    1024,      1376,    2801664,   716177408,
                                      1409024, 358612992, 1079001088, 1432354816};
  const std::string refusedNegative = std::string(kNegative) + UsageText();
  const std::string refusedHuge = std::string(kTooLarge) + UsageText();
  RunCliCases({
      {{"U", "in", "out", "-1", "-1"}, some,
       DecodeHead('U', kZeroGeometry) + SizeWarning(100, 0) + refusedNegative},
      {{"B", "in", "out", "-1", "-1"}, some,
       DecodeHead('B', kZeroGeometry) + SizeWarning(100, 0) + refusedNegative},
      {{"G", "in", "out", "16", "-4"}, some,
       DecodeHead('G', rgbaNegativeHeight) + SizeWarning(100, 0) + refusedNegative},
      {{"H", "in", "out", "-1", "-1"}, some, refusedNegative},
      {{"N", "in", "out", "16", "-8"}, some, refusedNegative},
      {{"U", "in", "out", "65536", "65536"}, {}, DecodeHead('U', nv12Huge) + refusedHuge},
      {{"U", "in", "out", "32768", "21846"}, {}, DecodeHead('U', nv12Product) + refusedHuge},
      {{"G", "in", "out", "32768", "16384"}, {}, DecodeHead('G', rgbaHuge) + refusedHuge},
      {{"H", "in", "out", "65536", "65536"}, some, refusedHuge},
      {{"N", "in", "out", "65536", "65536"}, some, refusedHuge},
      {{"P", "in", "out", "-3", "5"}, some, RawBufferError('P'), {}, false},
      {{"I", "in", "out", "-4", "4"}, some, RawBufferError('I'), {}, false},
      {{"C", "in", "out", "-4", "4", "2", "2"}, some, RawBufferError('C'), {}, false},
      {{"C", "in", "out", "4", "4", "-2", "2"}, some, RawBufferError('C'), {}, false},
      {{"E", "in", "out", "-4", "4"}, some, RawBufferError('E'), {}, false},
      {{"T", "in", "out", "-4", "4", "1"}, some, RawBufferError('T'), {}, false},
      // 2 x 32768 x 32768 chroma bytes reach 2^31: negative as a 32-bit size.
      {{"P", "in", "out", "65536", "65536"}, some, RawBufferError('P'), {}, false},
      // 46341^2 wraps negative; 1.5 times it is no size at all.
      {{"T", "in", "out", "46341", "46341", "3"}, some, RawBufferError('T'), {}, false},
      // Luma rows of 16 bytes, 2^30 + 1 of them: 2^34 bytes to write although
      // the 32-bit frame size wraps to 8192.
      {{"E", "in", "out", "16", "1073741825"}, some, RawBufferError('E'), {}, false},
  });
}

TEST(HostileArguments, NumbersThatAreNotPlainNumbers) {
  // Converted as atoi does: leading blanks and a sign, digits up to the
  // first non-digit, 0 without digits; the value is then taken as 32 bits
  // (4294967312 is 2^32 + 16).
  const GeometryValues g0x4 = {0, 16, 0, 0, 0, 16, 0, 0, 0, 0, 0, 0, 0, 0};
  const std::string as16 = DecodeHead('G', kRgbaGeometry) + kDecodeEnd;
  const std::string as0 = DecodeHead('G', g0x4) + kDecodeReadError;
  const std::string asMinus1 = DecodeHead('G', g0x4) + kNegative + UsageText();
  std::vector<CliCase> cases;
  for (const char* text : {"16", " 16", "\t16", "+16", "16abc", "16.9", "0016", "4294967312"}) {
    cases.push_back({{"G", "in", "out", text, "4"}, {}, as16});
  }
  for (const char* text : {"abc", "", "0x10", "-0", "+", "--16", "- 16"}) {
    cases.push_back({{"G", "in", "out", text, "4"}, {}, as0});
  }
  for (const char* text : {"-1", "-1xyz", " -1", "4294967295"}) {
    cases.push_back({{"G", "in", "out", text, "4"}, {}, asMinus1});
  }
  RunCliCases(cases);
}

}  // namespace
}  // namespace pelcast::testing
