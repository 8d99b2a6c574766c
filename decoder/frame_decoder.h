// Whole ZPAK frames back to linear images.
#pragma once

#include <cstdint>

#include "decoder/tile_kernels.h"
#include "surface/tile_band.h"
#include "surface/zpak_context.h"

namespace pelcast {

// Decodes one RGBA8888 or NV12 frame described by `config` (surfaceFormat 3
// or 1). Returns 0 when enable is 0, otherwise the output row pitch (RGBA8888)
// or config->stride.
uint64_t DecodeZpakFrame(ZpakContext* context, const ZpakConfig* config);

// Decodes one RGB565 frame (half tiles of 16 x 4 pixels, two per slot).
uint64_t DecodeZpakFrameRgb565(ZpakContext* context, const ZpakConfig* config);

// Decode only the band's tile rows into config->linearY, which then holds
// just their linear rows, the same bytes at the same pitch as the
// whole-frame decoders give those rows. A command decodes a frame band by
// band into a small buffer it writes out after each band, so the frame never
// has to sit in memory whole. Decoding every band of every plane in order
// leaves the context as the whole-frame decoder does.
uint64_t DecodeZpakFrameBand(ZpakContext* context, const ZpakConfig* config,
                             const TileRowBand& band);
uint64_t DecodeZpakFrameRgb565Band(ZpakContext* context, const ZpakConfig* config,
                                   const TileRowBand& band);

// A command that reads a frame piece by piece loads, for a band,
// the first `metaBytes` of the band plane's metadata plane (where the
// descriptor places it) and bytes [dataFirst, dataEnd) of its data plane (at
// `data`): every byte the band's tiles are fetched from. Bytes past the frame's end still read zero.
struct BandWindow {
  uint64_t dataFirst;
  uint64_t dataEnd;
  uint64_t metaBytes;
  const uint8_t* data;
};

// Fills the data range of `window` for a band of the RGBA8888 or NV12 frame
// `config` describes; false when the band reads metadata at or past
// `metaBytes` (the frame must then be loaded whole).
bool ZpakBandWindow(ZpakContext* context, const ZpakConfig& config, const TileRowBand& band,
                        uint64_t metaBytes, BandWindow* window);

// DecodeZpakFrameBand for a frame loaded as `window` says; the same bytes
// as from the whole frame.
uint64_t DecodeZpakFrameBandFromWindow(ZpakContext* context, const ZpakConfig* config,
                                       const TileRowBand& band, const BandWindow& window);

// The same for RGB565 frames.
bool ZpakRgb565BandWindow(ZpakContext* context, const ZpakConfig& config, const TileRowBand& band,
                          uint64_t metaBytes, BandWindow* window);
uint64_t DecodeZpakFrameRgb565BandFromWindow(ZpakContext* context, const ZpakConfig* config,
                                             const TileRowBand& band, const BandWindow& window);

// Tile rows of a plane of the RGBA8888 or NV12 frame `config` describes (0
// for planes it does not have), and of an RGB565 frame.
uint64_t ZpakPlaneTileRows(const ZpakConfig& config, uint64_t plane);
uint64_t ZpakRgb565TileRows(const ZpakConfig& config);

// The same decoders with a chosen table of tile kernels (the functions above
// use ActiveTileDecodeKernels()), or with the general tile decoder for every
// tile when `kernels` is null. Every table writes the same bytes and leaves
// the context as the general decoder does.
uint64_t DecodeZpakFrameWithKernels(ZpakContext* context, const ZpakConfig* config,
                                    const TileDecodeKernels* kernels);
uint64_t DecodeZpakFrameRgb565WithKernels(ZpakContext* context, const ZpakConfig* config,
                                          const TileDecodeKernels* kernels);
uint64_t DecodeZpakFrameBandWithKernels(ZpakContext* context, const ZpakConfig* config,
                                        const TileRowBand& band, const TileDecodeKernels* kernels);
uint64_t DecodeZpakFrameRgb565BandWithKernels(ZpakContext* context, const ZpakConfig* config,
                                              const TileRowBand& band,
                                              const TileDecodeKernels* kernels);

}  // namespace pelcast
