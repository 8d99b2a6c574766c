/*
 * pelcast: ZPAK frames to and from linear images.
 *
 * ZPAK is the tiled, losslessly compressed surface layout that a phone's
 * graphics and display hardware reads and writes. A ZPAK frame holds, for
 * each plane, a metadata plane (one byte per tile: how many 64-byte units the
 * tile is stored in) and a data plane (one 256-byte slot per tile). This
 * library decodes ZPAK frames of NV12, RGBA8888 and RGB565 surfaces to linear
 * images and encodes linear images to ZPAK, exactly as the `pelcast` command
 * does, and tells how each tile of a frame is stored.
 *
 * Conventions:
 * - Every call that can fail returns a pelcast_status: PELCAST_OK (0) or a
 *   negative error; pelcast_status_string() names it.
 * - The library never prints, never aborts, and never reads or writes
 *   outside the buffers and sizes it is given. A buffer shorter than the
 *   frame needs is refused with PELCAST_ERROR_BUFFER_TOO_SMALL before
 *   anything is touched.
 * - Sizes whose buffers would reach 2 GiB are refused
 *   (PELCAST_ERROR_SIZE_LIMIT), and so is a width or height of 0.
 * - There is no global mutable state: any number of threads may call the
 *   library at once, each with its own pelcast_codec (or with the plain
 *   one-shot calls). One pelcast_codec is used by one thread at a time.
 * - The caller owns every buffer. The library allocates only inside
 *   pelcast_codec_create (and the one-shot calls, which create and destroy a
 *   codec) and frees it in pelcast_codec_destroy.
 *
 * Valid C99 and C++.
 */
#ifndef PELCAST_PELCAST_H_
#define PELCAST_PELCAST_H_

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#if defined(PELCAST_STATIC_DEFINE) || !defined(__GNUC__)
#define PELCAST_API
#else
#define PELCAST_API __attribute__((visibility("default")))
#endif

#define PELCAST_VERSION_MAJOR 1
#define PELCAST_VERSION_MINOR 0
#define PELCAST_VERSION_PATCH 0

/* The library's version, "MAJOR.MINOR.PATCH" (of the library linked, which
 * may be newer than the header a program was built with). */
PELCAST_API const char *pelcast_version(void);

/* ---------------------------------------------------------------------- */
/* Formats, status codes and sizes                                        */
/* ---------------------------------------------------------------------- */

typedef enum {
  /* Two planes: luma (Y), then interleaved chroma pairs (U, V), 4:2:0. */
  PELCAST_FORMAT_NV12 = 1,
  /* One plane of 4 bytes per pixel in the byte order R, G, B, A. */
  PELCAST_FORMAT_RGBA8888 = 2,
  /* One plane of little-endian 16-bit pixels: R in bits 15-11, G in 10-5,
   * B in 4-0. */
  PELCAST_FORMAT_RGB565 = 3,
  /* Not a format: makes the type 32 bits wide, so any value a caller
   * passes is one the library can refuse. */
  PELCAST_FORMAT_MAX_ENUM = 0x7FFFFFFF
} pelcast_format;

typedef enum {
  PELCAST_OK = 0,
  /* A null pointer, an unknown format or plane, a width or height of 0, a
   * stride shorter than a row, or an image whose format or size is not the
   * codec's. */
  PELCAST_ERROR_INVALID_ARGUMENT = -1,
  /* A buffer (ZPAK frame or image plane) is shorter than the frame needs. */
  PELCAST_ERROR_BUFFER_TOO_SMALL = -2,
  /* The frame's buffers would reach 2 GiB. */
  PELCAST_ERROR_SIZE_LIMIT = -3,
  PELCAST_ERROR_OUT_OF_MEMORY = -4,
  /* The surface cannot hold every pixel of an image of this size: an RGB565
   * surface whose width is 1 more than a multiple of 128 has a row stride
   * that drops the last pixel column. */
  PELCAST_ERROR_UNSUPPORTED_SIZE = -5,
  /* Not a status: makes the type 32 bits wide. */
  PELCAST_STATUS_MAX_ENUM = 0x7FFFFFFF
} pelcast_status;

/* A short English description of `status` ("ok", "invalid argument", ...);
 * never null. */
PELCAST_API const char *pelcast_status_string(pelcast_status status);

/* Bytes of one ZPAK frame of `format` at width x height, as the `pelcast`
 * decode commands read it and the encode commands write it: metadata plane,
 * data plane and, for NV12, the chroma metadata and data planes, each at
 * its aligned size. A ZPAK file is a plain sequence of such frames. 0 for a
 * size that is refused (0 wide or high, buffers reaching 2 GiB) or an
 * unknown format. */
PELCAST_API size_t pelcast_zpak_frame_size(pelcast_format format, uint32_t width,
                                           uint32_t height);

/* Bytes of one packed linear frame: RGBA8888 4 per pixel, RGB565 2 per
 * pixel, NV12 the Y plane (width x height) then (height + 1) / 2 chroma rows
 * of width rounded up to even bytes. 0 where pelcast_zpak_frame_size is 0. */
PELCAST_API size_t pelcast_linear_frame_size(pelcast_format format, uint32_t width,
                                             uint32_t height);

/* ---------------------------------------------------------------------- */
/* One-shot calls on packed linear frames                                 */
/* ---------------------------------------------------------------------- */

/* Decodes one ZPAK frame (zpak_size >= pelcast_zpak_frame_size) into a packed
 * linear frame (linear_size >= pelcast_linear_frame_size). For even sizes
 * the output equals one output frame of `pelcast U`, `G` or `B` byte for
 * byte. (For odd sizes the NV12 frame is the whole packed layout above,
 * while `pelcast U` writes only its first width x height x 3 / 2 bytes.)
 * Uses the calling thread only. */
PELCAST_API pelcast_status pelcast_decode_frame(pelcast_format format, uint32_t width,
                                                uint32_t height, const void *zpak,
                                                size_t zpak_size, void *linear,
                                                size_t linear_size);

/* Encodes one packed linear frame into one ZPAK frame: every tile in the
 * fewest 64-byte units the format allows, all other bytes of the frame 0.
 * NV12 and RGBA8888 frames equal one output frame of `pelcast N` or `H` byte
 * for byte (except NV12 heights of 64k + 1, where `pelcast N` writes a
 * chroma data plane too short for the last chroma rows and this call writes
 * the whole frame). pelcast_decode_frame gives the input back. Uses the
 * calling thread only. */
PELCAST_API pelcast_status pelcast_encode_frame(pelcast_format format, uint32_t width,
                                                uint32_t height, const void *linear,
                                                size_t linear_size, void *zpak,
                                                size_t zpak_size);

/* ---------------------------------------------------------------------- */
/* Linear images with their own strides                                   */
/* ---------------------------------------------------------------------- */

/* A linear image in the caller's memory. NV12: planes[0] is the Y plane
 * (width bytes per row, height rows) and planes[1] the interleaved chroma
 * plane ((width + 1) / 2 U,V pairs per row, (height + 1) / 2 rows).
 * RGBA8888 and RGB565: planes[0] only (4 or 2 bytes per pixel); planes[1]
 * is ignored. strides[i] is the distance in bytes from one row of plane i
 * to the next (at least a row's bytes); sizes[i] the bytes that may be read
 * or written from planes[i] on (at least (rows - 1) x stride + row bytes).
 * Bytes between rows (stride padding) are never read and never written.
 * Decoding writes the planes; encoding only reads them. */
typedef struct pelcast_image {
  pelcast_format format;
  uint32_t width;
  uint32_t height;
  uint8_t *planes[2];
  size_t strides[2];
  size_t sizes[2];
} pelcast_image;

/* Fills `image` for a packed frame of pelcast_linear_frame_size bytes at
 * `buffer` (`size` bytes), as the one-shot calls lay it out. */
PELCAST_API pelcast_status pelcast_image_init_packed(pelcast_image *image, pelcast_format format,
                                                     uint32_t width, uint32_t height,
                                                     void *buffer, size_t size);

/* ---------------------------------------------------------------------- */
/* Codecs: one format and size, reused frame after frame, with threads    */
/* ---------------------------------------------------------------------- */

typedef struct pelcast_codec pelcast_codec;

/* Creates a codec for frames of `format` at width x height and stores it in
 * *codec (null after a failure). It holds the frame's address tables and
 * working buffers, so per-frame calls allocate nothing. Starts with one
 * thread (the caller's). */
PELCAST_API pelcast_status pelcast_codec_create(pelcast_format format, uint32_t width,
                                                uint32_t height, pelcast_codec **codec);

/* Frees the codec and stops its threads; null is accepted. */
PELCAST_API void pelcast_codec_destroy(pelcast_codec *codec);

/* Threads one frame is split over (bands of tile rows; the output is the
 * same byte for byte whatever the count). 0 means one per processor the
 * process may run on; 1 means the calling thread only. At most
 * PELCAST_MAX_THREADS. Worker threads are started here, not per frame. */
#define PELCAST_MAX_THREADS 64
PELCAST_API pelcast_status pelcast_codec_set_threads(pelcast_codec *codec, uint32_t threads);

/* The number of threads in use (after 0 has been resolved). */
PELCAST_API uint32_t pelcast_codec_threads(const pelcast_codec *codec);

/* Decodes one ZPAK frame into `image`, which must be of the codec's format
 * and size. RGB565 comes out as `pelcast B` writes it. */
PELCAST_API pelcast_status pelcast_codec_decode(pelcast_codec *codec, const void *zpak,
                                                size_t zpak_size, const pelcast_image *image);

/* Encodes `image` (the codec's format and size) into one ZPAK frame, as
 * pelcast_encode_frame does. */
PELCAST_API pelcast_status pelcast_codec_encode(pelcast_codec *codec, const pelcast_image *image,
                                                void *zpak, size_t zpak_size);

/* ---------------------------------------------------------------------- */
/* Tiles: how each tile of a frame is stored                              */
/* ---------------------------------------------------------------------- */

/* Planes of a frame: NV12 has PELCAST_PLANE_Y and PELCAST_PLANE_UV;
 * RGBA8888 and RGB565 have one plane, number 0. */
#define PELCAST_PLANE_Y 0u
#define PELCAST_PLANE_UV 1u

/* Number of planes of `format` (2 for NV12, 1 otherwise; 0 if unknown). */
PELCAST_API uint32_t pelcast_plane_count(pelcast_format format);

/* The tiles of one plane that cover the image, in rows and columns. A tile
 * covers tile_width x tile_height image pixels: NV12 Y 32 x 8, NV12 UV 32 x
 * 16 (16 U,V pairs by 8 chroma rows), RGBA8888 16 x 4, RGB565 16 x 4 (half
 * of a 256-byte slot; each half has its own metadata byte). A tile stored
 * raw takes raw_units 64-byte units (4, or 2 for RGB565). */
typedef struct pelcast_tile_grid {
  uint32_t columns;
  uint32_t rows;
  uint32_t tile_width;
  uint32_t tile_height;
  uint32_t raw_units;
} pelcast_tile_grid;

PELCAST_API pelcast_status pelcast_tile_grid_of(pelcast_format format, uint32_t width,
                                                uint32_t height, uint32_t plane,
                                                pelcast_tile_grid *grid);

/* Flags of a tile. */
/* Stored raw (uncompressed) as its metadata byte says. */
#define PELCAST_TILE_RAW 1u
/* The metadata byte is not one an encoder writes for this plane (19, 23, 27
 * or 31 for 1 to 4 units; RGB565 19, 23 and 31). The tile is still decoded
 * as a stream, as hardware would. */
#define PELCAST_TILE_BAD_METADATA 2u
/* The compressed stream reads bits past its stored units. Decoding still
 * reads them (the rest of the tile's slot, zeros past the end of the frame),
 * so the tile may even decode as intended, but a reader that fetches only
 * the stored units would not have them: the tile was stored wrongly. Never
 * set for raw tiles or bad metadata. */
#define PELCAST_TILE_OVERRUN 4u

/* How one tile is stored. */
typedef struct pelcast_tile_info {
  uint32_t data_offset;     /* where its stored bytes start, from the frame's start */
  uint32_t metadata_offset; /* where its metadata byte lies, from the frame's start */
  uint16_t stream_bits;     /* bits the compressed stream reads; raw: the raw tile's bits */
  uint8_t metadata;         /* the metadata byte as stored */
  uint8_t units;            /* units it is stored in (raw: raw_units; bad metadata: 0) */
  uint8_t flags;            /* PELCAST_TILE_* */
  uint8_t reserved[3];
} pelcast_tile_info;

/* Fills tiles[row * columns + column] for every tile of `plane` of the frame
 * (grid from pelcast_tile_grid_of; `count` must be at least columns x rows).
 * Reads only the frame; uses the codec's threads. */
PELCAST_API pelcast_status pelcast_codec_tile_info(pelcast_codec *codec, const void *zpak,
                                                   size_t zpak_size, uint32_t plane,
                                                   pelcast_tile_info *tiles, size_t count);

/* Storage figures of one plane of a frame. */
typedef struct pelcast_plane_stats {
  uint64_t tiles;
  /* Units the tiles are stored in; a raw tile and one with bad metadata
   * count as a raw tile. */
  uint64_t units;
  /* Units the same tiles take stored raw (tiles x raw_units). */
  uint64_t raw_units;
  /* Tiles stored compressed in 1, 2, 3 units (index 1 to 3; index 0 is
   * unused), raw, with bad metadata, and overrunning their units. */
  uint64_t tiles_by_units[4];
  uint64_t raw_tiles;
  uint64_t bad_metadata_tiles;
  uint64_t overrun_tiles;
} pelcast_plane_stats;

/* Storage figures of `plane` of the frame: from the metadata bytes, plus the
 * stream lengths for overrun_tiles. units / raw_units is the share of the
 * raw surface's memory bandwidth the frame needs. */
PELCAST_API pelcast_status pelcast_codec_plane_stats(pelcast_codec *codec, const void *zpak,
                                                     size_t zpak_size, uint32_t plane,
                                                     pelcast_plane_stats *stats);

#ifdef __cplusplus
} /* extern "C" */
#endif

#endif /* PELCAST_PELCAST_H_ */
