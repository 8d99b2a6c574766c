// Every compiled set of row kernels this processor runs (the plain loops and,
// on x86-64 with AVX2, their AVX2 build) against sums and interleaves worked
// out here byte by byte: lengths around the vector widths and the 32-bit
// partial-sum chunks, misaligned starts, random and extreme bytes.
#include <gtest/gtest.h>

#include <string>

#include "common/cpu.h"
#include "rawtools/raw_kernels.h"
#include "tests/test_support.h"

namespace pelcast::testing {
namespace {

// Around 16- and 32-byte vectors, their tails, and the 65536-term chunks.
constexpr size_t kLengths[] = {0,  1,  7,  15,   16,    17,    31,    32,    33,
                               63, 64, 65, 1000, 65535, 65536, 65537, 200003};
// Start offsets that misalign every pointer.
constexpr size_t kOffsets[] = {0, 1, 3};

enum class Fill { kRandom, kExtremes };

// Random bytes, or 0 and 255 alternating from a start that follows the seed's
// parity: buffers of an odd and an even seed differ by 255 everywhere, which
// gives the largest squares.
Bytes Make(size_t count, uint32_t seed, Fill fill) {
  if (fill == Fill::kRandom) return RandomBytes(count, seed);
  Bytes bytes(count);
  for (size_t i = 0; i < count; ++i) bytes[i] = (i + seed) % 2 == 0 ? 0 : 255;
  return bytes;
}

uint64_t NaiveSquaredDifference(const uint8_t* a, const uint8_t* b, size_t count) {
  uint64_t sum = 0;
  for (size_t i = 0; i < count; ++i) {
    const int64_t d = int64_t{a[i]} - int64_t{b[i]};
    sum += static_cast<uint64_t>(d * d);
  }
  return sum;
}

TEST(RowKernelSets, InterleaveMatchesBytePairs) {
  for (const KernelSet& runnable : RunnableKernelSets()) {
    const RowKernelSet* set = &RowKernelsFor(runnable.features);
    for (const size_t offset : kOffsets) {
      for (const size_t count : kLengths) {
        const Bytes u = RandomBytes(count + offset, 11);
        const Bytes v = RandomBytes(count + offset, 12);
        // One guard byte either side of the output catches stray stores.
        Bytes out(2 * count + offset + 2, 0xEE);
        set->interleaveChroma(u.data() + offset, v.data() + offset, out.data() + offset + 1, count);
        Bytes expected(out.size(), 0xEE);
        for (size_t i = 0; i < count; ++i) {
          expected[offset + 1 + 2 * i] = u[offset + i];
          expected[offset + 2 + 2 * i] = v[offset + i];
        }
        EXPECT_EQ(out, expected) << set->name << " count " << count << " offset " << offset;
      }
    }
  }
}

TEST(RowKernelSets, SquaredErrorSumsMatchExactSums) {
  for (const KernelSet& runnable : RunnableKernelSets()) {
    const RowKernelSet* set = &RowKernelsFor(runnable.features);
    for (const Fill fill : {Fill::kRandom, Fill::kExtremes}) {
      for (const size_t offset : kOffsets) {
        for (const size_t count : kLengths) {
          const Bytes a = Make(count + offset, 21, fill);
          const Bytes b = Make(count + offset, 22, fill);
          const Bytes zeros(count + offset, 0);
          const uint8_t* pa = a.data() + offset;
          const uint8_t* pb = b.data() + offset;
          const std::string where = std::string(set->name) + " count " + std::to_string(count) +
                                    " offset " + std::to_string(offset);
          EXPECT_EQ(set->sumSquaredDifference(pa, pb, count), NaiveSquaredDifference(pa, pb, count))
              << where;
          EXPECT_EQ(set->sumSquares(pa, count), NaiveSquaredDifference(pa, zeros.data(), count))
              << where;
        }
      }
    }
  }
}

}  // namespace
}  // namespace pelcast::testing
