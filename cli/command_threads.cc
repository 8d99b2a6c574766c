#include "cli/command_threads.h"

#include <algorithm>
#include <cstdlib>

#include "api/worker_pool.h"
#include "pelcast/pelcast.h"

namespace pelcast {

uint32_t ThreadCountSetting(const char* text, uint32_t processors) {
  const uint32_t byProcessors = std::clamp<uint32_t>(processors, 1, PELCAST_MAX_THREADS);
  if (text == nullptr || *text == '\0') return byProcessors;
  uint64_t value = 0;
  for (const char* c = text; *c != '\0'; ++c) {
    if (*c < '0' || *c > '9') return byProcessors;
    // Saturates: every count above the limit means the limit.
    value = std::min<uint64_t>(value * 10 + static_cast<uint64_t>(*c - '0'), PELCAST_MAX_THREADS);
  }
  return value == 0 ? byProcessors : static_cast<uint32_t>(value);
}

uint32_t CommandThreads() {
  return ThreadCountSetting(std::getenv("PELCAST_THREADS"), api::AvailableProcessors());
}

}  // namespace pelcast
