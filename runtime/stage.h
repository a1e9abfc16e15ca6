// Runs one stage on the pool: every job queued in order, then a wait for all of them.
#pragma once

#include <cstdint>

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

// Below this a plane's rows are done on the calling thread: waking the workers costs microseconds,
// about what this many bytes take.
constexpr int kBytesWorthSlicing = 1 << 17;

// Calls rows(begin, end) for slices of rows 0..end, which begin at multiples of `multiple`, on the
// pool; for little work (or without a pool) once, on the calling thread. row_bytes is what a row
// reads and writes. Returns as run_jobs does.
template <typename Rows>
int run_rows(pool* workers, int end, int multiple, int row_bytes, const Rows& rows) {
  if (!workers || static_cast<int64_t>(end) * row_bytes < kBytesWorthSlicing) {
    rows(0, end);
    return 0;
  }
  struct rows_job {
    const Rows* rows;
    int row_begin;
    int row_end;
    struct pool* workers;
    static void* process(void* argument) {
      const auto* job = static_cast<const rows_job*>(argument);
      (*job->rows)(job->row_begin, job->row_end);
      one_thread_done(job->workers);
      return nullptr;
    }
  };
  rows_job jobs[kSlices];
  cut_rows(jobs, rows_job{&rows, 0, 0, workers}, end / kSlices / multiple * multiple, end);
  return run_jobs(workers, rows_job::process, jobs);
}

}  // namespace vorn
