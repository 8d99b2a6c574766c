// DecodeZpakFrame and DecodeZpakFrameRgb565 on random compressed frames of
// random small sizes, odd ones included, with every descriptor setting.
// Buffers are sized as the decode commands size them and the descriptor's
// compressedEnd is set, as they set it.
//
// Input: format, width, height, the descriptor settings and a fill mode, then
// the frame's bytes. The frame is either the bytes repeated over the whole
// frame buffer, the bytes followed by zeros, or a truncated frame: a buffer
// whose bytes past the input are unaddressable, with compressedEnd there.
//
// Checked beyond memory safety:
// * enable 0, a non-zero bypass or an unknown surfaceFormat return as the
//   descriptor says and write nothing;
// * a decoded frame returns the stride and writes nothing outside the
//   linear image (NV12 luma at `width` bytes a row, then the chroma rows);
// * a truncated frame decodes exactly as the same frame padded with zeros;
// * a context reused across frames (address tables kept when the geometry is
//   unchanged) decodes exactly as a fresh one.
#include <algorithm>
#include <cstdint>
#include <cstring>

#include "decoder/frame_decoder.h"
#include "fuzz/fuzz_support.h"
#include "surface/plane_geometry.h"
#include "surface/zpak_context.h"

namespace pelcast::fuzz {
namespace {

constexpr uint32_t kMaxWidth = 320;
constexpr uint32_t kMaxHeight = 96;
constexpr uint32_t kFirstBankBit = 14;
constexpr uint32_t kLastBankBit = 30;
constexpr uint8_t kUntouched = 0x5A;

enum class Format { kNv12, kRgba8888, kRgb565 };
enum class Fill { kRepeated, kZeroPadded, kTruncated };

struct FormatInfo {
  PlaneFormat plane;
  uint64_t contextFormat;
  uint64_t surfaceFormat;
  uint64_t bytesPerPixel;  // of the stride, for width and alignedWidth (0: NV12)
};

constexpr FormatInfo kFormats[] = {
    {PlaneFormat::kNv12, kContextNv12, kSurfaceNv12, 0},
    {PlaneFormat::kRgba8888, kContextRgba8888, kSurfaceRgba8888, 4},
    {PlaneFormat::kRgb565, kContextRgb565, kSurfaceRgb565, 2},
};

// Surface formats the RGBA8888/NV12 decoder does not decode.
constexpr uint64_t kOtherSurfaceFormats[] = {0, 2, 4, 5, 12, 255};

struct Settings {
  Format format;
  int32_t width;
  int32_t height;
  uint64_t swizzleEnable;
  uint64_t addressingMode;
  uint64_t altAddressing;
  uint64_t bypass;
  uint64_t enable;
  uint64_t bankBit;
  uint64_t surfaceFormat;
  Fill fill;
};

Settings ReadSettings(InputReader* in) {
  Settings s{};
  s.format = static_cast<Format>(in->Byte() % 3);
  const FormatInfo& info = kFormats[static_cast<int>(s.format)];
  s.width = static_cast<int32_t>(in->InRange(0, kMaxWidth));
  s.height = static_cast<int32_t>(in->InRange(0, kMaxHeight));
  s.swizzleEnable = in->Byte() % 2;
  s.addressingMode = in->Byte() % 3;
  s.altAddressing = in->Byte() % 2;
  s.bypass = in->Byte() % 16 == 0 ? 1 : 0;  // rare: it decodes nothing
  s.enable = in->Byte() % 16 == 0 ? 0 : 1;
  s.bankBit = in->InRange(kFirstBankBit, kLastBankBit);
  const uint8_t other = in->Byte();
  s.surfaceFormat = other % 16 == 0 ? kOtherSurfaceFormats[(other / 16) % 6] : info.surfaceFormat;
  s.fill = static_cast<Fill>(in->Byte() % 3);
  return s;
}

// The descriptor as the decode command of the format fills it, with the
// fuzzed settings in place of the fixed ones.
ZpakConfig Describe(const Settings& s, const PlaneGeometry& g, uint8_t* frame, uint8_t* frameEnd,
                    uint8_t* output) {
  const FormatInfo& info = kFormats[static_cast<int>(s.format)];
  ZpakConfig c{};
  c.yMetaPlane = frame;
  c.yDataPlane = frame + g.yMetaBufSize;
  c.uvMetaPlane = c.yDataPlane + g.yDataBufSize;
  c.linearY = output;
  c.alignedHeight = g.yBufLength;
  c.stride = g.yStride;
  if (s.format == Format::kNv12) {
    c.width = static_cast<uint64_t>(s.width);
    c.height = static_cast<uint64_t>(s.height);
    c.alignedWidth = g.yStride;
    c.uvDataOffset = uint64_t{g.yDataBufSize} + g.uvMetaBufSize;
  } else {
    c.width = c.alignedWidth = g.yStride / info.bytesPerPixel;
    c.height = g.yBufLength;
    c.uvDataOffset = g.yDataBufSize;
  }
  c.surfaceFormat = s.surfaceFormat;
  c.addressingMode = s.addressingMode;
  c.swizzleEnable = s.swizzleEnable;
  c.bankBit = s.bankBit;
  c.bypass = s.bypass;
  c.altAddressing = s.altAddressing;
  c.enable = s.enable;
  c.compressedEnd = frameEnd;
  return c;
}

uint64_t Decode(ZpakContext* context, const Settings& s, const ZpakConfig& config) {
  return s.format == Format::kRgb565 ? DecodeZpakFrameRgb565(context, &config)
                                     : DecodeZpakFrame(context, &config);
}

// Bytes of the output buffer the decoder may write for this geometry.
uint64_t WrittenExtent(const Settings& s, const PlaneGeometry& g) {
  if (s.format != Format::kNv12) return g.yDataBufSize;
  const uint64_t w = static_cast<uint64_t>(s.width);
  const uint64_t h = static_cast<uint64_t>(s.height);
  return w * h + 2 * ((w + 1) / 2) * ((h + 1) / 2);
}

// What the call must return and whether it decodes at all.
bool Decodes(const Settings& s, uint64_t* expectedResult, uint64_t stride) {
  if (s.enable == 0) {
    *expectedResult = 0;
    return false;
  }
  *expectedResult = stride;
  if (s.bypass != 0) return false;
  // The RGB565 decoder does not look at surfaceFormat: its caller chose it.
  if (s.format == Format::kRgb565) return true;
  return s.surfaceFormat == kSurfaceNv12 || s.surfaceFormat == kSurfaceRgba8888;
}

ZpakContext* NewContext(uint64_t contextFormat) {
  ZpakContext* context = AllocateZpakContext();
  if (context == nullptr) Fail("context allocation");
  ConfigureZpakContext(context, contextFormat);
  return context;
}

// The context kept from one input to the next for each format.
ZpakContext* ReusedContext(Format format) {
  static ZpakContext* contexts[3] = {};
  const int index = static_cast<int>(format);
  if (contexts[index] == nullptr) contexts[index] = NewContext(kFormats[index].contextFormat);
  return contexts[index];
}

void FillFrame(const Settings& s, const uint8_t* bytes, size_t count, ExactBuffer* frame) {
  const size_t size = frame->size();
  if (s.fill == Fill::kRepeated && count != 0) {
    for (size_t at = 0; at < size; at += count) {
      std::memcpy(frame->data() + at, bytes, std::min(count, size - at));
    }
    return;
  }
  std::memcpy(frame->data(), bytes, std::min(count, size));
}

}  // namespace
}  // namespace pelcast::fuzz

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace pelcast;
  using namespace pelcast::fuzz;
  InputReader in(data, size);
  const Settings s = ReadSettings(&in);
  const FormatInfo& info = kFormats[static_cast<int>(s.format)];
  const PlaneGeometry g = ComputePlaneGeometry(info.plane, s.width, s.height);

  // The frame as decoded, and the same frame zero-padded to full size.
  ExactBuffer frame(g.frameSize);
  FillFrame(s, in.Rest(), in.RestSize(), &frame);
  ExactBuffer padded(g.frameSize);
  std::memcpy(padded.data(), frame.data(), frame.size());
  uint8_t* frameEnd = frame.end();
  if (s.fill == Fill::kTruncated && in.RestSize() < frame.size()) {
    frame.PoisonFrom(in.RestSize());
    frameEnd = frame.data() + in.RestSize();
  }

  ExactBuffer output(g.outputSize, kUntouched);
  const ZpakConfig config = Describe(s, g, frame.data(), frameEnd, output.data());
  uint64_t expectedResult = 0;
  const bool decodes = Decodes(s, &expectedResult, g.yStride);
  Check(Decode(ReusedContext(s.format), s, config) == expectedResult, "frame decoder result");

  const uint64_t extent = decodes ? std::min<uint64_t>(WrittenExtent(s, g), output.size()) : 0;
  for (uint64_t i = extent; i < output.size(); ++i) {
    Check(output.data()[i] == kUntouched, "nothing written outside the linear image");
  }
  // Uncompressed RGB565 halves reorder only 64 of the 128 bytes they place;
  // the rest is whatever the context's decoded tile held, so only a fresh
  // context's result is defined there.
  if (!decodes || (s.format == Format::kRgb565 && s.altAddressing != 0)) return 0;

  ExactBuffer reference(g.outputSize, kUntouched);
  const ZpakConfig paddedConfig =
      Describe(s, g, padded.data(), padded.end(), reference.data());
  ZpakContext* fresh = NewContext(info.contextFormat);
  Decode(fresh, s, paddedConfig);
  ReleaseZpakContext(fresh);
  Check(std::memcmp(output.data(), reference.data(), output.size()) == 0,
        "a truncated frame or a reused context decodes as a zero-padded frame in a fresh one");
  return 0;
}
