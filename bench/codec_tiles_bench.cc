// The tile codecs alone, per plane kind, on tiles cut evenly from the
// single-frame corpus files of the plane's format, with memcpy of the same
// raw tile bytes beside them:
//
//   tile_decode/<kind>   DecodeTile on every stored tile of the set
//   tile_encode/<kind>   EncodeZpakTile on every tile of the set
//   memcpy_tiles/<kind>  the raw tiles copied once
//
// MB/s counts raw tile bytes. The sets are small enough to stay in cache, so
// these rows show the codec's own cost without the frame walk.
#include <benchmark/benchmark.h>

#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "bench/bench_support.h"
#include "decoder/tile_decoder.h"
#include "encoder/tile_encoder.h"

namespace pelcast::bench {
namespace {

// About 1 MB of raw tiles per kind: cache-resident, yet thousands of tiles
// from every part of every image.
constexpr size_t kTilesPerKind = 4096;

constexpr PlaneKind kKinds[] = {PlaneKind::kNv12Luma, PlaneKind::kNv12Chroma, PlaneKind::kRgba8888,
                                PlaneKind::kRgb565};

struct LazyTiles {
  TileSet set;
  bool built = false;
  bool valid = true;
};

// Cuts and encodes the tiles once; checks that every stored tile decodes
// back to its raster tile.
void BuildTiles(PlaneKind kind, LazyTiles& lazy) {
  if (lazy.built) return;
  lazy.set = CutCorpusTiles(kind, kTilesPerKind);
  lazy.built = true;
  ContextPtr context = MakeContext(lazy.set.contextFormat);
  context->planeIndex = lazy.set.planeIndex;
  uint8_t output[kTileScratchBytes];
  for (size_t i = 0; i < lazy.set.count && lazy.valid; ++i) {
    DecodeTile(context.get(), &lazy.set.stored[i * kSlotBytes], lazy.set.meta[i], output);
    lazy.valid =
        std::memcmp(output, &lazy.set.raster[i * lazy.set.tileBytes], lazy.set.tileBytes) == 0;
  }
}

bool Ready(benchmark::State& state, PlaneKind kind, LazyTiles& lazy) {
  BuildTiles(kind, lazy);
  if (lazy.set.count == 0) {
    state.SkipWithError("no corpus frames of this format");
    return false;
  }
  if (!lazy.valid) {
    state.SkipWithError("a stored tile does not decode back to its tile");
    return false;
  }
  return true;
}

void DecodeTiles(benchmark::State& state, PlaneKind kind, const std::shared_ptr<LazyTiles>& lazy) {
  if (!Ready(state, kind, *lazy)) return;
  const TileSet& set = lazy->set;
  ContextPtr context = MakeContext(set.contextFormat);
  context->planeIndex = set.planeIndex;
  alignas(64) uint8_t output[kTileScratchBytes];
  for (auto _ : state) {
    for (size_t i = 0; i < set.count; ++i) {
      DecodeTile(context.get(), &set.stored[i * kSlotBytes], set.meta[i], output);
      benchmark::DoNotOptimize(output);
    }
  }
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(set.count * set.tileBytes));
}

void EncodeTiles(benchmark::State& state, PlaneKind kind, const std::shared_ptr<LazyTiles>& lazy) {
  if (!Ready(state, kind, *lazy)) return;
  const TileSet& set = lazy->set;
  ContextPtr context = MakeContext(set.contextFormat);
  context->planeIndex = set.planeIndex;
  alignas(64) uint8_t output[kTileScratchBytes];
  for (auto _ : state) {
    for (size_t i = 0; i < set.count; ++i) {
      uint64_t units = 0;
      EncodeZpakTile(context.get(), &set.ordered[i * set.tileBytes], output, &units);
      benchmark::DoNotOptimize(output);
      benchmark::DoNotOptimize(units);
    }
  }
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(set.count * set.tileBytes));
}

void CopyTiles(benchmark::State& state, PlaneKind kind, const std::shared_ptr<LazyTiles>& lazy) {
  if (!Ready(state, kind, *lazy)) return;
  const TileSet& set = lazy->set;
  std::vector<uint8_t> target(set.raster.size());
  for (auto _ : state) {
    std::memcpy(target.data(), set.raster.data(), target.size());
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(target.size()));
}

void RegisterTileBenchmarks() {
  for (PlaneKind kind : kKinds) {
    const std::string suffix = std::string("/") + PlaneKindName(kind);
    auto lazy = std::make_shared<LazyTiles>();
    benchmark::RegisterBenchmark(("tile_decode" + suffix).c_str(), DecodeTiles, kind, lazy);
    benchmark::RegisterBenchmark(("tile_encode" + suffix).c_str(), EncodeTiles, kind, lazy);
    benchmark::RegisterBenchmark(("memcpy_tiles" + suffix).c_str(), CopyTiles, kind, lazy);
  }
}

const bool kRegistered = AddRegistration(&RegisterTileBenchmarks);

}  // namespace
}  // namespace pelcast::bench
