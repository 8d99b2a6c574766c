#include "cli/dispatcher.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "cli/commands.h"
#include "rawtools/raw_commands.h"

namespace pelcast {
namespace {

constexpr int kArgInput = 2;
constexpr int kArgOutput = 3;
constexpr int kArgFirstNumber = 4;
constexpr int kMinArgs = 4;
constexpr int kRefusedArgs = 5;  // a width without a height
constexpr int kMaxArgs = 8;

// atoi as the platform's C library computes it (strtol, narrowed to int); an
// argument position past the end of the command line converts to 0.
int32_t NumberArg(int argc, const char* const* argv, int index) {
  if (index >= argc || argv[index] == nullptr) return 0;
  return static_cast<int32_t>(std::strtoll(argv[index], nullptr, 10));
}

const char* PathArg(int argc, const char* const* argv, int index) {
  return index < argc && argv[index] != nullptr ? argv[index] : "";
}

bool HasWidthAndHeight(int argc, const char* const* argv) {
  return argc > kArgFirstNumber + 1 && argv[kArgFirstNumber] != nullptr &&
         argv[kArgFirstNumber + 1] != nullptr;
}

}  // namespace

int RunPelcast(int argc, const char* const* argv) {
  if (argc == kRefusedArgs || argc < kMinArgs || argc > kMaxArgs) {
    std::puts("Too many/ too few arguments");
    PrintUsage();
    return 0;
  }
  const char* in = PathArg(argc, argv, kArgInput);
  const char* out = PathArg(argc, argv, kArgOutput);
  const int32_t n1 = NumberArg(argc, argv, kArgFirstNumber);
  const int32_t n2 = NumberArg(argc, argv, kArgFirstNumber + 1);
  const int32_t n3 = NumberArg(argc, argv, kArgFirstNumber + 2);
  const int32_t n4 = NumberArg(argc, argv, kArgFirstNumber + 3);
  const bool hasCommand = argv[1] != nullptr;
  const char letter = hasCommand ? argv[1][0] : '\0';

  // The selection chain. U, N, G, B and the first H need the command string
  // and print the usage text (but still run) when width or height is missing.
  auto guard = [&] {
    if (!HasWidthAndHeight(argc, argv)) PrintUsage();
  };
  if (letter == 'P') {
    PlanarToNv12Command(in, out, n1, n2);
  } else if (hasCommand && letter == 'U') {
    guard();
    DecodeNv12Command(in, out, n1, n2);
  } else if (hasCommand && letter == 'N') {
    guard();
    EncodeNv12Command(in, out, n1, n2);
  } else if (hasCommand && letter == 'G') {
    guard();
    DecodeRgba8888Command(in, out, n1, n2);
  } else if (hasCommand && letter == 'B') {
    guard();
    DecodeRgb565Command(in, out, n1, n2);
  } else if (hasCommand && letter == 'H') {
    guard();
    EncodeRgba8888Command(in, out, n1, n2);
  } else if (letter == 'I') {
    Nv12ToPlanarCommand(in, out, n1, n2);
  } else if (letter == 'C') {
    CropNv12Command(in, out, n1, n2, n3, n4);
  } else if (letter == 'E') {
    DepadNv12Command(in, out, n1, n2);
  } else if (letter == 'S') {
    PsnrCommand(in, out, n1, n2);
  } else if (letter == 'R') {
    PsnrRegionCommand(in, out, n1, n2, n3, n4);
  } else if (letter == 'T') {
    CopyFramesCommand(in, out, n1, n2, n3);
  } else if (letter == 'H') {
    // Never taken: the first H test above always catches the letter. Kept as
    // the last link of the chain so that H only ever means RGBA8888 to ZPAK.
    TrimStartCodeStream(in, out);
  } else {
    std::puts("Unknown selection");
    PrintUsage();
  }
  return 0;
}

void PrintUsage() {
  std::puts("\nUsage:");
  std::puts("ZPAK1.0(Ym,Yd,UVm,UVd) to NV12  -> pelcast U input output width height ");
  std::puts("RGBA8888 to RGBA8888_ZPAK       -> pelcast H input output width height ");
  std::puts("RGBA8888_ZPAK to RGBA8888       -> pelcast G input output width height ");
  std::puts("RGB565_ZPAK to RGB565           -> pelcast B input output width height ");
}

}  // namespace pelcast
