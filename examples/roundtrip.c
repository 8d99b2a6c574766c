/*
 * roundtrip: encodes a file of linear frames to ZPAK with libpelcast, decodes
 * every frame back, checks that it is the input, and prints how many 64-byte
 * units each plane needs. Built against an installed pelcast, e.g.:
 *
 *   cc roundtrip.c $(pkg-config --cflags --libs pelcast) -o roundtrip
 *   ./roundtrip rgba8888 1920 1080 in.rgba out.zpak [threads]
 *
 * Exit status: 0 when every frame came back unchanged, 1 when one did not,
 * 2 on a usage, file or library error.
 */
#include <pelcast/pelcast.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

static int parse_format(const char *name, pelcast_format *format) {
  if (strcmp(name, "nv12") == 0) *format = PELCAST_FORMAT_NV12;
  else if (strcmp(name, "rgba8888") == 0) *format = PELCAST_FORMAT_RGBA8888;
  else if (strcmp(name, "rgb565") == 0) *format = PELCAST_FORMAT_RGB565;
  else return 0;
  return 1;
}

static int fail(const char *what, pelcast_status status) {
  fprintf(stderr, "roundtrip: %s: %s\n", what, pelcast_status_string(status));
  return 2;
}

int main(int argc, char **argv) {
  pelcast_format format;
  if (argc < 6 || argc > 7 || !parse_format(argv[1], &format)) {
    fprintf(stderr, "usage: roundtrip nv12|rgba8888|rgb565 WIDTH HEIGHT IN OUT [THREADS]\n");
    return 2;
  }
  const uint32_t width = (uint32_t)strtoul(argv[2], NULL, 10);
  const uint32_t height = (uint32_t)strtoul(argv[3], NULL, 10);
  const uint32_t threads = argc == 7 ? (uint32_t)strtoul(argv[6], NULL, 10) : 0;
  const size_t linear_size = pelcast_linear_frame_size(format, width, height);
  const size_t zpak_size = pelcast_zpak_frame_size(format, width, height);
  if (linear_size == 0 || zpak_size == 0) return fail("frame size", PELCAST_ERROR_INVALID_ARGUMENT);

  pelcast_codec *codec = NULL;
  pelcast_status status = pelcast_codec_create(format, width, height, &codec);
  if (status != PELCAST_OK) return fail("codec", status);
  status = pelcast_codec_set_threads(codec, threads);
  if (status != PELCAST_OK) return fail("threads", status);

  FILE *in = fopen(argv[4], "rb");
  FILE *out = fopen(argv[5], "wb");
  unsigned char *linear = malloc(linear_size);
  unsigned char *decoded = malloc(linear_size);
  unsigned char *zpak = malloc(zpak_size);
  if (in == NULL || out == NULL || linear == NULL || decoded == NULL || zpak == NULL) {
    fprintf(stderr, "roundtrip: cannot open the files or allocate the frames\n");
    return 2;
  }
  pelcast_image image, back;
  pelcast_image_init_packed(&image, format, width, height, linear, linear_size);
  pelcast_image_init_packed(&back, format, width, height, decoded, linear_size);

  int result = 0;
  unsigned frames = 0;
  while (fread(linear, 1, linear_size, in) == linear_size) {
    status = pelcast_codec_encode(codec, &image, zpak, zpak_size);
    if (status == PELCAST_OK) status = pelcast_codec_decode(codec, zpak, zpak_size, &back);
    if (status != PELCAST_OK) return fail("frame", status);
    if (fwrite(zpak, 1, zpak_size, out) != zpak_size) {
      fprintf(stderr, "roundtrip: cannot write %s\n", argv[5]);
      return 2;
    }
    for (uint32_t plane = 0; plane < pelcast_plane_count(format); ++plane) {
      pelcast_plane_stats stats;
      status = pelcast_codec_plane_stats(codec, zpak, zpak_size, plane, &stats);
      if (status != PELCAST_OK) return fail("stats", status);
      printf("frame %u plane %u: %llu tiles, %llu of %llu units (%.3f)\n", frames, plane,
             (unsigned long long)stats.tiles, (unsigned long long)stats.units,
             (unsigned long long)stats.raw_units, (double)stats.units / (double)stats.raw_units);
    }
    if (memcmp(linear, decoded, linear_size) != 0) {
      printf("frame %u: decoded frame differs from the input\n", frames);
      result = 1;
    }
    ++frames;
  }
  printf("%u frames, pelcast %s, %u threads\n", frames, pelcast_version(),
         pelcast_codec_threads(codec));
  pelcast_codec_destroy(codec);
  free(linear);
  free(decoded);
  free(zpak);
  fclose(in);
  fclose(out);
  return result;
}
