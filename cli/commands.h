// The command routines the dispatcher selects, one per command letter. Each
// opens its own files, prints its own progress and messages to standard
// output, releases everything it obtained and returns nothing.
#pragma once

#include <cstdint>

namespace pelcast {

// The five-line usage text printed by the dispatcher and after command failures.
void PrintUsage();

// U, G, B: ZPAK frames to linear NV12, RGBA8888 and RGB565.
void DecodeNv12Command(const char* input, const char* output, int32_t width, int32_t height);
void DecodeRgba8888Command(const char* input, const char* output, int32_t width, int32_t height);
void DecodeRgb565Command(const char* input, const char* output, int32_t width, int32_t height);

// H, N: linear RGBA8888 and NV12 to ZPAK frames.
void EncodeRgba8888Command(const char* input, const char* output, int32_t width, int32_t height);
void EncodeNv12Command(const char* input, const char* output, int32_t width, int32_t height);

}  // namespace pelcast
