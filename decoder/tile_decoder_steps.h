// The steps of the tile decoder, each a routine of its own: the core that
// turns one stored tile into the staging buffer, the bitstream parser, the
// prediction of one block, the assembly of blocks into component planes and
// the packing of component samples into pixel bytes.
#pragma once

#include <cstddef>
#include <cstdint>

#include "decoder/bit_reader.h"
#include "surface/zpak_context.h"

namespace pelcast {

// Largest block, largest component plane and most groups a plane may have:
// a tile never holds more than 256 elements.
inline constexpr size_t kMaxBlockSamples = 256;
inline constexpr size_t kMaxPlaneSamples = 256;
inline constexpr size_t kMaxGroups = 256;
// Widest bit-length code (so a code used as a field width stays within
// kMaxFieldBits) and deepest component (so the colour transform's extra bit
// does too).
inline constexpr uint64_t kMaxCodeBits = 5;
inline constexpr uint64_t kMaxSampleBits = kMaxFieldBits - 1;

// Everything a compressed tile's bitstream carries.
struct TileSyntax {
  uint32_t colourFlag;       // components 0-2 go through the inverse colour transform
  uint32_t constantFlag;     // the last component is its block-0 base value everywhere
  uint32_t codedComponents;  // components with codes and residuals
  uint32_t codedBits[kMaxComponents];
  uint32_t base[kMaxBlocks][kMaxComponents];
  uint8_t codes[kMaxBlocks][kMaxComponents][kMaxGroups];
  uint32_t residuals[kMaxBlocks][kMaxComponents][kMaxBlockSamples];  // raster order of the block
};

// The decoded samples of every component of one tile, row-major with
// planeWidth samples to a row. Kept signed and unbounded until packing.
struct ComponentPlanes {
  int64_t samples[kMaxComponents][kMaxPlaneSamples];
};

// True when the plane's block, group, packing and staging geometry fits the
// decoder's fixed buffers and covers every sample it packs. Every configured
// plane passes; a parameter set that does not is decoded like one with bad
// counts (nothing is staged).
bool PlaneShapeIsSupported(const PlaneCodecParams& plane);

// Reads the header, base values, bit-length codes and residuals.
void ParseTileBitstream(const PlaneCodecParams& plane, TileBitReader* reader, TileSyntax* syntax);

// Rebuilds one component of one block from its base value, group codes and
// residuals into `out` (blockHeight rows of blockWidth samples, `pitch`
// samples apart).
void ReconstructBlock(const PlaneCodecParams& plane, const ComponentCodecParams& component,
                      uint32_t base, const uint8_t* codes, const uint32_t* residuals, int64_t* out,
                      uint64_t pitch);

// Places every coded block in its component plane, fills a constant last
// component and applies the inverse colour transform where the tile asks.
void AssembleBlocks(const PlaneCodecParams& plane, const TileSyntax& syntax,
                    ComponentPlanes* planes);

// Packs the component planes into a raster tile of tileRowBytes per row.
void PackSamples(const PlaneCodecParams& plane, const ComponentPlanes& planes, uint8_t* packed);

// Decodes one stored tile of the plane selected by the context's planeIndex
// into `staging` in micro-block order. `tileBits` is the stored length in
// bits (units shifted by unitShift); a length equal to rawTileBits means a raw
// tile. Returns 0 without touching `staging` for bad parameter counts,
// unsupported shapes or null pointers, 1 otherwise.
int64_t DecodeTileCore(ZpakContext* context, const uint8_t* stored, int64_t tileBits,
                       uint8_t* staging);

}  // namespace pelcast
