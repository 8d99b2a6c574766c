// The raw tools' in-memory work per frame, beside libyuv doing the same
// conversions on the same frames (a 1920x1080 corpus frame and the 3840x2160
// mosaic):
//
//   raw_P/<subject>      P: planar chroma interleaved to NV12 (the command
//                        writes the luma straight from its read buffer)
//   raw_I/<subject>      I: NV12 chroma split into U and V planes (likewise)
//   raw_C/<subject>      C: the top-left two thirds cropped, luma and chroma
//   raw_E/<subject>      E: chroma of a padded frame split (the luma is packed
//                        in place, which for these strides moves nothing)
//   raw_sse/<subject>    S/R: squared luma error of two frames
//   raw_P_rows/<set>/<subject>, raw_sse_rows/<set>/<subject>,
//   raw_squares_rows/<set>/<subject>: each row kernel of one kernel set
//                        (plain, avx2) alone
//   libyuv_<function>/<subject>  the reference: I420ToNV12, NV12ToI420,
//                        ConvertToI420 with a crop, ComputeSumSquareError,
//                        and MergeUVPlane / SplitUVPlane, libyuv's chroma-only
//                        share of the same work
//
// MB/s counts the packed output frame (for raw_sse, the luma plane compared),
// the same bytes for a row and its references. T is a plain copy: the memcpy
// rows of the frame benchmarks are its figure.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "bench/bench_support.h"
#include "common/cpu.h"
#include "rawtools/raw_kernels.h"

#ifdef PELCAST_HAVE_LIBYUV
#include <libyuv.h>
#endif

namespace pelcast::bench {
namespace {

// Padded frames of command E: 128-byte stride alignment, 32-row luma and
// 16-row chroma alignment; the corpus widths need no extra stride block.
constexpr size_t kStrideAlignment = 128;
constexpr size_t kLumaLineAlignment = 32;
constexpr size_t kChromaLineAlignment = 16;
// A pattern flipped into the second frame of the error sum.
constexpr uint8_t kDifference = 0x5A;

size_t AlignUp(size_t value, size_t alignment) {
  return (value + alignment - 1) / alignment * alignment;
}

ByteSpan Span(std::vector<uint8_t>& bytes) {
  return {bytes.data(), static_cast<int64_t>(bytes.size())};
}

// One NV12 frame in every input layout the kernels take, with the output
// buffers the commands allocate for it.
struct RawFrame {
  int32_t width, height;  // even for every subject
  int32_t cropWidth, cropHeight;
  size_t stride, lumaLines, chromaLines;
  std::vector<uint8_t> nv12;    // packed
  std::vector<uint8_t> planar;  // Y, U, V packed
  std::vector<uint8_t> padded;  // E's input
  std::vector<uint8_t> other;   // a second frame for the error sum
  std::vector<uint8_t> outLuma, outChroma, outCroppedLuma, outCroppedChroma;

  size_t LumaBytes() const { return static_cast<size_t>(width) * static_cast<size_t>(height); }
  size_t FrameBytes() const { return LumaBytes() * 3 / 2; }
  size_t CroppedBytes() const {
    return static_cast<size_t>(cropWidth) * static_cast<size_t>(cropHeight) * 3 / 2;
  }
};

std::unique_ptr<RawFrame> MakeRawFrame(const Frame& frame) {
  auto raw = std::make_unique<RawFrame>();
  RawFrame& f = *raw;
  f.width = frame.width;
  f.height = frame.height;
  f.cropWidth = frame.width * 2 / 3 / 2 * 2;
  f.cropHeight = frame.height * 2 / 3 / 2 * 2;
  const size_t w = static_cast<size_t>(f.width);
  const size_t h = static_cast<size_t>(f.height);
  f.nv12 = frame.bytes;
  f.planar.assign(f.FrameBytes(), 0);
  std::memcpy(f.planar.data(), f.nv12.data(), w * h);
  for (size_t i = 0; i < w * h / 4; ++i) {
    f.planar[w * h + i] = f.nv12[w * h + 2 * i];
    f.planar[w * h + w * h / 4 + i] = f.nv12[w * h + 2 * i + 1];
  }
  f.stride = AlignUp(w, kStrideAlignment);
  f.lumaLines = AlignUp(h, kLumaLineAlignment);
  f.chromaLines = AlignUp(h / 2, kChromaLineAlignment);
  f.padded.assign(f.stride * (f.lumaLines + f.chromaLines), 0);
  for (size_t r = 0; r < h; ++r) std::memcpy(&f.padded[r * f.stride], &f.nv12[r * w], w);
  for (size_t r = 0; r < h / 2; ++r) {
    std::memcpy(&f.padded[(f.lumaLines + r) * f.stride], &f.nv12[w * h + r * w], w);
  }
  f.other = f.nv12;
  for (uint8_t& byte : f.other) byte ^= kDifference;
  f.outLuma.assign(w * h, 0);
  f.outChroma.assign(w * h / 2, 0);
  const size_t cropped = static_cast<size_t>(f.cropWidth) * static_cast<size_t>(f.cropHeight);
  f.outCroppedLuma.assign(cropped, 0);
  f.outCroppedChroma.assign(cropped / 2, 0);
  return raw;
}

using RawKernel = void (*)(RawFrame&);

// P: the planar chroma (U plane then V plane) interleaved into NV12 chroma.
void RunP(RawFrame& f) {
  const size_t luma = f.LumaBytes();
  ByteSpan planar{f.planar.data() + luma, static_cast<int64_t>(luma / 2)};
  ByteSpan uv{f.outChroma.data(), static_cast<int64_t>(f.outChroma.size())};
  InterleaveChromaPlanes(planar, uv, f.width / 2, f.height / 2);
}

// I: the interleaved chroma, read into the luma-sized buffer, split.
void RunI(RawFrame& f) {
  ByteSpan source{f.nv12.data() + f.LumaBytes(), static_cast<int64_t>(f.LumaBytes())};
  SplitChromaPlane(source, 0, f.width, Span(f.outChroma), f.width, f.height);
}

// C: luma and chroma of the top-left region.
void RunC(RawFrame& f) {
  ByteSpan luma{f.nv12.data(), static_cast<int64_t>(f.LumaBytes())};
  ByteSpan chroma{f.nv12.data() + f.LumaBytes(), static_cast<int64_t>(f.LumaBytes() / 2)};
  CropLuma(luma, f.width, Span(f.outCroppedLuma), f.cropWidth, f.cropHeight);
  SplitChromaPlane(chroma, 0, f.width, Span(f.outCroppedChroma), f.cropWidth, f.cropHeight);
}

// E: the padded frame's chroma split (its luma rows are already packed).
void RunE(RawFrame& f) {
  SplitChromaPlane(Span(f.padded), static_cast<int64_t>(f.stride * f.lumaLines),
                   static_cast<int64_t>(f.stride), Span(f.outChroma), f.width, f.height);
}

void RunSse(RawFrame& f) {
  const uint64_t sum = LumaSquaredError(Span(f.nv12), Span(f.other), f.width, f.height, f.width);
  benchmark::DoNotOptimize(sum);
}

#ifdef PELCAST_HAVE_LIBYUV

uint8_t* U(std::vector<uint8_t>& planar, const RawFrame& f) {
  return planar.data() + f.LumaBytes();
}
uint8_t* V(std::vector<uint8_t>& planar, const RawFrame& f) {
  return planar.data() + f.LumaBytes() * 5 / 4;
}

void RunI420ToNv12(RawFrame& f) {
  const int w = f.width;
  libyuv::I420ToNV12(f.planar.data(), w, U(f.planar, f), w / 2, V(f.planar, f), w / 2,
                     f.outLuma.data(), w, f.outChroma.data(), w, w, f.height);
}

void RunMergeUvPlane(RawFrame& f) {
  const int w = f.width;
  libyuv::MergeUVPlane(U(f.planar, f), w / 2, V(f.planar, f), w / 2, f.outChroma.data(), w, w / 2,
                       f.height / 2);
}

void RunNv12ToI420(RawFrame& f) {
  const int w = f.width;
  uint8_t* chroma = f.outChroma.data();
  libyuv::NV12ToI420(f.nv12.data(), w, f.nv12.data() + f.LumaBytes(), w, f.outLuma.data(), w,
                     chroma, w / 2, chroma + f.LumaBytes() / 4, w / 2, w, f.height);
}

void RunSplitUvPlane(RawFrame& f) {
  const int w = f.width;
  uint8_t* chroma = f.outChroma.data();
  libyuv::SplitUVPlane(f.nv12.data() + f.LumaBytes(), w, chroma, w / 2, chroma + f.LumaBytes() / 4,
                       w / 2, w / 2, f.height / 2);
}

void RunConvertToI420Crop(RawFrame& f) {
  const int w2 = f.cropWidth;
  uint8_t* chroma = f.outCroppedChroma.data();
  const size_t quarter = f.outCroppedLuma.size() / 4;
  libyuv::ConvertToI420(f.nv12.data(), f.nv12.size(), f.outCroppedLuma.data(), w2, chroma, w2 / 2,
                        chroma + quarter, w2 / 2, 0, 0, f.width, f.height, w2, f.cropHeight,
                        libyuv::kRotate0, libyuv::FOURCC_NV12);
}

void RunNv12ToI420Padded(RawFrame& f) {
  const int w = f.width;
  const int s = static_cast<int>(f.stride);
  uint8_t* chroma = f.outChroma.data();
  libyuv::NV12ToI420(f.padded.data(), s, f.padded.data() + f.stride * f.lumaLines, s,
                     f.outLuma.data(), w, chroma, w / 2, chroma + f.LumaBytes() / 4, w / 2, w,
                     f.height);
}

void RunSplitUvPlanePadded(RawFrame& f) {
  const int w = f.width;
  uint8_t* chroma = f.outChroma.data();
  libyuv::SplitUVPlane(f.padded.data() + f.stride * f.lumaLines, static_cast<int>(f.stride), chroma,
                       w / 2, chroma + f.LumaBytes() / 4, w / 2, w / 2, f.height / 2);
}

void RunComputeSumSquareError(RawFrame& f) {
  const uint64_t sum =
      libyuv::ComputeSumSquareError(f.nv12.data(), f.other.data(), static_cast<int>(f.LumaBytes()));
  benchmark::DoNotOptimize(sum);
}

#endif  // PELCAST_HAVE_LIBYUV

enum class Credit { kFrame, kCroppedFrame, kLuma };

struct KernelCase {
  const char* name;
  RawKernel run;
  Credit credit;
};

constexpr KernelCase kKernels[] = {
    {"raw_P", RunP, Credit::kFrame},
    {"raw_I", RunI, Credit::kFrame},
    {"raw_C", RunC, Credit::kCroppedFrame},
    {"raw_E", RunE, Credit::kFrame},
    {"raw_sse", RunSse, Credit::kLuma},
#ifdef PELCAST_HAVE_LIBYUV
    {"libyuv_I420ToNV12", RunI420ToNv12, Credit::kFrame},
    {"libyuv_MergeUVPlane", RunMergeUvPlane, Credit::kFrame},
    {"libyuv_NV12ToI420", RunNv12ToI420, Credit::kFrame},
    {"libyuv_SplitUVPlane", RunSplitUvPlane, Credit::kFrame},
    {"libyuv_ConvertToI420_crop", RunConvertToI420Crop, Credit::kCroppedFrame},
    {"libyuv_NV12ToI420_padded", RunNv12ToI420Padded, Credit::kFrame},
    {"libyuv_SplitUVPlane_padded", RunSplitUvPlanePadded, Credit::kFrame},
    {"libyuv_ComputeSumSquareError", RunComputeSumSquareError, Credit::kLuma},
#endif
};

size_t Credited(const RawFrame& f, Credit credit) {
  switch (credit) {
    case Credit::kFrame:
      return f.FrameBytes();
    case Credit::kCroppedFrame:
      return f.CroppedBytes();
    case Credit::kLuma:
      break;
  }
  return f.LumaBytes();
}

struct LazyFrame {
  const Frame* frame;
  std::unique_ptr<RawFrame> raw;
};

void RunKernel(benchmark::State& state, KernelCase kernel, const std::shared_ptr<LazyFrame>& lazy) {
  if (lazy->raw == nullptr) lazy->raw = MakeRawFrame(*lazy->frame);
  RawFrame& f = *lazy->raw;
  for (auto _ : state) {
    kernel.run(f);
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(Credited(f, kernel.credit)));
}

// One compiled set of row kernels alone over a frame's rows, to show what
// each instruction set gives: P's interleave over the chroma rows, and the
// error sum over the luma rows.
void RunInterleaveRows(benchmark::State& state, const RowKernelSet* set,
                       const std::shared_ptr<LazyFrame>& lazy) {
  if (lazy->raw == nullptr) lazy->raw = MakeRawFrame(*lazy->frame);
  RawFrame& f = *lazy->raw;
  const size_t columns = static_cast<size_t>(f.width) / 2;
  const uint8_t* u = f.planar.data() + f.LumaBytes();
  const uint8_t* v = u + f.LumaBytes() / 4;
  for (auto _ : state) {
    for (size_t r = 0; r < static_cast<size_t>(f.height) / 2; ++r) {
      set->interleaveChroma(u + r * columns, v + r * columns, f.outChroma.data() + 2 * r * columns,
                            columns);
    }
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(f.FrameBytes()));
}

void RunSquaredErrorRows(benchmark::State& state, const RowKernelSet* set,
                         const std::shared_ptr<LazyFrame>& lazy) {
  if (lazy->raw == nullptr) lazy->raw = MakeRawFrame(*lazy->frame);
  RawFrame& f = *lazy->raw;
  const size_t w = static_cast<size_t>(f.width);
  for (auto _ : state) {
    uint64_t sum = 0;
    for (size_t r = 0; r < static_cast<size_t>(f.height); ++r) {
      sum += set->sumSquaredDifference(f.nv12.data() + r * w, f.other.data() + r * w, w);
    }
    benchmark::DoNotOptimize(sum);
  }
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(f.LumaBytes()));
}

// The squares of the luma rows: what S and R sum for rows the other file lacks.
void RunSquaresRows(benchmark::State& state, const RowKernelSet* set,
                    const std::shared_ptr<LazyFrame>& lazy) {
  if (lazy->raw == nullptr) lazy->raw = MakeRawFrame(*lazy->frame);
  RawFrame& f = *lazy->raw;
  const size_t w = static_cast<size_t>(f.width);
  for (auto _ : state) {
    uint64_t sum = 0;
    for (size_t r = 0; r < static_cast<size_t>(f.height); ++r) {
      sum += set->sumSquares(f.nv12.data() + r * w, w);
    }
    benchmark::DoNotOptimize(sum);
  }
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(f.LumaBytes()));
}

// The distinct row kernel tables of the sets this processor runs, plain first.
std::vector<const RowKernelSet*> RunnableRowSets() {
  std::vector<const RowKernelSet*> sets;
  for (const KernelSet& runnable : RunnableKernelSets()) {
    const RowKernelSet* set = &RowKernelsFor(runnable.features);
    if (std::find(sets.begin(), sets.end(), set) == sets.end()) sets.push_back(set);
  }
  return sets;
}

// A 1920x1080 frame and the mosaic: the kernels' speed does not depend on the
// picture, only on the sizes and on whether the frame stays in cache.
void RegisterRawBenchmarks() {
  std::vector<const Frame*> subjects;
  const std::vector<FrameSet>& corpus = CorpusFrames(PixelLayout::kNv12);
  for (const FrameSet& set : corpus) {
    if (set.frames.size() == 1) {
      subjects.push_back(&set.frames.front());
      break;
    }
  }
  if (const Frame* uhd = UhdFrame(PixelLayout::kNv12)) subjects.push_back(uhd);
  for (const Frame* frame : subjects) {
    auto lazy = std::make_shared<LazyFrame>(LazyFrame{frame, nullptr});
    for (const KernelCase& kernel : kKernels) {
      const std::string name = std::string(kernel.name) + "/" + frame->name;
      benchmark::RegisterBenchmark(name.c_str(), RunKernel, kernel, lazy);
    }
    for (const RowKernelSet* set : RunnableRowSets()) {
      const std::string suffix = std::string("/") + set->name + "/" + frame->name;
      benchmark::RegisterBenchmark(("raw_P_rows" + suffix).c_str(), RunInterleaveRows, set, lazy);
      benchmark::RegisterBenchmark(("raw_sse_rows" + suffix).c_str(), RunSquaredErrorRows, set,
                                   lazy);
      benchmark::RegisterBenchmark(("raw_squares_rows" + suffix).c_str(), RunSquaresRows, set,
                                   lazy);
    }
  }
}

const bool kRegistered = AddRegistration(&RegisterRawBenchmarks);

}  // namespace
}  // namespace pelcast::bench
