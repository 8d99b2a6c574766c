#include "surface/frame_config.h"

namespace pelcast {
namespace {

// The fixed addressing settings of every command.
constexpr uint64_t kAddressingMode = 1;
constexpr uint64_t kSwizzleEnable = 1;
constexpr uint64_t kBankBit = 15;

constexpr uint64_t kRgbaBytesPerPixel = 4;
constexpr uint64_t kRgb565BytesPerPixel = 2;

void SetAddressing(ZpakConfig* c) {
  c->addressingMode = kAddressingMode;
  c->swizzleEnable = kSwizzleEnable;
  c->bankBit = kBankBit;
}

}  // namespace

uint64_t ContextFormatOf(PlaneFormat format) {
  switch (format) {
    case PlaneFormat::kNv12:
      return kContextNv12;
    case PlaneFormat::kRgba8888:
      return kContextRgba8888;
    case PlaneFormat::kRgb565:
      break;
  }
  return kContextRgb565;
}

ZpakConfig DecodeAddressing(PlaneFormat format) {
  ZpakConfig c{};
  switch (format) {
    case PlaneFormat::kNv12:
      c.surfaceFormat = kSurfaceNv12;
      break;
    case PlaneFormat::kRgba8888:
      c.surfaceFormat = kSurfaceRgba8888;
      break;
    case PlaneFormat::kRgb565:
      c.surfaceFormat = kSurfaceRgb565;
      break;
  }
  SetAddressing(&c);
  return c;
}

void FillDecodeConfig(ZpakConfig* config, PlaneFormat format, const PlaneGeometry& g, int32_t width,
                      int32_t height, uint8_t* frame, uint8_t* output) {
  ZpakConfig& c = *config;
  c = DecodeAddressing(format);
  c.yMetaPlane = frame;
  c.yDataPlane = frame + g.yMetaBufSize;
  c.uvMetaPlane = c.yDataPlane + g.yDataBufSize;
  c.linearY = output;
  c.alignedHeight = g.yBufLength;
  c.stride = g.yStride;
  c.uvDataOffset = g.yDataBufSize;
  switch (format) {
    case PlaneFormat::kNv12:
      c.width = static_cast<uint64_t>(width);
      c.height = static_cast<uint64_t>(height);
      c.alignedWidth = g.yStride;
      c.uvDataOffset = uint64_t{g.yDataBufSize} + g.uvMetaBufSize;
      break;
    case PlaneFormat::kRgba8888:
      c.width = c.alignedWidth = g.yStride / kRgbaBytesPerPixel;
      c.height = g.yBufLength;
      break;
    case PlaneFormat::kRgb565:
      c.width = c.alignedWidth = g.yStride / kRgb565BytesPerPixel;
      c.height = g.yBufLength;
      break;
  }
  c.enable = 1;
  c.compressedEnd = frame + g.frameSize;
}

void FillEncodeConfig(ZpakConfig* config, uint64_t surfaceFormat, const ZpakInfo& info,
                      uint8_t* compressed, uint8_t* staging) {
  ZpakConfig& c = *config;
  c = ZpakConfig{};
  c.yMetaPlane = compressed;
  c.yDataPlane = compressed + info.yDataOffset;
  c.uvMetaPlane = c.yDataPlane + info.yDataSize;
  c.uvDataPlane = c.uvMetaPlane + info.uvMetaOffset;
  c.linearY = staging;
  c.linearUv = staging + info.yDataSize;
  c.surfaceFormat = surfaceFormat;
  SetAddressing(&c);
  // NV12 is staged at the linear stride; the RGB formats a pixel row of the
  // data plane's stride.
  if (surfaceFormat == kSurfaceNv12) {
    c.width = c.alignedWidth = info.linearStride;
    c.height = c.alignedHeight = info.linearScanlines;
  } else {
    const uint64_t pixelBytes =
        surfaceFormat == kSurfaceRgb565 ? kRgb565BytesPerPixel : kRgbaBytesPerPixel;
    c.width = c.alignedWidth = info.yStride / pixelBytes;
    c.height = c.alignedHeight = info.yScanlines;
  }
  c.compressedEnd = compressed + info.bufferSize;
}

}  // namespace pelcast
