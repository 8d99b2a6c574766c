#include "web/viewer_core.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "tools/zpak/formats.h"

namespace pelcast::web {
namespace {

constexpr uint32_t kRgbaBytes = 4;
constexpr uint8_t kOpaque = 255;

// RGB565 fields.
constexpr uint32_t kRedShift = 11;
constexpr uint32_t kGreenShift = 5;
constexpr uint32_t kMask5 = 0x1F;
constexpr uint32_t kMask6 = 0x3F;

void AppendNumber(std::string* out, uint64_t value) { *out += std::to_string(value); }

void AppendDouble(std::string* out, double value, int decimals) {
  char text[48];
  std::snprintf(text, sizeof text, "%.*f", decimals, value);
  *out += text;
}

void AppendPlaneStats(std::string* out, const char* name, const pelcast_plane_stats& s) {
  constexpr int kRatioDecimals = 4;
  *out += "{\"plane\": \"";
  *out += name;
  *out += "\", \"tiles\": ";
  AppendNumber(out, s.tiles);
  *out += ", \"units\": ";
  AppendNumber(out, s.units);
  *out += ", \"raw_units\": ";
  AppendNumber(out, s.raw_units);
  *out += ", \"ratio\": ";
  AppendDouble(out, s.raw_units == 0 ? 0.0 : static_cast<double>(s.units) / s.raw_units,
               kRatioDecimals);
  *out += ", \"by_units\": [";
  for (int units = 1; units <= 3; ++units) {
    if (units > 1) *out += ", ";
    AppendNumber(out, s.tiles_by_units[units]);
  }
  *out += "], \"raw\": ";
  AppendNumber(out, s.raw_tiles);
  *out += ", \"bad_metadata\": ";
  AppendNumber(out, s.bad_metadata_tiles);
  *out += ", \"overrun\": ";
  AppendNumber(out, s.overrun_tiles);
  *out += "}";
}

void AppendPlaneDifference(std::string* out, const zpak::PlaneDifference& p, size_t maxTiles) {
  constexpr int kPsnrDecimals = 2;
  *out += "{\"plane\": \"";
  *out += p.name;
  *out += "\", \"differing_tiles\": ";
  AppendNumber(out, p.differingTiles);
  *out += ", \"differing_samples\": ";
  AppendNumber(out, p.differingSamples);
  *out += ", \"max_abs_diff\": ";
  AppendNumber(out, p.maxAbsDiff);
  *out += ", \"psnr\": ";
  const double psnr = p.Psnr();
  if (std::isinf(psnr)) {
    *out += "null";
  } else {
    AppendDouble(out, psnr, kPsnrDecimals);
  }
  const size_t listed = std::min(maxTiles, p.tiles.size());
  *out += ", \"tiles_listed\": ";
  AppendNumber(out, listed);
  *out += ", \"tiles\": [";
  for (size_t t = 0; t < listed; ++t) {
    *out += t == 0 ? "[" : ", [";
    AppendNumber(out, p.tiles[t] % p.tileColumns);
    *out += ", ";
    AppendNumber(out, p.tiles[t] / p.tileColumns);
    *out += "]";
  }
  *out += "]}";
}

}  // namespace

uint32_t SamplesAt(pelcast_format format, uint32_t width, uint32_t height, const uint8_t* packed,
                   uint32_t x, uint32_t y, uint32_t out[4]) {
  if (x >= width || y >= height) return 0;
  const size_t pixel = size_t{y} * width + x;
  switch (format) {
    case PELCAST_FORMAT_NV12: {
      const size_t chromaStride = (size_t{width} + 1) & ~size_t{1};
      const uint8_t* pair =
          packed + size_t{width} * height + size_t{y / 2} * chromaStride + size_t{x / 2} * 2;
      out[0] = packed[pixel];
      out[1] = pair[0];
      out[2] = pair[1];
      return 3;
    }
    case PELCAST_FORMAT_RGBA8888:
      std::copy_n(packed + pixel * kRgbaBytes, kRgbaBytes, out);
      return 4;
    case PELCAST_FORMAT_RGB565: {
      const uint32_t word = packed[pixel * 2] | uint32_t{packed[pixel * 2 + 1]} << 8;
      out[0] = word >> kRedShift;
      out[1] = (word >> kGreenShift) & kMask6;
      out[2] = word & kMask5;
      return 3;
    }
    default:
      return 0;
  }
}

void RasterToRgba(const zpak::Raster& raster, bool opaque, uint8_t* out) {
  const size_t pixels = size_t{raster.width} * raster.height;
  const uint8_t* in = raster.samples.data();
  const uint32_t channels = raster.channels;
  for (size_t i = 0; i < pixels; ++i, in += channels, out += kRgbaBytes) {
    out[0] = in[0];
    out[1] = in[1];
    out[2] = in[2];
    out[3] = channels == kRgbaBytes && !opaque ? in[3] : kOpaque;
  }
}

std::string PlaneStatsJson(pelcast_format format, const pelcast_plane_stats* stats,
                           uint32_t planes) {
  std::string out = "[";
  for (uint32_t p = 0; p < planes; ++p) {
    if (p > 0) out += ", ";
    AppendPlaneStats(&out, zpak::PlaneName(format, p), stats[p]);
  }
  return out + "]";
}

std::string CompareJson(const zpak::FrameDifference& difference, size_t maxTiles) {
  std::string out = difference.Identical() ? "{\"identical\": true, \"planes\": ["
                                           : "{\"identical\": false, \"planes\": [";
  for (size_t i = 0; i < difference.planes.size(); ++i) {
    if (i > 0) out += ", ";
    AppendPlaneDifference(&out, difference.planes[i], maxTiles);
  }
  return out + "]}";
}

}  // namespace pelcast::web
