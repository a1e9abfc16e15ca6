// What the tests need to know of a pool's workers.
#pragma once

#include <unistd.h>

#include "runtime/pool.h"

namespace vorn_test {

// Waits until so many workers sleep: they hold no lock then, nor one of a sanitizer's allocator.
inline void wait_asleep(pool* workers, int count) {
  for (int sleepers = -1; sleepers != count; usleep(100)) {
    pthread_mutex_lock(&workers->queue_lock);
    sleepers = workers->sleepers;
    pthread_mutex_unlock(&workers->queue_lock);
  }
}

}  // namespace vorn_test
