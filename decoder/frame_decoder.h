// Whole ZPAK frames back to linear images.
#pragma once

#include <cstdint>

#include "surface/zpak_context.h"

namespace pelcast {

// Decodes one RGBA8888 or NV12 frame described by `config` (surfaceFormat 3
// or 1). Returns 0 when enable is 0, otherwise the output row pitch (RGBA8888)
// or config->stride.
uint64_t DecodeZpakFrame(ZpakContext* context, const ZpakConfig* config);

// Decodes one RGB565 frame (half tiles of 16 x 4 pixels, two per slot).
uint64_t DecodeZpakFrameRgb565(ZpakContext* context, const ZpakConfig* config);

}  // namespace pelcast
