#include "rawtools/clipped_rows.h"

#include <algorithm>
#include <cstring>

#include "rawtools/raw_kernels.h"

namespace pelcast {
namespace {

// Division rounding toward minus infinity, for a positive divisor.
int64_t FloorDiv(int64_t value, int64_t divisor) {
  return value >= 0 ? value / divisor : -((-value + divisor - 1) / divisor);
}

int64_t CeilDiv(int64_t value, int64_t divisor) { return -FloorDiv(-value, divisor); }

bool IsEmpty(IndexRange range) { return range.lo >= range.hi; }

int64_t Length(IndexRange range) { return range.hi - range.lo; }

IndexRange Intersect(IndexRange a, IndexRange b) {
  return {std::max(a.lo, b.lo), std::min(a.hi, b.hi)};
}

// Calls segment(lo, hi) for the parts of `all` outside `inner`, where `inner`
// is either empty or a sub-interval of `all`.
template <typename Segment>
void ForEachSegmentOutside(IndexRange all, IndexRange inner, Segment segment) {
  if (IsEmpty(all)) return;
  if (IsEmpty(inner)) {
    segment(all.lo, all.hi);
    return;
  }
  if (all.lo < inner.lo) segment(all.lo, inner.lo);
  if (inner.hi < all.hi) segment(inner.hi, all.hi);
}

}  // namespace

IndexRange InsideRange(int64_t offset, int64_t step, int64_t phase, int64_t size, int64_t count) {
  const int64_t base = offset + phase;
  const int64_t lo = std::max<int64_t>(0, CeilDiv(-base, step));
  const int64_t hi = std::min<int64_t>(count, FloorDiv(size - 1 - base, step) + 1);
  return {lo, std::max(lo, hi)};
}

uint8_t ByteAt(ByteSpan buffer, int64_t position) {
  return position >= 0 && position < buffer.size ? buffer.data[position] : 0;
}

void CopyClipped(ByteSpan src, int64_t srcOffset, ByteSpan dst, int64_t dstOffset, int64_t count) {
  const IndexRange stored = InsideRange(dstOffset, 1, 0, dst.size, count);
  const IndexRange loaded = Intersect(stored, InsideRange(srcOffset, 1, 0, src.size, count));
  if (!IsEmpty(loaded)) {
    std::memmove(dst.data + (dstOffset + loaded.lo), src.data + (srcOffset + loaded.lo),
                 static_cast<size_t>(Length(loaded)));
  }
  ForEachSegmentOutside(stored, loaded, [&](int64_t lo, int64_t hi) {
    std::memset(dst.data + (dstOffset + lo), 0, static_cast<size_t>(hi - lo));
  });
}

void InterleaveClipped(ByteSpan planar, int64_t uOffset, int64_t vOffset, ByteSpan uv,
                       int64_t uvOffset, int64_t count) {
  const IndexRange uStored = InsideRange(uvOffset, 2, 0, uv.size, count);
  const IndexRange vStored = InsideRange(uvOffset, 2, 1, uv.size, count);
  const IndexRange loaded = Intersect(InsideRange(uOffset, 1, 0, planar.size, count),
                                      InsideRange(vOffset, 1, 0, planar.size, count));
  const IndexRange whole = Intersect(Intersect(uStored, vStored), loaded);
  if (!IsEmpty(whole)) {
    InterleaveChromaRow(planar.data + (uOffset + whole.lo), planar.data + (vOffset + whole.lo),
                        uv.data + (uvOffset + 2 * whole.lo), static_cast<size_t>(Length(whole)));
  }
  ForEachSegmentOutside(uStored, whole, [&](int64_t lo, int64_t hi) {
    for (int64_t i = lo; i < hi; ++i) uv.data[uvOffset + 2 * i] = ByteAt(planar, uOffset + i);
  });
  ForEachSegmentOutside(vStored, whole, [&](int64_t lo, int64_t hi) {
    for (int64_t i = lo; i < hi; ++i) uv.data[uvOffset + 2 * i + 1] = ByteAt(planar, vOffset + i);
  });
}

namespace {

// The stores of one chroma component outside the range `done`:
// planar[dstOffset + i] = uv[uvOffset + 2i + phase]. Positions whose source
// lies outside `uv` are cleared in bulk, so the byte loop only ever covers
// bytes that are really there.
void SplitComponentRest(ByteSpan uv, int64_t uvOffset, int64_t phase, ByteSpan planar,
                        int64_t dstOffset, int64_t count, IndexRange done) {
  const IndexRange stored = InsideRange(dstOffset, 1, 0, planar.size, count);
  const IndexRange loaded = InsideRange(uvOffset, 2, phase, uv.size, count);
  ForEachSegmentOutside(stored, done, [&](int64_t lo, int64_t hi) {
    std::memset(planar.data + (dstOffset + lo), 0, static_cast<size_t>(hi - lo));
    const IndexRange present = Intersect({lo, hi}, loaded);
    for (int64_t i = present.lo; i < present.hi; ++i) {
      planar.data[dstOffset + i] = uv.data[uvOffset + 2 * i + phase];
    }
  });
}

}  // namespace

void SplitClipped(ByteSpan uv, int64_t uvOffset, ByteSpan planar, int64_t uOffset, int64_t vOffset,
                  int64_t count) {
  const IndexRange uStored = InsideRange(uOffset, 1, 0, planar.size, count);
  const IndexRange vStored = InsideRange(vOffset, 1, 0, planar.size, count);
  const IndexRange loaded = Intersect(InsideRange(uvOffset, 2, 0, uv.size, count),
                                      InsideRange(uvOffset, 2, 1, uv.size, count));
  const IndexRange whole = Intersect(Intersect(uStored, vStored), loaded);
  if (!IsEmpty(whole)) {
    SplitChromaRow(uv.data + (uvOffset + 2 * whole.lo), planar.data + (uOffset + whole.lo),
                   planar.data + (vOffset + whole.lo), static_cast<size_t>(Length(whole)));
  }
  SplitComponentRest(uv, uvOffset, 0, planar, uOffset, count, whole);
  SplitComponentRest(uv, uvOffset, 1, planar, vOffset, count, whole);
}

uint64_t SquaredErrorClipped(ByteSpan a, int64_t aOffset, ByteSpan b, int64_t bOffset,
                             int64_t count) {
  const IndexRange aInside = InsideRange(aOffset, 1, 0, a.size, count);
  const IndexRange bInside = InsideRange(bOffset, 1, 0, b.size, count);
  const IndexRange both = Intersect(aInside, bInside);
  uint64_t sum = 0;
  if (!IsEmpty(both)) {
    sum += SumSquaredDifferenceRow(a.data + (aOffset + both.lo), b.data + (bOffset + both.lo),
                                   static_cast<size_t>(Length(both)));
  }
  // Where only one side lies inside, the other reads as 0 and the error is
  // the square of the side that is there.
  ForEachSegmentOutside(aInside, both, [&](int64_t lo, int64_t hi) {
    sum += SumSquaresRow(a.data + (aOffset + lo), static_cast<size_t>(hi - lo));
  });
  ForEachSegmentOutside(bInside, both, [&](int64_t lo, int64_t hi) {
    sum += SumSquaresRow(b.data + (bOffset + lo), static_cast<size_t>(hi - lo));
  });
  return sum;
}

}  // namespace pelcast
