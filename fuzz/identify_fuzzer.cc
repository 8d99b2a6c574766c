// Fuzz target: zpak identify on any file, whole in memory and through a
// reader, under any file name.
//
// Input layout: a byte with the format to keep to (0 all, 1 to 3 one) in its
// low two bits and `--all` in bit 2, a name length (0 to 63), that many bytes
// of file name, then the file's bytes.
//
// Checked besides memory safety: candidates come best first with scores,
// shares and continuity in their ranges; every candidate's frames fit in the
// file and have the frame size the library gives its format and size; a
// format kept to is the only one; the buffer and the reader give the same
// result, and the reader is never asked for bytes past the file.
#include <algorithm>
#include <string>

#include "fuzz/fuzz_support.h"
#include "tools/zpak/identify.h"

namespace {

using pelcast::fuzz::Check;
using pelcast::fuzz::ExactBuffer;
using pelcast::fuzz::InputReader;
using pelcast::zpak::IdentifyCandidate;
using pelcast::zpak::IdentifyResult;

constexpr uint32_t kMaxNameBytes = 63;
constexpr uint32_t kFormatBits = 3;
constexpr uint32_t kAllBit = 4;

bool Share(double v) { return v >= 0 && v <= 1; }
bool ShareOrUnknown(double v) { return v == -1 || Share(v); }

void CheckCandidates(const IdentifyResult& r, uint32_t onlyFormat) {
  for (size_t i = 0; i < r.candidates.size(); ++i) {
    const IdentifyCandidate& c = r.candidates[i];
    Check(i == 0 || r.candidates[i - 1].score >= c.score, "candidates come best first");
    Check(Share(c.score) && Share(c.legalMetadata) && ShareOrUnknown(c.streamsFit) &&
              ShareOrUnknown(c.continuity),
          "scores and shares lie in their ranges");
    Check(c.frameBytes == pelcast_zpak_frame_size(c.format, c.width, c.height) && c.frameBytes > 0,
          "a candidate's frame size is its format's and size's");
    Check(c.frames >= 1 && c.frames <= r.bytes / c.frameBytes, "a candidate's frames fit in the file");
    Check(onlyFormat == 0 || c.format == static_cast<pelcast_format>(onlyFormat),
          "only the format kept to");
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  InputReader in(data, size);
  const uint32_t settings = in.Byte();
  const uint32_t nameBytes = in.InRange(0, kMaxNameBytes);
  std::string name;
  for (uint32_t i = 0; i < nameBytes && in.RestSize() > 0; ++i) name += static_cast<char>(in.Byte());
  ExactBuffer file(in.RestSize());
  std::memcpy(file.data(), in.Rest(), in.RestSize());

  pelcast::zpak::IdentifyOptions options;
  options.onlyFormat = settings & kFormatBits;
  options.examineAll = (settings & kAllBit) != 0;
  options.threads = 1;
  const IdentifyResult fromBuffer =
      pelcast::zpak::IdentifyBuffer(file.data(), file.size(), name, options);
  CheckCandidates(fromBuffer, options.onlyFormat);

  const pelcast::zpak::ReadAt read = [&file](uint64_t offset, size_t count, uint8_t* out) {
    Check(offset + count <= file.size(), "the reader is asked for bytes inside the file only");
    std::memcpy(out, file.data() + offset, count);
    return count;
  };
  const IdentifyResult fromReader = pelcast::zpak::Identify(read, file.size(), name, options);
  Check(pelcast::zpak::IdentifyJson(fromReader) == pelcast::zpak::IdentifyJson(fromBuffer),
        "the buffer and the reader give the same result");
  return 0;
}
