#include "tools/zpak/verify.h"

#include <algorithm>
#include <cstring>

namespace pelcast::zpak {
namespace {

constexpr uint32_t kBitsPerUnit = 512;

}  // namespace

const char* ProblemKindName(ProblemKind kind) {
  switch (kind) {
    case ProblemKind::kBadMetadata:
      return "bad metadata";
    case ProblemKind::kOverrun:
      return "overrun";
    default:
      return "raw but compressible";
  }
}

std::string ProblemReason(const TileProblem& p, pelcast_format format) {
  switch (p.kind) {
    case ProblemKind::kBadMetadata:
      return "metadata " + std::to_string(p.metadata) + " is not a unit count (" +
             (format == PELCAST_FORMAT_RGB565 ? "19, 23 or 31" : "19, 23, 27 or 31") + ")";
    case ProblemKind::kOverrun:
      return "stream reads " + std::to_string(p.streamBits) + " bits, past its " +
             std::to_string(p.units) + " unit" + (p.units == 1 ? "" : "s") + " (" +
             std::to_string(uint32_t{p.units} * kBitsPerUnit) + " bits)";
    default:
      return "stored raw in " + std::to_string(p.units) + " units; fits in " +
             std::to_string(p.bestUnits);
  }
}

bool Verifier::Open(pelcast_format format, uint32_t width, uint32_t height, uint32_t threads,
                    std::string* error) {
  format_ = format;
  width_ = width;
  height_ = height;
  frameBytes_ = pelcast_zpak_frame_size(format, width, height);
  if (!MakeCodec(format, width, height, threads, &codec_, error)) return false;
  planes_ = PackedPlanes(format, width, height);
  stored_.resize(planes_.size());
  best_.resize(planes_.size());
  grids_.resize(planes_.size());
  return true;
}

bool Verifier::Verify(const uint8_t* zpak, const uint8_t* reference, FrameVerdict* verdict) {
  const uint64_t frame = verdict->frame;
  *verdict = FrameVerdict{};
  verdict->frame = frame;
  pelcast_codec* codec = codec_.get();
  for (uint32_t p = 0; p < planes_.size(); ++p) {
    pelcast_plane_stats stats{};
    if (pelcast_codec_plane_stats(codec, zpak, frameBytes_, p, &stats) != PELCAST_OK ||
        !DescribePlane(codec, format_, width_, height_, zpak, frameBytes_, p, &grids_[p],
                       &stored_[p])) {
      return false;
    }
    verdict->tiles += stats.tiles;
    verdict->units += stats.units;
  }
  if (!DecodePacked(codec, format_, width_, height_, zpak, frameBytes_, &decoded_) ||
      !EncodePacked(codec, format_, width_, height_, decoded_.data(), &reencoded_)) {
    return false;
  }
  for (uint32_t p = 0; p < planes_.size(); ++p) {
    pelcast_plane_stats stats{};
    pelcast_tile_grid grid{};
    if (pelcast_codec_plane_stats(codec, reencoded_.data(), frameBytes_, p, &stats) != PELCAST_OK ||
        !DescribePlane(codec, format_, width_, height_, reencoded_.data(), frameBytes_, p, &grid,
                       &best_[p])) {
      return false;
    }
    verdict->bestUnits += stats.units;
  }
  CheckTiles(verdict);
  if (reference != nullptr) CompareWithReference(reference, verdict);
  return true;
}

void Verifier::CheckTiles(FrameVerdict* verdict) {
  for (uint32_t p = 0; p < planes_.size(); ++p) {
    const pelcast_tile_grid& grid = grids_[p];
    for (uint32_t r = 0; r < grid.rows; ++r) {
      for (uint32_t c = 0; c < grid.columns; ++c) {
        const size_t i = size_t{r} * grid.columns + c;
        const pelcast_tile_info& t = stored_[p][i];
        TileProblem problem{p, c, r, ProblemKind::kBadMetadata, t.metadata, t.units,
                            best_[p][i].units, t.stream_bits};
        if ((t.flags & PELCAST_TILE_BAD_METADATA) != 0) {
          problem.kind = ProblemKind::kBadMetadata;
        } else if ((t.flags & PELCAST_TILE_OVERRUN) != 0) {
          problem.kind = ProblemKind::kOverrun;
        } else if ((t.flags & PELCAST_TILE_RAW) != 0 && problem.bestUnits < t.units) {
          problem.kind = ProblemKind::kRawButCompressible;
        } else {
          continue;
        }
        if (problem.kind != ProblemKind::kRawButCompressible) ++verdict->invalidTiles;
        verdict->problems.push_back(problem);
      }
    }
  }
}

void Verifier::CompareWithReference(const uint8_t* reference, FrameVerdict* verdict) {
  verdict->referenceChecked = true;
  for (const PlaneView& v : planes_) {
    for (uint32_t r = 0; r < v.tileRows; ++r) {
      for (uint32_t c = 0; c < v.tileColumns; ++c) {
        const uint32_t x0 = c * v.tileWidth, x1 = std::min(v.width, x0 + v.tileWidth);
        const uint32_t y1 = std::min(v.height, (r + 1) * v.tileHeight);
        bool differs = false;
        for (uint32_t y = r * v.tileHeight; y < y1 && !differs; ++y) {
          const size_t at = v.offset + y * v.stride + size_t{x0} * v.elementBytes;
          differs = std::memcmp(decoded_.data() + at, reference + at,
                                size_t{x1 - x0} * v.elementBytes) != 0;
        }
        if (!differs) continue;
        if (verdict->firstDiffering.size() < kListedDifferences) {
          verdict->firstDiffering.push_back({v.plane, c, r});
        }
        ++verdict->differingTiles;
      }
    }
  }
}

}  // namespace pelcast::zpak
