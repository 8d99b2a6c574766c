// Helpers of the unit tests that drive the codec directly. The descriptors
// here are written out field by field, independently of the library's own
// descriptor set-up, so the tests check that set-up rather than repeat it.
#pragma once

#include <algorithm>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "common/cpu.h"
#include "decoder/frame_decoder.h"
#include "decoder/tile_kernels.h"
#include "encoder/frame_encoder.h"
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

inline uint64_t ContextFormatOf(PlaneFormat f) {
  return f == PlaneFormat::kNv12 ? kContextNv12
                                 : (f == PlaneFormat::kRgb565 ? kContextRgb565 : kContextRgba8888);
}

// Addressing mode 1, swizzle on, bank bit 15, as every command sets them.
inline void SetCommandAddressing(ZpakConfig* c) {
  c->addressingMode = 1, c->swizzleEnable = 1, c->bankBit = 15;
}

// One plane pair at `meta` and `data` in a buffer ending at `end`, decoded
// as `width` x `height` of an `alignedWidth` x `alignedHeight` surface into
// `out` with row pitch `stride`.
inline ZpakConfig PlaneConfig(uint64_t surfaceFormat, uint8_t* meta, uint8_t* data, uint8_t* end,
                              uint8_t* out, uint64_t alignedWidth, uint64_t alignedHeight,
                              uint64_t width, uint64_t height, uint64_t stride) {
  ZpakConfig c{};
  c.yMetaPlane = meta, c.yDataPlane = data, c.compressedEnd = end, c.linearY = out;
  c.alignedWidth = alignedWidth, c.alignedHeight = alignedHeight;
  c.width = width, c.height = height, c.stride = stride, c.surfaceFormat = surfaceFormat;
  SetCommandAddressing(&c);
  c.enable = 1;
  return c;
}

// A frame as the decode commands lay it out for geometry `g`: metadata then
// data plane of each plane from `compressed` (g.frameSize bytes), the image
// at `linear` with the data plane's stride. NV12 is decoded to `width` x
// `height`; RGBA8888 and RGB565 whole, as the encoders take them too.
inline ZpakConfig FrameConfig(PlaneFormat f, const PlaneGeometry& g, int32_t width, int32_t height,
                              uint8_t* compressed, uint8_t* linear) {
  ZpakConfig c{};
  c.yMetaPlane = compressed;
  c.yDataPlane = compressed + g.yMetaBufSize;
  c.uvMetaPlane = c.yDataPlane + g.yDataBufSize;
  c.uvDataOffset = g.yDataBufSize + (f == PlaneFormat::kNv12 ? g.uvMetaBufSize : 0);
  c.linearY = linear;
  c.stride = c.alignedWidth = g.yStride;
  c.alignedHeight = g.yBufLength;
  if (f == PlaneFormat::kNv12) {
    c.width = static_cast<uint64_t>(width), c.height = static_cast<uint64_t>(height);
    c.surfaceFormat = kSurfaceNv12;
  } else {
    c.width = c.alignedWidth = g.yStride / (f == PlaneFormat::kRgb565 ? 2 : 4);
    c.height = g.yBufLength;
    c.surfaceFormat = f == PlaneFormat::kRgb565 ? kSurfaceRgb565 : kSurfaceRgba8888;
  }
  SetCommandAddressing(&c);
  c.enable = 1;
  c.compressedEnd = compressed + g.frameSize;
  return c;
}

// The descriptor of commands N (nv12) and H for the encode geometry `g`: the
// planes in `compressed` (g.bufferSize bytes), the aligned linear Y, U, V or
// RGBA8888 image in `staging`.
inline ZpakConfig EncodeConfig(const EncodeGeometryT<uint32_t>& g, bool nv12, uint8_t* compressed,
                               uint8_t* staging) {
  ZpakConfig c{};
  c.yMetaPlane = compressed;
  c.yDataPlane = compressed + g.yDataOffset;
  c.uvMetaPlane = c.yDataPlane + g.yDataSize;
  c.uvDataPlane = c.uvMetaPlane + g.uvMetaOffset;
  c.linearY = staging;
  c.linearUv = staging + g.yDataSize;
  c.width = c.alignedWidth = nv12 ? g.linearStride : g.yStride / 4;
  c.height = c.alignedHeight = nv12 ? g.linearScanlines : g.yScanlines;
  c.surfaceFormat = nv12 ? kSurfaceNv12 : kSurfaceRgba8888;
  SetCommandAddressing(&c);
  c.compressedEnd = compressed + g.bufferSize;
  return c;
}

// The frame decoder of the descriptor's surface format, with a table of tile
// kernels or (null) the general tile decoder.
inline uint64_t RunDecoder(ZpakContext* context, const ZpakConfig& c,
                           const TileDecodeKernels* kernels = &ActiveTileDecodeKernels()) {
  return c.surfaceFormat == kSurfaceRgb565 ? DecodeZpakFrameRgb565WithKernels(context, &c, kernels)
                                           : DecodeZpakFrameWithKernels(context, &c, kernels);
}

inline uint64_t RunEncoder(ZpakContext* context, const ZpakConfig& c) {
  return c.surfaceFormat == kSurfaceRgb565 ? EncodeZpakFrameRgb565(context, &c)
                                           : EncodeZpakFrame(context, &c);
}

// The general decoder (null) and the table of every kernel set this
// processor runs, each distinct table once.
inline std::vector<const TileDecodeKernels*> AllTileKernels() {
  std::vector<const TileDecodeKernels*> kernels{nullptr};
  for (const KernelSet& set : RunnableKernelSets()) {
    const TileDecodeKernels* k = &TileDecodeKernelsFor(set.features);
    if (std::find(kernels.begin(), kernels.end(), k) == kernels.end()) kernels.push_back(k);
  }
  return kernels;
}

inline std::string KernelName(const TileDecodeKernels* kernels) {
  return kernels != nullptr ? kernels->name : "general";
}

}  // namespace pelcast::testing
