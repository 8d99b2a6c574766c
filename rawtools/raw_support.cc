#include "rawtools/raw_support.h"

#include <algorithm>

#include "io/file_io.h"

namespace pelcast {
namespace {

// Source of the zero bytes written for positions outside a buffer.
constexpr int64_t kZeroBlockBytes = 1 << 16;
const uint8_t kZeroBlock[kZeroBlockBytes] = {};

}  // namespace

void WriteZeros(std::FILE* file, int64_t count) {
  for (int64_t left = count; left > 0; left -= kZeroBlockBytes) {
    std::fwrite(kZeroBlock, 1, static_cast<size_t>(std::min(left, kZeroBlockBytes)), file);
  }
}

bool AllocateRaw(int64_t size, RawBuffer& buffer) {
  if (size < 0) return false;
  // calloc(0) may return null; one byte keeps a zero-byte request successful.
  auto* bytes = static_cast<uint8_t*>(std::calloc(size != 0 ? static_cast<size_t>(size) : 1, 1));
  if (bytes == nullptr) return false;
  buffer.bytes.reset(bytes);
  buffer.size = size;
  return true;
}

void CloseStream::operator()(std::FILE* file) const { CloseFile(file); }

FilePair OpenInputAndOutput(const char* inputPath, const char* outputPath) {
  FilePair files;
  files.input.reset(OpenInput(inputPath));
  if (files.input == nullptr) {
    CreateIfMissing(outputPath);
    return files;
  }
  files.output.reset(OpenOutput(outputPath, inputPath));
  return files;
}

bool StartCommand(bool allocated, const StartFailureTexts& texts, const char* inputPath,
                  const char* outputPath, FilePair& files) {
  if (!allocated) {
    std::puts(texts.buffer);
    return false;
  }
  files = OpenInputAndOutput(inputPath, outputPath);
  if (files.BothOpen()) return true;
  std::puts(texts.file);
  return false;
}

int64_t ReadBytes(std::FILE* file, RawBuffer& buffer, int64_t count) {
  const int64_t wanted = std::clamp<int64_t>(count, 0, buffer.size);
  if (wanted == 0) return 0;
  return static_cast<int64_t>(std::fread(buffer.bytes.get(), 1, static_cast<size_t>(wanted), file));
}

bool ReadWhole(std::FILE* file, RawBuffer& buffer, int64_t count) {
  return count > 0 && count <= buffer.size && ReadBytes(file, buffer, count) == count;
}

void WriteBytes(std::FILE* file, const RawBuffer& buffer, int64_t count) {
  const int64_t length = std::clamp<int64_t>(count, 0, buffer.size);
  if (length > 0) std::fwrite(buffer.bytes.get(), 1, static_cast<size_t>(length), file);
}

void WriteClipped(std::FILE* file, ByteSpan source, int64_t offset, int64_t count) {
  const IndexRange inside = InsideRange(offset, 1, 0, source.size, count);
  if (inside.lo >= inside.hi) {
    WriteZeros(file, count);
    return;
  }
  WriteZeros(file, inside.lo);
  std::fwrite(source.data + (offset + inside.lo), 1, static_cast<size_t>(inside.hi - inside.lo),
              file);
  WriteZeros(file, count - inside.hi);
}

void PrintFrameLine(uint32_t frame) { std::printf("frame = %d \n", static_cast<int32_t>(frame)); }

}  // namespace pelcast
