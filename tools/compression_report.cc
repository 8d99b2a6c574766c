// pelcast-report: how compact the encoder makes real frames, and how fast.
//
//   pelcast-report CORPUS_DIR [--speed]
//
// Encodes every 1920x1080 frame of the .nv12, .rgba and .rgb565 files in
// CORPUS_DIR through the public API and prints, per frame and plane, the
// 64-byte units stored against the units of the raw tiles and the share of
// tiles stored raw, then the totals. With --speed it also times the encoder
// per format (one thread) and prints MB/s of linear input.
#include <pelcast/pelcast.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

namespace {

constexpr uint32_t kWidth = 1920;
constexpr uint32_t kHeight = 1080;
constexpr int kSpeedRepeats = 5;

struct Kind {
  const char* extension;
  const char* name;
  pelcast_format format;
};
constexpr Kind kKinds[] = {{".nv12", "NV12", PELCAST_FORMAT_NV12},
                           {".rgba", "RGBA", PELCAST_FORMAT_RGBA8888},
                           {".rgb565", "RGB565", PELCAST_FORMAT_RGB565}};
constexpr size_t kKindCount = std::size(kKinds);

struct PlaneCount {
  uint64_t tiles = 0, units = 0, rawUnits = 0, rawTiles = 0;
  void Add(const PlaneCount& o) {
    tiles += o.tiles;
    units += o.units;
    rawUnits += o.rawUnits;
    rawTiles += o.rawTiles;
  }
};

void PrintCount(const char* label, const PlaneCount& p) {
  std::printf("  %-7s %8llu of %8llu units (%5.1f%% of raw), %5.1f%% of %llu tiles raw\n", label,
              static_cast<unsigned long long>(p.units), static_cast<unsigned long long>(p.rawUnits),
              p.rawUnits != 0 ? 100.0 * p.units / p.rawUnits : 0.0,
              p.tiles != 0 ? 100.0 * p.rawTiles / p.tiles : 0.0, static_cast<unsigned long long>(p.tiles));
}

bool Report(const char* what, pelcast_status status) {
  if (status == PELCAST_OK) return true;
  std::fprintf(stderr, "pelcast-report: %s: %s\n", what, pelcast_status_string(status));
  return false;
}

// Encodes one frame `repeats` times; returns the seconds it took and the
// counts of each plane.
bool EncodeFrame(pelcast_codec* codec, const Kind& kind, const uint8_t* frame, int repeats,
                 std::vector<uint8_t>* zpak, std::vector<PlaneCount>* planes, double* seconds) {
  pelcast_image image;
  const size_t bytes = pelcast_linear_frame_size(kind.format, kWidth, kHeight);
  if (!Report("image", pelcast_image_init_packed(&image, kind.format, kWidth, kHeight,
                                                 const_cast<uint8_t*>(frame), bytes))) {
    return false;
  }
  const auto start = std::chrono::steady_clock::now();
  for (int i = 0; i < repeats; ++i) {
    if (!Report("encode", pelcast_codec_encode(codec, &image, zpak->data(), zpak->size()))) return false;
  }
  *seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  planes->clear();
  for (uint32_t p = 0; p < pelcast_plane_count(kind.format); ++p) {
    pelcast_plane_stats stats;
    if (!Report("stats", pelcast_codec_plane_stats(codec, zpak->data(), zpak->size(), p, &stats))) {
      return false;
    }
    planes->push_back(PlaneCount{stats.tiles, stats.units, stats.raw_units, stats.raw_tiles});
  }
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    std::puts("usage: pelcast-report CORPUS_DIR [--speed]");
    return 0;
  }
  const bool speed = argc > 2 && std::strcmp(argv[2], "--speed") == 0;
  const int repeats = speed ? kSpeedRepeats : 1;
  std::vector<std::filesystem::path> files;
  for (const auto& entry : std::filesystem::directory_iterator(argv[1])) files.push_back(entry.path());
  std::sort(files.begin(), files.end());
  PlaneCount totals[kKindCount];
  double seconds[kKindCount] = {};
  double bytes[kKindCount] = {};
  for (const auto& path : files) {
    const auto kind = std::find_if(std::begin(kKinds), std::end(kKinds), [&](const Kind& k) {
      return path.extension() == k.extension;
    });
    if (kind == std::end(kKinds)) continue;
    const size_t k = static_cast<size_t>(kind - std::begin(kKinds));
    const size_t frameBytes = pelcast_linear_frame_size(kind->format, kWidth, kHeight);
    std::vector<uint8_t> data(std::filesystem::file_size(path));
    FILE* f = std::fopen(path.c_str(), "rb");
    if (f == nullptr || std::fread(data.data(), 1, data.size(), f) != data.size()) return 1;
    std::fclose(f);
    pelcast_codec* codec = nullptr;
    if (!Report("codec", pelcast_codec_create(kind->format, kWidth, kHeight, &codec))) return 1;
    std::vector<uint8_t> zpak(pelcast_zpak_frame_size(kind->format, kWidth, kHeight));
    std::vector<PlaneCount> planes;
    for (size_t n = 0; n * frameBytes + frameBytes <= data.size(); ++n) {
      double taken = 0;
      if (!EncodeFrame(codec, *kind, data.data() + n * frameBytes, repeats, &zpak, &planes, &taken)) {
        return 1;
      }
      std::printf("%s frame %zu\n", path.filename().c_str(), n);
      PlaneCount all;
      for (size_t p = 0; p < planes.size(); ++p) {
        PrintCount(planes.size() == 1 ? "plane" : (p == 0 ? "Y" : "UV"), planes[p]);
        all.Add(planes[p]);
      }
      if (planes.size() > 1) PrintCount("frame", all);
      totals[k].Add(all);
      seconds[k] += taken;
      bytes[k] += static_cast<double>(frameBytes) * repeats;
    }
    pelcast_codec_destroy(codec);
  }
  std::puts("totals");
  PlaneCount all;
  for (size_t k = 0; k < kKindCount; ++k) {
    PrintCount(kKinds[k].name, totals[k]);
    all.Add(totals[k]);
  }
  PrintCount("all", all);
  if (speed) {
    for (size_t k = 0; k < kKindCount; ++k) {
      if (seconds[k] > 0) {
        std::printf("encode speed %-8s %7.1f MB/s of linear input\n", kKinds[k].name,
                    bytes[k] / seconds[k] / 1e6);
      }
    }
  }
  return 0;
}
