#include "base/stage_times.h"

#include <cstdio>

#include "base/callback.h"

void vorn::stage_times::report(const char* name, int level, double ms, int line) const {
  if (!log_enabled(kLogDebug) && !sink_.sink) return;
  char stage[64];
  std::snprintf(stage, sizeof stage, name, level);
  VORN_LOG_AT(kLogDebug, function_, line, "    %s cost time: %.3f%s \n", stage, ms, unit_);
  tell(stage, ms);
}

void vorn::stage_sink::tell(const char* name, double ms) const {
  if (sink) call_application([&] { sink(context, name, ms); });
}
