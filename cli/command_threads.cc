#include "cli/command_threads.h"

#include <algorithm>
#include <cstdlib>

#include "api/worker_pool.h"
#include "pelcast/pelcast.h"

namespace pelcast {

ThreadSetting ParseThreadSetting(const char* text, uint32_t processors) {
  const ThreadSetting automatic{std::clamp<uint32_t>(processors, 1, PELCAST_MAX_THREADS), false};
  if (text == nullptr || *text == '\0') return automatic;
  uint64_t value = 0;
  for (const char* c = text; *c != '\0'; ++c) {
    if (*c < '0' || *c > '9') return automatic;
    // Saturates: every count above the limit means the limit.
    value = std::min<uint64_t>(value * 10 + static_cast<uint64_t>(*c - '0'), PELCAST_MAX_THREADS);
  }
  if (value == 0) return automatic;
  return ThreadSetting{static_cast<uint32_t>(value), true};
}

ThreadSetting CommandThreadSetting() {
  return ParseThreadSetting(std::getenv("PELCAST_THREADS"), api::AvailableProcessors());
}

uint32_t ThreadsWorthStarting(const ThreadSetting& setting, bool severalFrames,
                              uint64_t frameBytes) {
  if (setting.chosen || severalFrames || frameBytes >= kThreadedFrameBytes) return setting.threads;
  return 1;
}

}  // namespace pelcast
