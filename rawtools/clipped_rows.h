// Row operations of the raw tools clipped to the buffers they touch.
//
// The raw tools take their dimensions from the command line unchecked, so a
// row's positions may fall outside a buffer (a crop wider than its source, a
// region larger than the frame it is compared with, sizes wrapped by 32-bit
// arithmetic). The rule everywhere: a byte read from outside its buffer is 0
// and a byte stored outside its buffer is dropped. Positions are signed 64-bit
// so any row computed from 32-bit dimensions can be tested exactly. Rows that
// lie wholly inside go straight to the kernels; only the clipped remainder
// takes the byte-by-byte path.
#pragma once

#include <cstdint>

namespace pelcast {

// `size` bytes at `data`, owned by the caller.
struct ByteSpan {
  uint8_t* data;
  int64_t size;
};

// A half-open index interval [lo, hi); empty when lo >= hi.
struct IndexRange {
  int64_t lo;
  int64_t hi;
};

// The indices i < count for which offset + step * i + phase lies inside a
// buffer of `size` bytes. `step` is 1 or 2.
IndexRange InsideRange(int64_t offset, int64_t step, int64_t phase, int64_t size, int64_t count);

// The byte at `position`, or 0 outside the buffer.
uint8_t ByteAt(ByteSpan buffer, int64_t position);

// dst[dstOffset + i] = src[srcOffset + i] for i < count.
void CopyClipped(ByteSpan src, int64_t srcOffset, ByteSpan dst, int64_t dstOffset, int64_t count);

// uv[uvOffset + 2i] = planar[uOffset + i] and uv[uvOffset + 2i + 1] =
// planar[vOffset + i] for i < count.
void InterleaveClipped(ByteSpan planar, int64_t uOffset, int64_t vOffset, ByteSpan uv,
                       int64_t uvOffset, int64_t count);

// planar[uOffset + i] = uv[uvOffset + 2i] and planar[vOffset + i] =
// uv[uvOffset + 2i + 1] for i < count.
void SplitClipped(ByteSpan uv, int64_t uvOffset, ByteSpan planar, int64_t uOffset, int64_t vOffset,
                  int64_t count);

// Sum over i < count of (b[bOffset + i] - a[aOffset + i])^2.
uint64_t SquaredErrorClipped(ByteSpan a, int64_t aOffset, ByteSpan b, int64_t bOffset,
                             int64_t count);

}  // namespace pelcast
