/*
 * The C side of python/benchmarks/bench.py, loaded into the same process
 * (ctypes) so that each Python call is timed right beside the same calls
 * made from C: libpelcast's public decode and encode on one frame, timed in
 * two ways.
 *
 *   per call  what the Python package does for every frame: create a codec,
 *             set its threads, allocate the output, decode or encode,
 *             destroy the codec and free the output;
 *   reused    one codec and one output buffer for every call.
 *
 * bench_open() checks the output against the expected bytes first, so a
 * wrong result is never timed.
 */
#define _POSIX_C_SOURCE 199309L
#include <pelcast/pelcast.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

typedef struct bench_job {
  int encoding;
  pelcast_format format;
  uint32_t width;
  uint32_t height;
  uint32_t threads;
  const uint8_t *input; /* ZPAK frame to decode or packed linear frame to encode */
  size_t input_size;
  size_t output_size;
  pelcast_codec *codec; /* the reused codec and output */
  uint8_t *output;
} bench_job;

static double now(void) {
  struct timespec t;
  clock_gettime(CLOCK_MONOTONIC, &t);
  return (double)t.tv_sec + (double)t.tv_nsec * 1e-9;
}

static pelcast_status make_codec(const bench_job *job, pelcast_codec **codec) {
  pelcast_status status = pelcast_codec_create(job->format, job->width, job->height, codec);
  if (status == PELCAST_OK) status = pelcast_codec_set_threads(*codec, job->threads);
  return status;
}

static pelcast_status run(const bench_job *job, pelcast_codec *codec, uint8_t *output) {
  pelcast_image image;
  pelcast_status status;
  if (job->encoding) {
    /* Encoding only reads the image. */
    status = pelcast_image_init_packed(&image, job->format, job->width, job->height,
                                       (void *)job->input, job->input_size);
    if (status != PELCAST_OK) return status;
    return pelcast_codec_encode(codec, &image, output, job->output_size);
  }
  status = pelcast_image_init_packed(&image, job->format, job->width, job->height, output,
                                     job->output_size);
  if (status != PELCAST_OK) return status;
  return pelcast_codec_decode(codec, job->input, job->input_size, &image);
}

void bench_close(bench_job *job) {
  if (job == NULL) return;
  pelcast_codec_destroy(job->codec);
  free(job->output);
  free(job);
}

/* A job decoding (encoding = 0) the ZPAK frame `input` or encoding the
 * packed linear frame `input` (encoding = 1) on `threads` threads, whose
 * output must equal `expected` (`output_size` bytes). Null when the output
 * differs or a call fails. The buffers must outlive the job. */
bench_job *bench_open(int encoding, int format, uint32_t width, uint32_t height,
                      const uint8_t *input, size_t input_size, const uint8_t *expected,
                      size_t output_size, uint32_t threads) {
  bench_job *job = calloc(1, sizeof *job);
  if (job == NULL) return NULL;
  job->encoding = encoding;
  job->format = (pelcast_format)format;
  job->width = width;
  job->height = height;
  job->threads = threads;
  job->input = input;
  job->input_size = input_size;
  job->output_size = output_size;
  job->output = malloc(output_size);
  if (job->output == NULL || make_codec(job, &job->codec) != PELCAST_OK ||
      run(job, job->codec, job->output) != PELCAST_OK ||
      memcmp(job->output, expected, output_size) != 0) {
    bench_close(job);
    return NULL;
  }
  return job;
}

/* Seconds of one call as the Python package makes it; negative on failure. */
double bench_per_call(const bench_job *job) {
  const double start = now();
  pelcast_codec *codec = NULL;
  uint8_t *output = malloc(job->output_size);
  pelcast_status status = output == NULL ? PELCAST_ERROR_OUT_OF_MEMORY : make_codec(job, &codec);
  if (status == PELCAST_OK) status = run(job, codec, output);
  pelcast_codec_destroy(codec);
  free(output);
  const double seconds = now() - start;
  return status == PELCAST_OK ? seconds : -1.0;
}

/* Seconds of one call on the job's codec and buffer; negative on failure. */
double bench_reused(const bench_job *job) {
  const double start = now();
  const pelcast_status status = run(job, job->codec, job->output);
  const double seconds = now() - start;
  return status == PELCAST_OK ? seconds : -1.0;
}
