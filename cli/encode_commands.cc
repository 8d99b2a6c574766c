#include <cstdio>

#include "cli/commands.h"

namespace pelcast {

// Placeholders until the encoder lands.
void EncodeRgba8888Command(const char*, const char*, int32_t, int32_t) {}
void EncodeNv12Command(const char*, const char*, int32_t, int32_t) {}

}  // namespace pelcast
