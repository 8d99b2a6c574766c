// Whole frames through the public API (pelcast_codec_decode and
// pelcast_codec_encode) on 1 and 2 threads, wall-clock time, on every
// 1920x1080 corpus file and the 3840x2160 mosaic:
//
//   api_decode/<format>/<threads>t/<subject>
//   api_encode/<format>/<threads>t/<subject>
//
// MB/s counts the packed linear frame, as the frame_* rows do; the ratio of
// the two thread counts is the API's scaling on this machine.
#include <benchmark/benchmark.h>
#include <pelcast/pelcast.h>

#include <memory>
#include <string>
#include <vector>

#include "bench/bench_support.h"

namespace pelcast::bench {
namespace {

constexpr uint32_t kThreadCounts[] = {1, 2};

pelcast_format ApiFormat(PixelLayout layout) {
  switch (layout) {
    case PixelLayout::kNv12:
      return PELCAST_FORMAT_NV12;
    case PixelLayout::kRgba8888:
      return PELCAST_FORMAT_RGBA8888;
    case PixelLayout::kRgb565:
      break;
  }
  return PELCAST_FORMAT_RGB565;
}

// A codec for the set's frames with `threads` threads, their ZPAK frames and
// an output frame, made on the first run of the row.
struct ApiJob {
  pelcast_codec* codec = nullptr;
  std::vector<std::vector<uint8_t>> zpak;
  std::vector<uint8_t> output;
  bool valid = true;
  ~ApiJob() { pelcast_codec_destroy(codec); }
};

bool Prepare(const FrameSet& set, uint32_t threads, ApiJob* job) {
  if (job->codec != nullptr) return job->valid;
  const Frame& first = set.frames.front();
  const pelcast_format format = ApiFormat(first.layout);
  const auto w = static_cast<uint32_t>(first.width);
  const auto h = static_cast<uint32_t>(first.height);
  job->valid = pelcast_codec_create(format, w, h, &job->codec) == PELCAST_OK &&
               pelcast_codec_set_threads(job->codec, threads) == PELCAST_OK &&
               pelcast_codec_threads(job->codec) == threads;
  job->output.assign(pelcast_linear_frame_size(format, w, h), 0);
  for (const Frame& frame : set.frames) {
    job->zpak.emplace_back(pelcast_zpak_frame_size(format, w, h));
    job->valid = job->valid && pelcast_encode_frame(format, w, h, frame.bytes.data(), frame.bytes.size(),
                                                    job->zpak.back().data(), job->zpak.back().size()) ==
                                   PELCAST_OK;
  }
  return job->valid;
}

pelcast_image OutputImage(const FrameSet& set, ApiJob* job) {
  const Frame& first = set.frames.front();
  pelcast_image image;
  pelcast_image_init_packed(&image, ApiFormat(first.layout), static_cast<uint32_t>(first.width),
                            static_cast<uint32_t>(first.height), job->output.data(), job->output.size());
  return image;
}

void ApiDecode(benchmark::State& state, const FrameSet* set, uint32_t threads,
               const std::shared_ptr<ApiJob>& job) {
  if (!Prepare(*set, threads, job.get())) {
    state.SkipWithError("the codec could not be set up");
    return;
  }
  const pelcast_image image = OutputImage(*set, job.get());
  for (auto _ : state) {
    for (const auto& zpak : job->zpak) {
      pelcast_codec_decode(job->codec, zpak.data(), zpak.size(), &image);
      benchmark::ClobberMemory();
    }
  }
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(set->TotalBytes()));
}

void ApiEncode(benchmark::State& state, const FrameSet* set, uint32_t threads,
               const std::shared_ptr<ApiJob>& job) {
  if (!Prepare(*set, threads, job.get())) {
    state.SkipWithError("the codec could not be set up");
    return;
  }
  std::vector<pelcast_image> images;
  for (const Frame& frame : set->frames) {
    pelcast_image image;
    pelcast_image_init_packed(&image, ApiFormat(frame.layout), static_cast<uint32_t>(frame.width),
                              static_cast<uint32_t>(frame.height),
                              const_cast<uint8_t*>(frame.bytes.data()), frame.bytes.size());
    images.push_back(image);
  }
  for (auto _ : state) {
    for (size_t i = 0; i < images.size(); ++i) {
      pelcast_codec_encode(job->codec, &images[i], job->zpak[i].data(), job->zpak[i].size());
      benchmark::ClobberMemory();
    }
  }
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(set->TotalBytes()));
}

void RegisterApiBenchmarks() {
  for (const LayoutCase& format : kLayoutCases) {
    for (const FrameSet* set : FrameSubjects(format.layout)) {
      for (uint32_t threads : kThreadCounts) {
        const std::string suffix = std::string("/") + format.name + "/" + std::to_string(threads) +
                                   "t/" + set->name;
        benchmark::RegisterBenchmark(("api_decode" + suffix).c_str(), ApiDecode, set, threads,
                                     std::make_shared<ApiJob>())
            ->UseRealTime();
        benchmark::RegisterBenchmark(("api_encode" + suffix).c_str(), ApiEncode, set, threads,
                                     std::make_shared<ApiJob>())
            ->UseRealTime();
      }
    }
  }
}

const bool kRegistered = AddRegistration(&RegisterApiBenchmarks);

}  // namespace
}  // namespace pelcast::bench
