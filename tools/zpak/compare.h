// compare: two decoded frames, plane by plane: the tiles and samples that
// differ, the largest absolute difference and the PSNR; and a picture of
// where they differ.
#pragma once

#include <cstdint>
#include <vector>

#include "pelcast/pelcast.h"
#include "tools/zpak/pictures.h"

namespace pelcast::zpak {

// Samples are the 8-bit components: luma bytes; U and V; R, G, B and A;
// RGB565's fields widened to 8 bits as in its pictures.
struct PlaneDifference {
  const char* name = "";
  uint64_t samples = 0;
  uint64_t differingTiles = 0;
  uint64_t differingSamples = 0;
  uint32_t maxAbsDiff = 0;
  double squaredError = 0;
  uint32_t tileColumns = 0;
  std::vector<uint32_t> tiles;  // the differing tiles, row x tileColumns + column, in order

  // 10 log10(255^2 / mean squared error); infinite when identical.
  double Psnr() const;
};

struct FrameDifference {
  uint64_t frame = 0;
  std::vector<PlaneDifference> planes;

  bool Identical() const;
  // The lowest PSNR of its planes.
  double WorstPsnr() const;
};

// Compares two packed linear frames of `format` at width x height.
FrameDifference CompareFrames(pelcast_format format, uint32_t width, uint32_t height,
                              const uint8_t* a, const uint8_t* b);

// `a` dimmed to grey, every pixel that differs from `b` painted from red
// (a difference of 1) to yellow (64 or more), and every tile of
// `difference` (CompareFrames of the two) outlined in magenta.
void DrawDifference(pelcast_format format, uint32_t width, uint32_t height, const uint8_t* a,
                    const uint8_t* b, const FrameDifference& difference, Raster* out);

}  // namespace pelcast::zpak
