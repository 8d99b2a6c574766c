// Plane geometry and PrepareZpakBuffers against worked values.
#include <gtest/gtest.h>

#include <array>
#include <cstdlib>

#include "surface/plane_geometry.h"
#include "surface/zpak_context.h"

namespace pelcast {
namespace {

struct GeometryCase {
  PlaneFormat format;
  int32_t w, h;
  uint32_t yStride, yBufLength, metaStride, metaHeight, metaSize, dataSize, uvScanlines,
      uvMetaStride, uvMetaHeight, uvMetaSize, frameSize;
};

TEST(PlaneGeometry, WorkedTable) {
  const GeometryCase cases[] = {
      {PlaneFormat::kNv12, 1920, 1080, 1920, 1088, 64, 144, 12288, 2088960, 544, 64, 80, 8192,
       3153920},
      {PlaneFormat::kRgba8888, 1920, 1080, 7680, 1088, 128, 272, 36864, 8355840, 0, 0, 0, 0,
       8392704},
      {PlaneFormat::kRgb565, 1920, 1080, 3840, 1088, 128, 272, 36864, 4177920, 0, 0, 0, 0,
       4214784},
      // Zero sizes align to zero.
      {PlaneFormat::kNv12, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0},
      {PlaneFormat::kRgba8888, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0},
  };
  for (const GeometryCase& c : cases) {
    const PlaneGeometry g = ComputePlaneGeometry(c.format, c.w, c.h);
    EXPECT_EQ((std::array{g.yStride, g.yBufLength, g.yMetaStride, g.yMetaBufLength, g.yMetaBufSize,
                          g.yDataBufSize, g.uvBufLength, g.uvMetaStride, g.uvMetaBufLength,
                          g.uvMetaBufSize, g.frameSize}),
              (std::array{c.yStride, c.yBufLength, c.metaStride, c.metaHeight, c.metaSize,
                          c.dataSize, c.uvScanlines, c.uvMetaStride, c.uvMetaHeight, c.uvMetaSize,
                          c.frameSize}))
        << "format " << static_cast<int>(c.format) << " " << c.w << "x" << c.h;
  }
}

TEST(PlaneGeometry, DeliberateRoundings) {
  // RGB565 halves the width before scaling: 129 pixels give a 256-byte stride.
  EXPECT_EQ(ComputePlaneGeometry(PlaneFormat::kRgb565, 129, 4).yStride, 256u);
  // Output buffer sizes: 2x, 4x and 1x the data plane.
  EXPECT_EQ(ComputePlaneGeometry(PlaneFormat::kNv12, 1920, 1080).outputSize, 2u * 2088960u);
  EXPECT_EQ(ComputePlaneGeometry(PlaneFormat::kRgba8888, 1920, 1080).outputSize, 4u * 8355840u);
  EXPECT_EQ(ComputePlaneGeometry(PlaneFormat::kRgb565, 1920, 1080).outputSize, 4177920u);
  // Height 65: the decode side rounds the chroma height up (33 -> 64 scanlines)
  // while the encode side halves down (32 -> 32).
  EXPECT_EQ(ComputePlaneGeometry(PlaneFormat::kNv12, 64, 65).uvBufLength, 64u);
  EXPECT_EQ(ComputeEncodeGeometryT<uint32_t>(true, 64, 65).uvScanlines, 32u);
}

TEST(PlaneGeometry, SizeRefusals) {
  EXPECT_EQ(DecodeSizeProblem(PlaneFormat::kNv12, 1920, 1080), nullptr);
  EXPECT_NE(DecodeSizeProblem(PlaneFormat::kNv12, -2, 8), nullptr);
  EXPECT_NE(DecodeSizeProblem(PlaneFormat::kRgba8888, 8, -1), nullptr);
  // RGBA8888 allocates four times its data plane for output: 16384 x 8192
  // has a 2^29-byte data plane and so a 2^31-byte output buffer.
  EXPECT_NE(DecodeSizeProblem(PlaneFormat::kRgba8888, 16384, 8192), nullptr);
  EXPECT_EQ(DecodeSizeProblem(PlaneFormat::kRgba8888, 16384, 8176), nullptr);
  // U forms w x h x 3 in signed 32-bit arithmetic: 32768 x 21846 x 3 > 2^31
  // although the frame itself is about 1.07 GB.
  EXPECT_NE(DecodeSizeProblem(PlaneFormat::kNv12, 32768, 21846), nullptr);
  EXPECT_EQ(DecodeSizeProblem(PlaneFormat::kNv12, 32768, 21845), nullptr);
  EXPECT_EQ(EncodeSizeProblem(kPrepareNv12, 1920, 1080), nullptr);
  EXPECT_NE(EncodeSizeProblem(kPrepareRgba8888, 65536, 8192), nullptr);
  EXPECT_NE(EncodeSizeProblem(kPrepareNv12, 0, -1), nullptr);
}

TEST(PrepareZpakBuffers, Rgba1920x1080) {
  ZpakInfo info{};
  uint8_t* compressed = nullptr;
  uint8_t* staging = nullptr;
  ASSERT_EQ(PrepareZpakBuffers(&info, &compressed, &staging, 1920, 1080, kPrepareRgba8888), 0);
  EXPECT_EQ(info.bufferSize, 36864u + 8355840u);
  EXPECT_EQ(info.yStride, 7680u);
  EXPECT_EQ(info.linearStride, 2048u);  // counted in pixels
  EXPECT_EQ(info.epbSize, info.yMetaSize + info.dataSize);
  EXPECT_EQ(info.infoValid, 1u);
  ASSERT_NE(compressed, nullptr);
  ASSERT_NE(staging, nullptr);
  ReleaseZeroed(compressed);
  ReleaseZeroed(staging);
}

TEST(PrepareZpakBuffers, Nv12AndUnknownFormat) {
  ZpakInfo info{};
  uint8_t* compressed = nullptr;
  uint8_t* staging = nullptr;
  testing::internal::CaptureStdout();
  ASSERT_EQ(PrepareZpakBuffers(&info, &compressed, &staging, 1920, 1080, kPrepareNv12), 0);
  // yMetaSize 12288 + uvMetaSize 8192 + 1920 x (1088 + 544); staging
  // align(1920 x 1088 x 3 / 2, 4096).
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "epbBuffSize - 3153920 databufsize - 3153920 YUVBufSize - 3133440\n");
  EXPECT_EQ(info.uvScanlines, 544u);
  EXPECT_EQ(info.uvMetaOffset, 8192u);
  ReleaseZeroed(compressed);
  ReleaseZeroed(staging);

  ZpakInfo other{};
  uint8_t* none = nullptr;
  EXPECT_EQ(PrepareZpakBuffers(&other, &none, &none, 64, 64, 7), 0);
  EXPECT_EQ(other.infoValid, 1u);
  EXPECT_EQ(other.bufferSize, 0u);
  EXPECT_EQ(none, nullptr);
}

}  // namespace
}  // namespace pelcast
