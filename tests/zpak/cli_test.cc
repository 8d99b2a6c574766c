// zpak as a program: the subcommand list, --help everywhere, the exit
// statuses (0 success, 1 a negative finding, 2 usage or I/O error) with data
// on standard output only and messages on standard error, and every
// subcommand reading standard input.
#include <gtest/gtest.h>

#include "tests/zpak/zpak_test_support.h"

namespace pelcast::zpak::testing {
namespace {

using pelcast::testing::TempDir;
using pelcast::testing::WriteFile;

const char* const kSubcommands[] = {"identify", "verify", "compare", "decode", "encode", "info"};

TEST(Cli, HelpOnStandardOutput) {
  for (const char* sub : kSubcommands) {
    for (const std::vector<std::string>& args :
         {std::vector<std::string>{sub, "--help"}, {sub, "nv12", "-h", "--bogus"}, {"help", sub}}) {
      const ZpakRun run = RunZpak(args);
      EXPECT_EQ(run.status, 0) << sub;
      EXPECT_EQ(run.out.rfind(std::string("Usage: zpak ") + sub + " [OPTIONS]", 0), 0u) << run.out;
      EXPECT_NE(run.out.find("Exit status:"), std::string::npos) << sub;
      EXPECT_EQ(run.err, "");
    }
  }
  const ZpakRun overview = RunZpak({"--help"});
  EXPECT_EQ(overview.status, 0);
  for (const char* sub : kSubcommands) EXPECT_NE(overview.out.find(std::string("  ") + sub), std::string::npos);
  EXPECT_EQ(RunZpak({"--version"}).out.rfind("zpak (pelcast ", 0), 0u);
}

TEST(Cli, ExitStatusesAndWhereMessagesGo) {
  TempDir dir;
  const Bytes dump = MakeDump(PELCAST_FORMAT_NV12, 128, 64, 2, 1);
  Bytes broken = dump, changed = dump;
  broken[0] = 42;  // the first luma tile's metadata byte
  const pelcast_tile_info first = TileInfo(PELCAST_FORMAT_NV12, 128, 64, dump, 0, 0, 0);
  changed[first.data_offset + 20] ^= 0x55;  // inside its stream
  WriteFile(dir.File("ok.zpak"), dump);
  WriteFile(dir.File("broken.zpak"), broken);
  WriteFile(dir.File("changed.zpak"), changed);
  WriteFile(dir.File("noise.bin"), pelcast::testing::RandomBytes(dump.size(), 3));
  struct Case {
    std::vector<std::string> args;
    int status;
    bool output;  // anything on standard output
  };
  const Case cases[] = {
      {{}, 2, false},
      {{"bogus"}, 2, false},
      {{"identify", "ok.zpak"}, 0, true},
      {{"identify", "noise.bin"}, 1, true},
      {{"identify", "missing.zpak"}, 2, false},
      {{"identify", "--format", "yuv", "ok.zpak"}, 2, false},
      {{"verify", "nv12", "ok.zpak", "128", "64"}, 0, true},
      {{"verify", "nv12", "broken.zpak", "128", "64"}, 1, true},
      {{"verify", "nv12", "ok.zpak", "128"}, 2, false},
      {{"verify", "nv12", "ok.zpak", "128", "64", "--reference", "missing.raw"}, 2, false},
      {{"compare", "nv12", "ok.zpak", "ok.zpak", "128", "64"}, 0, true},
      {{"compare", "nv12", "ok.zpak", "changed.zpak", "128", "64"}, 1, true},
      {{"compare", "nv12", "-", "-", "128", "64"}, 2, false},
      {{"decode", "nv12", "ok.zpak", "out.raw", "128", "64"}, 0, false},
      {{"decode", "nv12", "ok.zpak", "out.raw", "--size", "128x"}, 2, false},
      {{"decode", "nv12", "ok.zpak", "out.raw", "128", "64", "--frames", "3-1"}, 2, false},
      {{"encode", "nv12", "out.raw", "again.zpak", "128", "64"}, 0, false},
      {{"encode", "nv12", "out.raw", "again.zpak", "128", "64", "--threads", "65"}, 2, false},
      {{"info", "nv12", "ok.zpak", "128", "64"}, 0, true},
      {{"info", "nv12", "ok.zpak", "--size", "128x64", "--json"}, 0, true},
  };
  for (const Case& c : cases) {
    const ZpakRun run = RunZpak(c.args, {}, dir.path());
    const std::string label = ::testing::PrintToString(c.args);
    EXPECT_EQ(run.status, c.status) << label << "\n" << run.err;
    EXPECT_EQ(!run.out.empty(), c.output) << label << "\n" << run.out;
    if (c.status == 2) {
      EXPECT_FALSE(run.err.empty()) << label;
    }
  }
  EXPECT_EQ(pelcast::testing::ReadFile(dir.File("again.zpak")), dump);
}

TEST(Cli, EverySubcommandReadsStandardInput) {
  TempDir dir;
  const Bytes dump = MakeDump(PELCAST_FORMAT_RGBA8888, 96, 32, 2, 5);
  WriteFile(dir.File("a.zpak"), dump);
  struct Case {
    std::vector<std::string> args;
    std::string inOutput;
  };
  const Case cases[] = {
      {{"identify", "--name", "clip_96x32.rgba", "-"}, "rgba8888  96x32"},
      {{"verify", "rgba8888", "-", "96", "32"}, "2 frames: 0 invalid tiles"},
      {{"compare", "rgba8888", "-", "a.zpak", "96", "32"}, ": identical"},
      {{"compare", "rgba8888", "a.zpak", "-", "96", "32"}, ": identical"},
      {{"info", "rgba8888", "-", "96", "32"}, "\nframe 1\n"},
  };
  for (const Case& c : cases) {
    const ZpakRun run = RunZpak(c.args, dump, dir.path());
    EXPECT_EQ(run.status, 0) << ::testing::PrintToString(c.args) << run.err;
    EXPECT_NE(run.out.find(c.inOutput), std::string::npos) << run.out;
  }
}

}  // namespace
}  // namespace pelcast::zpak::testing
