// Fuzz target: the public C API with random formats, sizes, thread counts,
// buffer lengths and bytes.
//
// Input layout: format selector, width (1-200), height (1-72), threads
// (1-4), a byte naming a buffer to cut short (and by how much), an
// image-content mode and the image's bytes (fuzz_support.h FillImage),
// then the bytes of a ZPAK frame (zero past the input's end).
//
// Checked besides memory safety: sizes the API refuses have no frame size
// and no codec; decode(encode(image)) gives the image back for every format;
// one thread and several give the same bytes for encode, decode and tile
// descriptions; any ZPAK bytes decode; every tile description agrees with
// the metadata byte it names; a buffer one or more bytes short is refused
// with PELCAST_ERROR_BUFFER_TOO_SMALL and nothing is written.
#include <cstring>
#include <vector>

#include "fuzz/fuzz_support.h"
#include "pelcast/pelcast.h"

namespace {

using pelcast::fuzz::Check;
using pelcast::fuzz::ExactBuffer;
using pelcast::fuzz::InputReader;

constexpr uint32_t kMaxWidth = 200;
constexpr uint32_t kMaxHeight = 72;
constexpr uint32_t kMaxThreads = 4;

struct Codec {
  pelcast_codec* codec = nullptr;
  ~Codec() { pelcast_codec_destroy(codec); }
};

pelcast_image Packed(pelcast_format format, uint32_t w, uint32_t h, ExactBuffer& buffer) {
  pelcast_image image;
  Check(pelcast_image_init_packed(&image, format, w, h, buffer.data(), buffer.size()) == PELCAST_OK,
        "a packed image of the linear frame size is accepted");
  return image;
}

// Every tile of every plane: its description agrees with the frame's bytes.
void CheckTiles(pelcast_codec* one, pelcast_codec* many, pelcast_format format, uint32_t w,
                uint32_t h, const ExactBuffer& zpak) {
  for (uint32_t plane = 0; plane < pelcast_plane_count(format); ++plane) {
    pelcast_tile_grid grid;
    Check(pelcast_tile_grid_of(format, w, h, plane, &grid) == PELCAST_OK, "grid of a plane");
    const size_t count = size_t{grid.columns} * grid.rows;
    std::vector<pelcast_tile_info> a(count), b(count);
    Check(pelcast_codec_tile_info(one, zpak.data(), zpak.size(), plane, a.data(), count) == PELCAST_OK &&
              pelcast_codec_tile_info(many, zpak.data(), zpak.size(), plane, b.data(), count) == PELCAST_OK,
          "tile descriptions of a whole frame");
    Check(std::memcmp(a.data(), b.data(), count * sizeof(pelcast_tile_info)) == 0,
          "tile descriptions do not depend on the thread count");
    pelcast_plane_stats stats;
    Check(pelcast_codec_plane_stats(many, zpak.data(), zpak.size(), plane, &stats) == PELCAST_OK &&
              stats.tiles == count && stats.raw_units == count * grid.raw_units,
          "plane figures count every tile");
    uint64_t units = 0;
    for (const pelcast_tile_info& t : a) {
      Check(t.metadata_offset < zpak.size() && t.metadata == zpak.data()[t.metadata_offset],
            "a tile's metadata byte is the frame's byte at its offset");
      Check(t.data_offset < zpak.size(), "a tile's data lies in the frame");
      const bool raw = (t.flags & PELCAST_TILE_RAW) != 0;
      const bool bad = (t.flags & PELCAST_TILE_BAD_METADATA) != 0;
      const bool overrun = (t.flags & PELCAST_TILE_OVERRUN) != 0;
      Check(!bad || (t.units == 0 && !overrun), "bad metadata has no unit count");
      Check(bad || (t.units >= 1 && t.units <= grid.raw_units), "a unit count in range");
      Check(!raw || bad || t.units == grid.raw_units, "a raw tile takes the raw units");
      Check(overrun == (!raw && !bad && t.stream_bits > 512u * t.units), "overrun means too long");
      units += bad ? grid.raw_units : t.units;
    }
    Check(stats.units == units, "plane units are the tiles' units");
  }
}

// A buffer `cut` bytes short of what the frame needs is refused untouched.
void CheckShortBuffers(pelcast_format format, uint32_t w, uint32_t h, size_t cut,
                       const ExactBuffer& zpak, const ExactBuffer& linear) {
  ExactBuffer shortOut(linear.size() - std::min(cut, linear.size()), 0x5C);
  Check(pelcast_decode_frame(format, w, h, zpak.data(), zpak.size(), shortOut.data(),
                             shortOut.size()) == PELCAST_ERROR_BUFFER_TOO_SMALL,
        "a short linear buffer is refused");
  for (size_t i = 0; i < shortOut.size(); ++i) Check(shortOut.data()[i] == 0x5C, "nothing written");
  ExactBuffer shortZpak(zpak.size() - std::min(cut, zpak.size()), 0x5C);
  Check(pelcast_encode_frame(format, w, h, linear.data(), linear.size(), shortZpak.data(),
                             shortZpak.size()) == PELCAST_ERROR_BUFFER_TOO_SMALL,
        "a short ZPAK buffer is refused");
  for (size_t i = 0; i < shortZpak.size(); ++i) Check(shortZpak.data()[i] == 0x5C, "nothing written");
  Check(pelcast_decode_frame(format, w, h, shortZpak.data(), shortZpak.size(),
                             const_cast<uint8_t*>(linear.data()), linear.size()) ==
            PELCAST_ERROR_BUFFER_TOO_SMALL,
        "a short ZPAK frame is refused");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  InputReader in(data, size);
  const uint32_t selector = in.Byte();
  // Now and then a value that is no format at all.
  const auto format = static_cast<pelcast_format>(selector < 250 ? 1 + selector % 3 : selector);
  const uint32_t w = in.InRange(1, kMaxWidth);
  const uint32_t h = in.InRange(1, kMaxHeight);
  const uint32_t threads = in.InRange(1, kMaxThreads);
  const size_t cut = in.Byte() % 8;

  const size_t zpakBytes = pelcast_zpak_frame_size(format, w, h);
  const size_t linearBytes = pelcast_linear_frame_size(format, w, h);
  Codec one, many;
  const pelcast_status created = pelcast_codec_create(format, w, h, &one.codec);
  Check((zpakBytes == 0) == (linearBytes == 0), "both frame sizes or neither");
  if (zpakBytes == 0 || created != PELCAST_OK) {
    Check(one.codec == nullptr, "a refused size has no codec");
    Check(created == (selector >= 250 ? PELCAST_ERROR_INVALID_ARGUMENT : PELCAST_ERROR_UNSUPPORTED_SIZE),
          "small sizes are refused only when unknown or unsupported");
    return 0;
  }
  Check(pelcast_codec_create(format, w, h, &many.codec) == PELCAST_OK &&
            pelcast_codec_set_threads(many.codec, threads) == PELCAST_OK,
        "a second codec with threads");

  ExactBuffer linear(linearBytes);
  pelcast::fuzz::FillImage(&in, linear.data(), linear.size(), format == PELCAST_FORMAT_RGBA8888 ? 4 : 2);
  ExactBuffer zpak(zpakBytes, 0xA7), zpakMany(zpakBytes, 0x7A);
  pelcast_image image = Packed(format, w, h, linear);
  Check(pelcast_codec_encode(one.codec, &image, zpak.data(), zpak.size()) == PELCAST_OK &&
            pelcast_codec_encode(many.codec, &image, zpakMany.data(), zpakMany.size()) == PELCAST_OK,
        "encoding a whole image succeeds");
  Check(std::memcmp(zpak.data(), zpakMany.data(), zpakBytes) == 0, "threads encode the same bytes");
  ExactBuffer back(linearBytes, 0xEE);
  pelcast_image backImage = Packed(format, w, h, back);
  Check(pelcast_codec_decode(many.codec, zpak.data(), zpak.size(), &backImage) == PELCAST_OK,
        "decoding an encoded frame succeeds");
  Check(std::memcmp(back.data(), linear.data(), linearBytes) == 0, "decode(encode(x)) == x");
  CheckTiles(one.codec, many.codec, format, w, h, zpak);

  // Any bytes at all as a ZPAK frame.
  ExactBuffer noise(zpakBytes, 0);
  std::memcpy(noise.data(), in.Rest(), std::min(in.RestSize(), zpakBytes));
  ExactBuffer first(linearBytes, 1), second(linearBytes, 2);
  pelcast_image firstImage = Packed(format, w, h, first);
  pelcast_image secondImage = Packed(format, w, h, second);
  Check(pelcast_codec_decode(one.codec, noise.data(), noise.size(), &firstImage) == PELCAST_OK &&
            pelcast_codec_decode(many.codec, noise.data(), noise.size(), &secondImage) == PELCAST_OK,
        "any frame decodes");
  Check(std::memcmp(first.data(), second.data(), linearBytes) == 0, "threads decode the same bytes");
  CheckTiles(one.codec, many.codec, format, w, h, noise);

  if (cut != 0) CheckShortBuffers(format, w, h, cut, zpak, linear);
  return 0;
}
