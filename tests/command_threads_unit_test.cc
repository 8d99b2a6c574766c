// PELCAST_THREADS as the codec commands read it.
#include <gtest/gtest.h>

#include "cli/command_threads.h"

namespace pelcast {
namespace {

TEST(CommandThreadsSetting, ValuesAndTheirCounts) {
  // {text (null: unset), processors, threads}
  struct Case {
    const char* text;
    uint32_t processors, threads;
  };
  const Case cases[] = {
      {nullptr, 2, 2},   {nullptr, 1, 1},     {nullptr, 200, 64},  {"", 6, 6},
      {"0", 3, 3},       {"000", 3, 3},       {"1", 8, 1},         {"2", 1, 2},
      {"17", 4, 17},     {"064", 4, 64},      {"65", 4, 64},       {"99999999999999999999999", 4, 64},
      {"-1", 5, 5},      {"+2", 5, 5},        {" 2", 5, 5},        {"2 ", 5, 5},
      {"0x2", 5, 5},     {"two", 5, 5},       {nullptr, 0, 1},     {"1", 0, 1},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(ThreadCountSetting(c.text, c.processors), c.threads)
        << (c.text != nullptr ? c.text : "unset") << " on " << c.processors;
  }
}

}  // namespace
}  // namespace pelcast
