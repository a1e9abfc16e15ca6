#include "base/stage_times.h"

#include <cstdio>

#include "base/callback.h"

void vorn::stage_times::report(const char* name, int level, double ms, int line) const {
  if (!log_enabled(kLogDebug) && !owner_->stage_sink) return;
  char stage[64];
  std::snprintf(stage, sizeof stage, name, level);
  VORN_LOG_AT(kLogDebug, function_, line, "    %s cost time: %.3f%s \n", stage, ms, unit_);
  tell(stage, ms);
}

void vorn::stage_times::tell(const char* name, double ms) const {
  tell_time(*owner_, name, ms);
}

void vorn::tell_time(const denoise_handle_t& owner, const char* name, double ms) {
  if (owner.stage_sink) call_application([&] { owner.stage_sink(owner.stage_context, name, ms); });
}
