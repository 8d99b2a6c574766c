#include "rawtools/raw_commands.h"

namespace pelcast {

// Placeholders until the raw tools land.
void PlanarToNv12Command(const char*, const char*, int32_t, int32_t) {}
void Nv12ToPlanarCommand(const char*, const char*, int32_t, int32_t) {}
void CropNv12Command(const char*, const char*, int32_t, int32_t, int32_t, int32_t) {}
void DepadNv12Command(const char*, const char*, int32_t, int32_t) {}
void CopyFramesCommand(const char*, const char*, int32_t, int32_t, int32_t) {}
void PsnrCommand(const char*, const char*, int32_t, int32_t) {}
void PsnrRegionCommand(const char*, const char*, int32_t, int32_t, int32_t, int32_t) {}
void TrimStartCodeStream(const char*, const char*) {}

}  // namespace pelcast
