// Files of the zpak subcommands: "-" names standard input or output; inputs
// may be pipes; an output is never the same file as an input; frames are
// read whole, in order, skipping by seeking where the input allows it.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

namespace pelcast::zpak {

inline constexpr uint64_t kUnknownSize = UINT64_MAX;

struct InputFile {
  FILE* file = nullptr;
  std::string name;       // as given ("-" for standard input)
  bool seekable = false;  // a regular file
  uint64_t size = kUnknownSize;

  InputFile() = default;
  InputFile(const InputFile&) = delete;
  InputFile& operator=(const InputFile&) = delete;
  ~InputFile();
};

// Opens `path` ("-": standard input). On failure returns false with a
// message naming the file.
bool OpenInput(const std::string& path, InputFile* input, std::string* error);

// Reads up to `count` bytes, as many as arrive before the end of the input.
size_t ReadUpTo(InputFile* input, void* buffer, size_t count);

// Reads from the current position to the end.
bool ReadToEnd(InputFile* input, std::vector<uint8_t>* bytes, std::string* error);

// Skips `count` bytes (seeking or reading); false when the input ended first.
bool SkipBytes(InputFile* input, uint64_t count);

struct OutputFile {
  FILE* file = nullptr;
  std::string name;
  bool isStdout = false;

  OutputFile() = default;
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;
  ~OutputFile();
};

// Opens `path` for writing ("-": standard output), created or truncated.
// Refused, with nothing touched, when it is one of `inputs` (however spelled).
bool OpenOutput(const std::string& path, const std::vector<std::string>& inputs,
                OutputFile* output, std::string* error);

bool WriteBytes(OutputFile* output, const void* bytes, size_t count, std::string* error);

// Flushes and closes; false with a message when anything failed to reach the file.
bool CloseOutput(OutputFile* output, std::string* error);

// True when both paths name one existing file.
bool SameFile(const std::string& a, const std::string& b);

// Whole frames of `frameBytes` from an input, read in order.
class FrameReader {
 public:
  FrameReader(InputFile* input, uint64_t frameBytes) : input_(input), frameBytes_(frameBytes) {}

  // Frames in the input, or kUnknownSize for a pipe.
  uint64_t FrameCount() const;
  // Bytes past the last whole frame (0 for a pipe, until its end is met).
  uint64_t TrailingBytes() const;

  // Moves to frame `index` (at or after the current one). False when the
  // input ends first.
  bool SeekFrame(uint64_t index);
  // Reads the next frame into `frame`. False when no whole frame is left;
  // the bytes of a partial last frame are counted in TrailingBytes().
  bool ReadFrame(uint8_t* frame);

 private:
  InputFile* input_;
  uint64_t frameBytes_;
  uint64_t next_ = 0;
  uint64_t partial_ = 0;
};

}  // namespace pelcast::zpak
