// The stages of one frame, in order: each is timed, logged and, when it fails, the last one.
#pragma once

#include <type_traits>

#include "base/log.h"

namespace vorn {

// Who is told the time of every stage.
struct stage_sink {
  void (*sink)(void* context, const char* stage, double ms);  // or null
  void* context;

  // ms of what name says.
  void tell(const char* name, double ms) const;
};

class stage_times {
 public:
  // Lines stand under the name `function`; `unit` follows the milliseconds.
  stage_times(const stage_sink& sink, const char* function, const char* unit)
      : sink_(sink), function_(function), unit_(unit) {}

  // Calls stage(), which returns nothing, or 0 or a failure, and reports its time unless it failed.
  // Does nothing after a failure. name is a format that may print level.
  template <typename Stage>
  void run(const char* name, int level, const Stage& stage, int line = __builtin_LINE()) {
    if (result_ != 0) return;
    const double start = getTime();
    if constexpr (std::is_void_v<decltype(stage())>)
      stage();
    else
      result_ = stage();
    if (result_ == 0) report(name, level, getTime() - start, line);
  }

  // What every stage's time goes through: one DEBUG line "    <name> cost time: <ms><unit> ", and
  // the sink.
  void report(const char* name, int level, double ms, int line = __builtin_LINE()) const;

  // For the sink alone, without a line.
  void tell(const char* name, double ms) const { sink_.tell(name, ms); }

  // 0, or what the stage that failed returned.
  int result() const { return result_; }

 private:
  const stage_sink& sink_;
  const char* function_;
  const char* unit_;
  int result_ = 0;
};

}  // namespace vorn
