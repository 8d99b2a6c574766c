// The start-code stream trimmer: copies a stream cut into units at every
// 00 00 00 01 start code, dropping the zero bytes that pad a unit before its
// start code. No command letter reaches it.
#include <algorithm>
#include <cstdio>

#include "rawtools/clipped_rows.h"
#include "rawtools/raw_commands.h"
#include "rawtools/raw_support.h"

namespace pelcast {
namespace {

// A unit is held in a buffer of this size; bytes of a longer unit past it are
// dropped and read back as 0.
constexpr int64_t kUnitBufferBytes = int64_t{1} << 20;
constexpr int64_t kReadChunkBytes = int64_t{1} << 16;

// The last four bytes seen, most recent lowest; it starts with all bits set so
// that no start code is seen before four bytes have been read.
constexpr uint32_t kRegisterStart = 0xFFFFFFFF;
constexpr uint32_t kStartCodeRegister = 0x00000001;  // 00 00 00 01
constexpr int64_t kStartCodeBytes = 4;
constexpr int kBitsPerByte = 8;

// Writes one unit of `length` bytes whose first bytes are in `unit`: its bytes
// up to the last non-zero one before the final start code position (the zero
// padding before a start code is dropped), then, when the unit ends at a start
// code, the code's four bytes.
void WriteUnit(std::FILE* output, ByteSpan unit, int64_t length, bool endsAtStartCode) {
  int64_t last = std::min(length - kStartCodeBytes - 1, unit.size - 1);
  while (last >= 0 && unit.data[last] == 0) --last;
  if (last >= 0) std::fwrite(unit.data, 1, static_cast<size_t>(last + 1), output);
  if (!endsAtStartCode) return;
  uint8_t code[kStartCodeBytes];
  for (int64_t k = 0; k < kStartCodeBytes; ++k)
    code[k] = ByteAt(unit, length - kStartCodeBytes + k);
  std::fwrite(code, 1, sizeof code, output);
}

}  // namespace

void TrimStartCodeStream(const char* input, const char* output) {
  RawBuffer unit, chunk;
  FilePair files;
  const bool allocated = AllocateRaw(kUnitBufferBytes, unit) && AllocateRaw(kReadChunkBytes, chunk);
  if (!StartCommand(allocated, kStartFailureTexts, input, output, files)) return;
  uint32_t shiftRegister = kRegisterStart;
  int64_t length = 0;  // bytes of the current unit so far
  uint32_t units = 0;
  for (int64_t got; (got = ReadBytes(files.input.get(), chunk, kReadChunkBytes)) > 0;) {
    for (int64_t i = 0; i < got; ++i) {
      const uint8_t byte = chunk.bytes.get()[i];
      if (length < unit.size) unit.bytes.get()[length] = byte;
      ++length;
      shiftRegister = (shiftRegister << kBitsPerByte) | byte;
      if (shiftRegister != kStartCodeRegister) continue;
      WriteUnit(files.output.get(), unit.Span(), length, true);
      ++units;
      // One more shift, as if a zero byte followed: 00 00 01 right after a
      // start code completes another one.
      shiftRegister <<= kBitsPerByte;
      length = 0;
    }
  }
  // The final unit is counted one position past the end of the input, so its
  // last three bytes fall in the skipped start-code positions.
  WriteUnit(files.output.get(), unit.Span(), length + 1, false);
  std::printf("frame = %d \n", static_cast<int32_t>(units + 1));
}

}  // namespace pelcast
