// Commands P, I, C, E and T: reshuffles between planar and semi-planar 4:2:0,
// crop, de-pad and frame copy. Every command sizes and allocates all of its
// buffers before opening its files, then loops over frames until the luma
// plane (the frame, for E and T) no longer arrives whole. Chroma reads are not
// checked: a short one leaves the rest of the buffer as it was.
#include "rawtools/raw_commands.h"

#include <algorithm>
#include <cstdio>

#include "rawtools/clipped_rows.h"
#include "rawtools/raw_kernels.h"
#include "rawtools/raw_support.h"

namespace pelcast {
namespace {

// The three commands' failure texts are spelled differently on purpose; scripts
// in the field match them as they are.
constexpr StartFailureTexts kPlanarTexts{"ERROR:Invalid buffer pointer...Exiting ",
                                         "ERROR:Invalid file pointer...Exiting "};
constexpr StartFailureTexts kSplitTexts{"ERROR: Invalid buffer ptr...Exiting",
                                        kStartFailureTexts.file};

// Padded semi-planar frames (command E): the stride is the width aligned to
// 128, with one more 128-byte block when that aligned width is a multiple of
// 2048; luma rows are counted in 32s and chroma rows in 16s.
constexpr uint32_t kStrideAlignment = 128;
constexpr uint32_t kStrideMultipleBits = 0x780;  // the bits of value 128 to 1024
constexpr uint32_t kLumaLineAlignment = 32;
constexpr uint32_t kChromaLineAlignment = 16;
// The padded frame buffer is requested with this much slack, and fails when
// the frame size or the request is negative as a signed 32-bit size.
constexpr uint32_t kFrameSlackBytes = 128;
// E writes its luma row by row, h rows of w bytes, however small the 32-bit
// frame size wrapped to; a plane of this many bytes or more is refused like
// a buffer that cannot be had, rather than writing gigabytes of rows that lie
// past the frame.
constexpr int64_t kMaxPackedLumaBytes = int64_t{1} << 31;

// T copies frames of 1.5 bytes per pixel.
constexpr double kFrameBytesPerPixel = 1.5;

uint32_t AlignUp32(uint32_t value, uint32_t alignment) {
  return (value + alignment - 1) & ~(alignment - 1);
}

uint32_t PaddedStride(int32_t width) {
  const uint32_t w = static_cast<uint32_t>(width);
  const uint32_t aligned = AlignUp32(w, kStrideAlignment);
  return (w + kStrideAlignment - 1) & kStrideMultipleBits ? aligned : aligned + kStrideAlignment;
}

// Writes the width x height luma of a padded frame as packed rows. When the
// frame's size did not wrap, every row lies inside the buffer and the rows are
// packed in place (the chroma further on is untouched) and written at once.
// A wrapped size leaves rows outside the buffer, which are written as zeros.
void WritePackedLuma(std::FILE* output, RawBuffer& frame, bool sizeExact, uint32_t stride,
                     int32_t width, int32_t height) {
  if (width <= 0 || height <= 0) return;
  if (sizeExact) {
    CopyPlaneRows(frame.bytes.get(), stride, frame.bytes.get(), static_cast<size_t>(width),
                  static_cast<size_t>(width), static_cast<size_t>(height));
    WriteBytes(output, frame, int64_t{width} * height);
    return;
  }
  // Rows past the end of the buffer read as zeros; they are written in bulk.
  int64_t r = 0;
  for (; r < height && r * stride < frame.size; ++r)
    WriteClipped(output, frame.Span(), r * stride, width);
  WriteZeros(output, (height - r) * width);
}

}  // namespace

void PlanarToNv12Command(const char* input, const char* output, int32_t width, int32_t height) {
  const int32_t lumaBytes = Mul32(width, height);
  const int32_t chromaWidth = Add32(width, 1) >> 1;  // rounded up
  const int32_t chromaHeight = Add32(height, 1) >> 1;
  const int32_t chromaBytes = Mul32(Mul32(2, chromaWidth), chromaHeight);
  RawBuffer luma, planar, interleaved;
  FilePair files;
  const bool allocated = AllocateRaw(lumaBytes, luma) && AllocateRaw(chromaBytes, planar) &&
                         AllocateRaw(chromaBytes, interleaved);
  if (!StartCommand(allocated, kPlanarTexts, input, output, files)) return;
  for (uint32_t frame = 0; ReadWhole(files.input.get(), luma, lumaBytes); ++frame) {
    WriteBytes(files.output.get(), luma, lumaBytes);
    ReadBytes(files.input.get(), planar, chromaBytes);
    InterleaveChromaPlanes(planar.Span(), interleaved.Span(), chromaWidth, chromaHeight);
    WriteBytes(files.output.get(), interleaved, chromaBytes);
    PrintFrameLine(frame);
  }
}

void Nv12ToPlanarCommand(const char* input, const char* output, int32_t width, int32_t height) {
  const int32_t lumaBytes = Mul32(width, height);
  const int32_t chromaBytes = lumaBytes / 2;
  RawBuffer luma, planar;
  FilePair files;
  const bool allocated = AllocateRaw(lumaBytes, luma) && AllocateRaw(chromaBytes, planar);
  if (!StartCommand(allocated, kSplitTexts, input, output, files)) return;
  for (uint32_t frame = 0; ReadWhole(files.input.get(), luma, lumaBytes); ++frame) {
    WriteBytes(files.output.get(), luma, lumaBytes);
    // The interleaved chroma is read over the luma just written; after a short
    // read the rest of that buffer still holds luma, which is what gets split.
    ReadBytes(files.input.get(), luma, chromaBytes);
    SplitChromaPlane(luma.Span(), 0, width, planar.Span(), width, height);
    WriteBytes(files.output.get(), planar, chromaBytes);
    PrintFrameLine(frame);
  }
}

void CropNv12Command(const char* input, const char* output, int32_t width, int32_t height,
                     int32_t cropWidth, int32_t cropHeight) {
  const int32_t lumaBytes = Mul32(width, height);
  const int32_t croppedBytes = Mul32(cropWidth, cropHeight);
  RawBuffer luma, chroma, croppedLuma, croppedChroma;
  FilePair files;
  const bool allocated = AllocateRaw(lumaBytes, luma) && AllocateRaw(lumaBytes / 2, chroma) &&
                         AllocateRaw(croppedBytes, croppedLuma) &&
                         AllocateRaw(croppedBytes / 2, croppedChroma);
  if (!StartCommand(allocated, kStartFailureTexts, input, output, files)) return;
  for (uint32_t frame = 0; ReadWhole(files.input.get(), luma, lumaBytes); ++frame) {
    CropLuma(luma.Span(), width, croppedLuma.Span(), cropWidth, cropHeight);
    WriteBytes(files.output.get(), croppedLuma, croppedBytes);
    ReadBytes(files.input.get(), chroma, lumaBytes / 2);
    SplitChromaPlane(chroma.Span(), 0, width, croppedChroma.Span(), cropWidth, cropHeight);
    WriteBytes(files.output.get(), croppedChroma, croppedBytes / 2);
    PrintFrameLine(frame);
  }
}

void DepadNv12Command(const char* input, const char* output, int32_t width, int32_t height) {
  const uint32_t stride = PaddedStride(width);
  const uint32_t lumaLines = AlignUp32(static_cast<uint32_t>(height), kLumaLineAlignment);
  const uint32_t chromaLines = AlignUp32(static_cast<uint32_t>(height / 2), kChromaLineAlignment);
  const uint32_t chromaStart = stride * lumaLines;
  const uint32_t frameBytes = chromaStart + stride * chromaLines;
  const bool sizeExact = uint64_t{stride} * (uint64_t{lumaLines} + chromaLines) == frameBytes;
  const auto requested = static_cast<int32_t>((frameBytes | kFrameSlackBytes) + kFrameSlackBytes);
  const int32_t chromaBytes = Mul32(width, height) / 2;
  RawBuffer frame, planar;
  const bool sizeNegative = static_cast<int32_t>(frameBytes) < 0 || requested < 0;
  const bool lumaTooLarge =
      width > 0 && height > 0 && int64_t{width} * height >= kMaxPackedLumaBytes;
  FilePair files;
  const bool allocated = !sizeNegative && !lumaTooLarge && AllocateRaw(frameBytes, frame) &&
                         AllocateRaw(chromaBytes, planar);
  if (!StartCommand(allocated, kStartFailureTexts, input, output, files)) return;
  for (uint32_t index = 0; ReadWhole(files.input.get(), frame, frameBytes); ++index) {
    WritePackedLuma(files.output.get(), frame, sizeExact, stride, width, height);
    SplitChromaPlane(frame.Span(), chromaStart, stride, planar.Span(), width, height);
    WriteBytes(files.output.get(), planar, chromaBytes);
    PrintFrameLine(index);
  }
}

void CopyFramesCommand(const char* input, const char* output, int32_t width, int32_t height,
                       int32_t frameCount) {
  const auto frameBytes =
      static_cast<int64_t>(static_cast<double>(Mul32(width, height)) * kFrameBytesPerPixel);
  RawBuffer frame;
  FilePair files;
  if (!StartCommand(AllocateRaw(frameBytes, frame), kStartFailureTexts, input, output, files)) {
    return;
  }
  for (int32_t i = 0; i < frameCount && ReadWhole(files.input.get(), frame, frameBytes); ++i) {
    WriteBytes(files.output.get(), frame, frameBytes);
    PrintFrameLine(static_cast<uint32_t>(i));
  }
}

}  // namespace pelcast
