// Whole-frame decode and encode per format, on every 1920x1080 corpus file
// (all eight frames of the pan sequence in turn) and on the 3840x2160 mosaic,
// with memcpy of the same packed frames beside them.
//
//   frame_decode/<format>/<subject>   DecodeZpakFrame or DecodeZpakFrameRgb565
//   frame_encode/<format>/<subject>   EncodeZpakFrame or EncodeZpakFrameRgb565
//   memcpy/<format>/<subject>         the packed frames copied once
//
// MB/s counts the packed linear frame for both directions.
#include <benchmark/benchmark.h>

#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "bench/bench_support.h"

namespace pelcast::bench {
namespace {

// Jobs are built the first time a benchmark runs (Google Benchmark calls a
// benchmark function several times), so a filter that skips a row also skips
// its set-up.
template <typename Job>
struct LazyJobs {
  std::vector<std::unique_ptr<Job>> jobs;
  bool built = false;
  bool valid = true;
};

void DecodeFrames(benchmark::State& state, const FrameSet* set,
                  const std::shared_ptr<LazyJobs<DecodeJob>>& lazy) {
  if (!lazy->built) {
    for (const Frame& frame : set->frames) {
      lazy->jobs.push_back(MakeDecodeJob(frame));
      RunDecode(*lazy->jobs.back());
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
      RunDecode(*job);
      benchmark::ClobberMemory();
    }
  }
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(set->TotalBytes()));
}

void EncodeFrames(benchmark::State& state, const FrameSet* set,
                  const std::shared_ptr<LazyJobs<EncodeJob>>& lazy) {
  if (!lazy->built) {
    for (const Frame& frame : set->frames) lazy->jobs.push_back(MakeEncodeJob(frame));
    lazy->built = true;
  }
  for (auto _ : state) {
    for (auto& job : lazy->jobs) {
      RunEncode(*job);
      benchmark::ClobberMemory();
    }
  }
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(set->TotalBytes()));
}

void CopyFrames(benchmark::State& state, const FrameSet* set) {
  std::vector<std::vector<uint8_t>> targets;
  for (const Frame& frame : set->frames) targets.emplace_back(frame.bytes.size(), 0);
  for (auto _ : state) {
    for (size_t i = 0; i < set->frames.size(); ++i) {
      std::memcpy(targets[i].data(), set->frames[i].bytes.data(), targets[i].size());
      benchmark::ClobberMemory();
    }
  }
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(set->TotalBytes()));
}

void RegisterFrameBenchmarks() {
  for (const LayoutCase& format : kLayoutCases) {
    for (const FrameSet* set : FrameSubjects(format.layout)) {
      const std::string suffix = std::string("/") + format.name + "/" + set->name;
      benchmark::RegisterBenchmark(("frame_decode" + suffix).c_str(), DecodeFrames, set,
                                   std::make_shared<LazyJobs<DecodeJob>>());
      benchmark::RegisterBenchmark(("frame_encode" + suffix).c_str(), EncodeFrames, set,
                                   std::make_shared<LazyJobs<EncodeJob>>());
      benchmark::RegisterBenchmark(("memcpy" + suffix).c_str(), CopyFrames, set);
    }
  }
}

const bool kRegistered = AddRegistration(&RegisterFrameBenchmarks);

}  // namespace
}  // namespace pelcast::bench
