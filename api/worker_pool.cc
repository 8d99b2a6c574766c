#include "api/worker_pool.h"

#include <exception>

#if defined(__linux__)
#include <sched.h>
#endif

namespace pelcast::api {
namespace {

void TakeJobs(WorkerPool* pool, uint32_t worker) {
  for (;;) {
    const uint64_t index = pool->next.fetch_add(1, std::memory_order_relaxed);
    if (index >= pool->jobCount) return;
    pool->job(pool->argument, worker, index);
  }
}

// `seen` is the run the pool was at when the worker started: a pool started
// again after a stop keeps counting runs, and a worker that took the count
// of 0 for its own would join a run that is over.
void WorkerLoop(WorkerPool* pool, uint32_t worker, uint64_t seen) {
  for (;;) {
    {
      std::unique_lock<std::mutex> lock(pool->mutex);
      pool->wake.wait(lock, [&] { return pool->stopping || pool->generation != seen; });
      if (pool->stopping) return;
      seen = pool->generation;
    }
    TakeJobs(pool, worker);
    std::lock_guard<std::mutex> lock(pool->mutex);
    if (--pool->busy == 0) pool->idle.notify_one();
  }
}

}  // namespace

uint32_t StartWorkers(WorkerPool* pool, uint32_t workers) {
  try {
    pool->threads.reserve(workers);
    for (uint32_t i = 0; i < workers; ++i) {
      pool->threads.emplace_back(WorkerLoop, pool, i + 1, pool->generation);
    }
  } catch (const std::exception&) {
    // Threads the system would not start: the others share the work.
  }
  return static_cast<uint32_t>(pool->threads.size());
}

void StopWorkers(WorkerPool* pool) {
  {
    std::lock_guard<std::mutex> lock(pool->mutex);
    pool->stopping = true;
  }
  pool->wake.notify_all();
  for (std::thread& thread : pool->threads) thread.join();
  pool->threads.clear();
  pool->stopping = false;
}

void RunJobs(WorkerPool* pool, uint64_t count, PoolJob job, void* argument) {
  if (pool->threads.empty() || count <= 1) {
    for (uint64_t i = 0; i < count; ++i) job(argument, 0, i);
    return;
  }
  {
    std::lock_guard<std::mutex> lock(pool->mutex);
    pool->job = job;
    pool->argument = argument;
    pool->jobCount = count;
    pool->next.store(0, std::memory_order_relaxed);
    pool->busy = static_cast<uint32_t>(pool->threads.size());
    ++pool->generation;
  }
  pool->wake.notify_all();
  TakeJobs(pool, 0);
  std::unique_lock<std::mutex> lock(pool->mutex);
  pool->idle.wait(lock, [&] { return pool->busy == 0; });
}

uint32_t AvailableProcessors() {
#if defined(__linux__)
  cpu_set_t set;
  if (sched_getaffinity(0, sizeof set, &set) == 0) {
    const int count = CPU_COUNT(&set);
    if (count > 0) return static_cast<uint32_t>(count);
  }
#endif
  const unsigned count = std::thread::hardware_concurrency();
  return count > 0 ? count : 1;
}

}  // namespace pelcast::api
