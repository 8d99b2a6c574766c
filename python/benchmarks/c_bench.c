/*
 * The C side of python/benchmarks/bench.py: times libpelcast's public decode
 * and encode calls on one frame, in two ways:
 *
 *   per_call  what the Python package does for every frame: create a codec,
 *             set its threads, allocate the output, decode or encode,
 *             destroy the codec and free the output;
 *   reused    one codec and one output buffer for every call.
 *
 *   c_bench decode|encode FORMAT WIDTH HEIGHT LINEAR_FILE ZPAK_FILE THREADS CALLS
 *
 * FORMAT is nv12, rgba8888 or rgb565; LINEAR_FILE holds one packed linear
 * frame, ZPAK_FILE its ZPAK frame. Every output is compared with the other
 * file first, so a wrong result cannot be timed. Prints "per_call S" and
 * "reused S", the median seconds of CALLS calls each.
 */
#define _POSIX_C_SOURCE 199309L
#include <pelcast/pelcast.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

typedef struct {
  pelcast_format format;
  uint32_t width;
  uint32_t height;
  uint32_t threads;
  int encoding;
  const uint8_t* input; /* ZPAK frame to decode or linear frame to encode */
  size_t input_size;
  const uint8_t* expected; /* what the call must give */
  size_t output_size;
} job;

static double now(void) {
  struct timespec t;
  clock_gettime(CLOCK_MONOTONIC, &t);
  return (double)t.tv_sec + (double)t.tv_nsec * 1e-9;
}

static void fail(const char* what, const char* detail) {
  fprintf(stderr, "c_bench: %s: %s\n", what, detail);
  exit(1);
}

static uint8_t* read_file(const char* path, size_t* size) {
  FILE* file = fopen(path, "rb");
  if (file == NULL) fail("cannot open", path);
  fseek(file, 0, SEEK_END);
  *size = (size_t)ftell(file);
  fseek(file, 0, SEEK_SET);
  uint8_t* data = malloc(*size);
  if (data == NULL || fread(data, 1, *size, file) != *size) fail("cannot read", path);
  fclose(file);
  return data;
}

static pelcast_format parse_format(const char* name) {
  if (strcmp(name, "nv12") == 0) return PELCAST_FORMAT_NV12;
  if (strcmp(name, "rgba8888") == 0) return PELCAST_FORMAT_RGBA8888;
  if (strcmp(name, "rgb565") == 0) return PELCAST_FORMAT_RGB565;
  fail("unknown format", name);
  return PELCAST_FORMAT_NV12;
}

static void check(pelcast_status status, const char* what) {
  if (status != PELCAST_OK) fail(what, pelcast_status_string(status));
}

static pelcast_codec* make_codec(const job* j) {
  pelcast_codec* codec = NULL;
  check(pelcast_codec_create(j->format, j->width, j->height, &codec), "pelcast_codec_create");
  check(pelcast_codec_set_threads(codec, j->threads), "pelcast_codec_set_threads");
  return codec;
}

/* One decode or encode into `output` with `codec`. */
static void run(const job* j, pelcast_codec* codec, uint8_t* output) {
  pelcast_image image;
  if (j->encoding) {
    check(pelcast_image_init_packed(&image, j->format, j->width, j->height, (void*)j->input,
                                    j->input_size),
          "pelcast_image_init_packed");
    check(pelcast_codec_encode(codec, &image, output, j->output_size), "pelcast_codec_encode");
  } else {
    check(pelcast_image_init_packed(&image, j->format, j->width, j->height, output, j->output_size),
          "pelcast_image_init_packed");
    check(pelcast_codec_decode(codec, j->input, j->input_size, &image), "pelcast_codec_decode");
  }
}

static void run_per_call(const job* j) {
  pelcast_codec* codec = make_codec(j);
  uint8_t* output = malloc(j->output_size);
  if (output == NULL) fail("malloc", "output");
  run(j, codec, output);
  pelcast_codec_destroy(codec);
  free(output);
}

static int compare_doubles(const void* a, const void* b) {
  const double x = *(const double*)a, y = *(const double*)b;
  return (x > y) - (x < y);
}

static double median(double* times, int count) {
  qsort(times, (size_t)count, sizeof *times, compare_doubles);
  return times[count / 2];
}

int main(int argc, char** argv) {
  if (argc != 9) {
    fprintf(stderr, "usage: c_bench decode|encode FORMAT WIDTH HEIGHT LINEAR ZPAK THREADS CALLS\n");
    return 2;
  }
  job j;
  j.encoding = strcmp(argv[1], "encode") == 0;
  j.format = parse_format(argv[2]);
  j.width = (uint32_t)strtoul(argv[3], NULL, 10);
  j.height = (uint32_t)strtoul(argv[4], NULL, 10);
  size_t linear_size, zpak_size;
  const uint8_t* linear = read_file(argv[5], &linear_size);
  const uint8_t* zpak = read_file(argv[6], &zpak_size);
  j.threads = (uint32_t)strtoul(argv[7], NULL, 10);
  const int calls = atoi(argv[8]);
  if (calls < 1) fail("CALLS", "must be at least 1");
  if (linear_size != pelcast_linear_frame_size(j.format, j.width, j.height))
    fail("size of", argv[5]);
  if (zpak_size != pelcast_zpak_frame_size(j.format, j.width, j.height)) fail("size of", argv[6]);
  j.input = j.encoding ? linear : zpak;
  j.input_size = j.encoding ? linear_size : zpak_size;
  j.expected = j.encoding ? zpak : linear;
  j.output_size = j.encoding ? zpak_size : linear_size;

  pelcast_codec* codec = make_codec(&j);
  uint8_t* output = malloc(j.output_size);
  if (output == NULL) fail("malloc", "output");
  run(&j, codec, output);
  if (memcmp(output, j.expected, j.output_size) != 0) fail(argv[1], "output differs from the file");

  double* times = malloc(sizeof(double) * (size_t)calls);
  if (times == NULL) fail("malloc", "times");
  for (int i = 0; i < calls; ++i) {
    const double start = now();
    run_per_call(&j);
    times[i] = now() - start;
  }
  printf("per_call %.9f\n", median(times, calls));
  for (int i = 0; i < calls; ++i) {
    const double start = now();
    run(&j, codec, output);
    times[i] = now() - start;
  }
  printf("reused %.9f\n", median(times, calls));
  pelcast_codec_destroy(codec);
  free(output);
  free(times);
  return 0;
}
