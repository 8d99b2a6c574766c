// PELCAST_THREADS as the codec commands read it, and when they start threads.
#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdio>

#include "cli/command_threads.h"
#include "io/file_io.h"
#include "tests/test_support.h"

namespace pelcast {
namespace {

TEST(CommandThreadsSetting, ValuesAndTheirCounts) {
  // {text (null: unset), processors, threads, chosen}
  struct Case {
    const char* text;
    uint32_t processors, threads;
    bool chosen;
  };
  const Case cases[] = {
      {nullptr, 2, 2, false},  {nullptr, 1, 1, false}, {nullptr, 200, 64, false},
      {"", 6, 6, false},       {"0", 3, 3, false},     {"000", 3, 3, false},
      {"1", 8, 1, true},       {"2", 1, 2, true},      {"17", 4, 17, true},
      {"064", 4, 64, true},    {"65", 4, 64, true},    {"99999999999999999999999", 4, 64, true},
      {"-1", 5, 5, false},     {"+2", 5, 5, false},    {" 2", 5, 5, false},
      {"2 ", 5, 5, false},     {"0x2", 5, 5, false},   {"two", 5, 5, false},
      {nullptr, 0, 1, false},  {"1", 0, 1, true},
  };
  for (const Case& c : cases) {
    const ThreadSetting s = ParseThreadSetting(c.text, c.processors);
    const std::string label = std::string(c.text != nullptr ? c.text : "unset") + " on " +
                              std::to_string(c.processors);
    EXPECT_EQ(s.threads, c.threads) << label;
    EXPECT_EQ(s.chosen, c.chosen) << label;
  }
}

TEST(CommandThreadsSetting, AutomaticCountsStartThreadsWhereTheyPay) {
  // {setting, several frames, frame bytes, threads}
  struct Case {
    ThreadSetting setting;
    bool severalFrames;
    uint64_t frameBytes, threads;
  };
  const Case cases[] = {
      {{4, false}, false, kThreadedFrameBytes - 1, 1},  {{4, false}, false, kThreadedFrameBytes, 4},
      {{4, false}, true, 100, 4},                       {{1, false}, true, kThreadedFrameBytes, 1},
      {{3, true}, false, 100, 3},                       {{1, true}, true, kThreadedFrameBytes, 1},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(ThreadsWorthStarting(c.setting, c.severalFrames, c.frameBytes), c.threads)
        << c.setting.threads << (c.setting.chosen ? " chosen" : " automatic") << ", "
        << (c.severalFrames ? "several frames" : "one frame") << ", " << c.frameBytes;
  }
}

TEST(CommandThreadsSetting, InputsThatMayHoldSeveralFrames) {
  // A regular file holds what its size says; a pipe may hold anything.
  testing::TempDir dir;
  testing::WriteFile(dir.File("ten"), testing::Bytes(10, 1));
  FILE* ten = std::fopen(dir.File("ten").c_str(), "rb");
  ASSERT_NE(ten, nullptr);
  EXPECT_TRUE(MayHoldBytes(ten, 0));
  EXPECT_TRUE(MayHoldBytes(ten, 10));
  EXPECT_FALSE(MayHoldBytes(ten, 11));
  std::fclose(ten);
  int fds[2];
  ASSERT_EQ(pipe(fds), 0);
  FILE* stream = fdopen(fds[0], "rb");
  ASSERT_NE(stream, nullptr);
  EXPECT_TRUE(MayHoldBytes(stream, uint64_t{1} << 40));
  std::fclose(stream);
  close(fds[1]);
}

}  // namespace
}  // namespace pelcast
