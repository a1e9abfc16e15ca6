// Runs one stage on the pool: every job queued in order, then a wait for all of them. The jobs have
// slices of the rows each, or share them.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "runtime/pool.h"

namespace vorn {

constexpr int kSlices = 4;  // row slices per stage, one per worker

// The slice that a worker on this processor begins with: 0..kSlices-1.
int home_slice();

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
  const int queued = add_stage(workers, process, jobs, sizeof(Job), N);
  if (queued > 0) help_stage(workers, process);
  const int result = sync_thread_done(workers, queued);
  return queued == N ? result : -1;
}

// Rows 0..end of a stage, handed out in chunks to whichever worker asks next. Equal slices would
// make a stage as slow as the slowest core; this way a slow or late worker holds it up by one
// chunk, and chunks shrink towards the end of a quarter, where nothing is left to make up for one.
// A worker begins in the quarter of the plane that belongs to its processor, so that a stage
// mostly reads what the same processor's caches got from the stage before, and goes on where rows
// are left.
class row_queue {
 public:
  // Chunks begin at multiples of `multiple`.
  row_queue(int end, int multiple) : multiple_(multiple) {
    const int step = end / kSlices / multiple * multiple;
    for (int i = 0; i < kSlices; ++i) {
      quarters_[i].begin = i * step;
      quarters_[i].end = i + 1 < kSlices ? (i + 1) * step : end;
      // Of a quarter of one multiple all chunks but the last are empty.
      const int rows = quarters_[i].end - quarters_[i].begin;
      const int empty = rows <= 0 ? kChunks : rows <= multiple ? kChunks - 1 : 0;
      quarters_[i].taken.store(empty, std::memory_order_relaxed);
    }
  }

  // Takes the next rows. Returns false when none are left.
  bool next(int* row_begin, int* row_end) {
    const int first = home_slice();
    for (int i = 0; i < kSlices; ++i) {
      quarter& q = quarters_[(first + i) % kSlices];
      while (q.taken.load(std::memory_order_relaxed) < kChunks) {
        // Order among other memory is the pool's matter: its locks are taken before and after.
        const int chunk = q.taken.fetch_add(1, std::memory_order_relaxed);
        if (chunk >= kChunks) break;
        *row_begin = start_of(q, chunk);
        *row_end = start_of(q, chunk + 1);
        if (*row_begin < *row_end) return true;
      }
    }
    return false;
  }

 private:
  struct quarter {
    std::atomic<int> taken;  // chunks
    int begin, end;
  };
  static constexpr int kChunks = 6;

  int start_of(const quarter& q, int chunk) const {
    if (chunk == kChunks) return q.end;
    constexpr int kPercentBefore[kChunks] = {0, 40, 65, 80, 90, 96};
    const int64_t rows = int64_t{q.end - q.begin} * kPercentBefore[chunk] / 100;
    return q.begin + static_cast<int>(rows) / multiple_ * multiple_;
  }

  quarter quarters_[kSlices];
  int multiple_;
};

// Calls work() in kSlices jobs, which draw from one row_queue of the caller. Returns as run_jobs
// does.
template <typename Work>
int run_shared(pool* workers, const Work& work) {
  struct shared_job {
    const Work* work;
    struct pool* workers;
    static void* process(void* argument) {
      const auto* job = static_cast<const shared_job*>(argument);
      (*job->work)();
      one_thread_done(job->workers);
      return nullptr;
    }
  };
  shared_job jobs[kSlices];
  for (shared_job& job : jobs) job = {&work, workers};
  return run_jobs(workers, shared_job::process, jobs);
}

// Below this a plane's rows are done on the calling thread: waking the workers costs microseconds,
// about what this many bytes take.
constexpr int kBytesWorthSlicing = 1 << 17;

// Calls rows(begin, end) for chunks of rows 0..end, which begin at multiples of `multiple`, on the
// pool; for little work (or without a pool) once, on the calling thread. row_bytes is what a row
// reads and writes. Returns as run_jobs does.
template <typename Rows>
int run_rows(pool* workers, int end, int multiple, int row_bytes, const Rows& rows) {
  if (!workers || static_cast<int64_t>(end) * row_bytes < kBytesWorthSlicing) {
    rows(0, end);
    return 0;
  }
  row_queue queue(end, multiple);
  return run_shared(workers, [&] {
    for (int begin, until; queue.next(&begin, &until);) rows(begin, until);
  });
}

// memcpy on the pool; all over again on the calling thread when a job could not be queued.
void copy_bytes(pool* workers, void* to, const void* from, size_t bytes);

}  // namespace vorn
