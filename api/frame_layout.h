// What the public calls know of one frame format and size: the ZPAK frame's
// plane geometry as the commands lay it out, the packed and strided linear
// layouts, and how a frame is cut into bands of tile rows for the band-wise
// decoders and encoders.
#pragma once

#include <cstdint>

#include "pelcast/pelcast.h"
#include "surface/plane_geometry.h"
#include "surface/zpak_context.h"

namespace pelcast::api {

inline constexpr uint32_t kMaxLinearPlanes = 2;

struct FrameLayout {
  pelcast_format format;
  PlaneFormat planeFormat;
  uint32_t width;
  uint32_t height;
  PlaneGeometry geometry;  // the decode commands' geometry; its frameSize is the ZPAK frame
  ZpakInfo encodeInfo;     // the staging layout the encode commands give the encoder
  uint64_t stagingBytes;
  uint64_t linearBytes;    // the packed linear frame
};

// Whether frames of `format` at width x height can be decoded and encoded:
// PELCAST_OK, or why not.
pelcast_status CheckFrameSize(pelcast_format format, uint32_t width, uint32_t height);

// Fills `layout`; the size must have passed CheckFrameSize.
FrameLayout MakeFrameLayout(pelcast_format format, uint32_t width, uint32_t height);

// A plane of the linear image: rows and the bytes of one row.
struct LinearPlane {
  uint64_t rows;
  uint64_t rowBytes;
};

uint32_t LinearPlaneCount(pelcast_format format);
LinearPlane LinearPlaneOf(const FrameLayout& layout, uint32_t plane);

// PELCAST_OK when `image` is of the layout's format and size and every plane
// holds its rows at its stride; otherwise the error to report.
pelcast_status CheckImage(const FrameLayout& layout, const pelcast_image* image);

// How a band-wise decoder or encoder walks one plane of the frame.
struct BandPlane {
  uint64_t plane;        // kLumaPlane or kChromaPlane
  uint32_t imagePlane;   // the linear plane it fills or reads
  uint64_t tileRows;        // tile rows over the image (what decoding walks)
  uint64_t encodeTileRows;  // tile rows the encoder stores (over the aligned plane)
  uint64_t rowsPerTile;     // linear rows of a tile row
  uint64_t pitch;        // bytes between rows of a decoded band
  LinearPlane linear;
};

// The planes a frame is walked in, in order (one or two).
uint32_t BandPlanes(const FrameLayout& layout, BandPlane planes[kMaxLinearPlanes]);

// The decode commands' descriptor for a frame at `zpak`, decoding into
// `output`.
ZpakConfig DecodeConfigOf(const FrameLayout& layout, const uint8_t* zpak, uint8_t* output);

// The encode commands' descriptor for the staged image at `staging`,
// encoding into the frame at `zpak` (the decode-side frame size).
ZpakConfig EncodeConfigOf(const FrameLayout& layout, uint8_t* staging, uint8_t* zpak);

}  // namespace pelcast::api
