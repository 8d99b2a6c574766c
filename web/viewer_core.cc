#include "web/viewer_core.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <limits>

namespace pelcast::web {
namespace {

constexpr uint32_t kRgbaBytes = 4;
constexpr uint8_t kOpaque = 255;

// RGB565 fields.
constexpr uint32_t kRedShift = 11;
constexpr uint32_t kGreenShift = 5;
constexpr uint32_t kMask5 = 0x1F;
constexpr uint32_t kMask6 = 0x3F;

// Widens a 5- or 6-bit field to 8 bits by repeating its top bits.
uint8_t Expand5(uint32_t v) { return static_cast<uint8_t>((v << 3) | (v >> 2)); }
uint8_t Expand6(uint32_t v) { return static_cast<uint8_t>((v << 2) | (v >> 4)); }

uint32_t Rgb565Word(const uint8_t* e) { return e[0] | uint32_t{e[1]} << 8; }

// Limited-range YCbCr to RGB in 16-bit fixed point: the luma scale and the
// chroma weights of red (V), green (U and V) and blue (U).
struct YuvWeights {
  int32_t luma, redV, greenU, greenV, blueU;
};
constexpr int32_t kFixedShift = 16;
constexpr int32_t kFixedHalf = 1 << (kFixedShift - 1);
constexpr YuvWeights kBt709Weights = {76309, 117489, 13975, 34925, 138438};
constexpr YuvWeights kBt601Weights = {76309, 104597, 25675, 53279, 132201};
constexpr int32_t kLumaBlack = 16;
constexpr int32_t kChromaZero = 128;

uint8_t ClampToByte(int32_t fixed) {
  return static_cast<uint8_t>(std::clamp((fixed + kFixedHalf) >> kFixedShift, 0, 255));
}

void YuvToRgba(const YuvWeights& w, int32_t y, int32_t u, int32_t v, uint8_t* out) {
  const int32_t luma = w.luma * (y - kLumaBlack);
  const int32_t cb = u - kChromaZero, cr = v - kChromaZero;
  out[0] = ClampToByte(luma + w.redV * cr);
  out[1] = ClampToByte(luma - w.greenU * cb - w.greenV * cr);
  out[2] = ClampToByte(luma + w.blueU * cb);
  out[3] = kOpaque;
}

void Nv12ToRgba(uint32_t width, uint32_t height, const uint8_t* packed, YuvMatrix matrix,
                uint8_t* rgba) {
  const YuvWeights& w = matrix == YuvMatrix::kBt601 ? kBt601Weights : kBt709Weights;
  const size_t chromaStride = (size_t{width} + 1) & ~size_t{1};
  const uint8_t* chroma = packed + size_t{width} * height;
  for (uint32_t y = 0; y < height; ++y) {
    const uint8_t* luma = packed + size_t{y} * width;
    const uint8_t* pairs = chroma + size_t{y / 2} * chromaStride;
    uint8_t* out = rgba + size_t{y} * width * kRgbaBytes;
    for (uint32_t x = 0; x < width; ++x, out += kRgbaBytes) {
      const uint8_t* pair = pairs + size_t{x / 2} * 2;
      YuvToRgba(w, luma[x], pair[0], pair[1], out);
    }
  }
}

void Rgb565ToRgba(size_t pixels, const uint8_t* packed, uint8_t* rgba) {
  for (size_t i = 0; i < pixels; ++i, packed += 2, rgba += kRgbaBytes) {
    const uint32_t word = Rgb565Word(packed);
    rgba[0] = Expand5(word >> kRedShift);
    rgba[1] = Expand6((word >> kGreenShift) & kMask6);
    rgba[2] = Expand5(word & kMask5);
    rgba[3] = kOpaque;
  }
}

// --- the cost map and the difference picture ------------------------------------

// The frame's grey level is halved, then a tint is mixed in half and half
// (the inspector's weights).
constexpr uint32_t kDimNumerator = 1;
constexpr uint32_t kDimDenominator = 2;
constexpr uint32_t kTintWeight = 4;
constexpr uint32_t kMixDenominator = 8;

uint32_t Grey(const uint8_t* rgb) {
  constexpr uint32_t kRedWeight = 77, kGreenWeight = 150, kBlueWeight = 29;  // sum 256
  constexpr uint32_t kWeightShift = 8;
  return (kRedWeight * rgb[0] + kGreenWeight * rgb[1] + kBlueWeight * rgb[2]) >> kWeightShift;
}

uint32_t DimmedGrey(const uint8_t* rgb) { return Grey(rgb) * kDimNumerator / kDimDenominator; }

uint8_t Mix(uint32_t dimmed, uint8_t tint) {
  return static_cast<uint8_t>(
      (dimmed * (kMixDenominator - kTintWeight) + tint * kTintWeight + kMixDenominator / 2) /
      kMixDenominator);
}

void PutRgb(uint8_t* out, uint8_t r, uint8_t g, uint8_t b) {
  out[0] = r;
  out[1] = g;
  out[2] = b;
  out[3] = kOpaque;
}

// The 8-bit components of element `x` of a row: 1 for luma, 2 for a U,V
// pair, 4 for RGBA8888, 3 for an RGB565 pixel (its fields widened).
uint32_t Components(pelcast_format format, uint32_t plane) {
  if (format == PELCAST_FORMAT_NV12) return plane == PELCAST_PLANE_Y ? 1 : 2;
  return format == PELCAST_FORMAT_RGBA8888 ? 4 : 3;
}

void ComponentsOf(pelcast_format format, const PlaneView& v, const uint8_t* row, uint32_t x,
                  uint8_t* out) {
  const uint8_t* e = row + size_t{x} * v.elementBytes;
  if (format != PELCAST_FORMAT_RGB565) {
    std::copy_n(e, v.elementBytes, out);
    return;
  }
  const uint32_t word = Rgb565Word(e);
  out[0] = Expand5(word >> kRedShift);
  out[1] = Expand6((word >> kGreenShift) & kMask6);
  out[2] = Expand5(word & kMask5);
}

// Largest absolute difference of the components of element (x, y).
uint32_t ElementDifference(pelcast_format format, const PlaneView& v, const uint8_t* a,
                           const uint8_t* b, uint32_t x, uint32_t y) {
  uint8_t ca[4], cb[4];
  const size_t row = v.offset + size_t{y} * v.stride;
  ComponentsOf(format, v, a + row, x, ca);
  ComponentsOf(format, v, b + row, x, cb);
  uint32_t largest = 0;
  for (uint32_t k = 0; k < Components(format, v.plane); ++k) {
    largest = std::max<uint32_t>(largest, static_cast<uint32_t>(std::abs(ca[k] - cb[k])));
  }
  return largest;
}

void ComparePlane(pelcast_format format, const PlaneView& v, const uint8_t* a, const uint8_t* b,
                  PlaneDifference* d) {
  const uint32_t components = Components(format, v.plane);
  std::vector<bool> tileDiffers(size_t{v.tileColumns} * v.tileRows, false);
  d->name = v.name;
  d->tileColumns = v.tileColumns;
  d->samples = uint64_t{v.width} * v.height * components;
  for (uint32_t y = 0; y < v.height; ++y) {
    const size_t row = v.offset + size_t{y} * v.stride;
    for (uint32_t x = 0; x < v.width; ++x) {
      uint8_t ca[4], cb[4];
      ComponentsOf(format, v, a + row, x, ca);
      ComponentsOf(format, v, b + row, x, cb);
      bool differs = false;
      for (uint32_t k = 0; k < components; ++k) {
        const int diff = ca[k] - cb[k];
        if (diff == 0) continue;
        differs = true;
        ++d->differingSamples;
        d->maxAbsDiff = std::max<uint32_t>(d->maxAbsDiff, static_cast<uint32_t>(std::abs(diff)));
        d->squaredError += static_cast<double>(diff) * diff;
      }
      if (differs) tileDiffers[size_t{y / v.tileHeight} * v.tileColumns + x / v.tileWidth] = true;
    }
  }
  for (size_t t = 0; t < tileDiffers.size(); ++t) {
    if (tileDiffers[t]) d->tiles.push_back(static_cast<uint32_t>(t));
  }
  d->differingTiles = d->tiles.size();
}

constexpr Rgb kOutline = {230, 0, 230};
constexpr uint32_t kFullHeatDifference = 64;

void FillRect(uint8_t* rgba, uint32_t width, uint32_t height, uint32_t x0, uint32_t y0, uint32_t w,
              uint32_t h, Rgb colour) {
  const uint32_t x1 = std::min(width, x0 + w), y1 = std::min(height, y0 + h);
  for (uint32_t y = y0; y < y1; ++y) {
    for (uint32_t x = x0; x < x1; ++x) {
      PutRgb(rgba + (size_t{y} * width + x) * kRgbaBytes, colour.r, colour.g, colour.b);
    }
  }
}

void OutlineTile(uint8_t* rgba, uint32_t width, uint32_t height, uint32_t x0, uint32_t y0,
                 uint32_t w, uint32_t h) {
  FillRect(rgba, width, height, x0, y0, w, 1, kOutline);
  FillRect(rgba, width, height, x0, y0 + h - 1, w, 1, kOutline);
  FillRect(rgba, width, height, x0, y0, 1, h, kOutline);
  FillRect(rgba, width, height, x0 + w - 1, y0, 1, h, kOutline);
}

// How much picture pixel (x, y) differs: the largest of its elements'
// differences in every plane.
uint32_t PixelDifference(pelcast_format format, const std::vector<PlaneView>& planes,
                         const uint8_t* a, const uint8_t* b, uint32_t x, uint32_t y) {
  uint32_t largest = 0;
  for (const PlaneView& v : planes) {
    largest =
        std::max(largest, ElementDifference(format, v, a, b, x / v.pixelScale, y / v.pixelScale));
  }
  return largest;
}

void AppendNumber(std::string* out, uint64_t value) { *out += std::to_string(value); }

void AppendDouble(std::string* out, double value, int decimals) {
  char text[48];
  std::snprintf(text, sizeof text, "%.*f", decimals, value);
  *out += text;
}

}  // namespace

std::vector<PlaneView> PackedPlanes(pelcast_format format, uint32_t width, uint32_t height) {
  std::vector<PlaneView> planes;
  if (pelcast_linear_frame_size(format, width, height) == 0) return planes;
  size_t offset = 0;
  for (uint32_t p = 0; p < pelcast_plane_count(format); ++p) {
    pelcast_tile_grid grid{};
    if (pelcast_tile_grid_of(format, width, height, p, &grid) != PELCAST_OK) return {};
    PlaneView v{};
    v.plane = p;
    v.offset = offset;
    v.pixelScale = 1;
    if (format == PELCAST_FORMAT_NV12 && p == PELCAST_PLANE_UV) {
      v.name = "uv";
      v.pixelScale = 2;
      v.elementBytes = 2;
      v.width = (width + 1) / 2;
      v.height = (height + 1) / 2;
    } else if (format == PELCAST_FORMAT_NV12) {
      v.name = "y";
      v.elementBytes = 1;
    } else {
      v.name = format == PELCAST_FORMAT_RGBA8888 ? "rgba" : "rgb565";
      v.elementBytes = format == PELCAST_FORMAT_RGBA8888 ? 4 : 2;
    }
    if (v.pixelScale == 1) {
      v.width = width;
      v.height = height;
    }
    v.stride = size_t{v.width} * v.elementBytes;
    v.tileWidth = grid.tile_width / v.pixelScale;
    v.tileHeight = grid.tile_height / v.pixelScale;
    v.tileColumns = grid.columns;
    v.tileRows = grid.rows;
    offset += v.stride * v.height;
    planes.push_back(v);
  }
  return planes;
}

const char* FormatName(pelcast_format format) {
  switch (format) {
    case PELCAST_FORMAT_NV12:
      return "nv12";
    case PELCAST_FORMAT_RGBA8888:
      return "rgba8888";
    case PELCAST_FORMAT_RGB565:
      return "rgb565";
    default:
      return "?";
  }
}

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
      const uint32_t word = Rgb565Word(packed + pixel * 2);
      out[0] = word >> kRedShift;
      out[1] = (word >> kGreenShift) & kMask6;
      out[2] = word & kMask5;
      return 3;
    }
    default:
      return 0;
  }
}

void FrameToRgba(pelcast_format format, uint32_t width, uint32_t height, const uint8_t* packed,
                 YuvMatrix matrix, bool opaque, uint8_t* rgba) {
  const size_t pixels = size_t{width} * height;
  if (format == PELCAST_FORMAT_NV12) {
    Nv12ToRgba(width, height, packed, matrix, rgba);
  } else if (format == PELCAST_FORMAT_RGB565) {
    Rgb565ToRgba(pixels, packed, rgba);
  } else if (format == PELCAST_FORMAT_RGBA8888) {
    std::copy_n(packed, pixels * kRgbaBytes, rgba);
    if (!opaque) return;
    for (size_t i = 0; i < pixels; ++i) rgba[i * kRgbaBytes + 3] = kOpaque;
  }
}

TileClass ClassOfTile(const pelcast_tile_info& tile) {
  if ((tile.flags & PELCAST_TILE_BAD_METADATA) != 0) return kBadMetadata;
  if ((tile.flags & PELCAST_TILE_RAW) != 0) return kRawTile;
  if ((tile.flags & PELCAST_TILE_OVERRUN) != 0) return kOverrun;
  return static_cast<TileClass>(kOneUnit + std::clamp<int>(tile.units, 1, 4) - 1);
}

void DrawCostMap(const uint8_t* picture, uint32_t width, uint32_t height,
                 const pelcast_tile_grid& grid, const pelcast_tile_info* tiles, uint8_t* out) {
  for (uint32_t y = 0; y < height; ++y) {
    const uint32_t tileRow = y / grid.tile_height;
    const size_t rowStart = size_t{y} * width * kRgbaBytes;
    for (uint32_t x = 0; x < width; ++x) {
      const uint8_t* src = picture + rowStart + size_t{x} * kRgbaBytes;
      uint8_t* dst = out + rowStart + size_t{x} * kRgbaBytes;
      const uint32_t tileColumn = x / grid.tile_width;
      const auto dimmed = static_cast<uint8_t>(DimmedGrey(src));
      if (tileRow >= grid.rows || tileColumn >= grid.columns) {
        PutRgb(dst, dimmed, dimmed, dimmed);
        continue;
      }
      const Rgb tint =
          kClassColours[ClassOfTile(tiles[size_t{tileRow} * grid.columns + tileColumn])];
      PutRgb(dst, Mix(dimmed, tint.r), Mix(dimmed, tint.g), Mix(dimmed, tint.b));
    }
  }
}

std::string PlaneStatsJson(pelcast_format format, const pelcast_plane_stats* stats,
                           uint32_t planes) {
  constexpr int kRatioDecimals = 4;
  const std::vector<PlaneView> views = PackedPlanes(format, 2, 2);
  std::string out = "[";
  for (uint32_t p = 0; p < planes; ++p) {
    const pelcast_plane_stats& s = stats[p];
    out += p == 0 ? "{\"plane\": \"" : ", {\"plane\": \"";
    out += p < views.size() ? views[p].name : "?";
    out += "\", \"tiles\": ";
    AppendNumber(&out, s.tiles);
    out += ", \"units\": ";
    AppendNumber(&out, s.units);
    out += ", \"raw_units\": ";
    AppendNumber(&out, s.raw_units);
    out += ", \"ratio\": ";
    AppendDouble(&out, s.raw_units == 0 ? 0.0 : static_cast<double>(s.units) / s.raw_units,
                 kRatioDecimals);
    out += ", \"by_units\": [";
    for (int units = 1; units <= 3; ++units) {
      if (units > 1) out += ", ";
      AppendNumber(&out, s.tiles_by_units[units]);
    }
    out += "], \"raw\": ";
    AppendNumber(&out, s.raw_tiles);
    out += ", \"bad_metadata\": ";
    AppendNumber(&out, s.bad_metadata_tiles);
    out += ", \"overrun\": ";
    AppendNumber(&out, s.overrun_tiles);
    out += "}";
  }
  return out + "]";
}

double Psnr(const PlaneDifference& plane) {
  constexpr double kPeak = 255.0;
  constexpr double kDecibels = 10.0;
  if (plane.squaredError == 0 || plane.samples == 0) {
    return std::numeric_limits<double>::infinity();
  }
  return kDecibels *
         std::log10(kPeak * kPeak * static_cast<double>(plane.samples) / plane.squaredError);
}

std::vector<PlaneDifference> CompareFrames(pelcast_format format, uint32_t width, uint32_t height,
                                           const uint8_t* a, const uint8_t* b) {
  std::vector<PlaneDifference> planes;
  for (const PlaneView& v : PackedPlanes(format, width, height)) {
    planes.emplace_back();
    ComparePlane(format, v, a, b, &planes.back());
  }
  return planes;
}

std::string CompareJson(const std::vector<PlaneDifference>& planes, size_t maxTiles) {
  constexpr int kPsnrDecimals = 2;
  const bool identical = std::all_of(planes.begin(), planes.end(), [](const PlaneDifference& p) {
    return p.differingSamples == 0;
  });
  std::string out =
      identical ? "{\"identical\": true, \"planes\": [" : "{\"identical\": false, \"planes\": [";
  for (size_t i = 0; i < planes.size(); ++i) {
    const PlaneDifference& p = planes[i];
    out += i == 0 ? "{\"plane\": \"" : ", {\"plane\": \"";
    out += p.name;
    out += "\", \"differing_tiles\": ";
    AppendNumber(&out, p.differingTiles);
    out += ", \"differing_samples\": ";
    AppendNumber(&out, p.differingSamples);
    out += ", \"max_abs_diff\": ";
    AppendNumber(&out, p.maxAbsDiff);
    out += ", \"psnr\": ";
    const double psnr = Psnr(p);
    if (std::isinf(psnr)) {
      out += "null";
    } else {
      AppendDouble(&out, psnr, kPsnrDecimals);
    }
    const size_t listed = std::min(maxTiles, p.tiles.size());
    out += ", \"tiles_listed\": ";
    AppendNumber(&out, listed);
    out += ", \"tiles\": [";
    for (size_t t = 0; t < listed; ++t) {
      out += t == 0 ? "[" : ", [";
      AppendNumber(&out, p.tiles[t] % p.tileColumns);
      out += ", ";
      AppendNumber(&out, p.tiles[t] / p.tileColumns);
      out += "]";
    }
    out += "]}";
  }
  return out + "]}";
}

void DrawDifference(pelcast_format format, uint32_t width, uint32_t height, const uint8_t* a,
                    const uint8_t* b, const uint8_t* pictureA, uint8_t* out) {
  const std::vector<PlaneView> planes = PackedPlanes(format, width, height);
  for (uint32_t y = 0; y < height; ++y) {
    for (uint32_t x = 0; x < width; ++x) {
      const size_t at = (size_t{y} * width + x) * kRgbaBytes;
      const uint32_t d = PixelDifference(format, planes, a, b, x, y);
      if (d == 0) {
        const auto grey = static_cast<uint8_t>(DimmedGrey(pictureA + at));
        PutRgb(out + at, grey, grey, grey);
        continue;
      }
      PutRgb(out + at, 255,
             static_cast<uint8_t>(std::min(d, kFullHeatDifference) * 255 / kFullHeatDifference), 0);
    }
  }
  const std::vector<PlaneDifference> differences = CompareFrames(format, width, height, a, b);
  for (size_t i = 0; i < planes.size(); ++i) {
    const PlaneView& v = planes[i];
    const uint32_t s = v.pixelScale;
    for (uint32_t t : differences[i].tiles) {
      const uint32_t column = t % v.tileColumns, row = t / v.tileColumns;
      OutlineTile(out, width, height, column * v.tileWidth * s, row * v.tileHeight * s,
                  v.tileWidth * s, v.tileHeight * s);
    }
  }
}

}  // namespace pelcast::web
