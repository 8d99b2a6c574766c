// The viewer's WebAssembly module: C functions the page calls (viewer.js),
// over the public C API, identify and viewer_core.
//
// A viewer holds one format and size: the frame as the file stores it, the
// decoded packed frame, its picture (RGBA), the tile descriptions and
// storage figures of every plane, and one overlay picture (cost map or
// difference). The page copies a frame's bytes to pv_input() and calls
// pv_load(). Codecs keep their single thread: the page has no workers.
//
// Strings returned are valid until the next call that returns a string.
#include <emscripten/emscripten.h>

#include <string>
#include <vector>

#include "pelcast/pelcast.h"
#include "tools/zpak/compare.h"
#include "tools/zpak/formats.h"
#include "tools/zpak/identify.h"
#include "tools/zpak/pictures.h"
#include "web/viewer_core.h"

namespace {

using pelcast::zpak::Raster;
using pelcast::zpak::YuvMatrix;

constexpr uint32_t kMaxPlanes = 2;
constexpr uint32_t kRgbaBytes = 4;

struct Viewer {
  pelcast_format format = PELCAST_FORMAT_NV12;
  uint32_t width = 0;
  uint32_t height = 0;
  pelcast_codec* codec = nullptr;  // null for a linear file
  uint32_t planes = 0;
  std::vector<uint8_t> zpak;         // one ZPAK frame (empty for a linear file)
  std::vector<uint8_t> packed;       // the packed linear frame
  Raster picture;                    // the frame as zpak pictures it (RGB, or RGBA)
  Raster overlay;                    // a cost map or difference picture (RGB)
  std::vector<uint8_t> pictureRgba;  // for the canvas, width x height x 4
  std::vector<uint8_t> overlayRgba;
  pelcast_tile_grid grids[kMaxPlanes] = {};
  std::vector<pelcast_tile_info> tiles[kMaxPlanes];
  pelcast_plane_stats stats[kMaxPlanes] = {};
  double decodeMs = 0;
  YuvMatrix matrix = YuvMatrix::kBt709;
  bool opaque = false;
};

std::string g_text;

const char* Keep(std::string text) {
  g_text = std::move(text);
  return g_text.c_str();
}

bool MakeBuffers(Viewer* v, bool zpak) {
  const size_t linear = pelcast_linear_frame_size(v->format, v->width, v->height);
  if (linear == 0) return false;
  v->planes = pelcast_plane_count(v->format);
  v->packed.assign(linear, 0);
  const size_t pixels = size_t{v->width} * v->height * kRgbaBytes;
  v->pictureRgba.assign(pixels, 0);
  v->overlayRgba.assign(pixels, 0);
  for (uint32_t p = 0; p < v->planes; ++p) {
    if (pelcast_tile_grid_of(v->format, v->width, v->height, p, &v->grids[p]) != PELCAST_OK) {
      return false;
    }
    if (zpak) {
      v->tiles[p].assign(size_t{v->grids[p].columns} * v->grids[p].rows, pelcast_tile_info{});
    }
  }
  if (!zpak) return true;
  v->zpak.assign(pelcast_zpak_frame_size(v->format, v->width, v->height), 0);
  return pelcast_codec_create(v->format, v->width, v->height, &v->codec) == PELCAST_OK;
}

void Render(Viewer* v) {
  pelcast::zpak::RasterOfFrame(v->format, v->width, v->height, v->packed.data(), v->matrix,
                               &v->picture);
  pelcast::web::RasterToRgba(v->picture, v->opaque, v->pictureRgba.data());
}

uint8_t* ShowOverlay(Viewer* v) {
  pelcast::web::RasterToRgba(v->overlay, true, v->overlayRgba.data());
  return v->overlayRgba.data();
}

bool SameFrames(const Viewer* a, const Viewer* b) {
  return a->format == b->format && a->width == b->width && a->height == b->height;
}

pelcast_status DescribeTiles(Viewer* v) {
  for (uint32_t p = 0; p < v->planes; ++p) {
    pelcast_status s = pelcast_codec_tile_info(v->codec, v->zpak.data(), v->zpak.size(), p,
                                               v->tiles[p].data(), v->tiles[p].size());
    if (s == PELCAST_OK) {
      s = pelcast_codec_plane_stats(v->codec, v->zpak.data(), v->zpak.size(), p, &v->stats[p]);
    }
    if (s != PELCAST_OK) return s;
  }
  return PELCAST_OK;
}

pelcast_status Decode(Viewer* v) {
  pelcast_image image;
  pelcast_status s = pelcast_image_init_packed(&image, v->format, v->width, v->height,
                                               v->packed.data(), v->packed.size());
  if (s != PELCAST_OK) return s;
  const double start = emscripten_get_now();
  s = pelcast_codec_decode(v->codec, v->zpak.data(), v->zpak.size(), &image);
  v->decodeMs = emscripten_get_now() - start;
  return s;
}

}  // namespace

// Copies up to `count` bytes at `offset` of the file being identified into
// `out`; the page keeps the file's bytes (Module.pelcastReadFile).
EM_JS(double, ReadIdentifiedFile, (double offset, double count, uint8_t* out),
      { return Module.pelcastReadFile(offset, count, out); });

extern "C" {

EMSCRIPTEN_KEEPALIVE const char* pv_version() { return pelcast_version(); }

EMSCRIPTEN_KEEPALIVE const char* pv_status_string(int status) {
  return pelcast_status_string(static_cast<pelcast_status>(status));
}

EMSCRIPTEN_KEEPALIVE double pv_zpak_frame_size(int format, uint32_t width, uint32_t height) {
  return static_cast<double>(
      pelcast_zpak_frame_size(static_cast<pelcast_format>(format), width, height));
}

EMSCRIPTEN_KEEPALIVE double pv_linear_frame_size(int format, uint32_t width, uint32_t height) {
  return static_cast<double>(
      pelcast_linear_frame_size(static_cast<pelcast_format>(format), width, height));
}

// A viewer for frames of `format` at width x height, stored as ZPAK (`zpak`
// non-zero) or linear; null when the size is refused or memory runs out.
EMSCRIPTEN_KEEPALIVE Viewer* pv_create(int format, uint32_t width, uint32_t height, int zpak) {
  auto* v = new Viewer;
  v->format = static_cast<pelcast_format>(format);
  v->width = width;
  v->height = height;
  if (!MakeBuffers(v, zpak != 0)) {
    pelcast_codec_destroy(v->codec);
    delete v;
    return nullptr;
  }
  return v;
}

EMSCRIPTEN_KEEPALIVE void pv_destroy(Viewer* v) {
  if (v == nullptr) return;
  pelcast_codec_destroy(v->codec);
  delete v;
}

// Where the page puts one frame as the file stores it, and its bytes.
EMSCRIPTEN_KEEPALIVE uint8_t* pv_input(Viewer* v) {
  return v->codec != nullptr ? v->zpak.data() : v->packed.data();
}
EMSCRIPTEN_KEEPALIVE double pv_input_size(Viewer* v) {
  return static_cast<double>(v->codec != nullptr ? v->zpak.size() : v->packed.size());
}

// Decodes the frame at pv_input() (a ZPAK viewer), describes its tiles and
// paints its picture. Returns a pelcast_status.
EMSCRIPTEN_KEEPALIVE int pv_load(Viewer* v) {
  if (v->codec != nullptr) {
    pelcast_status s = Decode(v);
    if (s == PELCAST_OK) s = DescribeTiles(v);
    if (s != PELCAST_OK) return s;
  }
  Render(v);
  return PELCAST_OK;
}

EMSCRIPTEN_KEEPALIVE double pv_decode_ms(Viewer* v) { return v->decodeMs; }

// Decodes the loaded frame `runs` times; the milliseconds they took.
EMSCRIPTEN_KEEPALIVE double pv_benchmark(Viewer* v, uint32_t runs) {
  if (v->codec == nullptr) return 0;
  double total = 0;
  for (uint32_t i = 0; i < runs; ++i) {
    if (Decode(v) != PELCAST_OK) return -1;
    total += v->decodeMs;
  }
  return total;
}

// How the picture shows the frame: NV12's matrix (0 BT.709, 1 BT.601) and
// whether RGBA8888's alpha is ignored.
EMSCRIPTEN_KEEPALIVE void pv_set_display(Viewer* v, int matrix, int opaque) {
  v->matrix = matrix == 1 ? YuvMatrix::kBt601 : YuvMatrix::kBt709;
  v->opaque = opaque != 0;
  Render(v);
}

EMSCRIPTEN_KEEPALIVE uint8_t* pv_picture(Viewer* v) { return v->pictureRgba.data(); }
EMSCRIPTEN_KEEPALIVE uint8_t* pv_packed(Viewer* v) { return v->packed.data(); }
EMSCRIPTEN_KEEPALIVE uint32_t pv_planes(Viewer* v) { return v->planes; }

// The sample values at picture pixel (x, y) into out[0..3]; their count.
EMSCRIPTEN_KEEPALIVE uint32_t pv_samples(Viewer* v, uint32_t x, uint32_t y, uint32_t* out) {
  return pelcast::web::SamplesAt(v->format, v->width, v->height, v->packed.data(), x, y, out);
}

// The tile grid of a plane (5 uint32: columns, rows, tile width, tile
// height, raw units), and its tiles (pelcast_tile_info, 16 bytes each, in
// raster order) for a ZPAK viewer; null otherwise.
EMSCRIPTEN_KEEPALIVE const pelcast_tile_grid* pv_grid(Viewer* v, uint32_t plane) {
  return plane < v->planes ? &v->grids[plane] : nullptr;
}
EMSCRIPTEN_KEEPALIVE const pelcast_tile_info* pv_tiles(Viewer* v, uint32_t plane) {
  return v->codec != nullptr && plane < v->planes ? v->tiles[plane].data() : nullptr;
}

EMSCRIPTEN_KEEPALIVE const char* pv_stats_json(Viewer* v) {
  if (v->codec == nullptr) return Keep("[]");
  return Keep(pelcast::web::PlaneStatsJson(v->format, v->stats, v->planes));
}

// The cost map of `plane` (zpak info's) into the overlay; null for a linear
// viewer.
EMSCRIPTEN_KEEPALIVE uint8_t* pv_cost_map(Viewer* v, uint32_t plane) {
  if (v->codec == nullptr || plane >= v->planes) return nullptr;
  pelcast::zpak::DrawCostMap(v->picture, v->grids[plane], v->tiles[plane], &v->overlay);
  return ShowOverlay(v);
}

// zpak compare's figures of `a` against `b` (same format and size), listing
// at most `maxTiles` differing tiles per plane.
EMSCRIPTEN_KEEPALIVE const char* pv_compare_json(Viewer* a, Viewer* b, uint32_t maxTiles) {
  if (!SameFrames(a, b)) return Keep("null");
  return Keep(
      pelcast::web::CompareJson(pelcast::zpak::CompareFrames(a->format, a->width, a->height,
                                                             a->packed.data(), b->packed.data()),
                                maxTiles));
}

// zpak compare's difference picture of `a` against `b` into a's overlay.
EMSCRIPTEN_KEEPALIVE uint8_t* pv_difference(Viewer* a, Viewer* b) {
  if (!SameFrames(a, b)) return nullptr;
  const pelcast::zpak::FrameDifference difference = pelcast::zpak::CompareFrames(
      a->format, a->width, a->height, a->packed.data(), b->packed.data());
  pelcast::zpak::DrawDifference(a->format, a->width, a->height, a->packed.data(), b->packed.data(),
                                difference, &a->overlay);
  return ShowOverlay(a);
}

// identify's JSON for a ZPAK file of `fileBytes` bytes named `name`, read
// through Module.pelcastReadFile.
EMSCRIPTEN_KEEPALIVE const char* pv_identify(double fileBytes, const char* name) {
  pelcast::zpak::IdentifyOptions options;
  options.threads = 1;
  const pelcast::zpak::ReadAt read = [](uint64_t offset, size_t count, uint8_t* out) {
    return static_cast<size_t>(
        ReadIdentifiedFile(static_cast<double>(offset), static_cast<double>(count), out));
  };
  return Keep(pelcast::zpak::IdentifyJson(
      pelcast::zpak::Identify(read, static_cast<uint64_t>(fileBytes), name, options)));
}

// The sizes and formats a file name names: {"sizes": [[w, h], ...],
// "formats": ["nv12", ...]}.
EMSCRIPTEN_KEEPALIVE const char* pv_name_hints(const char* name) {
  const pelcast::zpak::NameHints hints = pelcast::zpak::ParseNameHints(name);
  std::string out = "{\"sizes\": [";
  for (size_t i = 0; i < hints.sizes.size(); ++i) {
    out += (i == 0 ? "[" : ", [") + std::to_string(hints.sizes[i].width) + ", " +
           std::to_string(hints.sizes[i].height) + "]";
  }
  out += "], \"formats\": [";
  for (size_t i = 0; i < hints.formats.size(); ++i) {
    out +=
        (i == 0 ? "\"" : ", \"") + std::string(pelcast::zpak::FormatName(hints.formats[i])) + "\"";
  }
  return Keep(out + "]}");
}

}  // extern "C"
