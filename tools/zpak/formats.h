// Formats, sizes, frame ranges and the planes of a packed linear frame, as
// the zpak subcommands name and use them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "pelcast/pelcast.h"

namespace pelcast::zpak {

// "nv12", "rgba8888", "rgb565".
std::optional<pelcast_format> ParseFormat(std::string_view name);
const char* FormatName(pelcast_format format);

// "y" and "uv" for NV12, "rgba" or "rgb565" for the one plane of the others.
const char* PlaneName(pelcast_format format, uint32_t plane);

// A whole number of decimal digits only, at most `limit`.
std::optional<uint64_t> ParseCount(std::string_view text, uint64_t limit);

// "1920x1080" (or 1920X1080); both at least 1.
bool ParseSize(std::string_view text, uint32_t* width, uint32_t* height);

// Frames first..last (inclusive) of a file: "7" or "2-5" or "3-" (to the
// end). Without a range, every frame.
struct FrameRange {
  uint64_t first = 0;
  uint64_t last = UINT64_MAX;
};
std::optional<FrameRange> ParseFrameRange(std::string_view text);

// Frames [first, end) that a range selects from a file of `available`
// frames (UINT64_MAX when unknown, as for a pipe).
struct FrameSpan {
  uint64_t first;
  uint64_t end;
};
FrameSpan SelectFrames(const FrameRange& range, uint64_t available);

// One plane of a packed linear frame (pelcast_linear_frame_size bytes, laid
// out as pelcast_image_init_packed lays it) and its tiles. Coordinates are in
// elements: luma bytes, U,V pairs, RGBA8888 or RGB565 pixels.
struct PlaneView {
  uint32_t plane;          // the API's plane number
  const char* name;        // "y", "uv", "rgba", "rgb565"
  size_t offset;           // of the plane in the packed frame
  size_t stride;           // bytes a row
  uint32_t elementBytes;   // bytes of one element
  uint32_t width;          // elements a row
  uint32_t height;         // rows
  uint32_t tileWidth;      // elements a tile covers across
  uint32_t tileHeight;     // rows a tile covers
  uint32_t tileColumns;    // tiles across (the API's grid)
  uint32_t tileRows;
};
std::vector<PlaneView> PackedPlanes(pelcast_format format, uint32_t width, uint32_t height);

}  // namespace pelcast::zpak
