// What the zpak tests share: pictures with the look of real content, ZPAK
// dumps made from them with the library's encoder, and a runner of the built
// zpak program with its standard input, output and error.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "pelcast/pelcast.h"
#include "tests/test_support.h"

namespace pelcast::zpak::testing {

using pelcast::testing::Bytes;

// A packed linear frame (pelcast_linear_frame_size bytes) of a scene: smooth
// shading, flat shapes with hard edges and a patch of fine texture, so tiles
// of every length occur and neighbouring tiles join up as in a photograph.
// RGBA8888 alpha is 255 but for a translucent band. `seed` moves the scene.
Bytes MakePicture(pelcast_format format, uint32_t width, uint32_t height, uint32_t seed);

// `frames` pictures (seeds seed, seed + 1, ...) encoded back to back.
Bytes MakeDump(pelcast_format format, uint32_t width, uint32_t height, uint32_t frames,
               uint32_t seed);

// A committed real-content frame file (tests/data), read whole: NAME.nv12,
// NAME.rgba or NAME.rgb565 by the format.
Bytes CommittedFrames(const std::string& name, pelcast_format format);

// Every frame of `linear` (packed frames back to back) encoded.
Bytes EncodeFrames(pelcast_format format, uint32_t width, uint32_t height, const Bytes& linear);

// One frame encoded or decoded by the library, checked to succeed.
Bytes EncodeFrame(pelcast_format format, uint32_t width, uint32_t height, const Bytes& linear);
Bytes DecodeFrame(pelcast_format format, uint32_t width, uint32_t height, const Bytes& zpak);

// "nv12", "rgba8888", "rgb565".
std::string FormatName(pelcast_format format);

// How tile (column, row) of `plane` of a ZPAK frame is stored, by the API.
pelcast_tile_info TileInfo(pelcast_format format, uint32_t width, uint32_t height,
                           const Bytes& zpak, uint32_t plane, uint32_t column, uint32_t row);

// A tile of a plane, and the elements it covers in a packed linear frame:
// `elementBytes` bytes each (luma 1, U,V pair 2, RGBA 4, RGB565 2),
// `tileWidth` x `tileHeight` of them from (x0, y0) of the plane, which
// starts at `planeOffset` with `stride` bytes a row.
struct TileArea {
  size_t planeOffset;
  size_t stride;
  uint32_t elementBytes;
  uint32_t tileWidth;
  uint32_t tileHeight;
  uint32_t x0;
  uint32_t y0;
};
TileArea AreaOfTile(pelcast_format format, uint32_t width, uint32_t height, uint32_t plane,
                    uint32_t column, uint32_t row);

// Byte offset of element (x, y) of a tile area in the packed frame.
inline size_t ElementOffset(const TileArea& a, uint32_t x, uint32_t y) {
  return a.planeOffset + (a.y0 + y) * a.stride + size_t{a.x0 + x} * a.elementBytes;
}

struct ZpakRun {
  std::string out;
  std::string err;
  int status;  // -1 when the program did not exit normally
};

// Runs the built zpak with `args` (after the program name) in `workDir`,
// `input` as its standard input.
ZpakRun RunZpak(const std::vector<std::string>& args, const Bytes& input = {},
                const std::string& workDir = ".");

// A picture read back from a PNG file with libpng: 1 to 4 channels of 8 bits.
struct PngPicture {
  uint32_t width = 0;
  uint32_t height = 0;
  uint32_t channels = 0;
  std::vector<uint8_t> samples;
};
PngPicture ReadPngFile(const std::string& path);

// Writes a PNG with libpng: `colourType` a PNG_COLOR_TYPE_*, `bitDepth` 8 or
// 16, `samples` big-endian for 16 bits; a palette picture takes `palette`
// (RGB triples) and one index byte a pixel.
void WritePngFile(const std::string& path, uint32_t width, uint32_t height, int colourType,
                  int bitDepth, const std::vector<uint8_t>& samples,
                  const std::vector<uint8_t>& palette = {});

}  // namespace pelcast::zpak::testing
