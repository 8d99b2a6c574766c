#include "tools/inspect/rgb_image.h"

#include <png.h>

#include <algorithm>
#include <array>
#include <cmath>

#include "io/file_io.h"

namespace pelcast::inspect {
namespace {

constexpr int kFixedShift = 16;  // YCbCr to RGB in 16.16 fixed point
constexpr int32_t kFixedHalf = 1 << (kFixedShift - 1);
constexpr int kLumaBlack = 16;
constexpr double kLumaRange = 219.0;  // 16..235
constexpr int kChromaZero = 128;
constexpr double kChromaRange = 224.0;  // 16..240
constexpr double kFullScale = 255.0;

// Per-byte terms of the YCbCr to RGB sums, already scaled and fixed point,
// so a pixel costs a few table reads and adds.
struct YuvTables {
  std::array<int32_t, 256> luma;  // includes the rounding half
  std::array<int32_t, 256> redFromV;
  std::array<int32_t, 256> greenFromU;
  std::array<int32_t, 256> greenFromV;
  std::array<int32_t, 256> blueFromU;
};

int32_t Fixed(double value) {
  return static_cast<int32_t>(std::lround(value * (1 << kFixedShift)));
}

// Kr and Kb are the matrix's luma weights of red and blue.
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

uint8_t ByteAt(const LinearFrame& f, size_t offset) {
  return offset < f.size ? f.bytes[offset] : 0;
}

// Widens a 5- or 6-bit channel to 8 bits by repeating its top bits.
uint8_t Expand5(uint32_t v) { return static_cast<uint8_t>((v << 3) | (v >> 2)); }
uint8_t Expand6(uint32_t v) { return static_cast<uint8_t>((v << 2) | (v >> 4)); }

constexpr uint32_t kRedShift = 11;
constexpr uint32_t kGreenShift = 5;
constexpr uint32_t kMask5 = 0x1F;
constexpr uint32_t kMask6 = 0x3F;

}  // namespace

void ResizeImage(RgbImage* image, uint32_t width, uint32_t height) {
  image->width = width;
  image->height = height;
  image->pixels.resize(size_t{width} * height * kRgbChannels);
}

void Nv12ToRgb(const LinearFrame& f, YuvMatrix matrix, RgbImage* out) {
  const YuvTables& t = TablesFor(matrix);
  ResizeImage(out, f.width, f.height);
  const size_t chromaStart = size_t{f.width} * f.height;
  const size_t chromaPitch = 2 * ((size_t{f.width} + 1) / 2);
  for (uint32_t y = 0; y < f.height; ++y) {
    uint8_t* dst = PixelAt(out, 0, y);
    const size_t lumaRow = size_t{y} * f.width;
    const size_t chromaRow = chromaStart + size_t{y / 2} * chromaPitch;
    for (uint32_t x = 0; x < f.width; ++x) {
      const int32_t luma = t.luma[ByteAt(f, lumaRow + x)];
      const uint8_t u = ByteAt(f, chromaRow + 2 * size_t{x / 2});
      const uint8_t v = ByteAt(f, chromaRow + 2 * size_t{x / 2} + 1);
      *dst++ = ClampFixed(luma + t.redFromV[v]);
      *dst++ = ClampFixed(luma + t.greenFromU[u] + t.greenFromV[v]);
      *dst++ = ClampFixed(luma + t.blueFromU[u]);
    }
  }
}

void Rgba8888ToRgb(const LinearFrame& f, RgbImage* out) {
  constexpr size_t kBytesPerPixel = 4;
  ResizeImage(out, f.width, f.height);
  for (uint32_t y = 0; y < f.height; ++y) {
    uint8_t* dst = PixelAt(out, 0, y);
    const size_t row = size_t{y} * f.stride;
    for (uint32_t x = 0; x < f.width; ++x) {
      const size_t at = row + kBytesPerPixel * x;
      for (int c = 0; c < kRgbChannels; ++c) *dst++ = ByteAt(f, at + c);
    }
  }
}

void Rgb565ToRgb(const LinearFrame& f, RgbImage* out) {
  ResizeImage(out, f.width, f.height);
  for (uint32_t y = 0; y < f.height; ++y) {
    uint8_t* dst = PixelAt(out, 0, y);
    const size_t row = size_t{y} * f.stride;
    for (uint32_t x = 0; x < f.width; ++x) {
      const size_t at = row + 2 * size_t{x};
      const uint32_t word = ByteAt(f, at) | uint32_t{ByteAt(f, at + 1)} << 8;
      *dst++ = Expand5(word >> kRedShift);
      *dst++ = Expand6((word >> kGreenShift) & kMask6);
      *dst++ = Expand5(word & kMask5);
    }
  }
}

void ShrinkImage(const RgbImage& in, uint32_t factor, RgbImage* out) {
  if (factor <= 1) {
    *out = in;
    return;
  }
  ResizeImage(out, (in.width + factor - 1) / factor, (in.height + factor - 1) / factor);
  for (uint32_t oy = 0; oy < out->height; ++oy) {
    const uint32_t y1 = std::min(in.height, (oy + 1) * factor);
    for (uint32_t ox = 0; ox < out->width; ++ox) {
      const uint32_t x1 = std::min(in.width, (ox + 1) * factor);
      std::array<uint32_t, kRgbChannels> sum{};
      for (uint32_t y = oy * factor; y < y1; ++y) {
        for (uint32_t x = ox * factor; x < x1; ++x) {
          const uint8_t* p = PixelAt(in, x, y);
          for (int c = 0; c < kRgbChannels; ++c) sum[c] += p[c];
        }
      }
      const uint32_t count = (y1 - oy * factor) * (x1 - ox * factor);
      uint8_t* dst = PixelAt(out, ox, oy);
      for (int c = 0; c < kRgbChannels; ++c)
        dst[c] = static_cast<uint8_t>((sum[c] + count / 2) / count);
    }
  }
}

namespace {

// zlib level for the pictures: past 3 files barely shrink while writing a
// large frame takes several times longer.
constexpr int kPngCompressionLevel = 3;
constexpr int kPngBitDepth = 8;

// Writes the PNG stream to an open file. libpng reports errors by a long
// jump, so nothing here may need destruction.
bool WritePngStream(FILE* file, const RgbImage& image) {
  png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
  png_infop info = png != nullptr ? png_create_info_struct(png) : nullptr;
  if (info == nullptr) {
    png_destroy_write_struct(&png, nullptr);
    return false;
  }
  if (setjmp(png_jmpbuf(png)) != 0) {
    png_destroy_write_struct(&png, &info);
    return false;
  }
  png_init_io(png, file);
  png_set_compression_level(png, kPngCompressionLevel);
  png_set_IHDR(png, info, image.width, image.height, kPngBitDepth, PNG_COLOR_TYPE_RGB,
               PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
  png_write_info(png, info);
  for (uint32_t y = 0; y < image.height; ++y) png_write_row(png, PixelAt(image, 0, y));
  png_write_end(png, nullptr);
  png_destroy_write_struct(&png, &info);
  return true;
}

}  // namespace

bool WritePng(const std::string& path, const RgbImage& image, const char* inputPath,
              std::string* error) {
  FILE* file = OpenOutput(path.c_str(), inputPath);
  if (file == nullptr) {
    *error = "cannot open " + path + " for writing";
    return false;
  }
  const bool written = WritePngStream(file, image);
  const bool closed = std::fclose(file) == 0;
  if (!written || !closed) {
    *error = "cannot write " + path;
    return false;
  }
  return true;
}

}  // namespace pelcast::inspect
