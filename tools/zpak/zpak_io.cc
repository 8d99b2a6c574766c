#include "tools/zpak/zpak_io.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace pelcast::zpak {
namespace {

constexpr size_t kChunkBytes = size_t{1} << 20;

std::string Describe(const std::string& path, int error) {
  return "'" + path + "': " + std::strerror(error);
}

}  // namespace

InputFile::~InputFile() {
  if (file != nullptr && file != stdin) std::fclose(file);
}

OutputFile::~OutputFile() {
  if (file != nullptr && file != stdout) std::fclose(file);
}

bool OpenInput(const std::string& path, InputFile* input, std::string* error) {
  input->name = path;
  input->file = path == "-" ? stdin : std::fopen(path.c_str(), "rb");
  if (input->file == nullptr) {
    *error = "cannot open " + Describe(path, errno);
    return false;
  }
  struct stat info {};
  if (fstat(fileno(input->file), &info) != 0) {
    *error = "cannot read " + Describe(path, errno);
    return false;
  }
  if (S_ISDIR(info.st_mode)) {
    *error = "'" + path + "' is a directory";
    return false;
  }
  input->seekable = S_ISREG(info.st_mode);
  if (input->seekable) {
    const off_t here = ftello(input->file);
    input->size = static_cast<uint64_t>(info.st_size) - static_cast<uint64_t>(std::max<off_t>(here, 0));
  }
  return true;
}

size_t ReadUpTo(InputFile* input, void* buffer, size_t count) {
  size_t total = 0;
  auto* out = static_cast<uint8_t*>(buffer);
  while (total < count) {
    const size_t got = std::fread(out + total, 1, count - total, input->file);
    total += got;
    if (got == 0) break;
  }
  return total;
}

bool ReadToEnd(InputFile* input, std::vector<uint8_t>* bytes, std::string* error) {
  bytes->clear();
  if (input->size != kUnknownSize) bytes->reserve(input->size);
  for (;;) {
    const size_t at = bytes->size();
    bytes->resize(at + kChunkBytes);
    const size_t got = ReadUpTo(input, bytes->data() + at, kChunkBytes);
    bytes->resize(at + got);
    if (got < kChunkBytes) break;
  }
  if (std::ferror(input->file) != 0) {
    *error = "cannot read '" + input->name + "'";
    return false;
  }
  return true;
}

bool SkipBytes(InputFile* input, uint64_t count) {
  if (input->seekable) {
    return fseeko(input->file, static_cast<off_t>(count), SEEK_CUR) == 0;
  }
  std::vector<uint8_t> sink(std::min<uint64_t>(count, kChunkBytes));
  while (count > 0) {
    const size_t want = static_cast<size_t>(std::min<uint64_t>(count, sink.size()));
    const size_t got = ReadUpTo(input, sink.data(), want);
    count -= got;
    if (got < want) return false;
  }
  return true;
}

bool SameFile(const std::string& a, const std::string& b) {
  if (a == "-" || b == "-") return false;
  struct stat first {};
  struct stat second {};
  if (stat(a.c_str(), &first) != 0 || stat(b.c_str(), &second) != 0) return false;
  return first.st_dev == second.st_dev && first.st_ino == second.st_ino;
}

bool OpenOutput(const std::string& path, const std::vector<std::string>& inputs,
                OutputFile* output, std::string* error) {
  output->name = path;
  for (const std::string& input : inputs) {
    if (SameFile(path, input)) {
      *error = "refusing to write '" + path + "': it is the input '" + input + "'";
      return false;
    }
  }
  output->isStdout = path == "-";
  output->file = output->isStdout ? stdout : std::fopen(path.c_str(), "wb");
  if (output->file == nullptr) {
    *error = "cannot write " + Describe(path, errno);
    return false;
  }
  return true;
}

bool WriteBytes(OutputFile* output, const void* bytes, size_t count, std::string* error) {
  if (count == 0 || std::fwrite(bytes, 1, count, output->file) == count) return true;
  *error = "cannot write " + Describe(output->name, errno);
  return false;
}

bool CloseOutput(OutputFile* output, std::string* error) {
  if (output->file == nullptr) return true;
  const bool flushed = std::fflush(output->file) == 0 && std::ferror(output->file) == 0;
  const int flushError = errno;
  bool closed = true;
  if (!output->isStdout) closed = std::fclose(output->file) == 0;
  output->file = nullptr;
  if (flushed && closed) return true;
  *error = "cannot write " + Describe(output->name, flushed ? errno : flushError);
  return false;
}

uint64_t FrameReader::FrameCount() const {
  if (input_->size == kUnknownSize) return kUnknownSize;
  return input_->size / frameBytes_;
}

uint64_t FrameReader::TrailingBytes() const {
  if (input_->size == kUnknownSize) return partial_;
  return input_->size % frameBytes_;
}

bool FrameReader::SeekFrame(uint64_t index) {
  if (index < next_) return false;
  if (index == next_) return true;
  const uint64_t skip = (index - next_) * frameBytes_;
  if (input_->size != kUnknownSize && index > FrameCount()) return false;
  if (!SkipBytes(input_, skip)) return false;
  next_ = index;
  return true;
}

bool FrameReader::ReadFrame(uint8_t* frame) {
  const size_t got = ReadUpTo(input_, frame, static_cast<size_t>(frameBytes_));
  if (got == frameBytes_) {
    ++next_;
    return true;
  }
  partial_ = got;
  return false;
}

}  // namespace pelcast::zpak
