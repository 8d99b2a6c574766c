// Buffers, files and 32-bit arithmetic shared by the raw 4:2:0 tools.
#pragma once

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>

#include "rawtools/clipped_rows.h"

namespace pelcast {

// Frame sizes and plane offsets are formed from the command-line integers in
// 32-bit arithmetic and wrap like it; these keep the wrap well defined.
inline int32_t Mul32(int32_t a, int32_t b) {
  return static_cast<int32_t>(static_cast<uint32_t>(a) * static_cast<uint32_t>(b));
}
inline int32_t Add32(int32_t a, int32_t b) {
  return static_cast<int32_t>(static_cast<uint32_t>(a) + static_cast<uint32_t>(b));
}

struct FreeBytes {
  void operator()(uint8_t* bytes) const { std::free(bytes); }
};

// A zero-filled buffer owned by a command.
struct RawBuffer {
  std::unique_ptr<uint8_t, FreeBytes> bytes;
  int64_t size = 0;

  ByteSpan Span() const { return {bytes.get(), size}; }
};

// Allocates `size` zero-filled bytes. A size of 0 succeeds; a negative size (a
// frame size the 32-bit arithmetic turned negative, which as an unsigned
// request could never be met) fails like exhausted memory.
bool AllocateRaw(int64_t size, RawBuffer& buffer);

struct CloseStream {
  void operator()(std::FILE* file) const;
};
using FileHandle = std::unique_ptr<std::FILE, CloseStream>;

// Opens the input and the output of a one-input command. When the input
// cannot be opened the output is only created if missing (an existing one is
// left untouched), as the commands have always left an output behind. The
// output is refused (left null, nothing truncated) when it names the input.
struct FilePair {
  FileHandle input;
  FileHandle output;

  bool BothOpen() const { return input != nullptr && output != nullptr; }
};
FilePair OpenInputAndOutput(const char* inputPath, const char* outputPath);

// What a one-input command prints when it cannot start.
struct StartFailureTexts {
  const char* buffer;  // a buffer could not be had
  const char* file;    // the input or the output did not open
};

// The texts most raw commands print.
inline constexpr StartFailureTexts kStartFailureTexts{"ERROR: Invalid buffer pointer...Exiting",
                                                      "ERROR: Invalid file pointer...Exiting"};

// The common start of a one-input command, once it has tried for its buffers
// (`allocated` says whether it had them all): without them it prints
// texts.buffer and opens nothing; with them it opens both files into `files`
// and prints texts.file when either did not open. True when the command may
// go on to its loop.
bool StartCommand(bool allocated, const StartFailureTexts& texts, const char* inputPath,
                  const char* outputPath, FilePair& files);

// Reads `count` bytes into the start of `buffer` as `count` one-byte items and
// returns how many arrived. Bytes that did not arrive keep their old values.
int64_t ReadBytes(std::FILE* file, RawBuffer& buffer, int64_t count);

// True when a frame part of `count` bytes arrived whole. A part of 0 bytes
// never counts as arrived: a frame loop on it would spin without reading.
bool ReadWhole(std::FILE* file, RawBuffer& buffer, int64_t count);

// Writes `count` bytes from the start of `buffer` (nothing when count <= 0).
void WriteBytes(std::FILE* file, const RawBuffer& buffer, int64_t count);

// Writes `count` zero bytes (nothing when count <= 0).
void WriteZeros(std::FILE* file, int64_t count);

// Writes `count` bytes of `source` from `offset`; positions outside it are
// written as 0.
void WriteClipped(std::FILE* file, ByteSpan source, int64_t offset, int64_t count);

// The progress line after each frame, numbered from 0.
void PrintFrameLine(uint32_t frame);

}  // namespace pelcast
