// DecodeTile on any stored bytes with any metadata byte, for every plane kind
// a context can be configured for, including the codes no command uses and
// (format, plane) pairs that have no output layout.
//
// Input: byte 0 picks the plane kind, byte 1 is the metadata byte, the rest
// (zero-padded or cut to 256 bytes) is the staged tile.
//
// Checked beyond memory safety: a pair without a layout returns -1 and leaves
// the output alone; every other pair returns 1 and writes exactly its tile
// (the output block is sized to it); a metadata byte that means "raw" yields
// the stored bytes moved from micro-block to raster order; and decoding is a
// function of its input (a second decode gives the same tile).
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <vector>

#include "decoder/tile_decoder.h"
#include "fuzz/fuzz_support.h"
#include "surface/zpak_context.h"

namespace pelcast::fuzz {
namespace {

constexpr size_t kStagedBytes = 256;

// A plane the tile decoder may be asked for. `elementBytes` and `rowElements`
// give its output layout (0 when it has none); `rawMetadata` lists the
// metadata bytes whose unit count equals the raw tile size.
struct PlaneKind {
  uint64_t contextFormat;
  uint64_t planeIndex;
  size_t elementBytes;
  size_t rowElements;
  size_t rows;
  bool hasRawForm;      // the context carries parameters with a raw tile size
  uint32_t rawUnits;    // units of a raw tile
};

// (meta - 15) >> 2 units; RGB565 also reads 31 as two units.
constexpr PlaneKind kKinds[] = {
    {0, 0, 4, 16, 4, true, 4},   // RGBA8888
    {1, 0, 1, 32, 8, true, 4},   // NV12 luma
    {1, 1, 2, 16, 8, true, 4},   // NV12 chroma pairs
    {12, 0, 2, 16, 4, true, 2},  // RGB565 half tile
    {3, 0, 2, 32, 4, true, 4},   // single plane, 2-byte elements
    {5, 0, 4, 16, 4, true, 4},   // single plane, no colour transform
    {6, 0, 4, 16, 4, false, 0},  // common parameters only
    {0, 1, 4, 16, 4, false, 0},  // RGBA8888 context asked for an unconfigured plane
    {2, 0, 0, 0, 0, false, 0},   // two-plane code without a layout
    {4, 1, 0, 0, 0, false, 0},
    {7, 0, 0, 0, 0, false, 0},
    {13, 0, 0, 0, 0, false, 0},
    {1, 2, 0, 0, 0, false, 0},   // NV12 has no third plane
    {1, 7, 0, 0, 0, false, 0},
};
constexpr size_t kKindCount = sizeof kKinds / sizeof kKinds[0];

// One configured context per kind, made once: configuration is not what is
// being fuzzed, and the decoder keeps nothing but scratch between tiles.
ZpakContext* ContextFor(size_t kind) {
  static ZpakContext* contexts[kKindCount] = {};
  if (contexts[kind] == nullptr) {
    contexts[kind] = AllocateZpakContext();
    if (contexts[kind] == nullptr) Fail("context allocation");
    ConfigureZpakContext(contexts[kind], kKinds[kind].contextFormat);
  }
  ZpakContext* context = contexts[kind];
  context->contextFormat = kKinds[kind].contextFormat;
  context->planeIndex = kKinds[kind].planeIndex;
  return context;
}

bool MeansRawTile(const PlaneKind& kind, uint32_t meta) {
  if (!kind.hasRawForm) return false;
  if (kind.contextFormat == kContextRgb565 && meta == 31) return true;
  return meta >= 15 && ((meta - 15) >> 2) == kind.rawUnits;
}

}  // namespace
}  // namespace pelcast::fuzz

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace pelcast;
  using namespace pelcast::fuzz;
  InputReader in(data, size);
  const size_t kindIndex = in.Byte() % kKindCount;
  const PlaneKind& kind = kKinds[kindIndex];
  const uint32_t meta = in.Byte();

  ExactBuffer stored(kStagedBytes);
  std::memcpy(stored.data(), in.Rest(), std::min(in.RestSize(), kStagedBytes));

  ZpakContext* context = ContextFor(kindIndex);
  const size_t tileBytes = kind.elementBytes * kind.rowElements * kind.rows;
  if (tileBytes == 0) {
    constexpr uint8_t kUntouched = 0xA5;
    ExactBuffer output(kStagedBytes, kUntouched);
    Check(DecodeTile(context, stored.data(), meta, output.data()) == -1, "no layout gives -1");
    for (size_t i = 0; i < output.size(); ++i) Check(output.data()[i] == kUntouched, "no layout writes nothing");
    return 0;
  }

  ExactBuffer output(tileBytes);
  Check(DecodeTile(context, stored.data(), meta, output.data()) == 1, "a layout gives 1");
  const std::vector<uint8_t> first(output.data(), output.data() + tileBytes);

  if (MeansRawTile(kind, meta)) {
    const std::vector<uint8_t> expected =
        MicroBlocksToRaster(stored.data(), kind.elementBytes, kind.rowElements, kind.rows);
    Check(first == expected, "a raw tile is its stored bytes in raster order");
  }

  std::memset(output.data(), 0, tileBytes);
  DecodeTile(context, stored.data(), meta, output.data());
  Check(std::memcmp(output.data(), first.data(), tileBytes) == 0, "decoding is repeatable");
  return 0;
}
