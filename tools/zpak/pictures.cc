#include "tools/zpak/pictures.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>

namespace pelcast::zpak {
namespace {

// --- colour ------------------------------------------------------------------

constexpr int kFixedShift = 16;  // YCbCr to RGB in 16.16 fixed point
constexpr int32_t kFixedHalf = 1 << (kFixedShift - 1);
constexpr int kLumaBlack = 16;
constexpr double kLumaRange = 219.0;  // 16..235
constexpr int kChromaZero = 128;
constexpr double kChromaRange = 224.0;  // 16..240
constexpr double kFullScale = 255.0;

// Per-byte terms of the YCbCr to RGB sums, scaled and fixed point, so a
// pixel costs a few table reads and adds.
struct YuvTables {
  std::array<int32_t, 256> luma;  // includes the rounding half
  std::array<int32_t, 256> redFromV;
  std::array<int32_t, 256> greenFromU;
  std::array<int32_t, 256> greenFromV;
  std::array<int32_t, 256> blueFromU;
};

int32_t Fixed(double value) { return static_cast<int32_t>(std::lround(value * (1 << kFixedShift))); }

// kr and kb are the matrix's luma weights of red and blue.
YuvTables BuildYuvTables(double kr, double kb) {
  const double kg = 1.0 - kr - kb;
  const double chromaScale = kFullScale / kChromaRange;
  YuvTables t{};
  for (int v = 0; v < 256; ++v) {
    const double c = v - kChromaZero;
    t.luma[v] = Fixed((v - kLumaBlack) * kFullScale / kLumaRange) + kFixedHalf;
    t.redFromV[v] = Fixed(c * chromaScale * 2 * (1 - kr));
    t.blueFromU[v] = Fixed(c * chromaScale * 2 * (1 - kb));
    t.greenFromU[v] = Fixed(-c * chromaScale * 2 * kb * (1 - kb) / kg);
    t.greenFromV[v] = Fixed(-c * chromaScale * 2 * kr * (1 - kr) / kg);
  }
  return t;
}

const YuvTables& TablesFor(YuvMatrix matrix) {
  static const YuvTables kBt601 = BuildYuvTables(0.299, 0.114);
  static const YuvTables kBt709 = BuildYuvTables(0.2126, 0.0722);
  return matrix == YuvMatrix::kBt601 ? kBt601 : kBt709;
}

uint8_t ClampFixed(int32_t value) {
  const int32_t v = value >> kFixedShift;
  return static_cast<uint8_t>(v < 0 ? 0 : (v > UINT8_MAX ? UINT8_MAX : v));
}

void Nv12ToRaster(const uint8_t* frame, uint32_t width, uint32_t height, YuvMatrix matrix,
                  Raster* out) {
  const YuvTables& t = TablesFor(matrix);
  ResizeRaster(out, width, height, 3);
  const uint8_t* chroma = frame + size_t{width} * height;
  const size_t chromaPitch = 2 * ((size_t{width} + 1) / 2);
  for (uint32_t y = 0; y < height; ++y) {
    uint8_t* dst = out->At(0, y);
    const uint8_t* luma = frame + size_t{y} * width;
    const uint8_t* pairs = chroma + size_t{y / 2} * chromaPitch;
    for (uint32_t x = 0; x < width; ++x) {
      const int32_t l = t.luma[luma[x]];
      const uint8_t u = pairs[2 * (x / 2)], v = pairs[2 * (x / 2) + 1];
      *dst++ = ClampFixed(l + t.redFromV[v]);
      *dst++ = ClampFixed(l + t.greenFromU[u] + t.greenFromV[v]);
      *dst++ = ClampFixed(l + t.blueFromU[u]);
    }
  }
}

constexpr uint32_t kRedShift = 11;
constexpr uint32_t kGreenShift = 5;
constexpr uint32_t kMask5 = 0x1F;
constexpr uint32_t kMask6 = 0x3F;

// Widens a 5- or 6-bit field to 8 bits by repeating its top bits.
uint8_t Expand5(uint32_t v) { return static_cast<uint8_t>((v << 3) | (v >> 2)); }
uint8_t Expand6(uint32_t v) { return static_cast<uint8_t>((v << 2) | (v >> 4)); }

// --- the cost map --------------------------------------------------------------

constexpr Rgb kClassColours[kTileClassCount] = {
    {40, 110, 255}, {0, 200, 90}, {250, 220, 0}, {230, 20, 20}, {220, 0, 220}, {0, 230, 230}};
constexpr const char* kClassLabels[kTileClassCount] = {"1", "2", "3", "raw", "?", "!"};

// The frame's grey level is halved, then the tint is mixed in half and half.
constexpr uint32_t kDimNumerator = 1;
constexpr uint32_t kDimDenominator = 2;
constexpr uint32_t kTintWeight = 4;
constexpr uint32_t kMixDenominator = 8;

uint32_t DimmedGrey(const uint8_t* rgb) {
  constexpr uint32_t kRedWeight = 77, kGreenWeight = 150, kBlueWeight = 29;  // sum 256
  constexpr uint32_t kWeightShift = 8;
  const uint32_t grey =
      (kRedWeight * rgb[0] + kGreenWeight * rgb[1] + kBlueWeight * rgb[2]) >> kWeightShift;
  return grey * kDimNumerator / kDimDenominator;
}

uint8_t Mix(uint32_t dimmed, uint8_t tint) {
  return static_cast<uint8_t>(
      (dimmed * (kMixDenominator - kTintWeight) + tint * kTintWeight + kMixDenominator / 2) /
      kMixDenominator);
}

// --- the legend's font -----------------------------------------------------------

constexpr uint32_t kGlyphWidth = 5;
constexpr uint32_t kGlyphHeight = 7;
constexpr uint32_t kGlyphAdvance = kGlyphWidth + 1;

struct Glyph {
  char character;
  uint8_t rows[kGlyphHeight];  // bit 4 is the leftmost column
};

// Only what the legend writes.
constexpr Glyph kFont[] = {
    {'1', {0x04, 0x0C, 0x04, 0x04, 0x04, 0x04, 0x0E}},
    {'2', {0x0E, 0x11, 0x01, 0x02, 0x04, 0x08, 0x1F}},
    {'3', {0x1F, 0x02, 0x04, 0x02, 0x01, 0x11, 0x0E}},
    {'r', {0x00, 0x00, 0x16, 0x19, 0x10, 0x10, 0x10}},
    {'a', {0x00, 0x00, 0x0E, 0x01, 0x0F, 0x11, 0x0F}},
    {'w', {0x00, 0x00, 0x11, 0x11, 0x15, 0x15, 0x0A}},
    {'?', {0x0E, 0x11, 0x01, 0x02, 0x04, 0x00, 0x04}},
    {'!', {0x04, 0x04, 0x04, 0x04, 0x04, 0x00, 0x04}},
};

constexpr uint32_t kLegendScale = 2;
constexpr uint32_t kLegendMargin = 6;
constexpr uint32_t kSwatchSide = kGlyphHeight * kLegendScale;
constexpr uint32_t kSwatchGap = 4;
constexpr uint32_t kEntryGap = 14;
constexpr uint32_t kLegendHeight = kSwatchSide + 2 * kLegendMargin;
constexpr Rgb kLegendBackground = {0, 0, 0};
constexpr Rgb kLabelColour = {255, 255, 255};

const Glyph* FindGlyph(char c) {
  for (const Glyph& g : kFont) {
    if (g.character == c) return &g;
  }
  return nullptr;
}

uint32_t TextWidth(const char* text) {
  const auto length = static_cast<uint32_t>(std::strlen(text));
  return length == 0 ? 0 : (length * kGlyphAdvance - 1) * kLegendScale;
}

void DrawText(Raster* raster, uint32_t x, uint32_t y, const char* text) {
  for (; *text != '\0'; ++text, x += kGlyphAdvance * kLegendScale) {
    const Glyph* glyph = FindGlyph(*text);
    if (glyph == nullptr) continue;
    for (uint32_t row = 0; row < kGlyphHeight; ++row) {
      for (uint32_t column = 0; column < kGlyphWidth; ++column) {
        if ((glyph->rows[row] >> (kGlyphWidth - 1 - column) & 1) == 0) continue;
        FillRect(raster, x + column * kLegendScale, y + row * kLegendScale, kLegendScale,
                 kLegendScale, kLabelColour);
      }
    }
  }
}

uint32_t LegendWidth() {
  uint32_t width = kLegendMargin;
  for (const char* label : kClassLabels) width += kSwatchSide + kSwatchGap + TextWidth(label) + kEntryGap;
  return width;
}

}  // namespace

void FillRect(Raster* raster, uint32_t x0, uint32_t y0, uint32_t w, uint32_t h, Rgb colour) {
  const uint32_t x1 = std::min(raster->width, x0 + w);
  const uint32_t y1 = std::min(raster->height, y0 + h);
  for (uint32_t y = y0; y < y1; ++y) {
    for (uint32_t x = x0; x < x1; ++x) {
      uint8_t* p = raster->At(x, y);
      p[0] = colour.r;
      p[1] = colour.g;
      p[2] = colour.b;
    }
  }
}

void ResizeRaster(Raster* raster, uint32_t width, uint32_t height, uint32_t channels) {
  raster->width = width;
  raster->height = height;
  raster->channels = channels;
  raster->samples.resize(size_t{width} * height * channels);
}

void RasterOfFrame(pelcast_format format, uint32_t width, uint32_t height, const uint8_t* packed,
                   YuvMatrix matrix, Raster* out) {
  if (format == PELCAST_FORMAT_NV12) {
    Nv12ToRaster(packed, width, height, matrix, out);
    return;
  }
  if (format == PELCAST_FORMAT_RGBA8888) {
    ResizeRaster(out, width, height, 4);
    std::memcpy(out->samples.data(), packed, out->samples.size());
    return;
  }
  ResizeRaster(out, width, height, 3);
  for (size_t i = 0; i < size_t{width} * height; ++i) {
    const uint32_t word = packed[2 * i] | uint32_t{packed[2 * i + 1]} << 8;
    out->samples[3 * i] = Expand5(word >> kRedShift);
    out->samples[3 * i + 1] = Expand6((word >> kGreenShift) & kMask6);
    out->samples[3 * i + 2] = Expand5(word & kMask5);
  }
}

bool FrameOfRaster(pelcast_format format, const Raster& raster, uint8_t* packed) {
  const size_t pixels = size_t{raster.width} * raster.height;
  if (format == PELCAST_FORMAT_RGBA8888) {
    for (size_t i = 0; i < pixels; ++i) {
      const uint8_t* s = raster.samples.data() + i * raster.channels;
      std::memcpy(packed + 4 * i, s, 3);
      packed[4 * i + 3] = raster.channels == 4 ? s[3] : UINT8_MAX;
    }
    return true;
  }
  if (format != PELCAST_FORMAT_RGB565) return false;
  for (size_t i = 0; i < pixels; ++i) {
    const uint8_t* s = raster.samples.data() + i * raster.channels;
    const uint32_t word = uint32_t{s[0]} >> 3 << kRedShift | uint32_t{s[1]} >> 2 << kGreenShift |
                          uint32_t{s[2]} >> 3;
    packed[2 * i] = static_cast<uint8_t>(word);
    packed[2 * i + 1] = static_cast<uint8_t>(word >> 8);
  }
  return true;
}

void ShrinkRaster(const Raster& in, uint32_t factor, Raster* out) {
  if (factor <= 1) {
    *out = in;
    return;
  }
  ResizeRaster(out, (in.width + factor - 1) / factor, (in.height + factor - 1) / factor,
               in.channels);
  for (uint32_t oy = 0; oy < out->height; ++oy) {
    const uint32_t y1 = std::min(in.height, (oy + 1) * factor);
    for (uint32_t ox = 0; ox < out->width; ++ox) {
      const uint32_t x1 = std::min(in.width, (ox + 1) * factor);
      std::array<uint32_t, 4> sum{};
      for (uint32_t y = oy * factor; y < y1; ++y) {
        for (uint32_t x = ox * factor; x < x1; ++x) {
          const uint8_t* p = in.At(x, y);
          for (uint32_t c = 0; c < in.channels; ++c) sum[c] += p[c];
        }
      }
      const uint32_t count = (y1 - oy * factor) * (x1 - ox * factor);
      uint8_t* dst = out->At(ox, oy);
      for (uint32_t c = 0; c < in.channels; ++c) {
        dst[c] = static_cast<uint8_t>((sum[c] + count / 2) / count);
      }
    }
  }
}

TileClass ClassOfTile(const pelcast_tile_info& tile) {
  if ((tile.flags & PELCAST_TILE_BAD_METADATA) != 0) return kBadMetadata;
  if ((tile.flags & PELCAST_TILE_OVERRUN) != 0) return kOverrun;
  if ((tile.flags & PELCAST_TILE_RAW) != 0) return kRawTile;
  return static_cast<TileClass>(kOneUnit + std::clamp<int>(tile.units, 1, 3) - 1);
}

void DrawCostMap(const Raster& picture, const pelcast_tile_grid& grid,
                 const std::vector<pelcast_tile_info>& tiles, Raster* out) {
  ResizeRaster(out, picture.width, picture.height, 3);
  for (uint32_t y = 0; y < picture.height; ++y) {
    const uint32_t row = y / grid.tile_height;
    for (uint32_t x = 0; x < picture.width; ++x) {
      const uint32_t column = x / grid.tile_width;
      const uint32_t dimmed = DimmedGrey(picture.At(x, y));
      uint8_t* dst = out->At(x, y);
      if (row >= grid.rows || column >= grid.columns) {
        std::fill_n(dst, 3, static_cast<uint8_t>(dimmed));
        continue;
      }
      const Rgb tint = kClassColours[ClassOfTile(tiles[size_t{row} * grid.columns + column])];
      dst[0] = Mix(dimmed, tint.r);
      dst[1] = Mix(dimmed, tint.g);
      dst[2] = Mix(dimmed, tint.b);
    }
  }
}

void AppendLegend(Raster* raster) {
  Raster old = std::move(*raster);
  ResizeRaster(raster, std::max(old.width, LegendWidth()), old.height + kLegendHeight, 3);
  FillRect(raster, 0, 0, raster->width, raster->height, kLegendBackground);
  for (uint32_t y = 0; y < old.height; ++y) {
    std::memcpy(raster->At(0, y), old.At(0, y), size_t{old.width} * 3);
  }
  uint32_t x = kLegendMargin;
  const uint32_t top = old.height + kLegendMargin;
  for (int c = 0; c < kTileClassCount; ++c) {
    FillRect(raster, x, top, kSwatchSide, kSwatchSide, kClassColours[c]);
    x += kSwatchSide + kSwatchGap;
    DrawText(raster, x, top, kClassLabels[c]);
    x += TextWidth(kClassLabels[c]) + kEntryGap;
  }
}

}  // namespace pelcast::zpak
