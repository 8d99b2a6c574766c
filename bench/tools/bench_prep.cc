// pelcast-bench-prep: makes the inputs of tools/e2e-bench.sh that no pelcast
// command writes.
//
//   pelcast-bench-prep rgb565-zpak IN OUT W H
//       Packed RGB565 frames to ZPAK frames with the library's RGB565 frame
//       encoder, laid out as command B reads them. Red and blue are exchanged
//       first, as B exchanges them back after decoding, so B reproduces IN.
//   pelcast-bench-prep pad-nv12 IN OUT W H
//       Packed NV12 frames to the padded layout command E reads (stride the
//       width aligned to 128, plus 128 when that is a multiple of 2048; 32-row
//       luma and 16-row chroma alignment), padding zero.
//   pelcast-bench-prep uhd nv12|rgba|rgb565 OUT
//       The 3840x2160 frame the benchmarks build from four corpus frames.
//
// Exits non-zero with a message on any failure.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "bench/bench_support.h"

namespace {

using pelcast::bench::Frame;
using pelcast::bench::PixelLayout;

[[noreturn]] void Die(const std::string& message) {
  std::fprintf(stderr, "pelcast-bench-prep: %s\n", message.c_str());
  std::exit(EXIT_FAILURE);
}

struct Files {
  std::FILE* input;
  std::FILE* output;
};

Files OpenBoth(const char* input, const char* output) {
  Files files{std::fopen(input, "rb"), std::fopen(output, "wb")};
  if (files.input == nullptr) Die(std::string("cannot read ") + input);
  if (files.output == nullptr) Die(std::string("cannot write ") + output);
  return files;
}

void Write(std::FILE* output, const std::vector<uint8_t>& bytes) {
  if (std::fwrite(bytes.data(), 1, bytes.size(), output) != bytes.size()) Die("write failed");
}

void CloseBoth(const Files& files) {
  std::fclose(files.input);
  if (std::fclose(files.output) != 0) Die("write failed");
}

// Exchanges the 5-bit red and blue fields of little-endian RGB565 pixels.
void SwapRedAndBlue(std::vector<uint8_t>& bytes) {
  constexpr unsigned kGreen = 0x07E0;
  constexpr unsigned kLowField = 0x001F;
  constexpr unsigned kHighShift = 11;
  for (size_t i = 0; i + 1 < bytes.size(); i += 2) {
    const unsigned p = bytes[i] | static_cast<unsigned>(bytes[i + 1]) << 8;
    const unsigned q = (p & kGreen) | (p >> kHighShift) | ((p & kLowField) << kHighShift);
    bytes[i] = static_cast<uint8_t>(q);
    bytes[i + 1] = static_cast<uint8_t>(q >> 8);
  }
}

void Rgb565ToZpak(const char* input, const char* output, int32_t width, int32_t height) {
  const Files files = OpenBoth(input, output);
  Frame frame{"frame", PixelLayout::kRgb565, width, height, {}};
  frame.bytes.resize(pelcast::bench::PackedFrameBytes(PixelLayout::kRgb565, width, height));
  while (std::fread(frame.bytes.data(), 1, frame.bytes.size(), files.input) == frame.bytes.size()) {
    SwapRedAndBlue(frame.bytes);
    Write(files.output, pelcast::bench::CompressFrame(frame));
  }
  CloseBoth(files);
}

uint32_t AlignUp(uint32_t value, uint32_t alignment) {
  return (value + alignment - 1) & ~(alignment - 1);
}

void PadNv12(const char* input, const char* output, int32_t width, int32_t height) {
  constexpr uint32_t kStrideAlignment = 128;
  constexpr uint32_t kWideMultiple = 2048;
  constexpr uint32_t kLumaLines = 32;
  constexpr uint32_t kChromaLines = 16;
  const size_t w = static_cast<size_t>(width);
  const size_t h = static_cast<size_t>(height);
  uint32_t stride = AlignUp(static_cast<uint32_t>(width), kStrideAlignment);
  if (stride % kWideMultiple == 0) stride += kStrideAlignment;
  const size_t lumaLines = AlignUp(static_cast<uint32_t>(height), kLumaLines);
  const size_t chromaLines = AlignUp(static_cast<uint32_t>(height / 2), kChromaLines);
  const Files files = OpenBoth(input, output);
  std::vector<uint8_t> packed(pelcast::bench::PackedFrameBytes(PixelLayout::kNv12, width, height));
  std::vector<uint8_t> padded(stride * (lumaLines + chromaLines), 0);
  while (std::fread(packed.data(), 1, packed.size(), files.input) == packed.size()) {
    for (size_t r = 0; r < h; ++r) std::memcpy(&padded[r * stride], &packed[r * w], w);
    for (size_t r = 0; r < h / 2; ++r) {
      std::memcpy(&padded[(lumaLines + r) * stride], &packed[w * h + r * w], w);
    }
    Write(files.output, padded);
  }
  CloseBoth(files);
}

void WriteUhd(const std::string& layoutName, const char* output) {
  PixelLayout layout = PixelLayout::kNv12;
  if (layoutName == "rgba") {
    layout = PixelLayout::kRgba8888;
  } else if (layoutName == "rgb565") {
    layout = PixelLayout::kRgb565;
  } else if (layoutName != "nv12") {
    Die("unknown layout " + layoutName);
  }
  const Frame* frame = pelcast::bench::UhdFrame(layout);
  if (frame == nullptr) Die("no corpus frames in " + pelcast::bench::CorpusDirectory());
  std::FILE* file = std::fopen(output, "wb");
  if (file == nullptr) Die(std::string("cannot write ") + output);
  Write(file, frame->bytes);
  if (std::fclose(file) != 0) Die("write failed");
}

}  // namespace

int main(int argc, char** argv) {
  constexpr int kUhdArguments = 4;
  constexpr int kArguments = 6;
  const std::string mode = argc > 1 ? argv[1] : "";
  if (mode == "uhd" && argc == kUhdArguments) {
    WriteUhd(argv[2], argv[3]);
    return 0;
  }
  if (argc != kArguments) {
    Die("usage: pelcast-bench-prep rgb565-zpak|pad-nv12 IN OUT W H, or uhd nv12|rgba|rgb565 OUT");
  }
  const int32_t width = std::atoi(argv[4]);
  const int32_t height = std::atoi(argv[5]);
  if (width <= 0 || height <= 0) Die("width and height must be positive");
  if (mode == "rgb565-zpak") {
    Rgb565ToZpak(argv[2], argv[3], width, height);
  } else if (mode == "pad-nv12") {
    PadNv12(argv[2], argv[3], width, height);
  } else {
    Die("unknown mode " + mode);
  }
  return 0;
}
