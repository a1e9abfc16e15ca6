#include "base/log.h"

#include <pthread.h>
#include <time.h>

#include <cmath>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "base/callback.h"
#include "base/platform.h"

int nr_log_Level = 4;

namespace {

constexpr char kTag[] = "YCNR_LOG";
constexpr int kLineMax = 1024;  // longer lines are cut, as the device's log does
constexpr int kPropertyBuffer = 256;
constexpr double kNsPerSecond = 1e9;
constexpr double kMsPerNs = 1e-6;

// Where lines go instead of the platform's log: the current one of the two. Both stay whole at any
// time, so that a child of fork() finds one.
struct log_target {
  void (*sink)(void*, int, const char*);
  void* context;
};
log_target targets[2] = {};
int current_target = 0;

// Held while the sink runs, so that it can be taken away safely.
pthread_mutex_t sink_lock = PTHREAD_MUTEX_INITIALIZER;
thread_local bool in_sink = false;

// A level that initLogLevel leaves alone, -1 for none.
int kept_level = -1;

// Held while the C library's time zone is looked up anew, for handles on several threads.
pthread_mutex_t zone_lock = PTHREAD_MUTEX_INITIALIZER;

// Whether a sink took the line.
bool pass_to_sink(int priority, char* text) {
  if (in_sink) return false;
  struct lock {  // given up by a cancelled thread, too
    lock() {
      pthread_mutex_lock(&sink_lock);
      in_sink = true;
    }
    ~lock() {
      in_sink = false;
      pthread_mutex_unlock(&sink_lock);
    }
  } held;
  const log_target target = targets[__atomic_load_n(&current_target, __ATOMIC_RELAXED)];
  if (!target.sink) return false;
  const size_t length = std::strlen(text);
  if (length > 0 && text[length - 1] == '\n') text[length - 1] = '\0';
  vorn::call_application([&] { target.sink(target.context, priority, text); });
  return true;
}

// A fork() must not leave a lock behind that a thread of the parent held. The sink's is made anew:
// waiting for a sink could take for ever. The zone's is waited for, since the C library has one of
// its own that is held along with it.
void before_fork() {
  pthread_mutex_lock(&zone_lock);
}

void after_fork() {
  pthread_mutex_unlock(&zone_lock);
}

void in_child() {
  pthread_mutex_unlock(&zone_lock);
  if (!in_sink) sink_lock = PTHREAD_MUTEX_INITIALIZER;
}

[[maybe_unused]] const int registered = pthread_atfork(before_fork, after_fork, in_child);

// The number at the start of a text; 0 when there is none. One that is too large wraps, as atoi
// does on the device, where 4294967295 is -1; atoi itself leaves it undefined.
int leading_number(const char* text) {
  return static_cast<int>(std::strtol(text, nullptr, 10));
}

}  // namespace

namespace vorn {

// The level is a plain exported integer; these two accesses keep handles on several threads free
// of a data race. A line more or less while another handle is created does no harm.
bool log_enabled(log_priority priority) {
  return log_level() >= log_threshold(priority);
}

void log_write(log_priority priority, const char* format, ...) {
  char text[kLineMax];
  va_list args;
  va_start(args, format);
  std::vsnprintf(text, sizeof text, format, args);
  va_end(args);
  if (!pass_to_sink(priority, text)) platform_log(priority, kTag, text);
}

void set_log_sink(void (*sink)(void*, int, const char*), void* context) {
  const bool lock = !in_sink;
  if (lock) pthread_mutex_lock(&sink_lock);
  const int other = 1 - current_target;
  targets[other] = {sink, context};
  __atomic_store_n(&current_target, other, __ATOMIC_RELEASE);
  if (lock) pthread_mutex_unlock(&sink_lock);
}

int log_level() {
  return __atomic_load_n(&nr_log_Level, __ATOMIC_RELAXED);
}

int set_log_level(int level) {
  const int former = log_level();
  __atomic_store_n(&kept_level, level < 0 ? -1 : level, __ATOMIC_RELAXED);
  if (level < 0) {
    initLogLevel();
  } else {
    __atomic_store_n(&nr_log_Level, level, __ATOMIC_RELAXED);
  }
  return former;
}

}  // namespace vorn

void initLogLevel() {
  if (__atomic_load_n(&kept_level, __ATOMIC_RELAXED) >= 0) return;
  int level = __atomic_load_n(&nr_log_Level, __ATOMIC_RELAXED);
  char value[vorn::kPropertyMax];
  if (vorn::platform_property("ro.debuggable", value) >= 1) level = leading_number(value) ? 4 : 3;
  if (vorn::platform_property("persist.vendor.cam.nr_api.log", value) >= 1) {
    const int wanted = leading_number(value);
    if (wanted >= 0) level = wanted;
  }
  __atomic_store_n(&nr_log_Level, level, __ATOMIC_RELAXED);
}

double getTime() {
  timespec now = {};
  clock_gettime(CLOCK_MONOTONIC, &now);
  const double total =
      std::fma(static_cast<double>(now.tv_sec), kNsPerSecond, static_cast<double>(now.tv_nsec));
  return static_cast<double>(static_cast<int64_t>(total)) * kMsPerNs;
}

void getProperty_NR(const char* name, const char* default_value, char* value) {
  char set[vorn::kPropertyMax];
  vorn::platform_property(name, set);
  if (set[0]) {
    std::strcpy(value, set);
    return;
  }
  std::strncpy(value, default_value, kPropertyBuffer);  // zeros up to the end
  value[kPropertyBuffer - 1] = '\0';
}

void getTimestamp_NR(char* buffer, int size) {
  if (size < 1) return;
  const time_t now = time(nullptr);
  tm local;
  pthread_mutex_lock(&zone_lock);
  tzset();  // the zone may have changed since the last call; localtime_r need not look
  if (localtime_r(&now, &local))
    strftime(buffer, static_cast<size_t>(size), "%Y%m%d%H%M%S", &local);
  pthread_mutex_unlock(&zone_lock);
}
