// A run of tile rows of one plane: the unit of work of the band-wise frame
// decoders and encoders, which let a frame be decoded into a small buffer
// piece by piece or split over threads.
#pragma once

#include <algorithm>
#include <cstdint>

namespace pelcast {

// Planes of a band: the frame's only plane (RGBA8888, RGB565) or NV12 luma,
// NV12 chroma, or every plane as the whole-frame codecs do.
inline constexpr uint64_t kLumaPlane = 0;
inline constexpr uint64_t kChromaPlane = 1;
inline constexpr uint64_t kWholeFrame = 2;

// A run of tile rows of one plane (rows past the plane's last are ignored).
struct TileRowBand {
  uint64_t plane;
  uint64_t firstTileRow;
  uint64_t tileRowCount;
};

// The band's tile rows within a plane of `tileRows` tile rows.
struct BandRows {
  uint64_t first;
  uint64_t end;
};

inline BandRows ClampBand(const TileRowBand& band, uint64_t tileRows) {
  const uint64_t first = std::min(band.firstTileRow, tileRows);
  return BandRows{first, first + std::min(band.tileRowCount, tileRows - first)};
}

// The rows of `plane` that `band` covers: all of them for a whole-frame
// band, none for a band of another plane.
inline BandRows RowsOfPlane(const TileRowBand& band, uint64_t plane, uint64_t tileRows) {
  if (band.plane == kWholeFrame) return BandRows{0, tileRows};
  if (band.plane != plane) return BandRows{0, 0};
  return ClampBand(band, tileRows);
}

}  // namespace pelcast
