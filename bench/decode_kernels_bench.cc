// The decoder's tile kernels side by side: the general tile decoder and the
// table of every kernel set this processor runs (plain, avx2 or neon), on
// whole corpus frames and on tiles cut from them.
//
//   decode_kernel/<format>/<kernel>/<subject>   frame decode with that table
//   decode_tile/<plane>/general                 DecodeTile on every tile
//   decode_tile/<plane>/<set>                   the set's decode routine on the
//                                               compressed tiles
//   expand_raw/<plane>/<set>                    the set's raw-tile routine on
//                                               every tile's stored bytes
//   decode_tile_streamed/, expand_raw_streamed/ the same with the set's
//                                               streamed routines (where it
//                                               has its own): every tile to
//                                               the same small buffer, which
//                                               they send past the cache each
//                                               time, so slower here than in
//                                               the large frames they are for
//
// MB/s counts the packed linear frame, or the raw tiles' bytes.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "bench/bench_support.h"
#include "common/cpu.h"
#include "decoder/frame_decoder.h"
#include "decoder/tile_decoder.h"
#include "decoder/tile_kernels.h"

namespace pelcast::bench {
namespace {

// The general decoder (null) and the distinct tables of the runnable sets.
std::vector<const TileDecodeKernels*> KernelTables() {
  std::vector<const TileDecodeKernels*> tables{nullptr};
  for (const KernelSet& set : RunnableKernelSets()) {
    const TileDecodeKernels* k = &TileDecodeKernelsFor(set.features);
    if (std::find(tables.begin(), tables.end(), k) == tables.end()) tables.push_back(k);
  }
  return tables;
}

const char* TableName(const TileDecodeKernels* kernels) {
  return kernels != nullptr ? kernels->name : "general";
}

struct FrameJobs {
  std::vector<std::unique_ptr<DecodeJob>> jobs;
  bool built = false;
  bool valid = true;
};

void RunWithKernel(DecodeJob& job, const TileDecodeKernels* kernels) {
  if (job.layout == PixelLayout::kRgb565) {
    DecodeZpakFrameRgb565WithKernels(job.context.get(), &job.config, kernels);
  } else {
    DecodeZpakFrameWithKernels(job.context.get(), &job.config, kernels);
  }
}

void DecodeFramesWithKernel(benchmark::State& state, const FrameSet* set,
                            const TileDecodeKernels* kernel,
                            const std::shared_ptr<FrameJobs>& lazy) {
  if (!lazy->built) {
    for (const Frame& frame : set->frames) {
      lazy->jobs.push_back(MakeDecodeJob(frame));
      RunWithKernel(*lazy->jobs.back(), kernel);
      lazy->valid = lazy->valid && DecodedMatches(*lazy->jobs.back(), frame);
    }
    lazy->built = true;
  }
  if (!lazy->valid) {
    state.SkipWithError("the decoded frame differs from the encoded one");
    return;
  }
  for (auto _ : state) {
    for (auto& job : lazy->jobs) {
      RunWithKernel(*job, kernel);
      benchmark::ClobberMemory();
    }
  }
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(set->TotalBytes()));
}

struct TilePlane {
  PlaneKind plane;
  TileKind kind;
  const char* name;
};

constexpr TilePlane kTilePlanes[] = {
    {PlaneKind::kNv12Luma, TileKind::kNv12Luma, "nv12_luma"},
    {PlaneKind::kNv12Chroma, TileKind::kNv12Chroma, "nv12_chroma"},
    {PlaneKind::kRgba8888, TileKind::kRgba8888, "rgba8888"},
    {PlaneKind::kRgb565, TileKind::kRgb565, "rgb565"},
};

constexpr size_t kBenchTiles = 4096;

// Stored tiles padded for the kernels (the staged bytes, then zeros).
struct TileJobs {
  TileSet tiles;
  std::vector<uint8_t> padded;
  bool built = false;
};

// Which routine a tile row times.
enum class TileRoutine { kGeneral, kDecode, kExpandRaw, kDecodeStreamed, kExpandRawStreamed };

void DecodeTiles(benchmark::State& state, const TilePlane* plane, const TileDecodeKernels* kernels,
                 TileRoutine routine, const std::shared_ptr<TileJobs>& lazy) {
  if (!lazy->built) {
    lazy->tiles = CutCorpusTiles(plane->plane, kBenchTiles);
    const TileSet& t = lazy->tiles;
    lazy->padded.assign(t.count * kPaddedTileBytes, 0);
    for (size_t i = 0; i < t.count; ++i) {
      std::copy_n(&t.stored[i * kSlotBytes], t.tileBytes, &lazy->padded[i * kPaddedTileBytes]);
    }
    lazy->built = true;
  }
  const TileSet& t = lazy->tiles;
  if (t.count == 0) {
    state.SkipWithError("no corpus tiles");
    return;
  }
  ContextPtr context = MakeContext(t.contextFormat);
  context->planeIndex = t.planeIndex;
  const uint64_t rowBytes = TileRowBytes(plane->kind);
  const auto kind = static_cast<size_t>(plane->kind);
  std::vector<uint8_t> out(kSlotBytes);
  size_t bytes = 0;
  for (size_t i = 0; i < t.count; ++i) {
    const bool decodes = routine == TileRoutine::kDecode || routine == TileRoutine::kDecodeStreamed;
    if (!decodes || !IsRawTile(plane->kind, t.meta[i])) bytes += t.tileBytes;
  }
  for (auto _ : state) {
    for (size_t i = 0; i < t.count; ++i) {
      const uint8_t* padded = &lazy->padded[i * kPaddedTileBytes];
      if (routine == TileRoutine::kGeneral) {
        DecodeTile(context.get(), padded, t.meta[i], out.data());
      } else if (routine == TileRoutine::kExpandRaw) {
        kernels->expandRaw[kind](padded, out.data(), rowBytes);
      } else if (routine == TileRoutine::kExpandRawStreamed) {
        kernels->expandRawStreamed[kind](padded, out.data(), rowBytes);
      } else if (IsRawTile(plane->kind, t.meta[i])) {
        continue;
      } else if (routine == TileRoutine::kDecode) {
        benchmark::DoNotOptimize(kernels->decode[kind](padded, out.data(), rowBytes));
      } else {
        benchmark::DoNotOptimize(kernels->decodeStreamed[kind](padded, out.data(), rowBytes));
      }
      benchmark::ClobberMemory();
    }
    if (kernels != nullptr) kernels->finishStreaming();
  }
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(bytes));
}

void RegisterDecodeKernelBenchmarks() {
  for (const TileDecodeKernels* kernels : KernelTables()) {
    for (const LayoutCase& format : kLayoutCases) {
      for (const FrameSet* set : FrameSubjects(format.layout)) {
        const std::string name = std::string("decode_kernel/") + format.name + "/" +
                                 TableName(kernels) + "/" + set->name;
        benchmark::RegisterBenchmark(name.c_str(), DecodeFramesWithKernel, set, kernels,
                                     std::make_shared<FrameJobs>());
      }
    }
    for (const TilePlane& plane : kTilePlanes) {
      const auto tiles = std::make_shared<TileJobs>();
      const std::string suffix = std::string("/") + plane.name + "/" + TableName(kernels);
      if (kernels == nullptr) {
        benchmark::RegisterBenchmark(("decode_tile" + suffix).c_str(), DecodeTiles, &plane, kernels,
                                     TileRoutine::kGeneral, tiles);
        continue;
      }
      benchmark::RegisterBenchmark(("decode_tile" + suffix).c_str(), DecodeTiles, &plane, kernels,
                                   TileRoutine::kDecode, tiles);
      benchmark::RegisterBenchmark(("expand_raw" + suffix).c_str(), DecodeTiles, &plane, kernels,
                                   TileRoutine::kExpandRaw, tiles);
      const auto k = static_cast<size_t>(plane.kind);
      if (kernels->decodeStreamed[k] != kernels->decode[k]) {
        benchmark::RegisterBenchmark(("decode_tile_streamed" + suffix).c_str(), DecodeTiles, &plane,
                                     kernels, TileRoutine::kDecodeStreamed, tiles);
      }
      if (kernels->expandRawStreamed[k] != kernels->expandRaw[k]) {
        benchmark::RegisterBenchmark(("expand_raw_streamed" + suffix).c_str(), DecodeTiles, &plane,
                                     kernels, TileRoutine::kExpandRawStreamed, tiles);
      }
    }
  }
}

const bool kRegistered = AddRegistration(&RegisterDecodeKernelBenchmarks);

}  // namespace
}  // namespace pelcast::bench
