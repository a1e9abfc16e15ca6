#include "runtime/pool.h"

#include <cstdlib>
#include <cstring>

#include "base/log.h"
#include "base/platform.h"

namespace {

// The fast cores of an eight-core phone; a worker falls back to the slow core kCoreFallback below.
constexpr int core_table[vorn::kMaxWorkers] = {4, 5, 6, 7};
constexpr int kCoreFallback = 4;
constexpr int kWorkerNice = -7;

// The two locks and two conditions in the order of their creation.
constexpr int kLocks = 4;
constexpr const char* kLockNames[kLocks] = {"queue_lock", "queue_ready", "pro_lock", "pro_ready"};

int init_lock(pool* workers, int index) {
  switch (index) {
    case 0:
      return pthread_mutex_init(&workers->queue_lock, nullptr);
    case 1:
      return pthread_cond_init(&workers->queue_ready, nullptr);
    case 2:
      return pthread_mutex_init(&workers->pro_lock, nullptr);
    default:
      return pthread_cond_init(&workers->pro_ready, nullptr);
  }
}

// Destroys the first count of them.
void destroy_locks(pool* workers, int count) {
  if (count > 0) pthread_mutex_destroy(&workers->queue_lock);
  if (count > 1) pthread_cond_destroy(&workers->queue_ready);
  if (count > 2) pthread_mutex_destroy(&workers->pro_lock);
  if (count > 3) pthread_cond_destroy(&workers->pro_ready);
}

// The two counters are changed under their locks and polled without.
int load(const int& counter) {
  return __atomic_load_n(&counter, __ATOMIC_RELAXED);
}

void store(int* counter, int value) {
  __atomic_store_n(counter, value, __ATOMIC_RELAXED);
}

// A frame is some twenty stages in a row, most of them shorter than a millisecond, and a thread
// that slept takes about 50 us to wake. So both sides of a stage look for this long before they
// sleep, and give their processor to whoever else can run: on two processors that made the four
// workers' time of a 1920x1080 frame 1.9 times shorter.
constexpr double kPollMs = 0.03;

// Returns when ready(counter) holds, or after kPollMs.
template <typename Ready>
void poll(const int& counter, const Ready& ready) {
  if (ready(load(counter))) return;
  for (const double end = getTime() + kPollMs; !ready(load(counter)) && getTime() < end;)
    vorn::platform_yield();
}

// Starts the workers; returns how many run.
int start_workers(pool* workers) {
  int running = 0;
  for (int i = 0; i < workers->max_thread_num; ++i) {
    workers->thread_args[i] = {core_table[i], workers};
    const int err = pthread_create(&workers->threadid[i], nullptr, vorn_thread_routine,
                                   &workers->thread_args[i]);
    workers->thread_creatflag[i] = err == 0;
    running += err == 0;
  }
  return running;
}

}  // namespace

int vorn_threadpool_init(pool** out, int thread_num) {
  return vorn::create_pool(out, thread_num, 0);
}

int vorn::create_pool(pool** out, int thread_num, int bind_core) {
  constexpr char kName[] = "vorn_threadpool_init";  // in its log lines
  *out = nullptr;
  if (thread_num > kMaxWorkers) {
    VORN_LOG_AS(kLogError, kName, "%d threads asked for, at most %d are possible\n", thread_num,
                kMaxWorkers);
    return -1;
  }
  pool* workers = static_cast<pool*>(std::malloc(sizeof(pool)));
  if (!workers) {
    VORN_LOG_AS(kLogError, kName, "can't alloc thread pool\n");
    return -1;
  }
  std::memset(workers, 0, sizeof *workers);
  workers->bind_core = bind_core;
  workers->max_thread_num = thread_num;

  int locks = 0;
  int err = 0;
  while (locks < kLocks && (err = init_lock(workers, locks)) == 0) ++locks;
  if (err) {
    VORN_LOG_AS(kLogError, kName, "can't init pool->%s err:%d\n", kLockNames[locks], err);
  } else {
    // At least one element: malloc(0) may return null, which would read as out of memory.
    const size_t slots = thread_num > 0 ? static_cast<size_t>(thread_num) : 1;
    workers->threadid = static_cast<pthread_t*>(std::malloc(slots * sizeof(pthread_t)));
    if (!workers->threadid) VORN_LOG_AS(kLogError, kName, "can't malloc threadid\n");
    workers->thread_creatflag =
        workers->threadid ? static_cast<int*>(std::malloc(slots * sizeof(int))) : nullptr;
    if (workers->threadid && !workers->thread_creatflag)
      VORN_LOG_AS(kLogError, kName, "can't malloc thread_creatflag\n");
    if (workers->thread_creatflag) {
      std::memset(workers->threadid, 0, slots * sizeof(pthread_t));
      std::memset(workers->thread_creatflag, 0, slots * sizeof(int));
      if (start_workers(workers) > 0) {
        *out = workers;
        return 0;
      }
      VORN_LOG_AS(kLogError, kName, "all LTM thread create failed.\n");
    }
  }
  std::free(workers->threadid);
  std::free(workers->thread_creatflag);
  destroy_locks(workers, locks);
  std::free(workers);
  return -1;
}

void* vorn_thread_routine(void* start_record) {
  const vorn_thread_arg* start = static_cast<const vorn_thread_arg*>(start_record);
  pool* workers = start->pool;
  if (workers->bind_core == 1) {
    int core = start->core;
    bool bound = vorn::platform_bind_thread(core);
    if (!bound) {
      core -= kCoreFallback;
      bound = vorn::platform_bind_thread(core);
    }
    if (bound) {
      VORN_LOGI("core %d binded.\n", core);
    } else {
      VORN_LOGE("warning: could not set CPU affinity\n");
    }
    if (!vorn::platform_set_nice(kWorkerNice))
      VORN_LOGE("setpriority function error can not set thread priority\n");
  }

  pthread_mutex_lock(&workers->queue_lock);
  for (;;) {
    if (workers->cur_queue_size == 0 && !workers->shutdown) {
      pthread_mutex_unlock(&workers->queue_lock);
      poll(workers->cur_queue_size, [](int size) { return size > 0; });
      pthread_mutex_lock(&workers->queue_lock);
    }
    while (workers->cur_queue_size == 0 && !workers->shutdown)
      pthread_cond_wait(&workers->queue_ready, &workers->queue_lock);
    if (workers->shutdown) break;  // even with jobs queued: destroy drops them
    vorn_job* job = workers->queue_head;
    workers->queue_head = job->next;
    store(&workers->cur_queue_size, workers->cur_queue_size - 1);
    pthread_mutex_unlock(&workers->queue_lock);
    job->routine(job->arg);
    std::free(job);
    pthread_mutex_lock(&workers->queue_lock);
  }
  pthread_mutex_unlock(&workers->queue_lock);
  return nullptr;
}

int vorn_threadpool_add_worker(pool* workers, void* (*routine)(void*), void* arg) {
  vorn_job* job = static_cast<vorn_job*>(std::malloc(sizeof(vorn_job)));
  if (!job) {
    VORN_LOGE("can't alloc job\n");
    return -1;
  }
  *job = {routine, arg, nullptr};
  pthread_mutex_lock(&workers->queue_lock);
  vorn_job** tail = &workers->queue_head;
  while (*tail) tail = &(*tail)->next;  // a stage queues four jobs, so the walk is short
  *tail = job;
  store(&workers->cur_queue_size, workers->cur_queue_size + 1);
  pthread_mutex_unlock(&workers->queue_lock);
  pthread_cond_signal(&workers->queue_ready);
  return 0;
}

int vorn_threadpool_destroy(pool* workers) {
  pthread_mutex_lock(&workers->queue_lock);
  const bool refused = workers->shutdown != 0;
  workers->shutdown = 1;
  pthread_mutex_unlock(&workers->queue_lock);
  if (refused) return -1;
  pthread_cond_broadcast(&workers->queue_ready);

  int result = 0;
  for (int i = 0; i < workers->max_thread_num; ++i)
    if (workers->thread_creatflag[i] == 1 && pthread_join(workers->threadid[i], nullptr) != 0)
      result = -1;
  std::free(workers->threadid);
  std::free(workers->thread_creatflag);
  while (vorn_job* job = workers->queue_head) {
    workers->queue_head = job->next;
    std::free(job);
  }
  destroy_locks(workers, kLocks);
  std::free(workers);
  return result;
}

int reset_thread_done(pool* workers) {
  pthread_mutex_lock(&workers->pro_lock);
  store(&workers->done_count, 0);
  return pthread_mutex_unlock(&workers->pro_lock);
}

int one_thread_done(pool* workers) {
  pthread_mutex_lock(&workers->pro_lock);
  store(&workers->done_count, workers->done_count + 1);
  const int result = pthread_mutex_unlock(&workers->pro_lock);
  pthread_cond_signal(&workers->pro_ready);  // exactly one thread waits
  return result;
}

int sync_thread_done(pool* workers, int count) {
  poll(workers->done_count, [count](int done) { return done == count; });
  pthread_mutex_lock(&workers->pro_lock);
  while (workers->done_count != count) pthread_cond_wait(&workers->pro_ready, &workers->pro_lock);
  return pthread_mutex_unlock(&workers->pro_lock);
}
