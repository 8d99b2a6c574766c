// The whole tool in-process: an argument vector and input file contents run
// through the dispatcher (RunPelcast) in a private directory made afresh for
// every input and removed after it.
//
// Input: the command string, the argument count (1 to 10), which paths to
// pass as input and output, four numeric arguments, where to split the rest,
// then the bytes of the input file and of a second file.
//
// Paths cover the hostile spellings of a command line: a missing file, a
// directory, an empty path, the input itself as output spelled as ./in,
// sub/../in, a hard link and a symbolic link, an output in a missing
// directory, and devices that discard or refuse every write. Numbers are
// small mostly, sometimes any 32-bit value or text that is not a plain number.
//
// Checked: the call returns 0 and nothing crashes, leaks or hangs (the
// sanitizers and libFuzzer's timeout); the input file, and the second file
// of the comparison commands, are byte for byte as they were; no stream is
// left open. Standard output goes to /dev/null (set PELCAST_FUZZ_ECHO to
// have each command line printed on standard error), and files may grow to
// a bounded size only, so no input can fill the disk.
#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "cli/dispatcher.h"
#include "fuzz/fuzz_support.h"

namespace pelcast::fuzz {
namespace {

namespace fs = std::filesystem;

// Past this size a file write fails (and the tool must cope with that).
constexpr rlim_t kMaxFileBytes = rlim_t{8} << 20;
constexpr int kMaxArgc = 10;
constexpr size_t kNumberArgs = 4;

const char* const kCommands[] = {"U", "G", "B", "H", "N", "P", "I", "C", "E", "T",
                                 "S", "R", "Uxyz", "Hello", "X", "u", "", "h"};

// Inputs: the file, a missing one, a directory, an empty path.
enum class InputPath { kFile, kMissing, kDirectory, kEmpty, kCount };
// Outputs, several of which name the input.
enum class OutputPath {
  kFresh, kSameFile, kDotSlash, kDotDot, kHardLink, kSymlink, kMissingDirectory,
  kDirectory, kOtherFile, kDevNull, kDevFull, kCount
};

// C fills a cropped frame of cropWidth x cropHeight bytes (and half as much
// chroma) for every frame it reads, however small the frame: a crop of this
// size or more would make the run's memory, not the tool, the limit. Such
// crops are left out; refused sizes (2^31 bytes and up, as the tool's 32-bit
// product gives them) still run.
constexpr int64_t kMaxCropBytes = int64_t{1} << 26;

// The cropped frame size as command C computes it: each number as the
// platform's atoi narrows it, their product in 32-bit arithmetic.
uint32_t AsAtoi(const std::string& number) {
  return static_cast<uint32_t>(static_cast<int32_t>(std::strtoll(number.c_str(), nullptr, 10)));
}

int64_t CropBytes(const std::string& width, const std::string& height) {
  return static_cast<int32_t>(AsAtoi(width) * AsAtoi(height));
}

// Numeric arguments that are not plain small decimals.
const char* const kOddNumbers[] = {"",         "abc",         " 7",   "+16",        "-1",
                                   "0",        "12abc",       "0x40", "-2147483648", "2147483647",
                                   "4294967312", "99999999999", "\t32", "--5",       "3.9"};

std::string NumberArg(InputReader* in, bool bounded) {
  const uint8_t kind = in->Byte();
  if (kind % 8 == 6) return kOddNumbers[in->Byte() % std::size(kOddNumbers)];
  if (kind % 8 == 7) {
    // Any 32-bit value; the encode commands clear their frame buffers
    // before every read, so sizes there are kept to what a fuzz run can
    // clear quickly (sizes the commands refuse come from kOddNumbers).
    const auto value = static_cast<int32_t>(in->Uint16() | in->Uint16() << 16);
    return std::to_string(bounded ? value % 1025 : value);
  }
  return std::to_string(static_cast<int32_t>(in->InRange(0, 263)) - 8);
}

struct Sandbox {
  fs::path root;
  fs::path input;
  fs::path second;
};

void WriteBytes(const fs::path& path, const uint8_t* bytes, size_t count) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(reinterpret_cast<const char*>(bytes), static_cast<std::streamsize>(count));
  if (!out) Fail("cannot prepare the sandbox");
}

std::vector<uint8_t> ReadBytes(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  return std::vector<uint8_t>(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

const fs::path& BaseDirectory() {
  static const fs::path base = [] {
    std::string pattern = (fs::temp_directory_path() / "pelcast-fuzz-XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr) Fail("mkdtemp");
    return fs::path(pattern);
  }();
  return base;
}

Sandbox MakeSandbox(const uint8_t* first, size_t firstSize, const uint8_t* second,
                    size_t secondSize) {
  Sandbox box;
  box.root = BaseDirectory() / "run";
  fs::remove_all(box.root);
  fs::create_directories(box.root / "sub");
  box.input = box.root / "in";
  box.second = box.root / "other";
  WriteBytes(box.input, first, firstSize);
  WriteBytes(box.second, second, secondSize);
  fs::create_hard_link(box.input, box.root / "link");
  fs::create_symlink(box.input, box.root / "sym");
  return box;
}

std::string InputPathFor(InputPath choice, const Sandbox& box) {
  switch (choice) {
    case InputPath::kFile:
      return box.input.string();
    case InputPath::kMissing:
      return (box.root / "missing").string();
    case InputPath::kDirectory:
      return (box.root / "sub").string();
    default:
      return "";
  }
}

std::string OutputPathFor(OutputPath choice, const Sandbox& box) {
  const std::string root = box.root.string();
  switch (choice) {
    case OutputPath::kFresh:
      return root + "/out";
    case OutputPath::kSameFile:
      return box.input.string();
    case OutputPath::kDotSlash:
      return root + "/./in";
    case OutputPath::kDotDot:
      return root + "/sub/../in";
    case OutputPath::kHardLink:
      return root + "/link";
    case OutputPath::kSymlink:
      return root + "/sym";
    case OutputPath::kMissingDirectory:
      return root + "/nowhere/out";
    case OutputPath::kDirectory:
      return root + "/sub";
    case OutputPath::kOtherFile:
      return box.second.string();
    case OutputPath::kDevNull:
      return "/dev/null";
    default:
      return "/dev/full";
  }
}

void RemoveBaseDirectory() {
  std::error_code ignored;
  fs::remove_all(BaseDirectory(), ignored);
}

// The lowest free descriptor: it moves up when a run leaves a file open.
int LowestFreeDescriptor() {
  const int fd = open("/dev/null", O_RDONLY);
  if (fd >= 0) close(fd);
  return fd;
}

}  // namespace
}  // namespace pelcast::fuzz

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  // The tool's progress lines are not what is being tested.
  if (std::freopen("/dev/null", "w", stdout) == nullptr) std::abort();
  // A write past the limit fails with an error instead of a signal.
  std::signal(SIGXFSZ, SIG_IGN);
  const rlimit limit{pelcast::fuzz::kMaxFileBytes, pelcast::fuzz::kMaxFileBytes};
  setrlimit(RLIMIT_FSIZE, &limit);
  // Made before the exit handler is registered, so that the handler runs
  // while the path still exists (libFuzzer ends a timed run with exit()).
  pelcast::fuzz::BaseDirectory();
  std::atexit(pelcast::fuzz::RemoveBaseDirectory);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace pelcast::fuzz;
  InputReader in(data, size);
  const std::string command = kCommands[in.Byte() % std::size(kCommands)];
  const int argc = 1 + in.Byte() % kMaxArgc;
  const auto inputChoice = static_cast<InputPath>(in.Byte() % static_cast<int>(InputPath::kCount));
  const auto outputChoice =
      static_cast<OutputPath>(in.Byte() % static_cast<int>(OutputPath::kCount));
  const bool encodes = !command.empty() && (command[0] == 'H' || command[0] == 'N');
  std::vector<std::string> numbers;
  for (size_t i = 0; i < kNumberArgs; ++i) numbers.push_back(NumberArg(&in, encodes));
  constexpr int kCropArgc = 8;  // pelcast C in out width height cropWidth cropHeight
  if (command == "C" && argc >= kCropArgc && CropBytes(numbers[2], numbers[3]) >= kMaxCropBytes) {
    return 0;
  }
  const uint8_t splitByte = in.Byte();
  const size_t split = in.RestSize() * splitByte / 255;

  const Sandbox box = MakeSandbox(in.Rest(), split, in.Rest() + split, in.RestSize() - split);
  const std::vector<uint8_t> inputBefore = ReadBytes(box.input);
  const std::vector<uint8_t> secondBefore = ReadBytes(box.second);

  std::vector<std::string> words = {"pelcast", command, InputPathFor(inputChoice, box),
                                    OutputPathFor(outputChoice, box)};
  words.insert(words.end(), numbers.begin(), numbers.end());
  while (static_cast<int>(words.size()) < kMaxArgc) words.push_back("9");
  std::vector<const char*> argv;
  for (int i = 0; i < argc; ++i) argv.push_back(words[i].c_str());
  argv.push_back(nullptr);

  if (std::getenv("PELCAST_FUZZ_ECHO") != nullptr) {
    // Shows what a saved input runs: the command line and the file sizes.
    for (const char* word : argv) std::fprintf(stderr, "%s ", word != nullptr ? word : "");
    std::fprintf(stderr, "(input %zu bytes, other %zu bytes)\n", inputBefore.size(),
                 secondBefore.size());
  }
  const int descriptorsBefore = LowestFreeDescriptor();
  Check(pelcast::RunPelcast(argc, argv.data()) == 0, "the exit status is always 0");
  std::fflush(stdout);
  Check(LowestFreeDescriptor() == descriptorsBefore, "every file is closed");

  // The file is only the command's input when its path was passed as such;
  // otherwise it is just a file an output path may name.
  if (inputChoice == InputPath::kFile) {
    Check(ReadBytes(box.input) == inputBefore, "the input file is never changed");
    const bool comparison = command == "S" || command == "R";
    if (comparison) Check(ReadBytes(box.second) == secondBefore, "the second input is never changed");
  }
  std::filesystem::remove_all(box.root);
  return 0;
}
