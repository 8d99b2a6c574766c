#include "tools/inspect/heatmap.h"

#include <algorithm>
#include <cstring>

namespace pelcast::inspect {
namespace {

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
    {'4', {0x02, 0x06, 0x0A, 0x12, 0x1F, 0x02, 0x02}},
    {'r', {0x00, 0x00, 0x16, 0x19, 0x10, 0x10, 0x10}},
    {'a', {0x00, 0x00, 0x0E, 0x01, 0x0F, 0x11, 0x0F}},
    {'w', {0x00, 0x00, 0x11, 0x11, 0x15, 0x15, 0x0A}},
    {'?', {0x0E, 0x11, 0x01, 0x02, 0x04, 0x00, 0x04}},
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

void FillRect(RgbImage* image, uint32_t x0, uint32_t y0, uint32_t w, uint32_t h, Rgb colour) {
  const uint32_t x1 = std::min(image->width, x0 + w);
  const uint32_t y1 = std::min(image->height, y0 + h);
  for (uint32_t y = y0; y < y1; ++y) {
    for (uint32_t x = x0; x < x1; ++x) {
      uint8_t* p = PixelAt(image, x, y);
      p[0] = colour.r;
      p[1] = colour.g;
      p[2] = colour.b;
    }
  }
}

// The frame under the tints is grey, so the hue comes from the tint alone.
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

uint32_t LegendWidth() {
  uint32_t width = kLegendMargin;
  for (const char* label : kClassLabels) {
    width += kSwatchSide + kSwatchGap + TextWidth(label, kLegendScale) + kEntryGap;
  }
  return width;
}

}  // namespace

uint32_t TextWidth(const char* text, uint32_t scale) {
  const uint32_t length = static_cast<uint32_t>(std::strlen(text));
  return length == 0 ? 0 : (length * kGlyphAdvance - 1) * scale;
}

void DrawText(RgbImage* image, uint32_t x, uint32_t y, const char* text, uint32_t scale,
              Rgb colour) {
  for (; *text != '\0'; ++text, x += kGlyphAdvance * scale) {
    const Glyph* glyph = FindGlyph(*text);
    if (glyph == nullptr) continue;
    for (uint32_t row = 0; row < kGlyphHeight; ++row) {
      for (uint32_t column = 0; column < kGlyphWidth; ++column) {
        if ((glyph->rows[row] >> (kGlyphWidth - 1 - column) & 1) == 0) continue;
        FillRect(image, x + column * scale, y + row * scale, scale, scale, colour);
      }
    }
  }
}

void DrawHeatmap(const RgbImage& frame, const PlaneTileGrid& grid,
                 const std::vector<uint8_t>& metadata, RgbImage* out) {
  ResizeImage(out, frame.width, frame.height);
  for (uint32_t y = 0; y < frame.height; ++y) {
    const uint32_t tileRow = y / grid.tileHeight;
    const uint8_t* src = PixelAt(frame, 0, y);
    uint8_t* dst = PixelAt(out, 0, y);
    for (uint32_t x = 0; x < frame.width; ++x, src += kRgbChannels, dst += kRgbChannels) {
      const uint32_t tileColumn = x / grid.tileWidth;
      const uint32_t dimmed = DimmedGrey(src);
      if (tileRow >= grid.rows || tileColumn >= grid.columns) {
        std::fill_n(dst, kRgbChannels, static_cast<uint8_t>(dimmed));
        continue;
      }
      const uint8_t meta = metadata[size_t{tileRow} * grid.columns + tileColumn];
      const Rgb tint = kClassColours[ClassifyMetadata(meta, grid.kind)];
      dst[0] = Mix(dimmed, tint.r);
      dst[1] = Mix(dimmed, tint.g);
      dst[2] = Mix(dimmed, tint.b);
    }
  }
}

void AppendLegend(RgbImage* image) {
  RgbImage old = std::move(*image);
  ResizeImage(image, std::max(old.width, LegendWidth()), old.height + kLegendHeight);
  FillRect(image, 0, 0, image->width, image->height, kLegendBackground);
  for (uint32_t y = 0; y < old.height; ++y) {
    std::memcpy(PixelAt(image, 0, y), PixelAt(old, 0, y), size_t{old.width} * kRgbChannels);
  }
  uint32_t x = kLegendMargin;
  const uint32_t top = old.height + kLegendMargin;
  for (int c = 0; c < kTileClassCount; ++c) {
    FillRect(image, x, top, kSwatchSide, kSwatchSide, kClassColours[c]);
    x += kSwatchSide + kSwatchGap;
    DrawText(image, x, top, kClassLabels[c], kLegendScale, kLabelColour);
    x += TextWidth(kClassLabels[c], kLegendScale) + kEntryGap;
  }
}

}  // namespace pelcast::inspect
