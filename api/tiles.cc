// How each tile of a frame is stored: its place, its metadata byte, its unit
// count and how many bits its stream reads, read from the frame exactly where
// the decoders read them.
#include <algorithm>
#include <cstring>

#include "api/codec.h"
#include "decoder/tile_kernels.h"
#include "decoder/tile_stream_bits.h"
#include "surface/surface_grid.h"
#include "surface/tile_addressing.h"
#include "surface/tile_format.h"

namespace pelcast::api {
namespace {

// Tile columns and rows of a plane, and which tile kind it holds.
struct PlaneTiles {
  pelcast_tile_grid grid;
  TileKind kind;
  uint64_t metaStart;   // the plane's metadata plane, from the frame's start
  uint64_t dataStart;   // its data plane
  uint64_t storedBytes; // bytes of one stored tile: 256, or 128 for an RGB565 half
};

constexpr uint32_t kNv12TileWidth = 32;
constexpr uint32_t kNv12TileRows = 8;
constexpr uint32_t kRgbTileWidth = 16;  // RGBA8888 tiles and RGB565 half tiles
constexpr uint32_t kRgbTileRows = 4;
constexpr uint64_t kRgb565HalfBytes = kSlotBytes / 2;
constexpr uint64_t kTileRowsPerJob = 16;

bool PlaneTilesOf(const FrameLayout& layout, uint32_t plane, PlaneTiles* tiles) {
  const uint32_t w = layout.width;
  const uint32_t h = layout.height;
  const PlaneGeometry& g = layout.geometry;
  switch (layout.format) {
    case PELCAST_FORMAT_NV12: {
      if (plane > PELCAST_PLANE_UV) return false;
      const auto columns = static_cast<uint32_t>(CeilDiv(w, kNv12TileWidth));
      const auto rows = static_cast<uint32_t>(CeilDiv(h, kNv12TileRows));
      if (plane == PELCAST_PLANE_Y) {
        *tiles = PlaneTiles{{columns, rows, kNv12TileWidth, kNv12TileRows, kRawTileUnits},
                            TileKind::kNv12Luma, 0, g.yMetaBufSize, kSlotBytes};
      } else {
        const uint64_t uvMeta = uint64_t{g.yMetaBufSize} + g.yDataBufSize;
        *tiles = PlaneTiles{{columns, (rows + 1) / 2, kNv12TileWidth, 2 * kNv12TileRows,
                             kRawTileUnits},
                            TileKind::kNv12Chroma, uvMeta, uvMeta + g.uvMetaBufSize, kSlotBytes};
      }
      return true;
    }
    case PELCAST_FORMAT_RGBA8888:
    case PELCAST_FORMAT_RGB565: {
      if (plane != 0) return false;
      const bool rgb565 = layout.format == PELCAST_FORMAT_RGB565;
      *tiles = PlaneTiles{{static_cast<uint32_t>(CeilDiv(w, kRgbTileWidth)),
                           static_cast<uint32_t>(CeilDiv(h, kRgbTileRows)), kRgbTileWidth,
                           kRgbTileRows, RawUnitsOf(rgb565)},
                          rgb565 ? TileKind::kRgb565 : TileKind::kRgba8888, 0, g.yMetaBufSize,
                          rgb565 ? kRgb565HalfBytes : kSlotBytes};
      return true;
    }
    default:
      return false;
  }
}

// The stored bytes from `offset` on, and zeros past the end of the frame.
void FetchStored(const uint8_t* frame, uint64_t frameBytes, uint64_t offset, uint64_t count,
                 uint8_t* padded) {
  std::memset(padded, 0, kPaddedTileBytes);
  if (offset < frameBytes) std::memcpy(padded, frame + offset, std::min(count, frameBytes - offset));
}

pelcast_tile_info DescribeTile(const PlaneTiles& t, const ZpakConfig& config,
                               const TileAddressTables& tables, const uint8_t* frame,
                               uint64_t frameBytes, uint64_t row, uint64_t column) {
  const bool rgb565 = t.kind == TileKind::kRgb565;
  // An RGB565 slot holds two half tiles, each with its own metadata column.
  const uint64_t slot = TileSlot(tables, row, rgb565 ? column / 2 : column);
  const uint64_t metaOffset = t.metaStart + TileMetaOffset(tables, row, column);
  const uint32_t metadata = metaOffset < frameBytes ? frame[metaOffset] : 0;
  const uint64_t inPlane = rgb565 ? kSlotBytes * slot + kRgb565HalfBytes * (column % 2)
                                  : TileByteOffset(slot, metadata, config);
  pelcast_tile_info info{};
  info.data_offset = static_cast<uint32_t>(t.dataStart + inPlane);
  info.metadata_offset = static_cast<uint32_t>(metaOffset);
  info.metadata = static_cast<uint8_t>(metadata);
  const bool raw = IsRawMetadata(metadata, rgb565);
  const bool regular = IsRegularMetadata(metadata, rgb565);
  if (raw) {
    info.flags |= PELCAST_TILE_RAW;
    info.stream_bits = static_cast<uint16_t>(t.grid.raw_units << kUnitShift);
  } else {
    alignas(64) uint8_t padded[kPaddedTileBytes];
    FetchStored(frame, frameBytes, info.data_offset, t.storedBytes, padded);
    info.stream_bits = static_cast<uint16_t>(CompressedTileBits(t.kind, padded));
  }
  if (!regular) {
    info.flags |= PELCAST_TILE_BAD_METADATA;
    return info;
  }
  info.units = static_cast<uint8_t>(raw ? t.grid.raw_units : UnitsOfMetadata(metadata, rgb565));
  if (!raw && info.stream_bits > (uint64_t{info.units} << kUnitShift)) {
    info.flags |= PELCAST_TILE_OVERRUN;
  }
  return info;
}

// One run over a plane's tiles: jobs of kTileRowsPerJob tile rows, each tile
// either stored in `tiles` or added to the thread's figures.
struct TileRun {
  pelcast_codec* codec;
  const uint8_t* frame;
  PlaneTiles plane;
  pelcast_tile_info* tiles;
  pelcast_plane_stats* perThread;
};

void AddToStats(const pelcast_tile_info& info, uint32_t rawUnits, pelcast_plane_stats* stats) {
  ++stats->tiles;
  stats->raw_units += rawUnits;
  if ((info.flags & PELCAST_TILE_BAD_METADATA) != 0) {
    ++stats->bad_metadata_tiles;
    stats->units += rawUnits;
    return;
  }
  stats->units += info.units;
  if ((info.flags & PELCAST_TILE_RAW) != 0) {
    ++stats->raw_tiles;
  } else {
    ++stats->tiles_by_units[info.units];
  }
  if ((info.flags & PELCAST_TILE_OVERRUN) != 0) ++stats->overrun_tiles;
}

void TileJob(void* argument, uint32_t worker, uint64_t index) {
  const TileRun& run = *static_cast<const TileRun*>(argument);
  const FrameLayout& layout = run.codec->layout;
  ZpakContext* context = run.codec->threads[worker].context;
  const ZpakConfig config = DecodeConfigOf(layout, run.frame, nullptr);
  PrepareTileAddressTables(
      &context->addressTables,
      SurfaceGridLayout(layout.planeFormat, config.alignedWidth, config.alignedHeight, config));
  const pelcast_tile_grid& grid = run.plane.grid;
  const uint64_t first = index * kTileRowsPerJob;
  const uint64_t end = std::min<uint64_t>(first + kTileRowsPerJob, grid.rows);
  for (uint64_t r = first; r < end; ++r) {
    for (uint64_t c = 0; c < grid.columns; ++c) {
      const pelcast_tile_info info = DescribeTile(run.plane, config, context->addressTables,
                                                  run.frame, layout.geometry.frameSize, r, c);
      if (run.tiles != nullptr) {
        run.tiles[r * grid.columns + c] = info;
      } else {
        AddToStats(info, grid.raw_units, &run.perThread[worker]);
      }
    }
  }
}

pelcast_status RunTiles(pelcast_codec* codec, const void* zpak, size_t zpakSize, uint32_t plane,
                        TileRun* run) {
  if (codec == nullptr || zpak == nullptr) return PELCAST_ERROR_INVALID_ARGUMENT;
  if (!PlaneTilesOf(codec->layout, plane, &run->plane)) return PELCAST_ERROR_INVALID_ARGUMENT;
  if (zpakSize < codec->layout.geometry.frameSize) return PELCAST_ERROR_BUFFER_TOO_SMALL;
  run->codec = codec;
  run->frame = static_cast<const uint8_t*>(zpak);
  RunJobs(&codec->pool, CeilDiv(run->plane.grid.rows, kTileRowsPerJob), TileJob, run);
  return PELCAST_OK;
}

}  // namespace
}  // namespace pelcast::api

extern "C" {

pelcast_status pelcast_tile_grid_of(pelcast_format format, uint32_t width, uint32_t height,
                                    uint32_t plane, pelcast_tile_grid* grid) {
  if (grid == nullptr) return PELCAST_ERROR_INVALID_ARGUMENT;
  const pelcast_status checked = pelcast::api::CheckFrameSize(format, width, height);
  if (checked != PELCAST_OK && checked != PELCAST_ERROR_UNSUPPORTED_SIZE) return checked;
  pelcast::api::PlaneTiles tiles;
  if (!pelcast::api::PlaneTilesOf(pelcast::api::MakeFrameLayout(format, width, height), plane,
                                  &tiles)) {
    return PELCAST_ERROR_INVALID_ARGUMENT;
  }
  *grid = tiles.grid;
  return PELCAST_OK;
}

pelcast_status pelcast_codec_tile_info(pelcast_codec* codec, const void* zpak, size_t zpak_size,
                                       uint32_t plane, pelcast_tile_info* tiles, size_t count) {
  if (tiles == nullptr) return PELCAST_ERROR_INVALID_ARGUMENT;
  pelcast::api::TileRun run{};
  run.tiles = tiles;
  if (codec != nullptr) {
    pelcast::api::PlaneTiles planeTiles;
    if (!pelcast::api::PlaneTilesOf(codec->layout, plane, &planeTiles)) {
      return PELCAST_ERROR_INVALID_ARGUMENT;
    }
    if (count < uint64_t{planeTiles.grid.columns} * planeTiles.grid.rows) {
      return PELCAST_ERROR_BUFFER_TOO_SMALL;
    }
  }
  return pelcast::api::RunTiles(codec, zpak, zpak_size, plane, &run);
}

pelcast_status pelcast_codec_plane_stats(pelcast_codec* codec, const void* zpak, size_t zpak_size,
                                         uint32_t plane, pelcast_plane_stats* stats) {
  if (stats == nullptr || codec == nullptr) return PELCAST_ERROR_INVALID_ARGUMENT;
  pelcast_plane_stats perThread[PELCAST_MAX_THREADS] = {};
  pelcast::api::TileRun run{};
  run.perThread = perThread;
  const pelcast_status status = pelcast::api::RunTiles(codec, zpak, zpak_size, plane, &run);
  if (status != PELCAST_OK) return status;
  *stats = pelcast_plane_stats{};
  for (const pelcast_plane_stats& s : perThread) {
    stats->tiles += s.tiles;
    stats->units += s.units;
    stats->raw_units += s.raw_units;
    for (int u = 0; u < 4; ++u) stats->tiles_by_units[u] += s.tiles_by_units[u];
    stats->raw_tiles += s.raw_tiles;
    stats->bad_metadata_tiles += s.bad_metadata_tiles;
    stats->overrun_tiles += s.overrun_tiles;
  }
  return PELCAST_OK;
}

}  // extern "C"
