#include "tools/inspect/frame_decode.h"

#include <cstdlib>
#include <cstring>

#include "decoder/frame_decoder.h"
#include "surface/frame_config.h"

namespace pelcast::inspect {
namespace {

// Command B's exchange of the 5-bit fields of every pixel of the buffer.
void SwapRedBlue(uint8_t* buffer, uint32_t bytes) {
  constexpr uint16_t kGreen = 0x07E0;
  constexpr uint16_t kLow5 = 0x001F;
  constexpr int kHighShift = 11;
  for (uint32_t i = 0; i + 1 < bytes; i += 2) {
    const uint16_t p = static_cast<uint16_t>(buffer[i] | buffer[i + 1] << 8);
    const uint16_t swapped =
        static_cast<uint16_t>((p & kGreen) | (p >> kHighShift) | ((p & kLow5) << kHighShift));
    buffer[i] = static_cast<uint8_t>(swapped);
    buffer[i + 1] = static_cast<uint8_t>(swapped >> 8);
  }
}

}  // namespace

bool OpenDecodeSession(InspectFormat format, int32_t width, int32_t height, DecodeSession* s) {
  *s = DecodeSession{};
  s->format = format;
  s->width = width;
  s->height = height;
  s->geometry = ComputePlaneGeometry(PlaneFormatOf(format), width, height);
  s->context = AllocateZpakContext();
  s->output = AllocateZeroed(s->geometry.outputSize);
  if (s->context == nullptr || s->output == nullptr) {
    ReleaseDecodeSession(s);
    return false;
  }
  ConfigureZpakContext(s->context, ContextFormatOf(PlaneFormatOf(format)));
  return true;
}

void ReleaseDecodeSession(DecodeSession* s) {
  ReleaseZpakContext(s->context);
  ReleaseZeroed(s->output);
  s->context = nullptr;
  s->output = nullptr;
}

LinearFrame DecodeFrame(DecodeSession* s, uint8_t* frame) {
  const PlaneGeometry& g = s->geometry;
  std::memset(s->output, 0, g.outputSize);
  ZpakConfig config;
  FillDecodeConfig(&config, PlaneFormatOf(s->format), g, s->width, s->height, frame, s->output);
  const auto width = static_cast<uint32_t>(s->width);
  const auto height = static_cast<uint32_t>(s->height);
  if (s->format == InspectFormat::kRgb565) {
    DecodeZpakFrameRgb565(s->context, &config);
    SwapRedBlue(s->output, g.outputSize);
    return LinearFrame{s->output, g.outputSize, width, height, g.yStride};
  }
  DecodeZpakFrame(s->context, &config);
  return LinearFrame{s->output, g.outputSize, width, height, g.yStride};
}

}  // namespace pelcast::inspect
