// The luma error kernels on rows long enough to pass their 32-bit partial sums.
#include <gtest/gtest.h>

#include "rawtools/raw_kernels.h"
#include "tests/test_support.h"

namespace pelcast::testing {
namespace {

TEST(RawKernels, SquaredErrorSumsPastThirtyTwoBits) {
  // Every byte differs by 255, so the sum is count * 65025: past 2^32 from
  // 66052 bytes on.
  for (const size_t count :
       {size_t{1}, size_t{65535}, size_t{65536}, size_t{65537}, size_t{200003}}) {
    const Bytes zeros(count, 0), full(count, 255);
    const uint64_t expected = uint64_t{count} * 65025;
    EXPECT_EQ(SumSquaredDifferenceRow(zeros.data(), full.data(), count), expected) << count;
    EXPECT_EQ(SumSquaredDifferenceRow(full.data(), zeros.data(), count), expected) << count;
    EXPECT_EQ(SumSquaresRow(full.data(), count), expected) << count;
  }
}

}  // namespace
}  // namespace pelcast::testing
