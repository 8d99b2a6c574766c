// The codec commands U, G, B, H and N on several threads: every run with
// PELCAST_THREADS set to 2, 3 or 64, or unset (one thread per processor),
// prints what PELCAST_THREADS=1 prints and writes the same file, byte for
// byte. Inputs: the committed real-content frames and ZPAK frames made from
// them, random ZPAK frames of odd and even sizes (one tile row, a few, many
// bands, frames decoded whole), multi-frame files, inputs that end inside a
// frame, a pipe instead of a regular file, and an output whose writes fail.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "tests/test_support.h"

namespace pelcast::testing {
namespace {

// The settings compared with PELCAST_THREADS=1; null leaves it unset.
const char* const kSettings[] = {"2", "3", "64", nullptr};

struct Outcome {
  std::string transcript;
  Bytes output;
};

// How the input reaches the command.
enum class Feed { kFile, kPipe };

// Writes `input` into the FIFO at `path` (blocks until the command opens it;
// what the command leaves unread is dropped).
void FeedPipe(const std::string& path, const Bytes& input) {
  const int fd = open(path.c_str(), O_WRONLY);
  if (fd < 0) return;
  for (size_t done = 0; done < input.size();) {
    const ssize_t n = write(fd, input.data() + done, input.size() - done);
    if (n <= 0) break;
    done += static_cast<size_t>(n);
  }
  close(fd);
}

// Runs `args` in a fresh directory whose `in` holds `input` with
// PELCAST_THREADS set to `threads` (null: unset).
Outcome RunWithThreads(const char* threads, const std::vector<std::string>& args,
                       const Bytes& input, Feed feed) {
  TempDir dir;
  std::thread feeder;
  if (feed == Feed::kPipe) {
    mkfifo(dir.File("in").c_str(), 0600);
    feeder = std::thread(FeedPipe, dir.File("in"), std::cref(input));
  } else {
    WriteFile(dir.File("in"), input);
  }
  if (threads != nullptr) {
    setenv("PELCAST_THREADS", threads, 1);
  } else {
    unsetenv("PELCAST_THREADS");
  }
  const RunResult r = RunTool(args, dir.path());
  unsetenv("PELCAST_THREADS");
  if (feeder.joinable()) feeder.join();
  return Outcome{r.output, FileExists(dir.File("out")) ? ReadFile(dir.File("out")) : Bytes()};
}

struct Case {
  std::string label;
  std::vector<std::string> args;  // `in` and `out` name the files
  Bytes input;
  Feed feed = Feed::kFile;
};

void ExpectTheSameOnEveryThreadCount(const std::vector<Case>& cases) {
  for (const Case& c : cases) {
    const Outcome one = RunWithThreads("1", c.args, c.input, c.feed);
    ASSERT_FALSE(one.transcript.empty()) << c.label;
    for (const char* threads : kSettings) {
      const Outcome many = RunWithThreads(threads, c.args, c.input, c.feed);
      const std::string setting = threads != nullptr ? threads : "unset";
      EXPECT_EQ(many.transcript, one.transcript) << c.label << ", PELCAST_THREADS " << setting;
      EXPECT_TRUE(many.output == one.output) << c.label << ", PELCAST_THREADS " << setting;
    }
  }
}

std::vector<std::string> Args(const std::string& letter, int w, int h,
                              const std::string& out = "out") {
  return {letter, "in", out, std::to_string(w), std::to_string(h)};
}

Bytes Repeat(const Bytes& frame, size_t frames, size_t extra) {
  Bytes all;
  for (size_t i = 0; i < frames; ++i) all.insert(all.end(), frame.begin(), frame.end());
  all.insert(all.end(), frame.begin(), frame.begin() + static_cast<std::ptrdiff_t>(extra));
  return all;
}

// The ZPAK file the encode command `letter` makes of `linear` (one thread).
Bytes Encoded(const std::string& letter, const Bytes& linear, int w, int h) {
  return RunWithThreads("1", Args(letter, w, h), linear, Feed::kFile).output;
}

TEST(CommandThreads, CommittedFramesEncodeAndDecodeAlike) {
  std::vector<Case> cases;
  for (const TestFrame& f : kTestFrames) {
    const std::string base = TestDataDir() + "/" + f.name;
    const Bytes nv12 = ReadFile(base + ".nv12");
    const Bytes rgba = ReadFile(base + ".rgba");
    cases.push_back({std::string("N ") + f.name, Args("N", f.width, f.height), nv12});
    cases.push_back({std::string("H ") + f.name, Args("H", f.width, f.height), rgba});
    cases.push_back({std::string("U ") + f.name, Args("U", f.width, f.height),
                     Encoded("N", nv12, f.width, f.height)});
    cases.push_back({std::string("G ") + f.name, Args("G", f.width, f.height),
                     Encoded("H", rgba, f.width, f.height)});
    // B reads the RGBA8888 frame's bytes as RGB565 ZPAK: any bytes decode.
    cases.push_back({std::string("B ") + f.name, Args("B", f.width, f.height),
                     Encoded("H", rgba, f.width, f.height)});
  }
  // The four-frame pan, and three frames of it with half a frame more.
  const Bytes pan = ReadFile(TestDataDir() + "/pan-hillside-192x108-4f.nv12");
  const Bytes panZpak = Encoded("N", pan, 192, 108);
  cases.push_back({"N pan", Args("N", 192, 108), pan});
  cases.push_back({"U pan", Args("U", 192, 108), panZpak});
  cases.push_back({"N pan cut", Args("N", 192, 108), Bytes(pan.begin(), pan.end() - 20000)});
  cases.push_back({"U pan cut", Args("U", 192, 108), Bytes(panZpak.begin(), panZpak.end() - 9000)});
  ExpectTheSameOnEveryThreadCount(cases);
}

TEST(CommandThreads, RandomFramesOfManySizesDecodeAlike) {
  // {w, h}: one tile row, two (the threads' data buffers no longer fit in
  // the frame buffer), odd sizes, enough rows for many bands of every
  // thread, and for B a width whose rows are longer than the surface's
  // stride (decoded whole). Each file: three frames and a part of one.
  struct Size {
    int w, h;
  };
  const Size sizes[] = {{64, 4}, {256, 16}, {33, 17}, {97, 61}, {250, 99}, {1000, 300}, {129, 40}};
  std::vector<Case> cases;
  uint32_t seed = 1;
  for (const std::string letter : {"U", "G", "B"}) {
    for (const Size& s : sizes) {
      const std::vector<std::string> args = Args(letter, s.w, s.h);
      // One frame's size, from the command's own report.
      const Outcome probe = RunWithThreads("1", args, Bytes(), Feed::kFile);
      const std::string key = "Aligned ZPAK Buffer Size ";
      const size_t at = probe.transcript.find(key);
      ASSERT_NE(at, std::string::npos) << probe.transcript;
      const size_t frame = std::stoul(probe.transcript.substr(at + key.size()));
      const std::string label = letter + " " + std::to_string(s.w) + "x" + std::to_string(s.h);
      cases.push_back({label, args, Repeat(RandomBytes(frame, seed++), 3, frame / 3)});
    }
  }
  ExpectTheSameOnEveryThreadCount(cases);
}

TEST(CommandThreads, GeneratedLinearFramesEncodeAlike) {
  // Linear frames of odd and even sizes, several frames each (the buffers
  // alternate and are reused), smooth and noisy ones in turn, and inputs
  // that end inside a frame.
  struct Size {
    int w, h;
  };
  const Size sizes[] = {{16, 4}, {64, 16}, {33, 17}, {250, 99}, {700, 260}};
  std::vector<Case> cases;
  for (const Size& s : sizes) {
    for (const std::string letter : {"H", "N"}) {
      const size_t frame = letter == "H" ? size_t{4} * s.w * s.h
                                         : size_t(s.w) * s.h + 2 * size_t((s.w + 1) / 2) * ((s.h + 1) / 2);
      Bytes frames = RandomBytes(4 * frame, 7);
      for (size_t i = frame; i < 2 * frame; ++i) frames[i] = static_cast<uint8_t>(i / 300);
      for (size_t i = 3 * frame; i < 4 * frame; ++i) frames[i] = static_cast<uint8_t>(i % 7);
      const std::string label = letter + " " + std::to_string(s.w) + "x" + std::to_string(s.h);
      cases.push_back({label, Args(letter, s.w, s.h), frames});
      cases.push_back({label + " cut", Args(letter, s.w, s.h),
                       Bytes(frames.begin(), frames.end() - static_cast<std::ptrdiff_t>(frame / 3))});
    }
  }
  ExpectTheSameOnEveryThreadCount(cases);
}

TEST(CommandThreads, PipedInputsAndFailingOutputsGiveTheSameMessages) {
  // A pipe is read frame by frame (never piece by piece); /dev/full refuses
  // every write, so each command stops (or, for G and B, goes on unchecked)
  // as on one thread.
  signal(SIGPIPE, SIG_IGN);  // a command leaves the rest of a pipe unread
  const Bytes rgba = ReadFile(TestDataDir() + "/photo-meadow-256x144.rgba");
  const Bytes nv12 = ReadFile(TestDataDir() + "/photo-meadow-256x144.nv12");
  const Bytes rgbaZpak = Repeat(Encoded("H", rgba, 256, 144), 2, 100);
  const Bytes nv12Zpak = Repeat(Encoded("N", nv12, 256, 144), 2, 100);
  std::vector<Case> cases = {
      {"U pipe", Args("U", 256, 144), nv12Zpak, Feed::kPipe},
      {"G pipe", Args("G", 256, 144), rgbaZpak, Feed::kPipe},
      {"B pipe", Args("B", 256, 144), rgbaZpak, Feed::kPipe},
      {"H pipe", Args("H", 256, 144), Repeat(rgba, 3, 999), Feed::kPipe},
      {"N pipe", Args("N", 256, 144), Repeat(nv12, 3, 999), Feed::kPipe},
  };
  if (FileExists("/dev/full")) {
    cases.push_back({"U full", Args("U", 256, 144, "/dev/full"), nv12Zpak});
    cases.push_back({"G full", Args("G", 256, 144, "/dev/full"), rgbaZpak});
    cases.push_back({"B full", Args("B", 256, 144, "/dev/full"), rgbaZpak});
    cases.push_back({"H full", Args("H", 256, 144, "/dev/full"), Repeat(rgba, 3, 0)});
    cases.push_back({"N full", Args("N", 256, 144, "/dev/full"), Repeat(nv12, 3, 0)});
  }
  ExpectTheSameOnEveryThreadCount(cases);
}

}  // namespace
}  // namespace pelcast::testing
