#include "tools/zpak/codec_support.h"

#include "tools/zpak/formats.h"

namespace pelcast::zpak {

bool MakeCodec(pelcast_format format, uint32_t width, uint32_t height, uint32_t threads,
               Codec* codec, std::string* error) {
  pelcast_codec* made = nullptr;
  const pelcast_status status = pelcast_codec_create(format, width, height, &made);
  if (status != PELCAST_OK) {
    *error = std::string(FormatName(format)) + " " + std::to_string(width) + "x" +
             std::to_string(height) + ": " + pelcast_status_string(status);
    return false;
  }
  codec->reset(made);
  // Fewer threads than asked (no memory for more) still decode the same bytes.
  pelcast_codec_set_threads(made, threads);
  return true;
}

bool DecodePacked(pelcast_codec* codec, pelcast_format format, uint32_t width, uint32_t height,
                  const uint8_t* zpak, size_t zpakBytes, std::vector<uint8_t>* packed) {
  packed->resize(pelcast_linear_frame_size(format, width, height));
  pelcast_image image{};
  return pelcast_image_init_packed(&image, format, width, height, packed->data(), packed->size()) ==
             PELCAST_OK &&
         pelcast_codec_decode(codec, zpak, zpakBytes, &image) == PELCAST_OK;
}

bool EncodePacked(pelcast_codec* codec, pelcast_format format, uint32_t width, uint32_t height,
                  const uint8_t* packed, std::vector<uint8_t>* zpak) {
  zpak->resize(pelcast_zpak_frame_size(format, width, height));
  pelcast_image image{};
  return pelcast_image_init_packed(&image, format, width, height, const_cast<uint8_t*>(packed),
                                   pelcast_linear_frame_size(format, width, height)) == PELCAST_OK &&
         pelcast_codec_encode(codec, &image, zpak->data(), zpak->size()) == PELCAST_OK;
}

bool DescribePlane(pelcast_codec* codec, pelcast_format format, uint32_t width, uint32_t height,
                   const uint8_t* zpak, size_t zpakBytes, uint32_t plane, pelcast_tile_grid* grid,
                   std::vector<pelcast_tile_info>* tiles) {
  if (pelcast_tile_grid_of(format, width, height, plane, grid) != PELCAST_OK) return false;
  tiles->resize(size_t{grid->columns} * grid->rows);
  return pelcast_codec_tile_info(codec, zpak, zpakBytes, plane, tiles->data(), tiles->size()) ==
         PELCAST_OK;
}

}  // namespace pelcast::zpak
