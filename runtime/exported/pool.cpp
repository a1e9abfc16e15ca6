#include "runtime/exported/pool.h"

#include "runtime/pool.h"

int vorn_threadpool_init(pool** out, int thread_num) {
  return vorn::create_pool(out, thread_num, 0);
}

int vorn_threadpool_add_worker(pool* workers, void* (*routine)(void*), void* arg) {
  return vorn::add_jobs(workers, routine, arg, 0, 1, workers->max_thread_num) == 1 ? 0 : -1;
}
