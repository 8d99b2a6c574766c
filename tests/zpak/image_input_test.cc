// What encode accepts as pictures: PNGs of every colour type (grey,
// palette, RGB without alpha, 16-bit samples) expanded to RGBA8888, and Y4M
// streams of any 8-bit 4:2:0 flavour; anything else is refused by name.
#include <gtest/gtest.h>

#include <png.h>

#include "tests/zpak/zpak_test_support.h"

namespace pelcast::zpak::testing {
namespace {

using pelcast::testing::ReadFile;
using pelcast::testing::TempDir;
using pelcast::testing::WriteFile;

// Encodes the PNG as rgba8888 and decodes it back: the RGBA picture zpak read.
Bytes RgbaOfPng(const TempDir& dir, const std::string& png, uint32_t width, uint32_t height) {
  const ZpakRun run = RunZpak({"encode", "rgba8888", png, "out.zpak"}, {}, dir.path());
  EXPECT_EQ(run.status, 0) << run.err;
  return DecodeFrame(PELCAST_FORMAT_RGBA8888, width, height, ReadFile(dir.File("out.zpak")));
}

TEST(ImageInput, PngsOfEveryColourTypeBecomeRgba) {
  // 3 x 2 pixels, and the RGBA each must become.
  struct Case {
    std::string name;
    int colourType, bitDepth;
    Bytes samples, palette, rgba;
  };
  const Bytes rgba = {10, 20, 30, 40, 50, 60, 70, 80, 90, 100, 110, 120,
                      130, 140, 150, 160, 170, 180, 190, 200, 210, 220, 230, 240};
  Bytes rgb, rgbOpaque, rgba16;
  for (size_t i = 0; i < rgba.size(); ++i) {
    if (i % 4 != 3) rgb.push_back(rgba[i]);
    rgbOpaque.push_back(i % 4 == 3 ? 255 : rgba[i]);
    rgba16.insert(rgba16.end(), {rgba[i], static_cast<uint8_t>(rgba[i] ^ 0x5A)});
  }
  const Bytes grey = {0, 50, 100, 150, 200, 250};
  Bytes greyRgba;
  for (uint8_t g : grey) greyRgba.insert(greyRgba.end(), {g, g, g, 255});
  const Bytes palette = {255, 0, 0, 0, 255, 0, 0, 0, 255};
  const Bytes indexes = {0, 1, 2, 2, 1, 0};
  Bytes paletteRgba;
  for (uint8_t k : indexes) {
    paletteRgba.insert(paletteRgba.end(), {palette[3 * k], palette[3 * k + 1], palette[3 * k + 2], 255});
  }
  const Case cases[] = {
      {"rgba.png", PNG_COLOR_TYPE_RGB_ALPHA, 8, rgba, {}, rgba},
      {"rgb.png", PNG_COLOR_TYPE_RGB, 8, rgb, {}, rgbOpaque},
      {"rgba16.png", PNG_COLOR_TYPE_RGB_ALPHA, 16, rgba16, {}, rgba},
      {"grey.png", PNG_COLOR_TYPE_GRAY, 8, grey, {}, greyRgba},
      {"palette.png", PNG_COLOR_TYPE_PALETTE, 8, indexes, palette, paletteRgba},
  };
  for (const Case& c : cases) {
    TempDir dir;
    WritePngFile(dir.File(c.name), 3, 2, c.colourType, c.bitDepth, c.samples, c.palette);
    EXPECT_EQ(RgbaOfPng(dir, c.name, 3, 2), c.rgba) << c.name;
  }
}

TEST(ImageInput, Y4mFlavoursAndRefusals) {
  // 4 x 2 NV12: 8 luma bytes, 2 U,V pairs.
  const Bytes nv12 = {16, 40, 80, 120, 160, 200, 235, 100, 90, 200, 60, 30};
  const std::string planes = std::string("\x10\x28\x50\x78\xa0\xc8\xeb\x64", 8) + "\x5a\x3c" + "\xc8\x1e";
  struct Case {
    std::string header;
    std::string body;
    int status;
    std::string message;  // on standard error when refused
  };
  const Case cases[] = {
      {"YUV4MPEG2 W4 H2 F25:1 Ip A1:1 C420jpeg\n", "FRAME\n" + planes, 0, ""},
      {"YUV4MPEG2 H2 W4\n", "FRAME Ixyz\n" + planes, 0, ""},
      {"YUV4MPEG2 W4 H2 C420mpeg2 XYSCSS=420MPEG2\n", "FRAME\n" + planes + "FRAME\n" + planes, 0, ""},
      {"YUV4MPEG2 W4 H2 C444\n", "FRAME\n" + planes, 2, "C444"},
      {"YUV4MPEG2 W4\n", "", 2, "no Y4M width or height"},
      {"YUV4MPEG2 W0 H2\n", "", 2, "bad Y4M size"},
      {"P6 4 2 255\n", "", 2, "not a Y4M stream"},
      {"YUV4MPEG2 W4 H2\n", "FRAME\n" + planes.substr(0, 9), 2, "ends inside a Y4M frame"},
      {"YUV4MPEG2 W4 H2\n", "FROM\n" + planes, 2, "does not start with FRAME"},
  };
  for (const Case& c : cases) {
    TempDir dir;
    const std::string text = c.header + c.body;
    WriteFile(dir.File("in.y4m"), Bytes(text.begin(), text.end()));
    const ZpakRun run = RunZpak({"encode", "nv12", "in.y4m", "out.zpak"}, {}, dir.path());
    EXPECT_EQ(run.status, c.status) << c.header << run.err;
    if (c.status != 0) {
      EXPECT_NE(run.err.find(c.message), std::string::npos) << c.header << run.err;
      continue;
    }
    const Bytes zpak = ReadFile(dir.File("out.zpak"));
    const size_t frame = pelcast_zpak_frame_size(PELCAST_FORMAT_NV12, 4, 2);
    ASSERT_EQ(zpak.size() % frame, 0u);
    for (size_t at = 0; at < zpak.size(); at += frame) {
      const Bytes one(zpak.begin() + static_cast<ptrdiff_t>(at), zpak.begin() + static_cast<ptrdiff_t>(at + frame));
      EXPECT_EQ(DecodeFrame(PELCAST_FORMAT_NV12, 4, 2, one), nv12) << c.header;
    }
  }
}

}  // namespace
}  // namespace pelcast::zpak::testing
