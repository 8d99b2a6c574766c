// The x86-64 lane routines compiled for AVX2 (see lane_kernels_x86.h). Only
// this file is built for AVX2; the routines are used only after the
// processor has been asked whether it has it.
// Shared headers come first, so that their inline functions keep the base
// target and no AVX2 copy of them can be chosen by the linker for other
// files.
#include "encoder/lane_kernels.h"
#include "encoder/lane_math.h"

#if defined(__x86_64__) && defined(__GNUC__) && !defined(__clang__)
#include <emmintrin.h>
#pragma GCC target("avx2")
#include "encoder/lane_kernels_x86.h"
#endif

namespace pelcast {

const LaneKernels* Avx2LaneKernels();

#if defined(__x86_64__) && defined(__GNUC__) && !defined(__clang__)

namespace {
constexpr LaneKernels kAvx2 = MakeX86LaneKernels("avx2");
}  // namespace

const LaneKernels* Avx2LaneKernels() {
  return __builtin_cpu_supports("avx2") ? &kAvx2 : nullptr;
}

#elif defined(__x86_64__)

const LaneKernels* Avx2LaneKernels() { return nullptr; }

#endif

}  // namespace pelcast
