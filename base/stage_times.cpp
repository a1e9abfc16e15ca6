#include "base/stage_times.h"

#include <cstdio>

void vorn::stage_times::report(const char* name, int level, double ms, int line) const {
  if (!log_enabled(kLogDebug)) return;
  char stage[64];
  std::snprintf(stage, sizeof stage, name, level);
  VORN_LOG_AT(kLogDebug, function_, line, "    %s cost time: %.3f%s \n", stage, ms, unit_);
}
