// Commands H and N: transcripts, output sizes, refusals, and corpus frames
// through N then U and H then G, back byte for byte.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#include "tests/test_support.h"

namespace pelcast::testing {
namespace {

std::string Frames(const char* format, int count) {
  std::string text;
  char line[128];
  for (int n = 0; n < count; ++n) {
    std::snprintf(line, sizeof line, format, n, n);
    text += line;
  }
  return text;
}

const char kRgbaFrame[] = "Input Frame Read completed=%u\nInput Frame CONVERSION completed=%u\n";
const char kNv12Frame[] = "Input Frame Read completed=%u\n";
const char kRgbaEnd[] = "End of file Reached\nProcess complete....Exiting \n";

// 64 x 8 RGBA8888: stride 256, 16 scanlines; metadata 64 x 16 in one page;
// frame 4096 + 4096. NV12 64 x 8: stride 128, 32 + 32 scanlines, metadata
// pages 4096 + 4096: frame 16384.
constexpr size_t kRgbaFrameBytes = 8192;
constexpr size_t kNv12FrameBytes = 16384;
const char kNv12Sizes[] = "epbBuffSize - 16384 databufsize - 16384 YUVBufSize - 8192\n";

TEST(EncodeCommands, Transcripts) {
  struct Case {
    std::string name;
    std::string letter;
    size_t inputBytes;
    std::string width, height;
    std::string stdout_;
    size_t outputBytes;
  };
  const std::vector<Case> cases = {
      {"H two frames", "H", 2 * 64 * 8 * 4, "64", "8", Frames(kRgbaFrame, 2) + kRgbaEnd,
       2 * kRgbaFrameBytes},
      {"H partial last frame dropped", "H", 64 * 8 * 4 + 1000, "64", "8",
       Frames(kRgbaFrame, 1) + kRgbaEnd, kRgbaFrameBytes},
      {"H zero width reads nothing", "H", 100, "0", "8",
       "Incomplete file read\nProcess complete....Exiting \n", 0},
      {"N one frame", "N", 64 * 12, "64", "8",
       std::string(kNv12Sizes) + Frames(kNv12Frame, 1) + "fread Y plane failed readCount 0" +
           UsageText(),
       kNv12FrameBytes},
      {"N short Y row", "N", 64 * 12 + 64 * 3 + 10, "64", "8",
       std::string(kNv12Sizes) + Frames(kNv12Frame, 1) + "fread Y plane failed readCount 10" +
           UsageText(),
       kNv12FrameBytes},
      {"N short chroma is encoded", "N", 64 * 8 + 5, "64", "8",
       std::string(kNv12Sizes) + Frames(kNv12Frame, 1) + "fread Y plane failed readCount 0" +
           UsageText(),
       kNv12FrameBytes},
      {"H negative height", "H", 100, "64", "-8",
       "ERROR: width and height must not be negative\n" + UsageText(), 0},
      {"N negative width", "N", 100, "-1", "8",
       "ERROR: width and height must not be negative\n" + UsageText(), 0},
      {"H buffers of 2^31 bytes", "H", 100, "16384", "32768",
       "ERROR: frame too large: a buffer or byte count would reach 2^31 bytes\n" + UsageText(), 0},
  };
  for (const Case& c : cases) {
    TempDir dir;
    WriteFile(dir.File("in"), RandomBytes(c.inputBytes, 5));
    const RunResult r = RunTool({c.letter, dir.File("in"), dir.File("out"), c.width, c.height});
    EXPECT_EQ(r.output, c.stdout_) << c.name;
    EXPECT_EQ(r.exitStatus, 0) << c.name;
    EXPECT_EQ(ReadFile(dir.File("out")).size(), c.outputBytes) << c.name;
  }
}

TEST(EncodeCommands, OpenAndWriteFailures) {
  TempDir dir;
  const std::string in = dir.File("in");
  const Bytes input = RandomBytes(64 * 12, 3);
  WriteFile(in, input);
  for (const std::string letter : {"H", "N"}) {
    RunResult r = RunTool({letter, dir.File("missing"), dir.File("out"), "64", "8"});
    EXPECT_EQ(r.output, "ERROR: Unable to open File " + dir.File("missing") + "\n" + UsageText());
    // The output names the input itself: refused, input untouched.
    r = RunTool({letter, in, dir.path() + "/./in", "64", "8"});
    EXPECT_EQ(r.output, "ERROR: Unable to open File " + dir.path() + "/./in\n" + UsageText());
    EXPECT_EQ(ReadFile(in), input);
  }
  // A full device: the message names the input path, without a newline, and
  // no usage text follows. Frames larger than the output's stream buffer
  // make the first write itself fail: RGBA8888 256 x 64 is 69632 bytes,
  // NV12 512 x 128 is 106496.
  WriteFile(in, RandomBytes(512 * 128 * 3 / 2, 4));
  RunResult r = RunTool({"H", in, "/dev/full", "256", "64"});
  EXPECT_EQ(r.output, Frames(kRgbaFrame, 1) + "ERROR: Failed to write to file " + in);
  r = RunTool({"N", in, "/dev/full", "512", "128"});
  EXPECT_EQ(r.output, "epbBuffSize - 106496 databufsize - 106496 YUVBufSize - 98304\n" +
                          Frames(kNv12Frame, 1) + "ERROR: Failed to write to file " + in);
}

struct CorpusFile {
  const char* name;
  int frames;
};

bool UnderSanitizer() {
#if defined(__SANITIZE_ADDRESS__)
  return true;
#else
  return false;
#endif
}

TEST(EncodeCommands, CorpusFramesRoundTripThroughTheDecodeCommands) {
  // Under the sanitizers only one file of each format runs, to keep the
  // suite quick; the optimised build runs them all.
  const std::vector<std::pair<std::string, std::string>> nv12 = {
      {"pattern-testsrc2-1920x1080.nv12", "1"}, {"photo-boats-1920x1080.nv12", "1"},
      {"photo-meadow-1920x1080.nv12", "1"},     {"photo-mountains-1920x1080.nv12", "1"},
      {"screen-home-1920x1080.nv12", "1"},      {"pan-hillside-1920x1080-8f.nv12", "8"}};
  const std::vector<std::pair<std::string, std::string>> rgba = {
      {"pattern-testsrc2-1920x1080.rgba", "1"}, {"photo-boats-1920x1080.rgba", "1"},
      {"photo-meadow-1920x1080.rgba", "1"},     {"photo-mountains-1920x1080.rgba", "1"},
      {"screen-home-1920x1080.rgba", "1"}};
  const size_t limit = UnderSanitizer() ? 1 : 100;
  for (size_t i = 0; i < nv12.size() && i < limit; ++i) {
    TempDir dir;
    const std::string source = CorpusDir() + "/" + nv12[i].first;
    RunTool({"N", source, dir.File("z"), "1920", "1080"});
    EXPECT_EQ(ReadFile(dir.File("z")).size() % 3153920, 0u) << nv12[i].first;
    RunTool({"U", dir.File("z"), dir.File("back"), "1920", "1080"});
    EXPECT_TRUE(ReadFile(dir.File("back")) == ReadFile(source)) << nv12[i].first;
  }
  for (size_t i = 0; i < rgba.size() && i < limit; ++i) {
    TempDir dir;
    const std::string source = CorpusDir() + "/" + rgba[i].first;
    const RunResult r = RunTool({"H", source, dir.File("z"), "1920", "1080"});
    EXPECT_EQ(r.output, Frames(kRgbaFrame, 1) + kRgbaEnd);
    EXPECT_EQ(ReadFile(dir.File("z")).size(), 8392704u) << rgba[i].first;
    RunTool({"G", dir.File("z"), dir.File("back"), "1920", "1080"});
    EXPECT_TRUE(ReadFile(dir.File("back")) == ReadFile(source)) << rgba[i].first;
  }
}

}  // namespace
}  // namespace pelcast::testing
