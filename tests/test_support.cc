#include "tests/test_support.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace pelcast::testing {

namespace {

// How pelcast is started: the binary itself, or in a cross build the
// emulator's command line followed by the binary.
struct ToolCommand {
  std::string program;            // what execvp runs
  std::vector<std::string> argv;  // its argument vector, argv[0] included
};

ToolCommand ToolCommandLine(const std::vector<std::string>& args) {
#ifdef PELCAST_EMULATOR
  const char* const emulator[] = PELCAST_EMULATOR;
  ToolCommand command{emulator[0], {std::begin(emulator), std::end(emulator)}};
  command.argv.push_back(PELCAST_BINARY);
#else
  ToolCommand command{PELCAST_BINARY, {"pelcast"}};
#endif
  command.argv.insert(command.argv.end(), args.begin(), args.end());
  return command;
}

}  // namespace

RunResult RunTool(const std::vector<std::string>& args, const std::string& workDir) {
  // Everything the child needs is built before fork.
  ToolCommand command = ToolCommandLine(args);
  std::vector<char*> argv;
  for (std::string& word : command.argv) argv.push_back(word.data());
  argv.push_back(nullptr);

  int pipeFds[2];
  if (pipe(pipeFds) != 0) throw std::runtime_error("pipe failed");
  const pid_t pid = fork();
  if (pid < 0) throw std::runtime_error("fork failed");
  if (pid == 0) {
    dup2(pipeFds[1], STDOUT_FILENO);
    close(pipeFds[0]);
    close(pipeFds[1]);
    if (chdir(workDir.c_str()) != 0) _exit(127);
    execvp(command.program.c_str(), argv.data());
    _exit(127);
  }
  close(pipeFds[1]);
  RunResult result{"", -1};
  char chunk[4096];
  ssize_t got;
  while ((got = read(pipeFds[0], chunk, sizeof chunk)) > 0) result.output.append(chunk, got);
  close(pipeFds[0]);
  int status = 0;
  waitpid(pid, &status, 0);
  if (WIFEXITED(status)) result.exitStatus = WEXITSTATUS(status);
  return result;
}

TempDir::TempDir() {
  std::string pattern = (std::filesystem::temp_directory_path() / "pelcast-test-XXXXXX").string();
  if (mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("mkdtemp failed");
  path_ = pattern;
}

TempDir::~TempDir() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

void WriteFile(const std::string& path, const Bytes& bytes) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
  if (!out) throw std::runtime_error("cannot write " + path);
}

Bytes ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) throw std::runtime_error("cannot read " + path);
  return Bytes(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

bool FileExists(const std::string& path) { return std::filesystem::exists(path); }

Bytes RandomBytes(size_t count, uint32_t seed) {
  Bytes bytes(count);
  uint32_t state = seed * 2654435761u + 1;
  for (uint8_t& b : bytes) {
    state ^= state << 13;
    state ^= state >> 17;
    state ^= state << 5;
    b = static_cast<uint8_t>(state);
  }
  return bytes;
}

std::string UsageText() {
  return "\nUsage:\n"
         "ZPAK1.0(Ym,Yd,UVm,UVd) to NV12  -> pelcast U input output width height \n"
         "RGBA8888 to RGBA8888_ZPAK       -> pelcast H input output width height \n"
         "RGBA8888_ZPAK to RGBA8888       -> pelcast G input output width height \n"
         "RGB565_ZPAK to RGB565           -> pelcast B input output width height \n";
}

std::string TestDataDir() { return PELCAST_TEST_DATA_DIR; }

uint64_t SlotOf(uint64_t row, uint64_t column, uint64_t macroTilesPerRow) {
  return 16 * ((row / 4) * macroTilesPerRow + column / 4) + kSlotOrder[4 * (row % 4) + column % 4];
}

uint64_t MetaOffset(uint64_t row, uint64_t column, uint64_t tilesPerRow) {
  const uint64_t v = row % 16;
  const uint64_t u = column % 16;
  const uint64_t rowPart = v < 8 ? 8 * v : 128 + 8 * (v - 8);
  const uint64_t colPart = u < 8 ? u : 64 + (u - 8);
  return 256 * ((row / 16) * tilesPerRow + column / 16) + rowPart + colPart;
}

uint64_t RawElementIndex(uint64_t x, uint64_t y, uint64_t elementsPerRow) {
  const uint64_t inBlock = (x & 1) | (y & 1) << 1 | (x & 2) << 1 | (y & 2) << 2;
  return ((y >> 2) * (elementsPerRow / 4) + (x >> 2)) * 16 + inBlock;
}

}  // namespace pelcast::testing
