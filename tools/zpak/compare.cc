#include "tools/zpak/compare.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <limits>

#include "tools/zpak/formats.h"

namespace pelcast::zpak {
namespace {

constexpr double kPeak = 255.0;
constexpr double kDecibels = 10.0;

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
  const uint32_t word = e[0] | uint32_t{e[1]} << 8;
  const uint32_t red = word >> 11, green = (word >> 5) & 0x3F, blue = word & 0x1F;
  out[0] = static_cast<uint8_t>(red << 3 | red >> 2);
  out[1] = static_cast<uint8_t>(green << 2 | green >> 4);
  out[2] = static_cast<uint8_t>(blue << 3 | blue >> 2);
}

// Largest absolute difference of the components of element (x, y), in
// each plane's own coordinates.
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
  d->tileColumns = v.tileColumns;
  for (size_t i = 0; i < tileDiffers.size(); ++i) {
    if (tileDiffers[i]) d->tiles.push_back(static_cast<uint32_t>(i));
  }
  d->differingTiles = d->tiles.size();
}

constexpr Rgb kOutline = {230, 0, 230};
constexpr uint32_t kFullHeatDifference = 64;

// How much the pixel (x, y) of the picture differs: the largest of its
// elements' differences in every plane.
uint32_t PixelDifference(pelcast_format format, const std::vector<PlaneView>& planes,
                         const uint8_t* a, const uint8_t* b, uint32_t x, uint32_t y) {
  uint32_t largest = 0;
  for (const PlaneView& v : planes) {
    const bool chroma = format == PELCAST_FORMAT_NV12 && v.plane == PELCAST_PLANE_UV;
    largest = std::max(largest, ElementDifference(format, v, a, b, chroma ? x / 2 : x,
                                                  chroma ? y / 2 : y));
  }
  return largest;
}

void OutlineTile(Raster* out, uint32_t x0, uint32_t y0, uint32_t w, uint32_t h) {
  FillRect(out, x0, y0, w, 1, kOutline);
  FillRect(out, x0, y0 + h - 1, w, 1, kOutline);
  FillRect(out, x0, y0, 1, h, kOutline);
  FillRect(out, x0 + w - 1, y0, 1, h, kOutline);
}

}  // namespace

double PlaneDifference::Psnr() const {
  if (squaredError == 0 || samples == 0) return std::numeric_limits<double>::infinity();
  return kDecibels * std::log10(kPeak * kPeak * static_cast<double>(samples) / squaredError);
}

bool FrameDifference::Identical() const {
  return std::all_of(planes.begin(), planes.end(),
                     [](const PlaneDifference& p) { return p.differingSamples == 0; });
}

double FrameDifference::WorstPsnr() const {
  double worst = std::numeric_limits<double>::infinity();
  for (const PlaneDifference& p : planes) worst = std::min(worst, p.Psnr());
  return worst;
}

FrameDifference CompareFrames(pelcast_format format, uint32_t width, uint32_t height,
                              const uint8_t* a, const uint8_t* b) {
  FrameDifference difference;
  for (const PlaneView& v : PackedPlanes(format, width, height)) {
    difference.planes.emplace_back();
    ComparePlane(format, v, a, b, &difference.planes.back());
  }
  return difference;
}

void DrawDifference(pelcast_format format, uint32_t width, uint32_t height, const uint8_t* a,
                    const uint8_t* b, const FrameDifference& difference, Raster* out) {
  Raster picture;
  RasterOfFrame(format, width, height, a, YuvMatrix::kBt709, &picture);
  ResizeRaster(out, width, height, 3);
  const std::vector<PlaneView> planes = PackedPlanes(format, width, height);
  for (uint32_t y = 0; y < height; ++y) {
    for (uint32_t x = 0; x < width; ++x) {
      const uint8_t* p = picture.At(x, y);
      uint8_t* dst = out->At(x, y);
      const uint32_t d = PixelDifference(format, planes, a, b, x, y);
      if (d == 0) {
        const auto grey = static_cast<uint8_t>((77 * p[0] + 150 * p[1] + 29 * p[2]) >> 9);
        std::fill_n(dst, 3, grey);
        continue;
      }
      dst[0] = 255;
      dst[1] = static_cast<uint8_t>(std::min(d, kFullHeatDifference) * 255 / kFullHeatDifference);
      dst[2] = 0;
    }
  }
  for (size_t p = 0; p < planes.size() && p < difference.planes.size(); ++p) {
    const PlaneView& v = planes[p];
    // Tiles in picture pixels: chroma elements cover 2 x 2 of them.
    const uint32_t scale = format == PELCAST_FORMAT_NV12 && v.plane == PELCAST_PLANE_UV ? 2 : 1;
    for (const uint32_t tile : difference.planes[p].tiles) {
      const uint32_t row = tile / v.tileColumns, column = tile % v.tileColumns;
      OutlineTile(out, column * v.tileWidth * scale, row * v.tileHeight * scale,
                  v.tileWidth * scale, v.tileHeight * scale);
    }
  }
}

}  // namespace pelcast::zpak
