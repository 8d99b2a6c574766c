#include "surface/plane_geometry.h"

#include <cstdlib>

namespace pelcast {
namespace {

constexpr char kNegativeSize[] = "ERROR: width and height must not be negative";
constexpr char kTooLarge[] =
    "ERROR: frame too large: a buffer or byte count would reach 2^31 bytes";

bool Fits(ExactInt bytes) { return bytes < kMaxBufferBytes; }

}  // namespace

uint8_t* AllocateZeroed(size_t bytes) {
  // calloc(0) may return null; one byte keeps a zero-byte request successful.
  return static_cast<uint8_t*>(std::calloc(bytes != 0 ? bytes : 1, 1));
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
