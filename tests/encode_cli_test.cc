// Commands H and N on real content: corpus frames through N then U and H
// then G, back byte for byte.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/hostile_cli_support.h"
#include "tests/test_support.h"

namespace pelcast::testing {
namespace {

bool UnderSanitizer() {
#if defined(__SANITIZE_ADDRESS__)
  return true;
#else
  return false;
#endif
}

TEST(EncodeCommands, CorpusFramesRoundTripThroughTheDecodeCommands) {
  // {encode, decode, file, bytes of one ZPAK frame}. Under the sanitizers
  // only one file of each format runs, to keep the suite quick.
  struct Case {
    const char *encode, *decode, *file;
    size_t frameBytes;
  };
  const Case cases[] = {
      {"N", "U", "pattern-testsrc2-1920x1080.nv12", 3153920},
      {"H", "G", "pattern-testsrc2-1920x1080.rgba", 8392704},
      {"N", "U", "pan-hillside-1920x1080-8f.nv12", 3153920},
      {"N", "U", "photo-boats-1920x1080.nv12", 3153920},
      {"N", "U", "photo-meadow-1920x1080.nv12", 3153920},
      {"N", "U", "photo-mountains-1920x1080.nv12", 3153920},
      {"N", "U", "screen-home-1920x1080.nv12", 3153920},
      {"H", "G", "photo-boats-1920x1080.rgba", 8392704},
      {"H", "G", "photo-meadow-1920x1080.rgba", 8392704},
      {"H", "G", "photo-mountains-1920x1080.rgba", 8392704},
      {"H", "G", "screen-home-1920x1080.rgba", 8392704},
  };
  for (size_t i = 0; i < (UnderSanitizer() ? 2 : std::size(cases)); ++i) {
    const Case& c = cases[i];
    TempDir dir;
    const std::string source = CorpusDir() + "/" + c.file;
    const Bytes original = ReadFile(source);
    const RunResult r = RunTool({c.encode, source, dir.File("z"), "1920", "1080"});
    if (c.encode[0] == 'H') {
      EXPECT_EQ(r.output, hostile::ConvertedLines(1) + hostile::kEncodeEnd);
    }
    const size_t linearBytes = c.encode[0] == 'H' ? 1920 * 1080 * 4 : 1920 * 1080 * 3 / 2;
    EXPECT_EQ(ReadFile(dir.File("z")).size(), original.size() / linearBytes * c.frameBytes)
        << c.file;
    RunTool({c.decode, dir.File("z"), dir.File("back"), "1920", "1080"});
    EXPECT_TRUE(ReadFile(dir.File("back")) == original) << c.file;
  }
}

}  // namespace
}  // namespace pelcast::testing
