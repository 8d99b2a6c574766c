// The vector lane routines this processor can run. On x86-64: SSE2 always,
// and the same routines compiled for AVX2 when the processor has it; on
// 64-bit Arm: NEON.
#include "encoder/lane_kernels.h"

#if defined(__x86_64__)
#include "encoder/lane_kernels_x86.h"
#endif

namespace pelcast {

#if defined(__x86_64__)

const LaneKernels* Avx2LaneKernels();

namespace {
constexpr LaneKernels kSse2 = MakeX86LaneKernels("sse2");
}  // namespace

VectorKernelSets AvailableVectorLaneKernels() {
  VectorKernelSets sets{};
  sets.set[sets.count++] = &kSse2;
  if (const LaneKernels* avx2 = Avx2LaneKernels()) sets.set[sets.count++] = avx2;
  return sets;
}

#elif defined(__aarch64__)

const LaneKernels* NeonLaneKernels();

VectorKernelSets AvailableVectorLaneKernels() {
  VectorKernelSets sets{};
  sets.set[sets.count++] = NeonLaneKernels();
  return sets;
}

#else

VectorKernelSets AvailableVectorLaneKernels() { return VectorKernelSets{}; }

#endif

}  // namespace pelcast
