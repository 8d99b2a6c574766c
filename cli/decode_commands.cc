#include <cstdio>

#include "cli/commands.h"

namespace pelcast {

// Placeholders until the decoder lands.
void DecodeNv12Command(const char*, const char*, int32_t, int32_t) {}
void DecodeRgba8888Command(const char*, const char*, int32_t, int32_t) {}
void DecodeRgb565Command(const char*, const char*, int32_t, int32_t) {}

}  // namespace pelcast
