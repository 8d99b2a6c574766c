// Commands S and R: the average luma PSNR of two 4:2:0 sequences. Whole
// frames (1.5 bytes per pixel) are read, but only the luma rows are compared.
#include <algorithm>
#include <cmath>
#include <cstdio>

#include "io/file_io.h"
#include "rawtools/clipped_rows.h"
#include "rawtools/raw_commands.h"
#include "rawtools/raw_kernels.h"
#include "rawtools/raw_support.h"

namespace pelcast {
namespace {

constexpr const char* kBufferError = "ERROR: Invalid buffer pointer...Exiting";
constexpr const char* kFileError = "ERROR: Invalid file pointer...Exiting";

constexpr int64_t kPeakSquared = 255 * 255;  // the squared 8-bit peak value
constexpr double kDecibelsPerDecade = 10.0;

// The first file's frames are width1 x height1; the second file's frames are
// width2 x height2, of which the top-left width1 x height1 region is compared.
struct PsnrRegion {
  int32_t width1, height1, width2, height2;
};

// (w * h * 3) / 2 in signed 32-bit arithmetic.
int32_t FrameBytes(int32_t width, int32_t height) { return Mul32(Mul32(width, height), 3) / 2; }

// 10 log10(P / E) of one frame pair, with P / E an integer division: the
// decibel value of the truncated quotient, as the tool has always reported.
double FramePsnr(int64_t peak, uint64_t squaredError) {
  const int64_t error = squaredError == 0 ? 1 : static_cast<int64_t>(squaredError);
  return kDecibelsPerDecade * std::log10(static_cast<double>(peak / error));
}

// sum / count evaluated when the program runs, so that no frames (0 / 0) print
// as the platform's division yields the NaN, not as the compiler folds it.
double Average(double sum, uint32_t count) {
  volatile double dividend = sum;
  volatile double divisor = static_cast<double>(count);
  return dividend / divisor;
}

// Frames counted and the sum of their decibel values.
struct PsnrTally {
  uint32_t count = 0;
  double sum = 0.0;
};

// The general loop: whole frames read into the two buffers, the region
// compared with positions outside a frame reading 0.
PsnrTally CompareWholeFrames(std::FILE* firstFile, std::FILE* secondFile, RawBuffer& first,
                             RawBuffer& second, const PsnrRegion& region, int64_t peak) {
  const int32_t firstBytes = FrameBytes(region.width1, region.height1);
  const int32_t secondBytes = FrameBytes(region.width2, region.height2);
  PsnrTally tally;
  while (ReadWhole(firstFile, first, firstBytes) && ReadWhole(secondFile, second, secondBytes)) {
    tally.sum += FramePsnr(peak, LumaSquaredError(first.Span(), second.Span(), region.width1,
                                                  region.height1, region.width2));
    ++tally.count;
  }
  return tally;
}

// When the compared region lies inside both frames, frame pairs are read in
// bands of rows small enough to stay in cache and each band is compared as it
// arrives, while it is still there; the rest of each frame is read through the
// same small band. Only a band's worth of each buffer is ever touched. The
// count and sum are those of whole-frame reads: a pair counts only when both
// frames arrived whole, and whatever was read of the second file after the
// first one ended short is never reported.
constexpr int64_t kBandBytes = 128 * 1024;

bool RegionInsideFrames(const PsnrRegion& region) {
  if (region.width1 <= 0 || region.height1 <= 0 || region.width2 < region.width1 ||
      region.height2 < region.height1) {
    return false;
  }
  // Both frame sizes exact, not wrapped by the 32-bit arithmetic.
  const auto exact = [](int32_t w, int32_t h) {
    const int64_t pixels = int64_t{w} * h;  // below 2^62
    // Past 32 bits no frame size can match it (and times 3 could overflow).
    return pixels > INT32_MAX ? pixels : pixels * 3 / 2;
  };
  return FrameBytes(region.width1, region.height1) == exact(region.width1, region.height1) &&
         FrameBytes(region.width2, region.height2) == exact(region.width2, region.height2);
}

bool ReadPiece(std::FILE* file, uint8_t* into, int64_t count) {
  return count == 0 ||
         static_cast<int64_t>(std::fread(into, 1, static_cast<size_t>(count), file)) == count;
}

// Reads `count` bytes that take no part in the comparison, `scratchBytes` at a time.
bool ReadPast(std::FILE* file, uint8_t* scratch, int64_t scratchBytes, int64_t count) {
  for (int64_t left = count; left > 0; left -= scratchBytes) {
    if (!ReadPiece(file, scratch, std::min(left, scratchBytes))) return false;
  }
  return true;
}

// One frame pair band by band into the starts of the buffers; false when
// either frame did not arrive whole.
bool StreamFramePair(std::FILE* firstFile, std::FILE* secondFile, uint8_t* first, uint8_t* second,
                     const PsnrRegion& region, uint64_t& error) {
  const int64_t w1 = region.width1;
  const int64_t w2 = region.width2;
  const int64_t bandRows = std::clamp<int64_t>(kBandBytes / w2, 1, region.height1);
  error = 0;
  for (int64_t row = 0; row < region.height1; row += bandRows) {
    const int64_t rows = std::min<int64_t>(bandRows, region.height1 - row);
    if (!ReadPiece(firstFile, first, rows * w1) || !ReadPiece(secondFile, second, rows * w2)) {
      return false;
    }
    for (int64_t k = 0; k < rows; ++k) {
      error += SumSquaredDifferenceRow(first + k * w1, second + k * w2, static_cast<size_t>(w1));
    }
  }
  const int64_t firstRest = FrameBytes(region.width1, region.height1) - w1 * region.height1;
  const int64_t secondRest = FrameBytes(region.width2, region.height2) - w2 * region.height1;
  return ReadPast(firstFile, first, bandRows * w1, firstRest) &&
         ReadPast(secondFile, second, bandRows * w2, secondRest);
}

PsnrTally CompareStreamed(std::FILE* firstFile, std::FILE* secondFile, RawBuffer& first,
                          RawBuffer& second, const PsnrRegion& region, int64_t peak) {
  PsnrTally tally;
  uint64_t error = 0;
  while (StreamFramePair(firstFile, secondFile, first.bytes.get(), second.bytes.get(), region,
                         error)) {
    tally.sum += FramePsnr(peak, error);
    ++tally.count;
  }
  return tally;
}

void ComparePsnr(const char* firstPath, const char* secondPath, const PsnrRegion& region) {
  const int32_t firstBytes = FrameBytes(region.width1, region.height1);
  const int32_t secondBytes = FrameBytes(region.width2, region.height2);
  RawBuffer first, second;
  if (!AllocateRaw(firstBytes, first) || !AllocateRaw(secondBytes, second)) {
    std::puts(kBufferError);
    return;
  }
  const FileHandle firstFile(OpenInput(firstPath));
  const FileHandle secondFile(OpenInput(secondPath));
  if (firstFile == nullptr || secondFile == nullptr) {
    std::puts(kFileError);
    return;
  }
  // P = w1 x h1 x 255^2 in 64 bits, wrapping like the 64-bit product it is.
  const auto peak = static_cast<int64_t>(static_cast<uint64_t>(region.width1) *
                                         static_cast<uint64_t>(region.height1) *
                                         static_cast<uint64_t>(kPeakSquared));
  const PsnrTally tally =
      RegionInsideFrames(region)
          ? CompareStreamed(firstFile.get(), secondFile.get(), first, second, region, peak)
          : CompareWholeFrames(firstFile.get(), secondFile.get(), first, second, region, peak);
  std::printf("frame = %d psnr(avg) = %.2f\n", static_cast<int32_t>(tally.count),
              Average(tally.sum, tally.count));
}

}  // namespace

void PsnrCommand(const char* first, const char* second, int32_t width, int32_t height) {
  ComparePsnr(first, second, {width, height, width, height});
}

void PsnrRegionCommand(const char* first, const char* second, int32_t width1, int32_t height1,
                       int32_t width2, int32_t height2) {
  ComparePsnr(first, second, {width1, height1, width2, height2});
}

}  // namespace pelcast
