// The inspector's figures as an aligned text table or as JSON.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tools/inspect/tile_stats.h"

namespace pelcast::inspect {

struct FrameReport {
  uint64_t index;
  std::vector<PlaneStats> planes;  // the last entry is the frame total when there are several
};

struct SurfaceSummary {
  std::string format;  // as given on the command line
  int32_t width;
  int32_t height;
  uint64_t frameBytes;
  uint64_t frameCount;
};

// One frame of the table: a title line, a header line and one line per plane.
std::string FormatFrameTable(const FrameReport& frame);

// The heading printed above the tables.
std::string FormatSummaryLine(const SurfaceSummary& summary);

// The whole run as one JSON document (the frames in order, then a newline).
std::string FormatJson(const SurfaceSummary& summary, const std::vector<FrameReport>& frames);

// Per-frame planes plus a total line when the surface has more than one plane.
FrameReport MakeFrameReport(uint64_t index, std::vector<PlaneStats> planes);

}  // namespace pelcast::inspect
