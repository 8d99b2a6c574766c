// QOI, a fast lossless image codec, encoding and decoding the same RGBA8888
// frames as frame_encode/rgba8888 and frame_decode/rgba8888:
//
//   qoi_encode/rgba8888/<subject>
//   qoi_decode/rgba8888/<subject>
//
// MB/s counts the packed RGBA frame, as for pelcast's rows. QOI's calls
// allocate their output; that allocation is part of the reference as it is
// used. Rows are absent from builds without qoi.h.
#ifdef PELCAST_HAVE_QOI

#include <benchmark/benchmark.h>

#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "bench/bench_support.h"

#define QOI_IMPLEMENTATION
#define QOI_NO_STDIO
#include <qoi.h>

namespace pelcast::bench {
namespace {

constexpr unsigned char kRgbaChannels = 4;

qoi_desc Describe(const Frame& frame) {
  return {static_cast<unsigned int>(frame.width), static_cast<unsigned int>(frame.height),
          kRgbaChannels, QOI_SRGB};
}

void EncodeQoi(benchmark::State& state, const FrameSet* set) {
  for (auto _ : state) {
    for (const Frame& frame : set->frames) {
      const qoi_desc desc = Describe(frame);
      int length = 0;
      void* encoded = qoi_encode(frame.bytes.data(), &desc, &length);
      benchmark::DoNotOptimize(encoded);
      std::free(encoded);
    }
  }
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(set->TotalBytes()));
}

struct EncodedFrames {
  std::vector<std::vector<uint8_t>> files;
  bool built = false;
  bool valid = true;
};

// Encodes each frame once and checks that QOI decodes it back exactly.
void BuildEncoded(const FrameSet& set, EncodedFrames& encoded) {
  if (encoded.built) return;
  encoded.built = true;
  for (const Frame& frame : set.frames) {
    const qoi_desc desc = Describe(frame);
    int length = 0;
    auto* bytes = static_cast<uint8_t*>(qoi_encode(frame.bytes.data(), &desc, &length));
    if (bytes == nullptr) {
      encoded.valid = false;
      return;
    }
    encoded.files.emplace_back(bytes, bytes + length);
    std::free(bytes);
    qoi_desc decodedDesc{};
    auto* decoded = static_cast<uint8_t*>(
        qoi_decode(encoded.files.back().data(), length, &decodedDesc, kRgbaChannels));
    encoded.valid = encoded.valid && decoded != nullptr &&
                    std::equal(frame.bytes.begin(), frame.bytes.end(), decoded);
    std::free(decoded);
  }
}

void DecodeQoi(benchmark::State& state, const FrameSet* set,
               const std::shared_ptr<EncodedFrames>& encoded) {
  BuildEncoded(*set, *encoded);
  if (!encoded->valid) {
    state.SkipWithError("QOI did not round-trip the frame");
    return;
  }
  for (auto _ : state) {
    for (const std::vector<uint8_t>& file : encoded->files) {
      qoi_desc desc{};
      void* decoded = qoi_decode(file.data(), static_cast<int>(file.size()), &desc, kRgbaChannels);
      benchmark::DoNotOptimize(decoded);
      std::free(decoded);
    }
  }
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(set->TotalBytes()));
}

void RegisterQoiBenchmarks() {
  for (const FrameSet* set : FrameSubjects(PixelLayout::kRgba8888)) {
    const std::string suffix = "/rgba8888/" + set->name;
    benchmark::RegisterBenchmark(("qoi_encode" + suffix).c_str(), EncodeQoi, set);
    benchmark::RegisterBenchmark(("qoi_decode" + suffix).c_str(), DecodeQoi, set,
                                 std::make_shared<EncodedFrames>());
  }
}

const bool kRegistered = AddRegistration(&RegisterQoiBenchmarks);

}  // namespace
}  // namespace pelcast::bench

#endif  // PELCAST_HAVE_QOI
