// The decoder's tile kernels side by side: the general tile decoder, the
// portable specialised kernel and the vector one of the processor (AVX2 or
// NEON), on whole corpus frames and on tiles cut from them.
//
//   decode_kernel/<format>/<kernel>/<subject>   frame decode with that kernel
//   decode_tile/<plane>/<kernel>                DecodeTile (general) or the kernel
//
// MB/s counts the packed linear frame, or the raw tiles' bytes.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "bench/bench_support.h"
#include "decoder/frame_decoder.h"
#include "decoder/tile_decoder.h"
#include "decoder/tile_kernels.h"

namespace pelcast::bench {
namespace {

struct KernelCase {
  TileKernel kernel;
  const char* name;
};

constexpr KernelCase kKernels[] = {
    {TileKernel::kExact, "general"},
    {TileKernel::kPlain, "plain"},
    {TileKernel::kAvx2, "avx2"},
    {TileKernel::kNeon, "neon"},
};

struct FrameJobs {
  std::vector<std::unique_ptr<DecodeJob>> jobs;
  bool built = false;
  bool valid = true;
};

void RunWithKernel(DecodeJob& job, TileKernel kernel) {
  if (job.layout == PixelLayout::kRgb565) {
    DecodeZpakFrameRgb565WithKernel(job.context.get(), &job.config, kernel);
  } else {
    DecodeZpakFrameWithKernel(job.context.get(), &job.config, kernel);
  }
}

void DecodeFramesWithKernel(benchmark::State& state, const FrameSet* set, TileKernel kernel,
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

void DecodeTiles(benchmark::State& state, const TilePlane* plane, TileKernel kernel,
                 const std::shared_ptr<TileJobs>& lazy) {
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
  std::vector<uint8_t> out(kSlotBytes);
  for (auto _ : state) {
    for (size_t i = 0; i < t.count; ++i) {
      const uint8_t* padded = &lazy->padded[i * kPaddedTileBytes];
      if (kernel == TileKernel::kExact) {
        DecodeTile(context.get(), padded, t.meta[i], out.data());
      } else if (IsRawTile(plane->kind, t.meta[i])) {
        ExpandRawTile(plane->kind, padded, out.data(), rowBytes);
      } else {
        DecodeCompressedTile(kernel, plane->kind, padded, out.data(), rowBytes);
      }
      benchmark::ClobberMemory();
    }
  }
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(t.count * t.tileBytes));
}

void RegisterDecodeKernelBenchmarks() {
  for (const KernelCase& k : kKernels) {
    if (!TileKernelAvailable(k.kernel)) continue;
    for (const LayoutCase& format : kLayoutCases) {
      for (const FrameSet* set : FrameSubjects(format.layout)) {
        const std::string name =
            std::string("decode_kernel/") + format.name + "/" + k.name + "/" + set->name;
        benchmark::RegisterBenchmark(name.c_str(), DecodeFramesWithKernel, set, k.kernel,
                                     std::make_shared<FrameJobs>());
      }
    }
    for (const TilePlane& plane : kTilePlanes) {
      const std::string name = std::string("decode_tile/") + plane.name + "/" + k.name;
      benchmark::RegisterBenchmark(name.c_str(), DecodeTiles, &plane, k.kernel,
                                   std::make_shared<TileJobs>());
    }
  }
}

const bool kRegistered = AddRegistration(&RegisterDecodeKernelBenchmarks);

}  // namespace
}  // namespace pelcast::bench
