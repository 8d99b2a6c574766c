#include "rawtools/raw_kernels.h"

#include <algorithm>
#include <cstring>

#include "common/cpu.h"
#include "rawtools/raw_support.h"

// On x86-64 the row kernels whose loops gain from wider vectors are compiled a
// second time with AVX2 enabled (a function target attribute, which g++ and
// clang both honour), and that copy is chosen at run time when the processor
// has it. The source is the same plain loop: the compiler vectorises it 16
// bytes at a time for the baseline and 32 at a time for AVX2. On arm64 the
// baseline build already vectorises the loops with NEON.
#if defined(__x86_64__)
#define PELCAST_AVX2_ROW_KERNELS 1
#endif

namespace pelcast {
namespace {

// Squared byte differences are summed in 32-bit lanes, which vectorise far
// better than 64-bit ones; 65536 terms of at most 255^2 still fit in 32 bits.
constexpr size_t kSquaresPerChunk = 65536;

// The loops themselves, inlined into each compiled copy below.
[[gnu::always_inline]] inline void InterleaveLoop(const uint8_t* u, const uint8_t* v, uint8_t* uv,
                                                  size_t count) {
  for (size_t i = 0; i < count; ++i) {
    uv[2 * i] = u[i];
    uv[2 * i + 1] = v[i];
  }
}

[[gnu::always_inline]] inline uint32_t SquaredDifferenceChunk(const uint8_t* a, const uint8_t* b,
                                                              size_t count) {
  uint32_t sum = 0;
  for (size_t i = 0; i < count; ++i) {
    const int32_t d = int32_t{b[i]} - int32_t{a[i]};
    sum += static_cast<uint32_t>(d * d);
  }
  return sum;
}

[[gnu::always_inline]] inline uint32_t SquaresChunk(const uint8_t* x, size_t count) {
  uint32_t sum = 0;
  for (size_t i = 0; i < count; ++i) sum += uint32_t{x[i]} * x[i];
  return sum;
}

[[gnu::always_inline]] inline uint64_t SquaredDifferenceLoop(const uint8_t* a, const uint8_t* b,
                                                             size_t count) {
  uint64_t sum = 0;
  for (size_t done = 0; done < count; done += kSquaresPerChunk) {
    sum += SquaredDifferenceChunk(a + done, b + done, std::min(kSquaresPerChunk, count - done));
  }
  return sum;
}

[[gnu::always_inline]] inline uint64_t SquaresLoop(const uint8_t* x, size_t count) {
  uint64_t sum = 0;
  for (size_t done = 0; done < count; done += kSquaresPerChunk) {
    sum += SquaresChunk(x + done, std::min(kSquaresPerChunk, count - done));
  }
  return sum;
}

void InterleavePlain(const uint8_t* u, const uint8_t* v, uint8_t* uv, size_t count) {
  InterleaveLoop(u, v, uv, count);
}
uint64_t SquaredDifferencePlain(const uint8_t* a, const uint8_t* b, size_t count) {
  return SquaredDifferenceLoop(a, b, count);
}
uint64_t SquaresPlain(const uint8_t* x, size_t count) { return SquaresLoop(x, count); }

constexpr RowKernelSet kPlainKernels{"plain", InterleavePlain, SquaredDifferencePlain,
                                     SquaresPlain};

#ifdef PELCAST_AVX2_ROW_KERNELS
[[gnu::target("avx2")]] void InterleaveAvx2(const uint8_t* u, const uint8_t* v, uint8_t* uv,
                                            size_t count) {
  InterleaveLoop(u, v, uv, count);
}
[[gnu::target("avx2")]] uint64_t SquaredDifferenceAvx2(const uint8_t* a, const uint8_t* b,
                                                       size_t count) {
  return SquaredDifferenceLoop(a, b, count);
}
[[gnu::target("avx2")]] uint64_t SquaresAvx2(const uint8_t* x, size_t count) {
  return SquaresLoop(x, count);
}

constexpr RowKernelSet kAvx2Kernels{"avx2", InterleaveAvx2, SquaredDifferenceAvx2, SquaresAvx2};
#endif

const RowKernelSet& ActiveKernels() { return ActiveRowKernels(); }

bool RowInside(int64_t bufferSize, int64_t offset, int64_t length) {
  return offset >= 0 && offset + length <= bufferSize;
}

// True once every row from `row` on starts past the buffer (or, for a
// negative stride, ends before it), so it can only read zeros.
bool RowsExhausted(int64_t row, int64_t stride, int64_t rowLength, int64_t bufferSize) {
  const int64_t start = row * stride;
  return stride >= 0 ? start >= bufferSize : start + rowLength <= 0;
}

}  // namespace

const RowKernelSet& RowKernelsFor(uint32_t features) {
#ifdef PELCAST_AVX2_ROW_KERNELS
  if ((kSetAvx2 & ~features) == 0) return kAvx2Kernels;
#endif
  static_cast<void>(features);
  return kPlainKernels;
}

const RowKernelSet& ActiveRowKernels() {
  static const RowKernelSet& active = RowKernelsFor(CpuFeatures());
  return active;
}

void InterleaveChromaRow(const uint8_t* u, const uint8_t* v, uint8_t* uv, size_t count) {
  ActiveKernels().interleaveChroma(u, v, uv, count);
}

void SplitChromaRow(const uint8_t* uv, uint8_t* u, uint8_t* v, size_t count) {
  for (size_t i = 0; i < count; ++i) {
    u[i] = uv[2 * i];
    v[i] = uv[2 * i + 1];
  }
}

void CopyPlaneRows(const uint8_t* src, size_t srcStride, uint8_t* dst, size_t dstStride,
                   size_t width, size_t rows) {
  // Rows that would move onto themselves (a padded plane whose stride is its
  // width) are already where they belong.
  if (src == dst && srcStride == dstStride) return;
  for (size_t r = 0; r < rows; ++r) std::memmove(dst + r * dstStride, src + r * srcStride, width);
}

uint64_t SumSquaredDifferenceRow(const uint8_t* a, const uint8_t* b, size_t count) {
  return ActiveKernels().sumSquaredDifference(a, b, count);
}

uint64_t SumSquaresRow(const uint8_t* x, size_t count) {
  return ActiveKernels().sumSquares(x, count);
}

void InterleaveChromaPlanes(ByteSpan planar, ByteSpan uv, int32_t chromaWidth,
                            int32_t chromaHeight) {
  if (chromaWidth <= 0) return;
  const int64_t vStart = int64_t{chromaWidth} * chromaHeight;
  for (int64_t r = 0; r < chromaHeight; ++r) {
    const int64_t uvRow = r * 2 * chromaWidth;
    if (uvRow >= uv.size) break;  // this row and all later ones fall outside
    InterleaveClipped(planar, r * chromaWidth, vStart + r * chromaWidth, uv, uvRow, chromaWidth);
  }
}

// Splits interleaved chroma rows `srcStride` apart, starting at `srcStart`,
// into the U and V planes of a width x height planar frame: row r, column c
// go to (r * width) / 2 + c and (width * height) / 4 + (r * width) / 2 + c,
// for r < height / 2 and c < width / 2. With an odd width the U and V rows
// are thus not padded to a whole chroma width; that layout is kept.
void SplitChromaPlane(ByteSpan src, int64_t srcStart, int64_t srcStride, ByteSpan planar,
                      int32_t width, int32_t height) {
  const int64_t columns = width / 2;
  if (columns <= 0) return;
  const int64_t vStart = Mul32(width, height) / 4;
  for (int64_t r = 0; r < height / 2; ++r) {
    const int64_t uRow = (r * width) / 2;
    if (uRow >= planar.size && vStart + uRow >= planar.size) break;
    SplitClipped(src, srcStart + r * srcStride, planar, uRow, vStart + uRow, columns);
  }
}

// The top-left cropWidth x cropHeight region of a plane `width` bytes wide.
// Rows wider than the source run on into the next source row; past the end
// of the source they read as 0.
void CropLuma(ByteSpan src, int32_t width, ByteSpan dst, int32_t cropWidth, int32_t cropHeight) {
  if (cropWidth <= 0) return;
  const int64_t rows = std::max(cropHeight, 0);
  int64_t inside = 0;
  while (inside < rows && RowInside(src.size, inside * width, cropWidth) &&
         RowInside(dst.size, inside * cropWidth, cropWidth)) {
    ++inside;
  }
  // Only a non-negative width can keep more than one row inside.
  CopyPlaneRows(src.data, static_cast<size_t>(std::max(width, 0)), dst.data,
                static_cast<size_t>(cropWidth), static_cast<size_t>(cropWidth),
                static_cast<size_t>(inside));
  for (int64_t r = inside; r < rows && r * cropWidth < dst.size; ++r) {
    CopyClipped(src, r * width, dst, r * cropWidth, cropWidth);
  }
}

// The squared luma error of one frame pair: first[r * w1 + c] against
// second[r * w2 + c] for r < h1, c < w1. Positions outside a frame read 0.
uint64_t LumaSquaredError(ByteSpan first, ByteSpan second, int32_t width1, int32_t height1,
                          int32_t width2) {
  const int64_t width = width1;
  if (width <= 0) return 0;
  uint64_t sum = 0;
  for (int64_t r = 0; r < height1; ++r) {
    if (RowsExhausted(r, width, width, first.size) &&
        RowsExhausted(r, width2, width, second.size)) {
      break;
    }
    sum += SquaredErrorClipped(first, r * width, second, r * width2, width);
  }
  return sum;
}

}  // namespace pelcast
