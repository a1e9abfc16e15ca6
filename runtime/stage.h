// Runs one stage on the pool: every job queued in order, then a wait for all of them.
#pragma once

#include "runtime/pool.h"

namespace vorn {

constexpr int kSlices = 4;  // row slices per stage, one per worker

// Row ranges of the four slices over rows 0..end: the first three are `step` rows each, the last
// takes what remains. Job is any stage record with row_begin and row_end.
template <typename Job>
void cut_rows(Job (&jobs)[kSlices], const Job& prototype, int step, int end) {
  for (int i = 0; i < kSlices; ++i) {
    jobs[i] = prototype;
    jobs[i].row_begin = i * step;
    jobs[i].row_end = i + 1 < kSlices ? (i + 1) * step : end;
  }
}

// Queues process(&jobs[i]) for every job and waits until all that were queued have signalled.
// Every process must call one_thread_done exactly once. Returns the wait's result, or -1 when a
// job could not be queued; the jobs queued before it have then finished too.
template <typename Job, int N>
int run_jobs(pool* workers, void* (*process)(void*), Job (&jobs)[N]) {
  reset_thread_done(workers);
  int queued = 0;
  while (queued < N && vorn_threadpool_add_worker(workers, process, &jobs[queued]) == 0) ++queued;
  const int result = sync_thread_done(workers, queued);
  return queued == N ? result : -1;
}

}  // namespace vorn
