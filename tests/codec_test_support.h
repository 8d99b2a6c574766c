// Helpers of the unit tests that drive the codec directly. The descriptors
// here are written out field by field, independently of the library's own
// descriptor set-up, so the tests check that set-up rather than repeat it.
#pragma once

#include <cstdint>
#include <memory>

#include "surface/plane_geometry.h"
#include "surface/zpak_context.h"

namespace pelcast::testing {

using ContextPtr = std::unique_ptr<ZpakContext, void (*)(ZpakContext*)>;

// A context obtained and configured for `contextFormat`, released with it.
inline ContextPtr MakeContext(uint64_t contextFormat) {
  ContextPtr context(AllocateZpakContext(), ReleaseZpakContext);
  ConfigureZpakContext(context.get(), contextFormat);
  return context;
}

// A packed RGB frame (RGBA8888 or RGB565) as the decode commands lay it out:
// metadata then data plane of `g` from `compressed` (g.frameSize bytes), the
// image at `linear` with the data plane's stride, addressing mode 1, bank bit
// 15. Both frame codecs of the format take it as it is.
inline ZpakConfig RgbFrameConfig(const PlaneGeometry& g, bool rgb565, uint8_t* compressed,
                                 uint8_t* linear, uint64_t swizzle) {
  const uint64_t pixelBytes = rgb565 ? 2 : 4;
  ZpakConfig c{};
  c.yMetaPlane = compressed;
  c.yDataPlane = compressed + g.yMetaBufSize;
  c.uvMetaPlane = c.yDataPlane + g.yDataBufSize;
  c.linearY = linear;
  c.width = c.alignedWidth = g.yStride / pixelBytes;
  c.height = c.alignedHeight = g.yBufLength;
  c.stride = g.yStride;
  c.uvDataOffset = g.yDataBufSize;
  c.surfaceFormat = rgb565 ? kSurfaceRgb565 : kSurfaceRgba8888;
  c.addressingMode = 1;
  c.swizzleEnable = swizzle;
  c.bankBit = 15;
  c.enable = 1;
  c.compressedEnd = compressed + g.frameSize;
  return c;
}

}  // namespace pelcast::testing
