// A fixed pool of up to four worker threads, its FIFO job queue, and the completion counter
// through which a stage waits for its slices.
//
// Threads: queue_lock guards the queue and shutdown; pro_lock guards who waits for done_count; no
// path holds both, and neither is held while a job runs. One stage is in flight at a time. Before a
// worker or the submitter sleeps it may poll for a moment: see polling.h.
#pragma once

#include <pthread.h>

#include <cstddef>

#include "base/stage_times.h"
#include "runtime/polling.h"
#include "vorn_ycnr.h"

struct pool;

// One queued call of routine(arg). Allocated by the submitter, freed by the worker that ran it.
struct vorn_job {
  void* (*routine)(void*);
  void* arg;
  vorn_job* next;
};

// What a worker is started with.
struct vorn_thread_arg {
  int core;  // preferred core when bind_core is 1
  struct pool* pool;
};

struct pool {
  int bind_core;  // 1: workers pin themselves to their core and raise their priority on start
  pthread_mutex_t queue_lock;
  pthread_cond_t queue_ready;
  pthread_mutex_t pro_lock;
  pthread_cond_t pro_ready;
  vorn_job* queue_head;
  int shutdown;
  pthread_t* threadid;
  int* thread_creatflag;  // 1 where the thread was created
  int max_thread_num;
  int cur_queue_size;
  int done_count;
  vorn_thread_arg thread_args[4];
  int awaited;   // done_count that the submitter sleeps for, 0 while it does not; under pro_lock
  int awake;     // workers that run, poll or were woken; this and the next three under queue_lock
  int pollers;   // workers that look for a job
  int sleepers;  // workers that sleep and have not been woken
  int woken;     // workers that were woken and have not run yet
  vorn::poll_state polls;
  int generation;  // of the process whose threads these are
  vorn::stage_sink sink;
};

// Stops and joins the workers, drops jobs still queued, frees the pool. Returns 0; -1 when
// shutdown was already requested (nothing is done) or a join failed. In a child of fork() it frees
// the memory alone.
VORN_API int vorn_threadpool_destroy(pool* workers);

// Body of a worker; start_record is a vorn_thread_arg.
VORN_API void* vorn_thread_routine(void* start_record);

// The completion barrier of one stage: reset, one signal per finished slice, wait for exactly
// count of them.
VORN_API int reset_thread_done(pool* workers);
VORN_API int one_thread_done(pool* workers);
VORN_API int sync_thread_done(pool* workers, int count);

namespace vorn {

constexpr int kMaxWorkers = 4;  // room in pool::thread_args

// Whether the pool was made by a process that this one was forked from; its threads are not here.
bool forked_pool(const pool* workers);

// Creates a pool of thread_num (1..4) workers, bind_core set before they start. Returns 0, also
// when only some of the threads could be created; -1 with an ERROR line, everything released and
// *out null otherwise.
int create_pool(pool** out, int thread_num, int bind_core);

// Queues count jobs, records of job_bytes bytes one after the other, in their order and at once; as
// long as fewer than `useful` workers are awake, they wake more. Returns how many were queued;
// fewer than count, with an ERROR line, when there is no memory.
int add_jobs(pool* workers, void* (*routine)(void*), void* jobs, size_t job_bytes, int count,
             int useful);

// The same for the jobs of one stage. They may not wait for each other: no more threads work on
// them than processors are there, the caller among them, who has to call help_stage next.
int add_stage(pool* workers, void* (*routine)(void*), void* jobs, size_t job_bytes, int count);

// Runs waiting jobs of this routine on the calling thread, which is on a processor already, where a
// worker has to be woken and may end up behind another one. Not in a pool of one worker, and not
// with bound ones.
void help_stage(pool* workers, void* (*routine)(void*));

}  // namespace vorn
