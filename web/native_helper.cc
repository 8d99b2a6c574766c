// pelcast-web-helper: the native side of the viewer's tests and speed
// check, on the public API.
//
//   pelcast-web-helper encode FORMAT WIDTH HEIGHT LINEAR ZPAK
//       encodes every frame of a linear file (RGB565 too, which no pelcast
//       command encodes)
//   pelcast-web-helper tiles FORMAT WIDTH HEIGHT ZPAK FRAME
//       prints how every tile of one frame is stored, and the plane figures,
//       as JSON
//   pelcast-web-helper time-decode FORMAT WIDTH HEIGHT ZPAK RUNS
//       decodes the first frame RUNS times on one thread (pelcast_codec_decode,
//       as the page does) and prints the time as JSON
//
// FORMAT is nv12, rgba8888 or rgb565. Exit status 0 on success, 2 on an
// error (printed to standard error).
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <optional>
#include <string>
#include <vector>

#include "pelcast/pelcast.h"
#include "tools/zpak/formats.h"
#include "web/viewer_core.h"

namespace {

using Bytes = std::vector<uint8_t>;
constexpr int kFailure = 2;

int Fail(const std::string& message) {
  std::fprintf(stderr, "pelcast-web-helper: %s\n", message.c_str());
  return kFailure;
}

bool ParseFormat(const char* name, pelcast_format* format) {
  const std::optional<pelcast_format> parsed = pelcast::zpak::ParseFormat(name);
  if (parsed) *format = *parsed;
  return parsed.has_value();
}

bool ReadAll(const char* path, Bytes* out) {
  std::ifstream in(path, std::ios::binary);
  if (!in) return false;
  out->assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
  return true;
}

bool WriteAll(const char* path, const Bytes& bytes) {
  std::ofstream out(path, std::ios::binary);
  out.write(reinterpret_cast<const char*>(bytes.data()),
            static_cast<std::streamsize>(bytes.size()));
  return static_cast<bool>(out);
}

struct Frames {
  pelcast_format format;
  uint32_t width, height;
  size_t zpakBytes, linearBytes;
};

int Encode(const Frames& f, const char* linearPath, const char* zpakPath) {
  Bytes linear;
  if (!ReadAll(linearPath, &linear)) return Fail(std::string("cannot read ") + linearPath);
  const size_t frames = linear.size() / f.linearBytes;
  if (frames == 0) return Fail("no whole frame in the input");
  Bytes zpak(frames * f.zpakBytes);
  for (size_t i = 0; i < frames; ++i) {
    const pelcast_status s =
        pelcast_encode_frame(f.format, f.width, f.height, linear.data() + i * f.linearBytes,
                             f.linearBytes, zpak.data() + i * f.zpakBytes, f.zpakBytes);
    if (s != PELCAST_OK) return Fail(pelcast_status_string(s));
  }
  return WriteAll(zpakPath, zpak) ? 0 : Fail(std::string("cannot write ") + zpakPath);
}

std::string PlaneTilesJson(pelcast_codec* codec, const uint8_t* frame, const Frames& f,
                           uint32_t plane, pelcast_plane_stats* stats) {
  pelcast_tile_grid grid{};
  pelcast_tile_grid_of(f.format, f.width, f.height, plane, &grid);
  std::vector<pelcast_tile_info> tiles(size_t{grid.columns} * grid.rows);
  pelcast_codec_tile_info(codec, frame, f.zpakBytes, plane, tiles.data(), tiles.size());
  pelcast_codec_plane_stats(codec, frame, f.zpakBytes, plane, stats);
  std::string out = "{\"columns\": " + std::to_string(grid.columns) +
                    ", \"rows\": " + std::to_string(grid.rows) +
                    ", \"tile_width\": " + std::to_string(grid.tile_width) +
                    ", \"tile_height\": " + std::to_string(grid.tile_height) + ", \"tiles\": [";
  for (size_t i = 0; i < tiles.size(); ++i) {
    const pelcast_tile_info& t = tiles[i];
    out += (i == 0 ? "[" : ", [") + std::to_string(t.metadata) + ", " + std::to_string(t.units) +
           ", " + std::to_string(t.flags) + ", " + std::to_string(t.stream_bits) + "]";
  }
  return out + "]}";
}

int Tiles(const Frames& f, const char* zpakPath, size_t frame) {
  Bytes zpak;
  if (!ReadAll(zpakPath, &zpak)) return Fail(std::string("cannot read ") + zpakPath);
  if ((frame + 1) * f.zpakBytes > zpak.size()) return Fail("no such frame");
  pelcast_codec* codec = nullptr;
  const pelcast_status s = pelcast_codec_create(f.format, f.width, f.height, &codec);
  if (s != PELCAST_OK) return Fail(pelcast_status_string(s));
  pelcast_plane_stats stats[2] = {};
  std::string out = "{\"planes\": [";
  const uint32_t planes = pelcast_plane_count(f.format);
  for (uint32_t p = 0; p < planes; ++p) {
    if (p > 0) out += ", ";
    out += PlaneTilesJson(codec, zpak.data() + frame * f.zpakBytes, f, p, &stats[p]);
  }
  pelcast_codec_destroy(codec);
  std::printf("%s], \"stats\": %s}\n", out.c_str(),
              pelcast::web::PlaneStatsJson(f.format, stats, planes).c_str());
  return 0;
}

int TimeDecode(const Frames& f, const char* zpakPath, uint32_t runs) {
  Bytes zpak;
  if (!ReadAll(zpakPath, &zpak) || zpak.size() < f.zpakBytes) return Fail("no whole frame");
  Bytes linear(f.linearBytes);
  pelcast_codec* codec = nullptr;
  pelcast_status s = pelcast_codec_create(f.format, f.width, f.height, &codec);
  if (s != PELCAST_OK) return Fail(pelcast_status_string(s));
  pelcast_image image;
  pelcast_image_init_packed(&image, f.format, f.width, f.height, linear.data(), linear.size());
  s = pelcast_codec_decode(codec, zpak.data(), f.zpakBytes, &image);  // warms the caches
  const auto start = std::chrono::steady_clock::now();
  for (uint32_t i = 0; i < runs && s == PELCAST_OK; ++i) {
    s = pelcast_codec_decode(codec, zpak.data(), f.zpakBytes, &image);
  }
  const std::chrono::duration<double, std::milli> elapsed =
      std::chrono::steady_clock::now() - start;
  pelcast_codec_destroy(codec);
  if (s != PELCAST_OK) return Fail(pelcast_status_string(s));
  const double bytes = static_cast<double>(f.linearBytes) * runs;
  std::printf("{\"runs\": %u, \"ms\": %.3f, \"linear_bytes\": %zu, \"mb_per_s\": %.1f}\n", runs,
              elapsed.count(), f.linearBytes, bytes / 1e3 / elapsed.count());
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  constexpr int kArgs = 7;
  Frames f{};
  if (argc != kArgs || !ParseFormat(argv[2], &f.format)) {
    return Fail("usage: encode|tiles|time-decode FORMAT WIDTH HEIGHT FILE FILE|FRAME|RUNS");
  }
  f.width = static_cast<uint32_t>(std::strtoul(argv[3], nullptr, 10));
  f.height = static_cast<uint32_t>(std::strtoul(argv[4], nullptr, 10));
  f.zpakBytes = pelcast_zpak_frame_size(f.format, f.width, f.height);
  f.linearBytes = pelcast_linear_frame_size(f.format, f.width, f.height);
  if (f.zpakBytes == 0) return Fail("size refused");
  const std::string command = argv[1];
  if (command == "encode") return Encode(f, argv[5], argv[6]);
  if (command == "tiles") return Tiles(f, argv[5], std::strtoul(argv[6], nullptr, 10));
  if (command == "time-decode") {
    return TimeDecode(f, argv[5], static_cast<uint32_t>(std::strtoul(argv[6], nullptr, 10)));
  }
  return Fail("unknown command " + command);
}
