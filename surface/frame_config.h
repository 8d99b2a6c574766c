// The frame descriptors the commands hand to the frame codecs. The inspector
// and the benchmarks fill theirs here as well, so they drive the codecs with
// exactly the settings and plane layout the commands use.
#pragma once

#include <cstdint>

#include "surface/plane_geometry.h"
#include "surface/zpak_context.h"

namespace pelcast {

// The context format the decode commands configure for `format`.
uint64_t ContextFormatOf(PlaneFormat format);

// A descriptor holding only the addressing settings the decode commands give
// a frame of `format`: surface format, swizzle and bank bit. Every other field
// is zero.
ZpakConfig DecodeAddressing(PlaneFormat format);

// The descriptor of the decode commands for one frame of `format`: the planes
// of the compressed frame at `frame` (geometry.frameSize bytes) in the order
// Y metadata, Y data, UV metadata, UV data, decoded into `output`. NV12
// decodes width x height pixels; RGBA8888 and RGB565 decode the whole aligned
// surface. Every field the commands leave unset is zero.
void FillDecodeConfig(ZpakConfig* config, PlaneFormat format, const PlaneGeometry& geometry,
                      int32_t width, int32_t height, uint8_t* frame, uint8_t* output);

// The descriptor of the encode commands for one frame of `surfaceFormat`
// (kSurfaceNv12, kSurfaceRgba8888 or kSurfaceRgb565) laid out as `info` says:
// the planes in `compressed` (info.bufferSize bytes) in the order Y metadata,
// Y data, UV metadata, UV data; the linear image in `staging`, NV12 with its
// chroma after info.yDataSize bytes of luma. Every field the commands leave
// unset is zero.
void FillEncodeConfig(ZpakConfig* config, uint64_t surfaceFormat, const ZpakInfo& info,
                      uint8_t* compressed, uint8_t* staging);

}  // namespace pelcast
