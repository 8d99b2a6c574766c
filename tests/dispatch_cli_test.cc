// The command line: argument counts, command letters and the usage text.
#include <gtest/gtest.h>

#include "tests/test_support.h"

namespace pelcast::testing {
namespace {

const char kTooMany[] = "Too many/ too few arguments\n";
const char kUnknown[] = "Unknown selection\n";

TEST(Dispatch, UsageTextPlacesArrowsInColumn33) {
  // Worked out by hand: every description field is 32 characters wide.
  const std::string usage = UsageText();
  size_t start = usage.find("ZPAK1.0");
  for (int line = 0; line < 4; ++line) {
    const size_t end = usage.find('\n', start);
    const std::string text = usage.substr(start, end - start);
    EXPECT_EQ(text.find("->"), 32u) << text;
    EXPECT_EQ(text.back(), ' ') << text;
    start = end + 1;
  }
}

struct CountCase {
  std::vector<std::string> args;  // after the program name
  bool refused;
};

TEST(Dispatch, ArgumentCountTable) {
  // Argument counts include the program name: 4, 6, 7 and 8 pass, 5 and
  // anything below 4 or above 8 are refused. An unknown letter shows which
  // passed (it prints its own message instead of the count message).
  const std::vector<CountCase> cases = {
      {{}, true},
      {{"X"}, true},
      {{"X", "a"}, true},
      {{"X", "a", "b"}, false},
      {{"X", "a", "b", "1"}, true},
      {{"X", "a", "b", "1", "2"}, false},
      {{"X", "a", "b", "1", "2", "3"}, false},
      {{"X", "a", "b", "1", "2", "3", "4"}, false},
      {{"X", "a", "b", "1", "2", "3", "4", "5"}, true},
      {{"X", "a", "b", "1", "2", "3", "4", "5", "6"}, true},
  };
  for (const CountCase& c : cases) {
    const RunResult r = RunTool(c.args);
    const std::string expected = std::string(c.refused ? kTooMany : kUnknown) + UsageText();
    EXPECT_EQ(r.output, expected) << "argument count " << c.args.size() + 1;
    EXPECT_EQ(r.exitStatus, 0);
  }
}

TEST(Dispatch, UnknownLettersAreRefused) {
  for (const std::string letter : {"X", "u", "g", "1", "", "Z", "h"}) {
    const RunResult r = RunTool({letter, "in", "out", "1", "1"});
    EXPECT_EQ(r.output, kUnknown + UsageText()) << "letter '" << letter << "'";
    EXPECT_EQ(r.exitStatus, 0);
  }
}

TEST(Dispatch, CountOfFiveIsRefusedEvenForKnownLetters) {
  const RunResult r = RunTool({"U", "in", "out", "64"});
  EXPECT_EQ(r.output, kTooMany + UsageText());
  EXPECT_EQ(r.exitStatus, 0);
}

}  // namespace
}  // namespace pelcast::testing
