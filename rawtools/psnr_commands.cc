// Commands S and R: the average luma PSNR of two 4:2:0 sequences. Whole
// frames (1.5 bytes per pixel) are read, but only the luma rows are compared.
#include <cmath>
#include <cstdio>

#include "cli/file_io.h"
#include "rawtools/clipped_rows.h"
#include "rawtools/raw_kernels.h"
#include "rawtools/raw_commands.h"
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
  uint32_t count = 0;
  double sum = 0.0;
  while (ReadWhole(firstFile.get(), first, firstBytes) &&
         ReadWhole(secondFile.get(), second, secondBytes)) {
    sum += FramePsnr(peak, LumaSquaredError(first.Span(), second.Span(), region.width1,
                                            region.height1, region.width2));
    ++count;
  }
  std::printf("frame = %d psnr(avg) = %.2f\n", static_cast<int32_t>(count), Average(sum, count));
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
