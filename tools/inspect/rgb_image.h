// 8-bit RGB pictures: conversion of decoded linear frames, downscaling and
// PNG output.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace pelcast::inspect {

inline constexpr int kRgbChannels = 3;

struct RgbImage {
  uint32_t width = 0;
  uint32_t height = 0;
  std::vector<uint8_t> pixels;  // width x height x 3, rows packed
};

struct Rgb {
  uint8_t r, g, b;
};

// Sizes `image` to width x height (keeping its storage when it is big enough).
void ResizeImage(RgbImage* image, uint32_t width, uint32_t height);

inline uint8_t* PixelAt(RgbImage* image, uint32_t x, uint32_t y) {
  return image->pixels.data() + (size_t{y} * image->width + x) * kRgbChannels;
}
inline const uint8_t* PixelAt(const RgbImage& image, uint32_t x, uint32_t y) {
  return image.pixels.data() + (size_t{y} * image.width + x) * kRgbChannels;
}

// Limited-range YCbCr matrices for NV12.
enum class YuvMatrix { kBt601, kBt709 };

// A decoded linear frame as the decode commands leave it in their output
// buffer. Bytes a row would take from past the end of the buffer read as 0.
struct LinearFrame {
  const uint8_t* bytes;
  size_t size;
  uint32_t width;
  uint32_t height;
  uint32_t stride;  // row pitch of RGBA8888 and RGB565 frames
};

// NV12 in the frame decoder's packing: the luma plane at `width` bytes a row,
// then the interleaved chroma plane at the width rounded up to even, one
// chroma sample pair per 2 x 2 pixels.
void Nv12ToRgb(const LinearFrame& frame, YuvMatrix matrix, RgbImage* out);

// RGBA8888 rows (bytes R, G, B, A); alpha is not shown.
void Rgba8888ToRgb(const LinearFrame& frame, RgbImage* out);

// RGB565 rows as the linear files hold them: little-endian words with red in
// bits 15-11, green in 10-5 and blue in 4-0.
void Rgb565ToRgb(const LinearFrame& frame, RgbImage* out);

// Averages `factor` x `factor` blocks (partial blocks at the edges average
// what they hold). A factor of 1 copies.
void ShrinkImage(const RgbImage& in, uint32_t factor, RgbImage* out);

// Writes `image` as an 8-bit RGB PNG. The file is opened as the commands open
// their outputs, so a path naming `inputPath` is refused. Returns false with
// a message in `error` when the file cannot be written.
bool WritePng(const std::string& path, const RgbImage& image, const char* inputPath,
              std::string* error);

}  // namespace pelcast::inspect
