// verify: a frame as hardware wrote it, tile by tile. Every tile's metadata
// byte must be one an encoder writes for its plane and its stream must
// decode inside its stored units; a tile stored raw that the library's
// encoder fits in fewer units is reported too (valid, but wasted bandwidth).
// The units the library's encoder needs for the same content, summed, say
// what a better encoder would save. With a reference picture, the decoded
// frame must equal it, and the first tiles that differ are listed.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "pelcast/pelcast.h"
#include "tools/zpak/codec_support.h"
#include "tools/zpak/formats.h"

namespace pelcast::zpak {

enum class ProblemKind : uint8_t { kBadMetadata, kOverrun, kRawButCompressible };

struct TileProblem {
  uint32_t plane;
  uint32_t column;
  uint32_t row;
  ProblemKind kind;
  uint8_t metadata;
  uint8_t units;         // as stored (bad metadata: 0)
  uint8_t bestUnits;     // the library's encoder
  uint16_t streamBits;
};

struct TilePlace {
  uint32_t plane;
  uint32_t column;
  uint32_t row;
};

struct FrameVerdict {
  uint64_t frame = 0;
  uint64_t tiles = 0;
  uint64_t invalidTiles = 0;  // bad metadata or overrun
  std::vector<TileProblem> problems;  // in plane, row, column order
  uint64_t units = 0;         // a bad-metadata tile counts as a raw one
  uint64_t bestUnits = 0;
  bool referenceChecked = false;
  uint64_t differingTiles = 0;
  std::vector<TilePlace> firstDiffering;  // at most kListedDifferences
};

inline constexpr size_t kListedDifferences = 16;

// The reason of a problem, for a person: "metadata 42 is not a unit count
// (19, 23, 27 or 31)", ...
std::string ProblemReason(const TileProblem& problem, pelcast_format format);
// "bad metadata", "overrun", "raw but compressible".
const char* ProblemKindName(ProblemKind kind);

class Verifier {
 public:
  // False with a message when the size is refused or memory is short.
  bool Open(pelcast_format format, uint32_t width, uint32_t height, uint32_t threads,
            std::string* error);

  // Verifies one ZPAK frame (frame size bytes); `reference` is a packed
  // linear frame to compare with, or null.
  bool Verify(const uint8_t* zpak, const uint8_t* reference, FrameVerdict* verdict);

 private:
  void CheckTiles(FrameVerdict* verdict);
  void CompareWithReference(const uint8_t* reference, FrameVerdict* verdict);

  pelcast_format format_ = PELCAST_FORMAT_NV12;
  uint32_t width_ = 0;
  uint32_t height_ = 0;
  size_t frameBytes_ = 0;
  Codec codec_;
  std::vector<PlaneView> planes_;
  std::vector<uint8_t> decoded_;
  std::vector<uint8_t> reencoded_;
  std::vector<std::vector<pelcast_tile_info>> stored_;
  std::vector<std::vector<pelcast_tile_info>> best_;
  std::vector<pelcast_tile_grid> grids_;
};

}  // namespace pelcast::zpak
