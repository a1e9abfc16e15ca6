#include "runtime/pool.h"

#include <signal.h>

#include <cstdlib>
#include <cstring>
#include <initializer_list>

#include "base/log.h"
#include "base/platform.h"
#include "base/process.h"

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

// The pool's locks are held for some dozen instructions: whoever finds one taken has it sooner than
// the system could wake it. Unless the holder has lost its processor; then it sleeps.
void lock_soon(pthread_mutex_t* lock) {
  constexpr int kTries = 100;
  for (int i = 0; i < kTries; ++i) {
    if (pthread_mutex_trylock(lock) == 0) return;
    vorn::pause_processor();
  }
  pthread_mutex_lock(lock);
}

// Starts the workers; returns how many run. The application's signal handlers run on its own
// threads: the workers block every signal but those that a fault of the thread itself raises.
int start_workers(pool* workers) {
  sigset_t blocked, former;
  sigfillset(&blocked);
  for (int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGSYS, SIGABRT})
    sigdelset(&blocked, fault);
  const bool masked = pthread_sigmask(SIG_SETMASK, &blocked, &former) == 0;
  int running = 0;
  for (int i = 0; i < workers->max_thread_num; ++i) {
    workers->thread_args[i] = {core_table[i], workers};
    const int err = pthread_create(&workers->threadid[i], nullptr, vorn_thread_routine,
                                   &workers->thread_args[i]);
    workers->thread_creatflag[i] = err == 0;
    running += err == 0;
  }
  if (masked) pthread_sigmask(SIG_SETMASK, &former, nullptr);
  return running;
}

// A job that waits to be queued; null, with an ERROR line, when nobody could run it or there is no
// memory.
vorn_job* make_job(const pool* workers, void* (*routine)(void*), void* arg) {
  if (vorn::forked_pool(workers)) {
    VORN_LOG_AS(vorn::kLogError, "vorn_threadpool_add_worker", "no threads after fork\n");
    return nullptr;
  }
  vorn_job* job = static_cast<vorn_job*>(std::malloc(sizeof(vorn_job)));
  if (job) {
    *job = {routine, arg, nullptr};
  } else {
    VORN_LOG_AS(vorn::kLogError, "vorn_threadpool_add_worker", "can't alloc job\n");
  }
  return job;
}

// Queues count jobs, linked from first on, and wakes sleeping workers: one for each job that no
// polling worker is about to take, as long as fewer than `useful` workers are awake.
void queue_jobs(pool* workers, vorn_job* first, int count, int useful) {
  lock_soon(&workers->queue_lock);
  vorn_job** tail = &workers->queue_head;
  while (*tail) tail = &(*tail)->next;  // a stage queues four jobs, so the walk is short
  *tail = first;
  vorn::store(&workers->cur_queue_size, workers->cur_queue_size + count);
  int wakes = workers->cur_queue_size - workers->pollers - workers->woken;
  if (wakes > useful - workers->awake) wakes = useful - workers->awake;
  if (wakes > workers->sleepers) wakes = workers->sleepers;
  if (wakes > 0) {
    workers->sleepers -= wakes;
    workers->awake += wakes;
    workers->woken += wakes;
    vorn::add(&workers->polls.active, wakes);
  }
  pthread_mutex_unlock(&workers->queue_lock);
  for (int i = 0; i < wakes; ++i) pthread_cond_signal(&workers->queue_ready);
}

// The first job of the queue, which is not empty; queue_lock held.
vorn_job* take_job(pool* workers) {
  vorn_job* job = workers->queue_head;
  workers->queue_head = job->next;
  vorn::store(&workers->cur_queue_size, workers->cur_queue_size - 1);
  return job;
}

void run_job(vorn_job* job) {
  job->routine(job->arg);
  std::free(job);
}

// Whether the submitter of a stage does jobs of its own: with one worker that one is meant to, and
// bound workers have processors and a priority that the submitter has not.
bool submitter_helps(const pool* workers) {
  return workers->max_thread_num > 1 && workers->bind_core != 1;
}

// Waits, queue_lock held, until there is a job or the pool shuts down.
void wait_for_job(pool* workers) {
  const auto idle = [workers] { return workers->cur_queue_size == 0 && !workers->shutdown; };
  if (idle()) {
    ++workers->pollers;
    pthread_mutex_unlock(&workers->queue_lock);
    vorn::poll(&workers->polls, [workers] { return vorn::load(workers->cur_queue_size) > 0; });
    lock_soon(&workers->queue_lock);
    --workers->pollers;
  }
  while (idle()) {
    ++workers->sleepers;
    --workers->awake;
    vorn::add(&workers->polls.active, -1);
    while (workers->woken == 0) pthread_cond_wait(&workers->queue_ready, &workers->queue_lock);
    --workers->woken;  // whoever woke this thread has counted it as awake
  }
}

// The pool's memory and that of the jobs that no worker has taken.
void free_memory(pool* workers) {
  std::free(workers->threadid);
  std::free(workers->thread_creatflag);
  while (vorn_job* job = workers->queue_head) {
    workers->queue_head = job->next;
    std::free(job);
  }
  std::free(workers);
}

}  // namespace

bool vorn::forked_pool(const pool* workers) {
  return workers->generation != process_generation();
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
  workers->polls.processors = platform_usable_processors();
  workers->polls.active = 1;  // the caller
  workers->generation = process_generation();

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
  destroy_locks(workers, locks);
  free_memory(workers);
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

  vorn::add(&workers->polls.active, 1);
  lock_soon(&workers->queue_lock);
  ++workers->awake;
  for (;;) {
    wait_for_job(workers);
    if (workers->shutdown) break;  // even with jobs queued: destroy drops them
    vorn_job* job = take_job(workers);
    pthread_mutex_unlock(&workers->queue_lock);
    run_job(job);
    lock_soon(&workers->queue_lock);
  }
  pthread_mutex_unlock(&workers->queue_lock);
  return nullptr;
}

int vorn::add_jobs(pool* workers, void* (*routine)(void*), void* jobs, size_t job_bytes, int count,
                   int useful) {
  vorn_job* first = nullptr;
  vorn_job** last = &first;
  int made = 0;
  for (; made < count; ++made) {
    *last = make_job(workers, routine,
                     static_cast<char*>(jobs) + job_bytes * static_cast<size_t>(made));
    if (!*last) break;
    last = &(*last)->next;
  }
  if (made > 0) queue_jobs(workers, first, made, useful);
  return made;
}

int vorn::add_stage(pool* workers, void* (*routine)(void*), void* jobs, size_t job_bytes,
                    int count) {
  // The slices of a stage do not wait for each other, so that more threads than processors would
  // only take turns.
  const int processors = workers->polls.processors;
  const int threads = processors < workers->max_thread_num ? processors : workers->max_thread_num;
  return add_jobs(workers, routine, jobs, job_bytes, count,
                  submitter_helps(workers) ? threads - 1 : threads);
}

void vorn::help_stage(pool* workers, void* (*routine)(void*)) {
  while (submitter_helps(workers) && load(workers->cur_queue_size) > 0) {
    lock_soon(&workers->queue_lock);
    const bool own = workers->queue_head && workers->queue_head->routine == routine;
    vorn_job* job = own ? take_job(workers) : nullptr;
    pthread_mutex_unlock(&workers->queue_lock);
    if (!job) return;
    run_job(job);
  }
}

int vorn_threadpool_destroy(pool* workers) {
  if (vorn::forked_pool(workers)) {  // nobody to join; the locks may be held for ever
    free_memory(workers);
    return 0;
  }
  pthread_mutex_lock(&workers->queue_lock);
  const bool refused = workers->shutdown != 0;
  workers->shutdown = 1;
  if (!refused) workers->woken = workers->max_thread_num;
  pthread_mutex_unlock(&workers->queue_lock);
  if (refused) return -1;
  pthread_cond_broadcast(&workers->queue_ready);

  int result = 0;
  for (int i = 0; i < workers->max_thread_num; ++i)
    if (workers->thread_creatflag[i] == 1 && pthread_join(workers->threadid[i], nullptr) != 0)
      result = -1;
  destroy_locks(workers, kLocks);
  free_memory(workers);
  return result;
}

int reset_thread_done(pool* workers) {
  lock_soon(&workers->pro_lock);
  vorn::store(&workers->done_count, 0);
  return pthread_mutex_unlock(&workers->pro_lock);
}

int one_thread_done(pool* workers) {
  // The count first, then a look whether somebody sleeps until it is reached; who goes to sleep
  // says so first and looks at the count then. One of the two sees the other.
  if (vorn::add(&workers->done_count, 1) != vorn::load(workers->awaited)) return 0;
  lock_soon(&workers->pro_lock);
  // Asked again: a thread that lost its processor since the first look may be here with the count
  // of one stage while the submitter already sleeps for the next.
  const bool sleeps = workers->awaited != 0 && vorn::load(workers->done_count) == workers->awaited;
  if (sleeps) {
    vorn::store(&workers->awaited, 0);
    vorn::add(&workers->polls.active, 1);
  }
  const int result = pthread_mutex_unlock(&workers->pro_lock);
  if (sleeps) pthread_cond_signal(&workers->pro_ready);  // exactly one thread waits
  return result;
}

int sync_thread_done(pool* workers, int count) {
  const auto done = [workers, count] { return vorn::load(workers->done_count) == count; };
  if (vorn::poll(&workers->polls, done)) return 0;
  lock_soon(&workers->pro_lock);
  vorn::store_first(&workers->awaited, count);
  if (done()) {
    vorn::store(&workers->awaited, 0);
  } else {
    vorn::add(&workers->polls.active, -1);
    while (workers->awaited != 0) pthread_cond_wait(&workers->pro_ready, &workers->pro_lock);
  }
  return pthread_mutex_unlock(&workers->pro_lock);
}
