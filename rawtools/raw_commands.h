// The raw 4:2:0 utilities: layout reshuffles, crop, de-pad, frame copy and the
// PSNR comparisons. Independent of the ZPAK codec.
#pragma once

#include <cstdint>

namespace pelcast {

void PlanarToNv12Command(const char* input, const char* output, int32_t width, int32_t height);  // P
void Nv12ToPlanarCommand(const char* input, const char* output, int32_t width, int32_t height);  // I
void CropNv12Command(const char* input, const char* output, int32_t width, int32_t height,
                     int32_t cropWidth, int32_t cropHeight);                                     // C
void DepadNv12Command(const char* input, const char* output, int32_t width, int32_t height);    // E
void CopyFramesCommand(const char* input, const char* output, int32_t width, int32_t height,
                       int32_t frameCount);                                                      // T
void PsnrCommand(const char* first, const char* second, int32_t width, int32_t height);         // S
void PsnrRegionCommand(const char* first, const char* second, int32_t width1, int32_t height1,
                       int32_t width2, int32_t height2);                                         // R

// Splits a stream at its 00 00 00 01 start codes and drops the zero bytes
// before each start code. No command letter reaches it.
void TrimStartCodeStream(const char* input, const char* output);

}  // namespace pelcast
