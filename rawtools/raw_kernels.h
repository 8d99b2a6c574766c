// Byte-moving kernels of the raw 4:2:0 tools: row kernels for rows that lie
// wholly inside their buffers, and the commands' whole-plane work built on
// them, which clips rows at the buffer edges first. Results are exactly those
// of the per-pixel loops they replace.
#pragma once

#include <cstddef>
#include <cstdint>

#include "rawtools/clipped_rows.h"

namespace pelcast {

// Planar to semi-planar: uv[2i] = u[i], uv[2i + 1] = v[i] for i < count.
void InterleaveChromaRow(const uint8_t* u, const uint8_t* v, uint8_t* uv, size_t count);

// Semi-planar to planar: u[i] = uv[2i], v[i] = uv[2i + 1] for i < count.
void SplitChromaRow(const uint8_t* uv, uint8_t* u, uint8_t* v, size_t count);

// Copies `rows` rows of `width` bytes from rows `srcStride` apart to rows
// `dstStride` apart: the crop of a plane's top-left region. Rows may overlap
// as long as dst <= src and dstStride <= srcStride, so a padded plane can be
// packed in place.
void CopyPlaneRows(const uint8_t* src, size_t srcStride, uint8_t* dst, size_t dstStride,
                   size_t width, size_t rows);

// Sum over i < count of (b[i] - a[i])^2.
uint64_t SumSquaredDifferenceRow(const uint8_t* a, const uint8_t* b, size_t count);

// Sum over i < count of x[i]^2: the error against a row of zeros.
uint64_t SumSquaresRow(const uint8_t* x, size_t count);

// The row kernels that gain from wider vectors, compiled for one instruction
// set. Every set gives exactly the same results.
struct RowKernelSet {
  const char* name;  // "plain", "avx2"
  void (*interleaveChroma)(const uint8_t* u, const uint8_t* v, uint8_t* uv, size_t count);
  uint64_t (*sumSquaredDifference)(const uint8_t* a, const uint8_t* b, size_t count);
  uint64_t (*sumSquares)(const uint8_t* x, size_t count);
};

// The kernels of the widest set that `features` (common/cpu.h) runs.
const RowKernelSet& RowKernelsFor(uint32_t features);

// What the row kernels above use: the table of CpuFeatures(), chosen once.
const RowKernelSet& ActiveRowKernels();

// Whole-plane work of the commands, on buffers whose rows may fall partly or
// wholly outside them (positions outside read as 0; stores outside are
// dropped). Rows inside go to the row kernels above.

// Command P's chroma: U at planar[r * cw + c] and V at planar[cw * ch + r * cw
// + c] go to uv[r * 2cw + 2c] and uv[r * 2cw + 2c + 1], for r < ch, c < cw.
void InterleaveChromaPlanes(ByteSpan planar, ByteSpan uv, int32_t chromaWidth,
                            int32_t chromaHeight);

// Commands I, C and E's chroma: interleaved rows `srcStride` apart from
// `srcStart` to the U and V planes of a width x height planar frame, row r
// starting at (r * width) / 2 and (width * height) / 4 + (r * width) / 2.
void SplitChromaPlane(ByteSpan src, int64_t srcStart, int64_t srcStride, ByteSpan planar,
                      int32_t width, int32_t height);

// Command C's luma: the top-left cropWidth x cropHeight region of a plane
// `width` bytes wide, packed.
void CropLuma(ByteSpan src, int32_t width, ByteSpan dst, int32_t cropWidth, int32_t cropHeight);

// Commands S and R: the squared error of first[r * width1 + c] against
// second[r * width2 + c] for r < height1, c < width1.
uint64_t LumaSquaredError(ByteSpan first, ByteSpan second, int32_t width1, int32_t height1,
                          int32_t width2);

}  // namespace pelcast
