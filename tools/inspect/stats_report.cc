#include "tools/inspect/stats_report.h"

#include <cinttypes>
#include <cstdio>

namespace pelcast::inspect {
namespace {

// Column keys of the tile classes, shared by the table header and the JSON.
constexpr const char* kClassKeys[kTileClassCount] = {"1", "2", "3", "4", "raw", "other"};

constexpr double kPercent = 100.0;

std::string Printf(const char* format, auto... args) {
  char line[256];
  std::snprintf(line, sizeof line, format, args...);
  return line;
}

double Share(uint64_t count, uint64_t total) {
  return total == 0 ? 0.0 : kPercent * static_cast<double>(count) / static_cast<double>(total);
}

std::string FormatPlaneRow(const PlaneStats& p) {
  std::string row = Printf("%-7s %9" PRIu64 " %10" PRIu64 " %10" PRIu64 " %6.3f", p.name.c_str(),
                           p.tiles, p.unitsUsed, p.rawUnits, BandwidthRatio(p));
  for (uint64_t count : p.tilesByClass) row += Printf(" %6.1f%%", Share(count, p.tiles));
  row += Printf(" %9" PRIu64 "\n", p.irregularMetadata);
  return row;
}

std::string JsonPlane(const PlaneStats& p) {
  std::string out = Printf("{\"plane\": \"%s\", \"tiles\": %" PRIu64 ", \"units\": %" PRIu64
                           ", \"rawUnits\": %" PRIu64 ", \"ratio\": %.6f, \"tilesByUnits\": {",
                           p.name.c_str(), p.tiles, p.unitsUsed, p.rawUnits, BandwidthRatio(p));
  for (int c = 0; c < kTileClassCount; ++c) {
    out += Printf("%s\"%s\": %" PRIu64, c == 0 ? "" : ", ", kClassKeys[c], p.tilesByClass[c]);
  }
  out += Printf("}, \"irregularMetadata\": %" PRIu64 "}", p.irregularMetadata);
  return out;
}

}  // namespace

FrameReport MakeFrameReport(uint64_t index, std::vector<PlaneStats> planes) {
  if (planes.size() > 1) planes.push_back(SumPlaneStats(planes, "all"));
  return FrameReport{index, std::move(planes)};
}

std::string FormatSummaryLine(const SurfaceSummary& s) {
  return Printf("%s %dx%d: %" PRIu64 " frame%s of %" PRIu64 " bytes\n", s.format.c_str(), s.width,
                s.height, s.frameCount, s.frameCount == 1 ? "" : "s", s.frameBytes);
}

std::string FormatFrameTable(const FrameReport& frame) {
  std::string out = Printf("\nframe %" PRIu64 "\n", frame.index);
  out += Printf("%-7s %9s %10s %10s %6s", "plane", "tiles", "units", "raw units", "ratio");
  for (const char* key : kClassKeys) out += Printf(" %7s", key);
  out += Printf(" %9s\n", "odd meta");
  for (const PlaneStats& p : frame.planes) out += FormatPlaneRow(p);
  return out;
}

std::string FormatJson(const SurfaceSummary& s, const std::vector<FrameReport>& frames) {
  std::string out =
      Printf("{\"format\": \"%s\", \"width\": %d, \"height\": %d, \"frameBytes\": %" PRIu64
             ", \"frames\": [",
             s.format.c_str(), s.width, s.height, s.frameBytes);
  for (size_t f = 0; f < frames.size(); ++f) {
    out +=
        Printf("%s\n  {\"frame\": %" PRIu64 ", \"planes\": [", f == 0 ? "" : ",", frames[f].index);
    for (size_t p = 0; p < frames[f].planes.size(); ++p) {
      out += (p == 0 ? "\n    " : ",\n    ") + JsonPlane(frames[f].planes[p]);
    }
    out += "]}";
  }
  out += "\n]}\n";
  return out;
}

}  // namespace pelcast::inspect
