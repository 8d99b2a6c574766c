// Which formats and sizes fit a file of ZPAK frames whose size is unknown.
//
// Candidates are every format and size whose frame size divides the file's
// size: a list of common display, camera and video resolutions, the sizes
// the file name names, and a scan over every surface layout. Each is scored
// by evidence in the first frame (or two): the share of tiles whose metadata
// byte is a legal unit count, the share whose streams decode inside their
// units, and how well the decoded picture joins up across tile borders (a
// wrong width shuffles tiles; a wrong height misplaces the chroma plane).
// Sizes that share one surface layout (1920x1080 and 1920x1088) decode to the
// same tiles; the zero padding an encoder leaves past the picture, the file
// name and the list of common resolutions decide between them, and a note
// says which one was preferred and why.
//
// Self-contained: the C++ standard library and the public C API only; no
// printing and no file access (the caller passes a reader), so it builds for
// any target the library builds for.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "pelcast/pelcast.h"

namespace pelcast::zpak {

// Reads up to `count` bytes at `offset` of the file into `out` and returns how
// many it read (fewer only at the end of the file or after an error).
using ReadAt = std::function<size_t(uint64_t offset, size_t count, uint8_t* out)>;

// Where a candidate's size came from (bits).
inline constexpr uint32_t kFromList = 1;  // the list of common resolutions
inline constexpr uint32_t kFromName = 2;  // named in the file name
inline constexpr uint32_t kFromScan = 4;  // found by the scan over surface layouts
inline constexpr uint32_t kFromAlignedList = 8;  // video sizes with 16-aligned heights

// What the zero padding past the picture says about a candidate's size.
enum class PaddingFit : uint8_t {
  kUnknown,       // no zero margin in the surface: no evidence
  kExact,         // the picture ends exactly where the zero padding starts
  kZeroStrip,     // the candidate takes in zero padding as picture
  kCropsContent,  // the candidate leaves out content before the padding
};

struct IdentifyCandidate {
  pelcast_format format = PELCAST_FORMAT_NV12;
  uint32_t width = 0;
  uint32_t height = 0;
  uint64_t frames = 0;
  uint64_t frameBytes = 0;
  double score = 0;
  double legalMetadata = 0;  // share of tiles with a legal metadata byte
  double streamsFit = 0;     // share of tiles legal and inside their units; -1: not read
  double continuity = -1;    // 0..1; -1 when the frame was not decoded
  uint32_t sources = 0;      // kFrom* bits
  PaddingFit padding = PaddingFit::kUnknown;
  // The largest size of the same surface layout, whose tiles were decoded.
  uint32_t layoutWidth = 0;
  uint32_t layoutHeight = 0;
};

struct IdentifyOptions {
  // Only this format; 0 for all three.
  uint32_t onlyFormat = 0;
  // Codec threads for decoding (0: one per processor).
  uint32_t threads = 0;
  // Frames of candidates larger than this are not read (their score is 0).
  uint64_t maxFrameBytes = uint64_t{1} << 30;
  // Examine every surface layout, even those that cannot beat the best.
  bool examineAll = false;
};

struct IdentifyResult {
  std::string file;
  uint64_t bytes = 0;
  std::vector<IdentifyCandidate> candidates;  // best first
  std::vector<std::string> notes;             // sentences for a person
};

// Identifies the file of `fileBytes` bytes that `read` reads. `fileName`
// gives hints only (a path is fine; only its last component is used).
IdentifyResult Identify(const ReadAt& read, uint64_t fileBytes, std::string_view fileName,
                        const IdentifyOptions& options);

// The same for a file held in memory.
IdentifyResult IdentifyBuffer(const uint8_t* data, size_t size, std::string_view fileName,
                              const IdentifyOptions& options);

// {"file": ..., "bytes": N, "candidates": [{"format": "nv12", "width": 1920,
// "height": 1080, "frames": 2, "score": 0.97, ...}, ...], "notes": [...]}.
std::string IdentifyJson(const IdentifyResult& result);

// Sizes and formats a file name names: "1920x1080", "1080p", "4k",
// "w1920_h1080", "nv12", "rgba", "rgb565", ...
struct Size {
  uint32_t width;
  uint32_t height;
  friend bool operator==(const Size&, const Size&) = default;
};
struct NameHints {
  std::vector<Size> sizes;
  std::vector<pelcast_format> formats;
};
NameHints ParseNameHints(std::string_view fileName);

// The common resolutions, landscape and portrait, and the video sizes
// rounded up to whole blocks as decoders allocate them (1920x1088, ...).
const std::vector<Size>& CommonResolutions();
const std::vector<Size>& AlignedResolutions();

// "nv12", "rgba8888", "rgb565"; "?" for anything else.
const char* IdentifyFormatName(pelcast_format format);

// The candidate's sources as words: "name", "list", "aligned list", "scan",
// joined by ", ".
std::string SourceWords(uint32_t sources);

}  // namespace pelcast::zpak
