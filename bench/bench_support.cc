#include "bench/bench_support.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>

#include "decoder/frame_decoder.h"
#include "decoder/tile_decoder.h"
#include "encoder/frame_encoder.h"
#include "encoder/tile_encoder.h"
#include "surface/frame_config.h"

namespace pelcast::bench {
namespace {

constexpr size_t kRgbaPixelBytes = 4;
constexpr size_t kRgb565PixelBytes = 2;
constexpr size_t kQuadrants = 4;

// The corpus names its frame size in the file name; only these are loaded.
constexpr const char* kHdTag = "-1920x1080";

[[noreturn]] void Fail(const std::string& what) {
  std::fprintf(stderr, "pelcast_bench: %s\n", what.c_str());
  std::exit(EXIT_FAILURE);
}

size_t PixelBytes(PixelLayout layout) {
  return layout == PixelLayout::kRgba8888 ? kRgbaPixelBytes : kRgb565PixelBytes;
}

std::vector<uint8_t> ReadWholeFile(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) Fail("cannot read " + path.string());
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

// "photo-boats-1920x1080.nv12" -> "photo-boats"; "pan-hillside-1920x1080-8f.nv12" ->
// "pan-hillside-8f".
std::string ShortName(const std::filesystem::path& path) {
  std::string stem = path.stem().string();
  const size_t tag = stem.find(kHdTag);
  if (tag != std::string::npos) stem.erase(tag, std::strlen(kHdTag));
  return stem;
}

std::vector<FrameSet> LoadCorpus(PixelLayout layout) {
  std::vector<FrameSet> sets;
  const std::filesystem::path dir = CorpusDirectory();
  std::error_code error;
  if (!std::filesystem::is_directory(dir, error)) return sets;
  const std::string extension = std::string(".") + LayoutExtension(layout);
  std::vector<std::filesystem::path> paths;
  for (const auto& entry : std::filesystem::directory_iterator(dir)) {
    const auto& path = entry.path();
    if (path.extension() == extension &&
        path.filename().string().find(kHdTag) != std::string::npos) {
      paths.push_back(path);
    }
  }
  std::sort(paths.begin(), paths.end());
  const size_t frameBytes = PackedFrameBytes(layout, kHdWidth, kHdHeight);
  for (const auto& path : paths) {
    const std::vector<uint8_t> bytes = ReadWholeFile(path);
    FrameSet set{ShortName(path), {}};
    const size_t count = bytes.size() / frameBytes;
    for (size_t n = 0; n < count; ++n) {
      Frame frame{count == 1 ? set.name : set.name + "#" + std::to_string(n),
                  layout,
                  kHdWidth,
                  kHdHeight,
                  {}};
      frame.bytes.assign(bytes.begin() + static_cast<ptrdiff_t>(n * frameBytes),
                         bytes.begin() + static_cast<ptrdiff_t>((n + 1) * frameBytes));
      set.frames.push_back(std::move(frame));
    }
    if (!set.frames.empty()) sets.push_back(std::move(set));
  }
  return sets;
}

// Copies `rows` rows of `rowBytes` bytes between two pitches.
void CopyRows(const uint8_t* source, size_t sourcePitch, uint8_t* destination,
              size_t destinationPitch, size_t rowBytes, size_t rows) {
  for (size_t r = 0; r < rows; ++r) {
    std::memcpy(destination + r * destinationPitch, source + r * sourcePitch, rowBytes);
  }
}

PlaneFormat ToPlaneFormat(PixelLayout layout) {
  switch (layout) {
    case PixelLayout::kNv12:
      return PlaneFormat::kNv12;
    case PixelLayout::kRgba8888:
      return PlaneFormat::kRgba8888;
    case PixelLayout::kRgb565:
      break;
  }
  return PlaneFormat::kRgb565;
}

// The descriptor and context of `job` once its buffers are staged.
void FinishEncodeJob(EncodeJob& job, uint64_t surfaceFormat, const ZpakInfo& info) {
  FillEncodeConfig(&job.config, surfaceFormat, info, job.compressed.data(), job.staging.data());
  job.context = MakeContext(ContextFormatOf(ToPlaneFormat(job.layout)));
  const bool prepared = surfaceFormat == kSurfaceRgb565
                            ? PrepareZpakFrameTablesRgb565(job.context.get(), &job.config)
                            : PrepareZpakFrameTables(job.context.get(), &job.config);
  if (!prepared) Fail("address tables");
}

// NV12 as command N stages it: luma rows at the aligned stride, then the U
// plane and the V plane, each with half that stride.
void StageNv12(const Frame& frame, EncodeJob& job) {
  ZpakInfo info{};
  const uint32_t stagingBytes = ComputeZpakInfo(&info, static_cast<uint32_t>(frame.width),
                                                static_cast<uint32_t>(frame.height), kPrepareNv12);
  job.staging.assign(stagingBytes);
  job.compressed.assign(info.bufferSize);
  const size_t w = static_cast<size_t>(frame.width);
  const size_t h = static_cast<size_t>(frame.height);
  CopyRows(frame.bytes.data(), w, job.staging.data(), info.linearStride, w, h);
  const size_t chromaPitch = info.linearStride / 2;
  uint8_t* u = job.staging.data() + info.yDataSize;
  uint8_t* v = u + (size_t{info.linearStride} * info.linearScanlines) / 4;
  const uint8_t* uv = frame.bytes.data() + w * h;
  for (size_t r = 0; r < h / 2; ++r) {
    for (size_t c = 0; c < w / 2; ++c) {
      u[r * chromaPitch + c] = uv[r * w + 2 * c];
      v[r * chromaPitch + c] = uv[r * w + 2 * c + 1];
    }
  }
  FinishEncodeJob(job, kSurfaceNv12, info);
}

// RGBA8888 as command H stages it.
void StageRgba(const Frame& frame, EncodeJob& job) {
  ZpakInfo info{};
  const uint32_t stagingBytes =
      ComputeZpakInfo(&info, static_cast<uint32_t>(frame.width),
                      static_cast<uint32_t>(frame.height), kPrepareRgba8888);
  job.staging.assign(stagingBytes);
  job.compressed.assign(info.bufferSize);
  const size_t rowBytes = kRgbaPixelBytes * static_cast<size_t>(frame.width);
  CopyRows(frame.bytes.data(), rowBytes, job.staging.data(), info.yStride, rowBytes,
           static_cast<size_t>(frame.height));
  FinishEncodeJob(job, kSurfaceRgba8888, info);
}

// RGB565 with the strides command B decodes into: one data plane after the
// metadata plane, as long as one decode-side frame.
void StageRgb565(const Frame& frame, EncodeJob& job) {
  const PlaneGeometry g = ComputePlaneGeometry(PlaneFormat::kRgb565, frame.width, frame.height);
  ZpakInfo info{};
  info.yStride = g.yStride;
  info.yScanlines = g.yBufLength;
  info.yDataOffset = g.yMetaBufSize;
  info.yDataSize = g.yDataBufSize;
  info.bufferSize = g.frameSize;
  job.staging.assign(g.yDataBufSize);
  job.compressed.assign(g.frameSize);
  const size_t rowBytes = kRgb565PixelBytes * static_cast<size_t>(frame.width);
  CopyRows(frame.bytes.data(), rowBytes, job.staging.data(), g.yStride, rowBytes,
           static_cast<size_t>(frame.height));
  FinishEncodeJob(job, kSurfaceRgb565, info);
}

// How a plane kind's tiles are cut from a packed frame.
struct TileShape {
  PixelLayout layout;
  uint64_t contextFormat;
  uint64_t planeIndex;
  size_t elementBytes;
  size_t rowElements;  // elements per tile row
  size_t rows;         // rows per tile
};

TileShape ShapeOf(PlaneKind kind) {
  constexpr size_t kNv12TileRows = 8;
  constexpr size_t kRgbTileRows = 4;
  constexpr size_t kLumaTileWidth = 32;
  constexpr size_t kHalfTileWidth = 16;  // chroma pairs, RGBA pixels, RGB565 half-tile pixels
  constexpr size_t kChromaPairBytes = 2;
  switch (kind) {
    case PlaneKind::kNv12Luma:
      return {PixelLayout::kNv12, kContextNv12, 0, 1, kLumaTileWidth, kNv12TileRows};
    case PlaneKind::kNv12Chroma:
      return {PixelLayout::kNv12, kContextNv12, 1, kChromaPairBytes, kHalfTileWidth, kNv12TileRows};
    case PlaneKind::kRgba8888:
      return {PixelLayout::kRgba8888, kContextRgba8888, 0,
              kRgbaPixelBytes,        kHalfTileWidth,   kRgbTileRows};
    case PlaneKind::kRgb565:
      break;
  }
  return {PixelLayout::kRgb565, kContextRgb565, 0, kRgb565PixelBytes, kHalfTileWidth, kRgbTileRows};
}

// Position of element (x, y) of a tile `rowElements` wide in micro-block
// order: 4 x 4 blocks band by band, and inside a block x bit 0, y bit 0,
// x bit 1, y bit 1 from the least significant bit up.
size_t MicroBlockPosition(size_t x, size_t y, size_t rowElements) {
  constexpr size_t kSide = 4;
  constexpr size_t kBlockElements = 16;
  const size_t inBlock = (x & 1) | (y & 1) << 1 | ((x >> 1) & 1) << 2 | ((y >> 1) & 1) << 3;
  return kBlockElements * ((y / kSide) * (rowElements / kSide) + x / kSide) + inBlock;
}

// The plane of `kind` inside a packed frame: start, pitch and rows.
struct PlaneView {
  const uint8_t* start;
  size_t pitch;
  size_t rows;
};

PlaneView ViewPlane(const Frame& frame, PlaneKind kind) {
  const size_t w = static_cast<size_t>(frame.width);
  const size_t h = static_cast<size_t>(frame.height);
  switch (kind) {
    case PlaneKind::kNv12Luma:
      return {frame.bytes.data(), w, h};
    case PlaneKind::kNv12Chroma:
      return {frame.bytes.data() + w * h, w, h / 2};
    case PlaneKind::kRgba8888:
      return {frame.bytes.data(), kRgbaPixelBytes * w, h};
    case PlaneKind::kRgb565:
      break;
  }
  return {frame.bytes.data(), kRgb565PixelBytes * w, h};
}

// Appends tile (column, row) of `plane` to the set, raster and reordered.
void AppendTile(const PlaneView& plane, const TileShape& shape, size_t column, size_t row,
                TileSet& set) {
  const size_t rowBytes = shape.rowElements * shape.elementBytes;
  const size_t at = set.raster.size();
  set.raster.resize(at + set.tileBytes);
  set.ordered.resize(at + set.tileBytes);
  for (size_t y = 0; y < shape.rows; ++y) {
    const uint8_t* source = plane.start + (row * shape.rows + y) * plane.pitch + column * rowBytes;
    std::memcpy(&set.raster[at + y * rowBytes], source, rowBytes);
    for (size_t x = 0; x < shape.rowElements; ++x) {
      std::memcpy(
          &set.ordered[at + MicroBlockPosition(x, y, shape.rowElements) * shape.elementBytes],
          source + x * shape.elementBytes, shape.elementBytes);
    }
  }
}

// Encodes every tile of the set once with the tile encoder.
void StoreTiles(TileSet& set) {
  ContextPtr context = MakeContext(set.contextFormat);
  context->planeIndex = set.planeIndex;
  set.stored.assign(set.count * kSlotBytes, 0);
  set.meta.assign(set.count, 0);
  constexpr uint64_t kUnitBytes = 64;
  constexpr uint64_t kMetaPerUnit = 4;
  constexpr uint64_t kMetaOffset = 15;
  uint8_t output[kTileScratchBytes];
  for (size_t i = 0; i < set.count; ++i) {
    std::memset(output, 0, sizeof output);
    uint64_t units = 0;
    EncodeZpakTile(context.get(), &set.ordered[i * set.tileBytes], output, &units);
    const size_t storedBytes = std::min<size_t>(units * kUnitBytes, set.tileBytes);
    std::memcpy(&set.stored[i * kSlotBytes], output, storedBytes);
    set.meta[i] = static_cast<uint8_t>(kMetaPerUnit * units + kMetaOffset);
  }
}

}  // namespace

const char* LayoutExtension(PixelLayout layout) {
  switch (layout) {
    case PixelLayout::kNv12:
      return "nv12";
    case PixelLayout::kRgba8888:
      return "rgba";
    case PixelLayout::kRgb565:
      break;
  }
  return "rgb565";
}

size_t PackedFrameBytes(PixelLayout layout, int32_t width, int32_t height) {
  const size_t w = static_cast<size_t>(width);
  const size_t h = static_cast<size_t>(height);
  if (layout == PixelLayout::kNv12) return w * h + w * (h / 2);
  return PixelBytes(layout) * w * h;
}

size_t FrameSet::TotalBytes() const {
  size_t total = 0;
  for (const Frame& frame : frames) total += frame.bytes.size();
  return total;
}

void FrameBuffer::assign(size_t size) {
  bytes_.reset(AllocateZeroed(size));
  if (bytes_ == nullptr) Fail("no memory for a frame buffer");
  size_ = size;
}

std::string CorpusDirectory() {
  if (const char* dir = std::getenv("PELCAST_CORPUS_DIR"); dir != nullptr && *dir != '\0')
    return dir;
  return PELCAST_CORPUS_DIR;
}

const std::vector<FrameSet>& CorpusFrames(PixelLayout layout) {
  static std::map<PixelLayout, std::vector<FrameSet>> loaded;
  auto found = loaded.find(layout);
  if (found == loaded.end()) found = loaded.emplace(layout, LoadCorpus(layout)).first;
  return found->second;
}

Frame JoinQuadrants(const Frame* const quadrants[4], const std::string& name) {
  const Frame& first = *quadrants[0];
  const size_t w = static_cast<size_t>(first.width);
  const size_t h = static_cast<size_t>(first.height);
  Frame joined{name, first.layout, 2 * first.width, 2 * first.height, {}};
  joined.bytes.assign(PackedFrameBytes(first.layout, joined.width, joined.height), 0);
  const bool nv12 = first.layout == PixelLayout::kNv12;
  const size_t rowBytes = nv12 ? w : PixelBytes(first.layout) * w;
  for (size_t q = 0; q < kQuadrants; ++q) {
    const size_t across = q % 2;
    const size_t down = q / 2;
    const uint8_t* source = quadrants[q]->bytes.data();
    uint8_t* target = joined.bytes.data();
    CopyRows(source, rowBytes, target + down * h * 2 * rowBytes + across * rowBytes, 2 * rowBytes,
             rowBytes, h);
    if (nv12) {
      // The U,V rows: h / 2 of them, as wide in bytes as the luma rows, after
      // the joined frame's 2w x 2h luma plane.
      const size_t chromaRows = h / 2;
      const size_t joinedLumaBytes = 4 * w * h;
      CopyRows(source + w * h, w, target + joinedLumaBytes + down * chromaRows * 2 * w + across * w,
               2 * w, w, chromaRows);
    }
  }
  return joined;
}

const Frame* UhdFrame(PixelLayout layout) {
  static std::map<PixelLayout, std::unique_ptr<Frame>> built;
  auto found = built.find(layout);
  if (found != built.end()) return found->second.get();
  std::unique_ptr<Frame> frame;
  const std::vector<FrameSet>& sets = CorpusFrames(layout);
  if (!sets.empty()) {
    const Frame* parts[kQuadrants];
    for (size_t q = 0; q < kQuadrants; ++q) parts[q] = &sets[q % sets.size()].frames.front();
    frame = std::make_unique<Frame>(JoinQuadrants(parts, "uhd-mosaic"));
  }
  return built.emplace(layout, std::move(frame)).first->second.get();
}

std::vector<const FrameSet*> FrameSubjects(PixelLayout layout) {
  static std::map<PixelLayout, std::unique_ptr<FrameSet>> uhdSets;
  std::vector<const FrameSet*> subjects;
  for (const FrameSet& set : CorpusFrames(layout)) subjects.push_back(&set);
  auto found = uhdSets.find(layout);
  if (found == uhdSets.end()) {
    std::unique_ptr<FrameSet> set;
    if (const Frame* frame = UhdFrame(layout)) set.reset(new FrameSet{frame->name, {*frame}});
    found = uhdSets.emplace(layout, std::move(set)).first;
  }
  if (found->second != nullptr) subjects.push_back(found->second.get());
  return subjects;
}

ContextPtr MakeContext(uint64_t contextFormat) {
  ContextPtr context(AllocateZpakContext());
  if (context == nullptr) Fail("no memory for a codec context");
  ConfigureZpakContext(context.get(), contextFormat);
  return context;
}

std::unique_ptr<EncodeJob> MakeEncodeJob(const Frame& frame) {
  auto job = std::make_unique<EncodeJob>();
  job->layout = frame.layout;
  job->width = frame.width;
  job->height = frame.height;
  job->pixelBytes = frame.bytes.size();
  switch (frame.layout) {
    case PixelLayout::kNv12:
      StageNv12(frame, *job);
      break;
    case PixelLayout::kRgba8888:
      StageRgba(frame, *job);
      break;
    case PixelLayout::kRgb565:
      StageRgb565(frame, *job);
      break;
  }
  return job;
}

void RunEncode(EncodeJob& job) {
  if (job.layout == PixelLayout::kRgb565) {
    EncodeZpakFrameRgb565(job.context.get(), &job.config);
  } else {
    EncodeZpakFrame(job.context.get(), &job.config);
  }
}

std::vector<uint8_t> CompressFrame(const Frame& frame) {
  std::unique_ptr<EncodeJob> job = MakeEncodeJob(frame);
  RunEncode(*job);
  return std::vector<uint8_t>(job->compressed.begin(), job->compressed.end());
}

std::unique_ptr<DecodeJob> MakeDecodeJob(const Frame& frame) {
  auto job = std::make_unique<DecodeJob>();
  job->layout = frame.layout;
  job->width = frame.width;
  job->height = frame.height;
  job->pixelBytes = frame.bytes.size();
  job->geometry = ComputePlaneGeometry(ToPlaneFormat(frame.layout), frame.width, frame.height);
  const std::vector<uint8_t> compressed = CompressFrame(frame);
  if (compressed.size() != job->geometry.frameSize) {
    Fail("the encoded frame of " + frame.name + " is not one decode-side frame long");
  }
  job->compressed.assign(compressed.size());
  std::copy(compressed.begin(), compressed.end(), job->compressed.begin());
  job->output.assign(job->geometry.outputSize);
  FillDecodeConfig(&job->config, ToPlaneFormat(frame.layout), job->geometry, frame.width,
                   frame.height, job->compressed.data(), job->output.data());
  job->context = MakeContext(ContextFormatOf(ToPlaneFormat(frame.layout)));
  return job;
}

void RunDecode(DecodeJob& job) {
  if (job.layout == PixelLayout::kRgb565) {
    DecodeZpakFrameRgb565(job.context.get(), &job.config);
  } else {
    DecodeZpakFrame(job.context.get(), &job.config);
  }
}

bool DecodedMatches(const DecodeJob& job, const Frame& frame) {
  if (job.layout == PixelLayout::kNv12) {
    return job.output.size() >= frame.bytes.size() &&
           std::equal(frame.bytes.begin(), frame.bytes.end(), job.output.begin());
  }
  const size_t rowBytes = PixelBytes(job.layout) * static_cast<size_t>(job.width);
  const size_t pitch = job.geometry.yStride;
  for (size_t r = 0; r < static_cast<size_t>(job.height); ++r) {
    if (r * pitch + rowBytes > job.output.size() ||
        std::memcmp(&job.output[r * pitch], &frame.bytes[r * rowBytes], rowBytes) != 0) {
      return false;
    }
  }
  return true;
}

namespace {

std::vector<void (*)()>& Registrations() {
  static std::vector<void (*)()> registrations;
  return registrations;
}

}  // namespace

bool AddRegistration(void (*registerBenchmarks)()) {
  Registrations().push_back(registerBenchmarks);
  return true;
}

void RunRegistrations() {
  for (void (*registerBenchmarks)() : Registrations()) registerBenchmarks();
}

const char* PlaneKindName(PlaneKind kind) {
  switch (kind) {
    case PlaneKind::kNv12Luma:
      return "nv12_luma";
    case PlaneKind::kNv12Chroma:
      return "nv12_chroma";
    case PlaneKind::kRgba8888:
      return "rgba8888";
    case PlaneKind::kRgb565:
      break;
  }
  return "rgb565_half";
}

TileSet CutCorpusTiles(PlaneKind kind, size_t maxTiles) {
  const TileShape shape = ShapeOf(kind);
  TileSet set{kind,
              shape.contextFormat,
              shape.planeIndex,
              shape.rowElements * shape.elementBytes * shape.rows,
              0,
              {},
              {},
              {},
              {}};
  std::vector<const Frame*> sources;
  for (const FrameSet& file : CorpusFrames(shape.layout)) {
    if (file.frames.size() == 1) sources.push_back(&file.frames.front());
  }
  if (sources.empty() || maxTiles == 0) return set;
  const size_t perFrame = std::max<size_t>(1, maxTiles / sources.size());
  for (const Frame* frame : sources) {
    const PlaneView plane = ViewPlane(*frame, kind);
    const size_t columns = plane.pitch / (shape.rowElements * shape.elementBytes);
    const size_t tileRows = plane.rows / shape.rows;
    const size_t total = columns * tileRows;
    const size_t take = std::min(perFrame, total);
    for (size_t i = 0; i < take; ++i) {
      const size_t index = i * total / take;  // evenly over the whole plane
      AppendTile(plane, shape, index % columns, index / columns, set);
    }
    set.count += take;
  }
  StoreTiles(set);
  return set;
}

}  // namespace pelcast::bench
