// The public calls that need no codec of their own: version, status texts,
// frame sizes, packed images, and the one-shot decode and encode.
#include "api/codec.h"
#include "api/frame_layout.h"
#include "pelcast/pelcast.h"

#define PELCAST_STRINGIFY2(x) #x
#define PELCAST_STRINGIFY(x) PELCAST_STRINGIFY2(x)

namespace {

// Images of a packed frame, whatever the caller's buffer: the planes one
// after the other without padding, as pelcast_linear_frame_size counts them.
pelcast_status InitPacked(pelcast_image* image, pelcast_format format, uint32_t width,
                          uint32_t height, uint8_t* buffer, size_t size) {
  if (image == nullptr || buffer == nullptr) return PELCAST_ERROR_INVALID_ARGUMENT;
  const pelcast_status checked = pelcast::api::CheckFrameSize(format, width, height);
  if (checked != PELCAST_OK && checked != PELCAST_ERROR_UNSUPPORTED_SIZE) return checked;
  const pelcast::api::FrameLayout layout = pelcast::api::MakeFrameLayout(format, width, height);
  if (size < layout.linearBytes) return PELCAST_ERROR_BUFFER_TOO_SMALL;
  *image = pelcast_image{};
  image->format = format;
  image->width = width;
  image->height = height;
  size_t offset = 0;
  for (uint32_t p = 0; p < pelcast::api::LinearPlaneCount(format); ++p) {
    const pelcast::api::LinearPlane plane = pelcast::api::LinearPlaneOf(layout, p);
    image->planes[p] = buffer + offset;
    image->strides[p] = plane.rowBytes;
    image->sizes[p] = plane.rows * plane.rowBytes;
    offset += image->sizes[p];
  }
  return PELCAST_OK;
}

enum class Direction { kDecode, kEncode };

// One frame through a codec of its own, on the calling thread.
pelcast_status OneShot(pelcast_format format, uint32_t width, uint32_t height, uint8_t* linear,
                       size_t linearSize, void* zpak, size_t zpakSize, Direction direction) {
  pelcast_image image;
  pelcast_status status = InitPacked(&image, format, width, height, linear, linearSize);
  if (status != PELCAST_OK) return status;
  if (zpak == nullptr) return PELCAST_ERROR_INVALID_ARGUMENT;
  if (zpakSize < pelcast_zpak_frame_size(format, width, height)) {
    return PELCAST_ERROR_BUFFER_TOO_SMALL;
  }
  pelcast_codec* codec = nullptr;
  status = pelcast_codec_create(format, width, height, &codec);
  if (status != PELCAST_OK) return status;
  status = direction == Direction::kDecode ? pelcast_codec_decode(codec, zpak, zpakSize, &image)
                                           : pelcast_codec_encode(codec, &image, zpak, zpakSize);
  pelcast_codec_destroy(codec);
  return status;
}

}  // namespace

extern "C" {

const char* pelcast_version(void) {
  return PELCAST_STRINGIFY(PELCAST_VERSION_MAJOR) "." PELCAST_STRINGIFY(
      PELCAST_VERSION_MINOR) "." PELCAST_STRINGIFY(PELCAST_VERSION_PATCH);
}

const char* pelcast_status_string(pelcast_status status) {
  switch (status) {
    case PELCAST_OK:
      return "ok";
    case PELCAST_ERROR_INVALID_ARGUMENT:
      return "invalid argument";
    case PELCAST_ERROR_BUFFER_TOO_SMALL:
      return "buffer too small";
    case PELCAST_ERROR_SIZE_LIMIT:
      return "frame too large: a buffer would reach 2 GiB";
    case PELCAST_ERROR_OUT_OF_MEMORY:
      return "out of memory";
    case PELCAST_ERROR_UNSUPPORTED_SIZE:
      return "the surface cannot hold every pixel of this size";
    default:
      break;
  }
  return "unknown status";
}

size_t pelcast_zpak_frame_size(pelcast_format format, uint32_t width, uint32_t height) {
  const pelcast_status checked = pelcast::api::CheckFrameSize(format, width, height);
  if (checked != PELCAST_OK && checked != PELCAST_ERROR_UNSUPPORTED_SIZE) return 0;
  return pelcast::api::MakeFrameLayout(format, width, height).geometry.frameSize;
}

size_t pelcast_linear_frame_size(pelcast_format format, uint32_t width, uint32_t height) {
  const pelcast_status checked = pelcast::api::CheckFrameSize(format, width, height);
  if (checked != PELCAST_OK && checked != PELCAST_ERROR_UNSUPPORTED_SIZE) return 0;
  return pelcast::api::MakeFrameLayout(format, width, height).linearBytes;
}

pelcast_status pelcast_image_init_packed(pelcast_image* image, pelcast_format format,
                                         uint32_t width, uint32_t height, void* buffer,
                                         size_t size) {
  return InitPacked(image, format, width, height, static_cast<uint8_t*>(buffer), size);
}

pelcast_status pelcast_decode_frame(pelcast_format format, uint32_t width, uint32_t height,
                                    const void* zpak, size_t zpak_size, void* linear,
                                    size_t linear_size) {
  return OneShot(format, width, height, static_cast<uint8_t*>(linear), linear_size,
                 const_cast<void*>(zpak), zpak_size, Direction::kDecode);
}

pelcast_status pelcast_encode_frame(pelcast_format format, uint32_t width, uint32_t height,
                                    const void* linear, size_t linear_size, void* zpak,
                                    size_t zpak_size) {
  // Encoding only reads the image.
  return OneShot(format, width, height, static_cast<uint8_t*>(const_cast<void*>(linear)),
                 linear_size, zpak, zpak_size, Direction::kEncode);
}

uint32_t pelcast_plane_count(pelcast_format format) {
  return pelcast::api::LinearPlaneCount(format);
}

}  // extern "C"
