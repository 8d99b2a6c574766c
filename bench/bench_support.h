// What the benchmarks share: the corpus frames, the 3840x2160 frame built from
// them, frame codec jobs laid out exactly as the commands lay out their
// buffers, and tiles cut from corpus frames for the tile codecs.
//
// Everything here is set up once, outside the timed loops. Figures are MB/s
// of uncompressed pixel bytes: the packed linear frame (or the raw tiles), for
// encoders and decoders alike, so that every row compares with memcpy of the
// same bytes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "surface/plane_geometry.h"
#include "surface/zpak_context.h"

namespace pelcast::bench {

inline constexpr int32_t kHdWidth = 1920;
inline constexpr int32_t kHdHeight = 1080;
inline constexpr int32_t kUhdWidth = 3840;
inline constexpr int32_t kUhdHeight = 2160;

enum class PixelLayout { kNv12, kRgba8888, kRgb565 };

// Every layout with the name the benchmark rows of its frames carry.
struct LayoutCase {
  PixelLayout layout;
  const char* name;
};

inline constexpr LayoutCase kLayoutCases[] = {
    {PixelLayout::kNv12, "nv12"},
    {PixelLayout::kRgba8888, "rgba8888"},
    {PixelLayout::kRgb565, "rgb565"},
};

// "nv12", "rgba" or "rgb565": the corpus file extension without the dot.
const char* LayoutExtension(PixelLayout layout);

// Bytes of one packed frame: rows of width x bytes-per-pixel with no padding;
// NV12 is the w x h luma plane followed by w x (h / 2) bytes of U,V pairs.
size_t PackedFrameBytes(PixelLayout layout, int32_t width, int32_t height);

struct Frame {
  std::string name;  // file name without size and extension, "#n" for frame n of a sequence
  PixelLayout layout;
  int32_t width;
  int32_t height;
  std::vector<uint8_t> bytes;  // packed
};

// The frames of one corpus file (one, or eight for the pan sequence).
struct FrameSet {
  std::string name;
  std::vector<Frame> frames;
  size_t TotalBytes() const;
};

// The corpus directory: $PELCAST_CORPUS_DIR, else the shared corpus beside
// the source tree.
std::string CorpusDirectory();

// Every 1920x1080 file of the corpus in `layout`, sorted by name, read once
// and kept for the life of the process. Empty when the corpus is missing.
const std::vector<FrameSet>& CorpusFrames(PixelLayout layout);

// A 3840x2160 frame made of four 1920x1080 corpus frames of `layout` in a
// 2 x 2 grid (the first frames of the files in name order, repeated when there
// are fewer than four). Null when the corpus has none.
const Frame* UhdFrame(PixelLayout layout);

// What the frame benchmarks run on for `layout`: every corpus file, then the
// 3840x2160 frame as a set of its own. Pointers stay valid for the process.
std::vector<const FrameSet*> FrameSubjects(PixelLayout layout);

// The four quadrants (top-left, top-right, bottom-left, bottom-right) joined
// into one frame twice as wide and high. All four share layout and size.
Frame JoinQuadrants(const Frame* const quadrants[4], const std::string& name);

// A frame buffer obtained as the commands obtain theirs (AllocateZeroed:
// mapped on its own and backed by huge pages where the kernel gives them),
// with the few vector operations the jobs use. Zero-filled.
class FrameBuffer {
 public:
  FrameBuffer() = default;
  explicit FrameBuffer(size_t size) { assign(size); }
  void assign(size_t size);
  uint8_t* data() { return bytes_.get(); }
  const uint8_t* data() const { return bytes_.get(); }
  size_t size() const { return size_; }
  uint8_t* begin() { return data(); }
  uint8_t* end() { return data() + size_; }
  const uint8_t* begin() const { return data(); }
  const uint8_t* end() const { return data() + size_; }
  uint8_t& operator[](size_t i) { return bytes_.get()[i]; }
  const uint8_t& operator[](size_t i) const { return bytes_.get()[i]; }

 private:
  struct Release {
    void operator()(uint8_t* bytes) const { ReleaseZeroed(bytes); }
  };
  std::unique_ptr<uint8_t, Release> bytes_;
  size_t size_ = 0;
};

struct ReleaseContext {
  void operator()(ZpakContext* context) const { ReleaseZpakContext(context); }
};
using ContextPtr = std::unique_ptr<ZpakContext, ReleaseContext>;

// A context obtained and configured for `contextFormat`.
ContextPtr MakeContext(uint64_t contextFormat);

// One frame ready for the frame encoder: the linear frame in a staging buffer
// with the encode commands' strides (N and H; RGB565 with the strides command
// B reads back), and a compressed buffer of one ZPAK frame as U, G and B read
// it.
struct EncodeJob {
  PixelLayout layout;
  int32_t width;
  int32_t height;
  size_t pixelBytes;  // the packed frame's size: what one encode is credited with
  FrameBuffer staging;
  FrameBuffer compressed;
  ZpakConfig config;
  ContextPtr context;
};

std::unique_ptr<EncodeJob> MakeEncodeJob(const Frame& frame);

// One call of the frame encoder. The compressed buffer is not cleared between
// calls: every call rewrites every stored tile and metadata byte, and the
// benchmark times the frame function alone.
void RunEncode(EncodeJob& job);

// The ZPAK frame of `frame`: encoded once into a zero-filled buffer, exactly
// the bytes commands N and H would write (RGB565: the RGB565 frame encoder's
// frame, laid out as command B reads it).
std::vector<uint8_t> CompressFrame(const Frame& frame);

// One ZPAK frame ready for the frame decoder, with the descriptor, context
// and output buffer of commands U, G and B.
struct DecodeJob {
  PixelLayout layout;
  int32_t width;
  int32_t height;
  size_t pixelBytes;  // the packed frame's size
  PlaneGeometry geometry;
  FrameBuffer compressed;
  FrameBuffer output;
  ZpakConfig config;
  ContextPtr context;
};

std::unique_ptr<DecodeJob> MakeDecodeJob(const Frame& frame);

void RunDecode(DecodeJob& job);

// True when the decoded output holds exactly the packed frame: a benchmark of
// a decoder that does not round-trip reports an error instead of a figure.
bool DecodedMatches(const DecodeJob& job, const Frame& frame);

// Benchmarks whose list depends on the corpus register from a function that
// the benchmark's main runs once, before the benchmarks run:
//   const bool kRegistered = AddRegistration(&RegisterMyBenchmarks);
// at namespace scope in the benchmark's file. Returns true.
bool AddRegistration(void (*registerBenchmarks)());

// Runs every registration added so far, in the order the files added them.
void RunRegistrations();

// The kinds of tile the tile codecs handle.
enum class PlaneKind { kNv12Luma, kNv12Chroma, kRgba8888, kRgb565 };

const char* PlaneKindName(PlaneKind kind);

// Tiles cut from corpus frames: each in micro-block order as the tile
// encoder takes it, its stored form (256 bytes, zero past the stream) and
// metadata byte as the tile decoder takes them, and its raster form.
struct TileSet {
  PlaneKind kind;
  uint64_t contextFormat;
  uint64_t planeIndex;
  size_t tileBytes;  // bytes of one raw tile (256, or 128 for an RGB565 half tile)
  size_t count;
  std::vector<uint8_t> ordered;  // count x tileBytes
  std::vector<uint8_t> raster;   // count x tileBytes
  std::vector<uint8_t> stored;   // count x kSlotBytes
  std::vector<uint8_t> meta;     // count
};

// Up to `maxTiles` tiles taken evenly from every single-frame corpus file of
// the plane's layout, encoded once with the tile encoder. Empty without a
// corpus.
TileSet CutCorpusTiles(PlaneKind kind, size_t maxTiles);

}  // namespace pelcast::bench
