// The pool: queue, barrier, refusals, processors, forks. One file, though long: the cases share
// their jobs and counters.
#include "runtime/pool.h"

#include <gtest/gtest.h>
#include <sched.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <vector>

#include "base/log.h"
#include "runtime/exported/pool.h"
#include "runtime/stage.h"
#include "tests/support/host.h"
#include "tests/support/workers.h"

namespace {

using namespace vorn_test;

struct slice {
  std::atomic<int>* sum;
  int row_begin;
  int row_end;
  pool* workers;
};

void* add_rows(void* arg) {
  slice* job = static_cast<slice*>(arg);
  for (int row = job->row_begin; row < job->row_end; ++row)
    job->sum->fetch_add(row, std::memory_order_relaxed);
  one_thread_done(job->workers);
  return nullptr;
}

TEST(Slices, RowsAreCutIntoFourTheLastTakesTheRest) {
  struct row {
    int step, end;
    int begins[4];
  };
  constexpr row kRows[] = {
      {10 / 4, 10, {0, 2, 4, 6}}, {3 / 4, 3, {0, 0, 0, 0}}, {36 / 16 * 4, 36, {0, 8, 16, 24}}};
  for (const row& r : kRows) {
    slice jobs[4];
    vorn::cut_rows(jobs, slice{}, r.step, r.end);
    for (int i = 0; i < 4; ++i) {
      EXPECT_EQ(jobs[i].row_begin, r.begins[i]);
      EXPECT_EQ(jobs[i].row_end, i < 3 ? r.begins[i + 1] : r.end);
    }
  }
}

// Every row once, in ranges that begin at multiples, for planes lower than a chunk too.
TEST(Slices, SharedRowsAreEachTakenOnce) {
  pool* workers = nullptr;
  ASSERT_EQ(vorn_threadpool_init(&workers, 4), 0);
  for (int multiple : {1, 2, 16}) {
    for (int end : {0, 1, 3, 15, 16, 17, 63, 64, 65, 250, 1501}) {
      std::vector<std::atomic<int>> taken(static_cast<size_t>(end));
      std::atomic<int> misplaced{0};
      vorn::row_queue rows(end, multiple);
      ASSERT_EQ(vorn::run_shared(workers,
                                 [&] {
                                   for (int begin, until; rows.next(&begin, &until);) {
                                     misplaced += begin % multiple != 0 || begin >= until;
                                     for (int row = begin; row < until; ++row)
                                       ++taken[static_cast<size_t>(row)];
                                   }
                                 }),
                0);
      EXPECT_EQ(misplaced, 0);
      for (int row = 0; row < end; ++row)
        ASSERT_EQ(taken[static_cast<size_t>(row)], 1) << row << " of " << end << " by " << multiple;
    }
  }
  std::vector<char> from(200001), to(from.size());
  for (size_t i = 0; i < from.size(); ++i) from[i] = static_cast<char>(i * 7);
  for (size_t bytes : {size_t{0}, size_t{1}, size_t{16384}, size_t{16385}, from.size() - 1}) {
    std::fill(to.begin(), to.end(), 0);
    vorn::copy_bytes(workers, to.data(), from.data(), bytes);
    EXPECT_TRUE(std::equal(to.begin(), to.begin() + static_cast<ptrdiff_t>(bytes), from.begin()));
    EXPECT_EQ(to[bytes], 0);
  }
  EXPECT_EQ(vorn_threadpool_destroy(workers), 0);
}

// A stage of a few microseconds, over and over, with every number of workers and with heights that
// leave slices empty.
TEST(Pool, ThousandsOfShortStages) {
  for (int count = 1; count <= 4; ++count) {
    pool* workers = nullptr;
    ASSERT_EQ(vorn_threadpool_init(&workers, count), 0);
    std::atomic<int> sum{0};
    int expected = 0;
    for (int stage = 0; stage < 3000; ++stage) {
      const int height = stage % 23;
      slice jobs[4];
      vorn::cut_rows(jobs, slice{&sum, 0, 0, workers}, height / 4, height);
      ASSERT_EQ(vorn::run_jobs(workers, add_rows, jobs), 0);
      expected += height * (height - 1) / 2;
      ASSERT_EQ(sum.load(std::memory_order_relaxed), expected) << stage;
    }
    EXPECT_EQ(vorn_threadpool_destroy(workers), 0);
  }
}

struct place {
  pthread_t* thread;
  pool* workers;
};

void* tell_thread(void* arg) {
  const place* job = static_cast<place*>(arg);
  *job->thread = pthread_self();
  one_thread_done(job->workers);
  return nullptr;
}

// How many of a stage's four jobs ran on this thread, the workers asleep before.
int own_jobs(int workers_number, int bind_core) {
  pool* workers = nullptr;
  EXPECT_EQ(vorn::create_pool(&workers, workers_number, bind_core), 0);
  wait_asleep(workers, workers_number);
  pthread_t threads[4];
  place jobs[4];
  for (int i = 0; i < 4; ++i) jobs[i] = {&threads[i], workers};
  EXPECT_EQ(vorn::run_jobs(workers, tell_thread, jobs), 0);
  int own = 0;
  for (const pthread_t thread : threads) own += pthread_equal(thread, pthread_self()) != 0;
  EXPECT_EQ(vorn_threadpool_destroy(workers), 0);
  return own;
}

// A worker that is woken may end up behind the thread that works, so the submitter of a stage does
// jobs itself: all of them where there is no second processor. Bound workers and a single one do
// what is theirs.
TEST(Pool, TheSubmitterOfAStageDoesJobs) {
  cpu_set_t all, one;
  ASSERT_EQ(sched_getaffinity(0, sizeof all, &all), 0);
  CPU_ZERO(&one);
  for (size_t cpu = 0; CPU_COUNT(&one) == 0; ++cpu)
    if (CPU_ISSET(cpu, &all)) CPU_SET(cpu, &one);
  log_capture quiet;  // of the binding
  EXPECT_EQ(own_jobs(1, 0), 0);
  EXPECT_EQ(own_jobs(4, 1), 0);
  ASSERT_EQ(sched_setaffinity(0, sizeof one, &one), 0);
  EXPECT_EQ(own_jobs(4, 0), 4);
  EXPECT_EQ(sched_setaffinity(0, sizeof all, &all), 0);
}

void* count_one(void* workers) {
  one_thread_done(static_cast<pool*>(workers));
  return nullptr;
}

// A worker may lose its processor between its count and waking the submitter, for as long as other
// programs like. By then the submitter can be asleep for the next stage, which is not over.
TEST(Pool, ALateWorkerDoesNotEndTheNextStage) {
  pool* workers = nullptr;
  ASSERT_EQ(vorn_threadpool_init(&workers, 1), 0);
  pthread_mutex_lock(&workers->pro_lock);
  vorn::store(&workers->done_count, 3);
  vorn::store(&workers->awaited, 4);
  pthread_t late;
  ASSERT_EQ(pthread_create(&late, nullptr, count_one, workers), 0);
  while (vorn::load(workers->done_count) != 4) sched_yield();  // and waits for the lock
  vorn::store(&workers->done_count, 1);                        // of the next stage
  pthread_mutex_unlock(&workers->pro_lock);
  pthread_join(late, nullptr);
  EXPECT_EQ(vorn::load(workers->awaited), 4);
  EXPECT_EQ(vorn_threadpool_destroy(workers), 0);
}

struct gate {
  pthread_mutex_t lock = PTHREAD_MUTEX_INITIALIZER;
  pthread_cond_t changed = PTHREAD_COND_INITIALIZER;
  int entered = 0;
  bool open = false;
  std::vector<int> order;
};

struct gate_job {
  gate* at;
  int number;
  pool* workers;
};

void* pass_gate(void* arg) {
  gate_job* job = static_cast<gate_job*>(arg);
  gate* at = job->at;
  pthread_mutex_lock(&at->lock);
  ++at->entered;
  at->order.push_back(job->number);
  pthread_cond_broadcast(&at->changed);
  while (!at->open) pthread_cond_wait(&at->changed, &at->lock);
  pthread_mutex_unlock(&at->lock);
  one_thread_done(job->workers);
  return nullptr;
}

void wait_entered(gate* at, int count) {
  pthread_mutex_lock(&at->lock);
  while (at->entered < count) pthread_cond_wait(&at->changed, &at->lock);
  pthread_mutex_unlock(&at->lock);
}

void open_gate(gate* at) {
  pthread_mutex_lock(&at->lock);
  at->open = true;
  pthread_cond_broadcast(&at->changed);
  pthread_mutex_unlock(&at->lock);
}

TEST(Pool, JobsStartInTheOrderOfSubmission) {
  pool* workers = nullptr;
  ASSERT_EQ(vorn_threadpool_init(&workers, 1), 0);
  gate at;
  gate_job jobs[20];
  reset_thread_done(workers);
  for (int i = 0; i < 20; ++i) {
    jobs[i] = {&at, i, workers};
    ASSERT_EQ(vorn_threadpool_add_worker(workers, pass_gate, &jobs[i]), 0);
  }
  wait_entered(&at, 1);  // the others wait behind the first
  pthread_mutex_lock(&workers->queue_lock);
  EXPECT_EQ(workers->cur_queue_size, 19);
  pthread_mutex_unlock(&workers->queue_lock);
  open_gate(&at);
  sync_thread_done(workers, 20);
  for (int i = 0; i < 20; ++i) EXPECT_EQ(at.order[static_cast<size_t>(i)], i);
  EXPECT_EQ(vorn_threadpool_destroy(workers), 0);
}

// All workers are there for jobs that a caller queues one by one, whether they sleep or poll, and
// however few processors there are: jobs may wait for each other.
TEST(Pool, JobsQueuedOneByOneRunAtOnce) {
  cpu_set_t all, one;
  ASSERT_EQ(sched_getaffinity(0, sizeof all, &all), 0);
  CPU_ZERO(&one);
  for (size_t cpu = 0; CPU_COUNT(&one) == 0; ++cpu)
    if (CPU_ISSET(cpu, &all)) CPU_SET(cpu, &one);
  for (const cpu_set_t& allowed : {all, one}) {
    ASSERT_EQ(sched_setaffinity(0, sizeof allowed, &allowed), 0);
    pool* workers = nullptr;
    ASSERT_EQ(vorn_threadpool_init(&workers, 4), 0);
    for (int round = 0; round < 20; ++round) {
      if (round % 4 == 0) usleep(2000);  // they sleep
      gate at;
      gate_job jobs[4];
      reset_thread_done(workers);
      for (int i = 0; i < 4; ++i) {
        jobs[i] = {&at, i, workers};
        ASSERT_EQ(vorn_threadpool_add_worker(workers, pass_gate, &jobs[i]), 0);
      }
      wait_entered(&at, 4);
      open_gate(&at);
      sync_thread_done(workers, 4);
      EXPECT_EQ(workers->done_count, 4);
    }
    std::atomic<int> sum{0};
    for (int stage = 0; stage < 500; ++stage) {
      slice jobs[4];
      vorn::cut_rows(jobs, slice{&sum, 0, 0, workers}, 1, 4);
      ASSERT_EQ(vorn::run_jobs(workers, add_rows, jobs), 0);
      ASSERT_EQ(sum.load(std::memory_order_relaxed), 6 * (stage + 1));
    }
    EXPECT_EQ(vorn_threadpool_destroy(workers), 0);
  }
  EXPECT_EQ(sched_setaffinity(0, sizeof all, &all), 0);
}

void* take_mask(void* arg) {
  pthread_sigmask(SIG_BLOCK, nullptr, static_cast<sigset_t*>(arg));
  return nullptr;
}

// An application's handlers run on its own threads; a fault still reaches its handler.
TEST(Pool, WorkersTakeNoSignals) {
  sigset_t before, after, worker;
  pthread_sigmask(SIG_BLOCK, nullptr, &before);
  pool* workers = nullptr;
  ASSERT_EQ(vorn_threadpool_init(&workers, 1), 0);
  pthread_sigmask(SIG_BLOCK, nullptr, &after);
  ASSERT_EQ(vorn_threadpool_add_worker(workers, take_mask, &worker), 0);
  gate at;
  gate_job last = {&at, 0, workers};
  reset_thread_done(workers);
  ASSERT_EQ(vorn_threadpool_add_worker(workers, pass_gate, &last), 0);
  open_gate(&at);
  sync_thread_done(workers, 1);
  for (int signal : {SIGINT, SIGTERM, SIGALRM, SIGPROF, SIGUSR1, SIGCHLD, SIGHUP}) {
    EXPECT_EQ(sigismember(&worker, signal), 1) << signal;
    EXPECT_EQ(sigismember(&after, signal), sigismember(&before, signal)) << signal;
  }
  for (int signal : {SIGSEGV, SIGBUS, SIGILL, SIGFPE})
    EXPECT_EQ(sigismember(&worker, signal), 0) << signal;
  EXPECT_EQ(vorn_threadpool_destroy(workers), 0);
}

// Opens the gate once destroy has asked for the shutdown; the pool stays until its workers are
// through.
void* open_late(void* arg) {
  const gate_job* first = static_cast<gate_job*>(arg);
  for (int shutdown = 0; !shutdown; usleep(100)) {
    pthread_mutex_lock(&first->workers->queue_lock);
    shutdown = first->workers->shutdown;
    pthread_mutex_unlock(&first->workers->queue_lock);
  }
  open_gate(first->at);
  return nullptr;
}

TEST(Pool, DestroyDropsJobsThatNoWorkerHasTaken) {
  const int before = running_threads();
  pool* workers = nullptr;
  ASSERT_EQ(vorn_threadpool_init(&workers, 2), 0);
  gate at;
  gate_job jobs[8];
  for (int i = 0; i < 8; ++i) {
    jobs[i] = {&at, i, workers};
    ASSERT_EQ(vorn_threadpool_add_worker(workers, pass_gate, &jobs[i]), 0);
  }
  wait_entered(&at, 2);
  pthread_t opener;
  ASSERT_EQ(pthread_create(&opener, nullptr, open_late, &jobs[0]), 0);
  EXPECT_EQ(vorn_threadpool_destroy(workers), 0);
  pthread_join(opener, nullptr);
  EXPECT_EQ(at.entered, 2);
  EXPECT_EQ(threads_reaching(before), before);
}

TEST(Pool, DestroyWhileIdleAndRefusedWhenAlreadyAsked) {
  const int before = running_threads();
  for (int i = 0; i < 200; ++i) {
    pool* workers = nullptr;
    ASSERT_EQ(vorn_threadpool_init(&workers, 4), 0);
    ASSERT_EQ(workers->max_thread_num, 4);
    ASSERT_EQ(vorn_threadpool_destroy(workers), 0);
  }
  EXPECT_EQ(threads_reaching(before), before);

  pool* workers = nullptr;
  ASSERT_EQ(vorn_threadpool_init(&workers, 1), 0);
  pthread_mutex_lock(&workers->queue_lock);
  workers->shutdown = 1;
  pthread_mutex_unlock(&workers->queue_lock);
  EXPECT_EQ(vorn_threadpool_destroy(workers), -1);
  EXPECT_EQ(workers->max_thread_num, 1);  // still there
  pthread_mutex_lock(&workers->queue_lock);
  workers->shutdown = 0;
  pthread_mutex_unlock(&workers->queue_lock);
  EXPECT_EQ(vorn_threadpool_destroy(workers), 0);
}

TEST(Pool, ImpossibleThreadNumbersAreRefused) {
  for (int count : {0, -3, 5, 1 << 30}) {
    log_capture log;
    pool* workers = reinterpret_cast<pool*>(16);
    EXPECT_EQ(vorn_threadpool_init(&workers, count), -1);
    EXPECT_EQ(workers, nullptr);
    EXPECT_EQ(log.count('E'), 1);
    if (count < 1) {
      EXPECT_TRUE(log.has("E YCNR_LOG: L #, vorn_threadpool_init:all LTM thread create failed."));
    }
  }
}

// Whether cores 4..7 or 0..3 exist, and whether the process may raise its priority, depends on the
// machine: each worker reports one outcome of either.
TEST(Pool, BoundWorkersReportTheirCore) {
  log_capture log;
  pool* workers = nullptr;
  ASSERT_EQ(vorn::create_pool(&workers, 4, 1), 0);
  std::atomic<int> sum{0};
  slice jobs[4];
  vorn::cut_rows(jobs, slice{&sum, 0, 0, workers}, 1, 4);
  EXPECT_EQ(vorn::run_jobs(workers, add_rows, jobs), 0);
  EXPECT_EQ(vorn_threadpool_destroy(workers), 0);
  int outcomes = 0;
  for (const std::string& line : log.lines()) {
    const bool bound = line.rfind("I YCNR_LOG: L #, vorn_thread_routine:core ", 0) == 0;
    const bool unbound =
        line == "E YCNR_LOG: L #, vorn_thread_routine:warning: could not set CPU affinity";
    outcomes += bound || unbound;
    if (bound) {
      EXPECT_NE(line.find(" binded."), std::string::npos);
      const int core = std::stoi(line.substr(line.find("core ") + 5));
      EXPECT_TRUE(core >= 0 && core < 8);
    }
  }
  EXPECT_EQ(outcomes, 4);
}

}  // namespace
