#include "surface/plane_geometry.h"

#include <cstdint>
#include <cstdlib>

#if defined(__linux__)
#include <sys/mman.h>
#endif

namespace pelcast {
namespace {

// Buffers of this size or more are mapped on their own, in whole huge pages,
// and ask the kernel to back them with huge pages: a frame's first touch then
// costs a few faults instead of thousands, which is a large part of a
// single-frame command's run time. A mapping whose length is a multiple of
// the huge page size is placed on a huge page boundary, so every part of it
// qualifies.
constexpr size_t kHugePageBytes = size_t{2} << 20;

// Every buffer starts with this header, which says how it was obtained so
// that one release serves both kinds. The bytes after it keep the alignment
// of the allocation (a cache line in a mapping, the C heap's otherwise).
struct BufferHeader {
  size_t mappedBytes;  // length of the mapping; 0 for the C heap
};
constexpr size_t kHeaderBytes = 64;
static_assert(sizeof(BufferHeader) <= kHeaderBytes);

BufferHeader* MapZeroed(size_t total) {
#if defined(__linux__)
  const size_t length = (total + kHugePageBytes - 1) & ~(kHugePageBytes - 1);
  void* memory =
      mmap(nullptr, length, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED) return nullptr;
#if defined(MADV_HUGEPAGE)
  // Only a hint: where the kernel declines, the buffer works as before.
  madvise(memory, length, MADV_HUGEPAGE);
#endif
  auto* header = static_cast<BufferHeader*>(memory);
  header->mappedBytes = length;
  return header;
#else
  (void)total;
  return nullptr;
#endif
}

constexpr char kNegativeSize[] = "ERROR: width and height must not be negative";
constexpr char kTooLarge[] =
    "ERROR: frame too large: a buffer or byte count would reach 2^31 bytes";

bool Fits(ExactInt bytes) { return bytes < kMaxBufferBytes; }

}  // namespace

uint8_t* AllocateZeroed(size_t bytes) {
  if (bytes > SIZE_MAX - kHugePageBytes - kHeaderBytes) return nullptr;
  const size_t total = kHeaderBytes + bytes;
  BufferHeader* header = total >= kHugePageBytes ? MapZeroed(total) : nullptr;
  if (header == nullptr) {
    header = static_cast<BufferHeader*>(std::calloc(total, 1));
    if (header == nullptr) return nullptr;
  }
  return reinterpret_cast<uint8_t*>(header) + kHeaderBytes;
}

void ReleaseZeroed(uint8_t* buffer) {
  if (buffer == nullptr) return;
  auto* header = reinterpret_cast<BufferHeader*>(buffer - kHeaderBytes);
#if defined(__linux__)
  if (header->mappedBytes != 0) {
    munmap(header, header->mappedBytes);
    return;
  }
#endif
  std::free(header);
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
