// Whole ZPAK frames back to linear images.
#pragma once

#include <cstdint>

#include "decoder/tile_kernels.h"
#include "surface/zpak_context.h"

namespace pelcast {

// Decodes one RGBA8888 or NV12 frame described by `config` (surfaceFormat 3
// or 1). Returns 0 when enable is 0, otherwise the output row pitch (RGBA8888)
// or config->stride.
uint64_t DecodeZpakFrame(ZpakContext* context, const ZpakConfig* config);

// Decodes one RGB565 frame (half tiles of 16 x 4 pixels, two per slot).
uint64_t DecodeZpakFrameRgb565(ZpakContext* context, const ZpakConfig* config);

// The same decoders with a chosen tile kernel (the plain functions use the
// fastest this processor runs); every kernel writes the same bytes and leaves
// the context as the general decoder does. An unavailable vector kernel runs
// as the portable one.
uint64_t DecodeZpakFrameWithKernel(ZpakContext* context, const ZpakConfig* config,
                                   TileKernel kernel);
uint64_t DecodeZpakFrameRgb565WithKernel(ZpakContext* context, const ZpakConfig* config,
                                         TileKernel kernel);

}  // namespace pelcast
