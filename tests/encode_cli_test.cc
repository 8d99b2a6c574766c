// Commands H and N on real content: the committed test frames through N then
// U and H then G, back byte for byte, and the same files whatever kernel set
// PELCAST_CPU_MASK leaves the program.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "tests/hostile_cli_support.h"
#include "tests/test_support.h"

namespace pelcast::testing {
namespace {

TEST(EncodeCommands, RealContentRoundTripsThroughTheDecodeCommands) {
  // {encode, decode, file, width, height, bytes of one ZPAK frame}; the frame
  // sizes are worked out from the plane rules (strides of 128 luma bytes or
  // 256 RGBA bytes, 32 or 16 scanlines, 4096-byte metadata planes). U writes
  // (w h 3) / 2 bytes of a frame, which for odd sizes is a little less than
  // the NV12 frame it read.
  struct Case {
    const char *encode, *decode, *file;
    int w, h;
    size_t frameBytes;
  };
  const Case cases[] = {
      {"N", "U", "pan-hillside-192x108-4f.nv12", 192, 108, 57344},
      {"N", "U", "photo-meadow-256x144.nv12", 256, 144, 73728},
      {"N", "U", "photo-mountains-256x144.nv12", 256, 144, 73728},
      {"N", "U", "photo-mountains-97x61.nv12", 97, 61, 20480},
      {"N", "U", "screen-messages-256x144.nv12", 256, 144, 73728},
      {"N", "U", "screen-player-256x144.nv12", 256, 144, 73728},
      {"N", "U", "screen-navbar-133x75.nv12", 133, 75, 49152},
      {"H", "G", "photo-meadow-256x144.rgba", 256, 144, 151552},
      {"H", "G", "photo-mountains-256x144.rgba", 256, 144, 151552},
      {"H", "G", "photo-mountains-97x61.rgba", 97, 61, 36864},
      {"H", "G", "screen-messages-256x144.rgba", 256, 144, 151552},
      {"H", "G", "screen-player-256x144.rgba", 256, 144, 151552},
      {"H", "G", "screen-navbar-133x75.rgba", 133, 75, 65536},
  };
  for (const Case& c : cases) {
    TempDir dir;
    const std::string source = TestDataDir() + "/" + c.file;
    const std::string w = std::to_string(c.w), h = std::to_string(c.h);
    const Bytes original = ReadFile(source);
    const bool rgba = c.encode[0] == 'H';
    const size_t linearBytes =
        rgba ? size_t(4) * c.w * c.h
             : size_t(c.w) * c.h + 2 * size_t((c.w + 1) / 2) * ((c.h + 1) / 2);
    const size_t writtenBytes = rgba ? linearBytes : size_t(c.w) * c.h * 3 / 2;
    ASSERT_EQ(original.size() % linearBytes, 0u) << c.file;
    const size_t frames = original.size() / linearBytes;
    const RunResult r = RunTool({c.encode, source, dir.File("z"), w, h});
    if (rgba) {
      EXPECT_EQ(r.output, hostile::ConvertedLines(1) + hostile::kEncodeEnd) << c.file;
    }
    EXPECT_EQ(ReadFile(dir.File("z")).size(), frames * c.frameBytes) << c.file;
    RunTool({c.decode, dir.File("z"), dir.File("back"), w, h});
    Bytes expected;
    for (size_t f = 0; f < frames; ++f) {
      const auto frame = original.begin() + f * linearBytes;
      expected.insert(expected.end(), frame, frame + writtenBytes);
    }
    EXPECT_TRUE(ReadFile(dir.File("back")) == expected) << c.file;
  }
}

// Every mask (none, plain routines only, SSE2 at most, every feature, and
// text that is no mask) gives the files the unmasked program gives.
TEST(EncodeCommands, EveryCpuMaskWritesTheSameFiles) {
  struct Command {
    const char *encode, *decode, *file;
    int w, h;
  };
  const Command commands[] = {{"N", "U", "photo-mountains-256x144.nv12", 256, 144},
                              {"H", "G", "screen-messages-256x144.rgba", 256, 144},
                              {"H", "G", "photo-mountains-97x61.rgba", 97, 61}};
  const char* const masks[] = {"0", "0x1", "0xffffffff", "lots"};
  for (const Command& c : commands) {
    const std::string source = TestDataDir() + "/" + c.file;
    const std::string w = std::to_string(c.w), h = std::to_string(c.h);
    TempDir dir;
    unsetenv("PELCAST_CPU_MASK");
    RunTool({c.encode, source, dir.File("z"), w, h});
    RunTool({c.decode, dir.File("z"), dir.File("back"), w, h});
    const Bytes compressed = ReadFile(dir.File("z"));
    const Bytes decoded = ReadFile(dir.File("back"));
    ASSERT_FALSE(compressed.empty() || decoded.empty()) << c.file;
    for (const char* mask : masks) {
      setenv("PELCAST_CPU_MASK", mask, 1);
      RunTool({c.encode, source, dir.File("z2"), w, h});
      RunTool({c.decode, dir.File("z"), dir.File("back2"), w, h});
      unsetenv("PELCAST_CPU_MASK");
      EXPECT_TRUE(ReadFile(dir.File("z2")) == compressed) << c.file << " mask " << mask;
      EXPECT_TRUE(ReadFile(dir.File("back2")) == decoded) << c.file << " mask " << mask;
    }
  }
}

}  // namespace
}  // namespace pelcast::testing
