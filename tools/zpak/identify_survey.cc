// zpak-identify-survey: how often identify puts the true format, size and
// frame count first, over many resolutions and the three formats, on dumps
// made by the library's encoder. Pictures are a real photograph and screen
// from the corpus scaled to each size when the corpus is there (its path is
// the first argument), else a synthetic scene. Prints a Markdown table and
// the hit rate; the time of each identify is printed beside the time of a
// memcpy of the same bytes, measured in the same run.
//
//   zpak-identify-survey [CORPUS_DIR]
#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "pelcast/pelcast.h"
#include "tools/zpak/identify.h"

namespace {

using pelcast::zpak::IdentifyBuffer;
using pelcast::zpak::IdentifyResult;
using Clock = std::chrono::steady_clock;

struct Rgba {
  uint32_t width = 0, height = 0;
  std::vector<uint8_t> pixels;  // 4 bytes a pixel
};

struct SurveySize {
  uint32_t width, height;
  const char* kind;  // "list" or "scan only"
};

// Common resolutions of every kind, both orientations, and sizes no list
// holds, which only the scan finds.
constexpr SurveySize kSizes[] = {
    {640, 480, "list"},    {854, 480, "list"},    {1280, 720, "list"},   {720, 1280, "list"},
    {1920, 1080, "list"},  {1080, 1920, "list"},  {1080, 2400, "list"},  {1080, 2340, "list"},
    {720, 1600, "list"},   {1440, 3200, "list"},  {1440, 3120, "list"},  {2400, 1080, "list"},
    {1600, 1200, "list"},  {2560, 1440, "list"},  {2048, 1536, "list"},  {3264, 2448, "list"},
    {4032, 3024, "list"},  {4000, 3000, "list"},  {3840, 2160, "list"},  {4096, 2160, "list"},
    {1366, 768, "list"},   {1920, 1200, "list"},  {2560, 1600, "list"},  {352, 288, "list"},
    {176, 144, "list"},    {1080, 1080, "list"},  {3264, 1836, "list"},  {7680, 4320, "list"},
    {1000, 700, "scan only"}, {1234, 567, "scan only"}, {777, 333, "scan only"},
    {999, 555, "scan only"},  {333, 999, "scan only"},  {1500, 1000, "scan only"},
    {2000, 1500, "scan only"}, {640, 400, "scan only"}, {96, 200, "scan only"},
    {3000, 2000, "scan only"}, {1100, 2500, "scan only"}, {500, 375, "scan only"},
};

constexpr pelcast_format kFormats[] = {PELCAST_FORMAT_NV12, PELCAST_FORMAT_RGBA8888,
                                       PELCAST_FORMAT_RGB565};
constexpr uint32_t kFrames = 2;

std::vector<uint8_t> ReadAll(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::vector<uint8_t>(std::istreambuf_iterator<char>(in), {});
}

Rgba Synthetic(uint32_t width, uint32_t height) {
  Rgba p{width, height, std::vector<uint8_t>(size_t{width} * height * 4)};
  for (uint32_t y = 0; y < height; ++y) {
    for (uint32_t x = 0; x < width; ++x) {
      uint8_t* q = &p.pixels[(size_t{y} * width + x) * 4];
      q[0] = static_cast<uint8_t>(128 + 100 * std::sin(x * 0.01 + y * 0.003));
      q[1] = static_cast<uint8_t>(128 + 100 * std::cos(y * 0.013));
      q[2] = static_cast<uint8_t>(((x / 40 + y / 30) % 3) * 90);
      q[3] = 255;
    }
  }
  return p;
}

// Bilinear scaling to width x height.
Rgba Scale(const Rgba& in, uint32_t width, uint32_t height) {
  Rgba out{width, height, std::vector<uint8_t>(size_t{width} * height * 4)};
  for (uint32_t y = 0; y < height; ++y) {
    const double fy = std::max(0.0, (y + 0.5) * in.height / height - 0.5);
    const uint32_t y0 = std::min<uint32_t>(static_cast<uint32_t>(fy), in.height - 1);
    const uint32_t y1 = std::min(y0 + 1, in.height - 1);
    const double wy = fy - y0;
    for (uint32_t x = 0; x < width; ++x) {
      const double fx = std::max(0.0, (x + 0.5) * in.width / width - 0.5);
      const uint32_t x0 = std::min<uint32_t>(static_cast<uint32_t>(fx), in.width - 1);
      const uint32_t x1 = std::min(x0 + 1, in.width - 1);
      const double wx = fx - x0;
      for (int c = 0; c < 4; ++c) {
        auto at = [&](uint32_t xx, uint32_t yy) { return in.pixels[(size_t{yy} * in.width + xx) * 4 + c]; };
        const double v = (at(x0, y0) * (1 - wx) + at(x1, y0) * wx) * (1 - wy) +
                         (at(x0, y1) * (1 - wx) + at(x1, y1) * wx) * wy;
        out.pixels[(size_t{y} * width + x) * 4 + c] = static_cast<uint8_t>(std::lround(v));
      }
    }
  }
  return out;
}

// A packed linear frame of `format` from RGBA (NV12 through BT.709, limited range).
std::vector<uint8_t> Linear(pelcast_format format, const Rgba& p) {
  std::vector<uint8_t> out(pelcast_linear_frame_size(format, p.width, p.height));
  const size_t pixels = size_t{p.width} * p.height;
  if (format == PELCAST_FORMAT_RGBA8888) {
    std::memcpy(out.data(), p.pixels.data(), out.size());
  } else if (format == PELCAST_FORMAT_RGB565) {
    for (size_t i = 0; i < pixels; ++i) {
      const uint8_t* q = &p.pixels[4 * i];
      const uint32_t w = (q[0] >> 3) << 11 | (q[1] >> 2) << 5 | q[2] >> 3;
      out[2 * i] = static_cast<uint8_t>(w);
      out[2 * i + 1] = static_cast<uint8_t>(w >> 8);
    }
  } else {
    auto luma = [](const uint8_t* q) { return 16 + (0.2126 * q[0] + 0.7152 * q[1] + 0.0722 * q[2]) * 219 / 255; };
    for (size_t i = 0; i < pixels; ++i) out[i] = static_cast<uint8_t>(std::lround(luma(&p.pixels[4 * i])));
    const uint32_t pairs = (p.width + 1) / 2;
    for (uint32_t y = 0; y < (p.height + 1) / 2; ++y) {
      for (uint32_t x = 0; x < pairs; ++x) {
        const uint8_t* q = &p.pixels[(size_t{2 * y} * p.width + 2 * x) * 4];
        const double l = (luma(q) - 16) * 255 / 219;
        const size_t at = pixels + (size_t{y} * pairs + x) * 2;
        out[at] = static_cast<uint8_t>(std::clamp(std::lround(128 + (q[2] - l) / 1.8556 * 224 / 255), 16L, 240L));
        out[at + 1] = static_cast<uint8_t>(std::clamp(std::lround(128 + (q[0] - l) / 1.5748 * 224 / 255), 16L, 240L));
      }
    }
  }
  return out;
}

std::vector<uint8_t> Dump(pelcast_format format, const Rgba& a, const Rgba& b) {
  std::vector<uint8_t> dump;
  for (const Rgba* p : {&a, &b}) {
    const std::vector<uint8_t> linear = Linear(format, *p);
    std::vector<uint8_t> frame(pelcast_zpak_frame_size(format, p->width, p->height));
    pelcast_encode_frame(format, p->width, p->height, linear.data(), linear.size(), frame.data(),
                         frame.size());
    dump.insert(dump.end(), frame.begin(), frame.end());
  }
  return dump;
}

double Milliseconds(Clock::time_point start) {
  return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

Rgba LoadRgba(const std::string& path) {
  Rgba p{1920, 1080, ReadAll(path)};
  if (p.pixels.size() != size_t{1920} * 1080 * 4) return Rgba{};
  return p;
}

}  // namespace

int main(int argc, char** argv) {
  const std::string corpus = argc > 1 ? argv[1] : "";
  Rgba photo = corpus.empty() ? Rgba{} : LoadRgba(corpus + "/photo-boats-1920x1080.rgba");
  Rgba screen = corpus.empty() ? Rgba{} : LoadRgba(corpus + "/screen-home-1920x1080.rgba");
  const bool real = !photo.pixels.empty() && !screen.pixels.empty();
  std::printf("pictures: %s\n\n", real ? "corpus photo-boats (frame 0) and screen-home (frame 1), scaled"
                                       : "synthetic (no corpus given or found)");
  std::printf("| size | kind | nv12 | rgba8888 | rgb565 | identify ms (nv12) | memcpy ms |\n");
  std::printf("|---|---|---|---|---|---|---|\n");
  int hits[2] = {0, 0}, runs[2] = {0, 0};
  for (const SurveySize& s : kSizes) {
    const Rgba a = real ? Scale(photo, s.width, s.height) : Synthetic(s.width, s.height);
    const Rgba b = real ? Scale(screen, s.width, s.height) : Synthetic(s.width, s.height);
    std::string cells;
    double identifyMs = 0, copyMs = 0;
    for (pelcast_format f : kFormats) {
      if (f == PELCAST_FORMAT_RGB565 && s.width % 128 == 1) {
        cells += " n/a |";
        continue;
      }
      const std::vector<uint8_t> dump = Dump(f, a, b);
      const auto start = Clock::now();
      const IdentifyResult r = IdentifyBuffer(dump.data(), dump.size(), "dump.bin", {});
      const double ms = Milliseconds(start);
      std::vector<uint8_t> copy(dump.size());
      const auto copyStart = Clock::now();
      std::memcpy(copy.data(), dump.data(), dump.size());
      const double copied = Milliseconds(copyStart);
      const volatile uint8_t touched = copy[copy.size() / 2];  // the copy is used
      (void)touched;
      if (f == PELCAST_FORMAT_NV12) {
        identifyMs = ms;
        copyMs = copied;
      }
      const bool hit = !r.candidates.empty() && r.candidates[0].format == f &&
                       r.candidates[0].width == s.width && r.candidates[0].height == s.height &&
                       r.candidates[0].frames == kFrames;
      const int k = std::strcmp(s.kind, "list") == 0 ? 0 : 1;
      hits[k] += hit;
      ++runs[k];
      if (hit) {
        cells += " yes |";
      } else if (r.candidates.empty()) {
        cells += " none |";
      } else {
        const auto& c = r.candidates[0];
        cells += std::string(" no: ") + pelcast::zpak::IdentifyFormatName(c.format) + " " +
                 std::to_string(c.width) + "x" + std::to_string(c.height) + " |";
      }
    }
    std::printf("| %ux%u | %s |%s %.1f | %.2f |\n", s.width, s.height, s.kind, cells.c_str(),
                identifyMs, copyMs);
    std::fflush(stdout);
  }
  std::printf("\nfirst place: %d of %d listed sizes, %d of %d scan-only sizes (%d frames each)\n",
              hits[0], runs[0], hits[1], runs[1], kFrames);
  return 0;
}
