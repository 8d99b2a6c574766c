// Every command against hostile files: inputs shorter than a frame, one byte
// over, empty, missing, a directory, unreadable; outputs that cannot be
// opened, that name the input however it is spelled, or whose writes fail.
// Each case states the exact transcript and what happens to the files.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <vector>

#include "tests/hostile_cli_support.h"
#include "tests/test_support.h"

namespace pelcast::testing {
namespace {

using namespace hostile;

TEST(HostileFiles, InputsOfEveryLength) {
  // Random bytes throughout, metadata included: whatever they say, a whole
  // frame decodes to a whole output frame and a partial one is dropped.
  // Decoding: U 64 x 32 reads ZPAK frames of 16384 bytes and writes 3072, G
  // and B 64 x 16 read 8192 and write 4096 and 2048. Encoding: H 16 x 4
  // reads 4 rows of 64 bytes and writes 8192; N 16 x 8 reads 8 luma rows of
  // 16 bytes then 64 chroma bytes and writes 16384, always ending on a short
  // luma row, and short chroma is encoded as zeros.
  struct Case {
    std::vector<std::string> args;
    size_t inputBytes;
    std::string transcript;
    size_t outputBytes;
  };
  const std::vector<std::string> h = {"H", "in", "out", "16", "4"};
  const std::vector<std::string> n = {"N", "in", "out", "16", "8"};
  const std::string nSizes = "epbBuffSize - 16384 databufsize - 16384 YUVBufSize - 8192\n";
  auto nEnd = [](int got) {
    return "fread Y plane failed readCount " + std::to_string(got) + UsageText();
  };
  std::vector<Case> cases = {
      {h, 0, kEncodeEnd, 0},
      {h, 255, kEncodeEnd, 0},
      {h, 256, ConvertedLines(1) + kEncodeEnd, 8192},
      {h, 257, ConvertedLines(1) + kEncodeEnd, 8192},
      {h, 640, ConvertedLines(2) + kEncodeEnd, 16384},
      {n, 0, nSizes + nEnd(0), 0},
      {n, 100, nSizes + nEnd(4), 0},
      {n, 191, nSizes + ReadLines(1) + nEnd(0), 16384},
      {n, 192, nSizes + ReadLines(1) + nEnd(0), 16384},
      {n, 193, nSizes + ReadLines(1) + nEnd(1), 16384},
  };
  struct DecodeSetup {
    std::vector<std::string> args;
    GeometryValues geometry;
    size_t frame, outputFrame;
  };
  for (const DecodeSetup& d :
       {DecodeSetup{{"U", "in", "out", "64", "32"}, kNv12Geometry, 16384, 3072},
        DecodeSetup{{"G", "in", "out", "64", "16"}, kRgbaGeometry, 8192, 4096},
        DecodeSetup{{"B", "in", "out", "64", "16"}, kRgb565Geometry, 8192, 2048}}) {
    const std::string head = DecodeHead(d.args[0][0], d.geometry);
    const size_t f = d.frame;
    const size_t frames[] = {0, 0, 1, 1, 2};
    const size_t sizes[] = {0, f - 1, f, f + 1, 2 * f + f / 2};
    for (size_t i = 0; i < 5; ++i) {
      const std::string warning = sizes[i] % f != 0 ? SizeWarning(sizes[i], f) : "";
      cases.push_back({d.args, sizes[i], head + warning + ReadLines(int(frames[i])) + kDecodeEnd,
                       frames[i] * d.outputFrame});
    }
  }
  for (const Case& c : cases) {
    TempDir dir;
    WriteFile(dir.File("in"), RandomBytes(c.inputBytes, static_cast<uint32_t>(c.inputBytes)));
    const RunResult r = RunTool(c.args, dir.path());
    EXPECT_EQ(r.output, c.transcript) << c.args[0] << " " << c.inputBytes;
    EXPECT_EQ(ReadFile(dir.File("out")).size(), c.outputBytes) << c.args[0] << " " << c.inputBytes;
    EXPECT_EQ(r.exitStatus, 0);
  }
}

// Arguments that make one small frame for each command, and its message
// when a file cannot be opened. S and R compare `in` with `second`.
struct CommandSetup {
  char letter;
  std::vector<std::string> numbers;
  size_t frameBytes;       // one input frame
  bool outputOpenedFirst;  // the output is created even when the input fails
};

const CommandSetup kCommandSetups[] = {
    {'U', {"64", "32"}, 16384, false}, {'G', {"64", "16"}, 8192, false},
    {'B', {"64", "16"}, 8192, true},   {'H', {"16", "4"}, 256, false},
    {'N', {"16", "8"}, 192, false},    {'P', {"4", "4"}, 24, true},
    {'I', {"4", "4"}, 24, true},       {'C', {"4", "4", "2", "2"}, 24, true},
    {'E', {"4", "4"}, 12288, true},    {'T', {"4", "4", "1"}, 24, true},
};

std::string OpenFailureText(char letter, const std::string& path) {
  const bool rawTool = std::string("PICET").find(letter) != std::string::npos;
  return rawTool ? RawFileError(letter) : OpenFailed(path);
}

std::vector<std::string> Args(const CommandSetup& c, const std::string& in, const std::string& out) {
  std::vector<std::string> args = {std::string(1, c.letter), in, out};
  args.insert(args.end(), c.numbers.begin(), c.numbers.end());
  return args;
}

TEST(HostileFiles, InputsThatCannotBeRead) {
  // A missing file, a directory and an empty path are inputs that cannot be
  // opened; nothing is read and only the commands that open their output
  // before testing the input leave one (empty).
  for (const std::string input : {"missing", "sub", ""}) {
    for (const CommandSetup& c : kCommandSetups) {
      TempDir dir;
      std::filesystem::create_directory(dir.File("sub"));
      const RunResult r = RunTool(Args(c, input, "out"), dir.path());
      EXPECT_EQ(r.output, OpenFailureText(c.letter, input)) << c.letter << " '" << input << "'";
      EXPECT_EQ(FileExists(dir.File("out")), c.outputOpenedFirst) << c.letter << " '" << input << "'";
      if (c.outputOpenedFirst) {
        EXPECT_EQ(ReadFile(dir.File("out")), Bytes()) << c.letter;
      }
    }
  }
  // The comparisons name no path.
  for (const std::string letter : {"S", "R"}) {
    TempDir dir;
    std::filesystem::create_directory(dir.File("sub"));
    WriteFile(dir.File("second"), Bytes(24, 1));
    for (const std::string input : {"missing", "sub"}) {
      const RunResult r = RunTool({letter, input, "second", "4", "4", "4", "4"}, dir.path());
      EXPECT_EQ(r.output, "ERROR: Invalid file pointer...Exiting\n") << letter << " " << input;
    }
  }
}

TEST(HostileFiles, InputsThatCannotBeReadLeaveAnExistingOutputAlone) {
  // The same transcript as without an output file, and the bytes already in
  // the output stay as they were, for every command.
  const Bytes precious = RandomBytes(777, 6);
  for (const std::string input : {"missing", "sub", ""}) {
    for (const CommandSetup& c : kCommandSetups) {
      TempDir dir;
      std::filesystem::create_directory(dir.File("sub"));
      WriteFile(dir.File("out"), precious);
      const RunResult r = RunTool(Args(c, input, "out"), dir.path());
      EXPECT_EQ(r.output, OpenFailureText(c.letter, input)) << c.letter << " '" << input << "'";
      EXPECT_EQ(r.exitStatus, 0);
      EXPECT_EQ(ReadFile(dir.File("out")), precious) << c.letter << " '" << input << "'";
    }
  }
}

TEST(HostileFiles, UnreadableInput) {
  if (geteuid() == 0) GTEST_SKIP() << "permissions do not stop root from reading";
  for (const CommandSetup& c : kCommandSetups) {
    TempDir dir;
    WriteFile(dir.File("in"), Bytes(c.frameBytes, 31));
    chmod(dir.File("in").c_str(), 0);
    const RunResult r = RunTool(Args(c, "in", "out"), dir.path());
    EXPECT_EQ(r.output, OpenFailureText(c.letter, "in")) << c.letter;
  }
}

TEST(HostileFiles, OutputsThatCannotBeOpened) {
  // A missing directory, a directory, an empty path: the command stops with
  // its open-failure message and the input stays as it was.
  for (const std::string output : {"nowhere/out", "sub", ""}) {
    for (const CommandSetup& c : kCommandSetups) {
      TempDir dir;
      std::filesystem::create_directory(dir.File("sub"));
      const Bytes input = RandomBytes(c.frameBytes, 3);
      WriteFile(dir.File("in"), input);
      const RunResult r = RunTool(Args(c, "in", output), dir.path());
      EXPECT_EQ(r.output, OpenFailureText(c.letter, output)) << c.letter << " '" << output << "'";
      EXPECT_EQ(ReadFile(dir.File("in")), input) << c.letter;
      EXPECT_FALSE(FileExists(dir.File("nowhere")));
    }
  }
}

TEST(HostileFiles, OutputNamingTheInputLeavesItUntouched) {
  // However the input is spelled as the output (itself, ./, a detour through
  // a directory, an absolute path, a hard link, a symbolic link), the
  // command behaves as if the output could not be opened.
  for (const CommandSetup& c : kCommandSetups) {
    TempDir dir;
    std::filesystem::create_directory(dir.File("sub"));
    const Bytes input = RandomBytes(2 * c.frameBytes, 5);
    WriteFile(dir.File("in"), input);
    std::filesystem::create_hard_link(dir.File("in"), dir.File("link"));
    std::filesystem::create_symlink("in", dir.File("sym"));
    const std::vector<std::string> spellings = {"in",          "./in", "sub/../in",
                                                dir.File("in"), "link", "sym"};
    for (const std::string& output : spellings) {
      const RunResult r = RunTool(Args(c, "in", output), dir.path());
      EXPECT_EQ(r.output, OpenFailureText(c.letter, output)) << c.letter << " " << output;
      EXPECT_EQ(ReadFile(dir.File("in")), input) << c.letter << " " << output;
    }
  }
}

TEST(HostileFiles, FailedWrites) {
  // /dev/full refuses every write. Frame writes of H, N and U are checked (H
  // and N name the input, deliberately; U names the output and prints the
  // usage text); G's row writes and the raw tools' writes are not.
  if (!FileExists("/dev/full")) GTEST_SKIP() << "no /dev/full";
  struct Case {
    std::vector<std::string> args;
    size_t inputBytes;
    std::string transcript;
  };
  const std::string wideNv12 = "epbBuffSize - 106496 databufsize - 106496 YUVBufSize - 98304\n";
  const Case cases[] = {
      {{"H", "in", "/dev/full", "256", "64"}, 256 * 64 * 4,
       ConvertedLines(1) + "ERROR: Failed to write to file in"},
      {{"N", "in", "/dev/full", "256", "256"}, 256 * 384, wideNv12 + ReadLines(1) +
       "ERROR: Failed to write to file in"},
      {{"U", "in", "/dev/full", "256", "256"}, 106496,
       DecodeHead('U', {256, 256, 256, 128, 64, 32, 64, 16, 4096, 65536, 4096, 32768, 106496,
                        131072}) +
           ReadLines(1) + "ERROR: Failed to write to file /dev/full" + UsageText()},
      {{"G", "in", "/dev/full", "64", "16"}, 8192,
       DecodeHead('G', kRgbaGeometry) + ReadLines(1) + kDecodeEnd},
      {{"P", "in", "/dev/full", "4", "4"}, 24, "frame = 0 \n"},
  };
  for (const Case& c : cases) {
    TempDir dir;
    WriteFile(dir.File("in"), Bytes(c.inputBytes, 0));
    const RunResult r = RunTool(c.args, dir.path());
    EXPECT_EQ(r.output, c.transcript) << c.args[0];
  }
}

}  // namespace
}  // namespace pelcast::testing
