// Every error the public calls report, each reached by the call that must
// report it, and short buffers refused without a byte touched past them.
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <functional>
#include <set>

#include "tests/api/api_support.h"

namespace pelcast::testing::api {
namespace {

constexpr uint32_t kW = 96;
constexpr uint32_t kH = 40;

struct Fixture {
  pelcast_format format = PELCAST_FORMAT_NV12;
  Bytes linear = MakeFrame(PELCAST_FORMAT_NV12, kW, kH, 1);
  Bytes zpak = Encode(PELCAST_FORMAT_NV12, kW, kH, linear);
  Bytes out = Bytes(linear.size());
  pelcast_codec* codec = nullptr;
  pelcast_image image{};
  Fixture() {
    pelcast_codec_create(format, kW, kH, &codec);
    pelcast_image_init_packed(&image, format, kW, kH, out.data(), out.size());
  }
  ~Fixture() { pelcast_codec_destroy(codec); }
  pelcast_status DecodeInto(const pelcast_image& target) {
    return pelcast_codec_decode(codec, zpak.data(), zpak.size(), &target);
  }
};

struct ErrorCase {
  const char* what;
  pelcast_status expected;
  std::function<pelcast_status(Fixture&)> call;
};

pelcast_image With(pelcast_image image, const std::function<void(pelcast_image&)>& change) {
  change(image);
  return image;
}

const ErrorCase kErrorCases[] = {
    {"unknown format", PELCAST_ERROR_INVALID_ARGUMENT,
     [](Fixture& f) {
       return pelcast_decode_frame(static_cast<pelcast_format>(0), kW, kH, f.zpak.data(),
                                   f.zpak.size(), f.out.data(), f.out.size());
     }},
    {"zero width", PELCAST_ERROR_INVALID_ARGUMENT,
     [](Fixture& f) {
       return pelcast_encode_frame(f.format, 0, kH, f.linear.data(), f.linear.size(),
                                   f.zpak.data(), f.zpak.size());
     }},
    {"null frame", PELCAST_ERROR_INVALID_ARGUMENT,
     [](Fixture& f) {
       return pelcast_decode_frame(f.format, kW, kH, nullptr, f.zpak.size(), f.out.data(),
                                   f.out.size());
     }},
    {"null codec pointer", PELCAST_ERROR_INVALID_ARGUMENT,
     [](Fixture& f) { return pelcast_codec_create(f.format, kW, kH, nullptr); }},
    {"threads above the limit", PELCAST_ERROR_INVALID_ARGUMENT,
     [](Fixture& f) { return pelcast_codec_set_threads(f.codec, PELCAST_MAX_THREADS + 1); }},
    {"image of another size", PELCAST_ERROR_INVALID_ARGUMENT,
     [](Fixture& f) { return f.DecodeInto(With(f.image, [](pelcast_image& i) { i.width = 94; })); }},
    {"image of another format", PELCAST_ERROR_INVALID_ARGUMENT,
     [](Fixture& f) {
       return f.DecodeInto(With(f.image, [](pelcast_image& i) { i.format = PELCAST_FORMAT_RGB565; }));
     }},
    {"stride shorter than a row", PELCAST_ERROR_INVALID_ARGUMENT,
     [](Fixture& f) { return f.DecodeInto(With(f.image, [](pelcast_image& i) { i.strides[1] = 95; })); }},
    {"missing chroma plane", PELCAST_ERROR_INVALID_ARGUMENT,
     [](Fixture& f) {
       return f.DecodeInto(With(f.image, [](pelcast_image& i) { i.planes[1] = nullptr; }));
     }},
    {"plane one byte short", PELCAST_ERROR_BUFFER_TOO_SMALL,
     [](Fixture& f) { return f.DecodeInto(With(f.image, [](pelcast_image& i) { --i.sizes[1]; })); }},
    {"frame one byte short", PELCAST_ERROR_BUFFER_TOO_SMALL,
     [](Fixture& f) {
       return pelcast_codec_decode(f.codec, f.zpak.data(), f.zpak.size() - 1, &f.image);
     }},
    {"linear buffer one byte short", PELCAST_ERROR_BUFFER_TOO_SMALL,
     [](Fixture& f) {
       return pelcast_decode_frame(f.format, kW, kH, f.zpak.data(), f.zpak.size(), f.out.data(),
                                   f.out.size() - 1);
     }},
    {"output frame one byte short", PELCAST_ERROR_BUFFER_TOO_SMALL,
     [](Fixture& f) {
       return pelcast_encode_frame(f.format, kW, kH, f.linear.data(), f.linear.size(),
                                   f.zpak.data(), f.zpak.size() - 1);
     }},
    {"tile array short", PELCAST_ERROR_BUFFER_TOO_SMALL,
     [](Fixture& f) {
       std::vector<pelcast_tile_info> tiles(14);  // the luma plane has 3 x 5 tiles
       return pelcast_codec_tile_info(f.codec, f.zpak.data(), f.zpak.size(), PELCAST_PLANE_Y,
                                      tiles.data(), tiles.size());
     }},
    {"plane the format lacks", PELCAST_ERROR_INVALID_ARGUMENT,
     [](Fixture& f) {
       pelcast_plane_stats stats;
       return pelcast_codec_plane_stats(f.codec, f.zpak.data(), f.zpak.size(), 2, &stats);
     }},
    {"buffers reaching 2 GiB", PELCAST_ERROR_SIZE_LIMIT,
     [](Fixture&) {
       pelcast_codec* codec = nullptr;
       return pelcast_codec_create(PELCAST_FORMAT_RGBA8888, 32768, 16384, &codec);
     }},
    {"RGB565 width that loses its last column", PELCAST_ERROR_UNSUPPORTED_SIZE,
     [](Fixture& f) {
       return pelcast_encode_frame(PELCAST_FORMAT_RGB565, 129, 4, f.linear.data(), f.linear.size(),
                                   f.zpak.data(), f.zpak.size());
     }},
};

TEST(ApiErrors, EveryErrorIsReportedByTheCallThatMeetsIt) {
  for (const ErrorCase& c : kErrorCases) {
    Fixture f;
    ASSERT_NE(f.codec, nullptr);
    const Bytes before = f.out;
    EXPECT_EQ(c.call(f), c.expected) << c.what;
    EXPECT_EQ(f.out, before) << c.what << ": a refused call wrote output";
  }
}

TEST(ApiErrors, StatusStringsNameEveryStatus) {
  const pelcast_status all[] = {PELCAST_OK,
                                PELCAST_ERROR_INVALID_ARGUMENT,
                                PELCAST_ERROR_BUFFER_TOO_SMALL,
                                PELCAST_ERROR_SIZE_LIMIT,
                                PELCAST_ERROR_OUT_OF_MEMORY,
                                PELCAST_ERROR_UNSUPPORTED_SIZE};
  std::set<std::string> texts;
  for (pelcast_status s : all) texts.insert(pelcast_status_string(s));
  EXPECT_EQ(texts.size(), std::size(all));
  EXPECT_EQ(texts.count(pelcast_status_string(static_cast<pelcast_status>(-99))), 0u);
  EXPECT_STREQ(pelcast_version(), (std::to_string(PELCAST_VERSION_MAJOR) + "." +
                                   std::to_string(PELCAST_VERSION_MINOR) + "." +
                                   std::to_string(PELCAST_VERSION_PATCH))
                                      .c_str());
}

TEST(ApiErrors, RefusedSizesHaveNoFrameSize) {
  struct Row {
    pelcast_format format;
    uint32_t width, height;
    bool refused;
  };
  const Row rows[] = {
      {static_cast<pelcast_format>(7), 64, 64, true}, {PELCAST_FORMAT_NV12, 0, 64, true},
      {PELCAST_FORMAT_NV12, 64, 0, true},             {PELCAST_FORMAT_NV12, 0x80000000u, 2, true},
      {PELCAST_FORMAT_RGBA8888, 32768, 16384, true},  {PELCAST_FORMAT_NV12, 46340, 30000, true},
      {PELCAST_FORMAT_RGB565, 129, 4, false},         {PELCAST_FORMAT_RGBA8888, 8192, 8192, false},
  };
  for (const Row& r : rows) {
    EXPECT_EQ(pelcast_zpak_frame_size(r.format, r.width, r.height) == 0, r.refused)
        << r.width << "x" << r.height;
    EXPECT_EQ(pelcast_linear_frame_size(r.format, r.width, r.height) == 0, r.refused);
  }
}

// Buffers exactly as long as the frame, ending at an unmapped page: a call
// that reads or writes past them crashes. One byte less is refused.
TEST(ApiErrors, BuffersEndingAtAnUnmappedPageAreNeverOverrun) {
  for (pelcast_format format : kFormats) {
    for (auto [w, h] : {std::pair<uint32_t, uint32_t>{97, 61}, {128, 64}, {33, 9}}) {
      SCOPED_TRACE(std::string(FormatName(format)) + " " + std::to_string(w) + "x" + std::to_string(h));
      const Bytes linear = MakeFrame(format, w, h, 9);
      GuardedBuffer in(linear.size());
      std::memcpy(in.data(), linear.data(), linear.size());
      GuardedBuffer zpak(pelcast_zpak_frame_size(format, w, h));
      ASSERT_EQ(pelcast_encode_frame(format, w, h, in.data(), in.size(), zpak.data(), zpak.size()),
                PELCAST_OK);
      GuardedBuffer out(linear.size());
      ASSERT_EQ(pelcast_decode_frame(format, w, h, zpak.data(), zpak.size(), out.data(), out.size()),
                PELCAST_OK);
      EXPECT_EQ(std::memcmp(out.data(), linear.data(), linear.size()), 0);
      GuardedBuffer shortOut(linear.size() - 1);
      EXPECT_EQ(pelcast_decode_frame(format, w, h, zpak.data(), zpak.size(), shortOut.data(),
                                     shortOut.size()),
                PELCAST_ERROR_BUFFER_TOO_SMALL);
      GuardedBuffer shortIn(linear.size() - 1);
      EXPECT_EQ(pelcast_encode_frame(format, w, h, shortIn.data(), shortIn.size(), zpak.data(),
                                     zpak.size()),
                PELCAST_ERROR_BUFFER_TOO_SMALL);
    }
  }
}

// Without memory for a codec's buffers the calls say so instead of failing
// in any other way. Run in a child whose address space is capped; the
// sanitizers reserve more address space than any cap allows.
TEST(ApiErrors, OutOfMemoryIsReported) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  GTEST_SKIP() << "address space caps do not combine with the sanitizers' allocators";
#elif defined(PELCAST_EMULATOR)
  GTEST_SKIP() << "under user-mode emulation the cap applies to the emulator's own mappings";
#else
  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    // Room for 64 MiB more than the child maps now; the encoder's staging
    // frame (8192 x 8192 RGBA8888) alone is 256 MiB.
    unsigned long pages = 0;
    FILE* statm = std::fopen("/proc/self/statm", "r");
    if (statm == nullptr || std::fscanf(statm, "%lu", &pages) != 1) _exit(3);
    const rlim_t limit = pages * static_cast<rlim_t>(sysconf(_SC_PAGESIZE)) + (rlim_t{64} << 20);
    const rlimit cap{limit, limit};
    if (setrlimit(RLIMIT_AS, &cap) != 0) _exit(3);
    pelcast_codec* codec = nullptr;
    if (pelcast_codec_create(PELCAST_FORMAT_RGBA8888, 8192, 8192, &codec) != PELCAST_OK) _exit(4);
    static uint8_t pixel[4];
    pelcast_image image{PELCAST_FORMAT_RGBA8888, 8192, 8192, {pixel, nullptr}, {32768, 0},
                        {size_t{32768} * 8192, 0}};
    const pelcast_status status = pelcast_codec_encode(codec, &image, pixel, size_t{1} << 30);
    _exit(status == PELCAST_ERROR_OUT_OF_MEMORY ? 0 : 5);
  }
  int status = 0;
  waitpid(child, &status, 0);
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 0);
#endif
}

}  // namespace
}  // namespace pelcast::testing::api
