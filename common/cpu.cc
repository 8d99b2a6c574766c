#include "common/cpu.h"

#include <cstdlib>

#if defined(__x86_64__)
#include <cpuid.h>
#endif

namespace pelcast {
namespace {

#if defined(__x86_64__)

// CPUID leaf 1, ECX.
constexpr uint32_t kLeaf1Ssse3 = 1u << 9;
constexpr uint32_t kLeaf1Sse41 = 1u << 19;
constexpr uint32_t kLeaf1OsXsave = 1u << 27;
constexpr uint32_t kLeaf1Avx = 1u << 28;
// CPUID leaf 7, sub-leaf 0, EBX.
constexpr uint32_t kLeaf7Bmi1 = 1u << 3;
constexpr uint32_t kLeaf7Avx2 = 1u << 5;
constexpr uint32_t kLeaf7Bmi2 = 1u << 8;
// XCR0: the operating system saves the SSE and AVX register state.
constexpr uint64_t kXcr0SseAvx = 0x6;

uint64_t ReadXcr0() {
  uint32_t low = 0;
  uint32_t high = 0;
  __asm__("xgetbv" : "=a"(low), "=d"(high) : "c"(0));
  return uint64_t{high} << 32 | low;
}

uint32_t ProbeX86() {
  uint32_t features = kCpuSse2;
  uint32_t eax = 0, ebx = 0, ecx = 0, edx = 0;
  if (__get_cpuid(1, &eax, &ebx, &ecx, &edx) == 0) return features;
  if ((ecx & kLeaf1Ssse3) != 0) features |= kCpuSsse3;
  if ((ecx & kLeaf1Sse41) != 0) features |= kCpuSse41;
  const bool avxState = (ecx & kLeaf1OsXsave) != 0 && (ecx & kLeaf1Avx) != 0 &&
                        (ReadXcr0() & kXcr0SseAvx) == kXcr0SseAvx;
  if (__get_cpuid_count(7, 0, &eax, &ebx, &ecx, &edx) == 0) return features;
  if (avxState && (ebx & kLeaf7Avx2) != 0) features |= kCpuAvx2;
  if ((ebx & kLeaf7Bmi1) != 0 && (ebx & kLeaf7Bmi2) != 0) features |= kCpuBmi2;
  return features;
}

constexpr KernelSet kSets[] = {{"plain", 0}, {"sse2", kSetSse2}, {"avx2", kSetAvx2}};

#elif defined(__aarch64__)

constexpr KernelSet kSets[] = {{"plain", 0}, {"neon", kSetNeon}};

#else

constexpr KernelSet kSets[] = {{"plain", 0}};

#endif

uint32_t FindFeatures() {
  return MaskedFeatures(ProbeCpuFeatures(), std::getenv("PELCAST_CPU_MASK"));
}

int DigitValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

}  // namespace

uint32_t ProbeCpuFeatures() {
#if defined(__x86_64__)
  return ProbeX86();
#elif defined(__aarch64__)
  return kCpuNeon;
#else
  return 0;
#endif
}

bool ParseCpuMask(const char* text, uint32_t* mask) {
  constexpr int kDecimal = 10;
  constexpr int kHexadecimal = 16;
  int radix = kDecimal;
  if (text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) {
    radix = kHexadecimal;
    text += 2;
  }
  if (*text == '\0') return false;
  uint64_t value = 0;
  for (; *text != '\0'; ++text) {
    const int digit = DigitValue(*text);
    if (digit < 0 || digit >= radix) return false;
    value = value * static_cast<uint64_t>(radix) + static_cast<uint64_t>(digit);
    if (value > UINT32_MAX) return false;
  }
  *mask = static_cast<uint32_t>(value);
  return true;
}

uint32_t MaskedFeatures(uint32_t probed, const char* maskText) {
  uint32_t mask = 0;
  if (maskText != nullptr && ParseCpuMask(maskText, &mask)) return probed & mask;
  return probed;
}

uint32_t CpuFeatures() {
  static const uint32_t features = FindFeatures();
  return features;
}

std::span<const KernelSet> KernelSets() { return kSets; }

std::vector<KernelSet> RunnableKernelSets() {
  std::vector<KernelSet> sets;
  for (const KernelSet& set : KernelSets()) {
    if (SetRuns(set, CpuFeatures())) sets.push_back(set);
  }
  return sets;
}

}  // namespace pelcast
