// How many threads the codec commands (U, G, B, H, N) use, from
// PELCAST_THREADS:
//
//   n (1 to 64)       n for every frame of more than one band of tile rows;
//                     1 is the calling thread alone
//   above 64          64 (PELCAST_MAX_THREADS)
//   unset, empty, 0   one per processor the process may run on, where that
//                     pays: inputs of more than one frame (a pipe counts as
//                     one) and frames of kThreadedFrameBytes or more; a
//                     smaller single frame is done on one thread, which is
//                     faster than starting others for it
//   anything else     ignored, as if unset
//
// Only decimal digits count as a number. The output never depends on the
// count: it only decides how many of the library's worker threads share a
// frame's bands.
#pragma once

#include <cstdint>

namespace pelcast {

// Linear frames of at least this many bytes are shared out to threads even
// alone: starting a worker and handing bands over costs about 0.3 ms, which
// a frame of this size saves back.
inline constexpr uint64_t kThreadedFrameBytes = uint64_t{6} << 20;

struct ThreadSetting {
  uint32_t threads;  // at least 1
  bool chosen;       // PELCAST_THREADS named the count
};

// The setting `text` (the variable's value, null when unset) gives on a
// machine where the process may run on `processors` processors.
ThreadSetting ParseThreadSetting(const char* text, uint32_t processors);

// The setting of the environment's PELCAST_THREADS and this process's
// processors.
ThreadSetting CommandThreadSetting();

// The threads a command uses: a chosen count as it is; one per processor
// for `severalFrames` (the input may hold more than one frame) or linear
// frames of `frameBytes` >= kThreadedFrameBytes, otherwise one.
uint32_t ThreadsWorthStarting(const ThreadSetting& setting, bool severalFrames,
                              uint64_t frameBytes);

}  // namespace pelcast
