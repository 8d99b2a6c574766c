// The codec's worker pool: every job of every run is done exactly once, by a
// thread of the pool, however the workers are started, stopped and started
// again between runs.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

#include "api/worker_pool.h"

namespace pelcast::api {
namespace {

// How often each job of a run was done, and by which threads.
struct Tally {
  std::vector<std::atomic<uint32_t>> done;
  std::atomic<uint32_t> highestWorker{0};
  explicit Tally(uint64_t count) : done(count) {}
};

void Count(void* argument, uint32_t worker, uint64_t index) {
  auto* tally = static_cast<Tally*>(argument);
  tally->done[index].fetch_add(1, std::memory_order_relaxed);
  uint32_t seen = tally->highestWorker.load(std::memory_order_relaxed);
  while (worker > seen && !tally->highestWorker.compare_exchange_weak(seen, worker)) {
  }
}

// Runs `count` jobs and checks each was done once by one of the pool's threads.
void RunAndCheck(WorkerPool* pool, uint64_t count) {
  Tally tally(count);
  RunJobs(pool, count, Count, &tally);
  for (uint64_t i = 0; i < count; ++i) {
    ASSERT_EQ(tally.done[i].load(), 1u) << "job " << i << " of " << count;
  }
  EXPECT_LE(tally.highestWorker.load(), pool->threads.size());
  EXPECT_EQ(pool->busy.load(), 0u) << "a worker still in a finished run";
}

TEST(WorkerPool, EveryJobOnceForEveryCountAndWorkerCount) {
  const uint64_t counts[] = {0, 1, 2, 3, 7, 64, 1000};
  for (uint32_t workers = 0; workers <= 4; ++workers) {
    WorkerPool pool;
    ASSERT_EQ(StartWorkers(&pool, workers), workers);
    for (int round = 0; round < 20; ++round) {
      for (uint64_t count : counts) {
        ASSERT_NO_FATAL_FAILURE(RunAndCheck(&pool, count)) << workers << " workers";
      }
    }
    StopWorkers(&pool);
  }
}

// A pool keeps counting its runs across a stop: workers started again must
// wait for the next run rather than join one that is over (which would leave
// the count of busy workers wrong and could end a later run early).
TEST(WorkerPool, WorkersStartedAgainWaitForTheNextRun) {
  WorkerPool pool;
  for (uint32_t workers : {2u, 1u, 3u, 2u}) {
    ASSERT_EQ(StartWorkers(&pool, workers), workers);
    // Long enough for every new worker to have passed its active wait.
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_EQ(pool.busy.load(), 0u) << "after starting " << workers << " workers";
    for (uint64_t count : {5u, 2u, 100u}) {
      ASSERT_NO_FATAL_FAILURE(RunAndCheck(&pool, count)) << workers << " workers";
    }
    StopWorkers(&pool);
    EXPECT_TRUE(pool.threads.empty());
  }
}

}  // namespace
}  // namespace pelcast::api
