// The frame codecs against buffers cut short: a compressed frame pulled off a
// device may end anywhere. Past the descriptor's compressedEnd the decoders
// must read zeros and the encoders must store nothing, whatever lies there.
// In the sanitizer build the bytes past the cut are also made unaddressable,
// so a single access there is reported.
#include <gtest/gtest.h>
#include <sanitizer/asan_interface.h>

#include <cstring>
#include <vector>

#include "decoder/frame_decoder.h"
#include "encoder/frame_encoder.h"
#include "surface/plane_geometry.h"
#include "surface/zpak_context.h"
#include "tests/test_support.h"

namespace pelcast::testing {
namespace {

struct ContextDeleter {
  void operator()(ZpakContext* context) const { ReleaseZpakContext(context); }
};
using ContextPtr = std::unique_ptr<ZpakContext, ContextDeleter>;

ContextPtr MakeContext(uint64_t contextFormat) {
  ContextPtr context(AllocateZpakContext());
  ConfigureZpakContext(context.get(), contextFormat);
  return context;
}

// Keeps bytes from `cut` to the end of `buffer` unaddressable while alive.
class PoisonedTail {
 public:
  PoisonedTail(Bytes* buffer, size_t cut) : start_(buffer->data() + cut), size_(buffer->size() - cut) {
    ASAN_POISON_MEMORY_REGION(start_, size_);
  }
  ~PoisonedTail() { ASAN_UNPOISON_MEMORY_REGION(start_, size_); }
  PoisonedTail(const PoisonedTail&) = delete;
  PoisonedTail& operator=(const PoisonedTail&) = delete;

 private:
  uint8_t* start_;
  size_t size_;
};

struct DecodeFormat {
  const char* name;
  PlaneFormat plane;
  uint64_t contextFormat;
  uint64_t surfaceFormat;
  int32_t width, height;
};

ZpakConfig DecodeDescriptor(const DecodeFormat& f, const PlaneGeometry& g, Bytes* frame,
                            size_t end, Bytes* output) {
  ZpakConfig c{};
  c.yMetaPlane = frame->data();
  c.yDataPlane = frame->data() + g.yMetaBufSize;
  c.uvMetaPlane = c.yDataPlane + g.yDataBufSize;
  c.linearY = output->data();
  c.alignedHeight = g.yBufLength;
  c.stride = g.yStride;
  c.uvDataOffset = g.yDataBufSize;
  if (f.plane == PlaneFormat::kNv12) {
    c.width = static_cast<uint64_t>(f.width), c.height = static_cast<uint64_t>(f.height);
    c.alignedWidth = g.yStride;
    c.uvDataOffset += g.uvMetaBufSize;
  } else {
    const uint64_t pixelBytes = f.plane == PlaneFormat::kRgba8888 ? 4 : 2;
    c.width = c.alignedWidth = g.yStride / pixelBytes;
    c.height = g.yBufLength;
  }
  c.surfaceFormat = f.surfaceFormat;
  c.addressingMode = 1, c.swizzleEnable = 1, c.bankBit = 15, c.enable = 1;
  c.compressedEnd = frame->data() + end;
  return c;
}

Bytes Decode(const DecodeFormat& f, Bytes* frame, size_t end) {
  const PlaneGeometry g = ComputePlaneGeometry(f.plane, f.width, f.height);
  Bytes output(g.outputSize);
  const ZpakConfig c = DecodeDescriptor(f, g, frame, end, &output);
  ContextPtr context = MakeContext(f.contextFormat);
  if (f.plane == PlaneFormat::kRgb565) {
    DecodeZpakFrameRgb565(context.get(), &c);
  } else {
    DecodeZpakFrame(context.get(), &c);
  }
  return output;
}

TEST(HostileBounds, CutFramesDecodeAsIfZeroPadded) {
  // Random frames (metadata included); each cut is decoded with 0xFF
  // garbage past it and compared with the same frame zero-filled past it.
  const DecodeFormat formats[] = {
      {"NV12", PlaneFormat::kNv12, kContextNv12, kSurfaceNv12, 200, 70},
      {"RGBA8888", PlaneFormat::kRgba8888, kContextRgba8888, kSurfaceRgba8888, 90, 21},
      {"RGB565", PlaneFormat::kRgb565, kContextRgb565, kSurfaceRgb565, 150, 21},
  };
  for (const DecodeFormat& f : formats) {
    const size_t frameSize = ComputePlaneGeometry(f.plane, f.width, f.height).frameSize;
    const Bytes random = RandomBytes(frameSize, static_cast<uint32_t>(frameSize));
    for (size_t cut : {size_t{0}, size_t{1}, size_t{4095}, size_t{4096}, size_t{4096 + 129},
                       frameSize / 2, frameSize - 1}) {
      Bytes padded(random.begin(), random.begin() + cut);
      padded.resize(frameSize, 0);
      const Bytes expected = Decode(f, &padded, frameSize);
      Bytes garbage = padded;
      std::fill(garbage.begin() + cut, garbage.end(), 0xFF);
      const PoisonedTail tail(&garbage, cut);
      EXPECT_EQ(Decode(f, &garbage, cut), expected) << f.name << " cut at " << cut;
    }
  }
}

struct EncodeFormat {
  const char* name;
  bool nv12;
  uint32_t width, height;
};

// Encodes a random image laid out as the encode commands lay it out into
// `compressed`, storing nothing at or past `end`.
void Encode(const EncodeFormat& f, Bytes* compressed, size_t end) {
  const auto e = ComputeEncodeGeometryT<uint32_t>(f.nv12, f.width, f.height);
  Bytes staging = RandomBytes(f.nv12 ? e.stagingSize : e.epbSize, f.width);
  // Half of each image is flat so that short tiles (half-slot placement) occur.
  std::fill(staging.begin(), staging.begin() + staging.size() / 2, 0x40);
  ZpakConfig c{};
  c.yMetaPlane = compressed->data();
  c.yDataPlane = compressed->data() + e.yDataOffset;
  c.uvMetaPlane = compressed->data() + e.yDataOffset + e.yDataSize;
  c.uvDataPlane = c.uvMetaPlane + e.uvMetaOffset;
  c.linearY = staging.data();
  c.linearUv = staging.data() + e.yDataSize;
  c.surfaceFormat = f.nv12 ? kSurfaceNv12 : kSurfaceRgba8888;
  c.width = c.alignedWidth = f.nv12 ? e.linearStride : e.yStride / 4;
  c.height = c.alignedHeight = f.nv12 ? e.linearScanlines : e.yScanlines;
  c.addressingMode = 1, c.swizzleEnable = 1, c.bankBit = 15;
  c.compressedEnd = compressed->data() + end;
  EncodeZpakFrame(MakeContext(f.nv12 ? kContextNv12 : kContextRgba8888).get(), &c);
}

TEST(HostileBounds, CutBuffersKeepEveryByteFromTheCutOn) {
  const EncodeFormat formats[] = {{"NV12", true, 200, 70}, {"RGBA8888", false, 90, 21}};
  for (const EncodeFormat& f : formats) {
    const size_t size = ComputeEncodeGeometryT<uint32_t>(f.nv12, f.width, f.height).bufferSize;
    Bytes whole(size, 0);
    Encode(f, &whole, size);
    for (size_t cut : {size_t{0}, size_t{4095}, size_t{4096}, size_t{4096 + 200}, size / 2,
                       size - 1}) {
      Bytes cutShort(size, 0);
      std::fill(cutShort.begin() + cut, cutShort.end(), 0xEE);
      {
        const PoisonedTail tail(&cutShort, cut);
        Encode(f, &cutShort, cut);
      }
      EXPECT_TRUE(std::equal(cutShort.begin(), cutShort.begin() + cut, whole.begin()))
          << f.name << " cut at " << cut;
      EXPECT_EQ(Bytes(cutShort.begin() + cut, cutShort.end()), Bytes(size - cut, 0xEE))
          << f.name << " cut at " << cut;
    }
  }
}

}  // namespace
}  // namespace pelcast::testing
