// Commands P, I, C, E and T on small files: output bytes and progress lines
// against layouts restated here pixel by pixel, failure messages, and the
// refusal to write over the input.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <functional>

#include "tests/test_support.h"

namespace pelcast::testing {
namespace {

std::string FrameLines(int frames) {
  std::string lines;
  for (int i = 0; i < frames; ++i) lines += "frame = " + std::to_string(i) + " \n";
  return lines;
}

uint8_t At(const Bytes& bytes, size_t index) { return index < bytes.size() ? bytes[index] : 0; }

// A short read: as many of the next `count` input bytes as there are land at
// the start of `buffer`; the rest of it keeps what it held.
void ReadOver(const Bytes& in, size_t& pos, Bytes& buffer, size_t count) {
  const size_t got = std::min(count, in.size() - pos);
  std::copy_n(in.begin() + static_cast<ptrdiff_t>(pos), got, buffer.begin());
  pos += got;
}

Bytes Take(const Bytes& in, size_t& pos, size_t count) {
  Bytes part(in.begin() + static_cast<ptrdiff_t>(pos), in.begin() + static_cast<ptrdiff_t>(pos + count));
  pos += count;
  return part;
}

struct Expected {
  Bytes output;
  int frames = 0;
};

// Planar to NV12, built from the output side: each chroma output byte at
// (row, col) comes from the U plane (even col) or V plane (odd col).
Expected PlanarToNv12(const Bytes& in, int w, int h) {
  const size_t cw = (w + 1) / 2, ch = (h + 1) / 2, luma = size_t(w) * h, chroma = 2 * cw * ch;
  Bytes planar(chroma, 0);
  Expected e;
  for (size_t pos = 0; in.size() - pos >= luma; ++e.frames) {
    const Bytes y = Take(in, pos, luma);
    e.output.insert(e.output.end(), y.begin(), y.end());
    ReadOver(in, pos, planar, chroma);
    for (size_t k = 0; k < chroma; ++k) {
      const size_t row = k / (2 * cw), col = k % (2 * cw);
      e.output.push_back(planar[(col % 2 ? cw * ch : 0) + row * cw + col / 2]);
    }
  }
  return e;
}

// Splits interleaved chroma (src row r at srcStart + r * srcStride) into
// U and V planes of a w x h planar frame, with rows starting at (r * w) / 2.
void SplitInto(const Bytes& src, size_t srcStart, size_t srcStride, Bytes& planar, int w, int h) {
  for (int r = 0; r < h / 2; ++r) {
    for (int c = 0; c < w / 2; ++c) {
      const size_t from = srcStart + r * srcStride + 2 * c;
      planar[(r * w) / 2 + c] = At(src, from);
      planar[(w * h) / 4 + (r * w) / 2 + c] = At(src, from + 1);
    }
  }
}

Expected Nv12ToPlanar(const Bytes& in, int w, int h) {
  const size_t luma = size_t(w) * h;
  Bytes planar(luma / 2, 0);
  Expected e;
  for (size_t pos = 0; in.size() - pos >= luma; ++e.frames) {
    Bytes buffer = Take(in, pos, luma);
    e.output.insert(e.output.end(), buffer.begin(), buffer.end());
    ReadOver(in, pos, buffer, luma / 2);  // chroma lands over the luma
    SplitInto(buffer, 0, w, planar, w, h);
    e.output.insert(e.output.end(), planar.begin(), planar.end());
  }
  return e;
}

Expected Crop(const Bytes& in, int w, int h, int w2, int h2) {
  const size_t luma = size_t(w) * h, cropped = size_t(w2) * h2;
  Bytes chroma(luma / 2, 0), planar(cropped / 2, 0);
  Expected e;
  for (size_t pos = 0; in.size() - pos >= luma; ++e.frames) {
    const Bytes y = Take(in, pos, luma);
    for (int r = 0; r < h2; ++r) {
      for (int c = 0; c < w2; ++c) e.output.push_back(At(y, size_t(r) * w + c));
    }
    ReadOver(in, pos, chroma, luma / 2);
    SplitInto(chroma, 0, w, planar, w2, h2);
    e.output.insert(e.output.end(), planar.begin(), planar.end());
  }
  return e;
}

// Padded NV12: stride rounded up to 128 (plus 128 when that is a multiple of
// 2048), luma rows rounded up to 32, chroma rows to 16.
Expected Depad(const Bytes& in, int w, int h) {
  size_t stride = (w + 127) / 128 * 128;
  if (stride % 2048 == 0) stride += 128;
  const size_t lumaLines = (h + 31) / 32 * 32, chromaLines = (h / 2 + 15) / 16 * 16;
  const size_t frameBytes = stride * (lumaLines + chromaLines);
  Bytes planar(size_t(w) * h / 2, 0);
  Expected e;
  for (size_t pos = 0; in.size() - pos >= frameBytes; ++e.frames) {
    const Bytes frame = Take(in, pos, frameBytes);
    for (int r = 0; r < h; ++r) {
      for (int c = 0; c < w; ++c) e.output.push_back(frame[r * stride + c]);
    }
    SplitInto(frame, stride * lumaLines, stride, planar, w, h);
    e.output.insert(e.output.end(), planar.begin(), planar.end());
  }
  return e;
}

Expected CopyFrames(const Bytes& in, int w, int h, int n) {
  const size_t frameBytes = size_t(w) * h * 3 / 2;
  Expected e;
  e.frames = std::min<int>(n, static_cast<int>(in.size() / frameBytes));
  e.output.assign(in.begin(), in.begin() + static_cast<ptrdiff_t>(e.frames * frameBytes));
  return e;
}

struct LayoutCase {
  std::string name;
  std::vector<std::string> numbers;  // the arguments after the two paths
  Bytes input;
  Expected expected;
};

Bytes Sequence(size_t count) {
  Bytes bytes(count);
  for (size_t i = 0; i < count; ++i) bytes[i] = static_cast<uint8_t>(i);
  return bytes;
}

void RunLayoutCases(const std::string& letter, const std::vector<LayoutCase>& cases) {
  for (const LayoutCase& c : cases) {
    TempDir dir;
    WriteFile(dir.File("in.yuv"), c.input);
    std::vector<std::string> args = {letter, dir.File("in.yuv"), dir.File("out.yuv")};
    args.insert(args.end(), c.numbers.begin(), c.numbers.end());
    const RunResult r = RunTool(args);
    EXPECT_EQ(r.output, FrameLines(c.expected.frames)) << letter << " " << c.name;
    EXPECT_EQ(ReadFile(dir.File("out.yuv")), c.expected.output) << letter << " " << c.name;
    EXPECT_EQ(r.exitStatus, 0);
  }
}

TEST(RawLayout, PlanarToNv12HandWorked3x3) {
  // cw = ch = 2: U = 9 10 11 12, V = 13 14 15 16, two chroma rows of 4 bytes.
  const Bytes out = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 13, 10, 14, 11, 15, 12, 16};
  RunLayoutCases("P", {{"3x3", {"3", "3"}, Sequence(17), {out, 1}}});
}

TEST(RawLayout, Nv12ToPlanarHandWorked3x3) {
  // 4 chroma bytes land over the luma; one chroma row of one pair: U from
  // byte 9 goes to 0, V from byte 10 goes to 9 / 4 = 2.
  const Bytes out = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 0, 10, 0};
  RunLayoutCases("I", {{"3x3", {"3", "3"}, Sequence(17), {out, 1}}});
}

TEST(RawLayout, PlanarToNv12) {
  const auto make = [](const std::string& name, int w, int h, size_t bytes, uint32_t seed) {
    const Bytes in = RandomBytes(bytes, seed);
    return LayoutCase{name, {std::to_string(w), std::to_string(h)}, in, PlanarToNv12(in, w, h)};
  };
  RunLayoutCases("P", {
      make("even, two frames", 4, 2, 2 * 12, 1),
      make("odd, two frames", 5, 3, 2 * (15 + 12), 2),
      make("wide rows", 67, 9, 3 * (603 + 2 * 34 * 5), 3),
      make("partial chroma keeps the previous frame's", 5, 3, 2 * 27 + 15 + 5, 4),
      make("shorter than one luma plane", 4, 4, 15, 5),
  });
}

TEST(RawLayout, Nv12ToPlanar) {
  const auto make = [](const std::string& name, int w, int h, size_t bytes, uint32_t seed) {
    const Bytes in = RandomBytes(bytes, seed);
    return LayoutCase{name, {std::to_string(w), std::to_string(h)}, in, Nv12ToPlanar(in, w, h)};
  };
  RunLayoutCases("I", {
      make("even, two frames", 4, 4, 2 * 24, 11),
      make("odd width", 5, 4, 2 * 30, 12),
      make("odd both", 3, 5, 2 * (15 + 7), 13),
      make("odd width, rows start at (r * w) / 2", 5, 7, 2 * (35 + 17), 17),
      make("wide rows", 66, 10, 3 * 990, 14),
      make("partial chroma splits luma leftovers", 6, 4, 36 + 24 + 5, 15),
      make("shorter than one luma plane", 4, 4, 10, 16),
  });
}

TEST(RawLayout, CropNv12ToPlanar) {
  const auto make = [](const std::string& name, int w, int h, int w2, int h2, size_t bytes,
                       uint32_t seed) {
    const Bytes in = RandomBytes(bytes, seed);
    return LayoutCase{name,
                      {std::to_string(w), std::to_string(h), std::to_string(w2), std::to_string(h2)},
                      in, Crop(in, w, h, w2, h2)};
  };
  RunLayoutCases("C", {
      make("even region", 6, 4, 4, 2, 2 * 36, 21),
      make("odd region", 5, 5, 3, 3, 2 * (25 + 12), 22),
      make("odd region, rows start at (r * w2) / 2", 9, 8, 5, 7, 2 * (72 + 36), 28),
      make("whole frame", 8, 6, 8, 6, 72, 23),
      make("region larger than the frame reads zeros", 4, 2, 6, 4, 2 * 12, 24),
      make("empty region still counts frames", 8, 2, 0, 3, 2 * 24, 25),
      make("partial chroma", 6, 4, 4, 4, 24 + 5, 26),
      make("shorter than one luma plane", 6, 4, 4, 2, 23, 27),
  });
}

TEST(RawLayout, DepadNv12ToPlanar) {
  const auto make = [](const std::string& name, int w, int h, size_t bytes, uint32_t seed) {
    const Bytes in = RandomBytes(bytes, seed);
    return LayoutCase{name, {std::to_string(w), std::to_string(h)}, in, Depad(in, w, h)};
  };
  // Frame sizes worked out by hand: 8 x 4 and 5 x 3 have stride 128 and
  // 32 + 16 rows; 2048 x 2 has stride 2176 and 32 + 16 rows; 130 x 40 has
  // stride 256 and 64 + 32 rows.
  RunLayoutCases("E", {
      make("even, two frames", 8, 4, 2 * 128 * 48, 31),
      make("odd", 5, 3, 128 * 48 + 100, 32),
      make("odd width, rows start at (r * w) / 2", 7, 6, 128 * 48, 36),
      make("width 2048 takes stride 2176", 2048, 2, 2176 * 48, 33),
      make("more than one row block", 130, 40, 256 * 96, 34),
      make("one byte short of a frame", 2048, 2, 2176 * 48 - 1, 35),
  });
}

TEST(RawLayout, CopyFirstFrames) {
  const auto make = [](const std::string& name, int w, int h, int n, size_t bytes, uint32_t seed) {
    const Bytes in = RandomBytes(bytes, seed);
    return LayoutCase{name, {std::to_string(w), std::to_string(h), std::to_string(n)}, in,
                      CopyFrames(in, w, h, n)};
  };
  RunLayoutCases("T", {
      make("two of three", 4, 4, 2, 3 * 24, 41),
      make("count 0 copies nothing", 4, 4, 0, 3 * 24, 42),
      make("count beyond the file", 4, 4, 5, 2 * 24 + 7, 43),
      make("odd size truncates 13.5", 3, 3, 4, 3 * 13, 44),
      make("shorter than one frame", 4, 4, 1, 23, 45),
  });
}

struct MessageCase {
  std::vector<std::string> args;  // "IN" and "OUT" stand for the paths
  std::string message;
  bool outputCreated;
};

TEST(RawLayout, FailureMessages) {
  const std::string missingP = "ERROR:Invalid file pointer...Exiting \n";
  const std::string missing = "ERROR: Invalid file pointer...Exiting\n";
  const std::string buffer = "ERROR: Invalid buffer pointer...Exiting\n";
  // A missing input still leaves a created output (both are opened before
  // either is tested); a negative frame size fails before any file is opened.
  // NONE names a file that does not exist.
  const std::vector<MessageCase> cases = {
      {{"P", "NONE", "OUT", "4", "4"}, missingP, true},
      {{"P", "IN", "OUT", "-3", "3"}, "ERROR:Invalid buffer pointer...Exiting \n", false},
      {{"I", "NONE", "OUT", "4", "4"}, missing, true},
      {{"I", "IN", "OUT", "-2", "3"}, "ERROR: Invalid buffer ptr...Exiting\n", false},
      {{"C", "NONE", "OUT", "4", "4", "2", "2"}, missing, true},
      {{"C", "IN", "OUT", "4", "4", "-2", "2"}, buffer, false},
      {{"E", "NONE", "OUT", "4", "4"}, missing, true},
      {{"E", "IN", "OUT", "-4", "4"}, buffer, false},
      {{"T", "NONE", "OUT", "4", "4", "1"}, missing, true},
      {{"T", "IN", "OUT", "-2", "2", "1"}, buffer, false},
  };
  for (const MessageCase& c : cases) {
    TempDir dir;
    WriteFile(dir.File("in"), RandomBytes(64, 7));
    std::vector<std::string> args = c.args;
    for (std::string& a : args) {
      if (a == "IN") a = dir.File("in");
      if (a == "NONE") a = dir.File("none");
      if (a == "OUT") a = dir.File("out");
    }
    const RunResult r = RunTool(args);
    EXPECT_EQ(r.output, c.message) << c.args[0] << " " << c.args[1];
    EXPECT_EQ(FileExists(dir.File("out")), c.outputCreated) << c.args[0] << " " << c.args[1];
    EXPECT_EQ(r.exitStatus, 0);
  }
}

TEST(RawLayout, OutputNamingTheInputIsRefused) {
  const std::vector<std::vector<std::string>> commands = {
      {"P", "4", "4"}, {"I", "4", "4"}, {"C", "4", "4", "2", "2"}, {"E", "4", "4"},
      {"T", "4", "4", "1"}};
  for (const auto& command : commands) {
    const std::string message = command[0] == "P" ? "ERROR:Invalid file pointer...Exiting \n"
                                                  : "ERROR: Invalid file pointer...Exiting\n";
    TempDir dir;
    const Bytes input = RandomBytes(128 * 48, 9);
    WriteFile(dir.File("in.yuv"), input);
    ASSERT_EQ(link(dir.File("in.yuv").c_str(), dir.File("link.yuv").c_str()), 0);
    const std::string viaParent = "../" + dir.path().substr(dir.path().rfind('/') + 1) + "/in.yuv";
    for (const std::string& output : {std::string("./in.yuv"), std::string("link.yuv"), viaParent}) {
      std::vector<std::string> args = {command[0], "in.yuv", output};
      args.insert(args.end(), command.begin() + 1, command.end());
      const RunResult r = RunTool(args, dir.path());
      EXPECT_EQ(r.output, message) << command[0] << " -> " << output;
      EXPECT_EQ(ReadFile(dir.File("in.yuv")), input) << command[0] << " -> " << output;
    }
  }
}

}  // namespace
}  // namespace pelcast::testing
