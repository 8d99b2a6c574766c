#include "tools/zpak/info.h"

#include <cinttypes>
#include <cstdio>

#include "tools/zpak/formats.h"

namespace pelcast::zpak {
namespace {

constexpr double kPercent = 100.0;
constexpr int kRatioDecimals = 6;

template <typename... Args>
std::string Printf(const char* format, Args... args) {
  char line[256];
  std::snprintf(line, sizeof line, format, args...);
  return line;
}

double Share(uint64_t count, uint64_t total) {
  return total == 0 ? 0.0 : kPercent * static_cast<double>(count) / static_cast<double>(total);
}

void Add(const pelcast_plane_stats& s, pelcast_plane_stats* sum) {
  sum->tiles += s.tiles;
  sum->units += s.units;
  sum->raw_units += s.raw_units;
  for (int u = 0; u < 4; ++u) sum->tiles_by_units[u] += s.tiles_by_units[u];
  sum->raw_tiles += s.raw_tiles;
  sum->bad_metadata_tiles += s.bad_metadata_tiles;
  sum->overrun_tiles += s.overrun_tiles;
}

std::string PlaneRow(const PlaneFigures& p) {
  const pelcast_plane_stats& s = p.stats;
  std::string row = Printf("%-7s %9" PRIu64 " %10" PRIu64 " %10" PRIu64 " %6.3f", p.name.c_str(),
                           s.tiles, s.units, s.raw_units, BandwidthRatio(s));
  for (int u = 1; u <= 3; ++u) row += Printf(" %6.1f%%", Share(s.tiles_by_units[u], s.tiles));
  row += Printf(" %6.1f%% %8.1f%%", Share(s.raw_tiles, s.tiles), Share(s.bad_metadata_tiles, s.tiles));
  return row + Printf(" %8" PRIu64 "\n", s.overrun_tiles);
}

}  // namespace

bool MeasureFrame(pelcast_codec* codec, pelcast_format format, const uint8_t* zpak,
                  size_t zpakBytes, FrameFigures* figures) {
  figures->planes.clear();
  PlaneFigures all{"all", {}};
  const uint32_t planes = pelcast_plane_count(format);
  for (uint32_t p = 0; p < planes; ++p) {
    PlaneFigures plane;
    plane.name = PlaneName(format, p);
    if (pelcast_codec_plane_stats(codec, zpak, zpakBytes, p, &plane.stats) != PELCAST_OK) {
      return false;
    }
    Add(plane.stats, &all.stats);
    figures->planes.push_back(plane);
  }
  if (planes > 1) figures->planes.push_back(all);
  return true;
}

double BandwidthRatio(const pelcast_plane_stats& s) {
  return s.raw_units == 0 ? 0.0 : static_cast<double>(s.units) / static_cast<double>(s.raw_units);
}

std::string FiguresHeading(pelcast_format format, uint32_t width, uint32_t height,
                           uint64_t frameBytes) {
  return Printf("%s %ux%u: frames of %" PRIu64 " bytes\n", FormatName(format), width, height,
                frameBytes);
}

std::string FiguresTable(const FrameFigures& figures) {
  std::string out = Printf("\nframe %" PRIu64 "\n", figures.frame);
  out += Printf("%-7s %9s %10s %10s %6s %7s %7s %7s %7s %9s %8s\n", "plane", "tiles", "units",
                "raw units", "ratio", "1", "2", "3", "raw", "bad meta", "overrun");
  for (const PlaneFigures& p : figures.planes) out += PlaneRow(p);
  return out;
}

void FiguresJson(const FrameFigures& figures, JsonWriter* json) {
  json->BeginObject().Key("frame").Number(figures.frame).Key("planes").BeginArray(true);
  for (const PlaneFigures& p : figures.planes) {
    const pelcast_plane_stats& s = p.stats;
    json->BeginObject()
        .Key("plane").String(p.name)
        .Key("tiles").Number(s.tiles)
        .Key("units").Number(s.units)
        .Key("raw_units").Number(s.raw_units)
        .Key("ratio").Number(BandwidthRatio(s), kRatioDecimals)
        .Key("tiles_by_units").BeginObject()
        .Key("1").Number(s.tiles_by_units[1])
        .Key("2").Number(s.tiles_by_units[2])
        .Key("3").Number(s.tiles_by_units[3])
        .Key("raw").Number(s.raw_tiles)
        .Key("bad_metadata").Number(s.bad_metadata_tiles)
        .EndObject()
        .Key("overrun_tiles").Number(s.overrun_tiles)
        .EndObject();
  }
  json->EndArray().EndObject();
}

}  // namespace pelcast::zpak
