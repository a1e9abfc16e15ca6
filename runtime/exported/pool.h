// A pool whose workers are not bound to cores, and one job for it. See runtime/pool.h.
#pragma once

#include "vorn_ycnr.h"

struct pool;

// Creates a pool of thread_num (1..4) workers. Returns 0, also when only some of the threads could
// be created; -1 with an ERROR line, everything released and *out null otherwise.
VORN_API int vorn_threadpool_init(pool** out, int thread_num);

// Queues routine(arg) behind the jobs already queued. Returns 0, or -1 with an ERROR line when
// there is no memory for the job, or no worker in this process: see forked_pool.
VORN_API int vorn_threadpool_add_worker(pool* workers, void* (*routine)(void*), void* arg);
