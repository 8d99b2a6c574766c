/* The public header as a C99 program sees it: it compiles without warnings
 * under -pedantic, and its types are usable from C. */
#include <pelcast/pelcast.h>

size_t pelcast_c99_frame_bytes(void) {
  pelcast_image image = {PELCAST_FORMAT_NV12, 2, 2, {0, 0}, {0, 0}, {0, 0}};
  pelcast_tile_info info = {0, 0, 0, 0, 0, PELCAST_TILE_RAW, {0, 0, 0}};
  return pelcast_zpak_frame_size(image.format, image.width, image.height) + info.flags;
}
