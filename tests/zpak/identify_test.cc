// identify on dumps made by the library's encoder: the true format, size
// and frame count come first at common and uncommon sizes, whatever the file
// is called; sizes of one surface layout get the note that says which one
// is preferred and why; it reads no more of the file than it needs.
#include "tools/zpak/identify.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "tests/zpak/zpak_test_support.h"

namespace pelcast::zpak::testing {
namespace {

constexpr pelcast_format kNv12 = PELCAST_FORMAT_NV12;
constexpr pelcast_format kRgba = PELCAST_FORMAT_RGBA8888;
constexpr pelcast_format kRgb565 = PELCAST_FORMAT_RGB565;

struct DumpCase {
  pelcast_format format;
  uint32_t width, height, frames;
  std::string name;
};

std::string Label(const DumpCase& c) {
  return FormatName(c.format) + " " + std::to_string(c.width) + "x" + std::to_string(c.height) +
         " x" + std::to_string(c.frames) + " as '" + c.name + "'";
}

std::string Describe(const IdentifyCandidate& c) {
  return FormatName(c.format) + " " + std::to_string(c.width) + "x" + std::to_string(c.height) +
         " x" + std::to_string(c.frames) + " score " + std::to_string(c.score);
}

void ExpectFirst(const DumpCase& c, const IdentifyResult& r) {
  ASSERT_FALSE(r.candidates.empty()) << Label(c);
  const IdentifyCandidate& best = r.candidates.front();
  EXPECT_EQ(best.format, c.format) << Label(c) << ": " << Describe(best);
  EXPECT_EQ(best.width, c.width) << Label(c) << ": " << Describe(best);
  EXPECT_EQ(best.height, c.height) << Label(c) << ": " << Describe(best);
  EXPECT_EQ(best.frames, c.frames) << Label(c) << ": " << Describe(best);
}

TEST(Identify, TrueFormatAndSizeComeFirst) {
  const std::vector<DumpCase> cases = {
      // Common resolutions, landscape and portrait.
      {kNv12, 1920, 1080, 1, "dump.bin"},
      {kRgba, 1280, 720, 2, "dump.bin"},
      {kRgb565, 640, 480, 3, "dump.bin"},
      {kNv12, 720, 1600, 2, "dump.bin"},
      {kRgba, 1080, 2400, 1, "dump.bin"},
      {kRgb565, 1080, 2340, 1, "dump.bin"},
      {kNv12, 352, 288, 5, "dump.bin"},
      {kRgba, 1600, 1200, 1, "dump.bin"},
      {kNv12, 3264, 2448, 1, "dump.bin"},
      // Sizes only the scan finds, odd ones included: the picture ends where
      // the encoder's zero padding begins.
      {kNv12, 1000, 700, 2, "dump.bin"},
      {kRgba, 1234, 567, 1, "dump.bin"},
      {kRgb565, 777, 333, 2, "dump.bin"},
      {kNv12, 999, 555, 1, "dump.bin"},
      {kRgba, 333, 999, 3, "dump.bin"},
      {kNv12, 96, 200, 6, "dump.bin"},
  };
  for (const DumpCase& c : cases) {
    const Bytes dump = MakeDump(c.format, c.width, c.height, c.frames, 3);
    ExpectFirst(c, IdentifyBuffer(dump.data(), dump.size(), c.name, {}));
  }
}

TEST(Identify, CommittedFramesOfEverySizeAndFormat) {
  // Real photographs and screens at sizes no list holds (odd ones too): the
  // scan finds their layout and the encoder's zero padding their size.
  for (const pelcast::testing::TestFrame& t : pelcast::testing::kTestFrames) {
    for (pelcast_format format : {kNv12, kRgba, kRgb565}) {
      const auto w = static_cast<uint32_t>(t.width), h = static_cast<uint32_t>(t.height);
      const Bytes dump = EncodeFrames(format, w, h, CommittedFrames(t.name, format));
      ExpectFirst({format, w, h, 1, t.name},
                  IdentifyBuffer(dump.data(), dump.size(), "capture.bin", {}));
    }
  }
  const Bytes pan = EncodeFrames(kNv12, 192, 108, CommittedFrames("pan-hillside-192x108-4f", kNv12));
  ExpectFirst({kNv12, 192, 108, 4, "pan"}, IdentifyBuffer(pan.data(), pan.size(), "pan.bin", {}));
}

TEST(Identify, MisleadingNamesDoNotWin) {
  const std::vector<DumpCase> cases = {
      {kNv12, 1280, 720, 2, "screen_1920x1080_rgba.raw"},
      {kRgba, 720, 1600, 1, "cam_1600x720_nv12.zpak"},
      {kRgb565, 1280, 720, 1, "ui_rgba8888_640x480.bin"},
      {kNv12, 1920, 1080, 1, "frame_1920x1088.nv12"},
      {kRgba, 640, 480, 4, "4k_video_nv12.yuv"},
  };
  for (const DumpCase& c : cases) {
    const Bytes dump = MakeDump(c.format, c.width, c.height, c.frames, 5);
    ExpectFirst(c, IdentifyBuffer(dump.data(), dump.size(), "/some/dir/" + c.name, {}));
  }
}

bool HasNote(const IdentifyResult& r, const std::vector<std::string>& words) {
  return std::any_of(r.notes.begin(), r.notes.end(), [&words](const std::string& note) {
    return std::all_of(words.begin(), words.end(), [&note](const std::string& w) {
      return note.find(w) != std::string::npos;
    });
  });
}

std::string Notes(const IdentifyResult& r) {
  std::string all;
  for (const std::string& n : r.notes) all += n + "\n";
  return all;
}

// An NV12 1920x1088 frame whose last 8 rows repeat row 1079, as a writer
// that fills the padding with the picture's edge leaves it: 1920x1080 and
// 1920x1088 are equally plausible.
Bytes EdgeFilledNv12Frame() {
  constexpr uint32_t kWidth = 1920, kShown = 1080, kRows = 1088;
  const Bytes shown = MakePicture(kNv12, kWidth, kShown, 9);
  Bytes full(pelcast_linear_frame_size(kNv12, kWidth, kRows));
  for (uint32_t y = 0; y < kRows; ++y) {
    std::copy_n(shown.begin() + size_t{std::min(y, kShown - 1)} * kWidth, kWidth,
                full.begin() + size_t{y} * kWidth);
  }
  const size_t shownChroma = size_t{kWidth} * kShown, fullChroma = size_t{kWidth} * kRows;
  for (uint32_t y = 0; y < kRows / 2; ++y) {
    std::copy_n(shown.begin() + shownChroma + size_t{std::min(y, kShown / 2 - 1)} * kWidth, kWidth,
                full.begin() + fullChroma + size_t{y} * kWidth);
  }
  return EncodeFrame(kNv12, kWidth, kRows, full);
}

TEST(Identify, SizesOfOneLayoutSayWhichIsPreferredAndWhy) {
  struct Case {
    Bytes dump;
    std::string name;
    uint32_t height;  // of the first candidate; 1920 wide
    std::vector<std::string> noteWords;
  };
  const Bytes encoded = MakeDump(kNv12, 1920, 1080, 1, 2);
  const Bytes edgeFilled = EdgeFilledNv12Frame();
  const Case cases[] = {
      {encoded, "a.bin", 1080, {"1920x1088", "zero padding", "1920x1080 is preferred"}},
      {encoded, "a_1920x1088.bin", 1080, {"1920x1088", "zero padding", "1920x1080 is preferred"}},
      {edgeFilled, "a.bin", 1080, {"cannot tell them apart", "common resolution"}},
      {edgeFilled, "a_1920x1088.bin", 1088, {"cannot tell them apart", "file name names it"}},
  };
  for (const Case& c : cases) {
    const IdentifyResult r = IdentifyBuffer(c.dump.data(), c.dump.size(), c.name, {});
    ASSERT_GE(r.candidates.size(), 2u) << c.name;
    EXPECT_EQ(r.candidates[0].height, c.height) << c.name << "\n" << Notes(r);
    EXPECT_TRUE(HasNote(r, c.noteWords)) << c.name << "\n" << Notes(r);
  }
}

TEST(Identify, WhatIsNotADumpSaysSo) {
  struct Case {
    Bytes file;
    uint32_t onlyFormat;
    std::vector<std::string> noteWords;
    double bestBelow;  // the best score; -1: no candidate at all
  };
  const Bytes nv12 = MakeDump(kNv12, 640, 480, 2, 1);
  Bytes torn = nv12;
  torn.resize(torn.size() + 100, 7);
  const Case cases[] = {
      {pelcast::testing::RandomBytes(3153920, 4), 0, {"fits poorly"}, 0.5},
      {Bytes(1000, 19), 0, {"No format and size"}, -1},
      {nv12, kRgba, {"fits poorly"}, 0.5},
  };
  for (const Case& c : cases) {
    IdentifyOptions options;
    options.onlyFormat = c.onlyFormat;
    const IdentifyResult r = IdentifyBuffer(c.file.data(), c.file.size(), "x", options);
    EXPECT_TRUE(HasNote(r, c.noteWords)) << Notes(r);
    if (c.bestBelow < 0) {
      EXPECT_TRUE(r.candidates.empty());
    } else {
      ASSERT_FALSE(r.candidates.empty());
      EXPECT_LT(r.candidates[0].score, c.bestBelow) << Describe(r.candidates[0]);
      for (const IdentifyCandidate& k : r.candidates) {
        if (c.onlyFormat != 0) {
          EXPECT_EQ(k.format, static_cast<pelcast_format>(c.onlyFormat));
        }
      }
    }
  }
  // A torn dump: whole frames of the true size, and the rest named.
  const IdentifyResult r = IdentifyBuffer(torn.data(), torn.size(), "x", {});
  ExpectFirst({kNv12, 640, 480, 2, "torn"}, r);
  EXPECT_TRUE(HasNote(r, {"torn frame", "100 bytes"})) << Notes(r);
}

TEST(Identify, ReadsOnlyTheFramesItScores) {
  const DumpCase c{kNv12, 640, 480, 6, "clip.nv12"};
  const Bytes dump = MakeDump(c.format, c.width, c.height, c.frames, 8);
  const uint64_t frameBytes = dump.size() / c.frames;
  uint64_t end = 0;
  const ReadAt read = [&](uint64_t offset, size_t count, uint8_t* out) -> size_t {
    if (offset >= dump.size()) return 0;
    const size_t n = static_cast<size_t>(std::min<uint64_t>(count, dump.size() - offset));
    std::copy_n(dump.begin() + static_cast<ptrdiff_t>(offset), n, out);
    end = std::max(end, offset + n);
    return n;
  };
  const IdentifyResult fromReader = Identify(read, dump.size(), c.name, {});
  ExpectFirst(c, fromReader);
  EXPECT_LE(end, 2 * frameBytes);
  const IdentifyResult fromBuffer = IdentifyBuffer(dump.data(), dump.size(), c.name, {});
  EXPECT_EQ(IdentifyJson(fromReader), IdentifyJson(fromBuffer));
}

TEST(Identify, JsonListsTheCandidatesBestFirst) {
  const Bytes dump = MakeDump(kRgba, 1280, 720, 2, 1);
  const std::string json = IdentifyJson(IdentifyBuffer(dump.data(), dump.size(), "a\"b", {}));
  const std::string head = R"({"file": "a\"b", "bytes": )" + std::to_string(dump.size()) +
                           R"(, "candidates": [)" + "\n" +
                           R"(  {"format": "rgba8888", "width": 1280, "height": 720, "frames": 2, "score": 0.)";
  EXPECT_EQ(json.substr(0, head.size()), head) << json;
  EXPECT_NE(json.find(R"("notes": [)"), std::string::npos);
}

TEST(Identify, NameHints) {
  struct Case {
    std::string name;
    std::vector<Size> sizes;
    std::vector<pelcast_format> formats;
  };
  const Case cases[] = {
      {"dump_1920x1080_nv12.bin", {{1920, 1080}}, {kNv12}},
      {"/tmp/1920X1080/Frame_1920X1080.RAW", {{1920, 1080}}, {}},
      {"/tmp/1920x1080/frame.raw", {}, {}},
      {"shot-1080*2400-RGBA.zpak", {{1080, 2400}}, {kRgba}},
      {"video_1280_720_30fps_yuv420sp", {{1280, 720}}, {kNv12}},
      {"clip_w3840_h2160.bin", {{3840, 2160}}, {}},
      {"movie.1080p.rgb565", {{1920, 1080}}, {kRgb565}},
      {"ui_4k_rgba8888.bin", {{3840, 2160}}, {kRgba}},
      {"img20230101_123456.bin", {}, {}},
      {"a_12x3_b.bin", {}, {}},
      {"release2x.bin", {}, {}},
  };
  for (const Case& c : cases) {
    const NameHints hints = ParseNameHints(c.name);
    EXPECT_EQ(hints.sizes, c.sizes) << c.name;
    EXPECT_EQ(hints.formats, c.formats) << c.name;
  }
}

TEST(Identify, CandidatesOfOneLayoutDecodeToTheSameTiles) {
  // identify decodes a layout once, at its largest size, and cuts each
  // candidate's picture from it: the library must decode the smaller size
  // to exactly that cut.
  struct Case {
    pelcast_format format;
    uint32_t width, height;  // a candidate
    uint32_t layoutWidth, layoutHeight;
  };
  const Case cases[] = {
      {kNv12, 1000, 700, 1024, 704},   {kNv12, 999, 555, 1024, 576},
      {kRgba, 1234, 567, 1280, 576},   {kRgba, 1080, 2400, 1088, 2400},
      {kRgb565, 777, 333, 896, 336},   {kNv12, 1920, 1080, 1920, 1088},
  };
  for (const Case& c : cases) {
    const std::string label = FormatName(c.format) + " " + std::to_string(c.width);
    const size_t frameBytes = pelcast_zpak_frame_size(c.format, c.width, c.height);
    ASSERT_EQ(frameBytes, pelcast_zpak_frame_size(c.format, c.layoutWidth, c.layoutHeight)) << label;
    const Bytes zpak = MakeDump(c.format, c.layoutWidth, c.layoutHeight, 1, 4);
    const Bytes small = DecodeFrame(c.format, c.width, c.height, zpak);
    const Bytes large = DecodeFrame(c.format, c.layoutWidth, c.layoutHeight, zpak);
    const size_t pixel = c.format == kRgba ? 4 : (c.format == kRgb565 ? 2 : 1);
    size_t mismatches = 0;
    for (uint32_t y = 0; y < c.height; ++y) {
      for (size_t x = 0; x < c.width * pixel; ++x) {
        mismatches += small[y * c.width * pixel + x] != large[y * c.layoutWidth * pixel + x];
      }
    }
    if (c.format == kNv12) {
      const size_t smallUv = size_t{c.width} * c.height, largeUv = size_t{c.layoutWidth} * c.layoutHeight;
      const size_t smallPitch = 2 * ((c.width + 1) / 2), largePitch = 2 * ((c.layoutWidth + 1) / 2);
      for (uint32_t y = 0; y < (c.height + 1) / 2; ++y) {
        for (size_t x = 0; x < smallPitch; ++x) {
          mismatches += small[smallUv + y * smallPitch + x] != large[largeUv + y * largePitch + x];
        }
      }
    }
    EXPECT_EQ(mismatches, 0u) << label;
  }
}

}  // namespace
}  // namespace pelcast::zpak::testing
