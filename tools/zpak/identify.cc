#include "tools/zpak/identify.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>
#include <optional>
#include <tuple>

#include "tools/zpak/json_writer.h"

namespace pelcast::zpak {
namespace {

constexpr pelcast_format kAllFormats[] = {PELCAST_FORMAT_NV12, PELCAST_FORMAT_RGBA8888,
                                          PELCAST_FORMAT_RGB565};
constexpr size_t kFormatCount = 3;

// The scan covers surfaces up to this many pixels wide and high, no
// narrower or lower than kScanMinSide and no more than kScanMaxAspect times
// wider than high or higher than wide.
constexpr uint32_t kScanMaxSide = 8192;
constexpr uint32_t kScanMinSide = 64;
constexpr uint32_t kScanMaxAspect = 8;

// Surface layouts are told apart by their frame size at this height (or
// width): large enough that two different metadata strides (or heights)
// never round to the same aligned metadata plane.
constexpr uint32_t kReferenceSide = 8192;

// An RGB565 surface 1 more than a multiple of this wide cannot hold its last
// pixel column.
constexpr uint32_t kRgb565StrideStep = 128;

// Layouts are examined best prior first; one whose candidates could not
// beat the best score so far even with perfect data is not examined (unless
// asked). A layout is decoded (and its second frame, when there is one,
// described) when its tiles leave it a chance to beat the best: always when
// at least this share of them fit, otherwise while fewer than kMostPoorDecoded
// poor layouts have been decoded.
constexpr double kPromisingFit = 0.5;
constexpr size_t kMostPoorDecoded = 8;
// Continuity of a layout that was not decoded, in the score.
constexpr double kUndecodedContinuity = 0.5;
// Pairs of samples across tile borders differ about as much as pairs inside
// tiles when the tiles are in their places (photographs within a few per
// cent; screens and test patterns, whose edges fall on a grid, up to about
// twice as much); up to this much more counts as joined up. Misplaced tiles
// differ three to twenty times as much.
constexpr double kBorderTolerance = 2.25;
// Softens the continuity ratio on flat pictures, in sample levels.
constexpr double kContinuitySoftening = 1.0;

// Score factors of the evidence that cannot come from the tiles. They only
// order candidates whose data is alike: a named size before a listed one
// before one the scan alone found; a size ending where the zero padding
// starts before one that takes in padding or cuts off picture. RGB565 black
// is all zero bits, so a zero strip weighs less than the lists there.
constexpr double kListedFactor = 0.99;
constexpr double kAlignedFactor = 0.985;
constexpr double kScannedFactor = 0.98;
constexpr double kOtherFormatFactor = 0.99;
constexpr double kPaddingMissFactor = 0.97;
constexpr double kRgb565PaddingMissFactor = 0.995;
constexpr double kTornFactor = 0.95;
// With no zero margin in the surface, a candidate whose own tiles leave out
// this many whole tile columns or rows of content crops the picture.
constexpr uint32_t kForeignTiles = 2;
// Sizes shown in one sentence.
constexpr size_t kNoteSizes = 4;
// Scores closer than this count as equal in the notes.
constexpr double kSameScore = 0.005;
// Below this the best candidate is said to fit poorly.
constexpr double kPoorScore = 0.5;

// Display, video and camera resolutions, landscape; the portrait twins are
// added.
constexpr Size kLandscape[] = {
    // video and television
    {176, 144}, {320, 240}, {352, 288}, {426, 240}, {640, 360}, {640, 480}, {704, 576},
    {720, 480}, {720, 576}, {854, 480}, {960, 540}, {1280, 720}, {1920, 1080}, {2048, 1080},
    {2560, 1080}, {3840, 2160}, {4096, 2160}, {5120, 2880}, {7680, 4320},
    // monitors, laptops and tablets
    {800, 480}, {800, 600}, {1024, 600}, {1024, 768}, {1280, 800}, {1280, 1024}, {1366, 768},
    {1440, 900}, {1600, 900}, {1680, 1050}, {1920, 1200}, {2048, 1536}, {2560, 1440},
    {2560, 1600}, {2880, 1800}, {3440, 1440}, {2000, 1200}, {2160, 1620}, {2224, 1668},
    {2388, 1668}, {2732, 2048}, {2800, 1752}, {2960, 1848},
    // phone panels, given landscape here (854x480, 1280x720 and 1920x1080 above)
    {1440, 720}, {1520, 720}, {1600, 720}, {1650, 720}, {2160, 1080}, {2220, 1080}, {2240, 1080}, {2280, 1080}, {2310, 1080}, {2340, 1080},
    {2376, 1080}, {2400, 1080}, {2408, 1080}, {2412, 1080}, {2460, 1080}, {2520, 1080},
    {2640, 1080}, {2400, 1176}, {2640, 1200}, {2670, 1200}, {2712, 1220}, {2772, 1240},
    {2800, 1260}, {2960, 1440}, {3040, 1440}, {3088, 1440}, {3120, 1440},
    {3168, 1440}, {3200, 1440}, {2176, 1812}, {2208, 1768}, {2316, 1904},
    // cameras, 4:3, 16:9 and square
    {1280, 960}, {1440, 1080}, {1600, 1200}, {2560, 1920}, {2592, 1944}, {3264, 2448},
    {4000, 3000}, {4032, 3024}, {4080, 3072}, {4608, 3456}, {4624, 3472}, {8000, 6000},
    {8160, 6120}, {3264, 1836}, {4000, 2250}, {4032, 2268}, {4096, 2304}, {4624, 2604},
    {1080, 1080}, {1440, 1440}, {2448, 2448}, {3024, 3024}, {3000, 3000},
};

// Video sizes with the height rounded up to whole 16- or 32-row blocks, as
// video decoders allocate them; common in dumps, but second to the sizes
// above when the data cannot tell them apart.
constexpr Size kAlignedLandscape[] = {
    {640, 368}, {960, 544}, {1280, 736}, {1920, 1088}, {1920, 1104}, {3840, 2176}, {4096, 2176},
};

// Named resolutions a file name may carry instead of numbers.
struct NamedSize {
  const char* word;
  Size size;
};
constexpr NamedSize kNamedSizes[] = {
    {"qcif", {176, 144}},   {"cif", {352, 288}},     {"vga", {640, 480}},
    {"wvga", {800, 480}},   {"svga", {800, 600}},    {"xga", {1024, 768}},
    {"360p", {640, 360}},   {"480p", {854, 480}},    {"540p", {960, 540}},
    {"720p", {1280, 720}},  {"1080p", {1920, 1080}}, {"1440p", {2560, 1440}},
    {"2160p", {3840, 2160}}, {"4k", {3840, 2160}},   {"uhd", {3840, 2160}},
    {"fhd", {1920, 1080}},  {"hd", {1280, 720}},     {"qhd", {2560, 1440}},
    {"4320p", {7680, 4320}}, {"8k", {7680, 4320}},
};

struct FormatWord {
  const char* word;
  pelcast_format format;
};
constexpr FormatWord kFormatWords[] = {
    {"nv12", PELCAST_FORMAT_NV12},         {"yuv420sp", PELCAST_FORMAT_NV12},
    {"420sp", PELCAST_FORMAT_NV12},        {"yuv", PELCAST_FORMAT_NV12},
    {"rgba8888", PELCAST_FORMAT_RGBA8888}, {"rgba", PELCAST_FORMAT_RGBA8888},
    {"rgbx", PELCAST_FORMAT_RGBA8888},     {"argb", PELCAST_FORMAT_RGBA8888},
    {"bgra", PELCAST_FORMAT_RGBA8888},     {"8888", PELCAST_FORMAT_RGBA8888},
    {"rgb565", PELCAST_FORMAT_RGB565},     {"565", PELCAST_FORMAT_RGB565},
};

// --- file name hints ---------------------------------------------------------

std::string LowerBaseName(std::string_view path) {
  const size_t slash = path.find_last_of("/\\");
  if (slash != std::string_view::npos) path.remove_prefix(slash + 1);
  std::string name(path);
  for (char& c : name) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return name;
}

bool IsDigit(char c) { return c >= '0' && c <= '9'; }
bool IsAlnum(char c) { return std::isalnum(static_cast<unsigned char>(c)) != 0; }

// The whole number of up to 5 digits at `at`; advances `at` past it.
std::optional<uint32_t> TakeNumber(const std::string& s, size_t* at) {
  constexpr size_t kMaxDigits = 5;
  const size_t start = *at;
  while (*at < s.size() && IsDigit(s[*at])) ++*at;
  const size_t digits = *at - start;
  if (digits == 0 || digits > kMaxDigits) return std::nullopt;
  return static_cast<uint32_t>(std::strtoul(s.substr(start, digits).c_str(), nullptr, 10));
}

void AddSize(Size size, std::vector<Size>* sizes) {
  constexpr uint32_t kMinSide = 8;
  if (size.width < kMinSide || size.height < kMinSide) return;
  if (std::find(sizes->begin(), sizes->end(), size) == sizes->end()) sizes->push_back(size);
}

// "1920x1080", "1920X1080", "1920*1080", "1920_1080" (only between
// separators), and "w1920_h1080" / "width1920-height1080".
void FindNumericSizes(const std::string& s, std::vector<Size>* sizes) {
  for (size_t i = 0; i < s.size(); ++i) {
    if (!IsDigit(s[i]) || (i > 0 && IsDigit(s[i - 1]))) continue;
    size_t at = i;
    const auto width = TakeNumber(s, &at);
    if (!width || at + 1 >= s.size()) continue;
    const char sep = s[at];
    const bool times = sep == 'x' || sep == '*';
    const bool between = sep == '_' && (i == 0 || !IsAlnum(s[i - 1]));
    if (!times && !between) continue;
    size_t next = at + 1;
    const auto height = TakeNumber(s, &next);
    if (!height || (between && next < s.size() && IsAlnum(s[next]))) continue;
    AddSize({*width, *height}, sizes);
  }
  for (const char* key : {"w", "width"}) {
    const std::string k = key;
    for (size_t i = s.find(k); i != std::string::npos; i = s.find(k, i + 1)) {
      if (i > 0 && std::isalpha(static_cast<unsigned char>(s[i - 1]))) continue;
      size_t at = i + k.size();
      const auto width = TakeNumber(s, &at);
      if (!width) continue;
      while (at < s.size() && !IsAlnum(s[at])) ++at;
      const std::string hk = k == "w" ? "h" : "height";
      if (s.compare(at, hk.size(), hk) != 0) continue;
      at += hk.size();
      if (const auto height = TakeNumber(s, &at)) AddSize({*width, *height}, sizes);
    }
  }
}

// A word of the name: `word` with no letter or digit next to it, or, for
// words ending in a digit, no digit after it.
bool HasWord(const std::string& s, std::string_view word) {
  for (size_t i = s.find(word); i != std::string::npos; i = s.find(word, i + 1)) {
    const size_t end = i + word.size();
    const bool left = i == 0 || !IsAlnum(s[i - 1]);
    const bool right = end == s.size() || !IsAlnum(s[end]);
    if (left && right) return true;
  }
  return false;
}

template <size_t N>
std::vector<Size> BothOrientations(const Size (&landscape)[N]) {
  std::vector<Size> list;
  for (const Size& s : landscape) {
    for (const Size& t : {s, Size{s.height, s.width}}) {
      if (std::find(list.begin(), list.end(), t) == list.end()) list.push_back(t);
    }
  }
  return list;
}

// --- surface layouts ---------------------------------------------------------

size_t FormatIndex(pelcast_format format) {
  return format == PELCAST_FORMAT_NV12 ? 0 : (format == PELCAST_FORMAT_RGBA8888 ? 1 : 2);
}

bool Rgb565Unsupported(pelcast_format format, uint32_t width) {
  return format == PELCAST_FORMAT_RGB565 && width % kRgb565StrideStep == 1;
}

// For every width (height) up to kScanMaxSide, the largest width (height) of
// the same surface layout, and the distinct largest ones in order.
struct SideClasses {
  std::vector<uint32_t> largest;   // index: the side; [0] unused
  std::vector<uint32_t> distinct;  // ascending
};

SideClasses MakeSideClasses(pelcast_format format, bool widths) {
  SideClasses c;
  c.largest.assign(kScanMaxSide + 1, 0);
  auto size = [&](uint32_t side) {
    return widths ? pelcast_zpak_frame_size(format, side, kReferenceSide)
                  : pelcast_zpak_frame_size(format, kReferenceSide, side);
  };
  uint32_t start = 1;
  while (start <= kScanMaxSide) {
    const size_t bytes = size(start);
    uint32_t end = start;
    while (end + 1 <= kScanMaxSide && size(end + 1) == bytes) ++end;
    uint32_t top = end;
    if (widths && Rgb565Unsupported(format, top) && top > start) --top;
    for (uint32_t s = start; s <= end; ++s) c.largest[s] = top;
    if (!(widths && Rgb565Unsupported(format, top))) c.distinct.push_back(top);
    start = end + 1;
  }
  return c;
}

struct LayoutTables {
  std::array<SideClasses, kFormatCount> widths;
  std::array<SideClasses, kFormatCount> heights;
};

const LayoutTables& Layouts() {
  static const LayoutTables tables = [] {
    LayoutTables t;
    for (pelcast_format f : kAllFormats) {
      t.widths[FormatIndex(f)] = MakeSideClasses(f, true);
      t.heights[FormatIndex(f)] = MakeSideClasses(f, false);
    }
    return t;
  }();
  return tables;
}

// The largest size of the surface layout of `format` at `size`: the same
// frame size, the same tiles in the same places.
Size LayoutSize(pelcast_format format, Size size) {
  const LayoutTables& t = Layouts();
  const size_t f = FormatIndex(format);
  Size top = size;
  if (size.width <= kScanMaxSide) top.width = t.widths[f].largest[size.width];
  if (size.height <= kScanMaxSide) top.height = t.heights[f].largest[size.height];
  const size_t bytes = pelcast_zpak_frame_size(format, size.width, size.height);
  if (pelcast_zpak_frame_size(format, top.width, top.height) != bytes) return size;
  return top;
}

// --- candidates --------------------------------------------------------------

struct Member {
  pelcast_format format;
  Size size;
  uint32_t sources;
};

using MemberKey = std::tuple<uint32_t, uint32_t, uint32_t>;

struct Enumeration {
  std::map<MemberKey, Member> members;
  uint64_t fileBytes;
  bool torn = false;  // frames are counted down; bytes are left over
};

void AddMember(Enumeration* e, pelcast_format format, Size size, uint32_t source) {
  const MemberKey key{format, size.width, size.height};
  auto [it, added] = e->members.try_emplace(key, Member{format, size, 0});
  it->second.sources |= source;
}

// Adds `size` in every format whose frames tile the file (or, torn, fit in
// it at least once).
void AddSizeInFormats(Enumeration* e, const std::vector<pelcast_format>& formats, Size size,
                      uint32_t source) {
  for (pelcast_format f : formats) {
    if (Rgb565Unsupported(f, size.width)) continue;
    const uint64_t bytes = pelcast_zpak_frame_size(f, size.width, size.height);
    if (bytes == 0 || bytes > e->fileBytes) continue;
    if (!e->torn && e->fileBytes % bytes != 0) continue;
    AddMember(e, f, size, source);
  }
}

std::vector<uint64_t> FrameSizesDividing(uint64_t fileBytes, uint64_t smallest, uint64_t largest) {
  std::vector<uint64_t> sizes;
  for (uint64_t n = 1; n * n <= fileBytes; ++n) {
    if (fileBytes % n != 0) continue;
    for (uint64_t bytes : {fileBytes / n, n}) {
      if (bytes >= smallest && bytes <= largest) sizes.push_back(bytes);
    }
  }
  std::sort(sizes.begin(), sizes.end());
  sizes.erase(std::unique(sizes.begin(), sizes.end()), sizes.end());
  return sizes;
}

bool PlausibleScanSize(uint32_t width, uint32_t height) {
  return width >= kScanMinSide && height >= kScanMinSide &&
         width <= kScanMaxAspect * uint64_t{height} && height <= kScanMaxAspect * uint64_t{width};
}

// Every surface layout whose frame size divides the file: for each width
// class, the height class with that frame size, found by bisection (frame
// sizes grow with the height).
void ScanLayouts(Enumeration* e, const std::vector<pelcast_format>& formats, uint64_t maxFrame) {
  const LayoutTables& t = Layouts();
  const std::vector<uint64_t> targets = FrameSizesDividing(e->fileBytes, 1, maxFrame);
  for (pelcast_format f : formats) {
    const std::vector<uint32_t>& heights = t.heights[FormatIndex(f)].distinct;
    for (uint32_t width : t.widths[FormatIndex(f)].distinct) {
      const uint64_t lowest = pelcast_zpak_frame_size(f, width, heights.front());
      const uint64_t highest = pelcast_zpak_frame_size(f, width, heights.back());
      for (uint64_t target : targets) {
        if (target < lowest || (highest != 0 && target > highest)) continue;
        size_t lo = 0, hi = heights.size();
        while (lo < hi) {
          const size_t mid = (lo + hi) / 2;
          const uint64_t bytes = pelcast_zpak_frame_size(f, width, heights[mid]);
          if (bytes != 0 && bytes < target) {
            lo = mid + 1;
          } else {
            hi = mid;
          }
        }
        if (lo == heights.size()) continue;
        if (pelcast_zpak_frame_size(f, width, heights[lo]) != target) continue;
        if (!PlausibleScanSize(width, heights[lo])) continue;
        AddMember(e, f, {width, heights[lo]}, kFromScan);
      }
    }
  }
}

std::vector<pelcast_format> FormatsToTry(const IdentifyOptions& options) {
  if (options.onlyFormat != 0) return {static_cast<pelcast_format>(options.onlyFormat)};
  return {std::begin(kAllFormats), std::end(kAllFormats)};
}

// --- reading -----------------------------------------------------------------

// The first bytes of the file, read as far as they are needed.
class Prefix {
 public:
  Prefix(const ReadAt& read, uint64_t fileBytes) : read_(&read), fileBytes_(fileBytes) {}
  Prefix(const uint8_t* data, uint64_t size) : data_(data), available_(size), fileBytes_(size) {}

  // Makes the first `bytes` bytes (at most the file) available; returns how
  // many are.
  uint64_t Ensure(uint64_t bytes) {
    bytes = std::min(bytes, fileBytes_);
    if (read_ == nullptr || bytes <= available_ || failed_) return std::min(bytes, available_);
    constexpr uint64_t kChunk = uint64_t{1} << 24;
    owned_.resize(bytes);
    data_ = owned_.data();
    while (available_ < bytes) {
      const size_t want = static_cast<size_t>(std::min(kChunk, bytes - available_));
      const size_t got = (*read_)(available_, want, owned_.data() + available_);
      available_ += got;
      if (got < want) {
        failed_ = true;
        break;
      }
    }
    return std::min(bytes, available_);
  }

  const uint8_t* data() const { return data_; }

 private:
  const ReadAt* read_ = nullptr;
  const uint8_t* data_ = nullptr;
  uint64_t available_ = 0;
  uint64_t fileBytes_ = 0;
  bool failed_ = false;
  std::vector<uint8_t> owned_;
};

// --- evidence ------------------------------------------------------------

struct CodecDeleter {
  void operator()(pelcast_codec* codec) const { pelcast_codec_destroy(codec); }
};
using CodecHandle = std::unique_ptr<pelcast_codec, CodecDeleter>;

// Frames smaller than this are described and decoded on the calling thread:
// starting workers would take longer than the work.
constexpr uint64_t kThreadedFrameBytes = uint64_t{1} << 22;

CodecHandle MakeCodec(pelcast_format format, Size size, uint32_t threads) {
  pelcast_codec* codec = nullptr;
  if (pelcast_codec_create(format, size.width, size.height, &codec) != PELCAST_OK) return nullptr;
  if (pelcast_zpak_frame_size(format, size.width, size.height) >= kThreadedFrameBytes) {
    pelcast_codec_set_threads(codec, threads);
  }
  return CodecHandle(codec);
}

struct TileCounts {
  uint64_t tiles = 0;
  uint64_t legal = 0;
  uint64_t fit = 0;
};

void CountTile(const pelcast_tile_info& info, TileCounts* counts) {
  ++counts->tiles;
  if ((info.flags & PELCAST_TILE_BAD_METADATA) != 0) return;
  ++counts->legal;
  if ((info.flags & PELCAST_TILE_OVERRUN) == 0) ++counts->fit;
}

double Share(uint64_t part, uint64_t whole) {
  return whole == 0 ? 0.0 : static_cast<double>(part) / static_cast<double>(whole);
}

struct PlaneTiles {
  pelcast_tile_grid grid{};
  std::vector<pelcast_tile_info> tiles;  // frame 0, at the layout's size
};

// One surface layout: the candidates that share it and its evidence.
struct Layout {
  pelcast_format format = PELCAST_FORMAT_NV12;
  Size size{0, 0};  // the largest of the layout
  uint64_t frameBytes = 0;
  uint64_t frames = 0;
  std::vector<size_t> members;  // indexes into the candidate list
  bool read = false;            // frame 0's tiles described
  std::vector<PlaneTiles> planes;
  TileCounts second;  // frame 1 over the whole layout, when it was described
  bool hasSecond = false;
  double bound = 0;      // the best score its candidates could reach
  bool examined = false;
  Size contentEnd{0, 0};         // 1 past the last non-zero column and row
  std::vector<uint8_t> picture;  // frame 0 decoded at `size`, packed
};

bool DescribeTiles(pelcast_codec* codec, pelcast_format format, Size size, const uint8_t* frame,
                   uint64_t frameBytes, uint32_t plane, std::vector<pelcast_tile_info>* tiles) {
  pelcast_tile_grid grid{};
  if (pelcast_tile_grid_of(format, size.width, size.height, plane, &grid) != PELCAST_OK) {
    return false;
  }
  tiles->resize(size_t{grid.columns} * grid.rows);
  return pelcast_codec_tile_info(codec, frame, frameBytes, plane, tiles->data(), tiles->size()) ==
         PELCAST_OK;
}

void ReadLayoutTiles(Layout* layout, Prefix* prefix, uint32_t threads) {
  if (prefix->Ensure(layout->frameBytes) < layout->frameBytes) return;
  CodecHandle codec = MakeCodec(layout->format, layout->size, threads);
  if (codec == nullptr) return;
  const uint32_t planes = pelcast_plane_count(layout->format);
  layout->planes.resize(planes);
  for (uint32_t p = 0; p < planes; ++p) {
    PlaneTiles& plane = layout->planes[p];
    pelcast_tile_grid_of(layout->format, layout->size.width, layout->size.height, p, &plane.grid);
    if (!DescribeTiles(codec.get(), layout->format, layout->size, prefix->data(),
                       layout->frameBytes, p, &plane.tiles)) {
      return;
    }
  }
  layout->read = true;
}

void ReadSecondFrame(Layout* layout, Prefix* prefix, uint32_t threads) {
  if (layout->frames < 2 || prefix->Ensure(2 * layout->frameBytes) < 2 * layout->frameBytes) {
    return;
  }
  CodecHandle codec = MakeCodec(layout->format, layout->size, threads);
  if (codec == nullptr) return;
  std::vector<pelcast_tile_info> tiles;
  TileCounts counts;
  for (uint32_t p = 0; p < layout->planes.size(); ++p) {
    if (!DescribeTiles(codec.get(), layout->format, layout->size,
                       prefix->data() + layout->frameBytes, layout->frameBytes, p, &tiles)) {
      return;
    }
    for (const pelcast_tile_info& info : tiles) CountTile(info, &counts);
  }
  layout->second = counts;
  layout->hasSecond = true;
}

// Legal and fitting tiles of a candidate: its own tiles of frame 0, and the
// whole layout's of frame 1 (counted equally).
TileCounts CountCandidateTiles(const Layout& layout, Size size) {
  TileCounts counts;
  for (uint32_t p = 0; p < layout.planes.size(); ++p) {
    pelcast_tile_grid grid{};
    if (pelcast_tile_grid_of(layout.format, size.width, size.height, p, &grid) != PELCAST_OK) {
      continue;
    }
    const PlaneTiles& plane = layout.planes[p];
    for (uint32_t r = 0; r < grid.rows && r < plane.grid.rows; ++r) {
      for (uint32_t c = 0; c < grid.columns && c < plane.grid.columns; ++c) {
        CountTile(plane.tiles[size_t{r} * plane.grid.columns + c], &counts);
      }
    }
  }
  return counts;
}

void ApplyTileEvidence(const Layout& layout, IdentifyCandidate* c) {
  if (!layout.read) {
    c->legalMetadata = 0;
    c->streamsFit = -1;
    return;
  }
  const TileCounts own = CountCandidateTiles(layout, {c->width, c->height});
  c->legalMetadata = Share(own.legal, own.tiles);
  c->streamsFit = Share(own.fit, own.tiles);
  if (layout.hasSecond) {
    c->legalMetadata = (c->legalMetadata + Share(layout.second.legal, layout.second.tiles)) / 2;
    c->streamsFit = (c->streamsFit + Share(layout.second.fit, layout.second.tiles)) / 2;
  }
}

// One channel of a decoded plane: sample (x, y) at base + y * stride + x * step.
struct Channel {
  const uint8_t* base;
  size_t stride;
  size_t step;
  uint32_t width;  // samples across the candidate's picture
  uint32_t height;
  uint32_t tileWidth;  // in samples
  uint32_t tileHeight;
};

struct BorderSums {
  double border = 0;  // |difference| across tile borders
  double inner = 0;   // |difference| of the neighbouring pairs inside tiles
  double middle = 0;  // |difference| across the middle of tiles
  uint64_t pairs = 0;
};

// Pairs straddling each tile border against the pairs just beside it, on
// both sides, and against the pairs straddling the middle of the tiles
// (content whose edges fall on a grid, as screens and test patterns have,
// shows them at tile borders and middles alike).
void AddBorders(const Channel& ch, BorderSums* sums) {
  const auto at = [&ch](uint32_t x, uint32_t y) -> int {
    return ch.base[size_t{y} * ch.stride + size_t{x} * ch.step];
  };
  const uint32_t halfWidth = ch.tileWidth / 2, halfHeight = ch.tileHeight / 2;
  for (uint32_t x = ch.tileWidth; x + 1 < ch.width; x += ch.tileWidth) {
    for (uint32_t y = 0; y < ch.height; ++y) {
      const int a = at(x - 2, y), b = at(x - 1, y), c = at(x, y), d = at(x + 1, y);
      sums->border += std::abs(b - c);
      sums->inner += (std::abs(a - b) + std::abs(c - d)) / 2.0;
      sums->middle += std::abs(at(x - halfWidth - 1, y) - at(x - halfWidth, y));
      ++sums->pairs;
    }
  }
  for (uint32_t y = ch.tileHeight; y + 1 < ch.height; y += ch.tileHeight) {
    for (uint32_t x = 0; x < ch.width; ++x) {
      const int a = at(x, y - 2), b = at(x, y - 1), c = at(x, y), d = at(x, y + 1);
      sums->border += std::abs(b - c);
      sums->inner += (std::abs(a - b) + std::abs(c - d)) / 2.0;
      sums->middle += std::abs(at(x, y - halfHeight - 1) - at(x, y - halfHeight));
      ++sums->pairs;
    }
  }
}

// RGB565 words split into 8-bit red, green and blue planes (3 bytes a pixel).
std::vector<uint8_t> SplitRgb565(const uint8_t* words, Size size) {
  std::vector<uint8_t> rgb(size_t{size.width} * size.height * 3);
  for (size_t i = 0; i < size_t{size.width} * size.height; ++i) {
    const uint32_t w = words[2 * i] | uint32_t{words[2 * i + 1]} << 8;
    rgb[3 * i] = static_cast<uint8_t>((w >> 11) << 3);
    rgb[3 * i + 1] = static_cast<uint8_t>(((w >> 5) & 0x3F) << 2);
    rgb[3 * i + 2] = static_cast<uint8_t>((w & 0x1F) << 3);
  }
  return rgb;
}

// The channels of the layout's decoded picture, cut to `size`.
std::vector<Channel> ChannelsOf(const Layout& layout, const uint8_t* picture, Size size) {
  const Size full = layout.size;
  switch (layout.format) {
    case PELCAST_FORMAT_NV12: {
      const uint8_t* uv = picture + size_t{full.width} * full.height;
      const size_t uvStride = 2 * ((size_t{full.width} + 1) / 2);
      const uint32_t pairs = (size.width + 1) / 2, rows = (size.height + 1) / 2;
      constexpr uint32_t kPairsPerTile = 16, kChromaRows = 8;
      return {{picture, full.width, 1, size.width, size.height, 32, 8},
              {uv, uvStride, 2, pairs, rows, kPairsPerTile, kChromaRows},
              {uv + 1, uvStride, 2, pairs, rows, kPairsPerTile, kChromaRows}};
    }
    case PELCAST_FORMAT_RGBA8888: {
      std::vector<Channel> channels;
      for (int c = 0; c < 4; ++c) {
        channels.push_back({picture + c, 4 * size_t{full.width}, 4, size.width, size.height, 16, 4});
      }
      return channels;
    }
    default: {
      std::vector<Channel> channels;
      for (int c = 0; c < 3; ++c) {
        channels.push_back({picture + c, 3 * size_t{full.width}, 3, size.width, size.height, 16, 4});
      }
      return channels;
    }
  }
}

double Continuity(const Layout& layout, Size size) {
  BorderSums sums;
  for (const Channel& ch : ChannelsOf(layout, layout.picture.data(), size)) AddBorders(ch, &sums);
  if (sums.pairs == 0) return 1.0;
  const double border = sums.border / static_cast<double>(sums.pairs);
  const double inside = std::max(sums.inner, sums.middle) / static_cast<double>(sums.pairs);
  return std::min(1.0, (kBorderTolerance * inside + kContinuitySoftening) /
                           (border + kContinuitySoftening));
}

// 1 past the last column and row of the main plane (luma, or the pixels)
// holding anything but zero bytes.
Size ContentEnd(const Layout& layout) {
  const Size full = layout.size;
  const size_t pixelBytes = layout.format == PELCAST_FORMAT_NV12
                                ? 1
                                : (layout.format == PELCAST_FORMAT_RGBA8888 ? 4 : 3);
  const size_t rowBytes = pixelBytes * full.width;
  Size end{0, 0};
  for (uint32_t y = 0; y < full.height; ++y) {
    const uint8_t* row = layout.picture.data() + y * rowBytes;
    size_t last = rowBytes;
    while (last > 0 && row[last - 1] == 0) --last;
    if (last == 0) continue;
    end.height = y + 1;
    end.width = std::max(end.width, static_cast<uint32_t>((last + pixelBytes - 1) / pixelBytes));
  }
  return end;
}

bool DecodeLayout(Layout* layout, const uint8_t* frame, uint32_t threads) {
  CodecHandle codec = MakeCodec(layout->format, layout->size, threads);
  if (codec == nullptr) return false;
  const size_t bytes = pelcast_linear_frame_size(layout->format, layout->size.width,
                                                 layout->size.height);
  std::vector<uint8_t> linear(bytes);
  pelcast_image image{};
  if (pelcast_image_init_packed(&image, layout->format, layout->size.width, layout->size.height,
                                linear.data(), linear.size()) != PELCAST_OK ||
      pelcast_codec_decode(codec.get(), frame, layout->frameBytes, &image) != PELCAST_OK) {
    return false;
  }
  layout->picture = layout->format == PELCAST_FORMAT_RGB565 ? SplitRgb565(linear.data(), layout->size)
                                                            : std::move(linear);
  layout->contentEnd = ContentEnd(*layout);
  return true;
}

// Whole tiles of the layout beyond a candidate's own tiles, across and down.
Size ExtraTiles(const Layout& layout, Size size) {
  pelcast_tile_grid all{}, own{};
  pelcast_tile_grid_of(layout.format, layout.size.width, layout.size.height, 0, &all);
  pelcast_tile_grid_of(layout.format, size.width, size.height, 0, &own);
  return {all.columns - std::min(all.columns, own.columns), all.rows - std::min(all.rows, own.rows)};
}

PaddingFit PaddingFitOf(const Layout& layout, Size size) {
  const Size end = layout.contentEnd;
  if (end.width == 0) return PaddingFit::kUnknown;
  if (end.width == layout.size.width && end.height == layout.size.height) {
    // No zero margin. A writer fills the pixels of its last tiles past the
    // picture with anything (1920x1080 written as 1088 rows); content in
    // kForeignTiles or more whole tiles past a candidate's own is picture.
    const Size extra = ExtraTiles(layout, size);
    const bool crops = extra.width >= kForeignTiles || extra.height >= kForeignTiles;
    return crops ? PaddingFit::kCropsContent : PaddingFit::kUnknown;
  }
  if (size.width < end.width || size.height < end.height) return PaddingFit::kCropsContent;
  if (size.width > end.width || size.height > end.height) return PaddingFit::kZeroStrip;
  return PaddingFit::kExact;
}

// --- scoring -----------------------------------------------------------------

double PriorFactor(uint32_t sources) {
  if ((sources & kFromName) != 0) return 1.0;
  if ((sources & kFromList) != 0) return kListedFactor;
  return (sources & kFromAlignedList) != 0 ? kAlignedFactor : kScannedFactor;
}

double PaddingFactor(pelcast_format format, PaddingFit fit) {
  if (fit == PaddingFit::kCropsContent) return kPaddingMissFactor;
  if (fit != PaddingFit::kZeroStrip) return 1.0;
  // RGB565 black is zero bits: a zero strip may be picture.
  return format == PELCAST_FORMAT_RGB565 ? kRgb565PaddingMissFactor : kPaddingMissFactor;
}

// What a candidate's score is made of besides the data: its sources, its
// format against the name's, a torn file.
double PriorOf(const IdentifyCandidate& c, const NameHints& hints, bool torn) {
  double prior = PriorFactor(c.sources);
  if (!hints.formats.empty() &&
      std::find(hints.formats.begin(), hints.formats.end(), c.format) == hints.formats.end()) {
    prior *= kOtherFormatFactor;
  }
  return torn ? prior * kTornFactor : prior;
}

double ScoreOf(const IdentifyCandidate& c, const NameHints& hints, bool torn) {
  const double continuity = c.continuity >= 0 ? c.continuity : kUndecodedContinuity;
  const double fit = std::max(0.0, c.streamsFit);
  return fit * continuity * PaddingFactor(c.format, c.padding) * PriorOf(c, hints, torn);
}

bool BetterCandidate(const IdentifyCandidate& a, const IdentifyCandidate& b) {
  if (a.score != b.score) return a.score > b.score;
  return std::tie(a.format, a.width, a.height) < std::tie(b.format, b.width, b.height);
}

// --- notes -------------------------------------------------------------------

std::string SizeText(uint32_t width, uint32_t height) {
  return std::to_string(width) + "x" + std::to_string(height);
}

std::string SizeText(const IdentifyCandidate& c) { return SizeText(c.width, c.height); }

std::string Percent(double share) {
  char text[16];
  std::snprintf(text, sizeof text, "%.0f%%", 100.0 * share);
  return text;
}

std::string Fixed(double value, int decimals) {
  char text[32];
  std::snprintf(text, sizeof text, "%.*f", decimals, value);
  return text;
}

std::string JoinSizes(const std::vector<const IdentifyCandidate*>& list) {
  std::string text;
  for (size_t i = 0; i < list.size() && i < kNoteSizes; ++i) {
    text += (i == 0 ? "" : (i + 1 == list.size() || i + 1 == kNoteSizes ? " and " : ", ")) +
            SizeText(*list[i]);
  }
  if (list.size() > kNoteSizes) text += " (and " + std::to_string(list.size() - kNoteSizes) + " more)";
  return text;
}

std::string PreferenceReason(const IdentifyCandidate& best,
                             const std::vector<const IdentifyCandidate*>& others) {
  const bool othersNamed = std::any_of(others.begin(), others.end(),
                                       [](const auto* c) { return (c->sources & kFromName) != 0; });
  const bool othersListed = std::any_of(others.begin(), others.end(),
                                        [](const auto* c) { return (c->sources & kFromList) != 0; });
  if ((best.sources & kFromName) != 0 && !othersNamed) return "the file name names it";
  if ((best.sources & kFromList) != 0 && !othersListed) return "it is a common resolution";
  const bool othersAligned = std::any_of(others.begin(), others.end(), [](const auto* c) {
    return (c->sources & kFromAlignedList) != 0;
  });
  if ((best.sources & kFromAlignedList) != 0 && !othersAligned) {
    return "it is a common decoder-aligned size";
  }
  return "it comes first in order";
}

// Candidates of the best one's layout and the sentence about them.
void NoteSameLayout(const IdentifyResult& r, std::vector<std::string>* notes) {
  const IdentifyCandidate& best = r.candidates.front();
  std::vector<const IdentifyCandidate*> same;
  for (size_t i = 1; i < r.candidates.size(); ++i) {
    const IdentifyCandidate& c = r.candidates[i];
    if (c.format == best.format && c.layoutWidth == best.layoutWidth &&
        c.layoutHeight == best.layoutHeight) {
      same.push_back(&c);
    }
  }
  if (same.empty()) return;
  const std::string name = IdentifyFormatName(best.format);
  const std::string head = name + " " + SizeText(best) + " shares its frame size (" +
                           std::to_string(best.frameBytes) + " bytes) and surface layout with " +
                           JoinSizes(same) + ": they decode to the same tiles. ";
  if (best.padding == PaddingFit::kExact) {
    notes->push_back(head + "The picture ends at " + SizeText(best) +
                     ", where the zero padding an encoder leaves begins, so " + SizeText(best) +
                     " is preferred.");
    return;
  }
  notes->push_back(head + "The data cannot tell them apart; " + SizeText(best) +
                   " is preferred because " + PreferenceReason(best, same) + ".");
}

// Other layouts of the same frame size that the data rules out.
void NoteSameFrameSize(const IdentifyResult& r, std::vector<std::string>* notes) {
  constexpr size_t kMaxNotes = 2;
  const IdentifyCandidate& best = r.candidates.front();
  size_t written = 0;
  for (size_t i = 1; i < r.candidates.size() && written < kMaxNotes; ++i) {
    const IdentifyCandidate& c = r.candidates[i];
    const bool sameLayout = c.format == best.format && c.layoutWidth == best.layoutWidth &&
                            c.layoutHeight == best.layoutHeight;
    if (sameLayout || c.frameBytes != best.frameBytes || c.score + kSameScore >= best.score) {
      continue;
    }
    std::string evidence = "metadata legal " + Percent(c.legalMetadata);
    if (c.streamsFit >= 0) evidence += ", streams fit " + Percent(c.streamsFit);
    if (c.continuity >= 0) evidence += ", continuity " + Fixed(c.continuity, 2);
    notes->push_back(std::string(IdentifyFormatName(c.format)) + " " + SizeText(c) +
                     " has the same frame size but a different surface layout, and its tiles " +
                     "do not fit the data as well (" + evidence + ").");
    ++written;
  }
}

void NoteNamedSizes(const NameHints& hints, const std::vector<pelcast_format>& formats,
                    uint64_t fileBytes, std::vector<std::string>* notes) {
  for (const Size& s : hints.sizes) {
    std::string sizes;
    bool fits = false;
    for (pelcast_format f : formats) {
      const uint64_t bytes = pelcast_zpak_frame_size(f, s.width, s.height);
      if (bytes == 0) continue;
      if (fileBytes % bytes == 0) fits = true;
      sizes += std::string(sizes.empty() ? "" : ", ") + IdentifyFormatName(f) + " " +
               std::to_string(bytes);
    }
    if (fits || sizes.empty()) continue;
    notes->push_back("The file name names " + SizeText(s.width, s.height) + ", but " +
                     std::to_string(fileBytes) +
                     " bytes are not a whole number of its frames (bytes a frame: " + sizes + ").");
  }
}

std::vector<std::string> MakeNotes(const IdentifyResult& r, const NameHints& hints,
                                   const std::vector<pelcast_format>& formats, bool torn) {
  std::vector<std::string> notes;
  NoteNamedSizes(hints, formats, r.bytes, &notes);
  if (r.candidates.empty()) {
    notes.push_back("No format and size (common resolutions, the file name, a scan of every "
                    "surface layout up to " + std::to_string(kScanMaxSide) + " pixels) has "
                    "frames that fit in " + std::to_string(r.bytes) + " bytes.");
    return notes;
  }
  const IdentifyCandidate& best = r.candidates.front();
  if (torn) {
    notes.push_back("No frame size divides " + std::to_string(r.bytes) +
                    " bytes; the candidates leave the last " +
                    std::to_string(r.bytes % best.frameBytes) +
                    " bytes (best candidate) as a torn frame.");
  }
  NoteSameLayout(r, &notes);
  NoteSameFrameSize(r, &notes);
  if (best.score < kPoorScore) {
    notes.push_back("Even the best candidate fits poorly: the file may not be ZPAK frames, may "
                    "start with a header, or may have a size none of the candidates has.");
  }
  return notes;
}

// --- the run -----------------------------------------------------------------

Enumeration Enumerate(uint64_t fileBytes, const NameHints& hints,
                      const std::vector<pelcast_format>& formats, uint64_t maxFrame, bool torn) {
  Enumeration e{{}, fileBytes, torn};
  // A format the name names is tried in every size; the others too, since
  // names mislead as often as they help.
  for (const Size& s : CommonResolutions()) AddSizeInFormats(&e, formats, s, kFromList);
  for (const Size& s : AlignedResolutions()) AddSizeInFormats(&e, formats, s, kFromAlignedList);
  for (const Size& s : hints.sizes) AddSizeInFormats(&e, formats, s, kFromName);
  if (!torn) ScanLayouts(&e, formats, maxFrame);
  return e;
}

std::vector<Layout> GroupIntoLayouts(const Enumeration& e, std::vector<IdentifyCandidate>* out) {
  std::map<MemberKey, size_t> index;
  std::vector<Layout> layouts;
  for (const auto& [key, m] : e.members) {
    const Size top = LayoutSize(m.format, m.size);
    const MemberKey layoutKey{m.format, top.width, top.height};
    auto [it, added] = index.try_emplace(layoutKey, layouts.size());
    if (added) {
      Layout layout;
      layout.format = m.format;
      layout.size = top;
      layout.frameBytes = pelcast_zpak_frame_size(m.format, top.width, top.height);
      layout.frames = e.fileBytes / layout.frameBytes;
      layouts.push_back(std::move(layout));
    }
    Layout& layout = layouts[it->second];
    IdentifyCandidate c;
    c.format = m.format;
    c.width = m.size.width;
    c.height = m.size.height;
    c.frames = layout.frames;
    c.frameBytes = layout.frameBytes;
    c.sources = m.sources;
    c.layoutWidth = top.width;
    c.layoutHeight = top.height;
    layout.members.push_back(out->size());
    out->push_back(c);
  }
  return layouts;
}

// Adds the size where the zero padding starts as a candidate of its own,
// when the layout holds it and no candidate has it yet.
void AddPaddingSize(Layout* layout, std::vector<IdentifyCandidate>* candidates) {
  const Size end = layout->contentEnd;
  if (end.width == 0 || (end.width == layout->size.width && end.height == layout->size.height)) {
    return;
  }
  if (Rgb565Unsupported(layout->format, end.width)) return;
  if (pelcast_zpak_frame_size(layout->format, end.width, end.height) != layout->frameBytes) return;
  const Size top = LayoutSize(layout->format, end);
  if (!(top == layout->size)) return;
  for (size_t i : layout->members) {
    if ((*candidates)[i].width == end.width && (*candidates)[i].height == end.height) return;
  }
  IdentifyCandidate c = (*candidates)[layout->members.front()];
  c.width = end.width;
  c.height = end.height;
  c.sources = kFromScan;
  layout->members.push_back(candidates->size());
  candidates->push_back(c);
}

// What the evaluation of the layouts needs besides them.
struct Evaluation {
  std::vector<IdentifyCandidate>* candidates;
  Prefix* prefix;
  const NameHints* hints;
  const IdentifyOptions* options;
  bool torn;
  double best = 0;  // the best score so far
  size_t poorDecoded = 0;
};

double LayoutBound(const Layout& layout, const Evaluation& e, bool withData) {
  double bound = 0;
  for (size_t i : layout.members) {
    const IdentifyCandidate& c = (*e.candidates)[i];
    const double data = withData ? std::max(0.0, c.streamsFit) : 1.0;
    bound = std::max(bound, data * PriorOf(c, *e.hints, e.torn));
  }
  return bound;
}

void DecodeForContinuity(Layout* layout, Evaluation* e, bool promising) {
  const uint32_t threads = e->options->threads;
  if (!promising && e->poorDecoded >= kMostPoorDecoded) return;
  if (!DecodeLayout(layout, e->prefix->data(), threads)) return;
  if (!promising) ++e->poorDecoded;
  ReadSecondFrame(layout, e->prefix, threads);
  AddPaddingSize(layout, e->candidates);
  for (size_t i : layout->members) {
    IdentifyCandidate& c = (*e->candidates)[i];
    ApplyTileEvidence(*layout, &c);
    c.continuity = Continuity(*layout, {c.width, c.height});
    c.padding = PaddingFitOf(*layout, {c.width, c.height});
  }
  layout->picture = {};
  layout->picture.shrink_to_fit();
}

void ExamineLayout(Layout* layout, Evaluation* e) {
  layout->examined = true;
  if (layout->frameBytes <= e->options->maxFrameBytes) {
    ReadLayoutTiles(layout, e->prefix, e->options->threads);
  }
  for (size_t i : layout->members) ApplyTileEvidence(*layout, &(*e->candidates)[i]);
  const double bound = LayoutBound(*layout, *e, true);
  if (layout->read && (e->options->examineAll || bound > e->best)) {
    DecodeForContinuity(layout, e, bound >= kPromisingFit);
  }
  for (size_t i : layout->members) {
    IdentifyCandidate& c = (*e->candidates)[i];
    c.score = ScoreOf(c, *e->hints, e->torn);
    e->best = std::max(e->best, c.score);
  }
}

// Examines the layouts, most promising first, and returns how many were
// left out because they could not have beaten the best.
size_t EvaluateLayouts(std::vector<Layout>* layouts, Evaluation* e) {
  std::vector<Layout*> order;
  for (Layout& layout : *layouts) {
    layout.bound = LayoutBound(layout, *e, false);
    order.push_back(&layout);
  }
  std::stable_sort(order.begin(), order.end(), [](const Layout* a, const Layout* b) {
    if (a->bound != b->bound) return a->bound > b->bound;
    return a->frameBytes < b->frameBytes;
  });
  size_t skipped = 0;
  for (Layout* layout : order) {
    if (!e->options->examineAll && layout->bound <= e->best) {
      ++skipped;
      continue;
    }
    ExamineLayout(layout, e);
  }
  return skipped;
}

// The candidates of examined layouts.
std::vector<IdentifyCandidate> ExaminedCandidates(const std::vector<Layout>& layouts,
                                                  const std::vector<IdentifyCandidate>& all) {
  std::vector<IdentifyCandidate> kept;
  for (const Layout& layout : layouts) {
    if (!layout.examined) continue;
    for (size_t i : layout.members) kept.push_back(all[i]);
  }
  return kept;
}

IdentifyResult Run(Prefix* prefix, uint64_t fileBytes, std::string_view fileName,
                   const IdentifyOptions& options) {
  IdentifyResult result;
  result.file = std::string(fileName);
  result.bytes = fileBytes;
  const NameHints hints = ParseNameHints(fileName);
  const std::vector<pelcast_format> formats = FormatsToTry(options);
  Enumeration en = Enumerate(fileBytes, hints, formats, options.maxFrameBytes, false);
  if (en.members.empty() && fileBytes > 0) {
    en = Enumerate(fileBytes, hints, formats, options.maxFrameBytes, true);
  }
  std::vector<IdentifyCandidate> all;
  std::vector<Layout> layouts = GroupIntoLayouts(en, &all);
  Evaluation e{&all, prefix, &hints, &options, en.torn};
  const size_t skipped = EvaluateLayouts(&layouts, &e);
  result.candidates = ExaminedCandidates(layouts, all);
  std::sort(result.candidates.begin(), result.candidates.end(), BetterCandidate);
  result.notes = MakeNotes(result, hints, formats, en.torn);
  if (skipped > 0) {
    result.notes.push_back(std::to_string(skipped) + " more surface layout" +
                           (skipped == 1 ? " fits" : "s fit") +
                           " the file's size but could not score above the best candidate "
                           "even with perfect data, and " + (skipped == 1 ? "was" : "were") +
                           " not examined.");
  }
  return result;
}

// --- JSON --------------------------------------------------------------------

const char* PaddingWord(PaddingFit fit) {
  switch (fit) {
    case PaddingFit::kExact:
      return "exact";
    case PaddingFit::kZeroStrip:
      return "zero strip";
    case PaddingFit::kCropsContent:
      return "crops content";
    default:
      return "unknown";
  }
}

std::string CandidateJson(const IdentifyCandidate& c) {
  std::string out = "{\"format\": \"" + std::string(IdentifyFormatName(c.format)) +
                    "\", \"width\": " + std::to_string(c.width) +
                    ", \"height\": " + std::to_string(c.height) +
                    ", \"frames\": " + std::to_string(c.frames) +
                    ", \"score\": " + Fixed(c.score, 4) +
                    ", \"frame_bytes\": " + std::to_string(c.frameBytes) +
                    ", \"legal_metadata\": " + Fixed(c.legalMetadata, 4) +
                    ", \"streams_fit\": " +
                    (c.streamsFit >= 0 ? Fixed(c.streamsFit, 4) : std::string("null")) +
                    ", \"continuity\": " +
                    (c.continuity >= 0 ? Fixed(c.continuity, 4) : std::string("null")) +
                    ", \"padding\": \"" + PaddingWord(c.padding) + "\", \"from\": \"" +
                    SourceWords(c.sources) + "\"}";
  return out;
}

}  // namespace

const char* IdentifyFormatName(pelcast_format format) {
  switch (format) {
    case PELCAST_FORMAT_NV12:
      return "nv12";
    case PELCAST_FORMAT_RGBA8888:
      return "rgba8888";
    case PELCAST_FORMAT_RGB565:
      return "rgb565";
    default:
      return "?";
  }
}

std::string SourceWords(uint32_t sources) {
  std::string words;
  for (const auto& [bit, word] :
       {std::pair{kFromName, "name"}, std::pair{kFromList, "list"},
        std::pair{kFromAlignedList, "aligned list"}, std::pair{kFromScan, "scan"}}) {
    if ((sources & bit) != 0) words += (words.empty() ? "" : ", ") + std::string(word);
  }
  return words;
}

const std::vector<Size>& CommonResolutions() {
  static const std::vector<Size> sizes = BothOrientations(kLandscape);
  return sizes;
}

const std::vector<Size>& AlignedResolutions() {
  static const std::vector<Size> sizes = BothOrientations(kAlignedLandscape);
  return sizes;
}

NameHints ParseNameHints(std::string_view fileName) {
  NameHints hints;
  const std::string name = LowerBaseName(fileName);
  FindNumericSizes(name, &hints.sizes);
  for (const NamedSize& n : kNamedSizes) {
    if (HasWord(name, n.word)) AddSize(n.size, &hints.sizes);
  }
  for (const FormatWord& f : kFormatWords) {
    if (!HasWord(name, f.word)) continue;
    if (std::find(hints.formats.begin(), hints.formats.end(), f.format) == hints.formats.end()) {
      hints.formats.push_back(f.format);
    }
  }
  return hints;
}

IdentifyResult Identify(const ReadAt& read, uint64_t fileBytes, std::string_view fileName,
                        const IdentifyOptions& options) {
  Prefix prefix(read, fileBytes);
  return Run(&prefix, fileBytes, fileName, options);
}

IdentifyResult IdentifyBuffer(const uint8_t* data, size_t size, std::string_view fileName,
                              const IdentifyOptions& options) {
  Prefix prefix(data, size);
  return Run(&prefix, size, fileName, options);
}

std::string IdentifyJson(const IdentifyResult& result) {
  std::string out = "{\"file\": " + JsonQuote(result.file) +
                    ", \"bytes\": " + std::to_string(result.bytes) + ", \"candidates\": [";
  for (size_t i = 0; i < result.candidates.size(); ++i) {
    out += (i == 0 ? "\n  " : ",\n  ") + CandidateJson(result.candidates[i]);
  }
  out += result.candidates.empty() ? "], \"notes\": [" : "\n], \"notes\": [";
  for (size_t i = 0; i < result.notes.size(); ++i) {
    out += (i == 0 ? "\n  " : ",\n  ") + JsonQuote(result.notes[i]);
  }
  out += result.notes.empty() ? "]}\n" : "\n]}\n";
  return out;
}

}  // namespace pelcast::zpak
