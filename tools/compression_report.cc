// pelcast-report: how compact the encoder makes real frames, and how fast.
//
//   pelcast-report CORPUS_DIR [--speed]
//
// Encodes every 1920x1080 frame of the .nv12, .rgba and .rgb565 files in
// CORPUS_DIR in process (NV12 and RGBA8888 as commands N and H lay them out,
// RGB565 with the RGB565 frame encoder) and prints, per frame and plane, the
// 64-byte units stored against the units of the raw tiles and the share of
// tiles stored raw, then the totals. With --speed it also times the frame
// encoder per format and prints MB/s of linear input.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "encoder/frame_encoder.h"
#include "surface/plane_geometry.h"
#include "surface/zpak_context.h"

namespace {

using pelcast::ZpakConfig;
using pelcast::ZpakContext;

constexpr int kWidth = 1920;
constexpr int kHeight = 1080;

struct PlaneCount {
  uint64_t tiles = 0, units = 0, rawUnits = 0, rawTiles = 0;
  void Add(const PlaneCount& o) {
    tiles += o.tiles;
    units += o.units;
    rawUnits += o.rawUnits;
    rawTiles += o.rawTiles;
  }
};

// Counts the metadata bytes of `tiles` tiles: units = (meta - 15) / 4; a tile
// is raw when its units equal the raw tile's.
void CountMeta(const uint8_t* meta, const std::vector<uint64_t>& offsets, uint64_t rawUnits,
               PlaneCount* count) {
  for (uint64_t o : offsets) {
    const uint64_t units = (meta[o] - 15u) / 4u;
    ++count->tiles;
    count->units += units;
    count->rawUnits += rawUnits;
    if (units == rawUnits) ++count->rawTiles;
  }
}

// Metadata offsets of the tiles the encoder stores, from the tables it built.
std::vector<uint64_t> MetaOffsets(const ZpakContext& context, uint64_t rows, uint64_t columns) {
  std::vector<uint64_t> offsets;
  for (uint64_t r = 0; r < rows; ++r) {
    for (uint64_t c = 0; c < columns; ++c) {
      offsets.push_back(pelcast::TileMetaOffset(context.addressTables, r, c));
    }
  }
  return offsets;
}

struct Encoded {
  std::vector<PlaneCount> planes;  // Y and UV, or the one plane
  double seconds;
};

struct Job {
  std::vector<uint8_t> staging, compressed;
  ZpakConfig config{};
  ZpakContext* context = nullptr;
};

double TimeEncode(Job* job, bool rgb565) {
  const auto start = std::chrono::steady_clock::now();
  std::memset(job->compressed.data(), 0, job->compressed.size());
  if (rgb565) {
    pelcast::EncodeZpakFrameRgb565(job->context, &job->config);
  } else {
    pelcast::EncodeZpakFrame(job->context, &job->config);
  }
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

Encoded EncodeNv12(const uint8_t* frame, int repeats) {
  const auto g = pelcast::ComputeEncodeGeometryT<uint32_t>(true, kWidth, kHeight);
  Job job;
  job.staging.assign(pelcast::AlignUp((g.yDataSize * 3) >> 1, pelcast::kPageAlignment), 0);
  job.compressed.assign(g.bufferSize, 0);
  for (int r = 0; r < kHeight; ++r) std::memcpy(&job.staging[r * g.linearStride], frame + r * kWidth, kWidth);
  const uint8_t* chroma = frame + kWidth * kHeight;
  const size_t cs = g.linearStride / 2;
  const size_t chs = g.linearScanlines / 2;
  for (int r = 0; r < kHeight / 2; ++r) {
    for (int c = 0; c < kWidth / 2; ++c) {
      job.staging[g.yDataSize + r * cs + c] = chroma[r * kWidth + 2 * c];
      job.staging[g.yDataSize + cs * chs + r * cs + c] = chroma[r * kWidth + 2 * c + 1];
    }
  }
  ZpakConfig& c = job.config;
  c.yMetaPlane = job.compressed.data();
  c.yDataPlane = c.yMetaPlane + g.yMetaSize;
  c.uvMetaPlane = c.yDataPlane + g.yDataSize;
  c.uvDataPlane = c.uvMetaPlane + g.uvMetaSize;
  c.linearY = job.staging.data();
  c.linearUv = job.staging.data() + g.yDataSize;
  c.width = c.alignedWidth = g.linearStride;
  c.height = c.alignedHeight = g.linearScanlines;
  c.surfaceFormat = pelcast::kSurfaceNv12;
  c.addressingMode = c.swizzleEnable = 1;
  c.bankBit = 15;
  c.compressedEnd = job.compressed.data() + job.compressed.size();
  job.context = pelcast::AllocateZpakContext();
  pelcast::ConfigureZpakContext(job.context, pelcast::kContextNv12);
  Encoded e{};
  for (int i = 0; i < repeats; ++i) e.seconds += TimeEncode(&job, false);
  // The real image's tiles: 60 x 135 luma, 60 x 68 chroma.
  const uint64_t columns = (kWidth + 31) / 32;
  const uint64_t lumaRows = (kHeight + 7) / 8;
  e.planes.resize(2);
  CountMeta(c.yMetaPlane, MetaOffsets(*job.context, lumaRows, columns), 4, &e.planes[0]);
  CountMeta(c.uvMetaPlane, MetaOffsets(*job.context, (lumaRows + 1) / 2, columns), 4, &e.planes[1]);
  pelcast::ReleaseZpakContext(job.context);
  return e;
}

Encoded EncodeRgb(const uint8_t* frame, bool rgb565, int repeats) {
  const size_t pixelBytes = rgb565 ? 2 : 4;
  const pelcast::PlaneGeometry g = pelcast::ComputePlaneGeometry(
      rgb565 ? pelcast::PlaneFormat::kRgb565 : pelcast::PlaneFormat::kRgba8888, kWidth, kHeight);
  Job job;
  job.staging.assign(g.yDataBufSize, 0);
  job.compressed.assign(g.frameSize, 0);
  for (int r = 0; r < kHeight; ++r) {
    std::memcpy(&job.staging[r * g.yStride], frame + r * kWidth * pixelBytes, kWidth * pixelBytes);
  }
  ZpakConfig& c = job.config;
  c.yMetaPlane = job.compressed.data();
  c.yDataPlane = c.yMetaPlane + g.yMetaBufSize;
  c.uvMetaPlane = c.uvDataPlane = c.yDataPlane + g.yDataBufSize;
  c.linearY = c.linearUv = job.staging.data();
  c.width = c.alignedWidth = g.yStride / pixelBytes;
  c.height = c.alignedHeight = g.yBufLength;
  c.surfaceFormat = rgb565 ? pelcast::kSurfaceRgb565 : pelcast::kSurfaceRgba8888;
  c.addressingMode = c.swizzleEnable = 1;
  c.bankBit = 15;
  c.compressedEnd = job.compressed.data() + job.compressed.size();
  job.context = pelcast::AllocateZpakContext();
  pelcast::ConfigureZpakContext(job.context, rgb565 ? pelcast::kContextRgb565 : pelcast::kContextRgba8888);
  Encoded e{};
  for (int i = 0; i < repeats; ++i) e.seconds += TimeEncode(&job, rgb565);
  e.planes.resize(1);
  const uint64_t rows = (kHeight + 3) / 4;
  // RGB565 stores half tiles, two metadata columns per 32-pixel tile.
  const uint64_t columns = rgb565 ? 2 * (((kWidth + 15) / 16) / 2) : (kWidth + 15) / 16;
  CountMeta(c.yMetaPlane, MetaOffsets(*job.context, rows, columns), rgb565 ? 2 : 4, &e.planes[0]);
  pelcast::ReleaseZpakContext(job.context);
  return e;
}

void PrintCount(const char* label, const PlaneCount& p) {
  std::printf("  %-7s %8llu of %8llu units (%5.1f%% of raw), %5.1f%% of %llu tiles raw\n", label,
              static_cast<unsigned long long>(p.units), static_cast<unsigned long long>(p.rawUnits),
              p.rawUnits != 0 ? 100.0 * p.units / p.rawUnits : 0.0,
              p.tiles != 0 ? 100.0 * p.rawTiles / p.tiles : 0.0, static_cast<unsigned long long>(p.tiles));
}

struct Totals {
  PlaneCount nv12, rgba, rgb565;
  double seconds[3] = {0, 0, 0};
  double bytes[3] = {0, 0, 0};
};

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    std::puts("usage: pelcast-report CORPUS_DIR [--speed]");
    return 0;
  }
  const bool speed = argc > 2 && std::strcmp(argv[2], "--speed") == 0;
  const int repeats = speed ? 5 : 1;
  std::vector<std::filesystem::path> files;
  for (const auto& entry : std::filesystem::directory_iterator(argv[1])) files.push_back(entry.path());
  std::sort(files.begin(), files.end());
  Totals totals;
  for (const auto& path : files) {
    const std::string ext = path.extension().string();
    int kind = ext == ".nv12" ? 0 : ext == ".rgba" ? 1 : ext == ".rgb565" ? 2 : -1;
    if (kind < 0) continue;
    const size_t frameBytes = kind == 0 ? kWidth * kHeight * 3 / 2 : kind == 1 ? kWidth * kHeight * 4 : kWidth * kHeight * 2;
    std::vector<uint8_t> data(std::filesystem::file_size(path));
    FILE* f = std::fopen(path.c_str(), "rb");
    if (f == nullptr || std::fread(data.data(), 1, data.size(), f) != data.size()) return 1;
    std::fclose(f);
    for (size_t n = 0; n * frameBytes + frameBytes <= data.size(); ++n) {
      const uint8_t* frame = data.data() + n * frameBytes;
      const Encoded e = kind == 0 ? EncodeNv12(frame, repeats) : EncodeRgb(frame, kind == 2, repeats);
      std::printf("%s frame %zu\n", path.filename().c_str(), n);
      PlaneCount all;
      for (size_t p = 0; p < e.planes.size(); ++p) {
        PrintCount(e.planes.size() == 1 ? "plane" : (p == 0 ? "Y" : "UV"), e.planes[p]);
        all.Add(e.planes[p]);
      }
      if (e.planes.size() > 1) PrintCount("frame", all);
      (kind == 0 ? totals.nv12 : kind == 1 ? totals.rgba : totals.rgb565).Add(all);
      totals.seconds[kind] += e.seconds;
      totals.bytes[kind] += static_cast<double>(frameBytes) * repeats;
    }
  }
  std::puts("totals");
  PrintCount("NV12", totals.nv12);
  PrintCount("RGBA", totals.rgba);
  PrintCount("RGB565", totals.rgb565);
  PlaneCount all = totals.nv12;
  all.Add(totals.rgba);
  all.Add(totals.rgb565);
  PrintCount("all", all);
  if (speed) {
    const char* names[3] = {"NV12", "RGBA8888", "RGB565"};
    for (int k = 0; k < 3; ++k) {
      if (totals.seconds[k] > 0) {
        std::printf("encode speed %-8s %7.1f MB/s of linear input\n", names[k],
                    totals.bytes[k] / totals.seconds[k] / 1e6);
      }
    }
  }
  return 0;
}
