// The public calls give the pelcast command's bytes: encoding equals N and H,
// decoding equals U, G and B, on frames of even and odd sizes.
#include <gtest/gtest.h>

#include "tests/api/api_support.h"

namespace pelcast::testing::api {
namespace {

struct Size {
  uint32_t width;
  uint32_t height;
};

// Even and odd sizes, frames smaller than one tile, sizes with partial
// macro tiles and metadata tiles, and the NV12 height 65 (64k + 1).
constexpr Size kSizes[] = {{64, 32}, {96, 40}, {130, 66}, {33, 9}, {97, 61},
                           {1, 1},   {2, 2},   {200, 65}, {256, 144}, {515, 77}};

char EncodeLetter(pelcast_format format) { return format == PELCAST_FORMAT_NV12 ? 'N' : 'H'; }

char DecodeLetter(pelcast_format format) {
  switch (format) {
    case PELCAST_FORMAT_NV12:
      return 'U';
    case PELCAST_FORMAT_RGBA8888:
      return 'G';
    default:
      return 'B';
  }
}

bool NoEncodeCommand(pelcast_format format) { return format == PELCAST_FORMAT_RGB565; }

TEST(ApiMatchesCommands, EncodeDecodeAndRoundTripOnEverySize) {
  for (pelcast_format format : kFormats) {
    for (const Size& s : kSizes) {
      SCOPED_TRACE(std::string(FormatName(format)) + " " + std::to_string(s.width) + "x" +
                   std::to_string(s.height));
      if (format == PELCAST_FORMAT_RGB565 && s.width % 128 == 1) {
        // The row stride drops the last column: refused rather than lost.
        Bytes out(pelcast_linear_frame_size(format, s.width, s.height));
        const Bytes zpak(pelcast_zpak_frame_size(format, s.width, s.height));
        EXPECT_EQ(pelcast_decode_frame(format, s.width, s.height, zpak.data(), zpak.size(),
                                       out.data(), out.size()),
                  PELCAST_ERROR_UNSUPPORTED_SIZE);
        continue;
      }
      const Bytes linear = MakeFrame(format, s.width, s.height, s.width + s.height);
      const Bytes zpak = Encode(format, s.width, s.height, linear);
      EXPECT_EQ(Decode(format, s.width, s.height, zpak), linear);

      if (!NoEncodeCommand(format)) {
        const Bytes command = RunCommand(EncodeLetter(format), linear, s.width, s.height);
        const bool shortChroma = format == PELCAST_FORMAT_NV12 && s.height % 64 == 1;
        if (shortChroma) {
          // N's chroma data plane ends before the last chroma rows; the call
          // writes the whole frame, which starts with N's bytes up to there.
          ASSERT_LT(command.size(), zpak.size());
        } else {
          EXPECT_EQ(command, zpak);
        }
      }

      const Bytes decoded = RunCommand(DecodeLetter(format), zpak, s.width, s.height);
      const Bytes api = Decode(format, s.width, s.height, zpak);
      if (format == PELCAST_FORMAT_NV12 && (s.width % 2 != 0 || s.height % 2 != 0)) {
        // U writes the first w x h x 3 / 2 bytes of the frame.
        const size_t written = size_t{s.width} * s.height * 3 / 2;
        ASSERT_EQ(decoded.size(), written);
        EXPECT_TRUE(std::equal(decoded.begin(), decoded.end(), api.begin()));
      } else {
        EXPECT_EQ(decoded, api);
      }
    }
  }
}

// Real content: the committed photo and screen crops in every format, and
// the four frames of the pan through one codec, against the commands.
TEST(ApiMatchesCommands, CommittedFramesMatchTheCommands) {
  const struct {
    pelcast_format format;
    const char* extension;
  } kinds[] = {{PELCAST_FORMAT_NV12, ".nv12"}, {PELCAST_FORMAT_RGBA8888, ".rgba"},
               {PELCAST_FORMAT_RGB565, ".rgb565"}};
  for (const TestFrame& frame : kTestFrames) {
    for (const auto& kind : kinds) {
      SCOPED_TRACE(std::string(frame.name) + kind.extension);
      const auto w = static_cast<uint32_t>(frame.width);
      const auto h = static_cast<uint32_t>(frame.height);
      const Bytes linear = ReadFile(TestDataDir() + "/" + frame.name + kind.extension);
      const Bytes zpak = Encode(kind.format, w, h, linear);
      if (!NoEncodeCommand(kind.format)) {
        EXPECT_EQ(RunCommand(EncodeLetter(kind.format), linear, w, h), zpak);
      }
      const Bytes decoded = RunCommand(DecodeLetter(kind.format), zpak, w, h);
      ASSERT_LE(decoded.size(), linear.size());
      EXPECT_TRUE(std::equal(decoded.begin(), decoded.end(), linear.begin()));
      EXPECT_EQ(Decode(kind.format, w, h, zpak), linear);
    }
  }
  const uint32_t w = 192, h = 108;
  const Bytes pan = ReadFile(TestDataDir() + "/pan-hillside-192x108-4f.nv12");
  const Bytes command = RunCommand('N', pan, w, h);
  const size_t linearBytes = pelcast_linear_frame_size(PELCAST_FORMAT_NV12, w, h);
  const size_t zpakBytes = pelcast_zpak_frame_size(PELCAST_FORMAT_NV12, w, h);
  ASSERT_EQ(pan.size(), 4 * linearBytes);
  ASSERT_EQ(command.size(), 4 * zpakBytes);
  pelcast_codec* codec = nullptr;
  ASSERT_EQ(pelcast_codec_create(PELCAST_FORMAT_NV12, w, h, &codec), PELCAST_OK);
  Bytes zpak(zpakBytes);
  for (size_t f = 0; f < 4; ++f) {
    pelcast_image image;
    pelcast_image_init_packed(&image, PELCAST_FORMAT_NV12, w, h,
                              const_cast<uint8_t*>(pan.data()) + f * linearBytes, linearBytes);
    ASSERT_EQ(pelcast_codec_encode(codec, &image, zpak.data(), zpak.size()), PELCAST_OK);
    EXPECT_TRUE(std::equal(zpak.begin(), zpak.end(), command.begin() + f * zpakBytes)) << f;
  }
  pelcast_codec_destroy(codec);
}

// The command's own frames decode through the API to what the commands give.
TEST(ApiMatchesCommands, DecodesFramesTheCommandsEncoded) {
  for (pelcast_format format : {PELCAST_FORMAT_NV12, PELCAST_FORMAT_RGBA8888}) {
    const Size s{320, 96};
    const Bytes linear = MakeFrame(format, s.width, s.height, 3);
    Bytes twoFrames = linear;
    const Bytes second = MakeFrame(format, s.width, s.height, 4);
    twoFrames.insert(twoFrames.end(), second.begin(), second.end());
    const Bytes zpak = RunCommand(EncodeLetter(format), twoFrames, s.width, s.height);
    const size_t frameBytes = pelcast_zpak_frame_size(format, s.width, s.height);
    ASSERT_EQ(zpak.size(), 2 * frameBytes);
    EXPECT_EQ(Decode(format, s.width, s.height, Bytes(zpak.begin(), zpak.begin() + frameBytes)),
              linear);
    EXPECT_EQ(Decode(format, s.width, s.height, Bytes(zpak.begin() + frameBytes, zpak.end())),
              second);
  }
}

TEST(ApiMatchesCommands, FrameSizesAreThoseTheCommandsPrint) {
  // Sizes the decode commands print as "Aligned ZPAK Buffer Size".
  struct Row {
    pelcast_format format;
    Size size;
    size_t zpak;
    size_t linear;
  };
  const Row rows[] = {
      {PELCAST_FORMAT_NV12, {1920, 1080}, 3153920, 3110400},
      {PELCAST_FORMAT_RGBA8888, {1920, 1080}, 8392704, 8294400},
      {PELCAST_FORMAT_RGB565, {1920, 1080}, 4214784, 4147200},
      {PELCAST_FORMAT_NV12, {33, 9}, 16384, 33 * 9 + 5 * 34},
      {PELCAST_FORMAT_RGB565, {129, 4}, 8192, 129 * 4 * 2},
  };
  for (const Row& r : rows) {
    EXPECT_EQ(pelcast_zpak_frame_size(r.format, r.size.width, r.size.height), r.zpak);
    EXPECT_EQ(pelcast_linear_frame_size(r.format, r.size.width, r.size.height), r.linear);
  }
  // And for any size, the frame size the decode commands print.
  for (pelcast_format format : kFormats) {
    for (const Size& s : kSizes) {
      TempDir dir;
      WriteFile(dir.File("empty"), Bytes{});
      const std::string printed = RunTool({std::string(1, DecodeLetter(format)), "empty", "out",
                                           std::to_string(s.width), std::to_string(s.height)},
                                          dir.path())
                                      .output;
      const std::string label = "Aligned ZPAK Buffer Size ";
      const size_t at = printed.find(label);
      ASSERT_NE(at, std::string::npos) << printed;
      EXPECT_EQ(std::stoull(printed.substr(at + label.size())),
                pelcast_zpak_frame_size(format, s.width, s.height));
    }
  }
}

}  // namespace
}  // namespace pelcast::testing::api
