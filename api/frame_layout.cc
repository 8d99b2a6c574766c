#include "api/frame_layout.h"

#include "surface/frame_config.h"
#include "surface/tile_band.h"
#include "surface/tile_format.h"

namespace pelcast::api {
namespace {

constexpr uint64_t kRgbaPixelBytes = 4;
constexpr uint64_t kRgb565PixelBytes = 2;
constexpr uint64_t kNv12TileRows = 8;  // linear rows of an NV12 tile row (luma and chroma)
constexpr uint64_t kRgbTileRows = 4;   // of an RGBA8888 or RGB565 tile row
// An RGB565 row stride keeps 4 x (width / 2) bytes aligned to 256, i.e. 128
// pixels at a time: a width one past a multiple of 128 loses its last column.
constexpr uint32_t kRgb565StridePixels = 128;

bool KnownFormat(pelcast_format format) {
  return format == PELCAST_FORMAT_NV12 || format == PELCAST_FORMAT_RGBA8888 ||
         format == PELCAST_FORMAT_RGB565;
}

PlaneFormat PlaneFormatOf(pelcast_format format) {
  switch (format) {
    case PELCAST_FORMAT_NV12:
      return PlaneFormat::kNv12;
    case PELCAST_FORMAT_RGBA8888:
      return PlaneFormat::kRgba8888;
    default:
      return PlaneFormat::kRgb565;
  }
}

uint64_t ChromaRowBytes(uint64_t width) { return 2 * ((width + 1) / 2); }

ExactInt ExactLinearBytes(pelcast_format format, uint32_t width, uint32_t height) {
  const ExactInt w = width;
  const ExactInt h = height;
  switch (format) {
    case PELCAST_FORMAT_NV12:
      return w * h + ((h + 1) / 2) * (2 * ((w + 1) / 2));
    case PELCAST_FORMAT_RGBA8888:
      return kRgbaPixelBytes * w * h;
    default:
      return kRgb565PixelBytes * w * h;
  }
}

// The staging layout of command N or H; RGB565, which has no encode
// command, is staged as command B's decoded surface: one data plane at the
// decode stride after the metadata plane.
uint64_t ComputeStaging(const FrameLayout& layout, ZpakInfo* info) {
  *info = ZpakInfo{};
  switch (layout.format) {
    case PELCAST_FORMAT_NV12:
      return ComputeZpakInfo(info, layout.width, layout.height, kPrepareNv12);
    case PELCAST_FORMAT_RGBA8888:
      return ComputeZpakInfo(info, layout.width, layout.height, kPrepareRgba8888);
    default: {
      const PlaneGeometry& g = layout.geometry;
      info->yStride = g.yStride;
      info->yScanlines = g.yBufLength;
      info->yDataOffset = g.yMetaBufSize;
      info->yDataSize = g.yDataBufSize;
      info->bufferSize = g.frameSize;
      return g.yDataBufSize;
    }
  }
}

}  // namespace

pelcast_status CheckFrameSize(pelcast_format format, uint32_t width, uint32_t height) {
  if (!KnownFormat(format) || width == 0 || height == 0) return PELCAST_ERROR_INVALID_ARGUMENT;
  if (width > INT32_MAX || height > INT32_MAX) return PELCAST_ERROR_SIZE_LIMIT;
  const PlaneFormat planeFormat = PlaneFormatOf(format);
  const auto w = static_cast<int32_t>(width);
  const auto h = static_cast<int32_t>(height);
  if (DecodeSizeProblem(planeFormat, w, h) != nullptr) return PELCAST_ERROR_SIZE_LIMIT;
  if (format != PELCAST_FORMAT_RGB565) {
    const uint32_t prepare = format == PELCAST_FORMAT_NV12 ? kPrepareNv12 : kPrepareRgba8888;
    if (EncodeSizeProblem(prepare, w, h) != nullptr) return PELCAST_ERROR_SIZE_LIMIT;
  }
  if (ExactLinearBytes(format, width, height) >= kMaxBufferBytes) return PELCAST_ERROR_SIZE_LIMIT;
  if (format == PELCAST_FORMAT_RGB565 && width % kRgb565StridePixels == 1) {
    return PELCAST_ERROR_UNSUPPORTED_SIZE;
  }
  return PELCAST_OK;
}

FrameLayout MakeFrameLayout(pelcast_format format, uint32_t width, uint32_t height) {
  FrameLayout layout{};
  layout.format = format;
  layout.planeFormat = PlaneFormatOf(format);
  layout.width = width;
  layout.height = height;
  layout.geometry = ComputePlaneGeometry(layout.planeFormat, static_cast<int32_t>(width),
                                         static_cast<int32_t>(height));
  layout.stagingBytes = ComputeStaging(layout, &layout.encodeInfo);
  layout.linearBytes = static_cast<uint64_t>(ExactLinearBytes(format, width, height));
  return layout;
}

uint32_t LinearPlaneCount(pelcast_format format) {
  if (!KnownFormat(format)) return 0;
  return format == PELCAST_FORMAT_NV12 ? 2 : 1;
}

LinearPlane LinearPlaneOf(const FrameLayout& layout, uint32_t plane) {
  const uint64_t w = layout.width;
  const uint64_t h = layout.height;
  switch (layout.format) {
    case PELCAST_FORMAT_NV12:
      return plane == 0 ? LinearPlane{h, w} : LinearPlane{(h + 1) / 2, ChromaRowBytes(w)};
    case PELCAST_FORMAT_RGBA8888:
      return LinearPlane{h, kRgbaPixelBytes * w};
    default:
      return LinearPlane{h, kRgb565PixelBytes * w};
  }
}

pelcast_status CheckImage(const FrameLayout& layout, const pelcast_image* image) {
  if (image == nullptr || image->format != layout.format || image->width != layout.width ||
      image->height != layout.height) {
    return PELCAST_ERROR_INVALID_ARGUMENT;
  }
  for (uint32_t p = 0; p < LinearPlaneCount(layout.format); ++p) {
    const LinearPlane plane = LinearPlaneOf(layout, p);
    const size_t stride = image->strides[p];
    if (image->planes[p] == nullptr || stride < plane.rowBytes) {
      return PELCAST_ERROR_INVALID_ARGUMENT;
    }
    const ExactInt needed = ExactInt{plane.rows - 1} * stride + plane.rowBytes;
    if (needed > image->sizes[p]) return PELCAST_ERROR_BUFFER_TOO_SMALL;
  }
  return PELCAST_OK;
}

uint32_t BandPlanes(const FrameLayout& layout, BandPlane planes[kMaxLinearPlanes]) {
  const uint64_t w = layout.width;
  const uint64_t h = layout.height;
  const PlaneGeometry& g = layout.geometry;
  switch (layout.format) {
    case PELCAST_FORMAT_NV12: {
      const uint64_t lumaRows = CeilDiv(h, kNv12TileRows);
      const uint64_t encodeLumaRows = CeilDiv(layout.encodeInfo.linearScanlines, kNv12TileRows);
      planes[0] = BandPlane{kLumaPlane, 0, lumaRows, encodeLumaRows, kNv12TileRows, w,
                            LinearPlaneOf(layout, 0)};
      planes[1] = BandPlane{kChromaPlane, 1, (lumaRows + 1) / 2, (encodeLumaRows + 1) / 2,
                            kNv12TileRows, ChromaRowBytes(w), LinearPlaneOf(layout, 1)};
      return 2;
    }
    default:
      planes[0] = BandPlane{kLumaPlane, 0, CeilDiv(h, kRgbTileRows),
                            CeilDiv(layout.encodeInfo.yScanlines, kRgbTileRows), kRgbTileRows,
                            g.yStride, LinearPlaneOf(layout, 0)};
      return 1;
  }
}

ZpakConfig DecodeConfigOf(const FrameLayout& layout, const uint8_t* zpak, uint8_t* output) {
  ZpakConfig config;
  // The decoders only read the compressed planes.
  FillDecodeConfig(&config, layout.planeFormat, layout.geometry,
                   static_cast<int32_t>(layout.width), static_cast<int32_t>(layout.height),
                   const_cast<uint8_t*>(zpak), output);
  return config;
}

ZpakConfig EncodeConfigOf(const FrameLayout& layout, uint8_t* staging, uint8_t* zpak) {
  const uint64_t surface = layout.format == PELCAST_FORMAT_NV12       ? kSurfaceNv12
                           : layout.format == PELCAST_FORMAT_RGBA8888 ? kSurfaceRgba8888
                                                                      : kSurfaceRgb565;
  ZpakConfig config;
  FillEncodeConfig(&config, surface, layout.encodeInfo, zpak, staging);
  // The whole decode-side frame: for NV12 heights of 64k + 1 the encode
  // commands' chroma data plane is shorter than the chroma rows need.
  config.compressedEnd = zpak + layout.geometry.frameSize;
  return config;
}

}  // namespace pelcast::api
