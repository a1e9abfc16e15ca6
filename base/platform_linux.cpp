// What Android and the host have in common: threads and processors as the Linux kernel offers them.
#include <sched.h>
#include <sys/resource.h>
#include <unistd.h>

#include "base/platform.h"

namespace vorn {

bool platform_bind_thread(int core) {
  cpu_set_t set;
  CPU_ZERO(&set);
  CPU_SET(core, &set);
  return sched_setaffinity(0, sizeof set, &set) == 0;  // 0: the calling thread
}

bool platform_set_nice(int nice) {
  return setpriority(PRIO_PROCESS, static_cast<id_t>(gettid()), nice) == 0;
}

int platform_processor() {
  return sched_getcpu();
}

int platform_processors() {
  return static_cast<int>(sysconf(_SC_NPROCESSORS_ONLN));
}

int platform_usable_processors() {
  cpu_set_t set;
  if (sched_getaffinity(0, sizeof set, &set) == 0) return CPU_COUNT(&set);
  const int online = platform_processors();
  return online > 0 ? online : 1;
}

}  // namespace vorn
