#include "rawtools/raw_kernels.h"

#include <algorithm>
#include <cstring>

namespace pelcast {
namespace {

// Squared byte differences are summed in 32-bit lanes, which vectorise far
// better than 64-bit ones; 65536 terms of at most 255^2 still fit in 32 bits.
constexpr size_t kSquaresPerChunk = 65536;

uint32_t SumSquaredDifferenceChunk(const uint8_t* a, const uint8_t* b, size_t count) {
  uint32_t sum = 0;
  for (size_t i = 0; i < count; ++i) {
    const int32_t d = int32_t{b[i]} - int32_t{a[i]};
    sum += static_cast<uint32_t>(d * d);
  }
  return sum;
}

uint32_t SumSquaresChunk(const uint8_t* x, size_t count) {
  uint32_t sum = 0;
  for (size_t i = 0; i < count; ++i) sum += uint32_t{x[i]} * x[i];
  return sum;
}

}  // namespace

void InterleaveChromaRow(const uint8_t* u, const uint8_t* v, uint8_t* uv, size_t count) {
  for (size_t i = 0; i < count; ++i) {
    uv[2 * i] = u[i];
    uv[2 * i + 1] = v[i];
  }
}

void SplitChromaRow(const uint8_t* uv, uint8_t* u, uint8_t* v, size_t count) {
  for (size_t i = 0; i < count; ++i) {
    u[i] = uv[2 * i];
    v[i] = uv[2 * i + 1];
  }
}

void CopyPlaneRows(const uint8_t* src, size_t srcStride, uint8_t* dst, size_t dstStride,
                   size_t width, size_t rows) {
  for (size_t r = 0; r < rows; ++r) std::memmove(dst + r * dstStride, src + r * srcStride, width);
}

uint64_t SumSquaredDifferenceRow(const uint8_t* a, const uint8_t* b, size_t count) {
  uint64_t sum = 0;
  for (size_t done = 0; done < count; done += kSquaresPerChunk) {
    sum += SumSquaredDifferenceChunk(a + done, b + done, std::min(kSquaresPerChunk, count - done));
  }
  return sum;
}

uint64_t SumSquaresRow(const uint8_t* x, size_t count) {
  uint64_t sum = 0;
  for (size_t done = 0; done < count; done += kSquaresPerChunk) {
    sum += SumSquaresChunk(x + done, std::min(kSquaresPerChunk, count - done));
  }
  return sum;
}

}  // namespace pelcast
