// The codec as the subcommands use it: one per format and size, frames
// decoded to and encoded from packed linear frames, tiles described per plane.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "pelcast/pelcast.h"

namespace pelcast::zpak {

struct CodecDeleter {
  void operator()(pelcast_codec* codec) const { pelcast_codec_destroy(codec); }
};
using Codec = std::unique_ptr<pelcast_codec, CodecDeleter>;

// A codec for frames of `format` at width x height on `threads` threads (0:
// one per processor). False with a message naming the size and the reason.
bool MakeCodec(pelcast_format format, uint32_t width, uint32_t height, uint32_t threads,
               Codec* codec, std::string* error);

// Decodes one ZPAK frame into `packed` (resized to pelcast_linear_frame_size).
bool DecodePacked(pelcast_codec* codec, pelcast_format format, uint32_t width, uint32_t height,
                  const uint8_t* zpak, size_t zpakBytes, std::vector<uint8_t>* packed);

// Encodes a packed linear frame into `zpak` (resized to the frame size).
bool EncodePacked(pelcast_codec* codec, pelcast_format format, uint32_t width, uint32_t height,
                  const uint8_t* packed, std::vector<uint8_t>* zpak);

// How every tile of `plane` is stored; `grid` gets the plane's grid.
bool DescribePlane(pelcast_codec* codec, pelcast_format format, uint32_t width, uint32_t height,
                   const uint8_t* zpak, size_t zpakBytes, uint32_t plane, pelcast_tile_grid* grid,
                   std::vector<pelcast_tile_info>* tiles);

}  // namespace pelcast::zpak
