// The tile encoder's lane routines, plain and vector side by side, on tiles
// cut from the corpus: the per-sample work of planning a tile, without the
// frame walk and the bit writer.
//
//   encode_lanes/<plane>/<set>   every lane routine a tile of the plane runs
//
// MB/s counts raw tile bytes.
#include <benchmark/benchmark.h>

#include <string>
#include <vector>

#include "bench/bench_support.h"
#include "encoder/lane_kernels.h"

namespace pelcast::bench {
namespace {

constexpr size_t kBenchTiles = 4096;
constexpr uint32_t kLumaRowBytes = 32;
constexpr uint32_t kRgbaRowBytes = 64;
constexpr uint32_t kRgb565RowBytes = 32;
constexpr uint32_t kByteEscape = 7;
constexpr uint32_t kByteBits = 8;

// NV12 luma: four byte lanes, two to a call, sized and packed.
constexpr LaneSizing kByteSizing = {kByteEscape, kByteBits};
constexpr LaneSizing kColourSizings[3] = {{kByteEscape, kByteBits},
                                          {kByteEscape, kByteBits + 1},
                                          {kByteEscape, kByteBits + 1}};

void PlanLumaTile(const LaneKernels& k, const uint8_t* tile) {
  LaneResidues lanes[4];
  k.byteLanePair(tile, tile + 16, kLumaRowBytes, kByteSizing, &lanes[0], &lanes[1]);
  k.byteLanePair(tile + 4 * kLumaRowBytes, tile + 4 * kLumaRowBytes + 16, kLumaRowBytes,
                 kByteSizing, &lanes[2], &lanes[3]);
  LanePack pack;
  for (const LaneResidues& lane : lanes) {
    benchmark::DoNotOptimize(lane.bits);
    k.packLane(lane, LaneCoding{kByteEscape, kByteBits, 0, tile, kLumaRowBytes}, &pack);
    benchmark::DoNotOptimize(pack);
  }
}

// RGBA8888: the split, both plans' lanes and their sizes, the byte lanes packed.
void PlanRgbaTile(const LaneKernels& k, const uint8_t* tile) {
  alignas(16) uint8_t planes[4][64];
  k.splitQuads(tile, kRgbaRowBytes, planes[0]);
  LaneResidues lanes[4];
  k.byteLanePair(planes[0], planes[1], 16, kByteSizing, &lanes[0], &lanes[1]);
  k.byteLanePair(planes[2], planes[3], 16, kByteSizing, &lanes[2], &lanes[3]);
  const uint8_t* const rows[3] = {planes[0], planes[1], planes[2]};
  ColourSamples colour;
  LaneResidues exact[3];
  if (k.colourLanes(rows, 16, kByteBits, kColourSizings, &colour, exact)) {
    for (const LaneResidues& lane : exact) benchmark::DoNotOptimize(lane.bits);
  }
  LanePack pack;
  for (int c = 0; c < 4; ++c) {
    benchmark::DoNotOptimize(lanes[c].bits);
    k.packLane(lanes[c], LaneCoding{kByteEscape, kByteBits, 0, planes[c], 16}, &pack);
    benchmark::DoNotOptimize(pack);
  }
}

// RGB565: the split, the direct lanes and the colour transform's.
void PlanRgb565Tile(const LaneKernels& k, const uint8_t* tile) {
  alignas(16) uint8_t planes[3][64];
  k.splitRgb565(tile, kRgb565RowBytes, planes[0]);
  const uint8_t* const rows[3] = {planes[0], planes[1], planes[2]};
  LaneResidues lanes[3];
  k.rgb565Lanes(rows, 16, lanes);
  for (const LaneResidues& lane : lanes) benchmark::DoNotOptimize(lane.bits);
  constexpr LaneSizing kRgb565Sizings[3] = {{5, 5}, {6, 7}, {5, 6}};
  ColourSamples colour;
  LaneResidues exact[3];
  if (k.colourLanes(rows, 16, 5, kRgb565Sizings, &colour, exact)) {
    for (const LaneResidues& lane : exact) benchmark::DoNotOptimize(lane.bits);
  }
}

struct PlaneCase {
  PlaneKind kind;
  const char* name;
  void (*plan)(const LaneKernels&, const uint8_t*);
};

constexpr PlaneCase kPlanes[] = {
    {PlaneKind::kNv12Luma, "nv12_luma", PlanLumaTile},
    {PlaneKind::kRgba8888, "rgba8888", PlanRgbaTile},
    {PlaneKind::kRgb565, "rgb565", PlanRgb565Tile},
};

void PlanTiles(benchmark::State& state, const PlaneCase* plane, const LaneKernels* kernels,
               const std::shared_ptr<TileSet>& lazy) {
  if (lazy->count == 0) *lazy = CutCorpusTiles(plane->kind, kBenchTiles);
  if (lazy->count == 0) {
    state.SkipWithError("no corpus tiles");
    return;
  }
  for (auto _ : state) {
    for (size_t i = 0; i < lazy->count; ++i) {
      plane->plan(*kernels, &lazy->raster[i * lazy->tileBytes]);
    }
  }
  state.SetBytesProcessed(state.iterations() *
                          static_cast<int64_t>(lazy->count * lazy->tileBytes));
}

void RegisterLaneBenchmarks() {
  std::vector<const LaneKernels*> sets = {&PlainLaneKernels()};
  const VectorKernelSets vector = AvailableVectorLaneKernels();
  sets.insert(sets.end(), vector.set, vector.set + vector.count);
  for (const PlaneCase& plane : kPlanes) {
    auto tiles = std::make_shared<TileSet>();
    for (const LaneKernels* kernels : sets) {
      const std::string name = std::string("encode_lanes/") + plane.name + "/" + kernels->name;
      benchmark::RegisterBenchmark(name.c_str(), PlanTiles, &plane, kernels, tiles);
    }
  }
}

const bool kRegistered = AddRegistration(&RegisterLaneBenchmarks);

}  // namespace
}  // namespace pelcast::bench
