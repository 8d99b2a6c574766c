// Threads and strided images change nothing in the bytes: frames split over
// 1 to 4 threads, images with padded rows, and several codecs at once on
// several threads all give what one thread on a packed frame gives.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <thread>

#include "tests/api/api_support.h"

namespace pelcast::testing::api {
namespace {

// Large enough that every thread gets bands of each plane.
constexpr uint32_t kW = 712;
constexpr uint32_t kH = 250;

struct Outputs {
  Bytes zpak;
  Bytes decoded;
  std::vector<pelcast_tile_info> tiles;
  pelcast_plane_stats stats;
};

Outputs RunWithThreads(pelcast_format format, const Bytes& linear, uint32_t threads) {
  pelcast_codec* codec = nullptr;
  EXPECT_EQ(pelcast_codec_create(format, kW, kH, &codec), PELCAST_OK);
  EXPECT_EQ(pelcast_codec_set_threads(codec, threads), PELCAST_OK);
  EXPECT_EQ(pelcast_codec_threads(codec), threads);
  Outputs out;
  out.zpak.assign(pelcast_zpak_frame_size(format, kW, kH), 0xCD);
  out.decoded.assign(linear.size(), 0xCD);
  pelcast_image in, back;
  pelcast_image_init_packed(&in, format, kW, kH, const_cast<uint8_t*>(linear.data()), linear.size());
  pelcast_image_init_packed(&back, format, kW, kH, out.decoded.data(), out.decoded.size());
  EXPECT_EQ(pelcast_codec_encode(codec, &in, out.zpak.data(), out.zpak.size()), PELCAST_OK);
  EXPECT_EQ(pelcast_codec_decode(codec, out.zpak.data(), out.zpak.size(), &back), PELCAST_OK);
  pelcast_tile_grid grid;
  pelcast_tile_grid_of(format, kW, kH, 0, &grid);
  out.tiles.resize(size_t{grid.columns} * grid.rows);
  EXPECT_EQ(pelcast_codec_tile_info(codec, out.zpak.data(), out.zpak.size(), 0, out.tiles.data(),
                                    out.tiles.size()),
            PELCAST_OK);
  EXPECT_EQ(pelcast_codec_plane_stats(codec, out.zpak.data(), out.zpak.size(), 0, &out.stats),
            PELCAST_OK);
  pelcast_codec_destroy(codec);
  return out;
}

TEST(ApiThreads, OneToFourThreadsGiveTheSameBytes) {
  for (pelcast_format format : kFormats) {
    SCOPED_TRACE(FormatName(format));
    const Bytes linear = MakeFrame(format, kW, kH, 5);
    const Outputs one = RunWithThreads(format, linear, 1);
    EXPECT_EQ(one.zpak, Encode(format, kW, kH, linear));
    EXPECT_EQ(one.decoded, linear);
    for (uint32_t threads = 2; threads <= 4; ++threads) {
      const Outputs many = RunWithThreads(format, linear, threads);
      EXPECT_EQ(many.zpak, one.zpak) << threads << " threads";
      EXPECT_EQ(many.decoded, one.decoded) << threads << " threads";
      EXPECT_EQ(std::memcmp(many.tiles.data(), one.tiles.data(),
                            one.tiles.size() * sizeof(pelcast_tile_info)),
                0);
      EXPECT_EQ(std::memcmp(&many.stats, &one.stats, sizeof one.stats), 0);
    }
  }
}

// A codec whose thread count changes between frames: its workers are
// stopped and started again on a pool that has already run frames.
TEST(ApiThreads, ThreadCountsChangingBetweenFrames) {
  const pelcast_format format = PELCAST_FORMAT_NV12;
  const Bytes linear = MakeFrame(format, kW, kH, 12);
  const Bytes zpak = Encode(format, kW, kH, linear);
  pelcast_codec* codec = nullptr;
  ASSERT_EQ(pelcast_codec_create(format, kW, kH, &codec), PELCAST_OK);
  Bytes out(linear.size()), again(zpak.size());
  pelcast_image image;
  pelcast_image_init_packed(&image, format, kW, kH, out.data(), out.size());
  for (uint32_t threads : {2u, 3u, 1u, 4u, 2u, 2u, 3u}) {
    ASSERT_EQ(pelcast_codec_set_threads(codec, threads), PELCAST_OK);
    for (int frame = 0; frame < 3; ++frame) {
      std::fill(out.begin(), out.end(), 0);
      ASSERT_EQ(pelcast_codec_decode(codec, zpak.data(), zpak.size(), &image), PELCAST_OK);
      EXPECT_EQ(out, linear) << threads << " threads";
      ASSERT_EQ(pelcast_codec_encode(codec, &image, again.data(), again.size()), PELCAST_OK);
      EXPECT_EQ(again, zpak) << threads << " threads";
    }
  }
  pelcast_codec_destroy(codec);
}

TEST(ApiThreads, ZeroThreadsMeansOnePerProcessor) {
  pelcast_codec* codec = nullptr;
  ASSERT_EQ(pelcast_codec_create(PELCAST_FORMAT_NV12, 64, 64, &codec), PELCAST_OK);
  EXPECT_EQ(pelcast_codec_threads(codec), 1u);
  ASSERT_EQ(pelcast_codec_set_threads(codec, 0), PELCAST_OK);
  const unsigned processors = std::thread::hardware_concurrency();
  EXPECT_GE(pelcast_codec_threads(codec), 1u);
  if (processors != 0) {
    EXPECT_LE(pelcast_codec_threads(codec), processors);
  }
  pelcast_codec_destroy(codec);
}

// Padded rows: each plane's rows `padding` bytes apart beyond their length,
// the padding filled with a marker the codec must neither read into the
// frame nor overwrite.
struct Padded {
  Bytes planes[2];
  pelcast_image image{};
};

Padded PadImage(pelcast_format format, const Bytes& packed, size_t padding, uint8_t marker) {
  pelcast_image tight;
  pelcast_image_init_packed(&tight, format, kW, kH, const_cast<uint8_t*>(packed.data()), packed.size());
  Padded p;
  p.image = tight;
  for (uint32_t i = 0; i < pelcast_plane_count(format); ++i) {
    const size_t rowBytes = tight.strides[i];
    const size_t rows = tight.sizes[i] / rowBytes;
    const size_t stride = rowBytes + padding + i;  // planes of different strides
    p.planes[i].assign(rows * stride, marker);
    for (size_t r = 0; r < rows; ++r) {
      std::memcpy(p.planes[i].data() + r * stride, tight.planes[i] + r * rowBytes, rowBytes);
    }
    p.image.planes[i] = p.planes[i].data();
    p.image.strides[i] = stride;
    p.image.sizes[i] = p.planes[i].size() - padding - i;  // the last row needs no padding
  }
  return p;
}

TEST(ApiThreads, StridedImagesEncodeAndDecodeAsPackedOnes) {
  for (pelcast_format format : kFormats) {
    SCOPED_TRACE(FormatName(format));
    const Bytes linear = MakeFrame(format, kW, kH, 6);
    const Bytes zpak = Encode(format, kW, kH, linear);
    pelcast_codec* codec = nullptr;
    ASSERT_EQ(pelcast_codec_create(format, kW, kH, &codec), PELCAST_OK);
    pelcast_codec_set_threads(codec, 2);
    // Noise in the padding of the input must not reach the frame.
    Padded in = PadImage(format, linear, 61, 0x5A);
    Bytes fromPadded(zpak.size());
    ASSERT_EQ(pelcast_codec_encode(codec, &in.image, fromPadded.data(), fromPadded.size()), PELCAST_OK);
    EXPECT_EQ(fromPadded, zpak);
    // Decoding into a padded image fills the rows and leaves the padding.
    Padded out = PadImage(format, Bytes(linear.size(), 0), 61, 0xA5);
    const Padded expected = PadImage(format, linear, 61, 0xA5);
    ASSERT_EQ(pelcast_codec_decode(codec, zpak.data(), zpak.size(), &out.image), PELCAST_OK);
    for (uint32_t i = 0; i < pelcast_plane_count(format); ++i) EXPECT_EQ(out.planes[i], expected.planes[i]);
    pelcast_codec_destroy(codec);
  }
}

TEST(ApiThreads, ACodecReusedForManyFramesWritesEachAsAFreshCall) {
  // One codec per format, size and thread count encodes five different
  // frames in turn, each into a buffer full of some other byte (the codec
  // learns on its second frame which bytes no tile stores, and from then on
  // clears only those): every frame equals the one-shot call's, which
  // starts from nothing.
  struct Size {
    uint32_t w, h;
  };
  const Size sizes[] = {{kW, kH}, {33, 17}, {250, 99}, {129, 64}};
  const uint8_t fills[] = {0x00, 0xFF, 0xCD, 0x13, 0xFF};
  for (pelcast_format format : kFormats) {
    for (const Size& size : sizes) {
      for (uint32_t threads : {1u, 3u}) {
        pelcast_codec* codec = nullptr;
        if (pelcast_codec_create(format, size.w, size.h, &codec) != PELCAST_OK) continue;  // 129 x 64 RGB565
        pelcast_codec_set_threads(codec, threads);
        for (uint32_t frame = 0; frame < 5; ++frame) {
          SCOPED_TRACE(std::string(FormatName(format)) + " " + std::to_string(size.w) + "x" +
                       std::to_string(size.h) + ", " + std::to_string(threads) + " threads, frame " +
                       std::to_string(frame));
          // Noise and smooth frames in turn, so short tiles follow raw ones.
          Bytes linear = MakeFrame(format, size.w, size.h, frame);
          if (frame % 2 == 1) {
            for (size_t i = 0; i < linear.size(); ++i) linear[i] = static_cast<uint8_t>(i / 1000);
          }
          pelcast_image image;
          pelcast_image_init_packed(&image, format, size.w, size.h, linear.data(), linear.size());
          Bytes zpak(pelcast_zpak_frame_size(format, size.w, size.h), fills[frame]);
          ASSERT_EQ(pelcast_codec_encode(codec, &image, zpak.data(), zpak.size()), PELCAST_OK);
          EXPECT_EQ(zpak, Encode(format, size.w, size.h, linear));
        }
        pelcast_codec_destroy(codec);
      }
    }
  }
}

TEST(ApiThreads, CodecsOnSeveralThreadsAtOnce) {
  const pelcast_format format = PELCAST_FORMAT_RGBA8888;
  const Bytes linear = MakeFrame(format, kW, kH, 8);
  const Bytes zpak = Encode(format, kW, kH, linear);
  std::vector<Bytes> results(4);
  std::vector<std::thread> threads;
  for (Bytes& result : results) {
    threads.emplace_back([&] {
      for (int round = 0; round < 3; ++round) result = Encode(format, kW, kH, Decode(format, kW, kH, zpak));
    });
  }
  for (std::thread& t : threads) t.join();
  for (const Bytes& result : results) EXPECT_EQ(result, zpak);
}

}  // namespace
}  // namespace pelcast::testing::api
