// The processor features the codec's vector kernels use, found once for the
// whole program, and the kernel sets built on them.
//
// Every module with vector routines (the tile decoder, the encoder's lane
// routines, the raw tools' row kernels) keeps one table of function pointers
// per feature set and fills the table it runs with once, from CpuFeatures().
// Setting PELCAST_CPU_MASK in the environment (hexadecimal with 0x, or
// decimal) removes features from what the probe found before any table is
// filled: PELCAST_CPU_MASK=0 runs the plain routines everywhere, 0x1 the
// SSE2 ones on x86-64. Tests and benchmarks ask each module for the table
// of a given set instead.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

namespace pelcast {

// One bit per feature. x86-64: SSE2 is part of every processor; AVX2 counts
// only when the operating system saves the wide registers. arm64: NEON is
// part of every processor.
inline constexpr uint32_t kCpuSse2 = 1u << 0;
inline constexpr uint32_t kCpuSsse3 = 1u << 1;
inline constexpr uint32_t kCpuSse41 = 1u << 2;
inline constexpr uint32_t kCpuAvx2 = 1u << 3;
inline constexpr uint32_t kCpuBmi2 = 1u << 4;  // BMI1 and BMI2
inline constexpr uint32_t kCpuNeon = 1u << 8;

// The features of each kernel set (see KernelSets below).
inline constexpr uint32_t kSetSse2 = kCpuSse2;
inline constexpr uint32_t kSetAvx2 = kCpuSse2 | kCpuSsse3 | kCpuSse41 | kCpuAvx2 | kCpuBmi2;
inline constexpr uint32_t kSetNeon = kCpuNeon;

// What this processor has.
uint32_t ProbeCpuFeatures();

// Reads a feature mask: "0x" or "0X" and hexadecimal digits, or decimal
// digits, nothing else. False (and *mask untouched) for any other text.
bool ParseCpuMask(const char* text, uint32_t* mask);

// `probed` narrowed by the text of PELCAST_CPU_MASK (null when it is not
// set): ANDed with a valid mask, unchanged otherwise.
uint32_t MaskedFeatures(uint32_t probed, const char* maskText);

// The features the codec uses: the probe's, ANDed with PELCAST_CPU_MASK when
// that is set to a valid mask (an invalid one is ignored). Found once.
uint32_t CpuFeatures();

// A level of features that vector routines are written for. A module's table
// for a set holds, for every routine, the best version the set's features
// allow (the plain one when none does).
struct KernelSet {
  const char* name;
  uint32_t features;
};

// The sets of this architecture, plain (no feature) first, each a superset
// of the one before.
std::span<const KernelSet> KernelSets();

// True when `features` has every feature of `set`.
inline bool SetRuns(const KernelSet& set, uint32_t features) {
  return (set.features & ~features) == 0;
}

// The sets CpuFeatures() runs, plain first.
std::vector<KernelSet> RunnableKernelSets();

}  // namespace pelcast
