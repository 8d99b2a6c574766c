// decode and encode through every kind of linear file: Y4M, PNG (alpha
// kept, several frames numbered) and raw frames, packed or padded by
// --stride, --scanlines and --uv-offset. Each file holds the pictures where
// the layout puts them, zeros in the padding, and encodes back to the very
// same ZPAK bytes; standard input and output work as files do.
#include <gtest/gtest.h>

#include "tests/zpak/zpak_test_support.h"

namespace pelcast::zpak::testing {
namespace {

using pelcast::testing::ReadFile;
using pelcast::testing::TempDir;
using pelcast::testing::WriteFile;

// Where the rows of a raw frame go, written out independently of zpak.
struct RawGeometry {
  size_t frameBytes;
  size_t stride;        // of the first plane
  size_t rows;          // of the first plane
  size_t chromaStart;   // NV12
  size_t chromaStride;  // NV12
};

struct RoundTrip {
  pelcast_format format;
  uint32_t width, height, frames;
  std::string file;
  std::vector<std::string> options;
  RawGeometry raw;         // frameBytes 0: not raw
  std::string committed = "";  // the frames of a committed file; empty: made here
};

const std::vector<RoundTrip> kRoundTrips = {
    {PELCAST_FORMAT_NV12, 64, 48, 2, "v.y4m", {}, {}},
    {PELCAST_FORMAT_NV12, 33, 17, 1, "v.y4m", {}, {}},
    {PELCAST_FORMAT_NV12, 99, 31, 1, "p.nv12", {}, {99 * 31 + 100 * 16, 99, 31, 99 * 31, 100}},
    {PELCAST_FORMAT_NV12, 100, 60, 2, "p.raw", {"--stride", "128", "--scanlines", "64"},
     {128 * 64 + 128 * 32, 128, 64, 128 * 64, 128}},
    {PELCAST_FORMAT_NV12, 100, 60, 1, "p.raw",
     {"--stride=128", "--scanlines=64", "--uv-offset=9216"}, {9216 + 128 * 32, 128, 64, 9216, 128}},
    {PELCAST_FORMAT_RGBA8888, 40, 30, 1, "a.png", {}, {}},
    {PELCAST_FORMAT_RGBA8888, 64, 16, 2, "a.png", {}, {}},
    {PELCAST_FORMAT_RGBA8888, 50, 20, 3, "a.raw", {"--stride", "256"}, {256 * 20, 256, 20, 0, 0}},
    {PELCAST_FORMAT_RGB565, 48, 20, 1, "c.png", {}, {}},
    {PELCAST_FORMAT_RGB565, 30, 10, 2, "c.raw", {"--stride", "64", "--scanlines", "12"},
     {64 * 12, 64, 12, 0, 0}},
    // Committed real content: odd sizes, premultiplied alpha, a 4-frame pan.
    {PELCAST_FORMAT_NV12, 97, 61, 1, "m.y4m", {}, {}, "photo-mountains-97x61"},
    {PELCAST_FORMAT_RGBA8888, 133, 75, 1, "n.png", {}, {}, "screen-navbar-133x75"},
    {PELCAST_FORMAT_RGB565, 256, 144, 1, "p.raw", {"--stride", "768", "--scanlines", "160"},
     {768 * 160, 768, 160, 0, 0}, "screen-player-256x144"},
    {PELCAST_FORMAT_NV12, 192, 108, 4, "h.raw", {"--stride", "256", "--scanlines", "112"},
     {256 * 112 + 256 * 56, 256, 112, 256 * 112, 256}, "pan-hillside-192x108-4f"},
};

// The pictures of a case and their dump.
std::vector<Bytes> PicturesOf(const RoundTrip& c) {
  std::vector<Bytes> pictures;
  const Bytes all = c.committed.empty() ? Bytes() : CommittedFrames(c.committed, c.format);
  const size_t bytes = pelcast_linear_frame_size(c.format, c.width, c.height);
  for (uint32_t f = 0; f < c.frames; ++f) {
    pictures.push_back(c.committed.empty()
                           ? MakePicture(c.format, c.width, c.height, 4 + f)
                           : Bytes(all.begin() + static_cast<ptrdiff_t>(f * bytes),
                                   all.begin() + static_cast<ptrdiff_t>((f + 1) * bytes)));
  }
  return pictures;
}

std::vector<std::string> Args(std::vector<std::string> args, const std::vector<std::string>& more) {
  args.insert(args.end(), more.begin(), more.end());
  return args;
}

// Checks a raw frame against the picture: rows in place, zeros elsewhere.
void ExpectRawFrame(const RoundTrip& c, const Bytes& picture, const uint8_t* frame) {
  Bytes expected(c.raw.frameBytes, 0);
  const size_t pixel = c.format == PELCAST_FORMAT_RGBA8888 ? 4 : (c.format == PELCAST_FORMAT_RGB565 ? 2 : 1);
  const size_t rowBytes = pixel * c.width;
  for (size_t y = 0; y < c.height; ++y) {
    std::copy_n(picture.begin() + static_cast<ptrdiff_t>(y * rowBytes), rowBytes,
                expected.begin() + static_cast<ptrdiff_t>(y * c.raw.stride));
  }
  if (c.format == PELCAST_FORMAT_NV12) {
    const size_t chromaRow = 2 * ((c.width + 1) / 2);
    for (size_t y = 0; y < (c.height + 1) / 2; ++y) {
      std::copy_n(picture.begin() + static_cast<ptrdiff_t>(c.width * c.height + y * chromaRow),
                  chromaRow,
                  expected.begin() + static_cast<ptrdiff_t>(c.raw.chromaStart + y * c.raw.chromaStride));
    }
  }
  EXPECT_TRUE(std::equal(expected.begin(), expected.end(), frame)) << c.file;
}

void ExpectY4m(const RoundTrip& c, const Bytes& file, const std::vector<Bytes>& pictures) {
  const std::string header = "YUV4MPEG2 W" + std::to_string(c.width) + " H" +
                             std::to_string(c.height) + " ";
  ASSERT_EQ(std::string(file.begin(), file.begin() + static_cast<ptrdiff_t>(header.size())), header);
  size_t at = std::find(file.begin(), file.end(), '\n') - file.begin() + 1;
  const size_t luma = size_t{c.width} * c.height, pairs = (c.width + 1) / 2 * ((c.height + 1) / 2);
  for (const Bytes& p : pictures) {
    ASSERT_EQ(std::string(file.begin() + static_cast<ptrdiff_t>(at), file.begin() + static_cast<ptrdiff_t>(at + 6)), "FRAME\n");
    at += 6;
    EXPECT_TRUE(std::equal(p.begin(), p.begin() + static_cast<ptrdiff_t>(luma), file.begin() + static_cast<ptrdiff_t>(at)));
    for (size_t i = 0; i < pairs; ++i) {
      EXPECT_EQ(file[at + luma + i], p[luma + 2 * i]);
      EXPECT_EQ(file[at + luma + pairs + i], p[luma + 2 * i + 1]);
    }
    at += luma + 2 * pairs;
  }
  EXPECT_EQ(at, file.size());
}

void ExpectPng(const RoundTrip& c, const std::string& path, const Bytes& picture) {
  const PngPicture png = ReadPngFile(path);
  ASSERT_EQ(png.width, c.width);
  ASSERT_EQ(png.height, c.height);
  if (c.format == PELCAST_FORMAT_RGBA8888) {
    ASSERT_EQ(png.channels, 4u);  // the alpha kept
    EXPECT_EQ(png.samples, picture);
    return;
  }
  ASSERT_EQ(png.channels, 3u);
  for (size_t i = 0; i < size_t{c.width} * c.height; ++i) {
    const uint32_t word = picture[2 * i] | picture[2 * i + 1] << 8;
    const uint32_t red = word >> 11, green = (word >> 5) & 63, blue = word & 31;
    EXPECT_EQ(png.samples[3 * i], (red << 3 | red >> 2));
    EXPECT_EQ(png.samples[3 * i + 1], (green << 2 | green >> 4));
    EXPECT_EQ(png.samples[3 * i + 2], (blue << 3 | blue >> 2));
  }
}

std::string Numbered(const std::string& file, uint32_t frame) {
  const size_t dot = file.find('.');
  return file.substr(0, dot) + "-f" + std::to_string(frame) + file.substr(dot);
}

TEST(Transcode, RoundTripsThroughEveryKindOfFile) {
  for (const RoundTrip& c : kRoundTrips) {
    SCOPED_TRACE(c.file + " " + FormatName(c.format));
    TempDir dir;
    const std::vector<Bytes> pictures = PicturesOf(c);
    Bytes dump;
    for (const Bytes& p : pictures) {
      const Bytes frame = EncodeFrame(c.format, c.width, c.height, p);
      dump.insert(dump.end(), frame.begin(), frame.end());
    }
    WriteFile(dir.File("in.zpak"), dump);
    const std::string f = FormatName(c.format), w = std::to_string(c.width), h = std::to_string(c.height);
    const ZpakRun decoded = RunZpak(Args({"decode", f, "in.zpak", c.file, w, h}, c.options), {}, dir.path());
    ASSERT_EQ(decoded.status, 0) << decoded.err;

    Bytes back;
    const bool numbered = c.file.ends_with(".png") && c.frames > 1;
    for (uint32_t k = 0; k < (numbered ? c.frames : 1); ++k) {
      const std::string file = numbered ? Numbered(c.file, k) : c.file;
      if (c.raw.frameBytes != 0) {
        const Bytes raw = ReadFile(dir.File(file));
        ASSERT_EQ(raw.size(), c.frames * c.raw.frameBytes);
        for (uint32_t i = 0; i < c.frames; ++i) ExpectRawFrame(c, pictures[i], raw.data() + i * c.raw.frameBytes);
      } else if (c.file.ends_with(".y4m")) {
        ExpectY4m(c, ReadFile(dir.File(file)), pictures);
      } else {
        ExpectPng(c, dir.File(file), pictures[k]);
      }
      std::vector<std::string> encode = {"encode", f, file, "back.zpak"};
      if (c.raw.frameBytes != 0) encode = Args(encode, {w, h});
      const ZpakRun encoded = RunZpak(Args(encode, c.options), {}, dir.path());
      ASSERT_EQ(encoded.status, 0) << encoded.err;
      const Bytes part = ReadFile(dir.File("back.zpak"));
      back.insert(back.end(), part.begin(), part.end());
    }
    EXPECT_EQ(back, dump);
  }
}

TEST(Transcode, PipesCarryFramesAsFilesDo) {
  TempDir dir;
  const Bytes dump = MakeDump(PELCAST_FORMAT_NV12, 96, 40, 3, 1);
  WriteFile(dir.File("in.zpak"), dump);
  const ZpakRun toFile = RunZpak({"decode", "nv12", "in.zpak", "out.y4m", "96", "40"}, {}, dir.path());
  ASSERT_EQ(toFile.status, 0);
  const Bytes y4m = ReadFile(dir.File("out.y4m"));
  const ZpakRun toPipe = RunZpak({"decode", "--to", "y4m", "nv12", "-", "-", "96", "40"}, dump);
  EXPECT_EQ(toPipe.status, 0) << toPipe.err;
  EXPECT_EQ(Bytes(toPipe.out.begin(), toPipe.out.end()), y4m);
  const ZpakRun back = RunZpak({"encode", "--from", "y4m", "nv12", "-", "-"}, y4m);
  EXPECT_EQ(back.status, 0) << back.err;
  EXPECT_EQ(Bytes(back.out.begin(), back.out.end()), dump);
  // Frames 1 to 2 of a pipe, skipped by reading.
  const ZpakRun some = RunZpak({"decode", "--frames", "1-2", "nv12", "-", "-", "96", "40"}, dump);
  const Bytes second = MakePicture(PELCAST_FORMAT_NV12, 96, 40, 2);
  ASSERT_EQ(some.out.size(), 2 * second.size());
  EXPECT_EQ(Bytes(some.out.begin(), some.out.begin() + static_cast<ptrdiff_t>(second.size())),
            second);
}

TEST(Transcode, RefusesWhatCannotBeWritten) {
  TempDir dir;
  const Bytes dump = MakeDump(PELCAST_FORMAT_RGBA8888, 32, 8, 2, 1);
  WriteFile(dir.File("in.zpak"), dump);
  WriteFile(dir.File("in.png"), {});
  struct Case {
    std::vector<std::string> args;
    std::string message;
  };
  const Case cases[] = {
      {{"decode", "rgba8888", "in.zpak", "out.y4m", "32", "8"}, "maps to nv12 only"},
      {{"decode", "rgba8888", "in.zpak", "-", "32", "8", "--to", "png"}, "one PNG picture"},
      {{"decode", "rgba8888", "in.zpak", "out.raw", "32", "8", "--stride", "100"}, "shorter than a row of 128"},
      {{"decode", "rgba8888", "in.zpak", "out.raw", "32", "8", "--uv-offset", "4096"}, "nv12 only"},
      {{"decode", "nv12", "in.zpak", "out.raw", "32", "8", "--scanlines", "7"}, "fewer than the 8 rows"},
      {{"decode", "nv12", "in.zpak", "out.raw", "32", "8", "--stride", "32", "--scanlines", "8", "--uv-offset", "100"}, "inside the luma plane"},
      {{"decode", "rgba8888", "in.zpak", "in.zpak", "32", "8"}, "it is the input"},
      {{"decode", "rgba8888", "in.zpak", "out.png", "32", "8", "--stride", "256"}, "raw files only"},
      {{"encode", "nv12", "in.png", "out.zpak"}, "PNG holds RGB"},
      {{"encode", "rgba8888", "in.png", "out.zpak"}, "as PNG"},
      {{"encode", "rgba8888", "in.raw", "out.zpak"}, "missing the frame size"},
  };
  for (const Case& c : cases) {
    const ZpakRun run = RunZpak(c.args, {}, dir.path());
    EXPECT_EQ(run.status, 2) << ::testing::PrintToString(c.args);
    EXPECT_NE(run.err.find(c.message), std::string::npos) << run.err;
  }
  EXPECT_EQ(ReadFile(dir.File("in.zpak")), dump);
}

}  // namespace
}  // namespace pelcast::zpak::testing
