// The vector lane routine sets and the choice among them. On x86-64: SSE2
// (every processor has it), and the same routines compiled for AVX2; on
// 64-bit Arm: NEON.
#include "common/cpu.h"
#include "encoder/lane_kernels.h"

#if defined(__x86_64__)
#define PELCAST_X86_ROUTINE
#include "encoder/lane_kernels_x86.h"
#endif

namespace pelcast {

#if defined(__x86_64__)
const LaneKernels& Avx2LaneKernels();

namespace {
constexpr LaneKernels kSse2 = MakeX86LaneKernels("sse2");
}  // namespace
#elif defined(__aarch64__)
const LaneKernels& NeonLaneKernels();
#endif

// `features` goes unused where there are no vector lane routines (WebAssembly).
const LaneKernels& LaneKernelsFor([[maybe_unused]] uint32_t features) {
#if defined(__x86_64__)
  if ((kSetAvx2 & ~features) == 0) return Avx2LaneKernels();
  if ((kSetSse2 & ~features) == 0) return kSse2;
#elif defined(__aarch64__)
  if ((kSetNeon & ~features) == 0) return NeonLaneKernels();
#endif
  return PlainLaneKernels();
}

const LaneKernels& ActiveLaneKernels() {
  static const LaneKernels& active = LaneKernelsFor(CpuFeatures());
  return active;
}

}  // namespace pelcast
