// The threads of a codec: workers started once, then given one frame's jobs
// at a time. Jobs are numbered; every thread (the caller's included) takes
// the next number until none is left, so bands of unequal cost balance
// themselves.
//
// A worker that has finished its part of a run waits a little while (30 us)
// actively for the next run before it sleeps, and the caller waits the same
// way for the workers to finish: frames handed over one after another then
// start and end without the operating system's wake-ups, which cost tens of
// microseconds each, a tenth of a frame that decodes in a quarter of a
// millisecond.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <thread>
#include <vector>

#if defined(__GLIBC__)
#include <pthread.h>
#endif

namespace pelcast::api {

// A job: `index` of the current run, on thread `worker` (0 is the caller).
using PoolJob = void (*)(void* argument, uint32_t worker, uint64_t index);

// A worker thread. With the GNU C library, workers are started as POSIX
// threads placed away from the starting thread's processor (see
// StartWorkers).
#if defined(__GLIBC__)
using WorkerThread = pthread_t;
#else
using WorkerThread = std::thread;
#endif

struct WorkerPool {
  std::mutex mutex;
  std::condition_variable wake;  // a run starts, or the pool stops
  std::condition_variable idle;  // the last worker finished its part of a run
  std::vector<WorkerThread> threads;
  std::atomic<uint64_t> generation{0};  // counts runs, so a worker joins each run once
  std::atomic<uint32_t> busy{0};        // workers still in the current run
  uint32_t sleeping = 0;                // workers waiting on `wake` (under the mutex)
  std::atomic<bool> stopping{false};
  PoolJob job = nullptr;
  void* argument = nullptr;
  uint64_t jobCount = 0;
  std::atomic<uint64_t> next{0};
};

// Starts `workers` threads besides the caller's; returns how many could be
// started (fewer when the system refuses more). A new thread is first
// allowed only the processors other than the one the caller runs on, then
// (once running) all of them again: left to itself, the system often queues
// a new thread behind its busy starter for a few milliseconds, longer than
// a frame takes.
uint32_t StartWorkers(WorkerPool* pool, uint32_t workers);

// Stops and joins every worker.
void StopWorkers(WorkerPool* pool);

// Runs jobs 0 .. count - 1 on the workers and the calling thread, and
// returns when all have finished.
void RunJobs(WorkerPool* pool, uint64_t count, PoolJob job, void* argument);

// Processors this process may run on (at least 1).
uint32_t AvailableProcessors();

}  // namespace pelcast::api
