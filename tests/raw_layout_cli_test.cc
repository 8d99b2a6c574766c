// Commands P, I, C, E and T on small files: output bytes and progress lines
// against layouts restated here pixel by pixel.
#include <gtest/gtest.h>

#include <algorithm>

#include "tests/test_support.h"

namespace pelcast::testing {
namespace {

struct Expected {
  Bytes output;
  int frames = 0;
};

uint8_t At(const Bytes& bytes, size_t index) { return index < bytes.size() ? bytes[index] : 0; }

// A short read: what is left of the next `count` input bytes lands at the
// start of `buffer`; the rest of it keeps what it held.
void ReadOver(const Bytes& in, size_t& pos, Bytes& buffer, size_t count) {
  const size_t got = std::min(count, in.size() - pos);
  std::copy_n(in.begin() + static_cast<ptrdiff_t>(pos), got, buffer.begin());
  pos += got;
}

void Append(Bytes& out, const Bytes& part) { out.insert(out.end(), part.begin(), part.end()); }

// P, built from the output side: chroma output byte (row, col) is U (even
// col) or V (odd col) of chroma pixel (row, col / 2), chroma rounded up.
Expected PlanarToNv12(const Bytes& in, size_t w, size_t h) {
  const size_t cw = (w + 1) / 2, ch = (h + 1) / 2, chroma = 2 * cw * ch;
  Bytes luma(w * h), planar(chroma, 0);
  Expected e;
  for (size_t pos = 0; in.size() - pos >= luma.size(); ++e.frames) {
    ReadOver(in, pos, luma, luma.size());
    Append(e.output, luma);
    ReadOver(in, pos, planar, chroma);
    for (size_t k = 0; k < chroma; ++k) {
      const size_t row = k / (2 * cw), col = k % (2 * cw);
      e.output.push_back(planar[(col % 2 ? cw * ch : 0) + row * cw + col / 2]);
    }
  }
  return e;
}

// Interleaved chroma (row r at start + r * stride) to U and V planes of a
// w x h planar frame whose rows start at (r * w) / 2.
void SplitInto(const Bytes& src, size_t start, size_t stride, Bytes& planar, int w, int h) {
  for (int r = 0; r < h / 2; ++r) {
    for (int c = 0; c < w / 2; ++c) {
      planar[(r * w) / 2 + c] = At(src, start + r * stride + 2 * c);
      planar[(w * h) / 4 + (r * w) / 2 + c] = At(src, start + r * stride + 2 * c + 1);
    }
  }
}

// I (region = whole frame, chroma read over the luma buffer) and C (chroma
// read into a buffer of its own).
Expected SplitToPlanar(const Bytes& in, int w, int h, int w2, int h2, bool chromaOverLuma) {
  Bytes luma(size_t(w) * h), chroma(luma.size() / 2, 0), planar(size_t(w2) * h2 / 2, 0);
  Expected e;
  for (size_t pos = 0; in.size() - pos >= luma.size(); ++e.frames) {
    ReadOver(in, pos, luma, luma.size());
    for (int r = 0; r < h2; ++r) {
      for (int c = 0; c < w2; ++c) e.output.push_back(At(luma, size_t(r) * w + c));
    }
    Bytes& chromaBuffer = chromaOverLuma ? luma : chroma;
    ReadOver(in, pos, chromaBuffer, chroma.size());
    SplitInto(chromaBuffer, 0, w, planar, w2, h2);
    Append(e.output, planar);
  }
  return e;
}

// E: stride rounded up to 128 (plus 128 when that is a multiple of 2048),
// luma rows rounded up to 32, chroma rows to 16.
Expected Depad(const Bytes& in, int w, int h) {
  size_t stride = (w + 127) / 128 * 128;
  if (stride % 2048 == 0) stride += 128;
  const size_t lumaLines = (h + 31) / 32 * 32, chromaLines = (h / 2 + 15) / 16 * 16;
  Bytes frame(stride * (lumaLines + chromaLines)), planar(size_t(w) * h / 2, 0);
  Expected e;
  for (size_t pos = 0; in.size() - pos >= frame.size(); ++e.frames) {
    ReadOver(in, pos, frame, frame.size());
    for (int r = 0; r < h; ++r) {
      for (int c = 0; c < w; ++c) e.output.push_back(frame[r * stride + c]);
    }
    SplitInto(frame, stride * lumaLines, stride, planar, w, h);
    Append(e.output, planar);
  }
  return e;
}

Expected CopyFrames(const Bytes& in, int w, int h, int n) {
  const size_t frameBytes = size_t(w) * h * 3 / 2;
  const int frames = std::min<int>(n, static_cast<int>(in.size() / frameBytes));
  return {Bytes(in.begin(), in.begin() + static_cast<ptrdiff_t>(frames * frameBytes)), frames};
}

Expected Model(char letter, const Bytes& in, const std::vector<int>& n) {
  switch (letter) {
    case 'P':
      return PlanarToNv12(in, n[0], n[1]);
    case 'I':
      return SplitToPlanar(in, n[0], n[1], n[0], n[1], true);
    case 'C':
      return SplitToPlanar(in, n[0], n[1], n[2], n[3], false);
    case 'E':
      return Depad(in, n[0], n[1]);
    default:
      return CopyFrames(in, n[0], n[1], n[2]);
  }
}

struct LayoutCase {
  std::string letter;
  std::vector<int> numbers;  // the arguments after the two paths
  size_t inputBytes;
  std::string what;
};

RunResult RunOnFile(const TempDir& dir, const std::string& letter, const std::vector<int>& numbers,
                    const Bytes& input) {
  WriteFile(dir.File("in.yuv"), input);
  std::vector<std::string> args = {letter, dir.File("in.yuv"), dir.File("out.yuv")};
  for (int n : numbers) args.push_back(std::to_string(n));
  return RunTool(args);
}

std::string FrameLines(int frames) {
  std::string lines;
  for (int i = 0; i < frames; ++i) lines += "frame = " + std::to_string(i) + " \n";
  return lines;
}

TEST(RawLayout, HandWorked3x3) {
  Bytes in(17);
  for (size_t i = 0; i < in.size(); ++i) in[i] = static_cast<uint8_t>(i);
  // P: cw = ch = 2, U = 9..12 and V = 13..16 interleave into two rows of 4.
  // I: 4 chroma bytes land over the luma, then one pair splits: U (byte 9)
  // to 0 and V (byte 10) to 9 / 4 = 2 of a 4-byte chroma part.
  const std::vector<std::pair<std::string, Bytes>> cases = {
      {"P", {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 13, 10, 14, 11, 15, 12, 16}},
      {"I", {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 0, 10, 0}}};
  for (const auto& [letter, out] : cases) {
    TempDir dir;
    EXPECT_EQ(RunOnFile(dir, letter, {3, 3}, in).output, "frame = 0 \n") << letter;
    EXPECT_EQ(ReadFile(dir.File("out.yuv")), out) << letter;
  }
}

TEST(RawLayout, AllCommandsAgainstRestatedLayouts) {
  // Padded frame sizes worked out by hand: 8 x 4, 5 x 3 and 7 x 6 have
  // stride 128 and 32 + 16 rows; 2048 x 2 has stride 2176 and 32 + 16 rows;
  // 130 x 40 has stride 256 and 64 + 32 rows.
  const std::vector<LayoutCase> cases = {
      {"P", {4, 2}, 2 * 12, "even, two frames"},
      {"P", {5, 3}, 2 * 27, "odd"},
      {"P", {67, 9}, 3 * 943, "wide rows"},
      {"P", {5, 3}, 2 * 27 + 15 + 5, "partial chroma keeps the previous frame's"},
      {"P", {4, 4}, 15, "shorter than one luma plane"},
      {"I", {4, 4}, 2 * 24, "even, two frames"},
      {"I", {5, 7}, 2 * 52, "odd, rows start at (r * w) / 2"},
      {"I", {66, 10}, 3 * 990, "wide rows"},
      {"I", {6, 4}, 36 + 24 + 5, "partial chroma splits luma leftovers"},
      {"I", {4, 4}, 10, "shorter than one luma plane"},
      {"C", {6, 4, 4, 2}, 2 * 36, "even region"},
      {"C", {9, 8, 5, 7}, 2 * 108, "odd region, rows start at (r * w2) / 2"},
      {"C", {4, 2, 6, 4}, 2 * 12, "region larger than the frame reads zeros"},
      {"C", {8, 2, 0, 3}, 2 * 24, "empty region still counts frames"},
      {"C", {6, 4, 4, 4}, 24 + 5, "partial chroma"},
      {"C", {6, 4, 4, 2}, 23, "shorter than one luma plane"},
      {"E", {8, 4}, 2 * 128 * 48, "even, two frames"},
      {"E", {7, 6}, 128 * 48 + 100, "odd, rows start at (r * w) / 2"},
      {"E", {2048, 2}, 2176 * 48, "width 2048 takes stride 2176"},
      {"E", {130, 40}, 256 * 96, "more than one row block"},
      {"E", {2048, 2}, 2176 * 48 - 1, "one byte short of a frame"},
      {"T", {4, 4, 2}, 3 * 24, "two of three"},
      {"T", {4, 4, 0}, 3 * 24, "count 0 copies nothing"},
      {"T", {4, 4, 5}, 2 * 24 + 7, "count beyond the file"},
      {"T", {3, 3, 4}, 3 * 13, "odd size truncates 13.5"},
      {"T", {4, 4, 1}, 23, "shorter than one frame"},
  };
  uint32_t seed = 1;
  for (const LayoutCase& c : cases) {
    const Bytes input = RandomBytes(c.inputBytes, seed++);
    const Expected expected = Model(c.letter[0], input, c.numbers);
    TempDir dir;
    const RunResult r = RunOnFile(dir, c.letter, c.numbers, input);
    EXPECT_EQ(r.output, FrameLines(expected.frames)) << c.letter << ": " << c.what;
    EXPECT_EQ(ReadFile(dir.File("out.yuv")), expected.output) << c.letter << ": " << c.what;
    EXPECT_EQ(r.exitStatus, 0);
  }
}

}  // namespace
}  // namespace pelcast::testing
