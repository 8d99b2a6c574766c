// Linear frames in files: raw frames with explicit geometry (row stride,
// rows per plane including padding, where the chroma plane starts), Y4M
// 4:2:0 streams, and PNG pictures.
#pragma once

#include <cstdint>
#include <cstdio>
#include <optional>
#include <string>
#include <vector>

#include "pelcast/pelcast.h"
#include "tools/zpak/zpak_io.h"

namespace pelcast::zpak {

enum class ImageKind { kRaw, kPng, kY4m };

// "raw", "png", "y4m".
std::optional<ImageKind> ParseImageKind(const std::string& word);
// By the file name's extension (.png, .y4m; anything else raw).
ImageKind ImageKindOfPath(const std::string& path);
const char* ImageKindName(ImageKind kind);

// --- raw frames ----------------------------------------------------------------

// What the command line says about a raw frame's geometry; unset values
// take the packed layout's.
struct RawOptions {
  std::optional<uint64_t> stride;     // bytes from one row to the next, in every plane
  std::optional<uint64_t> scanlines;  // rows of the first plane, padding included
  std::optional<uint64_t> uvOffset;   // NV12: bytes from the frame's start to the chroma plane
};

// A raw frame: plane p at offsets[p], strides[p] bytes a row, rows[p] rows
// (padding included); the frame is frameBytes long. Padding bytes are
// written as zeros and never read.
struct RawLayout {
  uint32_t planes = 1;
  uint64_t offsets[2] = {0, 0};
  uint64_t strides[2] = {0, 0};
  uint64_t rows[2] = {0, 0};
  uint64_t frameBytes = 0;
};

// Lays out a raw frame of `format` at width x height; false with a message
// when the options cannot hold the picture.
bool MakeRawLayout(pelcast_format format, uint32_t width, uint32_t height,
                   const RawOptions& options, RawLayout* layout, std::string* error);

// The image over a raw frame in memory (frameBytes long).
pelcast_image RawImage(pelcast_format format, uint32_t width, uint32_t height,
                       const RawLayout& layout, uint8_t* frame);

// Copies one raw frame into the packed layout (pelcast_image_init_packed's)
// and back; padding comes out as zeros.
void RawToPacked(pelcast_format format, uint32_t width, uint32_t height, const RawLayout& layout,
                 const uint8_t* raw, uint8_t* packed);
void PackedToRaw(pelcast_format format, uint32_t width, uint32_t height, const RawLayout& layout,
                 const uint8_t* packed, uint8_t* raw);

// --- Y4M ---------------------------------------------------------------------

struct Y4mHeader {
  uint32_t width = 0;
  uint32_t height = 0;
};

// Reads the stream header; only 8-bit 4:2:0 (C420, C420jpeg, C420mpeg2,
// C420paldv or no C tag) is accepted.
bool ReadY4mHeader(InputFile* input, Y4mHeader* header, std::string* error);

// Reads the next frame into a packed NV12 frame (chroma interleaved). False
// at the end of the stream; `error` is set when the stream is broken.
bool ReadY4mFrame(InputFile* input, const Y4mHeader& header, uint8_t* nv12, std::string* error);

std::string Y4mHeaderText(uint32_t width, uint32_t height);

// "FRAME\n" and the Y, U and V planes of a packed NV12 frame.
void Y4mFrame(const uint8_t* nv12, uint32_t width, uint32_t height, std::vector<uint8_t>* out);

// --- PNG ---------------------------------------------------------------------

// 8-bit samples, 3 (RGB) or 4 (RGBA) to a pixel, rows packed.
struct Raster {
  uint32_t width = 0;
  uint32_t height = 0;
  uint32_t channels = 3;
  std::vector<uint8_t> samples;

  uint8_t* At(uint32_t x, uint32_t y) {
    return samples.data() + (size_t{y} * width + x) * channels;
  }
  const uint8_t* At(uint32_t x, uint32_t y) const {
    return samples.data() + (size_t{y} * width + x) * channels;
  }
};

void ResizeRaster(Raster* raster, uint32_t width, uint32_t height, uint32_t channels);

// Reads any PNG as 8-bit RGBA: palettes and grey expanded, 16-bit samples
// cut to 8, alpha 255 where the picture has none. `inputName` names it in
// messages.
bool ReadPng(FILE* file, const std::string& inputName, Raster* raster, std::string* error);

// Writes an RGB or RGBA PNG.
bool WritePng(FILE* file, const Raster& raster);

}  // namespace pelcast::zpak
