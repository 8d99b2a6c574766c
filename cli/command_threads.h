// How many threads the codec commands (U, G, B, H, N) use, from
// PELCAST_THREADS:
//
//   unset, empty, 0   one per processor the process may run on
//   n (1 to 64)       n; 1 is the calling thread alone
//   above 64          64 (PELCAST_MAX_THREADS)
//   anything else     ignored, as if unset
//
// Only decimal digits count as a number. The output never depends on the
// count: it only decides how many of the library's worker threads share a
// frame's bands.
#pragma once

#include <cstdint>

namespace pelcast {

// The thread count `text` (the variable's value, null when unset) asks for
// on a machine where the process may run on `processors` processors.
uint32_t ThreadCountSetting(const char* text, uint32_t processors);

// ThreadCountSetting of the environment's PELCAST_THREADS and this
// process's processors.
uint32_t CommandThreads();

}  // namespace pelcast
