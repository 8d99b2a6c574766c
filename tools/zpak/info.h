// info: how well each frame of a ZPAK file compressed. Per plane: the tiles
// over the picture, the 64-byte units they are stored in, the units the same
// tiles take raw, their ratio, the share of tiles in 1, 2 and 3 units, raw
// and with bad metadata, and the tiles whose streams overrun their units.
// A tile whose metadata byte is not one an encoder writes is counted as bad
// metadata and charged a raw tile (its length is unknown).
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "pelcast/pelcast.h"
#include "tools/zpak/json_writer.h"

namespace pelcast::zpak {

struct PlaneFigures {
  std::string name;  // "y", "uv", "rgba", "rgb565", and "all" for the sum
  pelcast_plane_stats stats{};
};

struct FrameFigures {
  uint64_t frame = 0;
  std::vector<PlaneFigures> planes;  // with "all" last when there are several
};

// The figures of one frame through the codec (of the frame's format and size).
bool MeasureFrame(pelcast_codec* codec, pelcast_format format, const uint8_t* zpak,
                  size_t zpakBytes, FrameFigures* figures);

// units / raw units; 0 for a plane without tiles.
double BandwidthRatio(const pelcast_plane_stats& stats);

// "nv12 1920x1080: frames of 3153920 bytes"
std::string FiguresHeading(pelcast_format format, uint32_t width, uint32_t height,
                           uint64_t frameBytes);
// The table of one frame, a blank line first.
std::string FiguresTable(const FrameFigures& figures);
// {"frame": 0, "planes": [{"plane": "y", "tiles": ..., ...}, ...]}
void FiguresJson(const FrameFigures& figures, JsonWriter* json);

}  // namespace pelcast::zpak
