// Byte-moving kernels of the raw 4:2:0 tools. Each works on rows that lie
// wholly inside their buffers; the callers clip rows at buffer edges first.
// They are plain loops the compiler vectorises, and their results are exactly
// those of the per-pixel loops they replace.
#pragma once

#include <cstddef>
#include <cstdint>

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

}  // namespace pelcast
