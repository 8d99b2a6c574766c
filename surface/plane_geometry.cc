#include "surface/plane_geometry.h"

#include <cstdlib>

#if defined(__linux__)
#include <sys/mman.h>
#endif

namespace pelcast {
namespace {

// Frame buffers of this size or more ask the kernel for huge pages: a frame's
// first touch then costs a few faults instead of thousands, which is a large
// part of a single-frame command's run time.
constexpr size_t kHugePageRequestBytes = size_t{2} << 20;
constexpr uintptr_t kHugePageBytes = uintptr_t{2} << 20;

void RequestHugePages(void* memory, size_t bytes) {
#if defined(__linux__) && defined(MADV_HUGEPAGE)
  if (bytes < kHugePageRequestBytes) return;
  const auto start = reinterpret_cast<uintptr_t>(memory);
  const uintptr_t first = (start + kHugePageBytes - 1) & ~(kHugePageBytes - 1);
  const uintptr_t last = (start + bytes) & ~(kHugePageBytes - 1);
  // Only a hint: where the kernel declines, the buffer works as before.
  if (last > first) madvise(reinterpret_cast<void*>(first), last - first, MADV_HUGEPAGE);
#else
  (void)memory;
  (void)bytes;
#endif
}

constexpr char kNegativeSize[] = "ERROR: width and height must not be negative";
constexpr char kTooLarge[] =
    "ERROR: frame too large: a buffer or byte count would reach 2^31 bytes";

bool Fits(ExactInt bytes) { return bytes < kMaxBufferBytes; }

}  // namespace

uint8_t* AllocateZeroed(size_t bytes) {
  // calloc(0) may return null; one byte keeps a zero-byte request successful.
  void* memory = std::calloc(bytes != 0 ? bytes : 1, 1);
  if (memory != nullptr) RequestHugePages(memory, bytes);
  return static_cast<uint8_t*>(memory);
}

const char* DecodeSizeProblem(PlaneFormat format, int32_t width, int32_t height) {
  if (width < 0 || height < 0) return kNegativeSize;
  const auto g = ComputePlaneGeometryT<ExactInt>(format, width, height);
  const ExactInt counts[] = {g.frameSize, g.outputSize, g.yDataBufSize, g.uvDataBufSize,
                             g.yMetaBufSize, g.uvMetaBufSize};
  for (ExactInt bytes : counts) {
    if (!Fits(bytes)) return kTooLarge;
  }
  if (format == PlaneFormat::kNv12 && !Fits(ExactInt{width} * height * 3)) return kTooLarge;
  return nullptr;
}

const char* EncodeSizeProblem(uint32_t prepareFormat, int32_t width, int32_t height) {
  if (width < 0 || height < 0) return kNegativeSize;
  const bool nv12 = prepareFormat == 1;
  const auto g = ComputeEncodeGeometryT<ExactInt>(nv12, width, height);
  const ExactInt counts[] = {g.bufferSize, g.epbSize, g.stagingSize, g.dataSize};
  for (ExactInt bytes : counts) {
    if (!Fits(bytes)) return kTooLarge;
  }
  return nullptr;
}

}  // namespace pelcast
