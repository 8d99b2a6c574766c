// The tile encoder's lane routines, plain and vector side by side, on tiles
// cut from the corpus: the per-sample work of planning a tile, without the
// frame walk and the bit writer, and each routine alone.
//
//   encode_lanes/<plane>/<set>       every lane routine a tile of the plane runs
//   encode_routine/<routine>/<set>   one routine of the set's table on the
//                                    blocks or lanes of the corpus tiles
//
// MB/s counts raw tile bytes (for a routine: the bytes of the blocks it
// reads, 64 samples per lane).
#include <benchmark/benchmark.h>

#include <algorithm>
#include <array>
#include <string>
#include <vector>

#include "bench/bench_support.h"
#include "common/cpu.h"
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
constexpr LaneSizing kColourSizings[3] = {
    {kByteEscape, kByteBits}, {kByteEscape, kByteBits + 1}, {kByteEscape, kByteBits + 1}};

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
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(lazy->count * lazy->tileBytes));
}

// The distinct lane tables of the sets this processor runs, plain first.
std::vector<const LaneKernels*> RunnableLaneSets() {
  std::vector<const LaneKernels*> sets;
  for (const KernelSet& runnable : RunnableKernelSets()) {
    const LaneKernels* k = &LaneKernelsFor(runnable.features);
    if (std::find(sets.begin(), sets.end(), k) == sets.end()) sets.push_back(k);
  }
  return sets;
}

// What the single routines read, worked out once from the corpus tiles with
// the plain routines: RGBA8888 tiles and their component planes and colour
// samples, RGB565 tiles and planes, luma tiles, their byte lanes and packs.
struct RoutineInputs {
  TileSet rgba, rgb565, luma;
  std::vector<std::array<uint8_t, 4 * kBlockSamples>> rgbaPlanes;
  std::vector<ColourSamples> colour;
  std::vector<std::array<uint8_t, 3 * kBlockSamples>> rgb565Planes;
  std::vector<std::array<LaneResidues, 4>> lumaLanes;
  std::vector<std::array<LanePack, 4>> lumaPacks;
  bool built = false;
};

void BuildRoutineInputs(RoutineInputs* in) {
  const LaneKernels& plain = PlainLaneKernels();
  in->rgba = CutCorpusTiles(PlaneKind::kRgba8888, kBenchTiles);
  in->rgb565 = CutCorpusTiles(PlaneKind::kRgb565, kBenchTiles);
  in->luma = CutCorpusTiles(PlaneKind::kNv12Luma, kBenchTiles);
  in->rgbaPlanes.resize(in->rgba.count);
  in->colour.resize(in->rgba.count);
  for (size_t i = 0; i < in->rgba.count; ++i) {
    uint8_t* planes = in->rgbaPlanes[i].data();
    plain.splitQuads(&in->rgba.raster[i * in->rgba.tileBytes], kRgbaRowBytes, planes);
    const uint8_t* const rows[3] = {planes, planes + kBlockSamples, planes + 2 * kBlockSamples};
    plain.colourTransform(rows, kBlockWidth, kByteBits, &in->colour[i]);
  }
  in->rgb565Planes.resize(in->rgb565.count);
  for (size_t i = 0; i < in->rgb565.count; ++i) {
    plain.splitRgb565(&in->rgb565.raster[i * in->rgb565.tileBytes], kRgb565RowBytes,
                      in->rgb565Planes[i].data());
  }
  in->lumaLanes.resize(in->luma.count);
  in->lumaPacks.resize(in->luma.count);
  for (size_t i = 0; i < in->luma.count; ++i) {
    const uint8_t* tile = &in->luma.raster[i * in->luma.tileBytes];
    for (uint32_t b = 0; b < 4; ++b) {
      const uint8_t* rows = tile + (b / 2) * 4 * kLumaRowBytes + (b % 2) * kBlockWidth;
      plain.byteLane(rows, kLumaRowBytes, kByteSizing, &in->lumaLanes[i][b]);
      plain.packLane(in->lumaLanes[i][b],
                     LaneCoding{kByteEscape, kByteBits, 0, rows, kLumaRowBytes},
                     &in->lumaPacks[i][b]);
    }
  }
  in->built = true;
}

// One routine over every input it takes; returns the bytes it read.
struct RoutineCase {
  const char* name;
  size_t (*run)(const LaneKernels& k, const RoutineInputs& in);
};

size_t RunByteLane(const LaneKernels& k, const RoutineInputs& in) {
  LaneResidues lane;
  for (size_t i = 0; i < in.luma.count; ++i) {
    k.byteLane(&in.luma.raster[i * in.luma.tileBytes], kLumaRowBytes, kByteSizing, &lane);
    benchmark::DoNotOptimize(lane);
  }
  return in.luma.count * kBlockSamples;
}

size_t RunByteLanePair(const LaneKernels& k, const RoutineInputs& in) {
  LaneResidues lanes[2];
  for (size_t i = 0; i < in.luma.count; ++i) {
    const uint8_t* tile = &in.luma.raster[i * in.luma.tileBytes];
    k.byteLanePair(tile, tile + kBlockWidth, kLumaRowBytes, kByteSizing, &lanes[0], &lanes[1]);
    benchmark::DoNotOptimize(lanes);
  }
  return in.luma.count * 2 * kBlockSamples;
}

size_t RunExactLane(const LaneKernels& k, const RoutineInputs& in) {
  LaneResidues lane;
  for (size_t i = 0; i < in.rgba.count; ++i) {
    k.exactLane(in.colour[i].c[1], kColourSizings[1], &lane);
    benchmark::DoNotOptimize(lane);
  }
  return in.rgba.count * kBlockSamples;
}

size_t RunRgb565Lanes(const LaneKernels& k, const RoutineInputs& in) {
  LaneResidues lanes[3];
  for (size_t i = 0; i < in.rgb565.count; ++i) {
    const uint8_t* planes = in.rgb565Planes[i].data();
    const uint8_t* const rows[3] = {planes, planes + kBlockSamples, planes + 2 * kBlockSamples};
    k.rgb565Lanes(rows, kBlockWidth, lanes);
    benchmark::DoNotOptimize(lanes);
  }
  return in.rgb565.count * in.rgb565.tileBytes;
}

template <bool kWithLanes>
size_t RunColour(const LaneKernels& k, const RoutineInputs& in) {
  ColourSamples colour;
  LaneResidues lanes[3];
  for (size_t i = 0; i < in.rgba.count; ++i) {
    const uint8_t* planes = in.rgbaPlanes[i].data();
    const uint8_t* const rows[3] = {planes, planes + kBlockSamples, planes + 2 * kBlockSamples};
    if constexpr (kWithLanes) {
      benchmark::DoNotOptimize(
          k.colourLanes(rows, kBlockWidth, kByteBits, kColourSizings, &colour, lanes));
      benchmark::DoNotOptimize(lanes);
    } else {
      benchmark::DoNotOptimize(k.colourTransform(rows, kBlockWidth, kByteBits, &colour));
    }
    benchmark::DoNotOptimize(colour);
  }
  return in.rgba.count * 3 * kBlockSamples;
}

size_t RunPackLane(const LaneKernels& k, const RoutineInputs& in) {
  LanePack pack;
  for (size_t i = 0; i < in.luma.count; ++i) {
    const uint8_t* tile = &in.luma.raster[i * in.luma.tileBytes];
    for (uint32_t b = 0; b < 4; ++b) {
      const uint8_t* rows = tile + (b / 2) * 4 * kLumaRowBytes + (b % 2) * kBlockWidth;
      benchmark::DoNotOptimize(k.packLane(
          in.lumaLanes[i][b], LaneCoding{kByteEscape, kByteBits, 0, rows, kLumaRowBytes}, &pack));
      benchmark::DoNotOptimize(pack);
    }
  }
  return in.luma.count * in.luma.tileBytes;
}

template <bool kJoin>
size_t RunPackedLanes(const LaneKernels& k, const RoutineInputs& in) {
  uint64_t words[kGroupsPerBlock];
  uint8_t bits[kGroupsPerBlock];
  for (size_t i = 0; i < in.luma.count; ++i) {
    if constexpr (kJoin) {
      k.joinGroupFields(in.lumaPacks[i].data(), 4, words, bits);
      benchmark::DoNotOptimize(bits);
    } else {
      k.packCodes(in.lumaPacks[i].data(), 4, words);
    }
    benchmark::DoNotOptimize(words);
  }
  return in.luma.count * in.luma.tileBytes;
}

size_t RunSplitQuads(const LaneKernels& k, const RoutineInputs& in) {
  alignas(16) uint8_t planes[4 * kBlockSamples];
  for (size_t i = 0; i < in.rgba.count; ++i) {
    k.splitQuads(&in.rgba.raster[i * in.rgba.tileBytes], kRgbaRowBytes, planes);
    benchmark::DoNotOptimize(planes);
  }
  return in.rgba.count * in.rgba.tileBytes;
}

size_t RunSplitRgb565(const LaneKernels& k, const RoutineInputs& in) {
  alignas(16) uint8_t planes[3 * kBlockSamples];
  for (size_t i = 0; i < in.rgb565.count; ++i) {
    k.splitRgb565(&in.rgb565.raster[i * in.rgb565.tileBytes], kRgb565RowBytes, planes);
    benchmark::DoNotOptimize(planes);
  }
  return in.rgb565.count * in.rgb565.tileBytes;
}

constexpr RoutineCase kRoutines[] = {
    {"byteLane", RunByteLane},
    {"byteLanePair", RunByteLanePair},
    {"exactLane", RunExactLane},
    {"rgb565Lanes", RunRgb565Lanes},
    {"colourTransform", RunColour<false>},
    {"colourLanes", RunColour<true>},
    {"packLane", RunPackLane},
    {"packCodes", RunPackedLanes<false>},
    {"joinGroupFields", RunPackedLanes<true>},
    {"splitQuads", RunSplitQuads},
    {"splitRgb565", RunSplitRgb565},
};

void RunRoutine(benchmark::State& state, const RoutineCase* routine, const LaneKernels* kernels,
                const std::shared_ptr<RoutineInputs>& inputs) {
  if (!inputs->built) BuildRoutineInputs(inputs.get());
  if (inputs->luma.count == 0 || inputs->rgba.count == 0 || inputs->rgb565.count == 0) {
    state.SkipWithError("no corpus tiles");
    return;
  }
  size_t bytes = 0;
  for (auto _ : state) bytes = routine->run(*kernels, *inputs);
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(bytes));
}

void RegisterLaneBenchmarks() {
  const std::vector<const LaneKernels*> sets = RunnableLaneSets();
  for (const PlaneCase& plane : kPlanes) {
    auto tiles = std::make_shared<TileSet>();
    for (const LaneKernels* kernels : sets) {
      const std::string name = std::string("encode_lanes/") + plane.name + "/" + kernels->name;
      benchmark::RegisterBenchmark(name.c_str(), PlanTiles, &plane, kernels, tiles);
    }
  }
  auto inputs = std::make_shared<RoutineInputs>();
  for (const RoutineCase& routine : kRoutines) {
    for (const LaneKernels* kernels : sets) {
      const std::string name = std::string("encode_routine/") + routine.name + "/" + kernels->name;
      benchmark::RegisterBenchmark(name.c_str(), RunRoutine, &routine, kernels, inputs);
    }
  }
}

const bool kRegistered = AddRegistration(&RegisterLaneBenchmarks);

}  // namespace
}  // namespace pelcast::bench
