// The frame codecs against buffers cut short: a compressed frame pulled off a
// device may end anywhere. Past the descriptor's compressedEnd the decoders
// must read zeros and the encoders must store nothing, whatever lies there.
// In the sanitizer build the bytes past the cut are also made unaddressable,
// so a single access there is reported.
#include <gtest/gtest.h>
#include <sanitizer/asan_interface.h>

#include <cstring>
#include <vector>

#include "tests/codec_test_support.h"
#include "tests/test_support.h"

namespace pelcast::testing {
namespace {

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
  PlaneFormat plane;
  int32_t width, height;
};

Bytes Decode(const DecodeFormat& f, Bytes* frame, size_t end) {
  const PlaneGeometry g = ComputePlaneGeometry(f.plane, f.width, f.height);
  Bytes output(g.outputSize);
  ZpakConfig c = FrameConfig(f.plane, g, f.width, f.height, frame->data(), output.data());
  c.compressedEnd = frame->data() + end;
  RunDecoder(MakeContext(ContextFormatOf(f.plane)).get(), c);
  return output;
}

TEST(HostileBounds, CutFramesDecodeAsIfZeroPadded) {
  // Random frames (metadata included); each cut is decoded with 0xFF
  // garbage past it and compared with the same frame zero-filled past it.
  const DecodeFormat formats[] = {{PlaneFormat::kNv12, 200, 70},
                                  {PlaneFormat::kRgba8888, 90, 21},
                                  {PlaneFormat::kRgb565, 150, 21}};
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
      EXPECT_EQ(Decode(f, &garbage, cut), expected) << f.width << " cut at " << cut;
    }
  }
}

struct EncodeFormat {
  bool nv12;
  uint32_t width, height;
};

// Encodes a random image laid out as the encode commands lay it out into
// `compressed`, storing nothing at or past `end`.
void Encode(const EncodeFormat& f, Bytes* compressed, size_t end) {
  const auto e = ComputeEncodeGeometryT<uint32_t>(f.nv12, f.width, f.height);
  Bytes staging = RandomBytes(e.stagingSize, f.width);
  // Half of each image is flat so that short tiles (half-slot placement) occur.
  std::fill(staging.begin(), staging.begin() + staging.size() / 2, 0x40);
  ZpakConfig c = EncodeConfig(e, f.nv12, compressed->data(), staging.data());
  c.compressedEnd = compressed->data() + end;
  EncodeZpakFrame(MakeContext(f.nv12 ? kContextNv12 : kContextRgba8888).get(), &c);
}

TEST(HostileBounds, CutBuffersKeepEveryByteFromTheCutOn) {
  // Height 65: the chroma walk covers 48 rows while the encode layout's
  // chroma plane holds 32, so even the whole buffer is cut short.
  const EncodeFormat formats[] = {{true, 200, 70}, {true, 128, 65}, {false, 90, 21}};
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
          << f.width << " cut at " << cut;
      EXPECT_EQ(Bytes(cutShort.begin() + cut, cutShort.end()), Bytes(size - cut, 0xEE))
          << f.width << " cut at " << cut;
    }
  }
}

}  // namespace
}  // namespace pelcast::testing
