#include "runtime/exported/pool.h"

#include "runtime/pool.h"

int vorn_threadpool_init(pool** out, int thread_num) {
  return vorn::create_pool(out, thread_num, 0);
}
